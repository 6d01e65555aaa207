/* SPDX-License-Identifier: BSD-3-Clause */
/* A meter into and out of the card: its shapers, its port's binding, its records. */

#include <cerrno>

#include "qorn_hal_user_api.h"
#include "vask_p4_meter_internal.h"

constexpr uint32_t SOURCE_PORT_MASK = 0x3FFF;

int
vask_p4_add_meter_cfg_2_hw(struct vask_p4_meter_cfg_node *meter_node)
{
	struct vask_p4_meter_cfg_entry *meter = &meter_node->data;
	const struct vask_p4_mep_meter_inst_table inst = {};
	int rc;

	if (meter->dir == VASK_P4_METER_RX || meter->dir == VASK_P4_METER_BOTH) {
		struct vask_p4_isch_shaper isch = {};

		vask_p4_meter_add_convert_isch_shaper(
			meter->profile.cir, meter->profile.packet_mode, &isch);
		rc = vask_p4_isch_shaper_csr_write(isch);
		if (rc != 0) {
			VASK_P4_LOG(ERR, "add meter dpe isch shaper failed, rc = %d", rc);
			return rc;
		}
		/* A success at error level, on purpose: the register is shared by all ports. */
		VASK_P4_LOG(ERR, "add meter dpe shaper rate(100kbps) suc");
	}

	if (meter->dir == VASK_P4_METER_TX || meter->dir == VASK_P4_METER_BOTH) {
		struct vask_shaper_set_info shaper_info = {};

		vask_p4_meter_add_convert_shaper(meter->port_sfi, meter->profile.cir,
			meter->profile.packet_mode, &shaper_info);
		rc = vask_cmd_set_shaper(vask_p4_get_global_cmd_channel(), &shaper_info);
		if (rc != 0) {
			VASK_P4_LOG(ERR, "add meter shaper failed, rc = %d", rc);
			return rc;
		}
		VASK_P4_LOG(DEBUG, "add meter shaper suc.");
	}

	meter->enable = 1;
	meter->mep_inst = inst; /* no stale copy of an engine record survives */
	return 0;
}

int
vask_p4_del_meter_cfg_2_hw(struct vask_p4_meter_cfg_node *meter_node)
{
	struct vask_p4_meter_cfg_entry *meter = &meter_node->data;
	int rc;

	if (meter->dir == VASK_P4_METER_RX || meter->dir == VASK_P4_METER_BOTH) {
		const struct vask_p4_isch_shaper off = {};

		rc = vask_p4_isch_shaper_csr_write(off);
		if (rc != 0) {
			VASK_P4_LOG(ERR, "del meter dpe shaper failed, rc = %d", rc);
			return rc;
		}
		VASK_P4_LOG(DEBUG, "del meter dpe shaper suc.");
	}

	if (meter->dir == VASK_P4_METER_TX || meter->dir == VASK_P4_METER_BOTH) {
		struct vask_shaper_set_info shaper_info = {};

		vask_p4_meter_del_convert_shaper(
			meter->port_sfi, meter->profile.packet_mode, &shaper_info);
		rc = vask_cmd_set_shaper(vask_p4_get_global_cmd_channel(), &shaper_info);
		if (rc != 0) {
			VASK_P4_LOG(ERR, "del meter shaper failed, rc = %d", rc);
			return rc;
		}
		VASK_P4_LOG(DEBUG, "del meter shaper suc.");
	}

	/* A meter that binds no port stays enabled: a second disable removes it again. */
	if (meter->type) {
		if (meter->dir == VASK_P4_METER_RX || meter->dir == VASK_P4_METER_BOTH) {
			rc = vask_p4_meter_del_port_to_hw(VASK_P4_METER_RX, meter_node);
			if (rc != 0)
				return rc;
		}
		meter->enable = 0;
		VASK_P4_LOG(ERR, "del meter port suc."); /* at error level on purpose */
	}

	/* The record keeps the number: a disabled meter that is enabled again goes on using it. */
	vask_p4_spinlock_guard guard(&meter->sl);
	vask_p4_meter_free_index(meter_index_mgr, meter->hw_meter_id);
	return 0;
}

int
vask_p4_meter_add_port_to_hw(
	int dir, struct vask_p4_meter_cfg_node *meter_node, struct rte_mtr_error *error)
{
	const struct vask_p4_meter_cfg_entry *meter = &meter_node->data;
	struct vask_cmd_channel *channel = vask_p4_get_global_cmd_channel();
	int rc;

	if (dir == VASK_P4_METER_TX) {
		struct qorn_input_port_table_key_tx key = {};
		struct qorn_input_port_table_result_tx result = {};

		key.source_port = meter->port_sfi & SOURCE_PORT_MASK;
		rc = qorn_input_port_tx_table_get(channel, &key, &result);
		if (rc != 0) {
			VASK_P4_LOG(ERR, "meter add: qorn get input port tx failed!");
			return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_UNSPECIFIED,
				nullptr, "internal error");
		}

		/* The other fields belong to the rest of the driver and go back as read. */
		result.metering_info0 = static_cast<uint16_t>(meter->hw_meter_id);
		VASK_P4_LOG(INFO, "meter add: qorn set tx port meter: %d", result.metering_info0);
		rc = qorn_input_port_tx_table_add(channel, &key, &result);
		if (rc != 0) {
			VASK_P4_LOG(ERR, "meter add: qorn set input port tx failed!");
			return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_UNSPECIFIED,
				nullptr, "internal error");
		}
	} else if (dir == VASK_P4_METER_RX) {
		rc = vask_p4_mep_update_meter_output_by_meterid(
			VASK_P4_MEP_INGRESS, meter->port_sfi, meter->hw_meter_id);
		if (rc != 0) {
			VASK_P4_LOG(ERR, "meter add: qorn set input port rx failed!");
			return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_UNSPECIFIED,
				nullptr, "internal error");
		}
	}

	VASK_P4_LOG(
		DEBUG, "[meter add port] dir %d set port sfi %d success!", dir, meter->port_sfi);
	return 0;
}

int
vask_p4_meter_del_port_to_hw(int dir, struct vask_p4_meter_cfg_node *meter_node)
{
	const struct vask_p4_meter_cfg_entry *meter = &meter_node->data;
	struct vask_cmd_channel *channel = vask_p4_get_global_cmd_channel();
	int rc;

	if (dir == VASK_P4_METER_TX) {
		struct qorn_input_port_table_key_tx key = {};
		struct qorn_input_port_table_result_tx result = {};

		/* The lines say "meter add" here as well. */
		key.source_port = meter->port_sfi & SOURCE_PORT_MASK;
		rc = qorn_input_port_tx_table_get(channel, &key, &result);
		if (rc != 0) {
			VASK_P4_LOG(ERR, "meter add: qorn get input port tx failed!");
			return -1;
		}

		VASK_P4_LOG(INFO, "meter add: qorn get tx port meter: %d", result.metering_info0);
		result.metering_info0 = 0;
		rc = qorn_input_port_tx_table_add(channel, &key, &result);
		if (rc != 0) {
			VASK_P4_LOG(ERR, "meter add: qorn set input port tx failed!");
			return -1;
		}
		return 0;
	}

	/* Every other direction goes to the engine, not only receive. */
	rc = vask_p4_mep_del_meter_output_by_meterid(dir, meter->port_sfi);
	if (rc != 0) {
		VASK_P4_LOG(ERR, "del meter bitmap failed, rc = %d", rc);
		return -1;
	}
	return 0;
}

int
vask_p4_del_meter_cfg_2_pol(uint32_t meter_id)
{
	struct vask_cmd_channel *channel = vask_p4_get_global_cmd_channel();
	int rc;

	rc = qorn_meter_profile_delete(channel, meter_id);
	if (rc != 0) {
		VASK_P4_LOG(ERR, "del meter cfg qorn failed, rc = %d", rc);
		return -1;
	}

	rc = qorn_meter_table_delete(channel, meter_id);
	if (rc != 0) {
		VASK_P4_LOG(ERR, "del meter instance qorn failed, rc = %d", rc);
		return -1;
	}
	return 0;
}

/* Which of four counters an engine keeps: 1 green, 2 yellow, 3 red, 4 dropped; the first asked for wins. */
static uint32_t
stats_type(uint32_t four_bits, uint32_t unchanged)
{
	return four_bits != 0 ? __builtin_ctz(four_bits) + 1 : unchanged;
}

/*
 * The two never overlap: told so, and out of line, the compiler writes the fields of a word at once. Written one by
 * one they keep whoever reads the word waiting.
 */
__rte_noinline void
vask_p4_meter_convert_inst(const struct vask_p4_meter_cfg_node *meter_node,
	struct vask_p4_mep_meter_inst_table *__restrict inst)
{
	const struct vask_p4_meter_cfg_entry *meter = &meter_node->data;
	const uint32_t bytes_type =
		stats_type(meter->stats_mask >> 4 & 0xF, inst->stats_bytes_type);
	const uint32_t pkts_type = stats_type(meter->stats_mask & 0xF, inst->stats_pkts_type);

	inst->valid = meter->enable;
	inst->profile_id = meter->profile.hw_profile_id;
	inst->policy_id = meter->policy.hw_policy_id;
	inst->is_color_aware = meter->is_color_aware;
	inst->use_original_packet_length = meter->is_ori_pktlen;
	inst->stats_bytes_type = bytes_type;
	inst->stats_pkts_type = pkts_type;
}
