/* SPDX-License-Identifier: BSD-3-Clause */
/* The pools of hardware indexes; start and stop of the module. */

#include "vask_p4_meter_internal.h"

/* Held back in every pool, so that 0 can mean "no index". */
constexpr uint32_t RESERVED_INDEX = 0;

constexpr uint32_t METER_POOL_SIZE = 4096;
constexpr uint32_t PROFILE_POOL_SIZE = 256;
constexpr uint32_t POLICY_POOL_SIZE = 256;

VASK_P4_INDEXSTACK_MANAGER *meter_index_mgr;
VASK_P4_INDEXSTACK_MANAGER *profile_index_mgr;
VASK_P4_INDEXSTACK_MANAGER *policy_index_mgr;

int
vask_p4_get_meter_index(VASK_P4_INDEXSTACK_MANAGER *list, uint32_t *pindex)
{
	return vask_p4_indexstack_alloc(list, pindex, 1);
}

int
vask_p4_meter_free_index(VASK_P4_INDEXSTACK_MANAGER *list, uint32_t index)
{
	return vask_p4_indexstack_free(list, index, 1);
}

void
vask_p4_meter_set_index(VASK_P4_INDEXSTACK_MANAGER *list, uint32_t index)
{
	vask_p4_indexstack_set(list, index, 1);
}

int
vask_p4_meter_indexstack_init(void)
{
	/* All three are tried, whatever became of the first. */
	const int meter_rc = vask_p4_indexstack_create(METER_POOL_SIZE, &meter_index_mgr);
	const int profile_rc = vask_p4_indexstack_create(PROFILE_POOL_SIZE, &profile_index_mgr);
	const int policy_rc = vask_p4_indexstack_create(POLICY_POOL_SIZE, &policy_index_mgr);

	if (meter_rc != 0 || profile_rc != 0 || policy_rc != 0) {
		VASK_P4_LOG(ERR, "create indexstack for meter index pool failed.");
		return -1;
	}

	vask_p4_meter_set_index(meter_index_mgr, RESERVED_INDEX);
	vask_p4_meter_set_index(profile_index_mgr, RESERVED_INDEX);
	vask_p4_meter_set_index(policy_index_mgr, RESERVED_INDEX);
	vask_p4_meter_set_index(policy_index_mgr, VASK_P4_DEFAULT_HW_POLICY_ID);

	vask_p4_meter_add_default_policy(VASK_P4_DEFAULT_POLICY_ID);
	return 0;
}

void
vask_p4_meter_indexstack_destory(void)
{
	vask_p4_indexstack_destroy(meter_index_mgr);
	vask_p4_indexstack_destroy(profile_index_mgr);
	vask_p4_indexstack_destroy(policy_index_mgr);
}
