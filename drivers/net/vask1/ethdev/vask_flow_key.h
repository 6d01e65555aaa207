/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_FLOW_KEY_H
#define VASK_FLOW_KEY_H

/**
 * @file
 * The keys of a tuple's rules: how they are made of frames, hashed and compared. A key is the tuple's words of
 * a frame, masked.
 */

#include <cstring>
#if defined(__SSE4_2__) && defined(__x86_64__)
#include <nmmintrin.h>
#endif

#include <rte_hash.h>
#include <rte_hash_crc.h>

#include "vask_flow_frame.h"
#include "vask_flow_slot.h"
#include "vask_flow_tuple.h"

/** The hash of a key. */
static inline hash_sig_t
vask_flow_key_hash(const uint64_t *key, uint32_t n_words)
{
	uint32_t hash = 0;

	for (uint32_t w = 0; w < n_words; w++)
#if defined(__SSE4_2__) && defined(__x86_64__)
		/* rte_hash_crc_8byte() asks at each word which instructions there are */
		hash = static_cast<uint32_t>(_mm_crc32_u64(hash, key[w]));
#else
		hash = rte_hash_crc_8byte(key[w], hash);
#endif
	return hash;
}

/** A word that may begin at any address. */
static inline uint64_t
vask_flow_word(const uint8_t *p)
{
	uint64_t word;

	memcpy(&word, p, sizeof(word));
	return word;
}

/** vask_flow_tuple_key() where the number of words is known. */
static inline void
vask_flow_key_make(const struct vask_flow_tuple *tuple, uint32_t n_words,
	const struct vask_flow_frame *frame, uint64_t *key)
{
	if (n_words % 2 != 0)
		key[n_words] = 0;
	key[0] = frame->word0 & tuple->mask[0];
	for (uint32_t w = 1; w < n_words; w++)
		key[w] = vask_flow_word(frame->base + tuple->offset[w][frame->plain]) &
			tuple->mask[w];
}

static inline bool
vask_flow_key_same(const uint64_t *a, const uint64_t *b, uint32_t n_words)
{
	uint64_t diff = 0;

	for (uint32_t w = 0; w < n_words; w++)
		diff |= a[w] ^ b[w];
	return diff == 0;
}

/** Bytes from one slot to the next where keys have n_words: a power of two, so that few share two cache lines. */
constexpr size_t
vask_flow_slot_size(uint32_t n_words)
{
	size_t size = 32;

	while (size < sizeof(struct vask_flow_slot) + RTE_ALIGN(n_words, 2u) * sizeof(uint64_t))
		size *= 2;
	return size;
}

/** The number of the slot of a key that hashes so. */
static inline uint32_t
vask_flow_slot_number(const struct vask_flow_tuple *tuple, hash_sig_t sig)
{
	return sig >> tuple->slot_shift & tuple->slot_mask;
}

/** The slot of a key that hashes so, by vask_flow_slot_size(). */
static inline struct vask_flow_slot *
vask_flow_slot_of(const struct vask_flow_tuple *tuple, size_t slot_size, hash_sig_t sig)
{
	return reinterpret_cast<struct vask_flow_slot *>(
		tuple->slots + vask_flow_slot_number(tuple, sig) * slot_size);
}

/** Whether a slot holds the rule with that key. */
static inline bool
vask_flow_slot_holds(const struct vask_flow_slot *slot, vask_flow_brief brief, const uint64_t *key,
	uint32_t n_words)
{
	return (brief & VASK_FLOW_BRIEF_RULE) != 0 && vask_flow_key_same(slot->key, key, n_words);
}

#endif /* VASK_FLOW_KEY_H */
