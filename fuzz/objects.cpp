/* SPDX-License-Identifier: BSD-3-Clause */
#include "objects.h"

#include <rte_mtr.h>

#include "check.h"
#include "vask_p4_driver.h"
#include "vask_p4_info.h"
#include "vask_p4_meter.h"

bool
fuzz_profile_add(Input &in, uint16_t port, uint32_t id)
{
	struct rte_mtr_meter_profile profile = {};
	struct rte_mtr_error error;

	profile.alg = in.Of({RTE_MTR_SRTCM_RFC2697, RTE_MTR_TRTCM_RFC2698, RTE_MTR_TRTCM_RFC4115});
	profile.packet_mode = in.Below(4) == 3;
	profile.trtcm_rfc4115.cir = in.Number();
	profile.trtcm_rfc4115.eir = in.Number();
	profile.trtcm_rfc4115.cbs = in.Number();
	profile.trtcm_rfc4115.ebs = in.Number();
	return rte_mtr_meter_profile_add(port, id, &profile, &error) == 0;
}

void
fuzz_policy_add(Input &in, uint16_t port, uint32_t id, bool passes)
{
	struct rte_flow_action_set_dscp dscp[3];
	struct rte_flow_action actions[3][2] = {};
	struct rte_mtr_meter_policy_params params = {};
	struct rte_mtr_error error;

	for (int colour = 0; colour < 3; colour++) {
		const unsigned what = passes ? 0 : in.Below(3);

		actions[colour][1].type = RTE_FLOW_ACTION_TYPE_END;
		actions[colour][0].type = RTE_FLOW_ACTION_TYPE_END;
		if (what == 1) {
			dscp[colour].dscp = in.Byte();
			actions[colour][0] = {RTE_FLOW_ACTION_TYPE_SET_IPV4_DSCP, &dscp[colour]};
		} else if (what == 2) {
			actions[colour][0].type = RTE_FLOW_ACTION_TYPE_DROP;
		}
		params.actions[colour] = actions[colour];
	}
	FUZZ_CHECK(rte_mtr_meter_policy_add(port, id, &params, &error) == 0);
}

bool
fuzz_meter_create(uint16_t port, uint32_t id, uint64_t side, bool color_aware)
{
	struct rte_mtr_params params = {};
	struct rte_mtr_error error;

	params.meter_profile_id = 1;
	params.meter_policy_id = 1;
	params.meter_enable = 1;
	params.use_prev_mtr_color = color_aware;
	params.stats_mask = side;
	return rte_mtr_create(port, id, &params, 1, &error) == 0;
}

void
fuzz_objects_clear(uint16_t port)
{
	struct rte_mtr_error error;

	while (const auto *node = TAILQ_FIRST(&vask_p4_meter_list))
		FUZZ_CHECK(rte_mtr_destroy(port, node->data.meter_id, &error) == 0);
	while (const auto *node = TAILQ_FIRST(&vask_p4_meter_profile_list))
		FUZZ_CHECK(rte_mtr_meter_profile_delete(port, node->data.profile_id, &error) == 0);
	/* the default policy was the first */
	while (const auto *node = TAILQ_NEXT(TAILQ_FIRST(&vask_p4_meter_policy_list), next))
		FUZZ_CHECK(rte_mtr_meter_policy_delete(port, node->data.policy_id, &error) == 0);
	FUZZ_CHECK(TAILQ_FIRST(&vask_p4_meter_policy_list)->data.policy_id == 0);
	FUZZ_CHECK(vask_p4_idx_free_num(meter_index_mgr) == 4095);
	FUZZ_CHECK(vask_p4_idx_free_num(profile_index_mgr) == 255);
	FUZZ_CHECK(vask_p4_idx_free_num(policy_index_mgr) == 254);
}
