/* SPDX-License-Identifier: BSD-3-Clause */
#include "layout.h"
#include "vask_p4_mep_meter.h"

namespace
{

using ::testing::ElementsAre;

template <typename Record>
std::vector<uint8_t>
Image(const Record &record)
{
	std::vector<uint8_t> image(sizeof(record));
	memcpy(image.data(), &record, sizeof(record));
	return image;
}

TEST(EngineProfileRecord, IsTwelveBytesAndEachFieldHasItsBits)
{
	EXPECT_EQ(sizeof(vask_p4_mep_meter_profile_table), 12u);
	ExpectWholeRecord<vask_p4_mep_meter_profile_table>({
		FIELD(ebs, 0, 20),
		FIELD(cbs, 20, 20),
		FIELD(cf, 40, 1),
		FIELD(eir, 41, 26),
		FIELD(cir, 67, 26),
		FIELD(pm, 93, 1),
		FIELD(rfc2698, 94, 1),
		FIELD(valid, 95, 1),
	});
}

TEST(EngineProfileRecord, EirOfAllOnesSetsBits41To66AndNoOther)
{
	vask_p4_mep_meter_profile_table profile = {};
	profile.eir = 0x3FFFFFF;
	/* bits 41..47, 48..63, and 64..66 in the ninth byte */
	EXPECT_THAT(Image(profile), ElementsAre(0, 0, 0, 0, 0, 0xFE, 0xFF, 0xFF, 0x07, 0, 0, 0));
}

TEST(EngineProfileRecord, Bit64IsTheLowestOfTheThreeHighBitsOfEir)
{
	vask_p4_mep_meter_profile_table profile = {};
	profile.eir = 1u << 23;
	EXPECT_THAT(Image(profile), ElementsAre(0, 0, 0, 0, 0, 0, 0, 0, 0x01, 0, 0, 0));
	profile.eir = 1u << 22;
	EXPECT_THAT(Image(profile), ElementsAre(0, 0, 0, 0, 0, 0, 0, 0x80, 0, 0, 0, 0));
}

TEST(EnginePolicyRecord, IsFourBytesAndEachFieldHasItsBits)
{
	EXPECT_EQ(sizeof(vask_p4_mep_meter_policy_table), 4u);
	ExpectWholeRecord<vask_p4_mep_meter_policy_table>({
		FIELD(red_action, 0, 2),
		FIELD(yellow_action, 2, 2),
		FIELD(green_action, 4, 2),
		FIELD(red_dscp, 6, 6),
		FIELD(yellow_dscp, 12, 6),
		FIELD(green_dscp, 18, 6),
		FIELD(cbnd, 24, 1),
		FIELD(ebnd, 25, 1),
		FIELD(rsv, 26, 5),
		FIELD(valid, 31, 1),
	});
}

TEST(EnginePolicyRecord, ValidAloneIs0x80000000)
{
	vask_p4_mep_meter_policy_table policy = {};
	uint32_t word;

	policy.valid = 1;
	memcpy(&word, &policy, sizeof(word));
	EXPECT_EQ(word, 0x80000000u);
}

TEST(EngineInstanceRecord, IsThirtyTwoBytesAndEachFieldHasItsBits)
{
	EXPECT_EQ(sizeof(vask_p4_mep_meter_inst_table), 32u);
	ExpectWholeRecord<vask_p4_mep_meter_inst_table>({
		FIELD(valid, 0, 1),
		FIELD(profile_id, 1, 8),
		FIELD(policy_id, 9, 8),
		FIELD(is_color_aware, 17, 1),
		FIELD(use_original_packet_length, 18, 1),
		FIELD(stats_bytes_type, 19, 3),
		FIELD(stats_pkts_type, 22, 3),
		FIELD(rsv1, 25, 7),
		FIELD(bkt_c, 32, 27),
		FIELD(rsv2, 59, 5),
		FIELD(bkt_e, 64, 27),
		FIELD(rsv3, 91, 5),
		FIELD(drop_pkt_cnt, 96, 32),
		FIELD(pkt_len_c, 128, 32),
		FIELD(pkt_len_e, 160, 32),
		FIELD(drop_pkt_len_cnt, 192, 64),
	});
}

TEST(EngineSelector, IsZeroForIngressAndOneForEgress)
{
	EXPECT_EQ(VASK_P4_MEP_INGRESS, 0);
	EXPECT_EQ(VASK_P4_MEP_EGRESS, 1);
}

} // namespace
