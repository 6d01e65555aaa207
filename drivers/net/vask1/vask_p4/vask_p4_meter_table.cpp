/* SPDX-License-Identifier: BSD-3-Clause */
/* The P4 tables: profiles, policers and meter instances as rows. */

#include <cerrno>

extern "C" {
#include <ethdev_driver.h>
}

#include "vask_p4_meter_internal.h"

/* The log line below says 32; the limit is this one. */
constexpr uint16_t DPDK_PORTS_MAX = 562;

int
talvora_p4_offload_meter_profile_convert_from_std_2_nstd(
	struct rte_mtr_meter_profile *profile, const p4_meter_profile_t *entry)
{
	if (profile == nullptr || entry == nullptr)
		return -1;

	/* 3 gives a number that no algorithm has, and is stored all the same. */
	const unsigned int alg = entry->meter_rfc + 1;

	memcpy(&profile->alg, &alg, sizeof(alg));
	profile->packet_mode = entry->packet_mode;

	switch (alg) {
	case RTE_MTR_SRTCM_RFC2697:
		profile->srtcm_rfc2697.cir = entry->cir;
		profile->srtcm_rfc2697.cbs = entry->cbs;
		profile->srtcm_rfc2697.ebs = entry->ebs;
		return 0;
	case RTE_MTR_TRTCM_RFC2698:
		profile->trtcm_rfc2698.cir = entry->cir;
		profile->trtcm_rfc2698.pir = entry->eir;
		profile->trtcm_rfc2698.cbs = entry->cbs;
		profile->trtcm_rfc2698.pbs = entry->ebs;
		return 0;
	case RTE_MTR_TRTCM_RFC4115:
		profile->trtcm_rfc4115.cir = entry->cir;
		profile->trtcm_rfc4115.eir = entry->eir;
		profile->trtcm_rfc4115.cbs = entry->cbs;
		profile->trtcm_rfc4115.ebs = entry->ebs;
		return 0;
	default:
		return -1;
	}
}

int
talvora_p4_offload_meter_table_profile_add(uint32_t id, const p4_meter_profile_t *entry)
{
	struct rte_mtr_meter_profile profile = {};
	struct rte_mtr_error error = {};

	if (talvora_p4_offload_meter_profile_convert_from_std_2_nstd(&profile, entry) != 0)
		return -1;

	return vask_p4_meter_profile_add(nullptr, id, &profile, &error);
}

int
talvora_p4_offload_meter_table_profile_mod(uint32_t id, const p4_meter_profile_t *entry)
{
	struct vask_p4_meter_profile_node *node;

	if (entry == nullptr)
		return -1;

	TAILQ_FOREACH (node, &vask_p4_meter_profile_list, next)
		if (node->data.profile_id == id)
			break;
	if (node == nullptr) {
		/* The text is shared with the policers and names a policy here too. */
		VASK_P4_LOG(ERR, "input meter policy id %d not found", id);
		return -1;
	}

	/*
	 * Field by field, whatever the algorithm: eir is taken also for RFC 2697, no rate rule is checked,
	 * and rfc2698_mode is set but never cleared. The meters that use the profile keep their copies.
	 */
	node->data.off_hw_state = VASK_P4_OFF_HW_PENDING;
	node->data.cir = entry->cir;
	node->data.eir = entry->eir;
	node->data.cbs = entry->cbs;
	node->data.ebs = entry->ebs;
	node->data.packet_mode = entry->packet_mode;
	if (entry->meter_rfc == 1)
		node->data.rfc2698_mode = 1;

	if (vask_p4_meter_add_profile_2_hw(node) != 0)
		return -1;

	node->data.off_hw_state = VASK_P4_OFF_HW_DONE;
	VASK_P4_LOG(WARNING, "[profile]: add meter profile %d to hw profile %d, cir %lu cbs %lu",
		node->data.profile_id, node->data.hw_profile_id, node->data.cir, node->data.cbs);
	return 0;
}

int
talvora_p4_offload_meter_table_profile_del(uint32_t id)
{
	struct rte_mtr_error error = {};

	return vask_p4_meter_profile_delete(nullptr, id, &error);
}

/* Nothing is checked: action 3 reaches the engine as it is. */
static void
policer_to_policy(struct vask_p4_meter_policy *policy, const p4_meter_policer_t *entry)
{
	policy->red_action = entry->red_action;
	policy->yellow_action = entry->yellow_action;
	policy->green_action = entry->green_action;
	policy->red_dscp = entry->red_dscp;
	policy->yellow_dscp = entry->yellow_dscp;
	policy->green_dscp = entry->green_dscp;
}

int
talvora_p4_offload_meter_table_policer_add(uint32_t id, const p4_meter_policer_t *entry)
{
	struct vask_p4_meter_policy_node *node;

	if (entry == nullptr)
		return -1;

	TAILQ_FOREACH (node, &vask_p4_meter_policy_list, next)
		if (node->data.policy_id == id) {
			VASK_P4_LOG(ERR, "input meter policy id is existid; id is %d", id);
			return -1;
		}

	auto fresh = vask_p4_node_alloc<struct vask_p4_meter_policy_node>();
	if (fresh == nullptr)
		return -1;

	fresh->data.off_hw_state = VASK_P4_OFF_HW_PENDING;
	fresh->data.policy_id = id;
	policer_to_policy(&fresh->data, entry);
	if (vask_p4_meter_add_policy_2_hw(fresh.get()) != 0)
		return -1;

	fresh->data.off_hw_state = VASK_P4_OFF_HW_DONE;
	node = fresh.release();
	TAILQ_INSERT_TAIL(&vask_p4_meter_policy_list, node, next);
	VASK_P4_LOG(INFO, "%s: priv add meter policy %d to hw policy %d, red_action %d red_dscp %d",
		__func__, node->data.policy_id, node->data.hw_policy_id,
		node->data.policy.red_action, node->data.policy.red_dscp);
	return 0;
}

int
talvora_p4_offload_meter_table_policer_mod(uint32_t id, const p4_meter_policer_t *entry)
{
	struct vask_p4_meter_policy_node *node;

	if (entry == nullptr)
		return -1;

	TAILQ_FOREACH (node, &vask_p4_meter_policy_list, next)
		if (node->data.policy_id == id)
			break;
	if (node == nullptr) {
		VASK_P4_LOG(ERR, "input meter policy id %d not found", id);
		return -1;
	}

	/* In use or not: the meters that use the policy keep their copies. */
	node->data.off_hw_state = VASK_P4_OFF_HW_PENDING;
	policer_to_policy(&node->data, entry);
	if (vask_p4_meter_add_policy_2_hw(node) != 0)
		return -1;

	node->data.off_hw_state = VASK_P4_OFF_HW_DONE;
	VASK_P4_LOG(INFO, "%s: priv mod meter policy %d to hw policy %d, red_action %d red_dscp %d",
		__func__, node->data.policy_id, node->data.hw_policy_id,
		node->data.policy.red_action, node->data.policy.red_dscp);
	return 0;
}

int
talvora_p4_offload_meter_table_policer_del(uint32_t id)
{
	struct rte_mtr_error error = {};

	return vask_p4_meter_policy_delete(nullptr, id, &error);
}

int
talvora_p4_offload_meter_table_instance_add(uint32_t id, const p4_meter_instance_t *meter_inst)
{
	struct rte_mtr_params mp = {};
	struct rte_mtr_error error = {};
	struct rte_eth_dev *dev = nullptr;
	int dir;

	if (meter_inst == nullptr)
		return -1;

	if (meter_inst->dpdk_port_id >= DPDK_PORTS_MAX) {
		VASK_P4_LOG(ERR, "dpdk_port should less 32 , port:%d", meter_inst->dpdk_port_id);
		return -EINVAL;
	}

	/* May lie past the ethdev array; the driver's lookup compares the address before it reads. */
	if (meter_inst->type == 1)
		dev = &rte_eth_devices[meter_inst->dpdk_port_id];

	mp.meter_enable = meter_inst->meter_enable;
	mp.use_prev_mtr_color = meter_inst->color_mode;
	mp.meter_profile_id = meter_inst->profile_id;
	mp.meter_policy_id = meter_inst->policer_id;
	mp.stats_mask = meter_inst->stats_mask;
	dir = meter_inst->dir ? VASK_P4_METER_REQUEST_TABLE_TX : VASK_P4_METER_REQUEST_TABLE_RX;

	/* A refusal shows in the log only: the table answers 0. */
	vask_p4_meter_inst_create(
		dev, id, &mp, meter_inst->type, meter_inst->origin_pkt, &error, dir);
	return 0;
}

int
talvora_p4_offload_meter_table_instance_del(uint32_t id)
{
	struct rte_mtr_error error = {};

	return vask_p4_meter_destroy(nullptr, id, &error);
}

/* Moves one reference from one record to another, each under its own lock; they may be the same. */
template <typename Record>
static void
move_reference(Record *from, Record *to)
{
	{
		vask_p4_spinlock_guard guard(&from->sl);
		from->ref_cnt--;
	}
	{
		vask_p4_spinlock_guard guard(&to->sl);
		to->ref_cnt++;
	}
}

int
talvora_p4_offload_meter_table_instance_mod(uint32_t id, const p4_meter_instance_t *meter_inst)
{
	/* Shared by all calls and overwritten by each: one control thread at a time. */
	static struct vask_p4_meter_cfg_node *meter_node;
	struct vask_p4_meter_profile_node *profile_node, *src_profile_node = nullptr;
	struct vask_p4_meter_policy_node *policy_node, *src_policy_node = nullptr;
	uint32_t src_profile_id = 0, src_policy_id = 0;

	if (meter_inst == nullptr)
		return -1;

	profile_node = vask_p4_find_meter_profile_byid(meter_inst->profile_id);
	policy_node = vask_p4_find_meter_policy_byid(meter_inst->policer_id);
	meter_node = vask_p4_find_meter_byid(id);
	if (meter_node != nullptr) {
		src_profile_id = meter_node->data.profile.profile_id;
		src_policy_id = meter_node->data.policy.policy_id;
		src_profile_node = vask_p4_find_meter_profile_byid(src_profile_id);
		src_policy_node = vask_p4_find_meter_policy_byid(src_policy_id);
	}
	if (profile_node == nullptr || meter_node == nullptr || policy_node == nullptr ||
		src_profile_node == nullptr || src_policy_node == nullptr) {
		VASK_P4_LOG(ERR,
			"[mod meter]input id err, meter is %d, profile id %d, policy %d, src profile %d, src policy %d",
			id, meter_inst->profile_id, meter_inst->policer_id, src_profile_id,
			src_policy_id);
		return -1;
	}

	/* In place: hardware index, port and its binding stay, and a both-sides meter keeps one side. */
	struct vask_p4_meter_cfg_entry *meter = &meter_node->data;

	rte_spinlock_init(&meter->sl);
	meter->meter_id = id;
	meter->off_hw_state = VASK_P4_OFF_HW_PENDING;
	meter->profile = profile_node->data;
	meter->policy = policy_node->data;
	meter->dir = meter_inst->dir ? VASK_P4_METER_TX : VASK_P4_METER_RX;
	meter->enable = meter_inst->meter_enable;
	meter->is_ori_pktlen = meter_inst->origin_pkt;
	meter->is_color_aware = meter_inst->color_mode;
	meter->stats_mask = meter_inst->stats_mask;
	meter->type = meter_inst->type;

	if (vask_p4_add_meter_cfg_2_hw(meter_node) != 0) {
		VASK_P4_LOG(ERR, "mod meter %d to hw err", id);
		return -1;
	}

	move_reference(&src_profile_node->data, &profile_node->data);
	move_reference(&src_policy_node->data, &policy_node->data);
	VASK_P4_LOG(WARNING,
		"[change ref]:src profile ref %d new ref %d, src policy ref %d new ref %d",
		src_profile_node->data.ref_cnt, profile_node->data.ref_cnt,
		src_policy_node->data.ref_cnt, policy_node->data.ref_cnt);

	meter->off_hw_state = VASK_P4_OFF_HW_DONE;
	VASK_P4_LOG(WARNING, "[meter]: mod meter %d, profle %d --> hw meter: %d, hw profile %d", id,
		profile_node->data.profile_id, meter->hw_meter_id,
		profile_node->data.hw_profile_id);
	return 0;
}
