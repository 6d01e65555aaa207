/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_FLOW_RULE_H
#define VASK_FLOW_RULE_H

/**
 * @file
 * A flow rule: what it asks for, and where it stands.
 */

#include <atomic>
#include <cstdint>
#include <sys/queue.h>

#include <rte_common.h>

#include "vask_flow_fields.h"
#include "vask_flow_slot.h"
#include "vask_port.h"

struct vask_flow_state;
struct vask_flow_tuple;
struct vask_meter_ref;

/** Where a rule sends its packets, if not to a receive queue 0..VASK_QUEUES_MAX-1. */
constexpr uint16_t VASK_FLOW_STAY = UINT16_MAX;
constexpr uint16_t VASK_FLOW_DROP = UINT16_MAX - 1;

/** What a rule asks for. */
struct vask_flow_spec {
	int dir;           /* enum vask_p4_mep_dir */
	uint32_t priority; /* 0..VASK_FLOW_PRIORITY_MAX, the lowest wins */
	uint32_t meter_id; /* the user's; 0: no METER action */
	uint16_t fate;     /* a receive queue, VASK_FLOW_STAY or VASK_FLOW_DROP */
	bool count;
	bool passthru;
	union vask_flow_fields key; /* bits outside the mask are 0 */
	union vask_flow_fields mask;
};

/** Packets of one queue that met a rule with COUNT; that queue alone writes. */
struct alignas(RTE_CACHE_LINE_SIZE) vask_flow_count {
	std::atomic<uint64_t> hits;
	std::atomic<uint64_t> bytes;
};

/** Something that packets may still see, to be freed later. */
struct vask_flow_retired {
	STAILQ_ENTRY(vask_flow_retired) next;
	uint64_t token;
	void (*release)(struct vask_flow_retired *retired);
};

/** A rule: what it asks for, and where it stands. */
struct rte_flow {
	/* what packets read, in one cache line; of spec, what stands before the key */
	std::atomic<vask_flow_brief> brief;
	uint64_t rank;                       /* priority, then age; the lowest wins */
	std::atomic<struct rte_flow *> next; /* same pattern, the next in rank */
	struct vask_flow_count *count;       /* one a queue, or null */
	struct vask_flow_spec spec;

	struct vask_flow_retired retired;
	struct vask_flow_state *state;
	struct vask_flow_tuple *tuple;
	struct vask_meter_ref *meter;
	uint64_t base_hits; /* at the last reset */
	uint64_t base_bytes;
	bool head;        /* of the rules with its pattern, the one that the tuple holds */
	int32_t position; /* of the key that left the hash table with this rule, or -1 */
	TAILQ_ENTRY(rte_flow) in_state;
	TAILQ_ENTRY(rte_flow) in_tuple;
};

TAILQ_HEAD(vask_flow_list, rte_flow);

/**
 * A rule in brief, for a packet that found it in an rte_hash. The library orders what is read of the rule behind
 * the lookup; the acquire says so to tools that do not see into it.
 */
static inline vask_flow_brief
vask_flow_rule_brief(const struct rte_flow *rule)
{
	return rule->brief.load(std::memory_order_acquire);
}

/** The hardware meter of a rule's packets, 0 for none. Also for packets. */
static inline uint32_t
vask_flow_rule_meter(const struct rte_flow *rule)
{
	return static_cast<uint32_t>(rule->brief.load(std::memory_order_relaxed));
}

/** A rule of that state which no packet sees yet; null when memory is short. */
struct rte_flow *
vask_flow_rule_alloc(struct vask_flow_state *state, const struct vask_flow_spec *spec);

/** Frees a rule that no packet sees. */
void vask_flow_rule_free(struct rte_flow *rule);

/**
 * Packets and bytes that a rule with COUNT has met since the last reset, all queues together.
 *
 * @param reset  start again from 0 after this reading.
 */
void vask_flow_rule_count(struct rte_flow *rule, bool reset, uint64_t *hits, uint64_t *bytes);

#endif /* VASK_FLOW_RULE_H */
