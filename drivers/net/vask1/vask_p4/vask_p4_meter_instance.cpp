/* SPDX-License-Identifier: BSD-3-Clause */
/* Meters: creation, destruction, enable and disable, statistics, and the MTU of a port's meter output. */

#include <cerrno>

#include <rte_bitops.h>

#include "vask_p4_common.h"
#include "vask_p4_meter_internal.h"

/* The driver's own flags on top of DPDK's statistics bits: which side of the port, which packet length. */
constexpr uint64_t STATS_MASK_RX = RTE_BIT64(63);
constexpr uint64_t STATS_MASK_TX = RTE_BIT64(62);
constexpr uint64_t STATS_MASK_ORIGINAL_LENGTH = RTE_BIT64(61);

constexpr uint16_t METER_SFI_MAX = 0x1EFF;

constexpr uint16_t MTU_MIN = 68;
constexpr uint16_t MTU_MAX = 16384;

static uint32_t
meter_dir(int request)
{
	switch (request) {
	case VASK_P4_METER_REQUEST_TX:
	case VASK_P4_METER_REQUEST_TABLE_TX:
		return VASK_P4_METER_TX;
	case VASK_P4_METER_REQUEST_BOTH:
		return VASK_P4_METER_BOTH;
	default:
		return VASK_P4_METER_RX;
	}
}

int
vask_p4_meter_inst_create(struct rte_eth_dev *dev, uint32_t meter_id, struct rte_mtr_params *params,
	int port_type, int use_ori_pkt, struct rte_mtr_error *error, int dir)
{
	const struct vask_p4_priv_port *priv = vask_p4_priv_data_get(dev);
	struct vask_p4_meter_profile_node *profile_node;
	struct vask_p4_meter_policy_node *policy_node;
	struct vask_p4_meter_cfg_node *node;
	int rc;

	VASK_P4_LOG(DEBUG, "\n* meter input params dump :");
	VASK_P4_LOG_DUMP(DEBUG, "      meter_id\t\t\t: %#x", meter_id);
	VASK_P4_LOG_DUMP(DEBUG, "      enable\t\t\t\t: %#x", params->meter_enable);
	VASK_P4_LOG_DUMP(DEBUG, "      profile_id\t\t\t: %#x", params->meter_profile_id);
	VASK_P4_LOG_DUMP(DEBUG, "      policy_id\t\t\t: %#x", params->meter_policy_id);
	VASK_P4_LOG_DUMP(DEBUG, "      corlor_mode\t\t\t: %#x", params->use_prev_mtr_color);
	VASK_P4_LOG_DUMP(DEBUG, "      use_ori_pkt\t\t\t: %#x", use_ori_pkt);
	VASK_P4_LOG_DUMP(
		DEBUG, "      stats_mask\t\t\t: %#x", static_cast<uint32_t>(params->stats_mask));
	VASK_P4_LOG(DEBUG, "* over......");

	if (priv == nullptr || priv->rep.priv_port > METER_SFI_MAX) {
		VASK_P4_LOG(ERR, "add meter but port sfi is err, priv: %p",
			static_cast<const void *>(priv));
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_UNSPECIFIED, nullptr,
			"add meter but port sfi is err");
	}

	profile_node = vask_p4_find_meter_profile_byid(params->meter_profile_id);
	if (profile_node == nullptr) {
		VASK_P4_LOG(ERR, "add meter but not find profile, meter %d, prf %d", meter_id,
			params->meter_profile_id);
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_METER_PROFILE_ID,
			nullptr, "add meter but not find profile");
	}

	policy_node = vask_p4_find_meter_policy_byid(params->meter_policy_id);
	if (policy_node == nullptr)
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_METER_POLICY_ID, nullptr,
			"add meter but not find policy");

	/* Meter 0 is never a duplicate: there may be several. */
	if (vask_p4_find_meter_byid(meter_id) != nullptr) {
		VASK_P4_LOG(ERR, "add meter has exist, id is %d", meter_id);
		return -rte_mtr_error_set(
			error, EBUSY, RTE_MTR_ERROR_TYPE_MTR_ID, nullptr, "meter id repeat err");
	}

	auto fresh = vask_p4_node_alloc<struct vask_p4_meter_cfg_node>();
	if (fresh == nullptr)
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_UNSPECIFIED, nullptr,
			"Cannot allocate memory for meter");

	struct vask_p4_meter_cfg_entry *meter = &fresh->data;

	rte_spinlock_init(&meter->sl);
	meter->meter_id = meter_id;
	meter->off_hw_state = VASK_P4_OFF_HW_PENDING;
	meter->profile = profile_node->data;
	meter->policy = policy_node->data;
	meter->dir = meter_dir(dir);
	meter->enable = params->meter_enable & 1;
	meter->is_ori_pktlen = use_ori_pkt & 1;
	meter->is_color_aware = params->use_prev_mtr_color & 1;
	meter->stats_mask = static_cast<uint32_t>(params->stats_mask);
	meter->type = port_type & 1;
	meter->port_sfi = priv->rep.priv_port;

	{
		vask_p4_spinlock_guard guard(&meter->sl);
		uint32_t hw_meter_id = 0;

		rc = vask_p4_get_meter_index(meter_index_mgr, &hw_meter_id);
		if (rc == 0)
			meter->hw_meter_id = hw_meter_id;
	}
	if (rc != 0) {
		VASK_P4_LOG(ERR, "meter get meter id failed, rc = %d", rc);
		/* The record is given up, not freed, and the error stays as the caller had it. */
		(void)fresh.release();
		return -1;
	}

	/*
	 * From here on a refusal undoes nothing: the hardware index stays taken and shapers keep what was
	 * written. References are counted last, so they need no undoing.
	 */
	rc = vask_p4_add_meter_cfg_2_hw(fresh.get());
	if (rc == 0) {
		meter->off_hw_state = VASK_P4_OFF_HW_DONE;
		VASK_P4_LOG(WARNING, "[meter]: meter %d, profle %d --> hw meter: %d, hw profile %d",
			meter_id, profile_node->data.profile_id, meter->hw_meter_id,
			profile_node->data.hw_profile_id);

		if (port_type != 0) {
			/* A both-sides meter binds the receive side only. */
			if (meter->dir == VASK_P4_METER_BOTH || meter->dir == VASK_P4_METER_RX)
				rc = vask_p4_meter_add_port_to_hw(
					VASK_P4_METER_RX, fresh.get(), error);
			if (rc == 0)
				VASK_P4_LOG(INFO,
					"[meter]: dir %s create meter port %d meter_id %d",
					meter->dir != VASK_P4_METER_RX ? "tx" : "rx",
					meter->port_sfi, meter_id);
		}
	}
	if (rc != 0) {
		fresh.reset();
		VASK_P4_LOG(INFO, "[meter]: create meter err free meter_id %d", meter_id);
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_MTR_PARAMS, nullptr,
			"table add meter failed");
	}

	{
		vask_p4_spinlock_guard guard(&profile_node->data.sl);
		profile_node->data.ref_cnt++;
	}
	{
		vask_p4_spinlock_guard guard(&policy_node->data.sl);
		policy_node->data.ref_cnt++;
	}
	node = fresh.release();
	TAILQ_INSERT_TAIL(&vask_p4_meter_list, node, next);
	return 0;
}

int
vask_p4_meter_create(struct rte_eth_dev *dev, uint32_t meter_id, struct rte_mtr_params *params,
	int /*shared*/, struct rte_mtr_error *error)
{
	if (params == nullptr)
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_UNSPECIFIED, nullptr,
			"meter params are null");

	const int use_ori_pkt = (params->stats_mask & STATS_MASK_ORIGINAL_LENGTH) != 0;
	int dir = VASK_P4_METER_REQUEST_BOTH;

	if (params->stats_mask & STATS_MASK_RX)
		dir = VASK_P4_METER_REQUEST_RX;
	else if (params->stats_mask & STATS_MASK_TX)
		dir = VASK_P4_METER_REQUEST_TX;

	vask_p4_log(
		RTE_LOG_DEBUG, vask_p4_logtype, "[offload_smartnic]create meter, dir: %#x\n", dir);
	return vask_p4_meter_inst_create(dev, meter_id, params, 1, use_ori_pkt, error, dir);
}

int
vask_p4_meter_destroy(struct rte_eth_dev *dev, uint32_t meter_id, struct rte_mtr_error *error)
{
	struct vask_p4_meter_cfg_node *node;

	/* Unlike the other lookups this one finds meter 0. */
	TAILQ_FOREACH (node, &vask_p4_meter_list, next)
		if (node->data.meter_id == meter_id)
			break;
	if (node == nullptr) {
		VASK_P4_LOG(INFO, "del meter id not found, id is %d", meter_id);
		return 0;
	}

	const uint32_t profile_id = node->data.profile.profile_id;
	const uint32_t policy_id = node->data.policy.policy_id;

	/* References first, and not taken back when the card refuses: a second try lowers them again. */
	vask_p4_meter_profile_ref_dec(dev, profile_id, error);
	vask_p4_meter_policy_ref_dec(dev, policy_id, error);

	if (vask_p4_del_meter_cfg_2_hw(node) != 0)
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_MTR_ID, nullptr,
			"meter delete not success");

	TAILQ_REMOVE(&vask_p4_meter_list, node, next);
	VASK_P4_LOG(INFO, "del meter suc, meter is %d profile_id %d policy_id %d", meter_id,
		profile_id, policy_id);
	free(node);
	return 0;
}

int
vask_p4_meter_enable(struct rte_eth_dev * /*dev*/, uint32_t mtr_id, struct rte_mtr_error *error)
{
	struct vask_p4_meter_cfg_node *node = vask_p4_find_meter_byid(mtr_id);

	if (node == nullptr) {
		VASK_P4_LOG(ERR, "enable meter id not found, id is %d", mtr_id);
		return -rte_mtr_error_set(
			error, EBUSY, RTE_MTR_ERROR_TYPE_MTR_ID, nullptr, "meter id not found!");
	}

	if (!node->data.enable)
		return vask_p4_add_meter_cfg_2_hw(node);

	VASK_P4_LOG(WARNING, "enable meter is open, no need do!");
	return 0;
}

int
vask_p4_meter_disable(struct rte_eth_dev * /*dev*/, uint32_t mtr_id, struct rte_mtr_error *error)
{
	struct vask_p4_meter_cfg_node *node = vask_p4_find_meter_byid(mtr_id);

	if (node == nullptr) {
		VASK_P4_LOG(ERR, "disable meter id not found, id is %d", mtr_id);
		return -rte_mtr_error_set(
			error, EBUSY, RTE_MTR_ERROR_TYPE_MTR_ID, nullptr, "meter id not found!");
	}

	if (node->data.enable)
		return vask_p4_del_meter_cfg_2_hw(node);

	VASK_P4_LOG(WARNING, "disable meter is not open, no need do!");
	return 0;
}

int
vask_p4_meter_stats_read(struct rte_eth_dev * /*dev*/, uint32_t mtr_id, struct rte_mtr_stats *stats,
	uint64_t *stats_mask, int /*clear*/, struct rte_mtr_error *error)
{
	struct vask_p4_mep_meter_inst_table inst_rx = {};
	struct vask_p4_mep_meter_inst_table inst_tx = {};
	struct vask_p4_meter_cfg_node *node;

	if (stats == nullptr)
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_UNSPECIFIED, nullptr,
			"meter stats are null");
	if (stats_mask == nullptr)
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_UNSPECIFIED, nullptr,
			"meter stats mask is null");

	/* The mask is an input here, and one of the two drop counters gives both. */
	if ((*stats_mask & (RTE_MTR_STATS_N_PKTS_DROPPED | RTE_MTR_STATS_N_BYTES_DROPPED)) == 0)
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_STATS_MASK, nullptr,
			"stats mask only support drop pkts or bytes");

	TAILQ_FOREACH (node, &vask_p4_meter_list, next)
		if (node->data.meter_id == mtr_id)
			break;
	if (node == nullptr) {
		VASK_P4_LOG(ERR, "[meter]: meter stats not find meter node!");
		return 0;
	}
	VASK_P4_LOG(INFO, "[meter]: meter stats find meter node!");

	const uint32_t hw_meter_id = node->data.hw_meter_id;
	const bool tx_only = node->data.dir == VASK_P4_METER_TX;
	const bool rx_only = node->data.dir == VASK_P4_METER_RX;

	if (!tx_only)
		vask_p4_mep_read_meter_inst(VASK_P4_MEP_INGRESS, hw_meter_id, &inst_rx);
	if (!rx_only)
		vask_p4_mep_read_meter_inst(VASK_P4_MEP_EGRESS, hw_meter_id, &inst_tx);
	if (!tx_only)
		VASK_P4_LOG(INFO, "[meter]: meter %d read rx: cnt = %u, len = %lu!", hw_meter_id,
			inst_rx.drop_pkt_cnt, inst_rx.drop_pkt_len_cnt);
	if (!rx_only)
		VASK_P4_LOG(INFO, "[meter]: meter %d read tx: cnt = %u, len = %lu!", hw_meter_id,
			inst_tx.drop_pkt_cnt, inst_tx.drop_pkt_len_cnt);

	/* Packets are added in the 32 bits of the card's counter, and wrap with it. */
	const uint32_t packets = inst_rx.drop_pkt_cnt + inst_tx.drop_pkt_cnt;

	stats->n_bytes_dropped = inst_rx.drop_pkt_len_cnt + inst_tx.drop_pkt_len_cnt;
	stats->n_pkts_dropped = packets;
	return 0;
}

int
vask_p4_dev_mtu_set(struct rte_eth_dev *dev, uint16_t mtu)
{
	const struct vask_p4_priv_port *priv = vask_p4_priv_data_get(dev);

	if (priv == nullptr)
		return -EINVAL;

	if (mtu < MTU_MIN || mtu > MTU_MAX) {
		VASK_P4_LOG(ERR, "mtu should beteen 68 and 16k , mtu:%d", mtu);
		return -EINVAL;
	}

	VASK_P4_LOG(INFO, "[mep meter output]:port %d set mtu:%d", priv->rep.priv_port, mtu);
	return vask_p4_mep_update_meter_output_by_mtu(priv->rep.priv_port, mtu);
}
