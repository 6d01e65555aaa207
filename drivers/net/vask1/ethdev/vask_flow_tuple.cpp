/* SPDX-License-Identifier: BSD-3-Clause */
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <rte_hash.h>
#include <rte_malloc.h>

#include "vask_flow_key.h"
#include "vask_flow_tuple.h"

constexpr uint32_t KEYS_MIN = 16; /* of a tuple with more than one slot */
constexpr uint32_t SLOTS_A_KEY = 4;

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

struct vask_flow_line *
vask_flow_tuple_find(const struct vask_flow_tuple *tuple, const uint64_t *key)
{
	const hash_sig_t sig = vask_flow_key_hash(key, tuple->n_words);
	struct vask_flow_line *line =
		vask_flow_slot_of(tuple, sig)->load(std::memory_order_acquire);
	void *data;

	if (line != nullptr && vask_flow_key_same(line->key, key, tuple->n_words))
		return line;
	if (tuple->hash == nullptr ||
		rte_hash_lookup_with_hash_data(tuple->hash, key, sig, &data) < 0)
		return nullptr;
	return vask_flow_line_of(data);
}

int
vask_flow_tuple_put(struct vask_flow_tuple *tuple, struct vask_flow_line *line)
{
	const hash_sig_t sig = vask_flow_key_hash(line->key, tuple->n_words);
	std::atomic<struct vask_flow_line *> *slot = vask_flow_slot_of(tuple, sig);
	const struct vask_flow_line *other = slot->load(std::memory_order_relaxed);
	const bool mine =
		other == nullptr || vask_flow_key_same(other->key, line->key, tuple->n_words);
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
	const hash_sig_t sig = vask_flow_key_hash(rule->line->key, tuple->n_words);
	std::atomic<struct vask_flow_line *> *slot = vask_flow_slot_of(tuple, sig);

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
