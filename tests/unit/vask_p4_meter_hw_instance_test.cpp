/* SPDX-License-Identifier: BSD-3-Clause */
/* The engine's instance record of a meter. */
#include "meters.h"

using namespace vask_test;

namespace
{

/* The record is put together from a meter that no list needs to hold. */
class ConvertInst : public ::testing::Test
{
      protected:
	vask_p4_meter_cfg_node meter = {};
	vask_p4_mep_meter_inst_table inst = {};
};

TEST_F(ConvertInst, FieldsOfTheMeterStandInTheRecord)
{
	meter.data.enable = 1;
	meter.data.is_color_aware = 1;
	meter.data.is_ori_pktlen = 1;
	meter.data.profile.hw_profile_id = 11;
	meter.data.policy.hw_policy_id = 255;
	meter.data.stats_mask = 0x88;

	vask_p4_meter_convert_inst(&meter, &inst);

	vask_p4_mep_meter_inst_table expected = {};
	expected.valid = 1;
	expected.profile_id = 11;
	expected.policy_id = 255;
	expected.is_color_aware = 1;
	expected.use_original_packet_length = 1;
	expected.stats_bytes_type = 4;
	expected.stats_pkts_type = 4;
	EXPECT_EQ(Bytes(inst), Bytes(expected));
}

TEST_F(ConvertInst, DisabledMeterGivesARecordThatIsNotValid)
{
	inst.valid = 1;
	inst.is_color_aware = 1;
	inst.use_original_packet_length = 1;
	meter.data.profile.hw_profile_id = 1;

	vask_p4_meter_convert_inst(&meter, &inst);

	EXPECT_EQ(inst.valid, 0u);
	EXPECT_EQ(inst.is_color_aware, 0u);
	EXPECT_EQ(inst.use_original_packet_length, 0u);
	EXPECT_EQ(inst.profile_id, 1u);
}

TEST_F(ConvertInst, EachFlagComesFromItsOwnField)
{
	meter.data.is_color_aware = 1;
	vask_p4_meter_convert_inst(&meter, &inst);
	EXPECT_EQ(inst.valid, 0u);
	EXPECT_EQ(inst.is_color_aware, 1u);
	EXPECT_EQ(inst.use_original_packet_length, 0u);

	meter.data.is_color_aware = 0;
	meter.data.is_ori_pktlen = 1;
	vask_p4_meter_convert_inst(&meter, &inst);
	EXPECT_EQ(inst.is_color_aware, 0u);
	EXPECT_EQ(inst.use_original_packet_length, 1u);
}

TEST_F(ConvertInst, HardwareIndexesAreCutToTheirLow8Bits)
{
	meter.data.profile.hw_profile_id = 0x1FE;
	meter.data.policy.hw_policy_id = 0xABC01;

	vask_p4_meter_convert_inst(&meter, &inst);

	EXPECT_EQ(inst.profile_id, 0xFEu);
	EXPECT_EQ(inst.policy_id, 1u);
	EXPECT_EQ(inst.is_color_aware, 0u);
}

TEST_F(ConvertInst, StatsMask0LeavesBothStatisticsTypeFieldsAsTheyWere)
{
	inst.stats_bytes_type = 5;
	inst.stats_pkts_type = 6;

	vask_p4_meter_convert_inst(&meter, &inst);

	EXPECT_EQ(inst.stats_bytes_type, 5u);
	EXPECT_EQ(inst.stats_pkts_type, 6u);
}

TEST_F(ConvertInst, BitsAboveTheEightStatisticsLeaveBothTypesAsTheyWere)
{
	inst.stats_bytes_type = 5;
	inst.stats_pkts_type = 6;
	meter.data.stats_mask = 0xFFFFFF00;

	vask_p4_meter_convert_inst(&meter, &inst);

	EXPECT_EQ(inst.stats_bytes_type, 5u);
	EXPECT_EQ(inst.stats_pkts_type, 6u);
}

TEST_F(ConvertInst, LowestSetBitWinsInEachGroupForEveryMask)
{
	for (uint32_t mask = 0; mask < 256; mask++) {
		const uint32_t bytes_type = mask & 0x10 ? 1
			: mask & 0x20                   ? 2
			: mask & 0x40                   ? 3
			: mask & 0x80                   ? 4
							: 7;
		const uint32_t pkts_type = mask & 1 ? 1
			: mask & 2                  ? 2
			: mask & 4                  ? 3
			: mask & 8                  ? 4
						    : 7;
		inst.stats_bytes_type = 7;
		inst.stats_pkts_type = 7;
		meter.data.stats_mask = mask;
		vask_p4_meter_convert_inst(&meter, &inst);
		EXPECT_EQ(inst.stats_bytes_type, bytes_type) << mask;
		EXPECT_EQ(inst.stats_pkts_type, pkts_type) << mask;
	}
}

TEST_F(ConvertInst, BucketsCountersAndReservedBitsStayAsTheCallerHadThem)
{
	memset(&inst, 0xFF, sizeof(inst));

	vask_p4_meter_convert_inst(&meter, &inst);

	/* The seven fields are bits 0..24; mask 0 keeps the six bits 19..24. */
	std::vector<uint8_t> expected(sizeof(inst), 0xFF);
	expected[0] = 0;
	expected[1] = 0;
	expected[2] = 0xF8;
	EXPECT_EQ(Bytes(inst), expected);
}

} // namespace
