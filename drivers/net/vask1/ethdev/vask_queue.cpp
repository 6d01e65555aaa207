/* SPDX-License-Identifier: BSD-3-Clause */
#include <cerrno>
#include <cstdio>
#include <new>

#include <rte_malloc.h>
#include <rte_mbuf.h>
#include <rte_ring.h>

#include "softcard_shaper.h"
#include "vask_queue.h"

constexpr unsigned HANDOVER_PACKETS = 1024;

/* A ring of its own memory: no name to be shared with the rest of the process. */
int
vask_queue_handover_open(struct vask_queue *q)
{
	if (q->handover != nullptr)
		return 0;

	const ssize_t size = rte_ring_get_memsize(HANDOVER_PACKETS);
	struct rte_ring *ring = static_cast<struct rte_ring *>(rte_zmalloc_socket(
		"vask_handover", static_cast<size_t>(size), RTE_CACHE_LINE_SIZE, q->socket));

	if (ring == nullptr ||
		rte_ring_init(ring, "vask_handover", HANDOVER_PACKETS, RING_F_SC_DEQ) != 0) {
		rte_free(ring);
		return -ENOMEM;
	}
	q->handover = ring;
	return 0;
}

static void
handover_free(struct rte_ring *ring)
{
	void *m;

	while (ring != nullptr && rte_ring_dequeue(ring, &m) == 0)
		rte_pktmbuf_free(static_cast<struct rte_mbuf *>(m));
	rte_free(ring);
}

struct vask_queue *
vask_queue_create(
	struct vask_port *port, int dir, uint16_t id, unsigned int socket, struct rte_mempool *pool)
{
	const bool enforce = port->args.shapers == vask_shapers::ENFORCE;
	void *memory = rte_zmalloc_socket(
		"vask_queue", sizeof(struct vask_queue), RTE_CACHE_LINE_SIZE, socket);

	if (memory == nullptr)
		return nullptr;

	struct vask_queue *q = new (memory) vask_queue();
	q->port = port;
	q->card = softcard_port_of(vask_port_sfi(port));
	q->dir = dir;
	q->id = id;
	q->reader = dir == VASK_P4_MEP_INGRESS ? id : VASK_QUEUES_MAX + id;
	q->port_id = port->data->port_id;
	q->pool = pool;
	q->socket = socket;
	if (enforce)
		q->shaper = softcard_queue_create(
			dir, vask_port_sfi(port), SOFTCARD_QUEUE_DEFAULT, static_cast<int>(socket));
	if (enforce && q->shaper == nullptr) {
		vask_queue_free(q);
		return nullptr;
	}
	return q;
}

void
vask_queue_free(struct vask_queue *q)
{
	if (q == nullptr)
		return;
	handover_free(q->handover);
	softcard_queue_free(q->shaper);
	if (q->due.n > 0)
		rte_pktmbuf_free_bulk(&q->due.pkts[q->due.first], q->due.n);
	rte_free(q);
}

/* All that was ever counted, what the shaper's queue tells itself included. */
static void
counts_total(const struct vask_queue *q, uint64_t *total)
{
	for (unsigned i = 0; i < VASK_COUNTS; i++)
		total[i] = q->counters[i].load(std::memory_order_relaxed);
	if (q->shaper != nullptr) {
		struct softcard_queue_counters shaper;

		softcard_queue_read(q->shaper, &shaper);
		total[VASK_SHAPER_DROPPED_PACKETS] = shaper.dropped;
		total[VASK_SHAPER_WAITING_PACKETS] = shaper.waiting;
	}
}

void
vask_queue_counts(const struct vask_queue *q, uint64_t *counts)
{
	counts_total(q, counts);
	for (unsigned i = 0; i < VASK_COUNTS; i++)
		counts[i] -= q->base[i];
}

void
vask_queue_counts_reset(struct vask_queue *q)
{
	counts_total(q, q->base);
	q->base[VASK_SHAPER_WAITING_PACKETS] = 0;
}
