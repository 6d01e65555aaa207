/* SPDX-License-Identifier: BSD-3-Clause */

#include "softcard_fault.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>

#include <rte_cycles.h>
#include <rte_spinlock.h>

#include "softcard_call.h"

static constexpr std::array<const char *, SOFTCARD_OPERATIONS> OPERATION_NAMES = {
	"vask_p4_mep_add_meter_profile",
	"vask_p4_mep_del_meter_profile",
	"vask_p4_mep_add_meter_policy",
	"vask_p4_mep_del_meter_policy",
	"vask_p4_mep_read_meter_inst",
	"vask_p4_mep_update_meter_output_by_meterid",
	"vask_p4_mep_del_meter_output_by_meterid",
	"vask_p4_mep_update_meter_output_by_mtu",
	"qorn_meter_profile_update",
	"qorn_meter_profile_delete",
	"qorn_meter_table_update",
	"qorn_meter_table_delete",
	"qorn_input_port_tx_table_get",
	"qorn_input_port_tx_table_add",
	"vask_cmd_set_shaper",
	"vask_p4_isch_shaper_csr_write",
	"vask_p4_get_global_cmd_channel",
	"vask_p4_indexstack_create",
	"vask_p4_indexstack_alloc",
	"vask_p4_indexstack_free",
	"vask_p4_indexstack_set",
	"vask_p4_indexstack_destroy",
};

/* guards the faults, and changes of their number */
static rte_spinlock_t faults_lock = RTE_SPINLOCK_INITIALIZER;
static std::array<struct softcard_fault, SOFTCARD_FAULTS> faults;
std::atomic<uint32_t> softcard_faults_set;

const char *
softcard_operation_name(uint32_t i)
{
	return i < OPERATION_NAMES.size() ? OPERATION_NAMES[i] : nullptr;
}

static const char *
operation_find(std::string_view name)
{
	for (const char *operation : OPERATION_NAMES)
		if (name == operation)
			return operation;
	return nullptr;
}

int
softcard_fault_set(const char *operation, uint64_t nth, int code, uint32_t delay_us)
{
	operation = operation == nullptr ? nullptr : operation_find(operation);
	if (operation == nullptr)
		return -ENOENT;
	if (code == SOFTCARD_FAULT_DELAY_ONLY && delay_us == 0)
		return -EINVAL;
	if (code != SOFTCARD_FAULT_DELAY_ONLY &&
		operation == OPERATION_NAMES[SOFTCARD_OP_INDEX_DESTROY])
		return -ENOTSUP;

	int rc = -ENOSPC;
	rte_spinlock_lock(&faults_lock);
	if (softcard_faults_set < faults.size()) {
		faults[softcard_faults_set++] = {operation, nth, code, delay_us, 0, 0};
		rc = 0;
	}
	rte_spinlock_unlock(&faults_lock);
	return rc;
}

void
softcard_fault_clear()
{
	softcard_fault_keep(0);
}

void
softcard_fault_keep(uint32_t n)
{
	rte_spinlock_lock(&faults_lock);
	softcard_faults_set = std::min(n, softcard_faults_set.load());
	rte_spinlock_unlock(&faults_lock);
}

uint32_t
softcard_fault_list(struct softcard_fault *list, uint32_t n)
{
	rte_spinlock_lock(&faults_lock);
	const uint32_t set = softcard_faults_set;
	for (uint32_t i = 0; i < n && i < set; i++)
		list[i] = faults[i];
	rte_spinlock_unlock(&faults_lock);
	return set;
}

struct softcard_call
softcard_fault_take(enum softcard_operation op)
{
	struct softcard_call call = {op, false, 0};
	uint32_t delay_us = 0;

	rte_spinlock_lock(&faults_lock);
	for (uint32_t i = 0; i < softcard_faults_set; i++) {
		struct softcard_fault &fault = faults[i];

		if (fault.operation != OPERATION_NAMES[op])
			continue;
		fault.calls++;
		if (fault.nth != SOFTCARD_FAULT_EVERY && fault.nth != fault.calls)
			continue;
		fault.hits++;
		delay_us += fault.delay_us;
		if (!call.fault && fault.code != SOFTCARD_FAULT_DELAY_ONLY) {
			call.fault = true;
			call.rc = fault.code;
		}
	}
	rte_spinlock_unlock(&faults_lock);

	if (delay_us != 0)
		rte_delay_us_sleep(delay_us);
	return call;
}

/* Takes the text up to the next colon off the front of `rest`, the colon too. */
static std::string_view
field_take(std::string_view *rest)
{
	const auto end = std::find(rest->begin(), rest->end(), ':');
	const std::string_view field(rest->begin(), end);

	rest->remove_prefix(std::min(field.size() + 1, rest->size()));
	return field;
}

template <typename Number>
static bool
number_read(std::string_view text, Number *number)
{
	const char *end = text.data() + text.size();
	const std::from_chars_result result = std::from_chars(text.data(), end, *number);

	return !text.empty() && result.ec == std::errc() && result.ptr == end;
}

/* Says that an operation does not exist, and which do. */
static void
operations_tell(std::string_view name, char *why, size_t why_size)
{
	size_t used = snprintf(why, why_size, "no operation '%.*s'; there are",
		static_cast<int>(name.size()), name.data());

	for (const char *operation : OPERATION_NAMES)
		if (used < why_size)
			used += snprintf(why + used, why_size - used, " %s", operation);
}

int
softcard_fault_parse(const char *text, char *why, size_t why_size)
{
	std::string_view rest = text == nullptr ? "" : text;
	const std::string_view name = field_take(&rest);
	const std::string_view nth_text = field_take(&rest);
	const std::string_view code_text = field_take(&rest);
	const std::string_view delay_text = rest;
	uint64_t nth = SOFTCARD_FAULT_EVERY;
	int code = 0;
	uint32_t delay_us = 0;

	const char *operation = operation_find(name);
	if (operation == nullptr) {
		operations_tell(name, why, why_size);
		return -ENOENT;
	}
	if (nth_text != "every" && (!number_read(nth_text, &nth) || nth == SOFTCARD_FAULT_EVERY)) {
		snprintf(why, why_size, "'%.*s' is neither 'every' nor a call, counted from 1",
			static_cast<int>(nth_text.size()), nth_text.data());
		return -EINVAL;
	}
	if (!number_read(code_text, &code)) {
		snprintf(why, why_size, "'%.*s' is no code; one is a number, as in -5",
			static_cast<int>(code_text.size()), code_text.data());
		return -EINVAL;
	}
	if (!delay_text.empty() && !number_read(delay_text, &delay_us)) {
		snprintf(why, why_size, "'%.*s' is no delay in microseconds",
			static_cast<int>(delay_text.size()), delay_text.data());
		return -EINVAL;
	}

	const int rc = softcard_fault_set(operation, nth, code, delay_us);
	if (rc == -EINVAL)
		snprintf(why, why_size, "code 0 without a delay is no fault");
	else if (rc == -ENOTSUP)
		snprintf(why, why_size, "%s returns nothing and cannot fail; code 0 delays it",
			operation);
	else if (rc == -ENOSPC)
		snprintf(why, why_size, "%u faults are set already", SOFTCARD_FAULTS);
	return rc;
}
