/* SPDX-License-Identifier: BSD-3-Clause */

/* Queues in front of the shapers: when packets leave, in what order, and at what rate. */

#include "shaper_test.h"

namespace
{

using ::testing::ElementsAre;

using Queue = Shaper;

TEST_F(Queue, ASchedulerRateBelowTheResolutionDoesNotLimit)
{
	ASSERT_EQ(vask_p4_isch_shaper_csr_write(Isch(0, 1)), 0);
	EXPECT_TRUE(ViewShaper(RX).enabled);
	EXPECT_TRUE(ViewShaper(RX).below_resolution);
	Make(RX);
	EXPECT_EQ(Put(5, {1500, 1500}), 2);
	EXPECT_THAT(Get(5), ElementsAre(5, 5));
}

TEST_F(Queue, ASchedulerThatIsNotEnabledLetsAllThroughWhateverElseItSays)
{
	vask_p4_isch_shaper value = Isch(1, 0);
	value.enable = 0;
	value.alway_closed = 1;
	ASSERT_EQ(vask_p4_isch_shaper_csr_write(value), 0);
	Make(RX);
	Put(7, {1500, 1500, 1500});
	EXPECT_THAT(Get(7), ElementsAre(7, 7, 7));
}

TEST_F(Queue, AClosedGateLetsNothingThroughUntilItOpens)
{
	vask_p4_isch_shaper value = Isch(1000, 1);
	value.alway_closed = 1;
	ASSERT_EQ(vask_p4_isch_shaper_csr_write(value), 0);
	EXPECT_TRUE(ViewShaper(RX).closed);
	Make(RX);
	Put(0, {100, 100});
	rte_mbuf *pkt;
	EXPECT_THAT(Get(1000 * S), ElementsAre());
	EXPECT_EQ(softcard_queue_flush(queue, &pkt, nullptr, 1), 0);
	EXPECT_EQ(Counters().waiting, 2u);
	ASSERT_EQ(vask_p4_isch_shaper_csr_write({}), 0);
	EXPECT_THAT(Get(0), ElementsAre(0, 0));
}

TEST_F(Queue, FramesLeaveWhenThoseBeforeThemAreSent)
{
	/* 8000 kbit/s is 1 byte/us */
	ASSERT_EQ(SetPortShaper(3, 8000), 0);
	Make(TX);
	Put(100 * US, {1000, 500, 64, 1000});
	/* 100, + 1000 us, + 500 us, + 64 us */
	EXPECT_THAT(Get(100 * US), ElementsAre(100 * US));
	EXPECT_THAT(Get(1100 * US - 1), ElementsAre());
	EXPECT_THAT(Get(1100 * US), ElementsAre(1100 * US));
	EXPECT_THAT(Get(9 * MS), ElementsAre(1600 * US, 1664 * US));
}

TEST_F(Queue, TimesOfDepartureDoNotDependOnPolling)
{
	ASSERT_EQ(SetPortShaper(3, 1234), 0);
	std::vector<uint64_t> fine, coarse;
	for (bool is_fine : {true, false}) {
		softcard_stop();
		ASSERT_EQ(softcard_start(), 0);
		queue = nullptr;
		ASSERT_EQ(SetPortShaper(3, 1234), 0);
		Make(TX);
		for (int i = 0; i < 20; i++)
			Put(i * MS, {100 + 37u * i});
		if (is_fine)
			for (uint64_t now = 0; now < 200 * MS; now += 777 * US)
				for (uint64_t release : Get(now))
					fine.push_back(release);
		else
			coarse = Get(200 * MS);
		softcard_queue_free(queue);
		queue = nullptr;
	}
	EXPECT_EQ(fine.size(), 20u);
	EXPECT_EQ(fine, coarse);
}

TEST_F(Queue, AnIdleShaperSavesUpNoMoreThanItsBurst)
{
	/* 100 kbit/s is 12500 bytes/s; 16 KiB at once */
	ASSERT_EQ(vask_p4_isch_shaper_csr_write(Isch(1, 1)), 0);
	Make(RX);
	Put(100 * S,
		{1024, 1024, 1024, 1024, 1024, 1024, 1024, 1024, 1024, 1024, 1024, 1024, 1024, 1024,
			1024, 1024, 1024, 1024});
	/* 16 frames at once, then one for each 1024 / 12500 s = 81.92 ms */
	EXPECT_EQ(Get(100 * S).size(), 16u);
	EXPECT_THAT(Get(200 * S), ElementsAre(100 * S + 81920 * US, 100 * S + 163840 * US));
}

TEST_F(Queue, AFrameLargerThanTheBurstLeavesWhenNothingIsOwed)
{
	/* 1 byte/us, no burst */
	ASSERT_EQ(vask_p4_isch_shaper_csr_write(Isch(80, 0)), 0);
	Make(RX);
	Put(0, {1500, 1500});
	EXPECT_THAT(Get(S), ElementsAre(0, 1500 * US));
}

TEST_F(Queue, PacketModeCountsPackets)
{
	ASSERT_EQ(SetPortShaper(3, 8, 1), 0); /* 1000 a second */
	Make(TX);
	Put(0, {64, 1500, 64});
	EXPECT_THAT(Get(S), ElementsAre(0, MS, 2 * MS));
}

TEST_F(Queue, QueuesOfOnePortShareItsRate)
{
	ASSERT_EQ(SetPortShaper(3, 8000), 0);
	Make(TX);
	softcard_queue *other = softcard_queue_create(TX, 3, 64, SOCKET_ID_ANY);
	Put(0, {1000, 1000});
	std::swap(queue, other);
	Put(0, {1000, 1000});
	EXPECT_THAT(Get(0), ElementsAre(0));
	std::swap(queue, other);
	EXPECT_THAT(Get(999 * US), ElementsAre());
	EXPECT_THAT(Get(2 * MS), ElementsAre(1 * MS, 2 * MS));
	std::swap(queue, other);
	EXPECT_THAT(Get(9 * MS), ElementsAre(3 * MS));
	softcard_queue_free(other);
}

TEST_F(Queue, QueuesOfAShaperThatIsOffDoNotWaitForEachOther)
{
	Make(RX, 3);
	softcard_queue *other = softcard_queue_create(RX, 4, 64, SOCKET_ID_ANY);
	Put(1000 * S, {1000});
	EXPECT_THAT(Get(1000 * S), ElementsAre(1000 * S));
	std::swap(queue, other);
	Put(5 * US, {1000, 1000});
	EXPECT_THAT(Get(5 * US), ElementsAre(5 * US, 5 * US));
	softcard_queue_free(other);
}

TEST_F(Queue, FramesKeepTheirOrderWhenTheShaperIsTurnedOff)
{
	ASSERT_EQ(SetPortShaper(3, 8000), 0);
	Make(TX);
	Put(0, {1000, 1000, 1000});
	EXPECT_THAT(Get(1 * MS), ElementsAre(0, 1 * MS));
	ASSERT_EQ(SetPortShaper(3, 0), 0);
	EXPECT_THAT(Get(1 * MS), ElementsAre(1 * MS));
}

TEST_F(Queue, ANewRateGovernsTheFramesThatWait)
{
	ASSERT_EQ(SetPortShaper(3, 8000), 0);
	Make(TX);
	Put(0, {1000, 1000, 1000});
	EXPECT_THAT(Get(0), ElementsAre(0));
	ASSERT_EQ(SetPortShaper(3, 16000), 0); /* 2 bytes/us */
	EXPECT_THAT(Get(S), ElementsAre(500 * US, 1000 * US));
	Put(2 * S, {1000, 1000});
	ASSERT_EQ(SetPortShaper(3, 0), 0);
	EXPECT_THAT(Get(2 * S), ElementsAre(2 * S, 2 * S));
}

TEST_F(Queue, AFullQueueDropsItsTail)
{
	ASSERT_EQ(SetPortShaper(3, 8000), 0);
	Make(TX, 3, 3);
	EXPECT_EQ(Put(0, {1000, 1001, 1002, 1003, 1004}), 3);
	EXPECT_EQ(Counters().dropped, 2u);
	EXPECT_EQ(Counters().waiting, 3u);
	EXPECT_THAT(Get(0), ElementsAre(0));
	EXPECT_EQ(Put(0, {64, 64}), 1);
	EXPECT_EQ(Counters().dropped, 3u);
	EXPECT_THAT(Get(S), ElementsAre(1000 * US, 2001 * US, 3003 * US));
	EXPECT_EQ(Counters().packets, 4u);
	EXPECT_EQ(Counters().bytes, 1000u + 1001 + 1002 + 64);
	EXPECT_EQ(Counters().waiting, 0u);
}

TEST_F(Queue, AFlushHandsOutTheRestWithTheirTimes)
{
	ASSERT_EQ(SetPortShaper(3, 8000), 0);
	Make(TX);
	Put(0, {1000, 1000, 1000});
	rte_mbuf *pkts[8];
	uint64_t releases[8];
	ASSERT_EQ(softcard_queue_flush(queue, pkts, releases, 2), 2);
	EXPECT_EQ(releases[1], MS);
	rte_pktmbuf_free_bulk(pkts, 2);
	ASSERT_EQ(softcard_queue_flush(queue, pkts, nullptr, 8), 1);
	rte_pktmbuf_free_bulk(pkts, 1);
	EXPECT_EQ(softcard_queue_flush(queue, pkts, nullptr, 8), 0);
}

TEST_F(Queue, AnArrivalBeforeTheLastOneCountsAsTheLastOne)
{
	Make(TX);
	Put(10 * US, {64});
	Put(4 * US, {64});
	EXPECT_THAT(Get(9 * US), ElementsAre());
	EXPECT_THAT(Get(10 * US), ElementsAre(10 * US, 10 * US));
}

TEST_F(Queue, QueuesWithBadArgumentsAreRefused)
{
	EXPECT_EQ(softcard_queue_create(2, 3, 64, SOCKET_ID_ANY), nullptr);
	EXPECT_EQ(softcard_queue_create(TX, 16384, 64, SOCKET_ID_ANY), nullptr);
	EXPECT_EQ(softcard_queue_create(TX, 3, 0, SOCKET_ID_ANY), nullptr);
	EXPECT_EQ(softcard_queue_create(TX, 3, (1 << 20) + 1, SOCKET_ID_ANY), nullptr);
	softcard_queue_free(nullptr);
}

struct RateRow {
	const char *name;
	int dir;
	uint32_t rate; /* as the register has it */
	uint16_t mode;
	double per_second; /* bytes or packets */
};

void
PrintTo(const RateRow &row, std::ostream *out)
{
	*out << row.name;
}

class QueueRate : public Shaper, public ::testing::WithParamInterface<RateRow>
{
};

TEST_P(QueueRate, IsKeptWithinOnePercentOverTenSeconds)
{
	const RateRow &row = GetParam();
	ASSERT_EQ(row.dir == TX ? SetPortShaper(3, row.rate, row.mode)
				: vask_p4_isch_shaper_csr_write(Isch(row.rate, 1, row.mode)),
		0);
	Make(row.dir, 3, 256);

	/* always frames waiting: polled for about 20 at a time, the last time after just 10 seconds */
	const double frames = row.mode ? row.per_second : row.per_second / 1500;
	const uint64_t polls = frames * 10 / 20;
	double sent = 0;
	for (uint64_t poll = 0; poll <= polls; poll++) {
		const uint64_t now = 10 * S / polls * poll;
		rte_mbuf *pkts[32];
		while (Counters().waiting < 128)
			Put(now, std::vector<uint32_t>(32, 1500));
		for (uint16_t n; (n = softcard_queue_get(queue, now, pkts, nullptr, 32)) != 0;) {
			sent += row.mode ? n : n * 1500.0;
			rte_pktmbuf_free_bulk(pkts, n);
			if (Counters().waiting < 64)
				Put(now, std::vector<uint32_t>(32, 1500));
		}
	}
	const double burst = row.dir == TX ? 0 : row.mode ? 16 : 16384;
	EXPECT_NEAR((sent - burst) / 10, row.per_second, row.per_second / 100);
}

INSTANTIATE_TEST_SUITE_P(Registers, QueueRate,
	::testing::Values(RateRow{"PortAt1Mbit", TX, 1000, 0, 125e3},
		RateRow{"PortAt10Mbit", TX, 10000, 0, 1.25e6},
		RateRow{"PortAt100Mbit", TX, 100000, 0, 12.5e6},
		RateRow{"PortAt1Gbit", TX, 1000000, 0, 125e6},
		RateRow{"PortAt100kPackets", TX, 800, 1, 100e3},
		RateRow{"SchedulerAt1Mbit", RX, 10, 0, 125e3},
		RateRow{"SchedulerAt108Mbit", RX, 1080, 0, 13.5e6},
		RateRow{"SchedulerAt1Gbit", RX, 10000, 0, 125e6},
		RateRow{"SchedulerAt125kPackets", RX, 10, 1, 125e3}),
	[](const auto &info) { return info.param.name; });

} // namespace
