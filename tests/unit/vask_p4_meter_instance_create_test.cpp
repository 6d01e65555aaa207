/* SPDX-License-Identifier: BSD-3-Clause */
/* Creation of a meter that succeeds. */
#include "meter_create.h"

using namespace vask_test;
using ::testing::ElementsAre;

namespace
{

using MeterCreate = vask_test::MeterCreate;

TEST_F(MeterCreate, BothSidesAreProgrammedBoundAndListed)
{
	EXPECT_EQ(Create(0x88), 0);

	ExpectTrace(Asked("0x3", dev), Found(), IndexTaken(), IschProgrammed(), ShaperProgrammed(),
		Mapped(), Bound(), Created("tx"));
	ExpectErrorUntouched(error);
	EXPECT_THAT(meter_ids(), ElementsAre(METER));
	EXPECT_EQ(profile->data.ref_cnt, 1u);
	EXPECT_EQ(policy->data.ref_cnt, 1u);
	EXPECT_EQ(memory.count(), 1u);
}

TEST_F(MeterCreate, ReceiveMeterIsBoundWithDirectionCode0)
{
	EXPECT_EQ(Create(RECEIVE | 0x88), 0);

	ExpectTrace(Asked("0x2", dev), Found(), IndexTaken(), IschProgrammed(), Mapped(), Bound(),
		Created("rx"));
}

TEST_F(MeterCreate, TransmitMeterNeverBindsThePort)
{
	EXPECT_EQ(Create(TRANSMIT | 0x88), 0);

	ExpectTrace(Asked("0x1", dev), Found(), IndexTaken(), ShaperProgrammed(), Mapped(),
		Created("tx"));
}

TEST_F(MeterCreate, StatsMaskBits63And62BothSetYieldAReceiveMeter)
{
	EXPECT_EQ(Create(RECEIVE | TRANSMIT | 0x88), 0);

	ExpectTrace(Asked("0x2", dev), Found(), IndexTaken(), IschProgrammed(), Mapped(), Bound(),
		Created("rx"));
	EXPECT_EQ(first().dir, RX);
}

TEST_F(MeterCreate, NeitherBit63NorBit62YieldsABothSidesMeter)
{
	EXPECT_EQ(Create(0), 0);
	EXPECT_EQ(first().dir, BOTH);
}

TEST_F(MeterCreate, Bit61SetsOriginalPacketLengthWhateverTheDirection)
{
	card.HandOut(meter_index_mgr, {});
	uint32_t id = 100;
	for (uint64_t side : {UINT64_C(0), RECEIVE, TRANSMIT, RECEIVE | TRANSMIT}) {
		EXPECT_EQ(Create(side, ++id), 0);
		EXPECT_EQ(vask_p4_find_meter_byid(id)->data.is_ori_pktlen, 0u);
		EXPECT_EQ(Create(side | ORIGINAL_LENGTH, ++id), 0);
		EXPECT_EQ(vask_p4_find_meter_byid(id)->data.is_ori_pktlen, 1u);
	}
}

TEST_F(MeterCreate, RecordHoldsWhatWasAskedAndCopiesOfProfileAndPolicy)
{
	profile->data.ebs = 77;
	params.use_prev_mtr_color = 3;
	EXPECT_EQ(Create(ORIGINAL_LENGTH | 0x1234567F), 0);

	const vask_p4_meter_cfg_entry &meter = first();
	EXPECT_EQ(meter.meter_id, METER);
	EXPECT_EQ(meter.hw_meter_id, HW_METER);
	EXPECT_EQ(meter.port_sfi, SFI);
	EXPECT_EQ(meter.dir, BOTH);
	EXPECT_EQ(meter.enable, 1u);
	EXPECT_EQ(meter.type, 1u);
	EXPECT_EQ(meter.is_color_aware, 1u);
	EXPECT_EQ(meter.is_ori_pktlen, 1u);
	EXPECT_EQ(meter.stats_mask, 0x1234567Fu) << "the flags are dropped";
	EXPECT_EQ(meter.off_hw_state, 2u);
	EXPECT_EQ(Bytes(meter.table), std::vector<uint8_t>(16));
	EXPECT_EQ(Bytes(meter.table_inst), std::vector<uint8_t>(20));
	EXPECT_EQ(Bytes(meter.mep_inst), std::vector<uint8_t>(32));

	/* The copies were taken before the references. */
	vask_p4_meter_profile copied = profile->data;
	copied.ref_cnt = 0;
	EXPECT_EQ(Bytes(meter.profile), Bytes(copied));
	vask_p4_meter_policy copied_policy = policy->data;
	copied_policy.ref_cnt = 0;
	EXPECT_EQ(Bytes(meter.policy), Bytes(copied_policy));
}

TEST_F(MeterCreate, CopiedProfileKeepsTheValuesOfTheMomentOfCopying)
{
	ASSERT_EQ(Create(0), 0);

	profile->data.cir = 1;
	policy->data.red_action = 0;

	EXPECT_EQ(first().profile.cir, CIR);
	EXPECT_EQ(first().policy.red_action, 2u);
}

TEST_F(MeterCreate, StatsMaskIsCutToItsLow32Bits)
{
	EXPECT_EQ(Create(UINT64_C(0x1FFFFFFF90000088)), 0);

	EXPECT_EQ(first().stats_mask, 0x90000088u);
	EXPECT_EQ(log.lines().at(8),
		Line(RTE_LOG_DEBUG, "[offload_smartnic]*      stats_mask\t\t\t: 0x90000088\n"));
}

TEST_F(MeterCreate, ParametersAreDumpedAsTheyCame)
{
	params.meter_enable = 0x10;
	params.use_prev_mtr_color = -1;
	EXPECT_EQ(Create(TRANSMIT | ORIGINAL_LENGTH, 0xFEDCBA98), 0);

	const std::vector<LogLine> lines = log.lines();
	EXPECT_EQ(lines.at(2).text, "[offload_smartnic]*      meter_id\t\t\t: 0xfedcba98\n");
	EXPECT_EQ(lines.at(3).text, "[offload_smartnic]*      enable\t\t\t\t: 0x10\n");
	EXPECT_EQ(lines.at(6).text, "[offload_smartnic]*      corlor_mode\t\t\t: 0xffffffff\n");
	EXPECT_EQ(lines.at(7).text, "[offload_smartnic]*      use_ori_pkt\t\t\t: 0x1\n");
}

TEST_F(MeterCreate, EveryCreatedMeterEndsEnabledWhateverWasAsked)
{
	params.meter_enable = 0;
	EXPECT_EQ(Create(0), 0);
	EXPECT_EQ(first().enable, 1u);
}

TEST_F(MeterCreate, ColourAwarenessIsTheLowestBitOfTheRequest)
{
	params.use_prev_mtr_color = 2;
	EXPECT_EQ(Create(0), 0);
	EXPECT_EQ(first().is_color_aware, 0u);
}

TEST_F(MeterCreate, SharedAndParamsDirectionHaveNoEffect)
{
	params.direction = 1;
	params.stats_mask = RECEIVE | 0x88;
	EXPECT_EQ(vask_p4_meter_create(dev, METER, &params, 1, &error), 0);

	ExpectTrace(Asked("0x2", dev), Found(), IndexTaken(), IschProgrammed(), Mapped(), Bound(),
		Created("rx"));
	EXPECT_EQ(first().dir, RX);
}

TEST_F(MeterCreate, PrivPort7935IsAccepted)
{
	card.AddPort(dev, 7935);
	EXPECT_EQ(Create(TRANSMIT), 0);
	EXPECT_EQ(first().port_sfi, 7935u);
}

TEST_F(MeterCreate, CreatingMeterId0TwiceSucceedsBothTimes)
{
	card.HandOut(meter_index_mgr, {HW_METER, HW_METER + 1});
	EXPECT_EQ(Create(0, 0), 0);
	EXPECT_EQ(Create(0, 0), 0);

	EXPECT_THAT(meter_ids(), ElementsAre(0u, 0u));
	EXPECT_EQ(profile->data.ref_cnt, 2u);
	EXPECT_EQ(policy->data.ref_cnt, 2u);
}

TEST_F(MeterCreate, NewMetersAreListedAtTheTail)
{
	card.HandOut(meter_index_mgr, {});
	for (uint32_t id : {30u, 10u, 20u})
		EXPECT_EQ(Create(0, id), 0);

	EXPECT_THAT(meter_ids(), ElementsAre(30u, 10u, 20u));
}

TEST_F(MeterCreate, RequestCodeChoosesTheStoredDirection)
{
	struct {
		int request;
		uint32_t dir;
	} const rows[] = {
		{1, TX}, {2, RX}, {3, BOTH}, {4, RX}, {5, TX}, {0, RX}, {6, RX}, {-1, RX}};

	card.HandOut(meter_index_mgr, {});
	uint32_t id = 100;
	for (const auto &row : rows) {
		EXPECT_EQ(vask_p4_meter_inst_create(dev, ++id, &params, 1, 0, &error, row.request),
			0);
		EXPECT_EQ(vask_p4_find_meter_byid(id)->data.dir, row.dir) << row.request;
	}
}

TEST_F(MeterCreate, PortTypeZeroNeitherBindsNorLogsThePort)
{
	params.stats_mask = 0x88;
	EXPECT_EQ(vask_p4_meter_inst_create(dev, METER, &params, 0, 1, &error, 2), 0);

	ExpectTrace(
		PrivDataGet(dev), Dumped("0x1"), Found(), IndexTaken(), IschProgrammed(), Mapped());
	EXPECT_EQ(first().type, 0u);
	EXPECT_EQ(first().is_ori_pktlen, 1u);
}

TEST_F(MeterCreate, EvenPortTypeBindsThePortAndIsStoredAs0)
{
	params.stats_mask = 0x88;
	EXPECT_EQ(vask_p4_meter_inst_create(dev, METER, &params, 2, 2, &error, 2), 0);

	ExpectTrace(PrivDataGet(dev), Dumped("0x2"), Found(), IndexTaken(), IschProgrammed(),
		Mapped(), Bound(), Created("rx"));
	EXPECT_EQ(first().type, 0u);
	EXPECT_EQ(first().is_ori_pktlen, 0u);
}

} // namespace
