/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_FLOW_LINE_H
#define VASK_FLOW_LINE_H

/**
 * @file
 * What packets read of a rule, apart from what the control path keeps of it: close together and no larger
 * than its key asks for, so that thousands of rules share few cache lines and pages.
 *
 * Lines are taken and given back under the control lock.
 */

#include <array>
#include <atomic>
#include <cstdint>
#include <sys/queue.h>

#include <rte_common.h>

#include "vask_flow_fields.h"

struct rte_flow;

struct alignas(RTE_CACHE_LINE_SIZE) vask_flow_line {
	std::atomic<uint32_t> hw_meter_id; /* 0: unmetered */
	std::atomic<bool> ready; /* once the line is whole: read with acquire, before the rest */
	bool meters_only;        /* no other action */
	uint64_t rank;           /* priority, then age; the lowest wins */
	std::atomic<struct vask_flow_line *> next; /* same pattern, the next in rank */
	struct rte_flow *rule;                     /* its other actions */
	uint64_t key[];                            /* the tuple's words, masked, in whole pairs */
};

/** Lines of one direction. Their memory is taken in chunks, and given back with the last of them. */
struct vask_flow_lines {
	struct size_class {
		struct vask_flow_line *free; /* by `next` */
		STAILQ_HEAD(, vask_flow_line_chunk) chunks;
	};
	std::array<size_class, 2> classes; /* one cache line each, two */
};

/** No line, and no memory yet. */
void vask_flow_lines_init(struct vask_flow_lines *lines);

/** Frees the memory of all lines. */
void vask_flow_lines_fini(struct vask_flow_lines *lines);

/** A line with room for a key of the mask, all 0; null when memory is short. */
struct vask_flow_line *
vask_flow_line_alloc(struct vask_flow_lines *lines, const union vask_flow_fields *mask);

/** Gives back a line that no packet sees, by the mask that it was taken for. */
void vask_flow_line_free(struct vask_flow_lines *lines, const union vask_flow_fields *mask,
	struct vask_flow_line *line);

#endif /* VASK_FLOW_LINE_H */
