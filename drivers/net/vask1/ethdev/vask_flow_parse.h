/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_FLOW_PARSE_H
#define VASK_FLOW_PARSE_H

/**
 * @file
 * From an application's rte_flow rule to what the rule tables hold.
 */

#include "vask_flow_rule.h"

constexpr uint32_t VASK_FLOW_PRIORITY_MAX = UINT16_MAX;

/**
 * Checks a rule and translates it.
 *
 * Items as of vask_flow_items_parse().
 *
 * Actions: any of METER, COUNT, one of QUEUE (ingress), DROP and PASSTHRU; without one of these three
 * packets go on as if there were no rule. A rule that drops does not meter.
 *
 * Whether the meter exists is not looked at.
 *
 * @param nb_rx_queues  what QUEUE must stay below.
 * @param meter_action  receives the METER action, or null: the cause of later refusals.
 * @return 0, or -EINVAL or -ENOTSUP with error set: its cause is the attribute, item or action.
 */
int vask_flow_parse(uint16_t nb_rx_queues, const struct rte_flow_attr *attr,
	const struct rte_flow_item pattern[], const struct rte_flow_action actions[],
	struct vask_flow_spec *spec, const struct rte_flow_action **meter_action,
	struct rte_flow_error *error);

#endif /* VASK_FLOW_PARSE_H */
