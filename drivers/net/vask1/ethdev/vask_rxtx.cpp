/* SPDX-License-Identifier: BSD-3-Clause */
#include <algorithm>

#include <rte_mbuf.h>
#include <rte_ring.h>

#include "softcard_shaper.h"
#include "vask_by_eights.h"
#include "vask_police.h"
#include "vask_queue.h"
#include "vask_rcu.h"
#include "vask_rss.h"
#include "vask_rxtx.h"

namespace
{

/* What control calls take away while the scope lasts stays readable. */
struct burst_scope {
	struct rte_rcu_qsbr *rcu;
	unsigned int reader;

	explicit burst_scope(const struct vask_queue *q) : rcu(q->port->rcu), reader(q->reader)
	{
		vask_rcu_online(rcu, reader);
	}
	~burst_scope()
	{
		rte_rcu_qsbr_thread_offline(rcu, reader);
	}
	burst_scope(const burst_scope &) = delete;
	burst_scope &operator=(const burst_scope &) = delete;

	uint16_t uplink(const struct vask_queue *q) const
	{
		return q->port->uplink.burst_id.load(std::memory_order_acquire);
	}
};

/* Gives the packets that go to other queues to those; the rest closes up. */
void
hand_over(struct vask_queue *q)
{
	const struct rte_eth_dev_data *data = q->port->data;
	struct softcard_burst *b = &q->burst;
	uint16_t kept = 0;

	for (uint16_t i = 0; i < b->n; i++) {
		const struct vask_queue *to = b->tag[i] < data->nb_rx_queues
			? static_cast<const struct vask_queue *>(data->rx_queues[b->tag[i]])
			: nullptr;

		if (to == q || to == nullptr) {
			b->pkts[kept] = b->pkts[i];
			b->now_ns[kept++] = b->now_ns[i];
			continue;
		}
		if (rte_ring_mp_enqueue(to->handover, b->pkts[i]) != 0) {
			rte_pktmbuf_free(b->pkts[i]);
			vask_queue_count(q, VASK_QUEUE_DROPPED_PACKETS, 1);
		}
	}
	b->n = kept;
}

/* A delayed packet carries the time at which it left, so that a capture clock behind us sees it. */
void
mark_departure(
	const struct vask_queue *q, struct rte_mbuf *const *pkts, uint64_t *release_ns, uint16_t n)
{
	const struct vask_clock *clock = &q->port->clock;

	if (!clock->capture && !q->leave_times)
		return;
	for (uint16_t i = 0; clock->capture && i < n; i++)
		release_ns[i] /= clock->ns_per_tick;
	vask_clock_mark(clock, pkts, n, release_ns);
}

/* Packets that the shaper lets go by now, or all when time may run on. */
uint16_t
shaper_get(struct vask_queue *q, bool flush, struct rte_mbuf **pkts, uint16_t n)
{
	uint64_t release_ns[SOFTCARD_BURST_MAX];
	uint16_t done = 0;

	while (done < n) {
		const uint16_t want = RTE_MIN(static_cast<uint16_t>(n - done), SOFTCARD_BURST_MAX);
		const uint16_t got = flush
			? softcard_queue_flush(q->shaper, &pkts[done], release_ns, want)
			: softcard_queue_get(q->shaper, vask_clock_now(&q->port->clock),
				  &pkts[done], release_ns, want);

		mark_departure(q, &pkts[done], release_ns, got);
		done += got;
		if (got < want)
			break;
	}
	return done;
}

/* Makes packets the port's and counts them. */
void
deliver(struct vask_queue *q, struct rte_mbuf *const *pkts, uint16_t n)
{
	const uint16_t port_id = q->port_id;
	uint32_t bytes = 0; /* no burst comes near 4 GiB */

	vask_by_eights(pkts, n, [&](struct rte_mbuf *m) {
		m->port = port_id;
		bytes += m->pkt_len;
	});
	vask_queue_count(q, VASK_PACKETS, n);
	vask_queue_count(q, VASK_BYTES, bytes);
}

/* Packets from other queues: they have been policed there. */
__rte_noinline uint16_t
rx_handed_over(struct vask_queue *q, struct rte_mbuf **pkts, uint16_t n)
{
	if (q->handover == nullptr || rte_ring_empty(q->handover))
		return 0;
	return static_cast<uint16_t>(rte_ring_sc_dequeue_burst(
		q->handover, reinterpret_cast<void **>(pkts), n, nullptr));
}

/* One read of the uplink into the burst; returns what the uplink had. */
uint16_t
rx_policed(struct vask_queue *q, uint16_t uplink, uint16_t n)
{
	const struct vask_rss *rss = q->port->rss.load(std::memory_order_acquire);
	struct softcard_burst *b = &q->burst;

	b->n = 0;
	if (rss != nullptr && q->id >= rss->uplink_queues)
		return 0;

	const uint16_t got = rte_eth_rx_burst(uplink, q->id, b->pkts, n);
	b->n = got;
	if (got > 0) {
		vask_police(q);
		if (rss != nullptr)
			vask_rss_spread(rss, b, &q->verdict);
		if (q->verdict.diverted)
			hand_over(q);
	}
	return got;
}

/* Reads of the uplink, as many as the application has room for. */
__rte_noinline uint16_t
rx_policed_all(struct vask_queue *q, uint16_t uplink, struct rte_mbuf **pkts, uint16_t n)
{
	uint16_t done = 0;

	for (uint16_t room = n; room > 0;) {
		const uint16_t want = RTE_MIN(room, SOFTCARD_BURST_MAX);
		const uint16_t got = rx_policed(q, uplink, want);

		std::copy_n(q->burst.pkts, q->burst.n, &pkts[done]);
		done += q->burst.n;
		room -= got;
		if (got < want)
			break;
	}
	return done;
}

__rte_noinline uint16_t
rx_shaped(struct vask_queue *q, uint16_t uplink, struct rte_mbuf **pkts, uint16_t n)
{
	struct softcard_burst *b = &q->burst;
	uint16_t got = SOFTCARD_BURST_MAX;

	for (uint16_t room = n; room > 0 && got > 0; room -= got) {
		const uint16_t want = RTE_MIN(room, SOFTCARD_BURST_MAX);

		b->n = rx_handed_over(q, b->pkts, want);
		got = b->n;
		if (got > 0)
			vask_clock_stamp(&q->port->clock, b->pkts, got, b->now_ns);
		else
			got = rx_policed(q, uplink, want);
		softcard_queue_put(q->shaper, b->pkts, b->now_ns, b->n);
	}
	return shaper_get(q, got == 0 && q->port->clock.capture, pkts, n);
}

/* A port without rules comes this way alone, so that what others need is out of line. */
__rte_always_inline uint16_t
rx_any(struct vask_queue *q, uint16_t uplink, struct rte_mbuf **pkts, uint16_t n)
{
	uint16_t done = 0;

	if (unlikely(q->shaper != nullptr))
		return rx_shaped(q, uplink, pkts, n);
	if (unlikely(q->handover != nullptr))
		done = rx_handed_over(q, pkts, n);
	if (likely(q->port->rss.load(std::memory_order_relaxed) == nullptr && vask_police_idle(q)))
		return done + rte_eth_rx_burst(uplink, q->id, &pkts[done], n - done);
	return done + rx_policed_all(q, uplink, &pkts[done], n - done);
}

/*
 * Hands packets to the uplink. Returns how many it took; the others stay the caller's, as long as they were: no
 * offload that lengthens packets is offered.
 */
__rte_always_inline uint16_t
tx_send(struct vask_queue *q, uint16_t uplink, struct rte_mbuf **pkts, uint16_t n)
{
	uint32_t bytes = 0;

	/* the uplink may free what it takes, so that lengths are read before */
	vask_by_eights(pkts, n, [&](const struct rte_mbuf *m) { bytes += m->pkt_len; });
	const uint16_t sent = rte_eth_tx_burst(uplink, q->id, pkts, n);
	for (uint16_t i = sent; i < n; i++)
		bytes -= pkts[i]->pkt_len;
	vask_queue_count(q, VASK_PACKETS, sent);
	vask_queue_count(q, VASK_BYTES, bytes);
	return sent;
}

/* Sends what is due. False when the uplink left some of it. */
__rte_noinline bool
tx_due(struct vask_queue *q, uint16_t uplink)
{
	const uint16_t sent = tx_send(q, uplink, &q->due.pkts[q->due.first], q->due.n);
	q->due.first += sent;
	q->due.n -= sent;
	return q->due.n == 0;
}

/* Sends what the shaper lets go. False when the uplink left some of it. */
__rte_noinline bool
tx_shaped(struct vask_queue *q, uint16_t uplink, bool flush)
{
	while (q->due.n == 0) {
		q->due.first = 0;
		q->due.n = shaper_get(q, flush, q->due.pkts, SOFTCARD_BURST_MAX);
		if (q->due.n == 0)
			return true;
		tx_due(q, uplink);
	}
	return false;
}

/* Takes and polices one burst. False when some of it is due and the uplink has no room. */
bool
tx_policed(struct vask_queue *q, uint16_t uplink, struct rte_mbuf **pkts, uint16_t n)
{
	struct softcard_burst *b = &q->burst;

	std::copy_n(pkts, n, b->pkts);
	b->n = n;
	vask_police(q);
	if (q->shaper != nullptr) {
		softcard_queue_put(q->shaper, b->pkts, b->now_ns, b->n);
		return tx_shaped(q, uplink, false);
	}
	if (b->n == 0)
		return true;
	const uint16_t sent = tx_send(q, uplink, b->pkts, b->n);
	q->due.first = 0;
	q->due.n = b->n - sent;
	for (uint16_t i = 0; i < q->due.n; i++)
		q->due.pkts[i] = b->pkts[sent + i];
	return q->due.n == 0;
}

/* Takes bursts, as long as the uplink has room. */
__rte_noinline uint16_t
tx_policed_all(struct vask_queue *q, uint16_t uplink, struct rte_mbuf **pkts, uint16_t n)
{
	uint16_t done = 0;

	while (done < n) {
		const uint16_t want = RTE_MIN(static_cast<uint16_t>(n - done), SOFTCARD_BURST_MAX);
		const bool room = tx_policed(q, uplink, &pkts[done], want);

		done += want;
		if (!room)
			break;
	}
	return done;
}

} // namespace

uint16_t
vask_rx_burst(void *queue, struct rte_mbuf **pkts, uint16_t n)
{
	struct vask_queue *q = static_cast<struct vask_queue *>(queue);
	const burst_scope scope(q);
	const uint16_t uplink = scope.uplink(q);

	if (unlikely(uplink == VASK_UPLINK_NONE))
		return 0;
	n = rx_any(q, uplink, pkts, n);
	deliver(q, pkts, n);
	return n;
}

uint16_t
vask_tx_burst(void *queue, struct rte_mbuf **pkts, uint16_t n)
{
	struct vask_queue *q = static_cast<struct vask_queue *>(queue);
	const burst_scope scope(q);
	const uint16_t uplink = scope.uplink(q);

	if (unlikely(uplink == VASK_UPLINK_NONE || (q->due.n > 0 && !tx_due(q, uplink))))
		return 0;
	if (unlikely(q->shaper != nullptr) &&
		!tx_shaped(q, uplink, n == 0 && q->port->clock.capture))
		return 0;
	if (likely(vask_police_idle(q)))
		return tx_send(q, uplink, pkts, n);
	return tx_policed_all(q, uplink, pkts, n);
}

void
vask_tx_flush(struct vask_queue *q)
{
	const burst_scope scope(q);
	const uint16_t uplink = scope.uplink(q);

	if (uplink == VASK_UPLINK_NONE || (q->due.n > 0 && !tx_due(q, uplink)))
		return;
	if (q->shaper != nullptr)
		tx_shaped(q, uplink, true);
}
