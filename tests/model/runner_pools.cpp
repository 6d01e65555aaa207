/* SPDX-License-Identifier: BSD-3-Clause */
#include "runner_fake.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "vask_p4_log.h"

extern "C" {
void *__real_calloc(size_t count, size_t size);
void __real_free(void *address);
void *__wrap_calloc(size_t count, size_t size);
void __wrap_free(void *address);

int vask_p4_logtype = 77;
}

/* DPDK's log and the C library's allocations */

extern "C" {

int
rte_log(uint32_t level, uint32_t logtype, const char *format, ...)
{
	if (!fake.recording) {
		return 0;
	}
	char buffer[1024];
	va_list arguments;
	va_start(arguments, format);
	vsnprintf(buffer, sizeof(buffer), format, arguments);
	va_end(arguments);
	std::string line = buffer;
	size_t at = line.find("priv: 0x");
	if (at != std::string::npos) {
		size_t end = line.find_first_not_of("0123456789abcdef", at + 8);
		line.replace(at + 6, end - at - 6, "*");
	}
	if (logtype != static_cast<uint32_t>(vask_p4_logtype)) {
		level += 100;
	}
	runner_record("L" + std::to_string(level) + runner_locks() + "|" + line);
	return 0;
}

void *
__wrap_calloc(size_t count, size_t size)
{
	if (!fake.recording) {
		return __real_calloc(count, size);
	}
	size_t bytes = count * size;
	char kind = bytes == sizeof(vask_p4_meter_profile_node) ? 'P'
		: bytes == sizeof(vask_p4_meter_policy_node)    ? 'Q'
		: bytes == sizeof(vask_p4_meter_cfg_node)       ? 'M'
								: '?';
	int code = 0;
	void *address = runner_planned("calloc", &code) ? nullptr : __real_calloc(count, size);
	runner_record(runner_format("calloc(%c)=%d", kind, address != nullptr) + runner_locks());
	if (address != nullptr) {
		fake.live.push_back({address, kind});
	}
	return address;
}

void
__wrap_free(void *address)
{
	if (fake.recording && address != nullptr) {
		for (size_t n = 0; n < fake.live.size(); n++) {
			if (fake.live[n].address == address) {
				fake.live.erase(fake.live.begin() + static_cast<long>(n));
				__real_free(address);
				return;
			}
		}
		fake.bad_frees++;
		return;
	}
	__real_free(address);
}

/* The pools */

int
vask_p4_indexstack_create(uint32_t capacity, VASK_P4_INDEXSTACK_MANAGER **manager)
{
	int code = 0;
	if (runner_planned("vask_p4_indexstack_create", &code)) {
		*manager = nullptr;
	} else {
		unsigned int number = static_cast<unsigned int>(fake.pools.size()) + 1;
		fake.pools.push_back({{}, std::vector<uint8_t>(capacity), false, number});
		*manager = &fake.pools.back().manager;
	}
	runner_record(runner_format("vask_p4_indexstack_create(%u)=%d:%s", capacity, code,
			      runner_manager_name(*manager).c_str()) +
		runner_locks());
	return code;
}

int
vask_p4_indexstack_alloc(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t *pindex, uint32_t count)
{
	int code = 0;
	std::string shown = "-";
	if (!runner_planned("vask_p4_indexstack_alloc", &code)) {
		runner_pool *pool = runner_pool_of(manager);
		code = pool == nullptr || pool->dead ? -77 : -28;
		for (uint32_t index = 0; code == -28 && index < pool->used.size(); index++) {
			if (pool->used[index] == 0) {
				pool->used[index] = 1;
				*pindex = index;
				shown = std::to_string(index);
				code = 0;
			}
		}
	}
	runner_record(runner_format("vask_p4_indexstack_alloc(%s,%u)=%d:",
			      runner_manager_name(manager).c_str(), count, code) +
		shown + runner_locks());
	return code;
}

int
vask_p4_indexstack_free(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t index, uint32_t count)
{
	int code = 0;
	if (!runner_planned("vask_p4_indexstack_free", &code)) {
		runner_pool *pool = runner_pool_of(manager);
		if (pool == nullptr || pool->dead) {
			code = -77;
		} else if (index >= pool->used.size() || pool->used[index] == 0) {
			code = -22;
		} else {
			pool->used[index] = 0;
		}
	}
	runner_record(runner_format("vask_p4_indexstack_free(%s,%u,%u)=%d",
			      runner_manager_name(manager).c_str(), index, count, code) +
		runner_locks());
	return code;
}

int
vask_p4_indexstack_set(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t index, uint32_t count)
{
	runner_record(runner_format("vask_p4_indexstack_set(%s,%u,%u)=",
			      runner_manager_name(manager).c_str(), index, count) +
		runner_locks());
	runner_pool *pool = runner_pool_of(manager);
	if (pool != nullptr && !pool->dead && index < pool->used.size()) {
		pool->used[index] = 1;
	}
	return 0;
}

void
vask_p4_indexstack_destroy(VASK_P4_INDEXSTACK_MANAGER *manager)
{
	runner_record("vask_p4_indexstack_destroy(" + runner_manager_name(manager) +
		")=" + runner_locks());
	runner_pool *pool = runner_pool_of(manager);
	if (pool != nullptr) {
		pool->dead = true;
	}
}
}
