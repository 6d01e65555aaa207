/* SPDX-License-Identifier: BSD-3-Clause */

/* Packets through an engine. */

#include <rte_atomic.h>
#include <rte_ether.h>
#include <rte_mbuf.h>

#include "softcard_frame.h"
#include "softcard_internal.h"

static __rte_noinline void
packet_rewrite(struct softcard_meter &meter, struct rte_mbuf **pkt, enum rte_color color)
{
	if (meter.dscp_colors >> color & 1)
		meter.rewritten += softcard_frame_dscp_write(pkt, meter.dscp[color]);
}

/* Counts a packet and marks it. */
static inline void
packet_count(std::array<struct softcard_count, 3> &colors, struct softcard_burst *burst, uint32_t i,
	uint32_t *lengths, uint32_t length, enum rte_color color)
{
	lengths[i] = length;
	rte_mbuf_sched_color_set(burst->pkts[i], color);
	colors[color].packets++;
	rte_compiler_barrier(); /* two additions cost less than the vector that GCC makes of them */
	colors[color].bytes += length;
}

/* Meters packet i in any way but the usual one. */
static inline uint64_t
packet_meter_unusual(struct softcard_meter &meter, struct softcard_bucket_state &state,
	struct softcard_burst *burst, uint32_t i, uint32_t *lengths)
{
	struct rte_mbuf *pkt = burst->pkts[i];
	const uint8_t flags = meter.flags;

	if ((flags & SOFTCARD_METER_ON) == 0)
		return 0;

	const uint32_t length = rte_pktmbuf_pkt_len(pkt) +
		(flags & SOFTCARD_METER_ORIGINAL ? burst->taken_off[i] : 0);
	const enum rte_color color = softcard_bucket_check(meter.params, state, burst->now_ns[i],
		flags & SOFTCARD_METER_AWARE ? softcard_frame_color(pkt) : RTE_COLOR_GREEN,
		softcard_bucket_cost(meter.params, length));
	packet_count(meter.colors, burst, i, lengths, length, color);
	if (flags & SOFTCARD_METER_REWRITES)
		packet_rewrite(meter, &burst->pkts[i], color);
	return meter.drop_colors >> color & 1;
}

/*
 * Meters packet i by a meter of bytes, blind for colours, that changes nothing: hardly anything branches,
 * because this is where the time goes. The state is the meter's, or a copy. Returns whether the packet is to
 * be dropped.
 */
static __rte_always_inline uint64_t
packet_meter(struct softcard_meter &meter, struct softcard_bucket_state &state,
	struct softcard_burst *burst, uint32_t i, uint32_t *lengths)
{
	if (meter.flags != SOFTCARD_METER_ON)
		return packet_meter_unusual(meter, state, burst, i, lengths);

	const uint32_t length = rte_pktmbuf_pkt_len(burst->pkts[i]);

	softcard_bucket_refill_units(meter.params, state, burst->now_ns[i], SOFTCARD_BURST_UNIT[0]);
	const enum rte_color color = softcard_bucket_take(
		meter.params, state, RTE_COLOR_GREEN, length * SOFTCARD_LEVEL_UNIT[0]);
	packet_count(meter.colors, burst, i, lengths, length, color);
	return meter.drop_colors >> color & 1;
}

/* Whether there is such a meter. */
static inline bool
meter_exists(uint32_t hw_meter_id)
{
	return likely(hw_meter_id != 0 && hw_meter_id < SOFTCARD_METERS);
}

/* Whether packets all meet the same meter, which does the usual. */
static inline bool
burst_of_one(const struct softcard_meter *meters, const uint32_t *hw_meter_ids, uint32_t n)
{
	const uint32_t id = hw_meter_ids[0];
	/* where packets meet meters at random, one look tells most bursts */
	uint32_t differ = hw_meter_ids[n - 1] ^ id;

	if (differ != 0 || !meter_exists(id) || meters[id].flags != SOFTCARD_METER_ON)
		return false;
	for (uint32_t i = 1; i < n; i++)
		differ |= hw_meter_ids[i] ^ id;
	return differ == 0;
}

/* Does to a burst of one meter what packet_meter() does to each packet; only here the meter stays in registers. */
static uint64_t
burst_meter(struct softcard_meter &meter, struct softcard_burst *burst, uint32_t *lengths)
{
	/* copies: for all that the compiler knows, to mark a packet might write into the meter */
	const struct softcard_bucket_params params = meter.params;
	const uint64_t drop_colors = meter.drop_colors;
	struct softcard_bucket_state state = meter.state;
	std::array<struct softcard_count, 3> colors = meter.colors;
	const uint32_t n = burst->n;
	uint64_t drop_mask = 0;

	for (uint32_t i = 0; i < n; i++) {
		const uint32_t length = rte_pktmbuf_pkt_len(burst->pkts[i]);

		softcard_bucket_refill_units(
			params, state, burst->now_ns[i], SOFTCARD_BURST_UNIT[0]);
		const enum rte_color color = softcard_bucket_take(
			params, state, RTE_COLOR_GREEN, length * SOFTCARD_LEVEL_UNIT[0]);
		packet_count(colors, burst, i, lengths, length, color);
		drop_mask |= (drop_colors >> color & 1) << i;
	}
	meter.state = state;
	meter.colors = colors;
	return drop_mask;
}

/* A burst that has the engine to itself. */
static uint64_t
burst_alone(struct softcard_meter *meters, struct softcard_burst *burst, uint32_t *lengths)
{
	const uint32_t n = burst->n;
	uint64_t drop_mask = 0;

	if (n > 1 && burst_of_one(meters, burst->hw_meter_id, n))
		return burst_meter(meters[burst->hw_meter_id[0]], burst, lengths);
	for (uint32_t i = 0; i < n; i++) {
		struct softcard_meter &meter = meters[burst->hw_meter_id[i]];

		if (meter_exists(burst->hw_meter_id[i]))
			drop_mask |= packet_meter(meter, meter.state, burst, i, lengths) << i;
	}
	return drop_mask;
}

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
meter_take(struct held_meter *held, struct softcard_meter *meter)
{
	meter_release(*held);
	rte_spinlock_lock(&meter->lock);
	held->meter = meter;
	held->state = meter->state;
}

/* A burst beside others. */
static uint64_t
burst_shared(struct softcard_meter *meters, struct softcard_burst *burst, uint32_t *lengths)
{
	struct held_meter held = {}; /* packets in a row often share a meter */
	const uint32_t n = burst->n;
	uint64_t drop_mask = 0;

	for (uint32_t i = 0; i < n; i++) {
		struct softcard_meter *meter = &meters[burst->hw_meter_id[i]];

		if (!meter_exists(burst->hw_meter_id[i]))
			continue;
		if (meter != held.meter)
			meter_take(&held, meter);
		/* NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): one of a table */
		drop_mask |= packet_meter(*meter, held.state, burst, i, lengths) << i;
	}
	meter_release(held);
	return drop_mask;
}

const struct softcard_meter *
softcard_meters(int dir)
{
	return softcard_engine_check(dir, 0, 1) == 0 ? softcard->engines[dir].meters : nullptr;
}

uint64_t
softcard_meter_burst(int dir, struct softcard_burst *burst)
{
	burst->dropped_bytes = 0;
	if (softcard_engine_check(dir, 0, 1) != 0)
		return 0;

	struct softcard_engine &engine = softcard->engines[dir];
	struct softcard_meter *meters = engine.meters;
	uint32_t lengths[SOFTCARD_BURST_MAX]; /* as the meters count them */
	uint64_t drop_mask;

	if (softcard_guard_enter(engine.guard)) {
		drop_mask = burst_alone(meters, burst, lengths);
		softcard_guard_leave(engine.guard);
	} else {
		drop_mask = burst_shared(meters, burst, lengths);
	}
	for (uint64_t mask = drop_mask; mask != 0; mask &= mask - 1)
		burst->dropped_bytes += lengths[__builtin_ctzll(mask)];
	return drop_mask;
}

uint64_t
softcard_mtu_burst(const struct softcard_port *port, const struct softcard_burst *burst)
{
	const uint32_t mtu = port->mtu.load(std::memory_order_relaxed);
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
