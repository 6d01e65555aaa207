/* SPDX-License-Identifier: BSD-3-Clause */
/* Bursts: what happens to packets between the application and the uplink. */
#include "port_test.h"

#include <cstring>
#include <map>

#include <rte_ether.h>
#include <rte_ip.h>
#include <rte_mbuf_dyn.h>

namespace vask_test
{

class Bursts : public PortTest
{
      protected:
	/* A port on the capture clock with that many queue pairs, and its uplink. */
	void up(uint16_t queues = 1, uint64_t rx_offloads = 0, unsigned ring_size = 2048)
	{
		wire_ = make_wire("wire", queues, ring_size);
		ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire,clock=capture,tick=ns"), 0);
		port_ = port_of("net_vask1_0");
		ASSERT_EQ(add_profile(port_, 5, 80000, 20480, 20480), 0);
		ASSERT_EQ(start(port_, queues, rx_offloads), 0);
	}

	/* Frames of 700 bytes, 710, 720... */
	static std::vector<Frame> growing(uint16_t n)
	{
		std::vector<Frame> frames(n);

		for (uint16_t i = 0; i < n; i++)
			frames[i].length = 700 + 10 * i;
		return frames;
	}
	void expect_sent(uint64_t packets, uint64_t bytes)
	{
		struct rte_eth_stats counts;

		ASSERT_EQ(rte_eth_stats_get(port_, &counts), 0);
		EXPECT_EQ(counts.opackets, packets);
		EXPECT_EQ(counts.obytes, bytes);
	}

	Wire wire_;
	uint16_t port_ = 0;
};

TEST_F(Bursts, LongerThanTheEnginesBurstIsHandledInPieces)
{
	up();
	for (int i = 0; i < 500; i++)
		put(wire_, {.length = 100});

	std::vector<struct rte_mbuf *> pkts(500);
	const uint16_t got = rte_eth_rx_burst(port_, 0, pkts.data(), 500);
	ASSERT_EQ(got, 500);
	EXPECT_EQ(rte_eth_tx_burst(port_, 0, pkts.data(), got), 500);
	const auto out = sent(wire_);
	EXPECT_EQ(out, pkts) << "in order";
}

TEST_F(Bursts, NeverReadsMoreFromTheUplinkThanItWasAskedFor)
{
	up();
	ASSERT_EQ(create_meter(port_, 9, 5, 0, RECEIVE), 0);
	for (int i = 0; i < 100; i++)
		put(wire_, {.length = 1000});
	std::vector<struct rte_mbuf *> pkts(70);
	/* 40 pass; the others of the 70 are dropped, and 30 are still on the wire */
	const uint16_t got = rte_eth_rx_burst(port_, 0, pkts.data(), 70);
	EXPECT_EQ(got, 40);
	EXPECT_EQ(rte_ring_count(wire_.rx[0]), 30u);
	rte_pktmbuf_free_bulk(pkts.data(), got);
}

TEST_F(Bursts, PacketsThatTheUplinkHasNoRoomForWaitAndAreMeteredOnce)
{
	up(1, 0, 16);
	ASSERT_EQ(create_meter(port_, 9, 5, 0, TRANSMIT), 0);
	ASSERT_NE(add_meter_rule(port_, 0, 9, true), nullptr);

	/* 16 packets fill the wire; the burst was metered whole, so the rest of it waits in the queue */
	EXPECT_EQ(send(port_, growing(40)), 40);
	EXPECT_EQ(send(port_, growing(40)), 0);
	expect_sent(16, 16 * 700 + 10 * 120); /* 0 + 1 + ... + 15 */
	size_t n = sent(wire_).size();
	EXPECT_EQ(n, 16u);
	while (rte_eth_tx_burst(port_, 0, nullptr, 0), rte_ring_count(wire_.tx[0]) > 0)
		n += sent(wire_).size();
	EXPECT_EQ(n, 40u);
	EXPECT_EQ(stats(port_, 9).n_pkts_dropped, 0u);
	expect_sent(40, 40 * 700 + 10 * 780); /* 0 + 1 + ... + 39 */
}

TEST_F(Bursts, PacketsThatTheUplinkHasNoRoomForStayTheCallersWhereNothingLooksAtThem)
{
	wire_ = make_wire("wire", 1, 16);
	ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire"), 0);
	port_ = port_of("net_vask1_0");
	ASSERT_EQ(start(port_, 1, 0), 0);
	EXPECT_EQ(send(port_, growing(40)), 16);
	expect_sent(16, 16 * 700 + 10 * 120);
	EXPECT_EQ(sent(wire_).size(), 16u);
}

TEST_F(Bursts, TransmitMeterDropsWhatItDropsAndCountsItAsTaken)
{
	up();
	ASSERT_EQ(create_meter(port_, 9, 5, 0, TRANSMIT), 0);
	ASSERT_NE(add_meter_rule(port_, IPPROTO_UDP, 9, true), nullptr);
	EXPECT_EQ(send(port_, std::vector<Frame>(50, Frame{.length = 1000})), 50);
	EXPECT_EQ(sent(wire_).size(), 40u);
	EXPECT_EQ(stats(port_, 9).n_pkts_dropped, 10u);
	EXPECT_EQ(xstat(port_, "tx_meter_dropped_packets"), 10u);
	EXPECT_EQ(xstat(port_, "rx_meter_dropped_packets"), 0u);
}

TEST_F(Bursts, BothSidesMeterSharesItsIndexAndKeepsBucketsForEachSide)
{
	up();
	ASSERT_EQ(create_meter(port_, 9, 5, 0, 0), 0);
	ASSERT_NE(add_meter_rule(port_, IPPROTO_UDP, 9), nullptr);
	ASSERT_NE(add_meter_rule(port_, IPPROTO_UDP, 9, true), nullptr);
	for (int i = 0; i < 50; i++)
		put(wire_, {.length = 1000});
	EXPECT_EQ(receive(port_).size(), 40u);
	EXPECT_EQ(send(port_, std::vector<Frame>(50, Frame{.length = 1000})), 50);
	EXPECT_EQ(sent(wire_).size(), 40u);
	EXPECT_EQ(stats(port_, 9).n_pkts_dropped, 20u);
	EXPECT_EQ(stats(port_, 9).n_bytes_dropped, 20000u);
}

TEST_F(Bursts, QueueActionSendsPacketsToTheOtherQueueAfterMetering)
{
	const struct rte_flow_action_queue to_1 = {1};

	up(2);
	ASSERT_NE(add_rule(port_, IPPROTO_UDP, {RTE_FLOW_ACTION_TYPE_QUEUE, &to_1}), nullptr)
		<< flow_error.message;
	for (int i = 0; i < 60; i++)
		put(wire_,
			i % 3 ? Frame{.length = 200, .protocol = IPPROTO_TCP}
			      : Frame{.length = 300, .protocol = IPPROTO_UDP});
	EXPECT_EQ(receive(port_, 0).size(), 40u);
	const auto moved = receive(port_, 1);
	ASSERT_EQ(moved.size(), 20u);
	for (const struct rte_mbuf *m : moved)
		EXPECT_EQ(m->port, port_);

	struct rte_eth_stats counts;
	ASSERT_EQ(rte_eth_stats_get(port_, &counts), 0);
	EXPECT_EQ(counts.ipackets, 60u);
	EXPECT_EQ(counts.ibytes, 40 * 200u + 20 * 300u);
	EXPECT_EQ(xstat(port_, "rx_q0_packets"), 40u);
	EXPECT_EQ(xstat(port_, "rx_q1_packets"), 20u);
}

TEST_F(Bursts, QueueThatNobodyPollsLosesWhatItsRingCannotHold)
{
	const struct rte_flow_action_queue to_1 = {1};

	up(2);
	ASSERT_NE(add_rule(port_, IPPROTO_UDP, {RTE_FLOW_ACTION_TYPE_QUEUE, &to_1}), nullptr);
	for (int i = 0; i < 1500; i++)
		put(wire_, {.length = 100});
	EXPECT_EQ(receive(port_, 0).size(), 0u);
	const size_t moved = receive(port_, 1).size();
	EXPECT_EQ(moved, 1023u);
	EXPECT_EQ(xstat(port_, "rx_queue_dropped_packets"), 1500 - moved);

	struct rte_eth_stats counts;
	ASSERT_EQ(rte_eth_stats_get(port_, &counts), 0);
	EXPECT_EQ(counts.imissed, 1500 - moved);
}

TEST_F(Bursts, DropRuleDropsBeforeTheMeter)
{
	up();
	ASSERT_EQ(create_meter(port_, 9, 5, 0, RECEIVE), 0);
	ASSERT_NE(add_rule(port_, IPPROTO_UDP, {RTE_FLOW_ACTION_TYPE_DROP, nullptr}), nullptr);
	for (int i = 0; i < 100; i++)
		put(wire_, {.length = 1000, .protocol = i % 2 ? IPPROTO_TCP : IPPROTO_UDP});
	EXPECT_EQ(receive(port_).size(), 40u);
	EXPECT_EQ(xstat(port_, "rx_flow_dropped_packets"), 50u);
	EXPECT_EQ(stats(port_, 9).n_pkts_dropped, 10u);
}

TEST_F(Bursts, MtuAppliesOnceItHasBeenSet)
{
	up();
	put(wire_, {.length = 1800});
	EXPECT_EQ(receive(port_).size(), 1u);

	ASSERT_EQ(rte_eth_dev_set_mtu(port_, 1500), 0);
	put(wire_, {.length = 1514});
	put(wire_, {.length = 1515});
	put(wire_, {.length = 1518, .vlan_tags = 1});
	put(wire_, {.length = 1519, .vlan_tags = 1});
	EXPECT_EQ(receive(port_).size(), 2u);
	EXPECT_EQ(xstat(port_, "rx_mtu_dropped_packets"), 2u);
	EXPECT_EQ(send(port_, {{.length = 1514}, {.length = 1515}}), 2);
	EXPECT_EQ(sent(wire_).size(), 1u);
	EXPECT_EQ(xstat(port_, "tx_mtu_dropped_packets"), 1u);

	EXPECT_EQ(rte_eth_dev_set_mtu(port_, 67), -EINVAL);
	EXPECT_EQ(rte_eth_dev_set_mtu(port_, 16385), -EINVAL);
	EXPECT_EQ(rte_eth_dev_set_mtu(port_, 68), 0);
	EXPECT_EQ(rte_eth_dev_set_mtu(port_, 16384), 0);
}

TEST_F(Bursts, StrippedTagIsLeftOutOfTheLengthUnlessTheOriginalOneIsMetered)
{
	struct Case {
		uint64_t side;
		uint64_t dropped_bytes;
	};

	up(1, RTE_ETH_RX_OFFLOAD_VLAN_STRIP);
	/* 20480 bytes a bucket: 20 packets of 1000 or 1004 bytes each, so 10 of 50 are dropped */
	for (const Case &c :
		{Case{RECEIVE, 10 * 1000}, Case{RECEIVE | ORIGINAL_LENGTH, 10 * 1004}}) {
		ASSERT_EQ(create_meter(port_, 9, 5, 0, c.side), 0);
		for (int i = 0; i < 50; i++)
			put(wire_, {.length = 1004, .vlan_tags = 1});
		const auto got = receive(port_);
		EXPECT_EQ(got.size(), 40u);
		for (const struct rte_mbuf *m : got) {
			EXPECT_EQ(m->pkt_len, 1000u);
			EXPECT_EQ(m->vlan_tci, 100);
			EXPECT_NE(m->ol_flags & RTE_MBUF_F_RX_VLAN_STRIPPED, 0u);
		}
		EXPECT_EQ(stats(port_, 9).n_bytes_dropped, c.dropped_bytes);
		EXPECT_EQ(xstat(port_, "rx_meter_dropped_bytes"), c.dropped_bytes);
		ASSERT_EQ(rte_eth_xstats_reset(port_), 0);
		ASSERT_EQ(rte_mtr_destroy(port_, 9, &error), 0);
	}
}

TEST_F(Bursts, TagOfASharedBufferIsStrippedFromACopy)
{
	up(1, RTE_ETH_RX_OFFLOAD_VLAN_STRIP);
	struct rte_mbuf *original = make({.length = 200, .vlan_tags = 1});
	struct rte_mbuf *clone = rte_pktmbuf_clone(original, pool);
	char before[200];

	memcpy(before, rte_pktmbuf_mtod(original, char *), sizeof(before));
	ASSERT_EQ(rte_ring_enqueue(wire_.rx[0], clone), 0);
	const auto got = receive(port_);
	ASSERT_EQ(got.size(), 1u);
	EXPECT_EQ(got[0]->pkt_len, 196u);
	EXPECT_EQ(memcmp(before, rte_pktmbuf_mtod(original, char *), sizeof(before)), 0);
	rte_pktmbuf_free(original);
}

TEST_F(Bursts, PacketWithoutATimeTakesTheLatestSeen)
{
	int offset = 0;
	uint64_t flag = 0, ticks = 0;

	up();
	ASSERT_EQ(rte_mbuf_dyn_rx_timestamp_register(&offset, &flag), 0);
	ASSERT_EQ(create_meter(port_, 9, 5, 0, RECEIVE), 0);
	for (int i = 0; i < 40; i++)
		put(wire_, {.length = 1000, .time_ns = 1000000000});
	put(wire_, {.length = 400, .time_ns = 1012000000});
	EXPECT_EQ(receive(port_).size(), 41u);
	ASSERT_EQ(rte_eth_read_clock(port_, &ticks), 0);
	EXPECT_EQ(ticks, 1012000000u);

	/* at 1.012 s the first bucket holds 480 + 960 - 400 = 1040 bytes; at 0 s it would hold no more than
	 * that either, but at the next tick of a clock of its own it would: one packet passes, one does not */
	for (int i = 0; i < 2; i++) {
		struct rte_mbuf *m = make({.length = 1000, .time_ns = 5000000000});
		m->ol_flags &= ~flag;
		ASSERT_EQ(rte_ring_enqueue(wire_.rx[0], m), 0);
	}
	EXPECT_EQ(receive(port_).size(), 1u);
}

TEST_F(Bursts, ProcessorsClockLeavesItsTimeWhereTimestampsAreAskedFor)
{
	int offset = 0;
	uint64_t flag = 0, before = 0, after = 0;

	ASSERT_EQ(rte_mbuf_dyn_rx_timestamp_register(&offset, &flag), 0);
	wire_ = make_wire("wire");
	ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire"), 0);
	port_ = port_of("net_vask1_0");
	ASSERT_EQ(start(port_, 1, RTE_ETH_RX_OFFLOAD_TIMESTAMP), 0);
	ASSERT_EQ(rte_eth_read_clock(port_, &before), 0);
	put(wire_, {});
	const auto got = receive(port_);
	ASSERT_EQ(rte_eth_read_clock(port_, &after), 0);
	ASSERT_EQ(got.size(), 1u);
	const uint64_t at = *RTE_MBUF_DYNFIELD(got[0], offset, rte_mbuf_timestamp_t *);
	EXPECT_GE(at, before);
	EXPECT_LE(at, after);
}

TEST_F(Bursts, StatisticsStartFromZeroAgainAfterAReset)
{
	struct rte_eth_stats counts;

	up();
	for (int i = 0; i < 10; i++)
		put(wire_, {.length = 100});
	EXPECT_EQ(receive(port_).size(), 10u);
	ASSERT_EQ(rte_eth_stats_get(port_, &counts), 0);
	EXPECT_EQ(counts.ipackets, 10u);
	EXPECT_EQ(counts.ibytes, 1000u);
	ASSERT_EQ(rte_eth_stats_reset(port_), 0);
	put(wire_, {.length = 100});
	EXPECT_EQ(receive(port_).size(), 1u);
	ASSERT_EQ(rte_eth_stats_get(port_, &counts), 0);
	EXPECT_EQ(counts.ipackets, 1u);
	EXPECT_EQ(counts.ibytes, 100u);
}

TEST_F(Bursts, SixteenQueuePairsRunOnTheirOwnAndShareAMeter)
{
	up(16);
	ASSERT_EQ(create_meter(port_, 9, 5, 0, RECEIVE), 0);
	size_t passed = 0;
	for (uint16_t q = 0; q < 16; q++) {
		for (int i = 0; i < 5; i++)
			put(wire_, {.length = 1000}, q);
		passed += receive(port_, q).size();
		EXPECT_EQ(send(port_, {{.length = 100}}, q), 1);
		EXPECT_EQ(sent(wire_, q).size(), 1u);
	}
	EXPECT_EQ(passed, 40u);
	EXPECT_EQ(stats(port_, 9).n_pkts_dropped, 40u);
}

TEST_F(Bursts, QueueThatIsNotSetUpTakesNoPacketsAndHoldsUpNoStop)
{
	const struct rte_eth_conf conf = {};
	const struct rte_flow_action_queue to_1 = {1};

	wire_ = make_wire("wire", 2);
	ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire,clock=capture"), 0);
	port_ = port_of("net_vask1_0");
	ASSERT_EQ(rte_eth_dev_configure(port_, 2, 2, &conf), 0);
	ASSERT_EQ(rte_eth_rx_queue_setup(port_, 0, 512, 0, nullptr, pool), 0);
	ASSERT_EQ(rte_eth_tx_queue_setup(port_, 0, 512, 0, nullptr), 0);
	ASSERT_EQ(rte_eth_dev_start(port_), 0);
	ASSERT_NE(add_rule(port_, IPPROTO_UDP, {RTE_FLOW_ACTION_TYPE_QUEUE, &to_1}), nullptr);
	put(wire_, {});
	EXPECT_EQ(receive(port_).size(), 1u);
	EXPECT_EQ(rte_eth_dev_stop(port_), 0);
}

TEST_F(Bursts, MtuOfAConfigurationTakesThePlaceOfTheOneBefore)
{
	uint16_t mtu = 0;

	up();
	ASSERT_EQ(rte_eth_dev_set_mtu(port_, 500), 0);
	put(wire_, {.length = 1000});
	EXPECT_EQ(receive(port_).size(), 0u);

	ASSERT_EQ(rte_eth_dev_stop(port_), 0);
	ASSERT_EQ(start(port_), 0);
	ASSERT_EQ(rte_eth_dev_get_mtu(port_, &mtu), 0);
	EXPECT_EQ(mtu, 1500);
	put(wire_, {.length = 1000});
	EXPECT_EQ(receive(port_).size(), 1u);
	put(wire_, {.length = 1600});
	EXPECT_EQ(receive(port_).size(), 0u);
}

TEST_F(Bursts, MtuThatIsConfiguredApplies)
{
	struct rte_eth_conf conf = {};

	up();
	put(wire_, {.length = 1600});
	EXPECT_EQ(receive(port_).size(), 1u) << "no MTU applies until there is one";
	ASSERT_EQ(rte_eth_dev_stop(port_), 0);
	conf.rxmode.mtu = 500;
	ASSERT_EQ(rte_eth_dev_configure(port_, 1, 1, &conf), 0);
	ASSERT_EQ(rte_eth_rx_queue_setup(port_, 0, 512, 0, nullptr, pool), 0);
	ASSERT_EQ(rte_eth_tx_queue_setup(port_, 0, 512, 0, nullptr), 0);
	ASSERT_EQ(rte_eth_dev_start(port_), 0);
	put(wire_, {.length = 514});
	EXPECT_EQ(receive(port_).size(), 1u);
	put(wire_, {.length = 515});
	EXPECT_EQ(receive(port_).size(), 0u);
	EXPECT_EQ(xstat(port_, "rx_mtu_dropped_packets"), 1u);
}

} // namespace vask_test
