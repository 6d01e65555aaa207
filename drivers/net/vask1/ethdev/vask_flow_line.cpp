/* SPDX-License-Identifier: BSD-3-Clause */
#include <cstring>

#include <rte_malloc.h>

#include "vask_flow_line.h"

constexpr unsigned LINES_A_CHUNK = 64;

struct alignas(RTE_CACHE_LINE_SIZE) vask_flow_line_chunk {
	STAILQ_ENTRY(vask_flow_line_chunk) next;
};

static_assert(
	sizeof(struct vask_flow_line) == RTE_CACHE_LINE_SIZE, "and what is left of it is key");
static_assert(offsetof(struct vask_flow_line, key) + VASK_FLOW_KEY_WORDS * sizeof(uint64_t) <=
	2 * RTE_CACHE_LINE_SIZE);

/* The class of a key: how many cache lines its line takes, less one. */
static unsigned
class_of(const union vask_flow_fields *mask)
{
	unsigned n_words = 1; /* word 0 is part of every key */

	for (unsigned w = 1; w < VASK_FLOW_WORDS; w++)
		n_words += mask->word[w] != 0;
	return offsetof(struct vask_flow_line, key) + RTE_ALIGN(n_words, 2u) * sizeof(uint64_t) >
		RTE_CACHE_LINE_SIZE;
}

void
vask_flow_lines_init(struct vask_flow_lines *lines)
{
	for (vask_flow_lines::size_class &c : lines->classes) {
		c.free = nullptr;
		STAILQ_INIT(&c.chunks);
	}
}

void
vask_flow_lines_fini(struct vask_flow_lines *lines)
{
	struct vask_flow_line_chunk *chunk;

	for (vask_flow_lines::size_class &c : lines->classes)
		while ((chunk = STAILQ_FIRST(&c.chunks)) != nullptr) {
			STAILQ_REMOVE_HEAD(&c.chunks, next);
			rte_free(chunk);
		}
}

static void
push(vask_flow_lines::size_class *c, struct vask_flow_line *line)
{
	line->next.store(c->free, std::memory_order_relaxed);
	c->free = line;
}

/* Takes memory for another chunk of lines. False when there is none. */
static bool
refill(vask_flow_lines::size_class *c, size_t line_size)
{
	struct vask_flow_line_chunk *chunk =
		static_cast<struct vask_flow_line_chunk *>(rte_zmalloc("vask_flow_lines",
			sizeof(*chunk) + LINES_A_CHUNK * line_size, RTE_CACHE_LINE_SIZE));

	if (chunk == nullptr)
		return false;

	uint8_t *lines = reinterpret_cast<uint8_t *>(chunk + 1);
	STAILQ_INSERT_HEAD(&c->chunks, chunk, next);
	for (unsigned i = LINES_A_CHUNK; i > 0; i--)
		push(c, reinterpret_cast<struct vask_flow_line *>(lines + (i - 1) * line_size));
	return true;
}

struct vask_flow_line *
vask_flow_line_alloc(struct vask_flow_lines *lines, const union vask_flow_fields *mask)
{
	const unsigned n = class_of(mask);
	const size_t line_size = (n + 1) * RTE_CACHE_LINE_SIZE;
	vask_flow_lines::size_class *c = &lines->classes[n];
	struct vask_flow_line *line;

	if (c->free == nullptr && !refill(c, line_size))
		return nullptr;
	line = c->free;
	c->free = line->next.load(std::memory_order_relaxed);
	memset(static_cast<void *>(line), 0, line_size);
	return line;
}

void
vask_flow_line_free(struct vask_flow_lines *lines, const union vask_flow_fields *mask,
	struct vask_flow_line *line)
{
	push(&lines->classes[class_of(mask)], line);
}
