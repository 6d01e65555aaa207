/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_CLOCK_H
#define VASK_CLOCK_H

/**
 * @file
 * The time at which packets are metered, in nanoseconds: the processor's own, or that of the capture.
 */

#include <atomic>
#include <cstdint>

struct rte_mbuf;
struct vask_args;

struct vask_clock {
	bool capture;
	uint32_t ns_per_tick; /* capture clock */
	uint64_t tsc_mult;    /* nanoseconds a cycle, 32 fractional bits */
	int dynfield;         /* offset of the timestamp in an mbuf, or -1 */
	uint64_t dynflag;     /* ol_flags of an mbuf that has one */
	/** Latest capture time that the port has seen, for packets that carry none. */
	std::atomic<uint64_t> latest_ns;
};

/** 0, or a negative errno after an ERR line: the mbuf timestamp cannot be registered. */
int vask_clock_init(struct vask_clock *clock, const struct vask_args *args);

/**
 * The times of a burst. With the processor's clock one reading serves all of it; with the capture's each
 * packet has its own, and one that carries none takes the latest seen.
 */
void vask_clock_stamp(
	struct vask_clock *clock, struct rte_mbuf *const *pkts, uint16_t n, uint64_t *now_ns);

/** Leaves the times of a burst in its mbufs' timestamps. */
void vask_clock_mark(const struct vask_clock *clock, struct rte_mbuf *const *pkts, uint16_t n,
	const uint64_t *now_ns);

/** The time now: processor's clock, or the latest capture time seen. */
uint64_t vask_clock_now(const struct vask_clock *clock);

#endif /* VASK_CLOCK_H */
