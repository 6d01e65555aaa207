/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_BY_EIGHTS_H
#define VASK_BY_EIGHTS_H

/**
 * @file
 * Work on each packet of a burst that is so little that counting the packets would be half of it.
 */

#include <cstdint>

struct rte_mbuf;

/**
 * Calls each(packet) for the packets of a burst in order, eight in a row without a branch between them.
 *
 * Written out, because what `#pragma GCC unroll` asks for is forgotten between compiler and linker.
 */
template <typename Each>
static inline void
vask_by_eights(struct rte_mbuf *const *pkts, uint32_t n, Each each)
{
	struct rte_mbuf *const *const end = pkts + n;

	for (; end - pkts >= 8; pkts += 8) {
		each(pkts[0]);
		each(pkts[1]);
		each(pkts[2]);
		each(pkts[3]);
		each(pkts[4]);
		each(pkts[5]);
		each(pkts[6]);
		each(pkts[7]);
	}
	for (; pkts != end; pkts++)
		each(*pkts);
}

#endif /* VASK_BY_EIGHTS_H */
