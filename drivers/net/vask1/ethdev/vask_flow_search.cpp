/* SPDX-License-Identifier: BSD-3-Clause */
#include <rte_mbuf.h>

#include "vask_flow.h"
#include "vask_flow_tuple.h"

/* The next rule in rank that matches the fields, after one that let them pass on. */
static struct rte_flow *
next_match(const struct vask_flow_view *view, const union vask_flow_fields *fields, uint64_t rank)
{
	struct rte_flow *best = nullptr;
	uint64_t key[VASK_FLOW_KEY_WORDS];

	for (uint32_t t = 0; t < view->n; t++) {
		const struct vask_flow_tuple *tuple = view->entry[t].tuple;
		struct rte_flow *rule;

		if (best != nullptr && view->entry[t].best_rank > best->rank)
			break;
		vask_flow_tuple_key(tuple, fields, key);
		rule = vask_flow_tuple_find(tuple, key);
		while (rule != nullptr && rule->rank <= rank)
			rule = rule->next.load(std::memory_order_acquire);
		if (rule != nullptr && (best == nullptr || rule->rank < best->rank))
			best = rule;
	}
	return best;
}

/* The queue is the only writer of its counters. */
static inline void
count_packet(struct vask_flow_count *count, uint32_t bytes)
{
	count->hits.store(
		count->hits.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
	count->bytes.store(
		count->bytes.load(std::memory_order_relaxed) + bytes, std::memory_order_relaxed);
}

/* Applies the rules that a packet meets, from the first in rank to one that lets nothing pass on. */
static inline void
apply(const struct vask_flow_view *view, struct rte_flow *rule, uint16_t queue,
	const struct rte_mbuf *pkt, const union vask_flow_fields *fields, uint16_t i,
	struct vask_flow_verdict *out, uint16_t *to)
{
	bool metered = false;

	for (; rule != nullptr; rule = next_match(view, fields, rule->rank)) {
		if (rule->count != nullptr)
			count_packet(&rule->count[queue], pkt->pkt_len);
		if (rule->meters && !metered) {
			metered = true;
			out->hw_meter_id[i] = rule->hw_meter_id.load(std::memory_order_relaxed);
		}
		if (!rule->passthru) {
			*to = rule->fate;
			return;
		}
	}
}

void
vask_flow_view_classify(const struct vask_flow_view *view, uint16_t queue,
	struct rte_mbuf *const *pkts, uint16_t n, struct vask_flow_verdict *out)
{
	union vask_flow_fields fields[SOFTCARD_BURST_MAX];
	uint64_t best_rank[SOFTCARD_BURST_MAX];
	struct rte_flow *best[SOFTCARD_BURST_MAX];

	vask_flow_fields_read(pkts, n, fields);
	for (uint16_t i = 0; i < n; i++) {
		best_rank[i] = UINT64_MAX;
		best[i] = nullptr;
	}
	for (uint32_t t = 0; t < view->n; t++)
		vask_flow_tuple_search(
			view->entry[t].tuple, view->entry[t].best_rank, fields, n, best_rank, best);

	for (uint16_t i = 0; i < n; i++) {
		uint16_t to = VASK_FLOW_STAY;

		if (best[i] == nullptr)
			continue;
		apply(view, best[i], queue, pkts[i], &fields[i], i, out, &to);
		if (likely(to == VASK_FLOW_STAY))
			continue;
		if (to == VASK_FLOW_DROP) {
			out->drop_mask |= UINT64_C(1) << i;
			continue;
		}
		if (!out->diverted) {
			out->diverted = true;
			for (uint16_t k = 0; k < n; k++)
				out->queue[k] = queue;
		}
		out->queue[i] = to;
	}
}
