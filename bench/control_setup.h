/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef BENCH_CONTROL_SETUP_H
#define BENCH_CONTROL_SETUP_H

/**
 * @file
 * The state in which a control operation is timed: so many profiles, policies and meters on port 0, the lists
 * in the order of memory or shuffled. Ids run from 1. All meters use profile 1 and policy 1; the operations work
 * on the last of each kind, so their lookups walk whole lists.
 */

#include <cstdint>

#include <rte_mtr.h>

#include "vask_p4_meter.h"

struct control_state {
	uint32_t meters;
	uint32_t profiles;
	uint32_t policies; /* besides the default policy */
	bool shuffled;
};

/** The port that operations are called on. */
constexpr uint16_t CONTROL_PORT = 0;

/** Starts the module on it and fills its lists. Aborts when the module refuses: there is nothing to time. */
void control_setup(const struct control_state &state);

/** Deletes everything and stops the module. */
void control_teardown();

/** @name The key of a node. @{ */
static inline uint32_t
control_key(const struct vask_p4_meter_profile_node *node)
{
	return node->data.profile_id;
}

static inline uint32_t
control_key(const struct vask_p4_meter_policy_node *node)
{
	return node->data.policy_id;
}

static inline uint32_t
control_key(const struct vask_p4_meter_cfg_node *node)
{
	return node->data.meter_id;
}
/** @} */

/** @name What control_log_lines() is made of. @{ */
void control_count_lines_begin();
unsigned int control_count_lines_end();
/** @} */

/** Log lines, of any level, that the driver emits during the call. */
template <typename Call>
unsigned int
control_log_lines(Call call)
{
	control_count_lines_begin();
	call();
	return control_count_lines_end();
}

/** Nodes that a lookup of the id visits: up to the node that has it, or all. */
template <typename Head>
uint32_t
control_visits(const Head *list, uint32_t id)
{
	uint32_t visits = 0;

	for (const auto *node = list->tqh_first; node != nullptr; node = node->next.tqe_next) {
		visits++;
		if (control_key(node) == id)
			break;
	}
	return visits;
}

/** A policy that drops red. */
struct rte_mtr_meter_policy_params control_policy();

constexpr p4_meter_profile_t CONTROL_P4_PROFILE = {1250000, 2500000, 65536, 131072, 0, 1, 0};
constexpr p4_meter_policer_t CONTROL_P4_POLICER = {2, 0, 0, 0, 0, 0};

/** @name Calls that must succeed. @{ */
void control_profile_add(uint32_t id);
void control_policy_add(uint32_t id);
void control_meter_create(uint32_t id, uint32_t profile_id, uint32_t policy_id);
/** @} */

#endif /* BENCH_CONTROL_SETUP_H */
