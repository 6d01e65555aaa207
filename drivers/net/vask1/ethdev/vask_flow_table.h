/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_FLOW_TABLE_H
#define VASK_FLOW_TABLE_H

/**
 * @file
 * The rules of a port in one direction, searched by tuple: rules with the same mask form a tuple, and a
 * tuple is one exact-match table over the masked fields.
 *
 * Control calls are for the control lock's holder. Packets read what he publishes through atomics and take
 * no lock; what he takes away is freed when every burst that may still see it has ended (RCU).
 */

#include <atomic>
#include <cstdint>
#include <sys/queue.h>

#include <rte_rcu_qsbr.h>

#include "vask_flow_rule.h"

struct softcard_burst;
struct softcard_meter;
struct vask_flow_verdict;

/** The tuples as packets see them, best rank first. Replaced as a whole. */
struct vask_flow_view {
	struct vask_flow_retired retired;
	uint32_t n;
	struct vask_flow_view_entry {
		uint64_t best_rank; /* no rule of the tuple has a lower one */
		const struct vask_flow_tuple *tuple;
	} entry[];
};

TAILQ_HEAD(vask_flow_tuple_list, vask_flow_tuple);

struct vask_flow_state {
	std::atomic<const struct vask_flow_view *> view; /* null: no rule */
	std::atomic<bool> metering;                      /* some rule has the METER action */

	struct rte_rcu_qsbr *rcu;
	struct vask_flow_list rules;        /* in the order of creation */
	struct vask_flow_tuple_list tuples; /* best rank first */
	STAILQ_HEAD(, vask_flow_retired) retired;
	uint32_t n_retired;
	uint32_t n_meter_rules;
	uint64_t next_age;
};

/** 0, or -ENOMEM and *state is null. */
int vask_flow_state_create(struct rte_rcu_qsbr *rcu, struct vask_flow_state **state);

/** Frees the state; it holds no rule any more, and no burst is under way. Null is accepted. */
void vask_flow_state_free(struct vask_flow_state *state);

/** Makes packets see a rule that was allocated for the state. Bursts that begin after the call are under it. 0, or -ENOMEM. */
int vask_flow_insert(struct rte_flow *rule);

/** Makes packets of a rule meet a hardware meter, 0 for none. The rule may be inserted or not. */
void vask_flow_rule_meter_set(struct rte_flow *rule, uint32_t hw_meter_id);

/** Takes a rule away and frees it in due time. Bursts that begin after the call are not under it. */
void vask_flow_remove(struct rte_flow *rule);

/**
 * Applies the rules, if there are any, to a burst whose hw_meter_id holds what an unmatched packet gets.
 *
 * @param meters  of the direction's engine, called into the cache as packets find theirs.
 */
void vask_flow_state_classify(const struct vask_flow_state *state, uint16_t queue,
	const struct softcard_meter *meters, struct softcard_burst *burst,
	struct vask_flow_verdict *out);

#endif /* VASK_FLOW_TABLE_H */
