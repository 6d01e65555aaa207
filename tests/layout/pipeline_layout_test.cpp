/* SPDX-License-Identifier: BSD-3-Clause */
#include "layout.h"
#include "qorn_hal_raw_struct.h"
#include "qorn_hal_user_api.h"
#include "vask_dev_cmds.h"
#include "vask_p4_meter.h"

namespace
{

using ::testing::ElementsAre;

template <typename Record>
std::vector<uint32_t>
Words(const Record &record)
{
	std::vector<uint32_t> words(sizeof(record) / 4);
	memcpy(words.data(), &record, sizeof(record));
	return words;
}

TEST(PipelineProfileRecord, IsSixteenBytesAndEachFieldHasItsBits)
{
	EXPECT_EQ(sizeof(qorn_meter_profile_table), 16u);
	ExpectWholeRecord<qorn_meter_profile_table>({
		FIELD(r_dscp, 0, 6),
		FIELD(y_dscp, 6, 6),
		FIELD(g_dscp, 12, 6),
		FIELD(r_act, 18, 2),
		FIELD(y_act, 20, 2),
		FIELD(g_act, 22, 2),
		FIELD(cf, 24, 1),
		FIELD(pm, 25, 1),
		FIELD(rfc, 26, 1),
		FIELD(cbsm, 27, 1),
		FIELD(ebsm, 28, 1),
		FIELD(cbnd, 29, 1),
		FIELD(ebnd, 30, 1),
		FIELD(cbs_l1, 31, 1),
		FIELD(cbs_h19, 32, 19),
		FIELD(ebs_l13, 51, 13),
		FIELD(ebs_h7, 64, 7),
		FIELD(cir_l25, 71, 25),
		FIELD(cir_h3, 96, 3),
		FIELD(eir, 99, 28),
		FIELD(valid, 127, 1),
	});
}

TEST(PipelineProfileRecord, CbsOf0xFFFFFSetsBit31AndBits32To50AndNothingElse)
{
	const uint32_t cbs = 0xFFFFF;
	qorn_meter_profile_table profile = {};

	profile.cbs_l1 = cbs & 1;
	profile.cbs_h19 = cbs >> 1;
	EXPECT_THAT(Words(profile), ElementsAre(0x80000000, 0x0007FFFF, 0, 0));
}

TEST(PipelineProfileRecord, CirOf0xFFFFFFFSetsBits71To98AndItsTopThreeBitsLandInCirH3)
{
	const uint32_t cir = 0xFFFFFFF;
	qorn_meter_profile_table profile = {};

	profile.cir_l25 = cir & 0x1FFFFFF;
	profile.cir_h3 = cir >> 25;
	EXPECT_EQ(profile.cir_h3, 7u);
	EXPECT_THAT(Words(profile), ElementsAre(0, 0, 0xFFFFFF80, 0x7));
}

TEST(PipelineMeterRecord, IsTwentyBytesAndEachFieldHasItsBits)
{
	EXPECT_EQ(sizeof(qorn_meter_table), 20u);
	ExpectWholeRecord<qorn_meter_table>({
		FIELD(last_ts, 0, 4),
		FIELD(byte_cnt_l28, 4, 28),
		FIELD(byte_cnt_h20, 32, 20),
		FIELD(pkt_cnt_l12, 52, 12),
		FIELD(pkt_cnt_h20, 64, 20),
		FIELD(bkt_c_l12, 84, 12),
		FIELD(bkt_c_h20, 96, 20),
		FIELD(bkt_e_l12, 116, 12),
		FIELD(bkt_e_h20, 128, 20),
		FIELD(meter_profile_id, 148, 8),
		FIELD(valid, 156, 1),
		FIELD(rsv, 157, 3),
	});
}

TEST(TransmitPortKey, IsFourBytesAndEachFieldHasItsBits)
{
	EXPECT_EQ(sizeof(qorn_input_port_table_key_tx), 4u);
	ExpectWholeRecord<qorn_input_port_table_key_tx>({
		FIELD(source_port, 0, 14),
		FIELD(resv, 14, 18),
	});
}

TEST(TransmitPortEntry, IsTwentyEightBytesAndEachFieldHasItsBits)
{
	EXPECT_EQ(sizeof(qorn_input_port_table_result_tx), 28u);
	ExpectWholeRecord<qorn_input_port_table_result_tx>({
		FIELD(def_action_index, 0, 25),
		FIELD(opcode_vpe, 25, 4),
		FIELD(opcode_rpe_l, 29, 3),
		FIELD(opcode_rpe_h, 32, 1),
		FIELD(mep_type, 33, 2),
		FIELD(mep_dispatch_type, 35, 4),
		FIELD(action_type, 39, 1),
		FIELD(def_destination, 40, 23),
		FIELD(group_index_vpe_l, 63, 1),
		FIELD(group_index_vpe_h, 64, 7),
		FIELD(group_index_rpe, 71, 8),
		FIELD(mirror_pri, 79, 2),
		FIELD(mirror_meter_index_l, 81, 15),
		FIELD(mirror_meter_index_h, 96, 1),
		FIELD(mirror_index, 97, 13),
		FIELD(metering_info0, 110, 16),
		FIELD(tpid_antispoof_ctl, 126, 2),
		FIELD(allowed_tpid_sel, 128, 8),
		FIELD(def_tpid_sel, 136, 3),
		FIELD(pri_antispoof_ctl, 139, 2),
		FIELD(allowed_pri, 141, 8),
		FIELD(def_pri, 149, 3),
		FIELD(smac_anti_spoof, 152, 2),
		FIELD(smac_low16_l, 154, 6),
		FIELD(smac_low16_h, 160, 10),
		FIELD(smac_high32_l, 170, 22),
		FIELD(smac_high32_h, 192, 10),
		FIELD(rpe_overlay_flag, 202, 1),
		FIELD(rpe_qid, 203, 14),
		FIELD(rsv, 217, 7),
	});
}

TEST(PipelineStatus, HasItsValuesAndNoneAtMinusSeven)
{
	EXPECT_EQ(QORN_OK, 0);
	EXPECT_EQ(QORN_ERR_PARAM, -1);
	EXPECT_EQ(QORN_ERR_NOT_IMPL, -2);
	EXPECT_EQ(QORN_ERR_NOT_READY, -3);
	EXPECT_EQ(QORN_ERR_NOT_SUPPORTED, -4);
	EXPECT_EQ(QORN_ERR_BAD_PTR, -5);
	EXPECT_EQ(QORN_ERR_INVAL_SIZE, -6);
	EXPECT_EQ(QORN_ERR_DEVQORN_NOT_SUPPORTED, -8);
	EXPECT_EQ(QORN_ERR_RESET_FAILED, -9);
	EXPECT_EQ(QORN_ERR_FW_API_VER, -10);
	EXPECT_EQ(QORN_ERR_NO_MEMORY, -11);
	EXPECT_EQ(QORN_ERR_CFG, -12);
	EXPECT_EQ(QORN_ERR_OUT_OF_RANGE, -13);
	EXPECT_EQ(QORN_ERR_ALREADY_EXISTS, -14);
}

TEST(PortShaperCommand, IsTwelveBytesAndEachFieldHasItsBits)
{
	EXPECT_EQ(sizeof(vask_shaper_set_info), 12u);
	ExpectWholeRecord<vask_shaper_set_info>({
		FIELD(sfi, 0, 16),
		FIELD(bdf, 16, 16),
		FIELD(mode, 32, 16),
		FIELD(direction, 48, 1),
		FIELD(rsvd, 49, 15),
		FIELD(max_rate, 64, 32),
	});
}

TEST(SchedulerShaperRegister, IsFourBytesAndEachFieldHasItsBits)
{
	EXPECT_EQ(sizeof(vask_p4_isch_shaper), 4u);
	ExpectWholeRecord<vask_p4_isch_shaper>({
		FIELD(enable, 0, 1),
		FIELD(alway_closed, 1, 1),
		FIELD(mode, 2, 1),
		FIELD(pbs, 3, 7),
		FIELD(rate_level, 10, 1),
		FIELD(rate, 11, 19),
		FIELD(resvd, 30, 2),
	});
}

TEST(SchedulerShaperRegister, EnableAloneIsOneAndARateOfOneAloneIs0x800)
{
	vask_p4_isch_shaper on = {};
	on.enable = 1;
	EXPECT_THAT(Words(on), ElementsAre(1));

	vask_p4_isch_shaper rate = {};
	rate.rate = 1;
	EXPECT_THAT(Words(rate), ElementsAre(0x800));
}

} // namespace
