/* SPDX-License-Identifier: BSD-3-Clause */

/*
 * Traces of the differentiated two-rate marker (RFC 4115), worked out by hand: time,
 * length, colour in, colour out, and what the two buckets hold afterwards, in bytes or packets. The
 * arithmetic stands beside each step.
 */

#include "softcard_bucket_trace.h"

namespace
{

/* 1 byte/us and 1024 bytes committed, 2 bytes/us and 2048 bytes excess. */
constexpr Profile DR = {125, 1, 250, 2};

/* 1 packet/ms and 1 packet committed, 2 packets/ms and 2 packets excess. */
constexpr Profile DR_PACKETS = {1000, 1, 2000, 2, true};

constexpr Trace TRACES[] = {
	{"EachColourTakesFromItsOwnBucket", DR,
		{
			{0, 1024, G, G, 0, 2048}, /* C 1024 - 1024 */
			{0, 2048, G, Y, 0, 0},    /* E 2048 - 2048 */
			{0, 1, G, R, 0, 0},       /* C 0 < 1; E 0 < 1 */
		}},
	{"OneByteMoreThanTheExcessBurstIsRedAndTakesNothing", DR,
		{
			{0, 2049, G, R, 1024, 2048}, /* C 1024 < 2049; E 2048 < 2049 */
			{0, 1025, G, Y, 1024, 1023}, /* C 1024 < 1025; E 2048 - 1025 */
			{0, 1024, G, G, 0, 1023},    /* C 1024 - 1024 */
		}},
	{"GreenFramesLeaveTheExcessBucketAlone", DR,
		{
			{0, 500, G, G, 524, 2048}, /* C 1024 - 500 */
			{0, 524, G, G, 0, 2048},   /* C 524 - 524 */
		}},
	{"EachBucketHoldsItsNextByteAtTheVeryNanosecond", DR,
		{
			{0, 1024, G, G, 0, 2048},     /* C 1024 - 1024 */
			{0, 2048, G, Y, 0, 0},        /* E 2048 - 2048 */
			{499, 1, G, R, 0.499, 0.998}, /* C 0.499 < 1; E 0.998 < 1 */
			{500, 1, G, Y, 0.5, 0},       /* C 0.5 < 1; E 1 - 1 */
			{1000, 1, G, G, 0, 1},        /* C 1 - 1; E 0 + 1 */
			{1000, 1, G, Y, 0, 0},        /* E 1 - 1 */
		}},
	{"TheCommittedBucketDoesNotOverflow", DR,
		{
			{0, 2048, G, Y, 1024, 0},            /* C 1024 < 2048; E 2048 - 2048 */
			{1000 * US, 2001, G, R, 1024, 2000}, /* C full; E 0 + 2000 < 2001 */
			{1000 * US, 2000, G, Y, 1024, 0},    /* C 1024 < 2000; E 2000 - 2000 */
			{1000 * US, 1024, G, G, 0, 0},       /* C 1024 - 1024 */
		}},
	{"FullBucketsHoldNoMore", DR,
		{
			{0, 1024, G, G, 0, 2048},      /* C 1024 - 1024 */
			{0, 2048, G, Y, 0, 0},         /* E 2048 - 2048 */
			{10 * S, 1024, G, G, 0, 2048}, /* C 1024 - 1024; E 2048 */
			{10 * S, 2048, G, Y, 0, 0},    /* E 2048 - 2048 */
		}},
	{"TheRatesAddUp", DR,
		{
			{0, 1024, G, G, 0, 2048},         /* C 1024 - 1024 */
			{0, 2048, G, Y, 0, 0},            /* E 2048 - 2048 */
			{500 * US, 1000, G, Y, 500, 0},   /* C 500 < 1000; E 1000 - 1000 */
			{1000 * US, 1000, G, G, 0, 1000}, /* C 500 + 500 - 1000; E 0 + 1000 */
			{1000 * US, 1000, G, Y, 0, 0},    /* E 1000 - 1000 */
			{1000 * US, 1, G, R, 0, 0},       /* C 0 < 1; E 0 < 1 */
		}},
	{"TimeThatRunsBackwardsCountsAsNone", DR,
		{
			{1000 * US, 1024, G, G, 0, 2048}, /* C 1024 - 1024 */
			{1000 * US, 2048, G, Y, 0, 0},    /* E 2048 - 2048 */
			{1 * US, 1, G, R, 0, 0},          /* nothing new */
			{1001 * US, 1, G, G, 0, 2},       /* 1 us after 1000 us: C 1 - 1; E 0 + 2 */
			{1001 * US, 2, G, Y, 0, 0},       /* E 2 - 2 */
		}},
	{"AwareYellowFramesAreNeverGreen", DR,
		{
			{0, 64, Y, Y, 1024, 1984},   /* E 2048 - 64 */
			{0, 1985, Y, R, 1024, 1984}, /* E 1984 < 1985 */
			{0, 1984, Y, Y, 1024, 0},    /* E 1984 - 1984 */
		}},
	{"AwareRedFramesStayRedAndTakeNothing", DR,
		{
			{0, 1, R, R, 1024, 2048}, /* nothing */
			{0, 1024, G, G, 0, 2048}, /* C 1024 - 1024 */
		}},
	{"AwareGreenFramesAreMeteredAsBlindOnesAre", DR,
		{
			{0, 1024, G, G, 0, 2048}, /* C 1024 - 1024 */
			{0, 1, G, Y, 0, 2047},    /* C 0 < 1; E 2048 - 1 */
			{0, 2048, G, R, 0, 2047}, /* C 0 < 2048; E 2047 < 2048 */
		}},
	{"AwareColoursMixed", DR,
		{
			{0, 1000, G, G, 24, 2048}, /* C 1024 - 1000 */
			{0, 24, Y, Y, 24, 2024},   /* E 2048 - 24 */
			{0, 2024, R, R, 24, 2024}, /* nothing */
			{0, 25, G, Y, 24, 1999},   /* C 24 < 25; E 2024 - 25 */
			{0, 24, G, G, 0, 1999},    /* C 24 - 24 */
		}},
	{"PacketsOfAnyLengthCostOne", DR_PACKETS,
		{
			{0, 64, G, G, 0, 2},          /* C 1 - 1 */
			{0, 9000, G, Y, 0, 1},        /* C 0 < 1; E 2 - 1 */
			{0, 1, G, Y, 0, 0},           /* E 1 - 1 */
			{0, 1, G, R, 0, 0},           /* C 0 < 1; E 0 < 1 */
			{500 * US, 64, G, Y, 0.5, 0}, /* C 0.5 < 1; E 1 - 1 */
			{1000 * US, 64, G, G, 0, 1},  /* C 1 - 1; E 0 + 1 */
			{1000 * US, 64, G, Y, 0, 0},  /* E 1 - 1 */
		}},
	{"APacketIsThereAtTheVeryNanosecond", DR_PACKETS,
		{
			{0, 64, G, G, 0, 2},                    /* C 1 - 1 */
			{0, 64, G, Y, 0, 1},                    /* E 2 - 1 */
			{0, 64, G, Y, 0, 0},                    /* E 1 - 1 */
			{499999, 64, G, R, 0.499999, 0.999998}, /* C 0.499999 < 1; E 0.999998 < 1 */
			{500000, 64, G, Y, 0.5, 0},             /* C 0.5 < 1; E 1 - 1 */
		}},
	{"AwarePackets", DR_PACKETS,
		{
			{0, 64, Y, Y, 1, 1}, /* E 2 - 1 */
			{0, 64, Y, Y, 1, 0}, /* E 1 - 1 */
			{0, 64, Y, R, 1, 0}, /* E 0 < 1 */
			{0, 64, R, R, 1, 0}, /* nothing */
			{0, 64, G, G, 0, 0}, /* C 1 - 1 */
		}},
	{"TheSmallestExcessRateCounts", {125, 1, 1, 1},
		{
			{0, 1024, G, G, 0, 1024},      /* C 1024 - 1024 */
			{0, 1024, G, Y, 0, 0},         /* E 1024 - 1024 */
			{125 * US, 126, G, R, 125, 1}, /* C 125 < 126; E 125 us * 0.008 = 1 < 126 */
			{125 * US, 125, G, G, 0, 1},   /* C 125 - 125 */
			{125 * US, 1, G, Y, 0, 0},     /* E 1 - 1 */
		}},
	{"ACommittedRateOfNothingLeavesYellow", {0, 1, 250, 1},
		{
			{0, 1024, G, G, 0, 1024},     /* C 1024 - 1024 */
			{0, 1024, G, Y, 0, 0},        /* E 1024 - 1024 */
			{512 * US, 1024, G, Y, 0, 0}, /* C 0 < 1024; E 1024 - 1024 */
		}},
	{"ACommittedBurstOfNothingLeavesYellow", {125, 0, 250, 1},
		{
			{0, 1, G, Y, 0, 1023},     /* C 0 < 1; E 1024 - 1 */
			{1 * S, 1024, G, Y, 0, 0}, /* C 0 < 1024; E 1024 - 1024 */
		}},
	{"AnExcessBurstOfNothingLeavesTwoColours", {125, 1, 250, 0},
		{
			{0, 1024, G, G, 0, 0},   /* C 1024 - 1024 */
			{0, 1, G, R, 0, 0},      /* C 0 < 1; E 0 < 1 */
			{1 * US, 1, G, G, 0, 0}, /* C 0 + 1 - 1 */
		}},
	{"AnExcessRateBelowTheCommittedOneIsItsOwn", {250, 1, 125, 1},
		{
			{0, 1024, G, G, 0, 1024},      /* C 1024 - 1024 */
			{0, 1024, G, Y, 0, 0},         /* E 1024 - 1024 */
			{100 * US, 200, G, G, 0, 100}, /* C 200 - 200; E 0 + 100 */
			{100 * US, 100, G, Y, 0, 0},   /* C 0 < 100; E 100 - 100 */
		}},
	{"TheHighestRatesAndBurstsAreExact", {67108863, 1048575, 67108863, 1048575},
		{
			{0, 1073740800, G, G, 0, 1073740800}, /* C 1048575 * 1024 - 1073740800 */
			{0, 1073740800, G, Y, 0, 0},          /* E 1073740800 - 1073740800 */
			{1, 536, G, G, 0.870904,
				536.870904}, /* 67108863 / 125000 = 536.870904, C - 536 */
			{1, 536, G, Y, 0.870904, 0.870904}, /* E 536.870904 - 536 */
			{1, 1, G, R, 0.870904, 0.870904},   /* 0.870904 < 1 in both */
		}},
	{"HalfOfAllTimeIsNotTooLong", DR,
		{
			{0, 1024, G, G, 0, 2048},                 /* C 1024 - 1024 */
			{0, 2048, G, Y, 0, 0},                    /* E 2048 - 2048 */
			{uint64_t{1} << 63, 1024, G, G, 0, 2048}, /* both full; C 1024 - 1024 */
		}},
};

INSTANTIATE_TEST_SUITE_P(
	DifferentiatedTwoRate, BucketTrace, ::testing::ValuesIn(TRACES), TraceName);

} // namespace
