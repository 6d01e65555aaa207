/* SPDX-License-Identifier: BSD-3-Clause */
#include <cerrno>
#include <cstring>

#include "vask_flow_items.h"
#include "vask_flow_parse.h"
#include "vask_p4_enum.h"

#define ACTION_ERROR(code, kind, text) \
	rte_flow_error_set(error, code, RTE_FLOW_ERROR_TYPE_##kind, action, text)

static int
check_attr(const struct rte_flow_attr *attr, struct rte_flow_error *error)
{
	if (attr == nullptr)
		return rte_flow_error_set(
			error, EINVAL, RTE_FLOW_ERROR_TYPE_ATTR, nullptr, "no attributes");
	if (attr->group != 0)
		return rte_flow_error_set(error, ENOTSUP, RTE_FLOW_ERROR_TYPE_ATTR_GROUP, attr,
			"there is no group but 0");
	if (attr->priority > VASK_FLOW_PRIORITY_MAX)
		return rte_flow_error_set(error, ENOTSUP, RTE_FLOW_ERROR_TYPE_ATTR_PRIORITY, attr,
			"priorities are 0 to 65535");
	if (attr->transfer)
		return rte_flow_error_set(error, ENOTSUP, RTE_FLOW_ERROR_TYPE_ATTR_TRANSFER, attr,
			"transfer rules are not supported");
	if (attr->ingress && attr->egress)
		return rte_flow_error_set(error, ENOTSUP, RTE_FLOW_ERROR_TYPE_ATTR_EGRESS, attr,
			"a rule is for ingress or for egress, not for both");
	if (!attr->ingress && !attr->egress)
		return rte_flow_error_set(error, EINVAL, RTE_FLOW_ERROR_TYPE_ATTR_INGRESS, attr,
			"a rule is for ingress or for egress");
	return 0;
}

/* Actions on their way into a rule. */
struct actions {
	struct vask_flow_spec *spec;
	const struct rte_flow_action *meter;
	bool fate;
	uint16_t nb_rx_queues;
};

static int
set_fate(struct actions *a, const struct rte_flow_action *action, uint16_t fate,
	struct rte_flow_error *error)
{
	if (a->fate)
		return ACTION_ERROR(
			EINVAL, ACTION, "a rule has one of queue, drop and passthru, once");
	a->fate = true;
	a->spec->fate = fate;
	return 0;
}

static int
add_queue(struct actions *a, const struct rte_flow_action *action, struct rte_flow_error *error)
{
	const struct rte_flow_action_queue *conf =
		static_cast<const struct rte_flow_action_queue *>(action->conf);

	if (a->spec->dir != VASK_P4_MEP_INGRESS)
		return ACTION_ERROR(ENOTSUP, ACTION, "queue is for ingress rules only");
	if (conf == nullptr)
		return ACTION_ERROR(EINVAL, ACTION_CONF, "queue without an index");
	if (conf->index >= a->nb_rx_queues)
		return ACTION_ERROR(EINVAL, ACTION_CONF, "the port has no such receive queue");
	return set_fate(a, action, conf->index, error);
}

static int
add_meter(struct actions *a, const struct rte_flow_action *action, struct rte_flow_error *error)
{
	const struct rte_flow_action_meter *conf =
		static_cast<const struct rte_flow_action_meter *>(action->conf);

	if (a->meter != nullptr)
		return ACTION_ERROR(ENOTSUP, ACTION, "a rule has one meter action at most");
	if (conf == nullptr)
		return ACTION_ERROR(EINVAL, ACTION_CONF, "meter without a meter id");
	if (conf->mtr_id == 0)
		return ACTION_ERROR(ENOTSUP, ACTION_CONF, "meter 0 cannot be used by a rule");
	a->meter = action;
	a->spec->meter_id = conf->mtr_id;
	return 0;
}

static int
parse_action(struct actions *a, const struct rte_flow_action *action, struct rte_flow_error *error)
{
	switch (vask_p4_enum_number(&action->type)) {
	case RTE_FLOW_ACTION_TYPE_VOID:
		return 0;
	case RTE_FLOW_ACTION_TYPE_METER:
		return add_meter(a, action, error);
	case RTE_FLOW_ACTION_TYPE_QUEUE:
		return add_queue(a, action, error);
	case RTE_FLOW_ACTION_TYPE_DROP:
		return set_fate(a, action, VASK_FLOW_DROP, error);
	case RTE_FLOW_ACTION_TYPE_PASSTHRU:
		a->spec->passthru = true;
		return set_fate(a, action, VASK_FLOW_STAY, error);
	case RTE_FLOW_ACTION_TYPE_COUNT:
		if (a->spec->count)
			return ACTION_ERROR(ENOTSUP, ACTION, "a rule has one count action at most");
		a->spec->count = true;
		return 0;
	default:
		return ACTION_ERROR(ENOTSUP, ACTION,
			"this action is not supported: only meter, queue, drop, count, passthru");
	}
}

static int
parse_actions(uint16_t nb_rx_queues, const struct rte_flow_action *action,
	struct vask_flow_spec *spec, const struct rte_flow_action **meter_action,
	struct rte_flow_error *error)
{
	struct actions a = {spec, nullptr, false, nb_rx_queues};

	if (action == nullptr)
		return rte_flow_error_set(
			error, EINVAL, RTE_FLOW_ERROR_TYPE_ACTION_NUM, nullptr, "no actions");
	for (; vask_p4_enum_number(&action->type) != RTE_FLOW_ACTION_TYPE_END; action++) {
		int rc = parse_action(&a, action, error);

		if (rc != 0)
			return rc;
	}
	if (a.meter != nullptr && spec->fate == VASK_FLOW_DROP)
		return rte_flow_error_set(error, EINVAL, RTE_FLOW_ERROR_TYPE_ACTION, a.meter,
			"a rule that drops does not meter");
	*meter_action = a.meter;
	return 0;
}

int
vask_flow_parse(uint16_t nb_rx_queues, const struct rte_flow_attr *attr,
	const struct rte_flow_item pattern[], const struct rte_flow_action actions[],
	struct vask_flow_spec *spec, const struct rte_flow_action **meter_action,
	struct rte_flow_error *error)
{
	int rc = check_attr(attr, error);

	if (rc != 0)
		return rc;
	memset(spec, 0, sizeof(*spec));
	spec->dir = attr->egress ? VASK_P4_MEP_EGRESS : VASK_P4_MEP_INGRESS;
	spec->priority = attr->priority;
	spec->fate = VASK_FLOW_STAY;
	rc = vask_flow_items_parse(pattern, spec, error);
	return rc != 0 ? rc : parse_actions(nb_rx_queues, actions, spec, meter_action, error);
}
