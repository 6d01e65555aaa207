/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef TESTS_SUPPORT_ACTIONS_H
#define TESTS_SUPPORT_ACTIONS_H

/**
 * @file
 * Meter policies as an application writes them: one list of actions a colour.
 */

#include <array>
#include <utility>
#include <vector>

#include <rte_flow.h>
#include <rte_mtr.h>

namespace vask_test
{

using ActionList = std::vector<rte_flow_action>;

inline rte_flow_action
Drop()
{
	return {RTE_FLOW_ACTION_TYPE_DROP, nullptr};
}

inline rte_flow_action
Void()
{
	return {RTE_FLOW_ACTION_TYPE_VOID, nullptr};
}

/** Rewrites the IPv4 DSCP with any byte. */
inline rte_flow_action
Dscp(uint8_t value)
{
	static const auto confs = [] {
		std::array<rte_flow_action_set_dscp, 256> confs;
		for (unsigned i = 0; i < confs.size(); i++)
			confs[i].dscp = static_cast<uint8_t>(i);
		return confs;
	}();
	return {RTE_FLOW_ACTION_TYPE_SET_IPV4_DSCP, &confs[value]};
}

/** The parameters of a policy, and the lists that they point to, each with its END. */
class Actions
{
      public:
	Actions(ActionList green, ActionList yellow, ActionList red)
		: lists{std::move(green), std::move(yellow), std::move(red)}
	{
		for (int colour = 0; colour < RTE_COLORS; colour++) {
			lists[colour].push_back({RTE_FLOW_ACTION_TYPE_END, nullptr});
			params.actions[colour] = lists[colour].data();
		}
	}
	Actions(const Actions &) = delete;
	Actions &operator=(const Actions &) = delete;

	ActionList lists[RTE_COLORS];
	rte_mtr_meter_policy_params params = {};
};

} // namespace vask_test

#endif /* TESTS_SUPPORT_ACTIONS_H */
