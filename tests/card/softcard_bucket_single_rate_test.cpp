/* SPDX-License-Identifier: BSD-3-Clause */

/*
 * Traces of the single-rate three-colour marker (RFC 2697), worked out by hand: time,
 * length, colour in, colour out, and what the two buckets hold afterwards, in bytes or packets. The
 * arithmetic stands beside each step.
 */

#include "softcard_bucket_trace.h"

namespace
{

/* 1 byte/us, 1024 bytes and 2048 bytes: the rate field counts 8000 bytes/s, the burst fields 1024 bytes. */
constexpr Profile SR = {125, 1, 0, 2};

/* 1 packet/ms, 2 packets and 3 packets. */
constexpr Profile SR_PACKETS = {1000, 2, 0, 3, true};

constexpr Trace TRACES[] = {
	{"AFrameOfTheWholeCommittedBurstIsGreen", SR,
		{
			{0, 1024, G, G, 0, 2048}, /* C 1024 - 1024 */
			{0, 1, G, Y, 0, 2047},    /* C 0 < 1; E 2048 - 1 */
		}},
	{"OneByteMoreThanTheCommittedBurstIsYellow", SR,
		{
			{0, 1025, G, Y, 1024, 1023}, /* C 1024 < 1025; E 2048 - 1025 */
			{0, 1024, G, G, 0, 1023},    /* C 1024 - 1024 */
		}},
	{"AFrameThatFitsNeitherBucketIsRedAndTakesNothing", SR,
		{
			{0, 2049, G, R, 1024, 2048}, /* C 1024 < 2049; E 2048 < 2049 */
			{0, 2048, G, Y, 1024, 0},    /* E 2048 - 2048 */
			{0, 1, G, G, 1023, 0},       /* C 1024 - 1 */
		}},
	{"ABucketHoldsItsNextByteAtTheVeryNanosecond", SR,
		{
			{0, 1024, G, G, 0, 2048},  /* C 1024 - 1024 */
			{0, 2048, G, Y, 0, 0},     /* E 2048 - 2048 */
			{999, 1, G, R, 0.999, 0},  /* C 0 + 0.999 < 1 */
			{1000, 1, G, G, 0, 0},     /* C 0.999 + 0.001 - 1 */
			{1999, 1, G, R, 0.999, 0}, /* C 0 + 0.999 < 1 */
			{2000, 1, G, G, 0, 0},     /* C 1 - 1 */
		}},
	{"WhatTheCommittedBucketCannotHoldFillsTheExcessBucket", SR,
		{
			{0, 1024, G, G, 0, 2048},      /* C 1024 - 1024 */
			{0, 2048, G, Y, 0, 0},         /* E 2048 - 2048 */
			{1024 * US, 1024, G, G, 0, 0}, /* C 0 + 1024 - 1024, nothing over */
			{3048 * US, 1024, G, G, 0,
				1000},                 /* 2024 new: C 1024 - 1024, 1000 over to E */
			{3048 * US, 1000, G, Y, 0, 0}, /* E 1000 - 1000 */
		}},
	{"WhatNeitherBucketCanHoldIsLost", SR,
		{
			{0, 1024, G, G, 0, 2048},      /* C 1024 - 1024 */
			{0, 48, G, Y, 0, 2000},        /* E 2048 - 48 */
			{10 * S, 1024, G, G, 0, 2048}, /* 10^7 new: C 1024 - 1024, E cut to 2048 */
			{10 * S, 2048, G, Y, 0, 0},    /* E 2048 - 2048 */
		}},
	{"GreenFramesLeaveTheExcessBucketAlone", SR,
		{
			{0, 100, G, G, 924, 2048}, /* C 1024 - 100 */
			{0, 100, G, G, 824, 2048}, /* C 924 - 100 */
			{0, 825, G, Y, 824, 1223}, /* C 824 < 825; E 2048 - 825 */
			{0, 824, G, G, 0, 1223},   /* C 824 - 824 */
		}},
	{"TimeThatRunsBackwardsCountsAsNone", SR,
		{
			{1000 * US, 1024, G, G, 0, 2048}, /* C 1024 - 1024 */
			{1000 * US, 2048, G, Y, 0, 0},    /* E 2048 - 2048 */
			{400 * US, 1, G, R, 0, 0},        /* nothing new */
			{1001 * US, 1, G, G, 0, 0},       /* 1 us after 1000 us: C 0 + 1 - 1 */
		}},
	{"FramesAtTwiceTheRateAreGreenEveryOtherTime", SR,
		{
			{0, 1024, G, G, 0, 2048},      /* C 1024 - 1024 */
			{0, 2048, G, Y, 0, 0},         /* E 2048 - 2048 */
			{250 * US, 500, G, R, 250, 0}, /* C 0 + 250 < 500 */
			{500 * US, 500, G, G, 0, 0},   /* C 250 + 250 - 500 */
			{750 * US, 500, G, R, 250, 0}, /* C 0 + 250 < 500 */
			{1000 * US, 500, G, G, 0, 0},  /* C 250 + 250 - 500 */
		}},
	{"AwareGreenFramesAreMeteredAsBlindOnesAre", SR,
		{
			{0, 1024, G, G, 0, 2048}, /* C 1024 - 1024 */
			{0, 2048, G, Y, 0, 0},    /* C 0 < 2048; E 2048 - 2048 */
			{0, 1, G, R, 0, 0},       /* C 0 < 1; E 0 < 1 */
		}},
	{"AwareYellowFramesAreNeverGreen", SR,
		{
			{0, 64, Y, Y, 1024, 1984}, /* E 2048 - 64 */
			{0, 1984, Y, Y, 1024, 0},  /* E 1984 - 1984 */
			{0, 1, Y, R, 1024, 0},     /* E 0 < 1, C is not asked */
			{0, 1, G, G, 1023, 0},     /* C 1024 - 1 */
		}},
	{"AwareRedFramesStayRedAndTakeNothing", SR,
		{
			{0, 1, R, R, 1024, 2048},   /* nothing */
			{0, 1024, G, G, 0, 2048},   /* C 1024 - 1024 */
			{1 * US, 1, R, R, 1, 2048}, /* C 0 + 1 */
		}},
	{"AwareColoursMixed", SR,
		{
			{0, 1000, G, G, 24, 2048}, /* C 1024 - 1000 */
			{0, 25, G, Y, 24, 2023},   /* C 24 < 25; E 2048 - 25 */
			{0, 24, Y, Y, 24, 1999},   /* E 2023 - 24 */
			{0, 24, G, G, 0, 1999},    /* C 24 - 24 */
		}},
	{"PacketsOfAnyLengthCostOne", SR_PACKETS,
		{
			{0, 64, G, G, 1, 3},   /* C 2 - 1 */
			{0, 9000, G, G, 0, 3}, /* C 1 - 1 */
			{0, 64, G, Y, 0, 2},   /* E 3 - 1 */
			{0, 64, G, Y, 0, 1},   /* E 2 - 1 */
			{0, 1, G, Y, 0, 0},    /* E 1 - 1 */
			{0, 1, G, R, 0, 0},    /* C 0 < 1; E 0 < 1 */
		}},
	{"APacketIsThereAtTheVeryNanosecond", {1000, 1, 0, 0, true},
		{
			{0, 64, G, G, 0, 0},             /* C 1 - 1 */
			{999999, 64, G, R, 0.999999, 0}, /* C 0 + 0.999999 < 1 */
			{1000000, 64, G, G, 0, 0},       /* C 0.999999 + 0.000001 - 1 */
			{1000000, 64, G, R, 0, 0},       /* C 0 < 1 */
		}},
	{"PartsOfPacketsOverflowToo", {1000, 1, 0, 1, true},
		{
			{0, 64, G, G, 0, 1},           /* C 1 - 1 */
			{0, 64, G, Y, 0, 0},           /* E 1 - 1 */
			{1500 * US, 64, G, G, 0, 0.5}, /* 1.5 new: C 1 - 1, 0.5 over to E */
			{2500 * US, 64, G, G, 0, 0.5}, /* 1 new: C 1 - 1 */
			{4000 * US, 64, G, G, 0, 1},   /* 1.5 new: C 1 - 1, E 0.5 + 0.5 */
			{4000 * US, 64, G, Y, 0, 0},   /* E 1 - 1 */
		}},
	{"AwarePackets", {1000, 1, 0, 1, true},
		{
			{0, 64, Y, Y, 1, 0}, /* E 1 - 1 */
			{0, 64, Y, R, 1, 0}, /* E 0 < 1 */
			{0, 64, R, R, 1, 0}, /* nothing */
			{0, 64, G, G, 0, 0}, /* C 1 - 1 */
		}},
	{"ARateOfNothingNeverFillsAgain", {0, 1, 0, 1},
		{
			{0, 1024, G, G, 0, 1024},  /* C 1024 - 1024 */
			{0, 1024, G, Y, 0, 0},     /* E 1024 - 1024 */
			{1000 * S, 1, G, R, 0, 0}, /* nothing new */
		}},
	{"ACommittedBurstOfNothingFeedsTheExcessBucketAtOnce", {125, 0, 0, 1},
		{
			{0, 1, G, Y, 0, 1023},         /* C 0 < 1; E 1024 - 1 */
			{1 * US, 1024, G, Y, 0, 0},    /* 1 over to E: 1024 - 1024 */
			{501 * US, 501, G, R, 0, 500}, /* 500 over to E: 500 < 501 */
			{501 * US, 500, G, Y, 0, 0},   /* E 500 - 500 */
		}},
	{"AnExcessBurstOfNothingLeavesTwoColours", {125, 1, 0, 0},
		{
			{0, 1024, G, G, 0, 0},   /* C 1024 - 1024 */
			{0, 1, G, R, 0, 0},      /* C 0 < 1; E 0 < 1 */
			{1 * US, 1, G, G, 0, 0}, /* C 0 + 1 - 1 */
		}},
	{"BurstsOfNothingLeaveRed", {125, 0, 0, 0},
		{
			{0, 1, G, R, 0, 0},     /* C 0 < 1; E 0 < 1 */
			{1 * S, 1, G, R, 0, 0}, /* C 0 < 1; E 0 < 1 */
		}},
	{"TheHighestRateAndBurstAreExact", {67108863, 1048575, 0, 0},
		{
			{0, 1073740800, G, G, 0, 0}, /* C 1048575 * 1024 - 1073740800 */
			{1, 536, G, G, 0.870904, 0}, /* C 67108863 / 125000 = 536.870904, - 536 */
			{1, 1, G, R, 0.870904, 0},   /* C 0.870904 < 1 */
			{2, 537, G, G, 0.741808, 0}, /* C 0.870904 + 536.870904 - 537 */
		}},
	{"HalfOfAllTimeIsNotTooLong", SR,
		{
			{0, 1024, G, G, 0, 2048},                 /* C 1024 - 1024 */
			{0, 2048, G, Y, 0, 0},                    /* E 2048 - 2048 */
			{uint64_t{1} << 63, 1024, G, G, 0, 2048}, /* both full; C 1024 - 1024 */
		}},
	{"AStepBackFromTheEndOfAllTimeIsNone", SR,
		{
			{UINT64_MAX, 1024, G, G, 0, 2048}, /* C 1024 - 1024 */
			{1 * S, 2048, G, Y, 0, 0},         /* E 2048 - 2048 */
			{2 * S, 1, G, R, 0, 0},            /* C 0 < 1; E 0 < 1 */
		}},
};

INSTANTIATE_TEST_SUITE_P(SingleRate, BucketTrace, ::testing::ValuesIn(TRACES), TraceName);

} // namespace
