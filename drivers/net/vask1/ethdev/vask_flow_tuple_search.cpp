/* SPDX-License-Identifier: BSD-3-Clause */
#include "vask_flow_tuple_search.h"

#include <rte_mbuf.h>
#include <rte_prefetch.h>

#include "softcard.h"
#include "vask_flow_key.h"
#include "vask_flow_rule.h"

static_assert(SOFTCARD_BURST_MAX <= RTE_HASH_LOOKUP_BULK_MAX, "a burst is one lookup");

/* A burst whose rules are all in one tuple: with the first rule that is found the search is over. */
struct whole_burst {
	struct softcard_burst *burst;
	const struct softcard_meter *meters;
	const struct rte_flow **best;
	uint64_t written; /* bits of best */
	union vask_flow_fields image;

	uint32_t size() const
	{
		return burst->n;
	}
	struct vask_flow_frame frame(uint32_t k)
	{
		return vask_flow_frame_read(burst->pkts[k], &image);
	}
	bool settled(uint32_t k, vask_flow_brief brief) const
	{
		if (unlikely((brief & VASK_FLOW_BRIEF_METERS_ONLY) == 0))
			return false;
		burst->hw_meter_id[k] = static_cast<uint32_t>(brief);
		softcard_meter_prefetch(meters, static_cast<uint32_t>(brief));
		return true;
	}
	void found(uint32_t k, const struct rte_flow *rule)
	{
		rte_prefetch0(rule);
		best[k] = rule;
		written |= UINT64_C(1) << k;
	}
};

/* Some frames of a burst that may have met rules of other tuples. */
struct some_frames {
	const struct vask_flow_frame *frames;
	const uint8_t *index;
	uint32_t n;
	const struct rte_flow **best;

	uint32_t size() const
	{
		return n;
	}
	const struct vask_flow_frame &frame(uint32_t k) const
	{
		return frames[index[k]];
	}
	bool settled(uint32_t, vask_flow_brief) const
	{
		return false;
	}
	void found(uint32_t k, const struct rte_flow *rule) const
	{
		const struct rte_flow **first = &best[index[k]];

		if (*first == nullptr || rule->rank < (*first)->rank)
			*first = rule;
	}
};

/* A frame matches what is in a slot, which says so in brief. */
template <typename Burst>
static inline void
match(Burst &burst, uint32_t k, vask_flow_brief brief, const struct vask_flow_slot *slot)
{
	if (!burst.settled(k, brief))
		burst.found(k, slot->rule.load(std::memory_order_acquire));
}

/* The keys that did not find their rule in a slot; `which` tells whose they are. */
template <typename Burst>
static void
search_hash(const struct vask_flow_tuple *tuple, const void **keys, hash_sig_t *sigs,
	const uint8_t *which, uint32_t n, Burst &burst)
{
	void *found[SOFTCARD_BURST_MAX];
	uint64_t hits = 0;

	rte_hash_lookup_with_hash_bulk_data(tuple->hash, keys, sigs, n, &hits, found);
	for (; hits != 0; hits &= hits - 1) {
		const uint32_t k = rte_bsf64(hits);
		const struct rte_flow *rule = static_cast<const struct rte_flow *>(found[k]);
		const vask_flow_brief brief = vask_flow_rule_brief(rule);

		if ((brief & VASK_FLOW_BRIEF_RULE) != 0 && !burst.settled(which[k], brief))
			burst.found(which[k], rule);
	}
}

/* In the searches N is the tuple's number of words, or 0 for any. */

/* A tuple of one slot, and so of one key: nothing to hash, no key to be made. */
template <uint32_t N, typename Burst>
static void
search_one(const struct vask_flow_tuple *tuple, Burst &burst)
{
	const uint32_t n_words = N != 0 ? N : tuple->n_words;
	const auto *slot = reinterpret_cast<const struct vask_flow_slot *>(tuple->slots);
	const vask_flow_brief brief = slot->brief.load(std::memory_order_acquire);
	const uint32_t n = burst.size();

	if ((brief & VASK_FLOW_BRIEF_RULE) == 0)
		return;
	for (uint32_t k = 0; k < n; k++) {
		const struct vask_flow_frame frame = burst.frame(k);
		uint64_t diff = (frame.word0 & tuple->mask[0]) ^ slot->key[0];

		for (uint32_t w = 1; w < n_words; w++)
			diff |= (vask_flow_word(frame.base + tuple->offset[w][frame.plain]) &
					tuple->mask[w]) ^
				slot->key[w];
		if (diff == 0)
			match(burst, k, brief, slot);
	}
}

template <uint32_t N, typename Burst>
static void
search_slots(const struct vask_flow_tuple *tuple, Burst &burst)
{
	const uint32_t n_words = N != 0 ? N : tuple->n_words;
	const uint32_t key_words = RTE_ALIGN(n_words, 2u);
	uint64_t key[SOFTCARD_BURST_MAX * VASK_FLOW_KEY_WORDS];
	hash_sig_t sigs[SOFTCARD_BURST_MAX];
	const struct vask_flow_slot *slots[SOFTCARD_BURST_MAX];
	const void *missed_keys[SOFTCARD_BURST_MAX];
	uint8_t missed[SOFTCARD_BURST_MAX];
	const size_t slot_size = N != 0 ? vask_flow_slot_size(N) : tuple->slot_size;
	const uint32_t n = burst.size();
	uint32_t n_missed = 0;

	for (uint32_t k = 0; k < n; k++) {
		const struct vask_flow_frame frame = burst.frame(k);

		vask_flow_key_make(tuple, n_words, &frame, &key[k * key_words]);
		sigs[k] = vask_flow_key_hash(&key[k * key_words], n_words);
		slots[k] = vask_flow_slot_of(tuple, slot_size, sigs[k]);
		rte_prefetch0(slots[k]);
	}
	for (uint32_t k = 0; k < n; k++) {
		const vask_flow_brief brief = slots[k]->brief.load(std::memory_order_acquire);

		if (vask_flow_slot_holds(slots[k], brief, &key[k * key_words], n_words)) {
			match(burst, k, brief, slots[k]);
			continue;
		}
		missed_keys[n_missed] = &key[k * key_words];
		sigs[n_missed] = sigs[k];
		missed[n_missed++] = k;
	}
	if (n_missed != 0 && tuple->hash != nullptr)
		search_hash(tuple, missed_keys, sigs, missed, n_missed, burst);
}

template <uint32_t N, typename Burst>
static void
search_words(const struct vask_flow_tuple *tuple, Burst &burst)
{
	if (tuple->slot_mask == 0)
		search_one<N>(tuple, burst);
	else
		search_slots<N>(tuple, burst);
}

template <typename Burst>
static void
search(const struct vask_flow_tuple *tuple, Burst &burst)
{
	if (tuple->n_words == 1)
		search_words<1>(tuple, burst);
	else if (tuple->n_words == 2)
		search_words<2>(tuple, burst);
	else
		search_words<0>(tuple, burst);
}

uint64_t
vask_flow_tuple_search_burst(const struct vask_flow_tuple *tuple, struct softcard_burst *burst,
	const struct softcard_meter *meters, const struct rte_flow **best)
{
	struct whole_burst whole;

	whole.burst = burst;
	whole.meters = meters;
	whole.best = best;
	whole.written = 0;
	search(tuple, whole);
	return whole.written;
}

void
vask_flow_tuple_search(const struct vask_flow_tuple *tuple, const struct vask_flow_frame *frames,
	const uint8_t *index, uint16_t n, const struct rte_flow **best)
{
	struct some_frames some = {frames, index, n, best};

	search(tuple, some);
}
