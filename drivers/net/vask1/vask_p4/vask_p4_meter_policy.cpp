/* SPDX-License-Identifier: BSD-3-Clause */
/* Meter policies: validation, conversion to the engine's record, lifecycle, the default policy. */

#include <cerrno>
#include <cstring>
#include <type_traits>

extern "C" {
#include <ethdev_driver.h>
}

#include "vask_p4_meter_internal.h"

constexpr unsigned int ACTIONS_PER_COLOR_MAX = 2;

/* Records are compared as bytes. */
static_assert(std::has_unique_object_representations_v<struct vask_p4_meter_policy>);

/* Whether two records are the same, ids included: these are looked at first, and tell most apart. */
static bool
same_record(const struct vask_p4_meter_policy *a, const struct vask_p4_meter_policy *b)
{
	return a->policy_id == b->policy_id && memcmp(a, b, sizeof(*a)) == 0;
}

/* An absent list counts as an empty one. */
static bool
list_ends(const struct rte_flow_action *action)
{
	return action == nullptr || vask_p4_enum_number(&action->type) == RTE_FLOW_ACTION_TYPE_END;
}

int
vask_p4_meter_policy_validate(struct rte_eth_dev * /*dev*/,
	struct rte_mtr_meter_policy_params *policy, struct rte_mtr_error *error)
{
	if (policy == nullptr)
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_UNSPECIFIED, nullptr,
			"meter policy is null");

	for (const struct rte_flow_action *action : policy->actions) {
		unsigned int accepted = 0;

		for (; !list_ends(action); action++) {
			const unsigned int type = vask_p4_enum_number(&action->type);

			if (accepted == ACTIONS_PER_COLOR_MAX)
				return -rte_mtr_error_set(error, EBUSY,
					RTE_MTR_ERROR_TYPE_METER_POLICY, nullptr,
					"meter action is too much");

			switch (type) {
			case RTE_FLOW_ACTION_TYPE_DROP:
			case RTE_FLOW_ACTION_TYPE_SET_IPV4_DSCP:
				accepted++;
				break;
			default:
				VASK_P4_LOG(ERR, "action type %d is not support", type);
				return -rte_mtr_error_set(error, EBUSY,
					RTE_MTR_ERROR_TYPE_METER_POLICY, nullptr,
					"action type is not support");
			}
		}
	}
	return 0;
}

int
vask_p4_meter_convert_policy(
	int dir, int hw_policy_id, struct vask_p4_meter_policy_node *policy_node)
{
	const struct vask_p4_meter_policy *policy = &policy_node->data;
	struct vask_p4_mep_meter_policy_table table = {};
	int rc;

	/* The fields keep the low 6 bits of a DSCP and the low 2 of an action. */
	table.red_dscp = policy->red_dscp;
	table.yellow_dscp = policy->yellow_dscp;
	table.green_dscp = policy->green_dscp;
	table.red_action = policy->red_action;
	table.yellow_action = policy->yellow_action;
	table.green_action = policy->green_action;
	table.valid = 1;
	VASK_P4_LOG(DEBUG, "meter policy convert policy red_action %d,", table.red_action);

	rc = vask_p4_mep_add_meter_policy(dir, hw_policy_id, &table);
	if (rc != 0) {
		VASK_P4_LOG(ERR, "meter add policy lmem or reg failed, rc = %d", rc);
		return -1;
	}

	policy_node->data.policy = table;
	return 0;
}

int
vask_p4_meter_add_policy_2_hw(struct vask_p4_meter_policy_node *policy_node)
{
	struct vask_p4_meter_policy *policy = &policy_node->data;
	int rc;

	if (policy->hw_policy_id == 0) {
		uint32_t index = VASK_P4_DEFAULT_HW_POLICY_ID;
		{
			vask_p4_spinlock_guard guard(&policy->sl);
			if (policy->policy_id != VASK_P4_DEFAULT_POLICY_ID) {
				rc = vask_p4_get_meter_index(policy_index_mgr, &index);
				if (rc != 0) {
					VASK_P4_LOG(ERR, "meter get policy id failed, rc = %d", rc);
					return -1;
				}
			}
		}
		policy->hw_policy_id = index;
	}

	/* The ingress engine only; deletion clears both engines. */
	rc = vask_p4_meter_convert_policy(VASK_P4_MEP_INGRESS, policy->hw_policy_id, policy_node);
	if (rc != 0)
		VASK_P4_LOG(ERR, "imep meter add policy mep failed, rc = %d", rc);
	return rc;
}

int
vask_p4_meter_del_policy_2_hw(struct vask_p4_meter_policy_node *policy_node)
{
	struct vask_p4_meter_policy *policy = &policy_node->data;
	int rc;

	rc = vask_p4_mep_del_meter_policy(VASK_P4_MEP_INGRESS, policy->hw_policy_id);
	if (rc != 0) {
		VASK_P4_LOG(ERR, "imep meter del policy mep failed, rc = %d", rc);
		return rc;
	}

	rc = vask_p4_mep_del_meter_policy(VASK_P4_MEP_EGRESS, policy->hw_policy_id);
	if (rc != 0) {
		VASK_P4_LOG(ERR, "emep meter del policy mep failed, rc = %d", rc);
		return rc;
	}

	{
		/* 255 too: once the default policy is gone, its index is like any other. */
		vask_p4_spinlock_guard guard(&policy->sl);
		vask_p4_meter_free_index(policy_index_mgr, policy->hw_policy_id);
	}
	*policy = {};
	return 0;
}

int
vask_p4_meter_policy_add(struct rte_eth_dev *dev, uint32_t policy_id,
	struct rte_mtr_meter_policy_params *policy, struct rte_mtr_error *error)
{
	struct vask_p4_meter_policy_node *node;

	if (policy == nullptr)
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_UNSPECIFIED, nullptr,
			"meter policy is null");

	if (vask_p4_meter_policy_validate(dev, policy, error) != 0)
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_METER_POLICY, nullptr,
			"validate policy action error");

	auto fresh = vask_p4_node_alloc<struct vask_p4_meter_policy_node>();
	if (fresh == nullptr)
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_UNSPECIFIED, nullptr,
			"Cannot allocate memory for meter policy");

	struct vask_p4_meter_policy *data = &fresh->data;
	uint32_t *const color_action[RTE_COLORS] = {
		&data->green_action, &data->yellow_action, &data->red_action};
	uint32_t *const color_dscp[RTE_COLORS] = {
		&data->green_dscp, &data->yellow_dscp, &data->red_dscp};

	data->policy_id = policy_id;
	for (int color = RTE_COLOR_GREEN; color < RTE_COLORS; color++) {
		const struct rte_flow_action *action = policy->actions[color];
		unsigned int accepted = 0;

		/* Of two actions the later overwrites. */
		*color_action[color] = VASK_P4_METER_PASS;
		for (; !list_ends(action); action++) {
			const unsigned int type = vask_p4_enum_number(&action->type);

			if (accepted == ACTIONS_PER_COLOR_MAX)
				return -rte_mtr_error_set(error, EBUSY,
					RTE_MTR_ERROR_TYPE_METER_POLICY, nullptr,
					"meter action is too much");

			if (type == RTE_FLOW_ACTION_TYPE_DROP) {
				*color_action[color] = VASK_P4_METER_DROP;
			} else if (type == RTE_FLOW_ACTION_TYPE_SET_IPV4_DSCP &&
				action->conf != nullptr) {
				*color_dscp[color] =
					static_cast<const struct rte_flow_action_set_dscp *>(
						action->conf)
						->dscp;
				*color_action[color] = VASK_P4_METER_SET_DSCP;
			} else {
				/* Validation lets a DSCP without its value pass. */
				VASK_P4_LOG(ERR, "action type %d is not support", type);
				return -rte_mtr_error_set(error, EBUSY,
					RTE_MTR_ERROR_TYPE_METER_POLICY, nullptr,
					"action type is not support");
			}
			accepted++;
		}
	}

	TAILQ_FOREACH (node, &vask_p4_meter_policy_list, next) {
		if (node->data.policy_id == policy_id) {
			VASK_P4_LOG(ERR, "input meter policy id is existid is %d", policy_id);
			return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_METER_POLICY_ID,
				nullptr, "input meter policy id is exist");
		}
		/*
		 * Whole records, ids included, so policies with the same actions live side by side
		 * under different ids. Meant so.
		 */
		if (same_record(&node->data, data)) {
			VASK_P4_LOG(ERR, "input meter policy cfg is exist, id is %d", policy_id);
			return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_METER_POLICY,
				nullptr, "input meter policy cfg is exist");
		}
	}

	/* A refused write keeps the hardware index it took: the card's entry is in doubt. */
	if (vask_p4_meter_add_policy_2_hw(fresh.get()) != 0)
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_METER_POLICY, nullptr,
			"meter policy offload hw not success");

	node = fresh.release();
	TAILQ_INSERT_TAIL(&vask_p4_meter_policy_list, node, next);
	VASK_P4_LOG(INFO,
		"[policy]: add meter policy %d to hw policy %d, red_action %d red_dscp %d",
		node->data.policy_id, node->data.hw_policy_id, node->data.policy.red_action,
		node->data.policy.red_dscp);
	return 0;
}

struct vask_p4_meter_policy_node *
vask_p4_meter_get_policy(uint32_t policy_id)
{
	struct vask_p4_meter_policy_node *node;

	TAILQ_FOREACH (node, &vask_p4_meter_policy_list, next)
		if (node->data.policy_id == policy_id) {
			VASK_P4_LOG(INFO, "meter get policy %u ok. r_act:%d,y_act:%d,g_act:%d",
				policy_id, node->data.red_action, node->data.yellow_action,
				node->data.green_action);
			return node;
		}
	return nullptr;
}

int
vask_p4_meter_policy_ref_dec(
	struct rte_eth_dev * /*dev*/, uint32_t policy_id, struct rte_mtr_error * /*error*/)
{
	struct vask_p4_meter_policy_node *node;

	TAILQ_FOREACH (node, &vask_p4_meter_policy_list, next)
		if (node->data.policy_id == policy_id)
			break;
	if (node == nullptr)
		return 0;

	vask_p4_spinlock_guard guard(&node->data.sl);
	if (node->data.ref_cnt == 0)
		VASK_P4_LOG(ERR, "dec meter policy ref cnt %d err", node->data.ref_cnt);
	else
		VASK_P4_LOG(INFO, "dec meter policy ref cnt: %d", --node->data.ref_cnt);
	return 0;
}

int
vask_p4_meter_policy_delete(
	struct rte_eth_dev * /*dev*/, uint32_t policy_id, struct rte_mtr_error *error)
{
	struct vask_p4_meter_policy_node *node;
	int rc;

	TAILQ_FOREACH (node, &vask_p4_meter_policy_list, next)
		if (node->data.policy_id == policy_id)
			break;
	if (node == nullptr) {
		VASK_P4_LOG(INFO, "del meter policy id not found, id is %d", policy_id);
		return 0;
	}

	{
		vask_p4_spinlock_guard guard(&node->data.sl);
		if (node->data.ref_cnt != 0) {
			VASK_P4_LOG(ERR, "del meter policy ref cnt: %d not 0", node->data.ref_cnt);
			return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_METER_POLICY,
				nullptr, "meter policy reference not 0!");
		}
	}

	rc = vask_p4_meter_del_policy_2_hw(node);
	if (rc != 0) {
		VASK_P4_LOG(ERR, "del meter policy id failed, rc is %d", rc);
		return -rte_mtr_error_set(error, EBUSY, RTE_MTR_ERROR_TYPE_METER_POLICY, nullptr,
			"del meter policy id failed");
	}

	VASK_P4_LOG(INFO, "del meter policy id suc, id is %d", policy_id);
	TAILQ_REMOVE(&vask_p4_meter_policy_list, node, next);
	free(node);
	return 0;
}

void
vask_p4_meter_add_default_policy(uint32_t policy_id)
{
	const struct rte_flow_action end[] = {{RTE_FLOW_ACTION_TYPE_END, nullptr}};
	const struct rte_flow_action drop[] = {
		{RTE_FLOW_ACTION_TYPE_DROP, nullptr}, {RTE_FLOW_ACTION_TYPE_END, nullptr}};
	struct rte_mtr_meter_policy_params params = {};
	struct rte_mtr_error error = {};

	params.actions[RTE_COLOR_GREEN] = end;
	params.actions[RTE_COLOR_YELLOW] = end;
	params.actions[RTE_COLOR_RED] = drop;
	vask_p4_meter_policy_add(&rte_eth_devices[0], policy_id, &params, &error);
}
