/* SPDX-License-Identifier: BSD-3-Clause */
#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <rte_hash.h>
#include <rte_malloc.h>

#include "vask_flow_key.h"
#include "vask_flow_tuple.h"

constexpr uint32_t KEYS_MIN = 16; /* of a tuple with more than one slot */
constexpr uint32_t SLOTS_A_KEY = 2;
/* Rules that come and go could else make one tuple after another, each a little while in use. */
constexpr uint32_t PICKS_MAX = 8;

static_assert(VASK_FLOW_KEY_WORDS == RTE_ALIGN(VASK_FLOW_WORDS, 2u));

void
vask_flow_tuple_key(
	const struct vask_flow_tuple *tuple, const struct vask_flow_frame *frame, uint64_t *key)
{
	vask_flow_key_make(tuple, tuple->n_words, frame, key);
}

/* Lock-free for readers; places of deleted keys are given back by hand. */
static struct rte_hash *
create_hash(uint32_t keys, uint32_t key_words)
{
	static unsigned serial; /* under the control lock */
	char name[RTE_HASH_NAMESIZE];
	struct rte_hash_parameters params = {};

	snprintf(name, sizeof(name), "vask_flow_%u", serial++);
	params.name = name;
	params.entries = keys;
	params.key_len = key_words * sizeof(uint64_t);
	params.socket_id = SOCKET_ID_ANY;
	params.extra_flag = RTE_HASH_EXTRA_FLAGS_RW_CONCURRENCY_LF | RTE_HASH_EXTRA_FLAGS_EXT_TABLE;
	return rte_hash_create(&params);
}

struct vask_flow_tuple *
vask_flow_tuple_create(const union vask_flow_fields *mask, uint32_t keys)
{
	struct vask_flow_tuple *tuple = static_cast<struct vask_flow_tuple *>(
		rte_zmalloc("vask_flow_tuple", sizeof(*tuple), RTE_CACHE_LINE_SIZE));
	uint32_t slots = 1;

	if (tuple == nullptr)
		return nullptr;
	TAILQ_INIT(&tuple->rules);
	tuple->best_rank = UINT64_MAX;
	tuple->full_mask = *mask;
	for (unsigned w = 0; w < VASK_FLOW_WORDS; w++)
		if (w == 0 || mask->word[w] != 0) {
			tuple->offset[tuple->n_words][0] = vask_flow_offsets[0][w];
			tuple->offset[tuple->n_words][1] = vask_flow_offsets[1][w];
			tuple->mask[tuple->n_words++] = mask->word[w];
		}
	tuple->key_words = RTE_ALIGN(tuple->n_words, 2u);
	tuple->capacity = 1;
	if (keys > 1) {
		tuple->capacity = rte_align32pow2(std::max(keys, KEYS_MIN));
		slots = SLOTS_A_KEY * tuple->capacity;
	}
	tuple->slot_mask = slots - 1;
	tuple->slot_size = vask_flow_slot_size(tuple->n_words);
	tuple->slots = static_cast<uint8_t *>(rte_zmalloc(
		"vask_flow_slots", size_t{slots} * tuple->slot_size, RTE_CACHE_LINE_SIZE));
	if (tuple->slots == nullptr) {
		vask_flow_tuple_free(tuple);
		return nullptr;
	}
	return tuple;
}

void
vask_flow_tuple_free(struct vask_flow_tuple *tuple)
{
	rte_hash_free(tuple->hash);
	rte_free(tuple->slots);
	rte_free(tuple);
}

struct rte_flow *
vask_flow_tuple_find(const struct vask_flow_tuple *tuple, const uint64_t *key)
{
	const hash_sig_t sig = vask_flow_key_hash(key, tuple->n_words);
	const struct vask_flow_slot *slot = vask_flow_slot_of(tuple, tuple->slot_size, sig);
	const vask_flow_brief brief = slot->brief.load(std::memory_order_acquire);
	void *data;

	if (vask_flow_slot_holds(slot, brief, key, tuple->n_words))
		return slot->rule.load(std::memory_order_acquire);
	if (tuple->hash == nullptr ||
		rte_hash_lookup_with_hash_data(tuple->hash, key, sig, &data) < 0)
		return nullptr;

	struct rte_flow *rule = static_cast<struct rte_flow *>(data);
	return (vask_flow_rule_brief(rule) & VASK_FLOW_BRIEF_RULE) != 0 ? rule : nullptr;
}

/* The key of a rule, its hash and its slot. */
struct rule_place {
	uint64_t key[VASK_FLOW_KEY_WORDS];
	hash_sig_t sig;
	struct vask_flow_slot *slot;

	rule_place(const struct vask_flow_tuple *tuple, const struct rte_flow *rule)
	{
		const struct vask_flow_frame frame = vask_flow_frame_of(&rule->spec.key);

		vask_flow_tuple_key(tuple, &frame, key);
		sig = vask_flow_key_hash(key, tuple->n_words);
		slot = vask_flow_slot_of(tuple, tuple->slot_size, sig);
	}
	/* Whether the slot is the rule's, be it gone or not. */
	bool holds(const struct rte_flow *rule) const
	{
		return slot->rule.load(std::memory_order_relaxed) == rule;
	}
};

struct rte_flow *
vask_flow_tuple_head(const struct vask_flow_tuple *tuple, const struct rte_flow *rule)
{
	return vask_flow_tuple_find(tuple, rule_place(tuple, rule).key);
}

/* Of keys that hash so, how many want a slot that an earlier one has. */
static uint32_t
count_late(const struct vask_flow_tuple *tuple, const hash_sig_t *sigs, uint32_t n, uint8_t *taken)
{
	uint32_t late = 0;

	memset(taken, 0, tuple->slot_mask + 1);
	for (uint32_t i = 0; i < n; i++) {
		uint8_t *slot = &taken[vask_flow_slot_number(tuple, sigs[i])];

		late += *slot;
		*slot = 1;
	}
	return late;
}

/* Picks the bits that leave the fewest keys without a slot. Returns how many those are. */
static uint32_t
pick_bits(struct vask_flow_tuple *tuple, const hash_sig_t *sigs, uint32_t n, uint8_t *taken)
{
	const uint32_t shifts = 33 - std::popcount(tuple->slot_mask);
	uint32_t best = 0;
	uint32_t fewest = UINT32_MAX;

	for (uint32_t shift = 0; shift < shifts && fewest != 0; shift++) {
		tuple->slot_shift = shift;
		const uint32_t late = count_late(tuple, sigs, n, taken);

		if (late < fewest) {
			fewest = late;
			best = shift;
		}
	}
	tuple->slot_shift = best;
	return fewest;
}

int
vask_flow_tuple_prepare(struct vask_flow_tuple *tuple, const struct vask_flow_tuple *old,
	const struct rte_flow *added)
{
	hash_sig_t *sigs = static_cast<hash_sig_t *>(malloc(tuple->capacity * sizeof(*sigs)));
	uint8_t *taken = static_cast<uint8_t *>(malloc(tuple->slot_mask + 1));
	const struct rte_flow *rule;
	uint32_t late = 0;
	uint32_t n = 0;

	if (sigs != nullptr && taken != nullptr) {
		TAILQ_FOREACH (rule, &old->rules, in_tuple)
			if (rule->head)
				sigs[n++] = rule_place(tuple, rule).sig;
		sigs[n++] = rule_place(tuple, added).sig;
		late = pick_bits(tuple, sigs, n, taken);
	}
	free(sigs);
	free(taken);
	if (n == 0)
		return -ENOMEM;
	tuple->picks = tuple->capacity == old->capacity ? old->picks + 1 : 1;
	if (late == 0 && tuple->picks <= PICKS_MAX)
		return 0;
	/* half full at most, so that nearly all keys stand in their first bucket */
	tuple->hash = create_hash(2 * tuple->capacity, tuple->key_words);
	return tuple->hash != nullptr ? 0 : -ENOMEM;
}

/* Puts a rule into a slot that is free, or has its key. */
static void
slot_fill(
	const struct vask_flow_tuple *tuple, const struct rule_place &place, struct rte_flow *rule)
{
	struct vask_flow_slot *slot = place.slot;

	if (slot->brief.load(std::memory_order_relaxed) == 0)
		memcpy(slot->key, place.key, tuple->key_words * sizeof(slot->key[0]));
	slot->rule.store(rule, std::memory_order_release);
	/* a packet between the two meets one rule in brief, and the other if that does not do: both are right */
	slot->brief.store(rule->brief.load(std::memory_order_relaxed), std::memory_order_release);
}

int
vask_flow_tuple_put(struct vask_flow_tuple *tuple, struct rte_flow *rule)
{
	const struct rule_place place(tuple, rule);
	/* a slot whose rule is gone still has its key, which may come back at once */
	const bool mine = place.slot->brief.load(std::memory_order_relaxed) == 0 ||
		vask_flow_key_same(place.slot->key, place.key, tuple->n_words);
	const bool known = vask_flow_tuple_find(tuple, place.key) != nullptr;

	if (!known && (tuple->n_keys == tuple->capacity || (!mine && tuple->hash == nullptr)))
		return -ENOSPC;
	rule->brief.fetch_or(VASK_FLOW_BRIEF_RULE, std::memory_order_release);
	if (tuple->hash != nullptr &&
		rte_hash_add_key_with_hash_data(tuple->hash, place.key, place.sig, rule) != 0)
		return -ENOSPC;
	if (mine)
		slot_fill(tuple, place, rule);
	tuple->n_keys += known ? 0 : 1;
	return 0;
}

void
vask_flow_tuple_update(struct vask_flow_tuple *tuple, const struct rte_flow *rule)
{
	const struct rule_place place(tuple, rule);

	if (place.holds(rule))
		place.slot->brief.store(
			rule->brief.load(std::memory_order_relaxed), std::memory_order_release);
}

void
vask_flow_tuple_take(struct vask_flow_tuple *tuple, struct rte_flow *rule)
{
	const struct rule_place place(tuple, rule);

	tuple->n_keys--;
	if (tuple->hash != nullptr)
		rule->position = rte_hash_del_key_with_hash(tuple->hash, place.key, place.sig);
	if (place.holds(rule))
		place.slot->brief.store(VASK_FLOW_BRIEF_GONE);
}

void
vask_flow_tuple_give_back(struct vask_flow_tuple *tuple, const struct rte_flow *rule)
{
	const struct rule_place place(tuple, rule);

	if (tuple->hash != nullptr && rule->position >= 0)
		rte_hash_free_key_with_position(tuple->hash, rule->position);
	if (!place.holds(rule))
		return;
	place.slot->rule.store(nullptr, std::memory_order_relaxed);
	place.slot->brief.store(0, std::memory_order_relaxed);
}
