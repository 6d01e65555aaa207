/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_FLOW_TUPLE_H
#define VASK_FLOW_TUPLE_H

/**
 * @file
 * A tuple: the rules of a direction that share a mask, as one exact-match table over the masked words.
 *
 * Of rules with the same pattern the table holds the first in rank, the head; the others hang behind it.
 */

#include "vask_flow_table.h"

/** Keys that a tuple compares one by one before it gets a hash table. */
constexpr uint32_t VASK_FLOW_FEW = 4;

struct vask_flow_tuple {
	/* fixed from creation, read by packets */
	struct rte_hash *hash; /* null: the keys are in few */
	uint32_t n_words;
	uint32_t key_words; /* n_words rounded up to 16 bytes */
	uint8_t word[VASK_FLOW_WORDS];
	uint64_t mask[VASK_FLOW_WORDS]; /* of word[i] */
	/* changed by the control path, read by packets */
	std::atomic<struct rte_flow *> few[VASK_FLOW_FEW];

	/* the control path's own */
	struct vask_flow_retired retired;
	union vask_flow_fields full_mask;
	uint64_t best_rank; /* no rule has a lower one */
	uint32_t n_keys;
	uint32_t capacity;           /* keys */
	struct vask_flow_list rules; /* heads and others */
	TAILQ_ENTRY(vask_flow_tuple) next;
};

/** A tuple without rules that holds at least `keys` keys, or null when memory is short. */
struct vask_flow_tuple *vask_flow_tuple_create(const union vask_flow_fields *mask, uint32_t keys);

/** Frees a tuple that no packet sees. Its rules are not touched. */
void vask_flow_tuple_free(struct vask_flow_tuple *tuple);

/** Fills key with the tuple's words of some fields, masked; words up to key_words are 0. */
void vask_flow_tuple_key(
	const struct vask_flow_tuple *tuple, const union vask_flow_fields *fields, uint64_t *key);

/** The head of the rules with that key, or null. Also for packets. */
struct rte_flow *vask_flow_tuple_find(const struct vask_flow_tuple *tuple, const uint64_t *key);

/** Makes a rule the head for its key, in place of any other. 0, or -ENOSPC when the tuple is full. */
int vask_flow_tuple_put(struct vask_flow_tuple *tuple, struct rte_flow *rule);

/** Takes a head away, and its key with it. rule->position tells what to give back. */
void vask_flow_tuple_take(struct vask_flow_tuple *tuple, struct rte_flow *rule);

/** Gives back the place of a key that was taken away, once no packet can see it. */
void vask_flow_tuple_give_back(struct vask_flow_tuple *tuple, int32_t position);

/**
 * Looks a burst up.
 *
 * @param fields     of each packet.
 * @param best_rank  only packets with a rank above this tuple's best take part; lowered for those that match.
 * @param best       receives the head for those that match.
 */
void vask_flow_tuple_search(const struct vask_flow_tuple *tuple, uint64_t tuple_rank,
	const union vask_flow_fields *fields, uint16_t n, uint64_t *best_rank,
	struct rte_flow **best);

#endif /* VASK_FLOW_TUPLE_H */
