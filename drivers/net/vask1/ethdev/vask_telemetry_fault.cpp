/* SPDX-License-Identifier: BSD-3-Clause */
/* Telemetry of faults: lists, sets and lifts them. */
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "softcard_fault.h"
#include "vask_port.h"
#include "vask_telemetry.h"

namespace
{

void
list_faults(struct rte_tel_data *d)
{
	struct softcard_fault faults[SOFTCARD_FAULTS];
	const uint32_t n = softcard_fault_list(faults, SOFTCARD_FAULTS);

	rte_tel_data_start_dict(d);
	for (uint32_t i = 0; i < n; i++) {
		struct rte_tel_data *f = vask_tel_dict();
		char name[16];

		if (f == nullptr)
			continue;
		snprintf(name, sizeof(name), "%u", i);
		rte_tel_data_add_dict_string(f, "operation", faults[i].operation);
		if (faults[i].nth == SOFTCARD_FAULT_EVERY)
			rte_tel_data_add_dict_string(f, "nth", "every");
		else
			vask_tel_add_dict_uint(f, "nth", faults[i].nth);
		rte_tel_data_add_dict_int(f, "code", faults[i].code);
		vask_tel_add_dict_uint(f, "delay_us", faults[i].delay_us);
		vask_tel_add_dict_uint(f, "calls", faults[i].calls);
		vask_tel_add_dict_uint(f, "hits", faults[i].hits);
		vask_tel_add_dict(d, name, f);
	}
}

void
list_operations(struct rte_tel_data *d)
{
	struct rte_tel_data *names = rte_tel_data_alloc();

	if (names == nullptr)
		return;
	rte_tel_data_start_array(names, RTE_TEL_STRING_VAL);
	for (uint32_t i = 0; softcard_operation_name(i) != nullptr; i++)
		rte_tel_data_add_array_string(names, softcard_operation_name(i));
	vask_tel_add_dict(d, "operations", names);
}

/* Nothing: the faults that are set. `clear`: lifts them. A fault's text: sets it. */
int
faults(const char *command, const char *params, struct rte_tel_data *d)
{
	const struct vask_control_guard lock;
	char why[1024];
	int rc = 0;

	if (TAILQ_EMPTY(&vask_ports))
		return vask_tel_error(d, "the card is down: there is no port");
	if (params != nullptr && strcmp(params, "clear") == 0)
		softcard_fault_clear();
	else if (params != nullptr && params[0] != '\0')
		rc = softcard_fault_parse(params, why, sizeof(why));
	if (rc == 0) {
		list_faults(d);
		return 0;
	}
	vask_tel_error(d, "%s[,clear|,<operation>:<n|every>:<code>[:<microseconds>]]", command);
	if (rc == -ENOENT)
		list_operations(d);
	else
		vask_tel_add_text(d, "reason", why);
	return 0;
}

} // namespace

RTE_INIT(vask_telemetry_fault_init)
{
	rte_telemetry_register_cmd("/net_vask1/faults", faults,
		"Faults; clears or sets them. Parameter: [clear | operation:n|every:code[:us]]");
}
