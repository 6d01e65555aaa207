/* SPDX-License-Identifier: BSD-3-Clause */
#include "runner_fake.h"

#include <cstdarg>
#include <cstdio>

extern "C" {
struct vask_p4_meter_profile_list_head vask_p4_meter_profile_list;
struct vask_p4_meter_policy_list_head vask_p4_meter_policy_list;
struct vask_p4_meter_list_head vask_p4_meter_list;
}

struct runner_fake fake;

/* Events */

static bool
locked(const runner_block &block)
{
	switch (block.kind) {
	case 'P':
		return static_cast<vask_p4_meter_profile_node *>(block.address)->data.sl.locked;
	case 'Q':
		return static_cast<vask_p4_meter_policy_node *>(block.address)->data.sl.locked;
	case 'M':
		return static_cast<vask_p4_meter_cfg_node *>(block.address)->data.sl.locked;
	default:
		return false;
	}
}

std::string
runner_locks()
{
	std::string letters;
	for (char kind : {'P', 'Q', 'M'}) {
		for (const runner_block &block : fake.live) {
			if (block.kind == kind && locked(block)) {
				letters += kind;
			}
		}
	}
	return letters.empty() ? letters : "@" + letters;
}

void
runner_record(const std::string &event)
{
	if (!fake.events.empty()) {
		fake.events += ',';
	}
	fake.events += runner_quoted(event);
}

std::string
runner_format(const char *text, ...)
{
	char buffer[512];
	va_list arguments;
	va_start(arguments, text);
	vsnprintf(buffer, sizeof(buffer), text, arguments);
	va_end(arguments);
	return buffer;
}

bool
runner_planned(const char *operation, int *code)
{
	auto found = fake.faults.find({operation, ++fake.calls[operation]});
	if (found == fake.faults.end()) {
		return false;
	}
	*code = found->second;
	return true;
}

std::string
runner_manager_name(const VASK_P4_INDEXSTACK_MANAGER *manager)
{
	const runner_pool *pool = runner_pool_of(manager);
	return pool != nullptr ? std::to_string(pool->number) : manager == nullptr ? "0" : "?";
}

extern "C" void
runner_lock_event(const char *what, const rte_spinlock_t *lock)
{
	char kind = '?';
	for (const runner_block &block : fake.live) {
		auto at = reinterpret_cast<uintptr_t>(lock) -
			reinterpret_cast<uintptr_t>(block.address);
		if ((block.kind == 'P' && at == offsetof(vask_p4_meter_profile_node, data.sl)) ||
			(block.kind == 'Q' && at == offsetof(vask_p4_meter_policy_node, data.sl)) ||
			(block.kind == 'M' && at == offsetof(vask_p4_meter_cfg_node, data.sl))) {
			kind = block.kind;
		}
	}
	runner_record(runner_format("%s(%c)", what, kind));
}
