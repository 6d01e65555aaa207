/* SPDX-License-Identifier: BSD-3-Clause */

/*
 * Traces of the two-rate three-colour marker (RFC 2698), worked out by hand: time,
 * length, colour in, colour out, and what the two buckets hold afterwards, in bytes or packets. The
 * arithmetic stands beside each step.
 */

#include "softcard_bucket_trace.h"

namespace
{

/* 1 byte/us and 1024 bytes committed, 2 bytes/us and 2048 bytes peak. */
constexpr Profile TR = {125, 1, 250, 2, false, true};

/* 1 packet/ms and 1 packet committed, 2 packets/ms and 2 packets peak. */
constexpr Profile TR_PACKETS = {1000, 1, 2000, 2, true, true};

constexpr Trace TRACES[] = {
	{"GreenTakesFromBothBucketsYellowFromThePeakOne", TR,
		{
			{0, 1024, G, G, 0, 1024}, /* C 1024 - 1024; P 2048 - 1024 */
			{0, 1024, G, Y, 0, 0},    /* C 0 < 1024; P 1024 - 1024 */
			{0, 1, G, R, 0, 0},       /* P 0 < 1 */
		}},
	{"OneByteMoreThanThePeakBurstIsRedAndTakesNothing", TR,
		{
			{0, 2049, G, R, 1024, 2048}, /* P 2048 < 2049 */
			{0, 1025, G, Y, 1024, 1023}, /* C 1024 < 1025; P 2048 - 1025 */
			{0, 1023, G, G, 1, 0},       /* C 1024 - 1023; P 1023 - 1023 */
		}},
	{"ThePeakBucketIsAskedFirst", TR,
		{
			{0, 1025, G, Y, 1024, 1023}, /* C 1024 < 1025; P 2048 - 1025 */
			{0, 1024, G, R, 1024, 1023}, /* P 1023 < 1024, though C holds 1024 */
			{0, 1023, G, G, 1, 0},       /* C 1024 - 1023; P 1023 - 1023 */
		}},
	{"EachBucketHoldsItsNextByteAtTheVeryNanosecond", TR,
		{
			{0, 1024, G, G, 0, 1024},     /* C 1024 - 1024; P 2048 - 1024 */
			{0, 1024, G, Y, 0, 0},        /* P 1024 - 1024 */
			{499, 1, G, R, 0.499, 0.998}, /* P 0 + 0.998 < 1 */
			{500, 1, G, Y, 0.5, 0},       /* C 0.5 < 1; P 1 - 1 */
			{1000, 1, G, G, 0, 0},        /* C 0.5 + 0.5 - 1; P 0 + 1 - 1 */
		}},
	{"BetweenTheRatesFramesAreYellow", TR,
		{
			{0, 1024, G, G, 0, 1024},           /* C 1024 - 1024; P 2048 - 1024 */
			{0, 1024, G, Y, 0, 0},              /* P 1024 - 1024 */
			{1000 * US, 1500, G, Y, 1000, 500}, /* C 1000 < 1500; P 2000 - 1500 */
			{1500 * US, 1024, G, G, 0,
				476}, /* C 1500 cut to 1024, - 1024; P 500 + 1000 - 1024 */
			{1750 * US, 977, G, R, 250, 976}, /* P 476 + 500 < 977 */
			{1750 * US, 976, G, Y, 250, 0},   /* C 250 < 976; P 976 - 976 */
		}},
	{"FullBucketsHoldNoMore", TR,
		{
			{0, 1024, G, G, 0, 1024},      /* C 1024 - 1024; P 2048 - 1024 */
			{10 * S, 1024, G, G, 0, 1024}, /* C 1024 - 1024; P 2048 - 1024 */
		}},
	{"TimeThatRunsBackwardsCountsAsNone", TR,
		{
			{1000 * US, 1024, G, G, 0, 1024}, /* C 1024 - 1024; P 2048 - 1024 */
			{1000 * US, 1024, G, Y, 0, 0},    /* P 1024 - 1024 */
			{0, 1, G, R, 0, 0},               /* nothing new */
			{1001 * US, 1, G, G, 0, 1},       /* 1 us after 1000 us: C 1 - 1; P 2 - 1 */
		}},
	{"AwareYellowFramesAreNeverGreen", TR,
		{
			{0, 1000, Y, Y, 1024, 1048}, /* P 2048 - 1000 */
			{0, 1048, Y, Y, 1024, 0},    /* P 1048 - 1048 */
			{0, 1, Y, R, 1024, 0},       /* P 0 < 1 */
		}},
	{"AwareRedFramesStayRedAndTakeNothing", TR,
		{
			{0, 1, R, R, 1024, 2048}, /* nothing */
			{0, 1, G, G, 1023, 2047}, /* C 1024 - 1; P 2048 - 1 */
		}},
	{"AwareGreenFramesAreMeteredAsBlindOnesAre", TR,
		{
			{0, 1024, G, G, 0, 1024}, /* C 1024 - 1024; P 2048 - 1024 */
			{0, 1, G, Y, 0, 1023},    /* C 0 < 1; P 1024 - 1 */
			{0, 1024, G, R, 0, 1023}, /* P 1023 < 1024 */
		}},
	{"AwareColoursMixed", TR,
		{
			{0, 24, Y, Y, 1024, 2024}, /* P 2048 - 24 */
			{0, 1024, G, G, 0, 1000},  /* C 1024 - 1024; P 2024 - 1024 */
			{0, 1000, R, R, 0, 1000},  /* nothing */
			{0, 1000, G, Y, 0, 0},     /* C 0 < 1000; P 1000 - 1000 */
		}},
	{"PacketsOfAnyLengthCostOne", TR_PACKETS,
		{
			{0, 64, G, G, 0, 1},          /* C 1 - 1; P 2 - 1 */
			{0, 1500, G, Y, 0, 0},        /* C 0 < 1; P 1 - 1 */
			{0, 64, G, R, 0, 0},          /* P 0 < 1 */
			{500 * US, 64, G, Y, 0.5, 0}, /* C 0.5 < 1; P 1 - 1 */
			{1000 * US, 64, G, G, 0, 0},  /* C 1 - 1; P 1 - 1 */
		}},
	{"APacketIsThereAtTheVeryNanosecond", TR_PACKETS,
		{
			{0, 64, G, G, 0, 1},                    /* C 1 - 1; P 2 - 1 */
			{0, 64, G, Y, 0, 0},                    /* P 1 - 1 */
			{499999, 64, G, R, 0.499999, 0.999998}, /* P 0.999998 < 1 */
			{500000, 64, G, Y, 0.5, 0},             /* C 0.5 < 1; P 1 - 1 */
			{999999, 64, G, R, 0.999999, 0.999998}, /* P 0.999998 < 1 */
			{1000000, 64, G, G, 0, 0},              /* C 1 - 1; P 1 - 1 */
		}},
	{"AwarePackets", TR_PACKETS,
		{
			{0, 64, Y, Y, 1, 1},        /* P 2 - 1 */
			{0, 64, Y, Y, 1, 0},        /* P 1 - 1 */
			{0, 64, G, R, 1, 0},        /* P 0 < 1 */
			{500 * US, 64, R, R, 1, 1}, /* C full; P 0 + 1 */
			{500 * US, 64, G, G, 0, 0}, /* C 1 - 1; P 1 - 1 */
		}},
	{"APeakBelowTheCommittedRateGoverns", {250, 2, 125, 1, false, true},
		{
			{0, 1024, G, G, 1024, 0},   /* C 2048 - 1024; P 1024 - 1024 */
			{0, 1, G, R, 1024, 0},      /* P 0 < 1 */
			{1 * US, 1, G, G, 1025, 0}, /* C 1024 + 2 - 1; P 0 + 1 - 1 */
			{2 * US, 2, G, R, 1027, 1}, /* C 1025 + 2; P 0 + 1 < 2 */
		}},
	{"APeakRateOfNothingNeverFillsAgain", {125, 1, 0, 1, false, true},
		{
			{0, 1024, G, G, 0, 0}, /* C 1024 - 1024; P 1024 - 1024 */
			{1 * S, 1, G, R, 1024,
				0}, /* C full; P 0 < 1, C does not overflow into it */
		}},
	{"ACommittedRateOfNothingLeavesYellow", {0, 1, 250, 2, false, true},
		{
			{0, 1024, G, G, 0, 1024},     /* C 1024 - 1024; P 2048 - 1024 */
			{0, 1024, G, Y, 0, 0},        /* P 1024 - 1024 */
			{512 * US, 1024, G, Y, 0, 0}, /* C 0 < 1024; P 1024 - 1024 */
		}},
	{"ACommittedBurstOfNothingLeavesYellow", {125, 0, 250, 1, false, true},
		{
			{0, 1, G, Y, 0, 1023},     /* C 0 < 1; P 1024 - 1 */
			{1 * S, 1024, G, Y, 0, 0}, /* C 0 < 1024; P 1024 - 1024 */
		}},
	{"APeakBurstOfNothingLeavesRed", {125, 1, 250, 0, false, true},
		{
			{0, 1, G, R, 1024, 0},     /* P 0 < 1 */
			{1 * S, 1, G, R, 1024, 0}, /* P 0 < 1 */
		}},
	{"EqualRatesNeedNoYellow", {125, 1, 125, 2, false, true},
		{
			{0, 1024, G, G, 0, 1024},         /* C 1024 - 1024; P 2048 - 1024 */
			{0, 1024, G, Y, 0, 0},            /* C 0 < 1024; P 1024 - 1024 */
			{1024 * US, 1024, G, G, 0, 0},    /* C 1024 - 1024; P 1024 - 1024 */
			{1536 * US, 513, G, R, 512, 512}, /* P 512 < 513 */
			{1536 * US, 512, G, G, 0, 0},     /* C 512 - 512; P 512 - 512 */
		}},
	{"TheHighestRatesAndBurstsAreExact", {67108863, 1048575, 67108863, 1048575, false, true},
		{
			{0, 1073740800, G, G, 0, 0}, /* C and P 1048575 * 1024 - 1073740800 */
			{1, 537, G, R, 536.870904,
				536.870904}, /* 67108863 / 125000 = 536.870904 < 537 */
			{1, 536, G, G, 0.870904, 0.870904}, /* 536.870904 - 536 */
		}},
	{"HalfOfAllTimeIsNotTooLong", TR,
		{
			{0, 1024, G, G, 0, 1024}, /* C 1024 - 1024; P 2048 - 1024 */
			{uint64_t{1} << 63, 1024, G, G, 0,
				1024}, /* both full; C 1024 - 1024; P 2048 - 1024 */
		}},
};

INSTANTIATE_TEST_SUITE_P(TwoRate, BucketTrace, ::testing::ValuesIn(TRACES), TraceName);

} // namespace
