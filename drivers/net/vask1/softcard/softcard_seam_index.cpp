/* SPDX-License-Identifier: BSD-3-Clause */

/* The index pools' operations, as the driver calls them: the pools themselves are the driver's own. */

#include <algorithm>
#include <array>

#include "softcard_call.h"
#include "vask_p4_driver.h"

/* The pools that stand, each in the place that gives it its number in the trace. */
static std::array<const VASK_P4_INDEXSTACK_MANAGER *, 16> pools;

static void
pool_replace(const VASK_P4_INDEXSTACK_MANAGER *old, const VASK_P4_INDEXSTACK_MANAGER *pool)
{
	const auto at = std::find(pools.begin(), pools.end(), old);

	if (at != pools.end())
		*at = pool;
}

/* 1 for the first pool; 0 for none. */
static unsigned
pool_number(const VASK_P4_INDEXSTACK_MANAGER *pool)
{
	const auto at = std::find(pools.begin(), pools.end(), pool);

	return pool == nullptr || at == pools.end() ? 0 : at - pools.begin() + 1;
}

int
vask_p4_indexstack_create(uint32_t capacity, VASK_P4_INDEXSTACK_MANAGER **manager)
{
	if (manager != nullptr)
		*manager = nullptr;
	return softcard_call_do(
		SOFTCARD_OP_INDEX_CREATE,
		[=] {
			const int rc = vask_p4_idx_create(capacity, manager);

			if (rc == 0)
				pool_replace(nullptr, *manager);
			return rc;
		},
		[=](const struct softcard_call &call) {
			softcard_trace_call(call, nullptr, 0, "pool=%u capacity=%u",
				call.rc == 0 ? pool_number(*manager) : 0, capacity);
		});
}

int
vask_p4_indexstack_alloc(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t *pindex, uint32_t count)
{
	return softcard_call_do(
		SOFTCARD_OP_INDEX_ALLOC, [=] { return vask_p4_idx_alloc(manager, pindex, count); },
		[=](const struct softcard_call &call) {
			softcard_trace_call(call, nullptr, 0, "pool=%u count=%u index=%lld",
				pool_number(manager), count,
				call.rc == 0 && count > 0 ? static_cast<long long>(*pindex) : -1);
		});
}

int
vask_p4_indexstack_free(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t index, uint32_t count)
{
	return softcard_call_do(
		SOFTCARD_OP_INDEX_FREE, [=] { return vask_p4_idx_free(manager, index, count); },
		[=](const struct softcard_call &call) {
			softcard_trace_call(call, nullptr, 0, "pool=%u count=%u index=%u",
				pool_number(manager), count, index);
		});
}

int
vask_p4_indexstack_set(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t index, uint32_t count)
{
	return softcard_call_do(
		SOFTCARD_OP_INDEX_SET, [=] { return vask_p4_idx_set(manager, index, count); },
		[=](const struct softcard_call &call) {
			softcard_trace_call(call, nullptr, 0, "pool=%u count=%u index=%u",
				pool_number(manager), count, index);
		});
}

void
vask_p4_indexstack_destroy(VASK_P4_INDEXSTACK_MANAGER *manager)
{
	const unsigned number = pool_number(manager);

	softcard_call_do(
		SOFTCARD_OP_INDEX_DESTROY,
		[=] {
			pool_replace(manager, nullptr);
			vask_p4_idx_destroy(manager);
			return 0;
		},
		[=](const struct softcard_call &call) {
			softcard_trace_call(call, nullptr, 0, "pool=%u", number);
		});
}
