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

constexpr uint32_t HASH_KEYS_MIN = 64;

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

static inline void
mask_fields(
	const struct vask_flow_tuple *tuple, const union vask_flow_fields *fields, uint64_t *key)
{
	key[tuple->key_words - 1] = 0;
	for (uint32_t w = 0; w < tuple->n_words; w++)
		key[w] = fields->word[tuple->word[w]] & tuple->mask[w];
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
	const struct vask_flow_tuple *tuple, const union vask_flow_fields *fields, uint64_t *key)
{
	mask_fields(tuple, fields, key);
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

	if (tuple == nullptr)
		return nullptr;
	TAILQ_INIT(&tuple->rules);
	tuple->best_rank = UINT64_MAX;
	tuple->full_mask = *mask;
	for (unsigned w = 0; w < VASK_FLOW_WORDS; w++)
		if (mask->word[w] != 0) {
			tuple->word[tuple->n_words] = w;
			tuple->mask[tuple->n_words++] = mask->word[w];
		}
	tuple->key_words = std::max(2u, RTE_ALIGN(tuple->n_words, 2u));
	if (keys <= VASK_FLOW_FEW) {
		tuple->capacity = VASK_FLOW_FEW;
		return tuple;
	}
	tuple->capacity = rte_align32pow2(std::max(keys, HASH_KEYS_MIN));
	/* half full at most, so that nearly all keys stand in their first bucket */
	tuple->hash = create_hash(2 * tuple->capacity, tuple->key_words);
	if (tuple->hash == nullptr) {
		rte_free(tuple);
		return nullptr;
	}
	return tuple;
}

void
vask_flow_tuple_free(struct vask_flow_tuple *tuple)
{
	rte_hash_free(tuple->hash);
	rte_free(tuple);
}

struct rte_flow *
vask_flow_tuple_find(const struct vask_flow_tuple *tuple, const uint64_t *key)
{
	void *data = nullptr;

	if (tuple->hash != nullptr) {
		if (rte_hash_lookup_with_hash_data(
			    tuple->hash, key, hash_key(key, tuple->n_words), &data) < 0)
			return nullptr;
		struct rte_flow *rule = static_cast<struct rte_flow *>(data);

		return rule->ready.load(std::memory_order_acquire) != 0 ? rule : nullptr;
	}
	for (const std::atomic<struct rte_flow *> &slot : tuple->few) {
		struct rte_flow *rule = slot.load(std::memory_order_acquire);

		if (rule != nullptr && same_key(rule->key, key, tuple->n_words))
			return rule;
	}
	return nullptr;
}

static int
put_few(struct vask_flow_tuple *tuple, struct rte_flow *rule)
{
	std::atomic<struct rte_flow *> *place = nullptr;
	bool replaced = false;

	for (std::atomic<struct rte_flow *> &slot : tuple->few) {
		struct rte_flow *other = slot.load(std::memory_order_relaxed);

		if (other != nullptr && same_key(other->key, rule->key, tuple->n_words)) {
			place = &slot;
			replaced = true;
			break;
		}
		if (other == nullptr && place == nullptr)
			place = &slot;
	}
	if (place == nullptr)
		return -ENOSPC;
	place->store(rule);
	tuple->n_keys += replaced ? 0 : 1;
	return 0;
}

int
vask_flow_tuple_put(struct vask_flow_tuple *tuple, struct rte_flow *rule)
{
	hash_sig_t sig;
	bool known;

	rule->ready.store(1, std::memory_order_release);
	if (tuple->hash == nullptr)
		return put_few(tuple, rule);

	sig = hash_key(rule->key, tuple->n_words);
	known = rte_hash_lookup_with_hash(tuple->hash, rule->key, sig) >= 0;
	if (!known && tuple->n_keys == tuple->capacity)
		return -ENOSPC;
	if (rte_hash_add_key_with_hash_data(tuple->hash, rule->key, sig, rule) != 0)
		return -ENOSPC;
	tuple->n_keys += known ? 0 : 1;
	return 0;
}

void
vask_flow_tuple_take(struct vask_flow_tuple *tuple, struct rte_flow *rule)
{
	tuple->n_keys--;
	if (tuple->hash != nullptr) {
		rule->position = rte_hash_del_key_with_hash(
			tuple->hash, rule->key, hash_key(rule->key, tuple->n_words));
		return;
	}
	for (std::atomic<struct rte_flow *> &slot : tuple->few)
		if (slot.load(std::memory_order_relaxed) == rule)
			slot.store(nullptr);
}

void
vask_flow_tuple_give_back(struct vask_flow_tuple *tuple, int32_t position)
{
	if (tuple->hash != nullptr && position >= 0)
		rte_hash_free_key_with_position(tuple->hash, position);
}

static inline void
offer(struct rte_flow *rule, uint16_t i, uint64_t *best_rank, struct rte_flow **best)
{
	if (rule->rank < best_rank[i]) {
		best_rank[i] = rule->rank;
		best[i] = rule;
	}
}

static void
search_few(const struct vask_flow_tuple *tuple, const union vask_flow_fields *fields,
	const uint16_t *index, uint16_t n, uint64_t *best_rank, struct rte_flow **best)
{
	for (const std::atomic<struct rte_flow *> &slot : tuple->few) {
		struct rte_flow *rule = slot.load(std::memory_order_acquire);

		if (rule == nullptr)
			continue;
		for (uint16_t k = 0; k < n; k++) {
			const uint64_t *word = fields[index[k]].word;
			uint64_t diff = 0;

			for (uint32_t w = 0; w < tuple->n_words; w++)
				diff |= (word[tuple->word[w]] & tuple->mask[w]) ^ rule->key[w];
			if (diff == 0)
				offer(rule, index[k], best_rank, best);
		}
	}
}

static void
search_hash(const struct vask_flow_tuple *tuple, const union vask_flow_fields *fields,
	const uint16_t *index, uint16_t n, uint64_t *best_rank, struct rte_flow **best)
{
	uint64_t key[SOFTCARD_BURST_MAX][VASK_FLOW_KEY_WORDS];
	const void *keys[SOFTCARD_BURST_MAX];
	hash_sig_t sigs[SOFTCARD_BURST_MAX];
	void *found[SOFTCARD_BURST_MAX];
	uint64_t hits = 0;

	for (uint16_t k = 0; k < n; k++) {
		mask_fields(tuple, &fields[index[k]], key[k]);
		sigs[k] = hash_key(key[k], tuple->n_words);
		keys[k] = key[k];
	}
	rte_hash_lookup_with_hash_bulk_data(tuple->hash, keys, sigs, n, &hits, found);
	for (uint64_t left = hits; left != 0; left &= left - 1)
		rte_prefetch0(found[rte_bsf64(left)]);
	for (; hits != 0; hits &= hits - 1) {
		const uint32_t k = rte_bsf64(hits);
		struct rte_flow *rule = static_cast<struct rte_flow *>(found[k]);

		if (rule->ready.load(std::memory_order_acquire) != 0)
			offer(rule, index[k], best_rank, best);
	}
}

void
vask_flow_tuple_search(const struct vask_flow_tuple *tuple, uint64_t tuple_rank,
	const union vask_flow_fields *fields, uint16_t n, uint64_t *best_rank,
	struct rte_flow **best)
{
	uint16_t index[SOFTCARD_BURST_MAX];
	uint16_t left = 0;

	for (uint16_t i = 0; i < n; i++) {
		index[left] = i;
		left += best_rank[i] > tuple_rank;
	}
	if (left == 0)
		return;
	if (tuple->hash == nullptr)
		search_few(tuple, fields, index, left, best_rank, best);
	else
		search_hash(tuple, fields, index, left, best_rank, best);
}
