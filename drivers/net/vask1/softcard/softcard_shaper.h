/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef SOFTCARD_SHAPER_H
#define SOFTCARD_SHAPER_H

/**
 * @file
 * The card's shapers, which delay and do not police: the shaper of each port's transmit side and the
 * ingress scheduler's, which all ports share. Both are programmed through the seam.
 *
 * A port that enforces them gives each of its queues one softcard_queue: packets go in with the time they
 * got there and come out when the shaper releases them, first in, first out. Release times are exact and
 * do not depend on how often the queue is polled. A register written while packets wait governs them too.
 *
 * One thread at a time uses a queue; queues that share a shaper may be used by different threads.
 */

#include <cstdint>

struct rte_mbuf;
struct softcard_queue;

constexpr uint32_t SOFTCARD_QUEUE_DEFAULT = 4096; /* packets */

/**
 * A queue in front of a shaper.
 *
 * @param dir       VASK_P4_MEP_INGRESS for the ingress scheduler's shaper, VASK_P4_MEP_EGRESS for the
 *   shaper of the port.
 * @param capacity  packets it holds, 1 to 2^20.
 * @param socket    NUMA socket, or SOCKET_ID_ANY.
 * @return a queue to be freed by softcard_queue_free(), or null (bad argument, no memory, card down).
 */
struct softcard_queue *
softcard_queue_create(int dir, uint16_t port_sfi, uint32_t capacity, int socket);

/** Frees a queue and the packets in it. Null is harmless. To be called before softcard_stop(). */
void softcard_queue_free(struct softcard_queue *queue);

/**
 * Takes packets over at the queue's tail. Those that find it full are freed and counted (tail drop).
 *
 * @param now_ns  when each packet got here; a time before the last one counts as the last one.
 * @return packets taken.
 */
uint16_t softcard_queue_put(struct softcard_queue *queue, struct rte_mbuf *const *pkts,
	const uint64_t *now_ns, uint16_t n);

/**
 * Hands out the packets whose release time is not after now_ns.
 *
 * @param release_ns  receives the time of departure of each; null when nobody asks.
 * @return packets handed out, at most n; they are the caller's.
 */
uint16_t softcard_queue_get(struct softcard_queue *queue, uint64_t now_ns, struct rte_mbuf **pkts,
	uint64_t *release_ns, uint16_t n);

/**
 * Hands out packets as if time had run on until they were released, the same times of departure included.
 * To be called until it returns 0. Nothing passes a shaper that is always closed.
 */
uint16_t softcard_queue_flush(
	struct softcard_queue *queue, struct rte_mbuf **pkts, uint64_t *release_ns, uint16_t n);

struct softcard_queue_counters {
	uint64_t packets; /* handed out */
	uint64_t bytes;   /* handed out */
	uint64_t dropped; /* found the queue full */
	uint32_t waiting; /* in the queue now */
};

/** Reads a queue's counters. Safe from any thread. */
void
softcard_queue_read(const struct softcard_queue *queue, struct softcard_queue_counters *counters);

/** What a shaper's register asks for. */
struct softcard_shaper_view {
	bool enabled;          /* limits or closes */
	bool closed;           /* lets nothing through */
	bool below_resolution; /* enabled with rate 0: does not limit */
	bool packet_mode;      /* counts packets */
	uint64_t rate;         /* bits/s, or packets/s; 0: no limit */
	uint64_t burst;        /* bytes, or packets, that may leave at once */
	uint32_t
		register_value; /* max_rate of the port shaper, the word of the scheduler's register */
};

/** Reads the ingress scheduler's shaper (ingress) or a port's (egress). 0, -EINVAL, -ERANGE or -ENODEV. */
int softcard_view_shaper(int dir, uint16_t port_sfi, struct softcard_shaper_view *view);

#endif /* SOFTCARD_SHAPER_H */
