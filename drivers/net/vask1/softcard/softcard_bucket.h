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
	uint32_t cbs; /* the profile's burst fields */
	uint32_t ebs;
	uint8_t packet_mode; /* 0 or 1 */
	uint8_t two_rate;    /* 1: RFC 2698 */
	uint8_t overflow; /* 1: RFC 2697, what the committed bucket cannot hold fills the other */
};

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
	return {cir, eir, cbs, ebs, packet_mode, rfc2698, !rfc2698 && eir == 0};
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

/** Fills the buckets up to now_ns. A time before the latest one counts as that one. */
constexpr void
softcard_bucket_refill(const struct softcard_bucket_params &params,
	struct softcard_bucket_state &state, uint64_t now_ns)
{
	const uint64_t elapsed = now_ns > state.last_ns ? now_ns - state.last_ns : 0;
	const uint64_t room_c = softcard_bucket_full_c(params) - state.level_c;
	const uint64_t room_e = softcard_bucket_full_e(params) - state.level_e;
	const uint64_t growth_c = softcard_bucket_growth(params.cir, elapsed);
	const uint64_t fill_c = growth_c < room_c ? growth_c : room_c;
	const uint64_t growth_e =
		params.overflow ? growth_c - fill_c : softcard_bucket_growth(params.eir, elapsed);

	state.level_c += fill_c;
	state.level_e += growth_e < room_e ? growth_e : room_e;
	state.last_ns += elapsed;
}

/**
 * Colours one packet: fills the buckets up to now_ns and takes the packet's cost out of those that pay.
 *
 * A packet conforms to a bucket that holds at least its cost. The three algorithms differ in two points
 * only: under RFC 2698 a packet must conform to the peak bucket to be green, and a green one pays both.
 * No branch depends on a packet's colour, because it would be mispredicted.
 *
 * @param in    colour it came with, RTE_COLOR_GREEN for a colour-blind meter.
 * @param cost  softcard_bucket_cost() of its length.
 */
constexpr enum rte_color
softcard_bucket_check(const struct softcard_bucket_params &params,
	struct softcard_bucket_state &state, uint64_t now_ns, enum rte_color in, uint64_t cost)
{
	/* Packets of a burst often share their time. */
	if (now_ns != state.last_ns)
		softcard_bucket_refill(params, state, now_ns);

	const unsigned enough_c = state.level_c >= cost;
	const unsigned enough_e = state.level_e >= cost;
	const unsigned two_rate = params.two_rate;
	const unsigned green = (in == RTE_COLOR_GREEN) & enough_c & (enough_e | (two_rate ^ 1));
	const unsigned yellow = (in != RTE_COLOR_RED) & enough_e & (green ^ 1);

	state.level_c -= cost & -uint64_t{green};
	state.level_e -= cost & -uint64_t{yellow | (green & two_rate)};
	return static_cast<enum rte_color>(RTE_COLOR_RED - 2 * green - yellow);
}

static_assert(RTE_COLOR_GREEN == 0 && RTE_COLOR_YELLOW == 1 && RTE_COLOR_RED == 2);

#endif /* SOFTCARD_BUCKET_H */
