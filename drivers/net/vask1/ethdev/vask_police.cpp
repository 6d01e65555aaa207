/* SPDX-License-Identifier: BSD-3-Clause */
#include <cstring>

#include <rte_ether.h>
#include <rte_mbuf.h>

#include "softcard.h"
#include "vask_police.h"
#include "vask_queue.h"

namespace
{

/* Drops and counts the packets of a mask. */
void
drop(struct vask_queue *q, uint64_t mask, enum vask_counter counter)
{
	if (mask != 0)
		vask_queue_count(q, counter, softcard_burst_drop(&q->burst, mask));
}

/* Takes the outermost tag off; a frame whose bytes others share is copied first. */
uint16_t
strip(struct vask_queue *q, struct rte_mbuf **pkt)
{
	struct rte_mbuf *m = *pkt;
	rte_be16_t type;

	if (m->data_len < sizeof(struct rte_ether_hdr) + sizeof(struct rte_vlan_hdr))
		return 0;
	/* memory of somebody else's may begin at an odd address */
	memcpy(&type,
		rte_pktmbuf_mtod_offset(m, char *, offsetof(struct rte_ether_hdr, ether_type)),
		sizeof(type));
	if (type != RTE_BE16(RTE_ETHER_TYPE_VLAN))
		return 0;
	if (!RTE_MBUF_DIRECT(m) || rte_mbuf_refcnt_read(m) > 1) {
		m = rte_pktmbuf_copy(*pkt, q->pool, 0, UINT32_MAX);
		if (m == nullptr)
			return 0;
		rte_pktmbuf_free(*pkt);
		*pkt = m;
	}
	return rte_vlan_strip(m) == 0 ? sizeof(struct rte_vlan_hdr) : 0;
}

} // namespace

void
vask_police(struct vask_queue *q)
{
	struct softcard_burst *b = &q->burst;
	struct vask_flow_verdict *v = &q->verdict;
	const uint16_t n = b->n;
	const bool strip_vlan = q->strip_vlan.load(std::memory_order_relaxed);
	uint64_t dropped;

	/* the frames come while the clock is read */
	vask_flow_prefetch(q->port, q->dir, b);
	vask_clock_stamp(&q->port->clock, b->pkts, n, b->now_ns);
	memset(b->taken_off, 0, n * sizeof(b->taken_off[0]));

	vask_flow_classify(q->port, q->card, q->id, q->dir, b, v);
	for (uint16_t i = 0; strip_vlan && i < n; i++)
		b->taken_off[i] = strip(q, &b->pkts[i]);
	if (q->leave_times)
		vask_clock_mark(&q->port->clock, b->pkts, n, b->now_ns);

	drop(q, v->drop_mask, VASK_FLOW_DROPPED_PACKETS);
	if (v->metered) {
		dropped = softcard_meter_burst(q->dir, b);
		vask_queue_count(q, VASK_METER_DROPPED_BYTES, b->dropped_bytes);
		drop(q, dropped, VASK_METER_DROPPED_PACKETS);
	}
	drop(q, softcard_mtu_burst(q->card, b), VASK_MTU_DROPPED_PACKETS);
}
