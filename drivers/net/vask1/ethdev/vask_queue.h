/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_QUEUE_H
#define VASK_QUEUE_H

/**
 * @file
 * A receive or transmit queue of a port. One thread at a time bursts on a queue; it alone writes what stands
 * here, but for the handover ring.
 */

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "softcard.h"
#include "vask_flow.h"
#include "vask_port.h"

struct rte_mempool;
struct rte_ring;
struct softcard_queue;

/** What a queue counts. */
enum vask_counter {
	VASK_PACKETS, /* delivered to the application, or taken by the uplink */
	VASK_BYTES,
	VASK_METER_DROPPED_PACKETS,
	VASK_METER_DROPPED_BYTES,
	VASK_FLOW_DROPPED_PACKETS,   /* DROP rules */
	VASK_MTU_DROPPED_PACKETS,    /* longer than the MTU */
	VASK_SHAPER_DROPPED_PACKETS, /* found the shaper's queue full */
	VASK_SHAPER_WAITING_PACKETS, /* in the shaper's queue now: a level, which a reset leaves */
	VASK_QUEUE_DROPPED_PACKETS,  /* for another queue: found that queue's ring full */
	VASK_COUNTS
};

struct vask_queue {
	/* what every burst comes by stands first, with the packets and bytes counted on one line */
	struct vask_port *port;
	struct softcard_queue *shaper; /* null unless shapers are enforced */
	/** Receive: packets that rules or RSS send here from other queues; null until there are others. */
	struct rte_ring *handover;
	/** The port as the card knows it, which it leaves after its queues are gone. */
	const struct softcard_port *card;
	int dir; /* VASK_P4_MEP_INGRESS: receive */
	uint16_t id;
	uint16_t reader; /* thread of the port's rcu */
	uint16_t port_id;
	std::atomic<bool> strip_vlan; /* receive: take VLAN tags off */
	bool leave_times;             /* receive: leave the times of arrival in the mbufs */
	/** Written by the queue's thread, read by any. */
	std::atomic<uint64_t> counters[VASK_COUNTS];
	/** Packets that are due and wait for the uplink: pkts[first .. first + n - 1]. */
	struct {
		uint16_t first;
		uint16_t n;
		struct rte_mbuf *pkts[SOFTCARD_BURST_MAX];
	} due;
	struct softcard_burst burst;
	struct vask_flow_verdict verdict;
	/** What was counted at the last reset; control path only. */
	uint64_t base[VASK_COUNTS];
	unsigned int socket;      /* where its memory lies */
	struct rte_mempool *pool; /* receive */
};
static_assert(offsetof(struct vask_queue, counters[VASK_BYTES]) + sizeof(uint64_t) <=
	RTE_CACHE_LINE_MIN_SIZE);

/**
 * Creates a queue, with its shaper's queue if the port enforces shapers.
 *
 * @param pool  receive: where the uplink takes its mbufs; null for a transmit queue.
 * @return a queue to be freed by vask_queue_free(), or null when memory is short.
 */
struct vask_queue *vask_queue_create(struct vask_port *port, int dir, uint16_t id,
	unsigned int socket, struct rte_mempool *pool);

/** Readies a receive queue for packets from others. 0, also when it is; or -ENOMEM. */
int vask_queue_handover_open(struct vask_queue *queue);

/** Frees a queue and the packets that wait in it; null is harmless. No burst may be under way. */
void vask_queue_free(struct vask_queue *queue);

/** Adds to a counter; for the queue's thread. */
static inline void
vask_queue_count(struct vask_queue *queue, enum vask_counter counter, uint64_t n)
{
	std::atomic<uint64_t> *c = &queue->counters[counter];

	c->store(c->load(std::memory_order_relaxed) + n, std::memory_order_relaxed);
}

/** What the queue has counted since the last reset, VASK_COUNTS numbers. Control path. */
void vask_queue_counts(const struct vask_queue *queue, uint64_t *counts);

/** Counts from zero again. Control path. */
void vask_queue_counts_reset(struct vask_queue *queue);

#endif /* VASK_QUEUE_H */
