/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_FLOW_TUPLE_SEARCH_H
#define VASK_FLOW_TUPLE_SEARCH_H

/**
 * @file
 * A burst looked up in a tuple.
 */

#include <cstdint>

struct rte_flow;
struct softcard_burst;
struct softcard_meter;
struct vask_flow_frame;
struct vask_flow_tuple;

/**
 * Looks a burst up where no other tuple has rules: writes the hardware meter of each packet whose first rule in
 * rank meters and does nothing else.
 *
 * @param meters  of the engine, called into the cache as they are found.
 * @param best    receives the first rule in rank of each other packet that has one.
 * @return bit i: best[i] was written.
 */
uint64_t
vask_flow_tuple_search_burst(const struct vask_flow_tuple *tuple, struct softcard_burst *burst,
	const struct softcard_meter *meters, const struct rte_flow **best);

/**
 * Looks up some frames of a burst that may have rules in several tuples.
 *
 * @param index  which of the frames take part, n of them.
 * @param best   of each frame, the first rule in rank that was found so far, or null; replaced by one of this
 *   tuple where that comes before it.
 */
void
vask_flow_tuple_search(const struct vask_flow_tuple *tuple, const struct vask_flow_frame *frames,
	const uint8_t *index, uint16_t n, const struct rte_flow **best);

#endif /* VASK_FLOW_TUPLE_SEARCH_H */
