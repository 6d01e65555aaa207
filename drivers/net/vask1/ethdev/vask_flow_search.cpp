/* SPDX-License-Identifier: BSD-3-Clause */
#include <algorithm>

#include <rte_mbuf.h>

#include "vask_flow.h"
#include "vask_flow_frame.h"
#include "vask_flow_tuple.h"
#include "vask_flow_tuple_search.h"

/* The next rule in rank that matches a frame, after one that let them pass on. */
static const struct rte_flow *
next_match(const struct vask_flow_view *view, const struct vask_flow_frame *frame, uint64_t rank)
{
	const struct rte_flow *best = nullptr;
	uint64_t key[VASK_FLOW_KEY_WORDS];

	for (uint32_t t = 0; t < view->n; t++) {
		const struct vask_flow_tuple *tuple = view->entry[t].tuple;
		const struct rte_flow *rule;

		if (best != nullptr && view->entry[t].best_rank > best->rank)
			break;
		vask_flow_tuple_key(tuple, frame, key);
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

/*
 * Applies the rules that a packet meets, from the first in rank to one that lets nothing pass on. Returns
 * where the packet goes.
 */
static uint16_t
apply(const struct vask_flow_view *view, const struct rte_flow *rule, uint16_t queue,
	const struct rte_mbuf *pkt, const struct vask_flow_frame *frame, uint32_t *hw_meter_id)
{
	bool metered = false;

	for (; rule != nullptr; rule = next_match(view, frame, rule->rank)) {
		if (rule->count != nullptr)
			count_packet(&rule->count[queue], pkt->pkt_len);
		if (rule->spec.meter_id != 0 && !metered) {
			metered = true;
			*hw_meter_id = vask_flow_rule_meter(rule);
		}
		if (!rule->spec.passthru)
			return rule->spec.fate;
	}
	return VASK_FLOW_STAY;
}

static void
send_to(struct softcard_burst *burst, uint16_t i, uint16_t to, struct vask_flow_verdict *out)
{
	if (to == VASK_FLOW_DROP) {
		out->drop_mask |= UINT64_C(1) << i;
		return;
	}
	if (!out->diverted) {
		out->diverted = true;
		for (uint16_t k = 0; k < burst->n; k++)
			burst->tag[k] = VASK_FLOW_STAY;
	}
	burst->tag[i] = to;
}

/* The first rule in rank for each frame, or null. */
static void
search(const struct vask_flow_view *view, const struct vask_flow_frame *frames, uint16_t n,
	const struct rte_flow **best)
{
	uint8_t index[SOFTCARD_BURST_MAX];

	std::fill_n(best, n, nullptr);
	for (uint32_t t = 0; t < view->n; t++) {
		const uint64_t rank = view->entry[t].best_rank;
		uint16_t left = 0;

		for (uint16_t i = 0; i < n; i++) {
			index[left] = i;
			left += best[i] == nullptr || best[i]->rank > rank;
		}
		if (left == 0)
			return;
		vask_flow_tuple_search(view->entry[t].tuple, frames, index, left, best);
	}
}

/* What the searches of a burst share. */
struct flow_search {
	const struct vask_flow_view *view;
	uint16_t queue;
	const struct softcard_meter *meters;
	struct softcard_burst *burst;
	struct vask_flow_verdict *out;
};

/* The way of packet i, whose first rule in rank is `rule`. */
static void
follow(const struct flow_search *s, const struct rte_flow *rule,
	const struct vask_flow_frame *frame, uint16_t i)
{
	const uint16_t to =
		apply(s->view, rule, s->queue, s->burst->pkts[i], frame, &s->burst->hw_meter_id[i]);

	softcard_meter_prefetch(s->meters, s->burst->hw_meter_id[i]);
	if (to != VASK_FLOW_STAY)
		send_to(s->burst, i, to, s->out);
}

/* One tuple: for most packets the search says it all. */
static void
classify_by_one(const struct flow_search *s)
{
	const struct rte_flow *best[SOFTCARD_BURST_MAX];
	uint64_t rest =
		vask_flow_tuple_search_burst(s->view->entry[0].tuple, s->burst, s->meters, best);

	for (; rest != 0; rest &= rest - 1) {
		const uint32_t i = rte_bsf64(rest);
		union vask_flow_fields image;
		const struct vask_flow_frame frame =
			vask_flow_frame_read(s->burst->pkts[i], &image);

		follow(s, best[i], &frame, i);
	}
}

static void
classify_by_several(const struct flow_search *s)
{
	union vask_flow_fields images[SOFTCARD_BURST_MAX];
	struct vask_flow_frame frames[SOFTCARD_BURST_MAX];
	const struct rte_flow *best[SOFTCARD_BURST_MAX];
	const uint16_t n = s->burst->n;

	for (uint16_t i = 0; i < n; i++)
		frames[i] = vask_flow_frame_read(s->burst->pkts[i], &images[i]);
	search(s->view, frames, n, best);
	for (uint16_t i = 0; i < n; i++)
		if (best[i] != nullptr)
			follow(s, best[i], &frames[i], i);
}

void
vask_flow_state_classify(const struct vask_flow_state *state, uint16_t queue,
	const struct softcard_meter *meters, struct softcard_burst *burst,
	struct vask_flow_verdict *out)
{
	const struct flow_search s = {
		state->view.load(std::memory_order_acquire), queue, meters, burst, out};

	if (s.view == nullptr)
		return;
	if (s.view->n == 1)
		classify_by_one(&s);
	else
		classify_by_several(&s);
}
