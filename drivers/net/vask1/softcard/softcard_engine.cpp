/* SPDX-License-Identifier: BSD-3-Clause */

/* Packets through an engine. */

#include <rte_ether.h>
#include <rte_mbuf.h>
#include <rte_prefetch.h>

#include "softcard_frame.h"
#include "softcard_internal.h"

/* How many packets ahead their meters are called into the cache. */
static constexpr uint16_t AHEAD = 8;

static void
prefetch_meter(const struct softcard_meter *meters, uint32_t hw_meter_id)
{
	/* one that does not exist costs a needless line, and no branch */
	const struct softcard_meter &meter = meters[hw_meter_id % SOFTCARD_METERS];

	rte_prefetch0(&meter);
	rte_prefetch0(&meter.packets);
}

/*
 * Colours and counts packets [first, end) of a burst, which share a meter whose lock is held. Nothing is
 * called and hardly anything branches: this is where the time goes.
 *
 * @param colors  receives the colour of each: an mbuf that comes twice keeps but the last of its colours.
 * @return the mask of those to be dropped.
 */
template <bool COLOR_AWARE>
static uint64_t
packets_color(struct softcard_meter &meter, struct softcard_burst *burst, uint16_t first,
	uint16_t end, uint8_t *colors)
{
	struct softcard_bucket_state state = meter.state;
	uint64_t drop_mask = 0;

	for (uint16_t i = first; i < end; i++) {
		struct rte_mbuf *pkt = burst->pkts[i];
		const uint32_t length = rte_pktmbuf_pkt_len(pkt) +
			(burst->taken_off[i] & -uint32_t{meter.original_length});
		const enum rte_color in = COLOR_AWARE ? softcard_frame_color(pkt) : RTE_COLOR_GREEN;
		const enum rte_color color = softcard_bucket_check(meter.params, state,
			burst->now_ns[i], in, softcard_bucket_cost(meter.params, length));

		rte_mbuf_sched_color_set(pkt, color);
		colors[i] = color;
		meter.packets[color]++;
		meter.bytes[color] += length;
		drop_mask |= uint64_t{meter.drop_colors >> color & 1u} << i;
	}
	meter.state = state;
	return drop_mask;
}

/* Rewrites the DSCP of those packets [first, end) of a burst whose colour asks for it. */
static __rte_noinline void
packets_rewrite(struct softcard_meter &meter, struct softcard_burst *burst, uint16_t first,
	uint16_t end, const uint8_t *colors)
{
	for (uint16_t i = first; i < end; i++)
		if (meter.dscp_colors >> colors[i] & 1)
			meter.rewritten +=
				softcard_frame_dscp_write(&burst->pkts[i], meter.dscp[colors[i]]);
}

static __rte_noinline uint64_t
packets_color_aware(struct softcard_meter &meter, struct softcard_burst *burst, uint16_t first,
	uint16_t end, uint8_t *colors)
{
	return packets_color<true>(meter, burst, first, end, colors);
}

/* Meters packets [first, end) of a burst, which share a meter. Returns the mask of those to be dropped. */
static uint64_t
meter_run(struct softcard_meter &meter, struct softcard_burst *burst, uint16_t first, uint16_t end)
{
	uint8_t colors[SOFTCARD_BURST_MAX];
	uint64_t drop_mask = 0;

	rte_spinlock_lock(&meter.lock);
	if (likely(meter.metering)) {
		drop_mask = unlikely(meter.color_aware)
			? packets_color_aware(meter, burst, first, end, colors)
			: packets_color<false>(meter, burst, first, end, colors);
		if (unlikely(meter.dscp_colors != 0))
			packets_rewrite(meter, burst, first, end, colors);
	}
	rte_spinlock_unlock(&meter.lock);
	return drop_mask;
}

uint64_t
softcard_meter_burst(int dir, struct softcard_burst *burst)
{
	if (softcard_engine_check(dir, 0, 1) != 0)
		return 0;

	struct softcard_meter *meters = softcard->engines[dir].meters;
	uint64_t drop_mask = 0;

	for (uint16_t i = 0; i < RTE_MIN(AHEAD, burst->n); i++)
		prefetch_meter(meters, burst->hw_meter_id[i]);

	for (uint16_t first = 0, end; first < burst->n; first = end) {
		const uint32_t hw_meter_id = burst->hw_meter_id[first];

		for (end = first; end < burst->n && burst->hw_meter_id[end] == hw_meter_id; end++)
			if (end + AHEAD < burst->n)
				prefetch_meter(meters, burst->hw_meter_id[end + AHEAD]);
		if (hw_meter_id != 0 && hw_meter_id < SOFTCARD_METERS)
			drop_mask |= meter_run(meters[hw_meter_id], burst, first, end);
	}
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
