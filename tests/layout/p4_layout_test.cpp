/* SPDX-License-Identifier: BSD-3-Clause */
#include "layout.h"

#include <rte_mtr.h>

#include "vask_p4_meter.h"

namespace
{

TEST(P4ProfileEntry, IsThirtyThreeBytesAndEachFieldHasItsBits)
{
	EXPECT_EQ(sizeof(p4_meter_profile_t), 33u);
	EXPECT_EQ(alignof(p4_meter_profile_t), 1u);
	ExpectWholeRecord<p4_meter_profile_t>({
		FIELD(cir, 0, 64),
		FIELD(eir, 64, 64),
		FIELD(cbs, 128, 64),
		FIELD(ebs, 192, 64),
		FIELD(packet_mode, 256, 2),
		FIELD(meter_rfc, 258, 2),
		FIELD(rsv, 260, 4),
	});
}

TEST(P4PolicerEntry, IsThreeBytesAndEachFieldHasItsBits)
{
	EXPECT_EQ(sizeof(p4_meter_policer_t), 3u);
	EXPECT_EQ(alignof(p4_meter_policer_t), 1u);
	ExpectWholeRecord<p4_meter_policer_t>({
		FIELD(red_action, 0, 2),
		FIELD(red_dscp, 2, 6),
		FIELD(yellow_action, 8, 2),
		FIELD(yellow_dscp, 10, 6),
		FIELD(green_action, 16, 2),
		FIELD(green_dscp, 18, 6),
	});
}

TEST(P4InstanceEntry, IsSixBytesAndEachFieldHasItsBits)
{
	EXPECT_EQ(sizeof(p4_meter_instance_t), 6u);
	EXPECT_EQ(alignof(p4_meter_instance_t), 1u);
	ExpectWholeRecord<p4_meter_instance_t>({
		FIELD(type, 0, 1),
		FIELD(dir, 1, 1),
		FIELD(meter_enable, 2, 1),
		FIELD(color_mode, 3, 1),
		FIELD(origin_pkt, 4, 1),
		FIELD(stats_mask, 5, 8),
		FIELD(dpdk_port_id, 13, 16),
		FIELD(profile_id, 29, 8),
		FIELD(policer_id, 37, 8),
		FIELD(rsv, 45, 3),
	});
}

TEST(P4StatsType, HasTheBitsOfDpdksStatsType)
{
	EXPECT_EQ(P4_METER_STATS_N_PKTS_GREEN, 1);
	EXPECT_EQ(P4_METER_STATS_N_PKTS_YELLOW, 2);
	EXPECT_EQ(P4_METER_STATS_N_PKTS_RED, 4);
	EXPECT_EQ(P4_METER_STATS_N_PKTS_DROPPED, 8);
	EXPECT_EQ(P4_METER_STATS_N_BYTES_GREEN, 16);
	EXPECT_EQ(P4_METER_STATS_N_BYTES_YELLOW, 32);
	EXPECT_EQ(P4_METER_STATS_N_BYTES_RED, 64);
	EXPECT_EQ(P4_METER_STATS_N_BYTES_DROPPED, 128);

	EXPECT_EQ(int{P4_METER_STATS_N_PKTS_DROPPED}, int{RTE_MTR_STATS_N_PKTS_DROPPED});
	EXPECT_EQ(int{P4_METER_STATS_N_BYTES_DROPPED}, int{RTE_MTR_STATS_N_BYTES_DROPPED});
}

} // namespace
