/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef SOFTCARD_BUCKET_H
#define SOFTCARD_BUCKET_H

/**
 * @file
 * The token buckets of one meter, in exact integer arithmetic. Pure: time is an argument, and the
 * parameters, which many packets read, stand apart from the state, which each packet changes.
 *
 * A level counts parts of a byte, or of a packet, so small that a bucket grows by exactly its rate field in
 * one nanosecond and nothing is ever rounded:
 * - byte mode: a rate unit is 8000 bytes/s, which is 1/125000 byte a nanosecond;
 * - packet mode: a rate unit is 1 packet/s, which is 1/10^9 packet a nanosecond.
 * The largest burst (2^20 - 1 units of 1024 bytes, or packets) takes 50 bits.
 */

#include <array>
#include <cstdint>

#include <rte_meter.h>

/** Level parts in one byte (index 0) or one packet (index 1). */
inline constexpr std::array<uint64_t, 2> SOFTCARD_LEVEL_UNIT = {125000, 1000000000};

/** Level parts in one unit of a burst field, by packet mode. */
inline constexpr std::array<uint64_t, 2> SOFTCARD_BURST_UNIT = {1024 * 125000, 1000000000};

/** What a profile asks for. The excess fields are those of the peak bucket under RFC 2698. */
struct softcard_bucket_params {
	uint32_t cir; /* the profile's rate fields */
	uint32_t eir;
	uint32_t cbs : 20; /* the profile's burst fields */
	uint32_t packet_mode : 1;
	uint32_t : 3;
	int32_t two_rate : 8; /* -1, RFC 2698, or 0: a whole byte is a mask without further ado */
	uint32_t ebs : 20;
	uint32_t : 4;
	int32_t overflow : 8; /* -1, RFC 2697: what the committed bucket cannot hold fills the other */
};

static_assert(sizeof(struct softcard_bucket_params) == 16);

struct softcard_bucket_state {
	uint64_t level_c;
	uint64_t level_e;
	uint64_t last_ns; /* up to when the levels have been filled */
};

/**
 * Parameters from the fields of a profile.
 *
 * RFC 2698 when rfc2698 is set; else RFC 2697 when there is no excess rate, RFC 4115 when there is one.
 */
constexpr struct softcard_bucket_params
softcard_bucket_params_make(
	uint32_t cir, uint32_t cbs, uint32_t eir, uint32_t ebs, bool packet_mode, bool rfc2698)
{
	return {cir, eir, cbs, packet_mode, -int{rfc2698}, ebs, -int{!rfc2698 && eir == 0}};
}

/** What the committed bucket holds when it is full. */
constexpr uint64_t
softcard_bucket_full_c(const struct softcard_bucket_params &params)
{
	return params.cbs * SOFTCARD_BURST_UNIT[params.packet_mode];
}

/** What the excess or peak bucket holds when it is full. */
constexpr uint64_t
softcard_bucket_full_e(const struct softcard_bucket_params &params)
{
	return params.ebs * SOFTCARD_BURST_UNIT[params.packet_mode];
}

/** What a packet of that length takes out of a bucket. */
constexpr uint64_t
softcard_bucket_cost(const struct softcard_bucket_params &params, uint32_t length)
{
	return params.packet_mode ? SOFTCARD_LEVEL_UNIT[1] : length * SOFTCARD_LEVEL_UNIT[0];
}

/** Rate times time, at most 2^64 - 1, which is more than any bucket holds. */
constexpr uint64_t
softcard_bucket_growth(uint32_t rate, uint64_t elapsed_ns)
{
	uint64_t growth = 0;
	return __builtin_mul_overflow(elapsed_ns, uint64_t{rate}, &growth) ? UINT64_MAX : growth;
}

/** Adds what grew to a bucket's level, as far as there is room. Returns what was added. */
constexpr uint64_t
softcard_bucket_add(uint64_t &level, uint64_t full, uint64_t growth)
{
	const uint64_t room = full - level;
	const uint64_t fill = growth < room ? growth : room;

	level += fill;
	return fill;
}

/** Adds what grew in both buckets, where the mode, and so the burst unit, is known. */
constexpr void
softcard_bucket_grow(const struct softcard_bucket_params &params,
	struct softcard_bucket_state &state, uint64_t growth_c, uint64_t growth_e,
	uint64_t burst_unit)
{
	const uint64_t fill_c =
		softcard_bucket_add(state.level_c, params.cbs * burst_unit, growth_c);

	/* where the committed bucket overflows there is no excess rate: one of the two is 0 */
	softcard_bucket_add(state.level_e, params.ebs * burst_unit,
		growth_e + ((growth_c - fill_c) & static_cast<uint64_t>(int64_t{params.overflow})));
}

/** softcard_bucket_refill() where the mode is known. */
constexpr void
softcard_bucket_refill_units(const struct softcard_bucket_params &params,
	struct softcard_bucket_state &state, uint64_t now_ns, uint64_t burst_unit)
{
	if (now_ns <= state.last_ns)
		return;

	const uint64_t elapsed = now_ns - state.last_ns;

	/* for four seconds products of 64 bits hold all that grows */
	if (__builtin_expect(elapsed <= UINT32_MAX, 1))
		softcard_bucket_grow(
			params, state, elapsed * params.cir, elapsed * params.eir, burst_unit);
	else
		softcard_bucket_grow(params, state, softcard_bucket_growth(params.cir, elapsed),
			softcard_bucket_growth(params.eir, elapsed), burst_unit);
	state.last_ns = now_ns;
}

/** Fills the buckets up to now_ns. A time before the latest one counts as that one. */
constexpr void
softcard_bucket_refill(const struct softcard_bucket_params &params,
	struct softcard_bucket_state &state, uint64_t now_ns)
{
	/* to multiply by a constant costs less than to choose what to multiply by */
	if (params.packet_mode)
		softcard_bucket_refill_units(params, state, now_ns, SOFTCARD_BURST_UNIT[1]);
	else
		softcard_bucket_refill_units(params, state, now_ns, SOFTCARD_BURST_UNIT[0]);
}

/** All ones for true, zero for false: decisions as masks, because branches would be mispredicted. */
constexpr uint64_t
softcard_bucket_mask(bool condition)
{
	return -uint64_t{condition};
}

/**
 * Takes a packet's cost out of the buckets that pay. Returns the packet's colour.
 *
 * A packet conforms to a bucket that holds at least its cost. The three algorithms differ in two points
 * only: under RFC 2698 a packet must conform to the peak bucket to be green, and a green one pays both.
 */
constexpr enum rte_color
softcard_bucket_take(const struct softcard_bucket_params &params,
	struct softcard_bucket_state &state, enum rte_color in, uint64_t cost)
{
	const uint64_t short_c = softcard_bucket_mask(state.level_c < cost);
	const uint64_t short_e = softcard_bucket_mask(state.level_e < cost);
	const uint64_t two_rate = static_cast<uint64_t>(int64_t{params.two_rate});
	const uint64_t not_green =
		short_c | (short_e & two_rate) | softcard_bucket_mask(in != RTE_COLOR_GREEN);
	const uint64_t conforms_e = ~(short_e | softcard_bucket_mask(in == RTE_COLOR_RED));
	const uint64_t yellow = not_green & conforms_e;

	state.level_c -= cost & ~not_green;
	state.level_e -= cost & conforms_e & (not_green | two_rate);
	return static_cast<enum rte_color>((RTE_COLOR_RED & not_green) + yellow);
}

/**
 * Colours one packet: fills the buckets up to now_ns and takes the packet's cost out of those that pay.
 *
 * @param in    colour it came with, RTE_COLOR_GREEN for a colour-blind meter.
 * @param cost  softcard_bucket_cost() of its length.
 */
constexpr enum rte_color
softcard_bucket_check(const struct softcard_bucket_params &params,
	struct softcard_bucket_state &state, uint64_t now_ns, enum rte_color in, uint64_t cost)
{
	softcard_bucket_refill(params, state, now_ns);
	return softcard_bucket_take(params, state, in, cost);
}

static_assert(RTE_COLOR_GREEN == 0 && RTE_COLOR_YELLOW == 1 && RTE_COLOR_RED == 2);

#endif /* SOFTCARD_BUCKET_H */
