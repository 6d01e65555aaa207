/* SPDX-License-Identifier: BSD-3-Clause */
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <rte_hash.h>
#include <rte_hash_crc.h>
#include <rte_malloc.h>

#include "softcard.h"
#include "vask_flow_tuple.h"

constexpr uint32_t KEYS_MIN = 16; /* of a tuple with more than one slot */
constexpr uint32_t SLOTS_A_KEY = 4;

static_assert(SOFTCARD_BURST_MAX <= RTE_HASH_LOOKUP_BULK_MAX, "a burst is one lookup");
static_assert(VASK_FLOW_KEY_WORDS == RTE_ALIGN(VASK_FLOW_WORDS, 2u));

static inline hash_sig_t
hash_key(const uint64_t *key, uint32_t n_words)
{
	uint32_t hash = 0;

	for (uint32_t w = 0; w < n_words; w++)
		hash = rte_hash_crc_8byte(key[w], hash);
	return hash;
}

static inline std::atomic<struct vask_flow_line *> *
slot_of(const struct vask_flow_tuple *tuple, hash_sig_t sig)
{
	return &tuple->slots[sig & tuple->slot_mask];
}

static inline uint64_t
load_word(const uint8_t *p)
{
	uint64_t word;

	memcpy(&word, p, sizeof(word));
	return word;
}

static inline void
make_key(const struct vask_flow_tuple *tuple, uint32_t n_words, const struct vask_flow_frame *frame,
	uint64_t *key)
{
	if (n_words % 2 != 0)
		key[n_words] = 0;
	key[0] = frame->word0 & tuple->mask[0];
	for (uint32_t w = 1; w < n_words; w++)
		key[w] = load_word(frame->base + tuple->offset[w][frame->plain]) & tuple->mask[w];
}

static inline bool
same_key(const uint64_t *a, const uint64_t *b, uint32_t n_words)
{
	uint64_t diff = 0;

	for (uint32_t w = 0; w < n_words; w++)
		diff |= a[w] ^ b[w];
	return diff == 0;
}

void
vask_flow_tuple_key(
	const struct vask_flow_tuple *tuple, const struct vask_flow_frame *frame, uint64_t *key)
{
	make_key(tuple, tuple->n_words, frame, key);
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
vask_flow_tuple_create(const union vask_flow_fields *mask, uint32_t keys, bool hash)
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
	tuple->slots = static_cast<std::atomic<struct vask_flow_line *> *>(
		rte_zmalloc("vask_flow_slots", slots * sizeof(*tuple->slots), RTE_CACHE_LINE_SIZE));
	if (tuple->slots != nullptr && hash)
		/* half full at most, so that nearly all keys stand in their first bucket */
		tuple->hash = create_hash(2 * tuple->capacity, tuple->key_words);
	if (tuple->slots == nullptr || (hash && tuple->hash == nullptr)) {
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

/* What a lookup in the rte_hash gave. Reading `ready` makes the rest of it visible. */
static inline struct vask_flow_line *
found_line(void *data)
{
	struct vask_flow_line *line = static_cast<struct vask_flow_line *>(data);

	return line->ready.load(std::memory_order_acquire) ? line : nullptr;
}

struct vask_flow_line *
vask_flow_tuple_find(const struct vask_flow_tuple *tuple, const uint64_t *key)
{
	const hash_sig_t sig = hash_key(key, tuple->n_words);
	struct vask_flow_line *line = slot_of(tuple, sig)->load(std::memory_order_acquire);
	void *data;

	if (line != nullptr && same_key(line->key, key, tuple->n_words))
		return line;
	if (tuple->hash == nullptr ||
		rte_hash_lookup_with_hash_data(tuple->hash, key, sig, &data) < 0)
		return nullptr;
	return found_line(data);
}

int
vask_flow_tuple_put(struct vask_flow_tuple *tuple, struct vask_flow_line *line)
{
	const hash_sig_t sig = hash_key(line->key, tuple->n_words);
	std::atomic<struct vask_flow_line *> *slot = slot_of(tuple, sig);
	const struct vask_flow_line *other = slot->load(std::memory_order_relaxed);
	const bool mine = other == nullptr || same_key(other->key, line->key, tuple->n_words);
	const bool known = vask_flow_tuple_find(tuple, line->key) != nullptr;

	if (!known && (tuple->n_keys == tuple->capacity || (!mine && tuple->hash == nullptr)))
		return -ENOSPC;
	line->ready.store(true, std::memory_order_release);
	if (tuple->hash != nullptr &&
		rte_hash_add_key_with_hash_data(tuple->hash, line->key, sig, line) != 0)
		return -ENOSPC;
	if (mine)
		slot->store(line);
	tuple->n_keys += known ? 0 : 1;
	return 0;
}

void
vask_flow_tuple_take(struct vask_flow_tuple *tuple, struct rte_flow *rule)
{
	const hash_sig_t sig = hash_key(rule->line->key, tuple->n_words);
	std::atomic<struct vask_flow_line *> *slot = slot_of(tuple, sig);

	tuple->n_keys--;
	if (tuple->hash != nullptr)
		rule->position = rte_hash_del_key_with_hash(tuple->hash, rule->line->key, sig);
	if (slot->load(std::memory_order_relaxed) == rule->line)
		slot->store(nullptr);
}

void
vask_flow_tuple_give_back(struct vask_flow_tuple *tuple, int32_t position)
{
	if (tuple->hash != nullptr && position >= 0)
		rte_hash_free_key_with_position(tuple->hash, position);
}

static inline void
offer(struct vask_flow_line *line, struct vask_flow_line **best)
{
	if (*best == nullptr || line->rank < (*best)->rank)
		*best = line;
}

/* The keys that did not find their rule in a slot. */
static void
search_hash(const struct vask_flow_tuple *tuple, const void **keys, hash_sig_t *sigs,
	const uint8_t *index, uint16_t n, struct vask_flow_line **best)
{
	void *found[SOFTCARD_BURST_MAX];
	uint64_t hits = 0;

	rte_hash_lookup_with_hash_bulk_data(tuple->hash, keys, sigs, n, &hits, found);
	for (; hits != 0; hits &= hits - 1) {
		const uint32_t k = rte_bsf64(hits);
		struct vask_flow_line *line = found_line(found[k]);

		if (line != nullptr)
			offer(line, &best[index[k]]);
	}
}

/*
 * In the searches N is the tuple's number of words, or 0 for any. ALL: every frame takes part, `index` is not
 * read, and what `best` holds neither.
 */

/* A tuple of one slot, and so of one key: nothing to hash, no key to be made. */
template <uint32_t N, bool ALL>
static void
search_one(const struct vask_flow_tuple *tuple, const struct vask_flow_frame *frames,
	const uint8_t *index, uint16_t n, struct vask_flow_line **best)
{
	const uint32_t n_words = N != 0 ? N : tuple->n_words;
	struct vask_flow_line *line = tuple->slots[0].load(std::memory_order_acquire);

	if (line == nullptr) {
		if (ALL)
			std::fill_n(best, n, nullptr);
		return;
	}
	for (uint16_t k = 0; k < n; k++) {
		const uint16_t i = ALL ? k : index[k];
		const struct vask_flow_frame *frame = &frames[i];
		uint64_t diff = (frame->word0 & tuple->mask[0]) ^ line->key[0];

		for (uint32_t w = 1; w < n_words; w++)
			diff |= (load_word(frame->base + tuple->offset[w][frame->plain]) &
					tuple->mask[w]) ^
				line->key[w];
		if (ALL)
			best[i] = diff == 0 ? line : nullptr;
		else if (diff == 0)
			offer(line, &best[i]);
	}
}

template <uint32_t N, bool ALL>
static void
search_slots(const struct vask_flow_tuple *tuple, const struct vask_flow_frame *frames,
	const uint8_t *index, uint16_t n, struct vask_flow_line **best)
{
	const uint32_t n_words = N != 0 ? N : tuple->n_words;
	const uint32_t key_words = RTE_ALIGN(n_words, 2u);
	uint64_t key[SOFTCARD_BURST_MAX * VASK_FLOW_KEY_WORDS];
	hash_sig_t sigs[SOFTCARD_BURST_MAX];
	struct vask_flow_line *lines[SOFTCARD_BURST_MAX];
	const void *missed_keys[SOFTCARD_BURST_MAX];
	uint8_t missed[SOFTCARD_BURST_MAX];
	const uint32_t slot_mask = tuple->slot_mask;
	std::atomic<struct vask_flow_line *> *const slots = tuple->slots;
	uint16_t n_missed = 0;

	for (uint16_t k = 0; k < n; k++) {
		make_key(tuple, n_words, &frames[ALL ? k : index[k]], &key[k * key_words]);
		sigs[k] = hash_key(&key[k * key_words], n_words);
		lines[k] = slots[sigs[k] & slot_mask].load(std::memory_order_acquire);
		rte_prefetch0(lines[k]);
	}
	for (uint16_t k = 0; k < n; k++) {
		const uint16_t i = ALL ? k : index[k];

		if (lines[k] != nullptr && same_key(lines[k]->key, &key[k * key_words], n_words)) {
			if (ALL)
				best[i] = lines[k];
			else
				offer(lines[k], &best[i]);
			continue;
		}
		if (ALL)
			best[i] = nullptr;
		missed_keys[n_missed] = &key[k * key_words];
		sigs[n_missed] = sigs[k];
		missed[n_missed++] = i;
	}
	if (n_missed != 0 && tuple->hash != nullptr)
		search_hash(tuple, missed_keys, sigs, missed, n_missed, best);
}

template <bool ALL, uint32_t N>
static void
search_words(const struct vask_flow_tuple *tuple, const struct vask_flow_frame *frames,
	const uint8_t *index, uint16_t n, struct vask_flow_line **best)
{
	if (tuple->slot_mask == 0)
		search_one<N, ALL>(tuple, frames, index, n, best);
	else
		search_slots<N, ALL>(tuple, frames, index, n, best);
}

template <bool ALL>
static void
search(const struct vask_flow_tuple *tuple, const struct vask_flow_frame *frames,
	const uint8_t *index, uint16_t n, struct vask_flow_line **best)
{
	if (tuple->n_words == 1)
		search_words<ALL, 1>(tuple, frames, index, n, best);
	else if (tuple->n_words == 2)
		search_words<ALL, 2>(tuple, frames, index, n, best);
	else
		search_words<ALL, 0>(tuple, frames, index, n, best);
}

void
vask_flow_tuple_search_all(const struct vask_flow_tuple *tuple,
	const struct vask_flow_frame *frames, uint16_t n, struct vask_flow_line **best)
{
	search<true>(tuple, frames, nullptr, n, best);
}

void
vask_flow_tuple_search(const struct vask_flow_tuple *tuple, const struct vask_flow_frame *frames,
	const uint8_t *index, uint16_t n, struct vask_flow_line **best)
{
	search<false>(tuple, frames, index, n, best);
}
