/* SPDX-License-Identifier: BSD-3-Clause */
/* Shapers that are enforced, behind a policy that drops nothing: what leaves follows the registers. */
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

TEST_F(Shapers, SentPacketsLeaveAtThePortsRateOnTheProcessorsClock)
{
	uint64_t bytes = 0, first = 0, before, after;

	up("", TRANSMIT, 1000000);
	do {
		if (rte_mempool_in_use_count(pool) < 1000)
			send(port_, std::vector<Frame>(32, Frame{.length = 1000}));
		/* all that is due between the two readings, which lie close together */
		ASSERT_EQ(rte_eth_read_clock(port_, &before), 0);
		rte_eth_tx_burst(port_, 0, nullptr, 0);
		ASSERT_EQ(rte_eth_read_clock(port_, &after), 0);
		for (void *m; rte_ring_dequeue(wire_.tx[0], &m) == 0; bytes += 1000)
			rte_pktmbuf_free(static_cast<struct rte_mbuf *>(m));
		/* the burst that may leave at once is over after a while */
		if (first == 0 && bytes > 100000 && after - before < S / 1000) {
			first = before;
			bytes = 0;
		}
	} while (first == 0 || before < first + S || after - before > S / 1000);
	const double rate = static_cast<double>(bytes) * S / static_cast<double>(before - first);
	EXPECT_NEAR(rate, PORT_RATE, PORT_RATE / 100);
}

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
