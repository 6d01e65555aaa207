/* SPDX-License-Identifier: BSD-3-Clause */
/* The operation table and the capability report. */

#include <cerrno>

#include "vask_p4_meter_internal.h"

/* 4096 hardware meters less the reserved index 0. */
constexpr uint32_t METERS_MAX = 0xFFF;
constexpr uint32_t POLICIES_MAX = 0x100;
constexpr uint64_t RATE_MAX = 0xFFFFFFFFFF;

int
vask_p4_meter_cap_get(struct rte_eth_dev * /*dev*/, struct rte_mtr_capabilities *cap,
	struct rte_mtr_error * /*error*/)
{
	*cap = {};
	cap->n_max = METERS_MAX;
	cap->n_shared_max = METERS_MAX;
	cap->shared_n_flows_per_mtr_max = 4;
	cap->chaining_n_mtrs_per_flow_max = 1;
	cap->meter_srtcm_rfc2697_n_max = METERS_MAX;
	cap->meter_trtcm_rfc2698_n_max = METERS_MAX;
	cap->meter_rate_max = RATE_MAX;
	cap->meter_policy_n_max = POLICIES_MAX;
	cap->srtcm_rfc2697_byte_mode_supported = 1;
	cap->srtcm_rfc2697_packet_mode_supported = 1;
	cap->trtcm_rfc2698_byte_mode_supported = 1;
	cap->trtcm_rfc2698_packet_mode_supported = 1;
	/* RFC 4115 is supported although meter_trtcm_rfc4115_n_max stays 0: applications know it so. */
	cap->trtcm_rfc4115_byte_mode_supported = 1;
	cap->trtcm_rfc4115_packet_mode_supported = 1;
	cap->stats_mask = RTE_MTR_STATS_N_PKTS_DROPPED | RTE_MTR_STATS_N_BYTES_DROPPED;
	return 0;
}

/*
 * Assigned by name, because releases of DPDK differ in their slots. Those that stay empty are answered by
 * ethdev with -ENOSYS: input-colour tables, a meter's statistics mask and a policy's actions do not change.
 */
static constexpr struct rte_mtr_ops
vask_p4_mtr_ops_fill()
{
	struct rte_mtr_ops ops = {};

	ops.capabilities_get = vask_p4_meter_cap_get;
	ops.meter_profile_add = vask_p4_meter_profile_add;
	ops.meter_profile_delete = vask_p4_meter_profile_delete;
	ops.create = vask_p4_meter_create;
	ops.destroy = vask_p4_meter_destroy;
	ops.meter_enable = vask_p4_meter_enable;
	ops.meter_disable = vask_p4_meter_disable;
	ops.meter_profile_update = vask_p4_meter_profile_update;
	ops.stats_read = vask_p4_meter_stats_read;
	ops.meter_policy_validate = vask_p4_meter_policy_validate;
	ops.meter_policy_add = vask_p4_meter_policy_add;
	ops.meter_policy_delete = vask_p4_meter_policy_delete;
	return ops;
}

static constinit const struct rte_mtr_ops vask_p4_mtr_ops = vask_p4_mtr_ops_fill();

int
vask_p4_dev_mtr_ops_get(struct rte_eth_dev *dev, void *ops)
{
	if (dev == nullptr)
		return -EINVAL;

	*static_cast<const struct rte_mtr_ops **>(ops) = &vask_p4_mtr_ops;
	return 0;
}
