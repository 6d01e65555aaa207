/* SPDX-License-Identifier: BSD-3-Clause */
#include <rte_mbuf.h>
#include <rte_prefetch.h>

#include "vask_flow.h"
#include "vask_flow_tuple.h"

/* The next rule in rank that matches a frame, after one that let them pass on. */
static struct vask_flow_line *
next_match(const struct vask_flow_view *view, const struct vask_flow_frame *frame, uint64_t rank)
{
	struct vask_flow_line *best = nullptr;
	uint64_t key[VASK_FLOW_KEY_WORDS];

	for (uint32_t t = 0; t < view->n; t++) {
		const struct vask_flow_tuple *tuple = view->entry[t].tuple;
		struct vask_flow_line *line;

		if (best != nullptr && view->entry[t].best_rank > best->rank)
			break;
		vask_flow_tuple_key(tuple, frame, key);
		line = vask_flow_tuple_find(tuple, key);
		while (line != nullptr && line->rank <= rank)
			line = line->next.load(std::memory_order_acquire);
		if (line != nullptr && (best == nullptr || line->rank < best->rank))
			best = line;
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
apply(const struct vask_flow_view *view, struct vask_flow_line *line, uint16_t queue,
	const struct rte_mbuf *pkt, const struct vask_flow_frame *frame, uint32_t *hw_meter_id)
{
	bool metered = false;

	for (; line != nullptr; line = next_match(view, frame, line->rank)) {
		const struct rte_flow *rule = line->rule;

		if (rule->count != nullptr)
			count_packet(&rule->count[queue], pkt->pkt_len);
		if (rule->spec.meter_id != 0 && !metered) {
			metered = true;
			*hw_meter_id = line->hw_meter_id.load(std::memory_order_relaxed);
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
	struct vask_flow_line **best)
{
	uint8_t index[SOFTCARD_BURST_MAX];

	vask_flow_tuple_search_all(view->entry[0].tuple, frames, n, best);
	for (uint32_t t = 1; t < view->n; t++) {
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

void
vask_flow_state_classify(const struct vask_flow_state *state, uint16_t queue,
	struct softcard_burst *burst, struct vask_flow_verdict *out)
{
	const struct vask_flow_view *view = state->view.load(std::memory_order_acquire);
	union vask_flow_fields images[SOFTCARD_BURST_MAX];
	struct vask_flow_frame frames[SOFTCARD_BURST_MAX];
	struct vask_flow_line *best[SOFTCARD_BURST_MAX];

	const uint32_t n = burst->n;

	if (view == nullptr)
		return;
	for (uint32_t i = 0; i < n; i++)
		rte_prefetch0(rte_pktmbuf_mtod(burst->pkts[i], const void *));
	vask_flow_frames_read(burst->pkts, n, images, frames);
	search(view, frames, n, best);
	for (uint32_t i = 0; i < n; i++) {
		struct vask_flow_line *line = best[i];
		uint16_t to;

		if (line == nullptr)
			continue;
		if (likely(line->meters_only)) {
			burst->hw_meter_id[i] = line->hw_meter_id.load(std::memory_order_relaxed);
			continue;
		}
		to = apply(view, line, queue, burst->pkts[i], &frames[i], &burst->hw_meter_id[i]);
		if (to != VASK_FLOW_STAY)
			send_to(burst, i, to, out);
	}
}
