/* SPDX-License-Identifier: BSD-3-Clause */

/* Packets through the engines: colours, actions, counters. */

#include "metering_test.h"

namespace
{

using ::testing::ElementsAre;

using Engine = Metering;

class EachEngine : public Engine, public ::testing::WithParamInterface<int>
{
};

TEST_P(EachEngine, ColoursCountsAndDrops)
{
	const int dir = GetParam();
	MakeMeter(dir, 9, SMALL, DropRed());

	/* green: C 1024 - 1000 = 24; yellow: E 1024 - 600 = 424; red: 24 < 500, 424 < 500;
	 * yellow: E 424 - 100 = 324; green: - 64 does not fit 24, so yellow: E 324 - 64 = 260 */
	EXPECT_EQ(Run(dir, 9, 0, {1000, 600, 500, 100, 64}), 0b00100u);
	EXPECT_EQ(rte_mbuf_sched_color_get(burst.pkts[0]), RTE_COLOR_GREEN);
	EXPECT_EQ(rte_mbuf_sched_color_get(burst.pkts[1]), RTE_COLOR_YELLOW);
	EXPECT_EQ(rte_mbuf_sched_color_get(burst.pkts[2]), RTE_COLOR_RED);
	EXPECT_EQ(rte_mbuf_sched_color_get(burst.pkts[3]), RTE_COLOR_YELLOW);
	EXPECT_EQ(rte_mbuf_sched_color_get(burst.pkts[4]), RTE_COLOR_YELLOW);

	const softcard_meter_view view = View(dir, 9);
	EXPECT_TRUE(view.metering);
	EXPECT_THAT(view.packets, ElementsAre(1, 3, 1));
	EXPECT_THAT(view.bytes, ElementsAre(1000, 764, 500));
	EXPECT_EQ(view.dropped_packets, 1u);
	EXPECT_EQ(view.dropped_bytes, 500u);
	EXPECT_EQ(view.level_c, 24 * BYTE);
	EXPECT_EQ(view.level_e, 260 * BYTE);
	EXPECT_EQ(view.burst_c, 1024 * BYTE);
	EXPECT_EQ(view.burst_e, 1024 * BYTE);
	EXPECT_EQ(view.level_unit, BYTE);

	vask_p4_mep_meter_inst_table inst = {};
	ASSERT_EQ(vask_p4_mep_read_meter_inst(dir, 9, &inst), 0);
	EXPECT_EQ(inst.valid, 1u);
	EXPECT_EQ(inst.profile_id, 1u);
	EXPECT_EQ(inst.policy_id, 1u);
	EXPECT_EQ(inst.bkt_c, 24u / 8);
	EXPECT_EQ(inst.bkt_e, 260u / 8);
	EXPECT_EQ(inst.drop_pkt_cnt, 1u);
	EXPECT_EQ(inst.drop_pkt_len_cnt, 500u);
	EXPECT_EQ(inst.pkt_len_c, 1000u);
	EXPECT_EQ(inst.pkt_len_e, 764u);
}

TEST_P(EachEngine, TheOtherEngineSeesNothing)
{
	MakeMeter(GetParam(), 9, SMALL, DropRed());
	Run(GetParam(), 9, 0, {1000, 1000, 1000});
	EXPECT_EQ(View(GetParam(), 9).packets[0], 1u);
	EXPECT_FALSE(View(!GetParam(), 9).inst.valid);
	EXPECT_EQ(Run(!GetParam(), 9, 0, {1000, 1000, 1000}), 0u);
	EXPECT_THAT(View(!GetParam(), 9).packets, ElementsAre(0, 0, 0));
}

INSTANTIATE_TEST_SUITE_P(Engines, EachEngine, ::testing::Values(RX, TX),
	[](const auto &info) { return info.param == RX ? "Ingress" : "Egress"; });

TEST_F(Engine, EachPacketIsMeteredAtItsOwnTime)
{
	MakeMeter(RX, 9, {125, 1, 0, 0}, DropRed());
	std::vector<rte_mbuf *> pkts;
	for (int i = 0; i < 4; i++)
		pkts.push_back(MakeIpv4(1024));
	burst = Burst(9, 0, pkts);
	burst.now_ns[1] = 1023 * US;
	burst.now_ns[2] = 1024 * US;
	burst.now_ns[3] = 2048 * US;

	/* empty at 0; 1023 of 1024 bytes; full; full */
	EXPECT_EQ(softcard_meter_burst(RX, &burst), 0b0010u);
}

TEST_F(Engine, APacketWithoutAMeterPassesUntouched)
{
	burst = Burst(0, 0, {MakeIpv4(64), MakeIpv4(64), MakeIpv4(64)});
	burst.hw_meter_id[1] = 4096;
	burst.hw_meter_id[2] = 17; /* never written */
	for (int i = 0; i < 3; i++)
		rte_mbuf_sched_color_set(burst.pkts[i], 0x5a);
	EXPECT_EQ(softcard_meter_burst(RX, &burst), 0u);
	for (int i = 0; i < 3; i++)
		EXPECT_EQ(rte_mbuf_sched_color_get(burst.pkts[i]), 0x5a);
}

TEST_F(Engine, AnEmptyBurstAndAnUnknownEngineDoNothing)
{
	EXPECT_EQ(softcard_meter_burst(RX, &burst), 0u);
	MakeMeter(RX, 9, {0, 0, 0, 0}, DropRed());
	Run(2, 9, 0, {64});
	EXPECT_THAT(View(RX, 9).packets, ElementsAre(0, 0, 0));
}

TEST_F(Engine, MetersInterleavedInABurstKeepApart)
{
	MakeMeter(RX, 1, SMALL, DropRed());
	MakeMeter(RX, 2, SMALL, DropRed());
	std::vector<rte_mbuf *> pkts;
	for (int i = 0; i < 64; i++)
		pkts.push_back(MakeIpv4(64));
	burst = Burst(1, 0, pkts);
	for (int i = 0; i < 64; i++)
		burst.hw_meter_id[i] = i % 3; /* 22 without, 21 each for meters 1 and 2 */
	EXPECT_EQ(softcard_meter_burst(RX, &burst), 0u);
	/* 1024 / 64 = 16 green, 5 yellow */
	EXPECT_THAT(View(RX, 1).packets, ElementsAre(16, 5, 0));
	EXPECT_THAT(View(RX, 2).packets, ElementsAre(16, 5, 0));
}

TEST_F(Engine, TheSixtyFourthPacketHasItsBit)
{
	MakeMeter(RX, 1, {0, 63, 0, 0, true}, DropRed());
	EXPECT_EQ(Run(RX, 1, 0, std::vector<uint32_t>(64, 64)), uint64_t{1} << 63);
}

TEST_F(Engine, EachColourHasItsAction)
{
	/* green to DSCP 10, yellow to 20, red passes */
	MakeMeter(RX, 9, SMALL, PolicyRecord({1, 1, 0}, {10, 20, 30}));
	EXPECT_EQ(Run(RX, 9, 0, {1024, 1024, 1024}, 0x03), 0u);
	EXPECT_EQ(Tos(0), 10 << 2 | 3);
	EXPECT_EQ(Tos(1), 20 << 2 | 3);
	EXPECT_EQ(Tos(2), 3);
	EXPECT_EQ(View(RX, 9).rewritten, 2u);
	EXPECT_EQ(View(RX, 9).dropped_packets, 0u);
}

TEST_F(Engine, GreenAndYellowMayBeDroppedToo)
{
	MakeMeter(RX, 9, SMALL, PolicyRecord({2, 2, 0}));
	EXPECT_EQ(Run(RX, 9, 0, {1024, 1024, 1024}), 0b011u);
	EXPECT_EQ(View(RX, 9).dropped_packets, 2u);
	EXPECT_EQ(View(RX, 9).dropped_bytes, 2048u);
}

TEST_F(Engine, TheReservedActionPasses)
{
	MakeMeter(RX, 9, SMALL, PolicyRecord({3, 3, 3}, {10, 20, 30}));
	EXPECT_EQ(Run(RX, 9, 0, {1024, 1024, 1024}), 0u);
	EXPECT_EQ(Tos(0), 0);
	EXPECT_EQ(Tos(1), 0);
	EXPECT_EQ(Tos(2), 0);
	EXPECT_EQ(View(RX, 9).rewritten, 0u);
	EXPECT_EQ(View(RX, 9).dropped_packets, 0u);
}

TEST_F(Engine, OneFrameSentThreeTimesInABurstHasThreeColours)
{
	MakeMeter(TX, 9, SMALL, PolicyRecord({0, 1, 1}, {0, 20, 30}));
	rte_mbuf *pkt = MakeIpv4(1024);
	rte_mbuf_refcnt_update(pkt, 2);
	burst = Burst(9, 0, {pkt, pkt, pkt});
	EXPECT_EQ(softcard_meter_burst(TX, &burst), 0u);
	EXPECT_THAT(View(TX, 9).packets, ElementsAre(1, 1, 1));
	EXPECT_EQ(Tos(0), 0);
	EXPECT_EQ(Tos(1), 20 << 2);
	EXPECT_EQ(Tos(2), 30 << 2);
	EXPECT_EQ(View(TX, 9).rewritten, 2u);
}

TEST_F(Engine, FramesWithoutAnIpv4HeaderAreNotCountedAsRewritten)
{
	MakeMeter(RX, 9, SMALL, PolicyRecord({1, 1, 1}, {10, 20, 30}));
	burst = Burst(
		9, 0, {MakeFrame(std::vector<uint8_t>(64)), MakeIpv4(64, 10 << 2), MakeIpv4(64)});
	EXPECT_EQ(softcard_meter_burst(RX, &burst), 0u);
	EXPECT_THAT(View(RX, 9).packets, ElementsAre(3, 0, 0));
	/* one had that DSCP already, one has it now */
	EXPECT_EQ(View(RX, 9).rewritten, 2u);
}

TEST_F(Engine, AnAwareMeterTakesTheColourFromTheDropPrecedence)
{
	MakeMeter(RX, 9, {0, 1023, 1, 1023}, DropRed(), true);
	/* AF11, AF22, AF33, best effort */
	burst = Burst(9, 0,
		{MakeIpv4(64, 10 << 2), MakeIpv4(64, 20 << 2), MakeIpv4(64, 30 << 2),
			MakeIpv4(64)});
	EXPECT_EQ(softcard_meter_burst(RX, &burst), 0b0100u);
	EXPECT_THAT(View(RX, 9).packets, ElementsAre(2, 1, 1));
}

TEST_F(Engine, ABlindMeterDoesNotLookAtTheDscp)
{
	MakeMeter(RX, 9, {0, 1023, 1, 1023}, DropRed(), false);
	EXPECT_EQ(Run(RX, 9, 0, {64, 64}, 30 << 2), 0u);
	EXPECT_THAT(View(RX, 9).packets, ElementsAre(2, 0, 0));
}

TEST_F(Engine, TheOriginalLengthCountsWhatThePortTookOff)
{
	MakeMeter(RX, 9, SMALL, DropRed());
	burst = Burst(9, 0, {MakeIpv4(60), MakeIpv4(60)});
	burst.taken_off[0] = 4;
	softcard_meter_burst(RX, &burst);
	EXPECT_EQ(View(RX, 9).bytes[0], 120u);

	auto inst = InstRecord(1, 1);
	inst.use_original_packet_length = 1;
	ASSERT_EQ(softcard_meter_inst_write(RX, 9, &inst), 0);
	softcard_meter_burst(RX, &burst);
	EXPECT_EQ(View(RX, 9).bytes[0], 120u + 64 + 60);
}

TEST_F(Engine, PacketModeCountsPacketsAndItsRecordShowsPackets)
{
	MakeMeter(RX, 9, {1000, 3, 0, 2, true}, DropRed());
	EXPECT_EQ(Run(RX, 9, 0, {1500, 64, 64, 64, 64, 64}), 0b100000u);
	EXPECT_THAT(View(RX, 9).packets, ElementsAre(3, 2, 1));
	EXPECT_EQ(View(RX, 9).level_unit, 1000000000u);
	Run(RX, 9, 2999 * US, {64}); /* 2.999 new, less 1 */
	EXPECT_EQ(View(RX, 9).inst.bkt_c, 1u);
	EXPECT_EQ(View(RX, 9).level_c, 1999000000u);
	EXPECT_EQ(View(RX, 9).inst.pkt_len_c, 1500u + 64 * 3);
}

TEST_F(Engine, DroppedPacketsAreFreedAndTheOthersCloseUp)
{
	const unsigned before = InUse();
	burst = Burst(1, 0, {MakeIpv4(64), MakeIpv4(65), MakeIpv4(66), MakeIpv4(67), MakeIpv4(68)});
	for (int i = 0; i < 5; i++) {
		burst.now_ns[i] = 100 + i;
		burst.hw_meter_id[i] = 200 + i;
		burst.taken_off[i] = 300 + i;
		burst.tag[i] = 400 + i;
	}
	rte_mbuf *const second = burst.pkts[1];
	rte_mbuf *const fourth = burst.pkts[3];

	EXPECT_EQ(softcard_burst_drop(&burst, 0b10101), 3u);
	ASSERT_EQ(burst.n, 2u);
	EXPECT_EQ(burst.pkts[0], second);
	EXPECT_EQ(burst.pkts[1], fourth);
	EXPECT_EQ(burst.now_ns[1], 103u);
	EXPECT_EQ(burst.hw_meter_id[1], 203u);
	EXPECT_EQ(burst.taken_off[1], 303u);
	EXPECT_EQ(burst.tag[1], 403u);
	EXPECT_EQ(InUse(), before + 2);
	EXPECT_EQ(softcard_burst_drop(&burst, 0), 0u);
	EXPECT_EQ(burst.n, 2u);
}

TEST_F(Engine, AnMtuAllowsItsHeaderAndFourBytesForEachTag)
{
	const std::vector<rte_mbuf *> pkts = {
		MakeFrame(Ipv4Bytes(1514, 0)),
		MakeFrame(Ipv4Bytes(1515, 0)),
		MakeFrame(Ipv4Bytes(1518, 0, {0x8100})),
		MakeFrame(Ipv4Bytes(1519, 0, {0x8100})),
		MakeFrame(Ipv4Bytes(1522, 0, {0x88a8, 0x8100})),
		MakeFrame(Ipv4Bytes(1523, 0, {0x88a8, 0x8100})),
	};
	burst = Burst(0, 0, pkts);
	EXPECT_EQ(softcard_mtu_burst(softcard_port_of(5), &burst), 0u); /* none written */
	ASSERT_EQ(vask_p4_mep_update_meter_output_by_mtu(5, 1500), 0);
	EXPECT_EQ(softcard_mtu_burst(softcard_port_of(5), &burst), 0b101010u);
	EXPECT_EQ(softcard_mtu_burst(softcard_port_of(6), &burst), 0u);
	EXPECT_EQ(softcard_port_of(16384), nullptr);
}

} // namespace
