/* SPDX-License-Identifier: BSD-3-Clause */

/* Packets through an engine. */

#include <rte_ether.h>
#include <rte_mbuf.h>
#include <rte_prefetch.h>

#include "softcard_frame.h"
#include "softcard_internal.h"

/* A meter whose lock is held, and its buckets. */
struct held_meter {
	struct softcard_meter *meter;
	struct softcard_bucket_state state;
};

static inline void
meter_release(const struct held_meter &held)
{
	if (held.meter == nullptr)
		return;
	held.meter->state = held.state;
	rte_spinlock_unlock(&held.meter->lock);
}

static inline void
meter_hold(struct held_meter *held, struct softcard_meter *meter)
{
	meter_release(*held);
	rte_spinlock_lock(&meter->lock);
	held->meter = meter;
	held->state = meter->state;
}

static __rte_noinline void
packet_rewrite(struct softcard_meter &meter, struct rte_mbuf **pkt, enum rte_color color)
{
	if (meter.dscp_colors >> color & 1)
		meter.rewritten += softcard_frame_dscp_write(pkt, meter.dscp[color]);
}

/* Colours and counts a packet. Hardly anything branches: this is where the time goes. */
static inline enum rte_color
packet_color(struct held_meter *held, struct rte_mbuf *pkt, uint64_t now_ns, uint32_t length,
	enum rte_color in)
{
	struct softcard_meter &meter = *held->meter;
	const enum rte_color color = softcard_bucket_check(
		meter.params, held->state, now_ns, in, softcard_bucket_cost(meter.params, length));

	rte_mbuf_sched_color_set(pkt, color);
	meter.colors[color].packets++;
	meter.colors[color].bytes += length;
	return color;
}

uint64_t
softcard_meter_burst(int dir, struct softcard_burst *burst)
{
	burst->dropped_bytes = 0;
	if (softcard_engine_check(dir, 0, 1) != 0)
		return 0;

	struct softcard_meter *meters = softcard->engines[dir].meters;
	struct held_meter held = {}; /* packets in a row often share a meter */
	uint32_t lengths[SOFTCARD_BURST_MAX];
	const uint16_t n = burst->n;
	uint64_t drop_mask = 0;

	/* one that does not exist costs a needless line, and no branch */
	for (uint16_t i = 0; i < n; i++)
		rte_prefetch0(&meters[burst->hw_meter_id[i] % SOFTCARD_METERS]);

	for (uint16_t i = 0; i < n; i++) {
		const uint32_t hw_meter_id = burst->hw_meter_id[i];
		struct softcard_meter *meter = &meters[hw_meter_id];

		if (unlikely(hw_meter_id == 0 || hw_meter_id >= SOFTCARD_METERS))
			continue;
		if (meter != held.meter)
			meter_hold(&held, meter);

		struct rte_mbuf *pkt = burst->pkts[i];
		/* NOLINTNEXTLINE(clang-analyzer-core.NullDereference): one of a table */
		const uint8_t flags = meter->flags;
		const uint32_t length = lengths[i] =
			rte_pktmbuf_pkt_len(pkt) + (burst->taken_off[i] & meter->taken_off_mask);
		enum rte_color color;

		if (flags == SOFTCARD_METER_ON) {
			color = packet_color(&held, pkt, burst->now_ns[i], length, RTE_COLOR_GREEN);
		} else {
			if ((flags & SOFTCARD_METER_ON) == 0)
				continue;
			color = packet_color(&held, pkt, burst->now_ns[i], length,
				flags & SOFTCARD_METER_AWARE ? softcard_frame_color(pkt)
							     : RTE_COLOR_GREEN);
			if (flags & SOFTCARD_METER_REWRITES)
				packet_rewrite(*meter, &burst->pkts[i], color);
		}
		drop_mask |= uint64_t{meter->drop_colors >> color & 1u} << i;
	}
	meter_release(held);
	for (uint64_t mask = drop_mask; mask != 0; mask &= mask - 1)
		burst->dropped_bytes += lengths[__builtin_ctzll(mask)];
	return drop_mask;
}

uint32_t
softcard_port_mtu(uint16_t port_sfi)
{
	if (softcard_engine_check(VASK_P4_MEP_INGRESS, port_sfi, SOFTCARD_PORTS) != 0)
		return 0;
	return softcard->mtus[port_sfi].load(std::memory_order_relaxed);
}

uint64_t
softcard_mtu_burst(uint16_t port_sfi, const struct softcard_burst *burst)
{
	const uint32_t mtu = softcard_port_mtu(port_sfi);
	if (mtu == 0)
		return 0;

	const uint32_t longest = mtu + RTE_ETHER_HDR_LEN;
	uint64_t drop_mask = 0;
	for (uint16_t i = 0; i < burst->n; i++) {
		const uint32_t length = rte_pktmbuf_pkt_len(burst->pkts[i]);

		if (unlikely(length > longest)) {
			const uint32_t tags = softcard_frame_tags(burst->pkts[i]);
			const bool dropped = length > longest + tags * sizeof(struct rte_vlan_hdr);
			drop_mask |= uint64_t{dropped} << i;
		}
	}
	return drop_mask;
}

uint16_t
softcard_burst_drop(struct softcard_burst *burst, uint64_t drop_mask)
{
	struct rte_mbuf *dropped[SOFTCARD_BURST_MAX];
	uint16_t n_dropped = 0;
	uint16_t kept = 0;

	for (uint16_t i = 0; i < burst->n; i++) {
		const uint64_t drop = drop_mask >> i & 1;

		dropped[n_dropped] = burst->pkts[i];
		burst->pkts[kept] = burst->pkts[i];
		burst->now_ns[kept] = burst->now_ns[i];
		burst->hw_meter_id[kept] = burst->hw_meter_id[i];
		burst->taken_off[kept] = burst->taken_off[i];
		burst->tag[kept] = burst->tag[i];
		n_dropped += drop;
		kept += !drop;
	}
	burst->n = kept;
	rte_pktmbuf_free_bulk(dropped, n_dropped);
	return n_dropped;
}
