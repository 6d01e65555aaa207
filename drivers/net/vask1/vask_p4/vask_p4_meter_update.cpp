/* SPDX-License-Identifier: BSD-3-Clause */
/* A live meter onto another profile; a profile and a meter into the pipeline's tables. */

#include <cerrno>

#include "qorn_hal_user_api.h"
#include "vask_p4_meter_internal.h"

int
vask_p4_meter_update_profile_2_hw(
	struct vask_p4_meter_profile *profile, struct vask_p4_meter_cfg_entry *meter)
{
	const uint32_t old_profile_id = meter->profile.profile_id;
	int rc;

	/* On a refusal below the meter keeps the new profile and no reference moves; the caller may retry. */
	meter->off_hw_state = VASK_P4_OFF_HW_PENDING;
	meter->profile = *profile;

	if (meter->dir == VASK_P4_METER_RX || meter->dir == VASK_P4_METER_BOTH) {
		struct vask_p4_isch_shaper isch = {};

		vask_p4_meter_add_convert_isch_shaper(
			profile->cir, meter->profile.packet_mode, &isch);
		rc = vask_p4_isch_shaper_csr_write(isch);
		if (rc != 0) {
			VASK_P4_LOG(ERR, "add meter dpe shaper failed, rc = %d", rc);
			return rc;
		}
		/* A success at error level, on purpose: the register is shared by all ports. */
		VASK_P4_LOG(ERR, "update meter dpe shaper rate(100kbps) suc");
	}

	if (meter->dir == VASK_P4_METER_TX || meter->dir == VASK_P4_METER_BOTH) {
		struct vask_shaper_set_info shaper_info = {};

		vask_p4_meter_add_convert_shaper(
			meter->port_sfi, profile->cir, profile->packet_mode, &shaper_info);
		rc = vask_cmd_set_shaper(vask_p4_get_global_cmd_channel(), &shaper_info);
		if (rc != 0) {
			VASK_P4_LOG(ERR, "update meter shaper failed, rc = %d", rc);
			return rc;
		}
	}

	{
		/* The old profile's count goes down under the new one's lock: never two at once. */
		vask_p4_spinlock_guard guard(&profile->sl);
		struct vask_p4_meter_profile_node *old;

		profile->ref_cnt++;
		old = vask_p4_find_meter_profile_byid(old_profile_id);
		if (old != nullptr) {
			old->data.ref_cnt--;
			VASK_P4_LOG(INFO,
				"meter update old profile_id %d ref %d, new profile_id %d ref %d",
				old->data.profile_id, old->data.ref_cnt, profile->profile_id,
				profile->ref_cnt);
		}
	}
	meter->off_hw_state = VASK_P4_OFF_HW_DONE;
	return 0;
}

int
vask_p4_meter_profile_update(struct rte_eth_dev * /*dev*/, uint32_t meter_id,
	uint32_t meter_profile_id, struct rte_mtr_error *error)
{
	/* Shared by all calls and overwritten by each: one control thread at a time. */
	static struct vask_p4_meter_cfg_node *meter_cfg_node;
	struct vask_p4_meter_profile_node *profile_node;

	profile_node = vask_p4_find_meter_profile_byid(meter_profile_id);
	meter_cfg_node = vask_p4_find_meter_byid(meter_id);
	if (profile_node == nullptr || meter_cfg_node == nullptr) {
		VASK_P4_LOG(ERR,
			"input meter profile id or meter id err, meter is %d, profile id %d",
			meter_id, meter_profile_id);
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_METER_PROFILE, nullptr,
			"input meter profile id or meter id err");
	}

	return vask_p4_meter_update_profile_2_hw(&profile_node->data, &meter_cfg_node->data);
}

int
vask_p4_update_meter_cfg_2_pol(const struct vask_p4_meter_profile_node *profile_node,
	struct vask_p4_meter_cfg_node *meter_node, uint32_t meter_id)
{
	struct vask_cmd_channel *channel = vask_p4_get_global_cmd_channel();
	const struct vask_p4_meter_profile *profile = &profile_node->data;
	struct qorn_meter_profile_table table = {};
	struct qorn_meter_table table_inst = {};
	int rc;

	/* Raw rates and bursts: the pipeline's table counts as the caller does. */
	table.pm = profile->packet_mode & 1;
	table.rfc = profile->rfc2698_mode & 1;
	table.cbs_l1 = profile->cbs & 1;
	table.cbs_h19 = profile->cbs >> 1 & 0x7FFFF;
	table.ebs_l13 = profile->ebs & 0x1FFF;
	table.ebs_h7 = profile->ebs >> 13 & 0x7F;
	table.cir_l25 = profile->cir & 0x1FFFFFF;
	table.cir_h3 = profile->cir >> 25 & 7;
	table.eir = profile->eir & 0xFFFFFFF;
	table.cbsm = 1;
	table.valid = 1;
	rc = qorn_meter_profile_update(channel, &profile->profile_id, &table);
	if (rc != 0) {
		VASK_P4_LOG(ERR, "update meter cfg qorn failed, rc = %d", rc);
		return -1;
	}
	meter_node->data.table = table;

	table_inst.valid = 1;
	table_inst.meter_profile_id = profile->profile_id & 0xFF;
	rc = qorn_meter_table_update(channel, &meter_id, &table_inst);
	if (rc != 0) {
		VASK_P4_LOG(ERR, "update meter instance qorn failed, rc = %d", rc);
		return -1;
	}
	meter_node->data.table_inst = table_inst;
	return 0;
}
