/* SPDX-License-Identifier: BSD-3-Clause */

/* The life of a meter: when it begins, what a change keeps, what its record shows, when it ends. */

#include "metering_test.h"

namespace
{

using ::testing::ElementsAre;

using Instance = Metering;

TEST_F(Instance, NothingIsMeteredUntilInstanceProfileAndPolicyAreValid)
{
	const auto profile = ProfileRecord({0, 0, 0, 0});
	const auto policy = DropRed();
	const auto inst = InstRecord(3, 4);

	ASSERT_EQ(softcard_meter_inst_write(RX, 9, &inst), 0);
	EXPECT_EQ(Run(RX, 9, 0, {64}), 0u);
	ASSERT_EQ(vask_p4_mep_add_meter_profile(RX, 3, &profile), 0);
	EXPECT_EQ(Run(RX, 9, 0, {64}), 0u);
	EXPECT_FALSE(View(RX, 9).metering);
	ASSERT_EQ(vask_p4_mep_add_meter_policy(RX, 4, &policy), 0);
	EXPECT_EQ(Run(RX, 9, 0, {64}), 1u);
	EXPECT_TRUE(View(RX, 9).metering);
	ASSERT_EQ(vask_p4_mep_del_meter_policy(RX, 4), 0);
	EXPECT_EQ(Run(RX, 9, 0, {64}), 0u);
	ASSERT_EQ(vask_p4_mep_add_meter_policy(RX, 4, &policy), 0);
	ASSERT_EQ(vask_p4_mep_del_meter_profile(RX, 3), 0);
	EXPECT_EQ(Run(RX, 9, 0, {64}), 0u);
	EXPECT_EQ(View(RX, 9).dropped_packets, 1u);
}

TEST_F(Instance, ARecordWithoutItsValidBitDoesNotMeterAndKeepsItsCounters)
{
	auto inst = InstRecord(1, 1);

	MakeMeter(RX, 9, SMALL, DropRed());
	EXPECT_EQ(Run(RX, 9, 0, {1024, 1024, 1024}), 0b100u);
	inst.valid = 0;
	ASSERT_EQ(softcard_meter_inst_write(RX, 9, &inst), 0);
	EXPECT_EQ(Run(RX, 9, 0, {1024}), 0u);
	EXPECT_EQ(View(RX, 9).dropped_packets, 1u);
}

TEST_F(Instance, ARecordThatBecomesValidStartsFullAndUncounted)
{
	auto inst = InstRecord(1, 1);

	MakeMeter(RX, 9, SMALL, DropRed());
	EXPECT_EQ(Run(RX, 9, 0, {1024, 1024, 1024}), 0b100u);
	inst.valid = 0;
	ASSERT_EQ(softcard_meter_inst_write(RX, 9, &inst), 0);
	inst.valid = 1;
	ASSERT_EQ(softcard_meter_inst_write(RX, 9, &inst), 0);
	EXPECT_THAT(View(RX, 9).packets, ElementsAre(0, 0, 0));
	EXPECT_EQ(View(RX, 9).dropped_packets, 0u);
	EXPECT_EQ(View(RX, 9).level_c, 1024 * BYTE);
	EXPECT_EQ(View(RX, 9).level_e, 1024 * BYTE);
	EXPECT_EQ(Run(RX, 9, 0, {1024, 1024}), 0u);
}

TEST_F(Instance, ARefreshKeepsLevelsAndCounters)
{
	auto inst = InstRecord(1, 1);
	inst.bkt_c = 1; /* not read */
	inst.drop_pkt_cnt = 99;

	MakeMeter(RX, 9, SMALL, DropRed());
	Run(RX, 9, 0, {1000, 1000, 1000});
	ASSERT_EQ(softcard_meter_inst_write(RX, 9, &inst), 0);
	EXPECT_EQ(View(RX, 9).level_c, 24 * BYTE);
	EXPECT_EQ(View(RX, 9).level_e, 24 * BYTE);
	EXPECT_EQ(View(RX, 9).dropped_packets, 1u);
	EXPECT_THAT(View(RX, 9).packets, ElementsAre(1, 1, 1));
}

TEST_F(Instance, ANewProfileCutsLevelsToItsBurstsAndNeverRaisesThem)
{
	MakeMeter(RX, 9, {125, 4, 0, 4}, DropRed());
	Run(RX, 9, 0, {1000}); /* C 4096 - 1000 = 3096 */
	const auto smaller = ProfileRecord({125, 2, 0, 8});
	ASSERT_EQ(vask_p4_mep_add_meter_profile(RX, 1, &smaller), 0);
	EXPECT_EQ(View(RX, 9).level_c, 2048 * BYTE);
	EXPECT_EQ(View(RX, 9).level_e, 4096 * BYTE);
	EXPECT_EQ(View(RX, 9).burst_e, 8192 * BYTE);
	EXPECT_EQ(View(RX, 9).packets[0], 1u);
}

TEST_F(Instance, AProfileOfTheOtherModeStartsWithFullBuckets)
{
	MakeMeter(RX, 9, SMALL, DropRed());
	EXPECT_EQ(Run(RX, 9, 0, {1024, 1024}), 0u);
	const auto packets = ProfileRecord({1000, 2, 0, 1, true});
	ASSERT_EQ(vask_p4_mep_add_meter_profile(RX, 1, &packets), 0);
	EXPECT_EQ(Run(RX, 9, 0, {64, 64, 64, 64}), 0b1000u);
}

TEST_F(Instance, AChangedPolicyGovernsTheNextPacket)
{
	const auto pass = PolicyRecord({0, 0, 0});

	MakeMeter(RX, 9, {0, 0, 0, 0}, DropRed());
	EXPECT_EQ(Run(RX, 9, 0, {64}), 1u);
	ASSERT_EQ(vask_p4_mep_add_meter_policy(RX, 1, &pass), 0);
	EXPECT_EQ(Run(RX, 9, 0, {64}), 0u);
}

TEST_F(Instance, AWriteReachesAllMetersThatUseTheProfileAndNoOther)
{
	const auto two = ProfileRecord({0, 2, 0, 0, true});
	const auto one = ProfileRecord({0, 1, 0, 0, true});
	const auto policy = DropRed();
	auto inst = InstRecord(5, 5);

	ASSERT_EQ(vask_p4_mep_add_meter_profile(RX, 5, &two), 0);
	ASSERT_EQ(vask_p4_mep_add_meter_profile(RX, 6, &two), 0);
	ASSERT_EQ(vask_p4_mep_add_meter_policy(RX, 5, &policy), 0);
	for (uint32_t meter : {1, 63, 64, 4095})
		ASSERT_EQ(softcard_meter_inst_write(RX, meter, &inst), 0);
	inst.profile_id = 6;
	ASSERT_EQ(softcard_meter_inst_write(RX, 2, &inst), 0);
	ASSERT_EQ(softcard_meter_inst_write(RX, 64, &inst), 0); /* moves over */

	ASSERT_EQ(vask_p4_mep_add_meter_profile(RX, 5, &one), 0);
	for (uint32_t meter : {1, 63, 4095})
		EXPECT_EQ(Run(RX, meter, 0, {64, 64, 64}), 0b110u) << meter;
	for (uint32_t meter : {2, 64})
		EXPECT_EQ(Run(RX, meter, 0, {64, 64, 64}), 0b100u) << meter;
}

TEST_F(Instance, ARecordWithoutItsValidBitFollowsItsProfileOnceItIsValidAgain)
{
	const auto one = ProfileRecord({0, 1, 0, 0, true});
	const auto two = ProfileRecord({0, 2, 0, 0, true});
	auto inst = InstRecord(1, 1);

	MakeMeter(RX, 9, {0, 1, 0, 0, true}, DropRed());
	inst.valid = 0;
	ASSERT_EQ(softcard_meter_inst_write(RX, 9, &inst), 0);
	ASSERT_EQ(vask_p4_mep_add_meter_profile(RX, 1, &two), 0);
	EXPECT_EQ(View(RX, 9).burst_c, PACKET); /* the old one */
	inst.valid = 1;
	ASSERT_EQ(softcard_meter_inst_write(RX, 9, &inst), 0);
	EXPECT_EQ(Run(RX, 9, 0, {64, 64, 64}), 0b100u); /* two packets in the bucket */
	ASSERT_EQ(vask_p4_mep_add_meter_profile(RX, 1, &one), 0);
	EXPECT_EQ(View(RX, 9).burst_c, PACKET);
}

TEST_F(Instance, RecordsThatLeaveTwiceOrNeverCameDoNotCutOthersOffFromTheirProfile)
{
	const auto one = ProfileRecord({0, 1, 0, 0, true});
	const auto two = ProfileRecord({0, 2, 0, 0, true});
	const auto drop_red = DropRed();
	const auto pass = PolicyRecord({0, 0, 0});
	const auto inst = InstRecord(0, 0); /* what a record that was never written names, too */
	auto off = inst;

	off.valid = 0;
	ASSERT_EQ(vask_p4_mep_add_meter_profile(RX, 0, &one), 0);
	ASSERT_EQ(vask_p4_mep_add_meter_policy(RX, 0, &drop_red), 0);
	ASSERT_EQ(softcard_meter_inst_write(RX, 9, &inst), 0);

	ASSERT_EQ(softcard_meter_inst_clear(RX, 10), 0); /* never written */
	ASSERT_EQ(vask_p4_mep_add_meter_profile(RX, 0, &two), 0);
	EXPECT_EQ(View(RX, 9).burst_c, 2 * PACKET);

	ASSERT_EQ(softcard_meter_inst_write(RX, 11, &off), 0); /* never valid */
	ASSERT_EQ(vask_p4_mep_add_meter_profile(RX, 0, &one), 0);
	EXPECT_EQ(View(RX, 9).burst_c, PACKET);

	ASSERT_EQ(softcard_meter_inst_write(RX, 12, &inst), 0);
	ASSERT_EQ(softcard_meter_inst_write(RX, 12, &off), 0);
	ASSERT_EQ(softcard_meter_inst_write(RX, 12, &off), 0);
	ASSERT_EQ(vask_p4_mep_add_meter_profile(RX, 0, &two), 0);
	EXPECT_EQ(View(RX, 9).burst_c, 2 * PACKET);

	ASSERT_EQ(softcard_meter_inst_clear(RX, 12), 0);
	ASSERT_EQ(vask_p4_mep_add_meter_profile(RX, 0, &one), 0);
	EXPECT_EQ(View(RX, 9).burst_c, PACKET);
	EXPECT_EQ(Run(RX, 9, 0, {64, 64}), 0b10u);
	ASSERT_EQ(vask_p4_mep_add_meter_policy(RX, 0, &pass), 0);
	EXPECT_EQ(Run(RX, 9, 0, {64, 64}), 0u);
}

TEST_F(Instance, AProfileAndAPolicyThatChangeWhileNobodyUsesThemGovernTheNextMeter)
{
	const auto one = ProfileRecord({0, 1, 0, 0, true});
	const auto two = ProfileRecord({0, 2, 0, 0, true});
	const auto drop_red = DropRed();
	const auto pass = PolicyRecord({0, 0, 0});
	const auto inst = InstRecord(5, 6);

	ASSERT_EQ(vask_p4_mep_add_meter_profile(RX, 5, &two), 0);
	ASSERT_EQ(vask_p4_mep_add_meter_policy(RX, 6, &pass), 0);
	ASSERT_EQ(softcard_meter_inst_write(RX, 9, &inst), 0);
	EXPECT_EQ(Run(RX, 9, 0, {64, 64, 64}), 0u); /* the third is red and passes */
	EXPECT_THAT(View(RX, 9).packets, ElementsAre(2, 0, 1));

	ASSERT_EQ(softcard_meter_inst_clear(RX, 9), 0);
	ASSERT_EQ(vask_p4_mep_add_meter_profile(RX, 5, &one), 0);
	ASSERT_EQ(vask_p4_mep_add_meter_policy(RX, 6, &drop_red), 0);
	ASSERT_EQ(softcard_meter_inst_write(RX, 10, &inst), 0);
	EXPECT_EQ(
		Run(RX, 10, 0, {64, 64, 64}), 0b110u); /* one in the bucket, two red and dropped */
	EXPECT_THAT(View(RX, 10).packets, ElementsAre(1, 0, 2));
}

TEST_F(Instance, AClearedMeterIsGone)
{
	MakeMeter(RX, 9, SMALL, DropRed());
	Run(RX, 9, 0, {1024, 1024, 1024});
	ASSERT_EQ(softcard_meter_inst_clear(RX, 9), 0);
	EXPECT_EQ(Run(RX, 9, 0, {1024}), 0u);

	const softcard_meter_view view = View(RX, 9);
	EXPECT_FALSE(view.inst.valid);
	EXPECT_FALSE(view.metering);
	EXPECT_THAT(view.packets, ElementsAre(0, 0, 0));
	EXPECT_EQ(view.dropped_bytes, 0u);
	EXPECT_EQ(view.inst.drop_pkt_cnt, 0u);
}

TEST_F(Instance, ARecordsFlagsReadBackAsWritten)
{
	auto inst = InstRecord(255, 254);
	inst.is_color_aware = 1;
	inst.use_original_packet_length = 1;
	inst.stats_bytes_type = 4;
	inst.stats_pkts_type = 3;
	inst.rsv1 = 0x7f;
	vask_p4_mep_meter_inst_table read = {};

	ASSERT_EQ(softcard_meter_inst_write(TX, 4095, &inst), 0);
	ASSERT_EQ(vask_p4_mep_read_meter_inst(TX, 4095, &read), 0);
	EXPECT_EQ(read.valid, 1u);
	EXPECT_EQ(read.profile_id, 255u);
	EXPECT_EQ(read.policy_id, 254u);
	EXPECT_EQ(read.is_color_aware, 1u);
	EXPECT_EQ(read.use_original_packet_length, 1u);
	EXPECT_EQ(read.stats_bytes_type, 4u);
	EXPECT_EQ(read.stats_pkts_type, 3u);
	EXPECT_EQ(read.rsv1, 0u);
}

TEST_F(Instance, TheLargestBurstFitsTheRecord)
{
	MakeMeter(RX, 9, {1, 1048575, 1, 1048575}, DropRed());
	/* 1048575 * 1024 / 8 */
	EXPECT_EQ(View(RX, 9).inst.bkt_c, 134217600u);
	EXPECT_EQ(View(RX, 9).inst.bkt_e, 134217600u);
}

TEST_F(Instance, TheRateIsThatBetweenTheLatestPacketsOfTwoSamples)
{
	MakeMeter(RX, 9, {125, 1023, 0, 0}, DropRed());
	Run(RX, 9, 1000 * US, {1000});
	softcard_rate_sample();
	EXPECT_EQ(View(RX, 9).passed_bytes_s, 0u);
	Run(RX, 9, 1500 * US, {1000, 500});
	softcard_rate_sample();
	EXPECT_EQ(View(RX, 9).passed_bytes_s, 3000000u); /* 1500 bytes in 500 us */
	softcard_rate_sample();
	EXPECT_EQ(View(RX, 9).passed_bytes_s, 0u);
}

TEST_F(Instance, DropsStayCountedWhenThePolicyChanges)
{
	const auto drop_green = PolicyRecord({2, 0, 0});
	const auto drop_all = PolicyRecord({2, 2, 2});
	const auto pass = PolicyRecord({0, 0, 0});

	MakeMeter(RX, 9, SMALL, DropRed());
	/* 1000 green, 500 yellow, 900 red and dropped */
	EXPECT_EQ(Run(RX, 9, 0, {1000, 500, 900}), 0b100u);
	ASSERT_EQ(vask_p4_mep_add_meter_policy(RX, 1, &drop_green), 0);
	EXPECT_EQ(View(RX, 9).dropped_packets, 1u);
	EXPECT_EQ(View(RX, 9).dropped_bytes, 900u);
	/* C 24, E 524: yellow, red, and neither is dropped now */
	EXPECT_EQ(Run(RX, 9, 0, {34, 800}), 0u);
	EXPECT_EQ(View(RX, 9).dropped_packets, 1u);
	EXPECT_EQ(Run(RX, 9, 100 * US, {100}), 0b1u); /* green */
	EXPECT_EQ(View(RX, 9).dropped_bytes, 1000u);
	ASSERT_EQ(vask_p4_mep_add_meter_policy(RX, 1, &pass), 0);
	EXPECT_EQ(View(RX, 9).dropped_bytes, 1000u);
	ASSERT_EQ(vask_p4_mep_add_meter_policy(RX, 1, &drop_all), 0);
	EXPECT_EQ(View(RX, 9).dropped_packets, 2u);
	EXPECT_EQ(Run(RX, 9, 100 * US, {2000}), 0b1u);
	EXPECT_EQ(View(RX, 9).dropped_packets, 3u);
	EXPECT_EQ(View(RX, 9).dropped_bytes, 3000u);
	EXPECT_EQ(View(RX, 9).inst.drop_pkt_len_cnt, 3000u);
}

} // namespace
