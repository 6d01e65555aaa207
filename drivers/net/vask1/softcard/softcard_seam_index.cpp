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
	struct softcard_call call = softcard_call_begin(SOFTCARD_OP_INDEX_CREATE);

	if (!call.fault)
		call.rc = vask_p4_idx_create(capacity, manager);
	else if (manager != nullptr)
		*manager = nullptr;
	if (call.rc == 0)
		/* NOLINTNEXTLINE(clang-analyzer-core.NullDereference): a pool was made */
		pool_replace(nullptr, *manager);
	if (softcard_trace_on())
		softcard_trace_call(call, nullptr, 0, "pool=%u capacity=%u",
			call.rc == 0 ? pool_number(*manager) : 0, capacity);
	return call.rc;
}

int
vask_p4_indexstack_alloc(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t *pindex, uint32_t count)
{
	struct softcard_call call = softcard_call_begin(SOFTCARD_OP_INDEX_ALLOC);

	if (!call.fault)
		call.rc = vask_p4_idx_alloc(manager, pindex, count);
	if (softcard_trace_on())
		softcard_trace_call(call, nullptr, 0, "pool=%u count=%u index=%lld",
			pool_number(manager), count,
			call.rc == 0 && count > 0 ? static_cast<long long>(*pindex) : -1);
	return call.rc;
}

int
vask_p4_indexstack_free(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t index, uint32_t count)
{
	struct softcard_call call = softcard_call_begin(SOFTCARD_OP_INDEX_FREE);

	if (!call.fault)
		call.rc = vask_p4_idx_free(manager, index, count);
	if (softcard_trace_on())
		softcard_trace_call(call, nullptr, 0, "pool=%u count=%u index=%u",
			pool_number(manager), count, index);
	return call.rc;
}

int
vask_p4_indexstack_set(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t index, uint32_t count)
{
	struct softcard_call call = softcard_call_begin(SOFTCARD_OP_INDEX_SET);

	if (!call.fault)
		call.rc = vask_p4_idx_set(manager, index, count);
	if (softcard_trace_on())
		softcard_trace_call(call, nullptr, 0, "pool=%u count=%u index=%u",
			pool_number(manager), count, index);
	return call.rc;
}

void
vask_p4_indexstack_destroy(VASK_P4_INDEXSTACK_MANAGER *manager)
{
	const struct softcard_call call = softcard_call_begin(SOFTCARD_OP_INDEX_DESTROY);
	const unsigned number = pool_number(manager);

	pool_replace(manager, nullptr);
	vask_p4_idx_destroy(manager);
	if (softcard_trace_on())
		softcard_trace_call(call, nullptr, 0, "pool=%u", number);
}
