/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef FUZZ_FRAMES_H
#define FUZZ_FRAMES_H

/**
 * @file
 * Frames of any bytes in mbufs of any make: segments that are their own, that lie in memory of somebody else, and
 * that others see too.
 */

#include <cstdint>
#include <vector>

#include <rte_mbuf.h>

#include "input.h"

using FrameBytes = std::vector<uint8_t>;

/** All bytes of a frame, whatever segments hold them. */
FrameBytes fuzz_bytes_of(const struct rte_mbuf *frame);

/** Where the IPv4 header of a frame begins, behind two VLAN tags at most; 0 when there is none. */
size_t fuzz_ipv4_at(const FrameBytes &frame);

/** VLAN tags at the start of a frame, two at most. */
unsigned fuzz_tags(const FrameBytes &frame);

/** The sum of a header's 16-bit words modulo 2^16 - 1: 0 when its checksum is right. */
uint32_t fuzz_header_sum(const FrameBytes &frame, size_t at);

/** Makes frames, and keeps what others than the frames' owner see of them. */
class FrameMaker
{
      public:
	/**
	 * @param pool    buffers for data.
	 * @param clones  buffers without room for data, for indirect mbufs.
	 */
	FrameMaker(struct rte_mempool *pool, struct rte_mempool *clones)
		: pool_(pool), clones_(clones)
	{
	}
	~FrameMaker();
	FrameMaker(const FrameMaker &) = delete;
	FrameMaker &operator=(const FrameMaker &) = delete;

	/** A frame: its bytes, how it is cut, and what its segments are. Null when buffers are short. */
	struct rte_mbuf *Make(Input &input);

	/** What others see has not changed. */
	void CheckShared() const;

      private:
	struct rte_mbuf *Segment(const FrameBytes &bytes, unsigned kind);

	struct Shared {
		struct rte_mbuf *mbuf;
		FrameBytes bytes;
	};
	struct rte_mempool *pool_, *clones_;
	std::vector<Shared> shared_;
};

#endif /* FUZZ_FRAMES_H */
