/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Shapers that are enforced, behind a policy that drops nothing: what leaves follows the registers.
 * VASK_RATE_SECONDS sets how long each rate is measured on the processor's clock.
 */
#include "port_test.h"

#include <rte_mbuf_dyn.h>

#include "softcard_shaper.h"
#include "vask_p4_meter.h"

namespace vask_test
{

constexpr uint64_t S = 1000000000;

class Shapers : public PortTest
{
      protected:
	void up(const std::string &args, uint64_t side, uint64_t cir, uint64_t rx_offloads = 0)
	{
		wire_ = make_wire("wire", 1, 8192);
		ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire,shapers=enforce," + args), 0);
		port_ = port_of("net_vask1_0");
		ASSERT_EQ(add_profile(port_, 5, cir, 1 << 20, 1 << 20), 0);
		ASSERT_EQ(add_policy(port_, 7, false), 0);
		ASSERT_EQ(create_meter(port_, 9, 5, 7, side), 0);
		ASSERT_EQ(start(port_, 1, rx_offloads), 0);
		ASSERT_EQ(rte_mbuf_dyn_rx_timestamp_register(&offset_, &flag_), 0);
	}

	/* Bytes/s of what left after the burst that may leave at once. */
	double rate(const std::vector<struct rte_mbuf *> &pkts)
	{
		constexpr size_t BURST = 100;
		uint64_t bytes = 0;

		/* the packet before opens the interval that the others fill */
		for (size_t i = BURST; i < pkts.size(); i++)
			bytes += pkts[i]->pkt_len;
		return static_cast<double>(bytes) * S /
			static_cast<double>(departure(pkts.back()) - departure(pkts[BURST - 1]));
	}

	/* Two seconds of packets of 1000 bytes at 2 Mbyte/s. */
	static Frame offered(uint64_t i)
	{
		return {.length = 1000, .time_ns = S + i * (S / 2000)};
	}

	uint64_t departure(const struct rte_mbuf *m) const
	{
		return *RTE_MBUF_DYNFIELD(m, offset_, rte_mbuf_timestamp_t *);
	}

	Wire wire_;
	uint16_t port_ = 0;
	int offset_ = 0;
	uint64_t flag_ = 0;
};

/* 1000000 bytes/s, 8 % more and cut to 100 kbit/s: 86 units, 8.6 Mbit/s */
constexpr double SCHEDULER_RATE = 86 * 100000.0 / 8;
/* 8000 kbit/s */
constexpr double PORT_RATE = 1000000;

TEST_F(Shapers, ReceivedPacketsLeaveAtTheSchedulersRateOnTheCapturesClock)
{
	up("clock=capture,tick=ns", RECEIVE, 1000000);
	for (uint64_t i = 0; i < 4000; i++)
		put(wire_, offered(i));
	const auto got = receive(port_);
	ASSERT_EQ(got.size(), 4000u) << "delayed, not dropped";
	EXPECT_NEAR(rate(got), SCHEDULER_RATE, SCHEDULER_RATE / 100);
	for (size_t i = 0; i < got.size(); i++)
		ASSERT_GE(departure(got[i]), offered(i).time_ns) << i;
}

TEST_F(Shapers, SentPacketsLeaveAtThePortsRateOnTheCapturesClock)
{
	up("clock=capture,tick=ns", TRANSMIT, 1000000);
	for (uint64_t i = 0; i < 4000; i += 32) {
		std::vector<Frame> burst;

		for (uint64_t j = i; j < i + 32; j++)
			burst.push_back(offered(j));
		ASSERT_EQ(send(port_, burst), 32);
	}
	/* what still waits leaves when the port stops */
	ASSERT_EQ(rte_eth_dev_stop(port_), 0);
	const auto got = sent(wire_);
	ASSERT_EQ(got.size(), 4000u);
	EXPECT_NEAR(rate(got), PORT_RATE, PORT_RATE / 100);
}

TEST_F(Shapers, FullQueueDropsItsTailAndCountsIt)
{
	up("clock=capture,tick=ns", RECEIVE, 1000000);
	for (uint64_t i = 0; i < 6000; i++)
		put(wire_, {.length = 100, .time_ns = S});
	const auto got = receive(port_, 0, 512);
	EXPECT_GE(got.size(), SOFTCARD_QUEUE_DEFAULT);
	EXPECT_LT(got.size(), 6000u);
	EXPECT_EQ(xstat(port_, "rx_shaper_dropped_packets"), 6000 - got.size());
}

TEST_F(Shapers, ReceivedPacketsLeaveAtTheSchedulersRateOnTheProcessorsClock)
{
	std::vector<struct rte_mbuf *> got;

	up("", RECEIVE, 1000000, RTE_ETH_RX_OFFLOAD_TIMESTAMP);
	for (int i = 0; i < 1000; i++)
		put(wire_, {.length = 1000});
	while (got.size() < 1000) {
		const auto some = receive(port_);

		got.insert(got.end(), some.begin(), some.end());
	}
	EXPECT_NEAR(rate(got), SCHEDULER_RATE, SCHEDULER_RATE / 100);
}

TEST_F(Shapers, PacketsThatWaitAreShownUntilTheyAreFreedWithTheirQueue)
{
	/* 1000 bytes at 1 Mbyte/s: one leaves in each millisecond, and the first at once */
	up("clock=capture,tick=ns", TRANSMIT, 1000000);
	EXPECT_EQ(xstat(port_, "tx_shaper_waiting_packets"), 0u);
	ASSERT_EQ(send(port_, std::vector<Frame>(32, offered(0))), 32);
	EXPECT_EQ(xstat(port_, "tx_shaper_waiting_packets"), 31u);
	ASSERT_EQ(rte_eth_xstats_reset(port_), 0);
	EXPECT_EQ(xstat(port_, "tx_shaper_waiting_packets"), 31u) << "they wait still";
	EXPECT_EQ(xstat(port_, "rx_shaper_waiting_packets"), 0u);
	/* a burst of nothing says that nothing more comes */
	rte_eth_tx_burst(port_, 0, nullptr, 0);
	EXPECT_EQ(xstat(port_, "tx_shaper_waiting_packets"), 0u);
	EXPECT_EQ(sent(wire_).size(), 32u);
}

TEST_F(Shapers, PacketsThatWaitStayThroughAStopOnTheProcessorsClock)
{
	/* 1 kbit/s: the second packet waits for eight seconds */
	up("", TRANSMIT, 125);
	ASSERT_EQ(send(port_, std::vector<Frame>(32, Frame{.length = 1000})), 32);
	ASSERT_EQ(rte_eth_dev_stop(port_), 0);
	EXPECT_EQ(sent(wire_).size(), 1u);
	EXPECT_EQ(xstat(port_, "tx_shaper_waiting_packets"), 31u);
}

/* On the processor's clock, while packets always wait. */
class ShaperRate : public Shapers, public ::testing::WithParamInterface<uint64_t>
{
      protected:
	static constexpr uint16_t BURST = 64, LONGEST = 9000;

	/* One is little of what leaves in a second, and not too many make the highest rate. */
	static uint16_t length()
	{
		return GetParam() < S ? 1500 : LONGEST;
	}

	void SetUp() override
	{
		PortTest::SetUp();
		rte_mempool_free(pool);
		pool = rte_pktmbuf_pool_create(
			"long_frames", 6143, 0, 0, LONGEST + RTE_PKTMBUF_HEADROOM, SOCKET_ID_ANY);
		ASSERT_NE(pool, nullptr);
	}

	static uint64_t duration_ns()
	{
		return S * seconds("VASK_RATE_SECONDS", 1);
	}

	/*
	 * Bytes/s that leave from one moment to another. `step` offers packets, so that the shaper's queue is
	 * full, and returns the bytes of those that were due. A time in which this thread did not run for so
	 * long that the queue may have run empty begins it anew; a moment that is not known well is none.
	 */
	template <typename Step> double measure(Step step)
	{
		uint64_t first = 0, passed = 0, before = 0, after = 0;

		rte_eth_read_clock(port_, &after);
		for (const uint64_t end = after + 20 * (duration_ns() + S); after < end;) {
			const uint64_t last = after;

			rte_eth_read_clock(port_, &before);
			passed += step();
			rte_eth_read_clock(port_, &after);
			if (after - last > queue_lasts_ns())
				first = 0;
			if (after - before > S / 1000 || xstat(port_, waiting_) < WAITING)
				continue;
			if (first == 0) {
				first = after;
				passed = 0;
			} else if (after >= first + duration_ns()) {
				return static_cast<double>(passed) * S /
					static_cast<double>(after - first);
			}
		}
		ADD_FAILURE() << "this thread is hardly ever let run";
		return 0;
	}

	/* so many at least have to wait at the moments from and to which it is measured */
	static constexpr uint64_t WAITING = 3500;

	/* how long these take at 8 % more than the committed rate */
	static uint64_t queue_lasts_ns()
	{
		return WAITING * length() * UINT64_C(8) * S / (GetParam() * 108 / 100);
	}

	/* Whether more frames are to be made: those that left come again, as many as fill the queue. */
	bool wants_frames() const
	{
		return rte_mempool_in_use_count(pool) < SOFTCARD_QUEUE_DEFAULT;
	}

	std::string waiting_; /* the count of the side that is measured */
};

TEST_P(ShaperRate, ReceivedPacketsLeaveWithinOnePercentOfTheSchedulersRegister)
{
	/* 8 % more than the committed rate, in whole 100 kbit/s */
	const uint64_t units = GetParam() * 108 / 100 / 100000;
	const double held = static_cast<double>(units) * 100000 / 8;
	struct rte_mbuf *pkts[BURST];

	up("", RECEIVE, GetParam() / 8);
	waiting_ = "rx_shaper_waiting_packets";
	const double rate = measure([&] {
		uint64_t bytes = 0;
		uint16_t got;

		for (int i = 0; i < BURST && wants_frames(); i++)
			put(wire_, {.length = length()});
		do {
			got = rte_eth_rx_burst(port_, 0, pkts, BURST);
			bytes += got * uint64_t{length()};
			/* what has left comes again */
			rte_ring_enqueue_bulk(
				wire_.rx[0], reinterpret_cast<void **>(pkts), got, nullptr);
		} while (got == BURST && bytes < SOFTCARD_QUEUE_DEFAULT * uint64_t{length()});
		return bytes;
	});
	EXPECT_NEAR(rate, held, held / 100);
	RecordProperty("bytes_per_second", static_cast<int>(rate));
}

TEST_P(ShaperRate, SentPacketsLeaveWithinOnePercentOfThePortsRegister)
{
	const uint64_t units = GetParam() / 1000; /* kbit/s */
	const double held = static_cast<double>(units) * 1000 / 8;
	struct rte_mbuf *pkts[BURST];

	up("", TRANSMIT, GetParam() / 8);
	waiting_ = "tx_shaper_waiting_packets";
	const double rate = measure([&] {
		uint64_t bytes = 0;
		unsigned got;

		if (wants_frames())
			send(port_, std::vector<Frame>(BURST, Frame{.length = length()}));
		do {
			rte_eth_tx_burst(port_, 0, nullptr, 0);
			got = rte_ring_dequeue_burst(
				wire_.tx[0], reinterpret_cast<void **>(pkts), BURST, nullptr);
			bytes += got * uint64_t{length()};
			/* what has left comes again */
			EXPECT_EQ(rte_eth_tx_burst(port_, 0, pkts, got), got);
		} while (got == BURST && bytes < SOFTCARD_QUEUE_DEFAULT * uint64_t{length()});
		return bytes;
	});
	EXPECT_NEAR(rate, held, held / 100);
	RecordProperty("bytes_per_second", static_cast<int>(rate));
}

INSTANTIATE_TEST_SUITE_P(BitsPerSecond, ShaperRate,
	::testing::Values(UINT64_C(10000000), UINT64_C(100000000), UINT64_C(1000000000)),
	[](const auto &info) { return std::to_string(info.param); });

TEST_F(Shapers, ObservedOnlyByDefaultTheyDelayNothing)
{
	wire_ = make_wire("wire", 1, 8192);
	ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire,clock=capture,tick=ns"), 0);
	port_ = port_of("net_vask1_0");
	ASSERT_EQ(add_profile(port_, 5, 12500, 1 << 20, 1 << 20), 0);
	ASSERT_EQ(add_policy(port_, 7, false), 0);
	ASSERT_EQ(create_meter(port_, 9, 5, 7, 0), 0);
	ASSERT_EQ(start(port_), 0);
	for (int i = 0; i < 1000; i++)
		put(wire_, {.length = 1000, .time_ns = S});
	std::vector<struct rte_mbuf *> pkts(1000);
	EXPECT_EQ(rte_eth_rx_burst(port_, 0, pkts.data(), 1000), 1000);
	EXPECT_EQ(rte_eth_tx_burst(port_, 0, pkts.data(), 1000), 1000);
	EXPECT_EQ(sent(wire_).size(), 1000u);
}

} // namespace vask_test
