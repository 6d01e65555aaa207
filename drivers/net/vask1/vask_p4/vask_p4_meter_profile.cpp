/* SPDX-License-Identifier: BSD-3-Clause */
/* Meter profiles: model, conversion to engine units, lifecycle. */

#include <cerrno>

#include "vask_p4_meter_internal.h"

/* Units of the engine in byte mode: 8000 bytes/s (64 kbit/s) and 1024 bytes. */
constexpr uint64_t ENGINE_RATE_UNIT = 8000;
constexpr unsigned int ENGINE_BURST_SHIFT = 10;

/* Fields of the engine's record drop the bits that do not fit; they do not saturate. */
constexpr uint64_t ENGINE_RATE_MASK = 0x3FFFFFF;
constexpr uint64_t ENGINE_BURST_MASK = 0xFFFFF;

static constexpr uint64_t
engine_rate(uint64_t rate, int packet_mode)
{
	return (packet_mode ? rate : rate / ENGINE_RATE_UNIT) & ENGINE_RATE_MASK;
}

static constexpr uint64_t
engine_burst(uint64_t burst, int packet_mode)
{
	return (packet_mode ? burst : burst >> ENGINE_BURST_SHIFT) & ENGINE_BURST_MASK;
}

static_assert(engine_rate(125000000, 0) == 15625, "1 Gbit/s");
static_assert(engine_rate(7999, 0) == 0 && engine_rate(8000, 0) == 1);
static_assert(engine_rate(0x4000001, 1) == 1, "high bits are dropped");
static_assert(engine_burst(1023, 0) == 0 && engine_burst(1024, 0) == 1);

int
vask_p4_profile_convert(
	struct vask_p4_meter_profile *vask_profile, const struct rte_mtr_meter_profile *profile)
{
	vask_profile->packet_mode = profile->packet_mode;

	switch (vask_p4_enum_number(&profile->alg)) {
	case RTE_MTR_SRTCM_RFC2697:
		/* There is no second rate: eir keeps what the record held. */
		vask_profile->cbs = profile->srtcm_rfc2697.cbs;
		vask_profile->cir = profile->srtcm_rfc2697.cir;
		vask_profile->ebs = profile->srtcm_rfc2697.ebs;
		vask_profile->rfc2698_mode = 0;
		return 0;
	case RTE_MTR_TRTCM_RFC2698:
		vask_profile->cbs = profile->trtcm_rfc2698.cbs;
		vask_profile->cir = profile->trtcm_rfc2698.cir;
		vask_profile->ebs = profile->trtcm_rfc2698.pbs;
		vask_profile->eir = profile->trtcm_rfc2698.pir;
		vask_profile->rfc2698_mode = 1;
		return profile->trtcm_rfc2698.pir >= profile->trtcm_rfc2698.cir ? 0 : -1;
	case RTE_MTR_TRTCM_RFC4115:
		vask_profile->cbs = profile->trtcm_rfc4115.cbs;
		vask_profile->cir = profile->trtcm_rfc4115.cir;
		vask_profile->ebs = profile->trtcm_rfc4115.ebs;
		vask_profile->eir = profile->trtcm_rfc4115.eir;
		vask_profile->rfc2698_mode = 0;
		return 0;
	default:
		return -1;
	}
}

/* Meant so: an RFC 4115 record (rate, no RFC 2698 flag) classifies as no algorithm. */
enum rte_mtr_algorithm
vask_p4_meter_get_profile_type(const struct vask_p4_meter_profile *p)
{
	if (p == nullptr)
		return static_cast<enum rte_mtr_algorithm>(-1);
	if (p->eir == 0 && p->rfc2698_mode == 0)
		return RTE_MTR_SRTCM_RFC2697;
	if (p->eir != 0 && p->rfc2698_mode == 1)
		return RTE_MTR_TRTCM_RFC2698;
	if (p->eir != 0 && p->rfc2698_mode != 0)
		return RTE_MTR_TRTCM_RFC4115;
	return RTE_MTR_NONE;
}

int
vask_p4_meter_profile_cmp(
	const struct vask_p4_meter_profile *srcp, const struct rte_mtr_meter_profile *dstp)
{
	const unsigned int type = vask_p4_meter_get_profile_type(srcp);

	if (type != vask_p4_enum_number(&dstp->alg) || srcp->packet_mode != dstp->packet_mode)
		return 0;

	switch (type) {
	case RTE_MTR_SRTCM_RFC2697:
		return srcp->cbs == dstp->srtcm_rfc2697.cbs &&
			srcp->cir == dstp->srtcm_rfc2697.cir &&
			srcp->ebs == dstp->srtcm_rfc2697.ebs;
	case RTE_MTR_TRTCM_RFC2698: /* the two lie alike in the union */
	case RTE_MTR_TRTCM_RFC4115:
		return srcp->cbs == dstp->trtcm_rfc4115.cbs &&
			srcp->cir == dstp->trtcm_rfc4115.cir &&
			srcp->ebs == dstp->trtcm_rfc4115.ebs &&
			srcp->eir == dstp->trtcm_rfc4115.eir;
	default:
		return 0;
	}
}

int
vask_p4_meter_convert_profile(
	int dir, int hw_profile_id, struct vask_p4_meter_profile_node *profile_node)
{
	const struct vask_p4_meter_profile *profile = &profile_node->data;
	struct vask_p4_mep_meter_profile_table table = {};
	int rc;

	table.ebs = engine_burst(profile->ebs, profile->packet_mode);
	table.cbs = engine_burst(profile->cbs, profile->packet_mode);
	table.eir = engine_rate(profile->eir, profile->packet_mode);
	table.cir = engine_rate(profile->cir, profile->packet_mode);
	table.pm = profile->packet_mode & 1;
	table.rfc2698 = profile->rfc2698_mode & 1;
	table.valid = 1;
	VASK_P4_LOG(DEBUG, "meter profile convert fwd policy input cir %lu, convert cir %u",
		profile->cir, static_cast<unsigned int>(table.cir));

	rc = vask_p4_mep_add_meter_profile(dir, hw_profile_id, &table);
	if (rc != 0) {
		VASK_P4_LOG(ERR, "meter add fwd profile lmem failed, rc = %d", rc);
		return -1;
	}

	profile_node->data.profile = table;
	return 0;
}

int
vask_p4_meter_add_profile_2_hw(struct vask_p4_meter_profile_node *profile_node)
{
	struct vask_p4_meter_profile *profile = &profile_node->data;
	int rc;

	if (profile->hw_profile_id == 0) {
		uint32_t index = 0;
		{
			vask_p4_spinlock_guard guard(&profile->sl);
			rc = vask_p4_get_meter_index(profile_index_mgr, &index);
			if (rc != 0) {
				VASK_P4_LOG(ERR, "meter get profile id failed, rc = %d", rc);
				return -1;
			}
		}
		profile->hw_profile_id = index;
	}

	/* The ingress engine only; deletion clears both engines. */
	rc = vask_p4_meter_convert_profile(
		VASK_P4_MEP_INGRESS, profile->hw_profile_id, profile_node);
	if (rc != 0)
		VASK_P4_LOG(ERR, "imep meter add profile mep failed, rc = %d", rc);
	return rc;
}

int
vask_p4_meter_del_profile_2_hw(struct vask_p4_meter_profile_node *profile_node)
{
	struct vask_p4_meter_profile *profile = &profile_node->data;
	int rc;

	rc = vask_p4_mep_del_meter_profile(VASK_P4_MEP_INGRESS, profile->hw_profile_id);
	if (rc != 0) {
		VASK_P4_LOG(ERR, "imep meter del profile mep failed, rc = %d", rc);
		return rc;
	}

	rc = vask_p4_mep_del_meter_profile(VASK_P4_MEP_EGRESS, profile->hw_profile_id);
	if (rc != 0) {
		VASK_P4_LOG(ERR, "emep meter del profile mep failed, rc = %d", rc);
		return rc;
	}

	{
		vask_p4_spinlock_guard guard(&profile->sl);
		vask_p4_meter_free_index(profile_index_mgr, profile->hw_profile_id);
	}
	*profile = {};
	return 0;
}

int
vask_p4_meter_profile_add(struct rte_eth_dev * /*dev*/, uint32_t meter_profile_id,
	struct rte_mtr_meter_profile *profile, struct rte_mtr_error *error)
{
	struct vask_p4_meter_profile_node *node;

	if (profile == nullptr)
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_UNSPECIFIED, nullptr,
			"meter profile is null");

	/* The rates and bursts go by their RFC 4115 names whatever the algorithm: word by word. */
	VASK_P4_LOG(DEBUG, "\n* meter profile input params dump :");
	VASK_P4_LOG_DUMP(DEBUG, "      meter_profile_id\t: %#x", meter_profile_id);
	VASK_P4_LOG_DUMP(DEBUG, "      packet_mode\t\t\t: %#x", profile->packet_mode);
	VASK_P4_LOG_DUMP(DEBUG, "      alg\t\t\t\t\t: %#x", vask_p4_enum_number(&profile->alg));
	VASK_P4_LOG_DUMP(DEBUG, "      cir\t\t\t\t\t: %lu", profile->trtcm_rfc4115.cir);
	VASK_P4_LOG_DUMP(DEBUG, "      eir\t\t\t\t\t: %lu", profile->trtcm_rfc4115.eir);
	VASK_P4_LOG_DUMP(DEBUG, "      cbs\t\t\t\t\t: %lu", profile->trtcm_rfc4115.cbs);
	VASK_P4_LOG_DUMP(DEBUG, "      ebs\t\t\t\t\t: %lu", profile->trtcm_rfc4115.ebs);
	VASK_P4_LOG(DEBUG, "* over......");

	TAILQ_FOREACH (node, &vask_p4_meter_profile_list, next)
		if (node->data.profile_id == meter_profile_id) {
			VASK_P4_LOG(
				ERR, "input meter profile id is exist, id is %d", meter_profile_id);
			return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_METER_PROFILE_ID,
				nullptr, "input meter profile id is exist");
		}

	auto fresh = vask_p4_node_alloc<struct vask_p4_meter_profile_node>();
	if (fresh == nullptr)
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_UNSPECIFIED, nullptr,
			"Cannot allocate memory for meter profile");

	if (vask_p4_profile_convert(&fresh->data, profile) != 0)
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_METER_PROFILE, nullptr,
			"meter profile protocol is not supported");

	fresh->data.off_hw_state = VASK_P4_OFF_HW_PENDING;
	fresh->data.profile_id = meter_profile_id;
	/* A refused write keeps the hardware index it took: the card's entry is in doubt. */
	if (vask_p4_meter_add_profile_2_hw(fresh.get()) != 0)
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_METER_PROFILE, nullptr,
			"meter profile offload hw not success");

	fresh->data.off_hw_state = VASK_P4_OFF_HW_DONE;
	node = fresh.release();
	TAILQ_INSERT_TAIL(&vask_p4_meter_profile_list, node, next);
	VASK_P4_LOG(WARNING, "[profile]: add meter profile %d to hw profile %d, cir %lu cbs %lu",
		node->data.profile_id, node->data.hw_profile_id, node->data.cir, node->data.cbs);
	return 0;
}

int
vask_p4_meter_profile_ref_dec(
	struct rte_eth_dev * /*dev*/, uint32_t meter_profile_id, struct rte_mtr_error * /*error*/)
{
	struct vask_p4_meter_profile_node *node;

	TAILQ_FOREACH (node, &vask_p4_meter_profile_list, next)
		if (node->data.profile_id == meter_profile_id)
			break;
	if (node == nullptr)
		return 0;

	vask_p4_spinlock_guard guard(&node->data.sl);
	if (node->data.ref_cnt == 0)
		VASK_P4_LOG(ERR, "del meter profile ref cnt %d err", node->data.ref_cnt);
	else
		VASK_P4_LOG(INFO, "del meter profile ref cnt: %d", --node->data.ref_cnt);
	return 0;
}

int
vask_p4_meter_profile_delete(
	struct rte_eth_dev * /*dev*/, uint32_t meter_profile_id, struct rte_mtr_error *error)
{
	struct vask_p4_meter_profile_node *node;
	int rc;

	TAILQ_FOREACH (node, &vask_p4_meter_profile_list, next)
		if (node->data.profile_id == meter_profile_id)
			break;
	if (node == nullptr) {
		VASK_P4_LOG(INFO, "del meter profile id not found, id is %d", meter_profile_id);
		return 0;
	}

	{
		vask_p4_spinlock_guard guard(&node->data.sl);
		if (node->data.ref_cnt != 0) {
			VASK_P4_LOG(ERR, "del meter profile ref cnt: %d not 0", node->data.ref_cnt);
			return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_METER_PROFILE,
				nullptr, "meter profile reference not 0!");
		}
	}

	rc = vask_p4_meter_del_profile_2_hw(node);
	if (rc != 0) {
		VASK_P4_LOG(ERR, "del meter profile id failed, rc is %d", rc);
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_METER_PROFILE, nullptr,
			"del meter profile id failed");
	}

	VASK_P4_LOG(INFO, "del meter profile id suc, id is %d", meter_profile_id);
	TAILQ_REMOVE(&vask_p4_meter_profile_list, node, next);
	free(node);
	return 0;
}
