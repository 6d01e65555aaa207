/* SPDX-License-Identifier: BSD-3-Clause */

/* Delay queues: packets that wait for their shaper. */

#include <algorithm>
#include <atomic>
#include <cerrno>

#include <rte_malloc.h>
#include <rte_mbuf.h>

#include "softcard_internal.h"
#include "softcard_shaper.h"

static constexpr uint32_t QUEUE_MAX = 1 << 20;
static constexpr uint64_t END_OF_TIME = UINT64_MAX;

struct queue_slot {
	struct rte_mbuf *pkt;
	uint64_t arrival_ns;
};

struct softcard_queue {
	struct softcard_shaper *shaper;
	uint32_t capacity;
	uint32_t head; /* slot of the oldest packet */
	uint64_t last_arrival_ns;
	uint64_t last_release_ns;
	/* Written by the queue's thread, read by any. */
	std::atomic<uint32_t> waiting;
	std::atomic<uint64_t> packets;
	std::atomic<uint64_t> bytes;
	std::atomic<uint64_t> dropped;
	struct queue_slot slots[];
};

/* Adds to a counter that one thread writes: no locked instruction needed. */
template <typename Number>
static void
counter_add(std::atomic<Number> &counter, Number n)
{
	counter.store(counter.load(std::memory_order_relaxed) + n, std::memory_order_relaxed);
}

struct softcard_queue *
softcard_queue_create(int dir, uint16_t port_sfi, uint32_t capacity, int socket)
{
	struct softcard_shaper *shaper = softcard_shaper_of(dir, port_sfi);
	if (shaper == nullptr || capacity == 0 || capacity > QUEUE_MAX)
		return nullptr;

	struct softcard_queue *queue = static_cast<struct softcard_queue *>(rte_zmalloc_socket(
		"softcard_queue", sizeof(*queue) + capacity * sizeof(queue->slots[0]),
		RTE_CACHE_LINE_SIZE, socket));
	if (queue == nullptr)
		return nullptr;

	queue->shaper = shaper;
	queue->capacity = capacity;
	return queue;
}

void
softcard_queue_free(struct softcard_queue *queue)
{
	if (queue == nullptr)
		return;

	for (uint32_t i = 0; i < queue->waiting.load(std::memory_order_relaxed); i++)
		rte_pktmbuf_free(queue->slots[(queue->head + i) % queue->capacity].pkt);
	rte_free(queue);
}

uint16_t
softcard_queue_put(struct softcard_queue *queue, struct rte_mbuf *const *pkts,
	const uint64_t *now_ns, uint16_t n)
{
	const uint32_t waiting = queue->waiting.load(std::memory_order_relaxed);
	const uint16_t taken = std::min<uint32_t>(n, queue->capacity - waiting);

	uint32_t tail = (queue->head + waiting) % queue->capacity;
	for (uint16_t i = 0; i < taken; i++) {
		queue->last_arrival_ns = std::max(queue->last_arrival_ns, now_ns[i]);
		queue->slots[tail] = {pkts[i], queue->last_arrival_ns};
		tail = tail + 1 == queue->capacity ? 0 : tail + 1;
	}
	for (uint16_t i = taken; i < n; i++)
		rte_pktmbuf_free(pkts[i]);

	counter_add<uint32_t>(queue->waiting, taken);
	counter_add<uint64_t>(queue->dropped, n - taken);
	return taken;
}

uint16_t
softcard_queue_get(struct softcard_queue *queue, uint64_t now_ns, struct rte_mbuf **pkts,
	uint64_t *release_ns, uint16_t n)
{
	const uint32_t waiting = queue->waiting.load(std::memory_order_relaxed);
	uint64_t bytes = 0;
	uint16_t out = 0;

	if (waiting == 0)
		return 0;

	rte_spinlock_lock(&queue->shaper->lock);
	while (out < n && out < waiting) {
		const struct queue_slot &slot = queue->slots[queue->head];
		const uint32_t length = rte_pktmbuf_pkt_len(slot.pkt);
		uint64_t when_ns;

		if (!softcard_shaper_release(queue->shaper,
			    std::max(slot.arrival_ns, queue->last_release_ns), length, &when_ns) ||
			when_ns > now_ns)
			break;
		softcard_shaper_charge(queue->shaper, when_ns, length);
		queue->last_release_ns = when_ns;
		pkts[out] = slot.pkt;
		if (release_ns != nullptr)
			release_ns[out] = when_ns;
		bytes += length;
		out++;
		queue->head = queue->head + 1 == queue->capacity ? 0 : queue->head + 1;
	}
	rte_spinlock_unlock(&queue->shaper->lock);

	counter_add<uint32_t>(queue->waiting, -uint32_t{out});
	counter_add<uint64_t>(queue->packets, out);
	counter_add<uint64_t>(queue->bytes, bytes);
	return out;
}

uint16_t
softcard_queue_flush(
	struct softcard_queue *queue, struct rte_mbuf **pkts, uint64_t *release_ns, uint16_t n)
{
	return softcard_queue_get(queue, END_OF_TIME, pkts, release_ns, n);
}

void
softcard_queue_read(const struct softcard_queue *queue, struct softcard_queue_counters *counters)
{
	counters->packets = queue->packets.load(std::memory_order_relaxed);
	counters->bytes = queue->bytes.load(std::memory_order_relaxed);
	counters->dropped = queue->dropped.load(std::memory_order_relaxed);
	counters->waiting = queue->waiting.load(std::memory_order_relaxed);
}
