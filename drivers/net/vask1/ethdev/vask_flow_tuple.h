/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_FLOW_TUPLE_H
#define VASK_FLOW_TUPLE_H

/**
 * @file
 * A tuple: the rules of a direction that share a mask, as one exact-match table over the masked words.
 *
 * Slots, one for each value of some bits of the key's hash, answer most lookups with one cache line. Where keys
 * want a slot that another has, an rte_hash behind the slots holds all keys; it is not there where none does.
 * The hash of addresses in a row is linear: some of its bits tell them all apart, others hardly any, and the
 * bits are chosen by the keys there are. Of rules with the same pattern the table holds the first in rank, the
 * head; the others hang behind it.
 */

#include "vask_flow_table.h"

struct vask_flow_frame;

struct vask_flow_tuple {
	/* fixed before packets read it */
	struct rte_hash *hash; /* all keys, or null: they are all in slots */
	uint32_t slot_shift;   /* of the hash, where the bits begin that number the slots */
	uint32_t n_words;      /* word 0 and every other one that has a mask */
	uint32_t key_words;    /* n_words rounded up to 16 bytes */
	uint64_t mask[VASK_FLOW_WORDS];
	uint8_t offset[VASK_FLOW_WORDS][2]; /* of vask_flow_offsets: [word][plain] */
	uint32_t slot_mask;
	uint32_t slot_size; /* bytes */
	uint8_t *slots;     /* struct vask_flow_slot */

	/* the control path's own */
	struct vask_flow_retired retired;
	union vask_flow_fields full_mask;
	uint64_t best_rank; /* no rule has a lower one */
	uint32_t n_keys;
	uint32_t capacity; /* keys */
	uint32_t picks;    /* of bits, for tuples of that capacity, this one and those before it */
	struct vask_flow_list rules; /* heads and others */
	TAILQ_ENTRY(vask_flow_tuple) next;
};

/**
 * A tuple without rules.
 *
 * @param keys  that it holds at least; with one it has one slot and no use for hashing.
 * @return null when memory is short.
 */
struct vask_flow_tuple *vask_flow_tuple_create(const union vask_flow_fields *mask, uint32_t keys);

/**
 * Makes ready for the heads of another tuple, in whose place this one comes, and for one rule more: picks the bits
 * by which the fewest of them want the same slots, and adds an rte_hash if some do, or if bits were picked often
 * enough. The tuple has no rules yet, room for those, and more than one slot.
 *
 * @return 0, or -ENOMEM.
 */
int vask_flow_tuple_prepare(struct vask_flow_tuple *tuple, const struct vask_flow_tuple *old,
	const struct rte_flow *added);

/** Frees a tuple that no packet sees. Its rules are not touched. */
void vask_flow_tuple_free(struct vask_flow_tuple *tuple);

/** Fills key with the tuple's words of a frame, masked; words up to key_words are 0. */
void vask_flow_tuple_key(
	const struct vask_flow_tuple *tuple, const struct vask_flow_frame *frame, uint64_t *key);

/** The head of the rules with that key, or null. Also for packets. */
struct rte_flow *vask_flow_tuple_find(const struct vask_flow_tuple *tuple, const uint64_t *key);

/** The head of the rules with the pattern of that rule, or null. */
struct rte_flow *
vask_flow_tuple_head(const struct vask_flow_tuple *tuple, const struct rte_flow *rule);

/**
 * Makes a rule the head for its key, in place of any other.
 *
 * @return 0, or -ENOSPC: the tuple is full, or the slot is taken and there is no rte_hash, or that has no place
 *   left until places are given back.
 */
int vask_flow_tuple_put(struct vask_flow_tuple *tuple, struct rte_flow *rule);

/** Shows packets that meet a head what it is in brief by now. */
void vask_flow_tuple_update(struct vask_flow_tuple *tuple, const struct rte_flow *rule);

/** Takes a head away, and its key with it. Its place stays taken. */
void vask_flow_tuple_take(struct vask_flow_tuple *tuple, struct rte_flow *rule);

/** Gives back the place of a rule that was taken away, once no packet can see it. */
void vask_flow_tuple_give_back(struct vask_flow_tuple *tuple, const struct rte_flow *rule);

#endif /* VASK_FLOW_TUPLE_H */
