/* SPDX-License-Identifier: BSD-3-Clause */
/* Creation of a meter that is refused, and what it leaves behind. */
#include "meter_create.h"

using namespace vask_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

using MeterRefused = MeterCreate;

TEST_F(MeterRefused, NullParamsBeforeAnythingIsLoggedOrAllocated)
{
	ExpectRefusedAsNull(vask_p4_meter_create(dev, METER, nullptr, 0, &error), error);

	ExpectTrace();
	EXPECT_EQ(memory.count(), 0u);
}

TEST_F(MeterRefused, PrivPort7936IsRefused)
{
	card.AddPort(dev, 7936);

	ExpectRefused(Create(0x88), error, RTE_MTR_ERROR_TYPE_UNSPECIFIED,
		"add meter but port sfi is err");

	ASSERT_EQ(log.lines(RTE_LOG_INFO).size(), 1u);
	EXPECT_EQ(log.lines(RTE_LOG_INFO)[0].level, RTE_LOG_ERR);
	EXPECT_THAT(log.lines(RTE_LOG_INFO)[0].text,
		::testing::MatchesRegex(
			"\\[offload_smartnic\\] vask_p4_meter_inst_create add meter "
			"but port sfi is err, priv: 0x[0-9a-f]+\n"));
	EXPECT_THAT(card.calls(), ElementsAre(PrivDataGet(dev)));
	ExpectNoMeterAndNoReference();
	EXPECT_EQ(memory.count(), 0u);
}

TEST_F(MeterRefused, NoPrivateDataIsRefused)
{
	params.stats_mask = 0x88;
	ExpectRefused(vask_p4_meter_create(foreign_dev, METER, &params, 0, &error), error,
		RTE_MTR_ERROR_TYPE_UNSPECIFIED, "add meter but port sfi is err");

	ExpectTrace(Asked("0x3", foreign_dev),
		InstSays(RTE_LOG_ERR, "add meter but port sfi is err, priv: (nil)"));
	ExpectNoMeterAndNoReference();
	EXPECT_EQ(memory.count(), 0u);
}

TEST_F(MeterRefused, UnknownProfileIsRefusedAndListIsUnchanged)
{
	params.meter_profile_id = 6;
	params.meter_policy_id = 8;

	ExpectRefused(Create(0x88), error, RTE_MTR_ERROR_TYPE_METER_PROFILE_ID,
		"add meter but not find profile");

	EXPECT_THAT(log.lines(RTE_LOG_INFO),
		ElementsAre(
			InstSays(RTE_LOG_ERR, "add meter but not find profile, meter 9, prf 6")));
	EXPECT_THAT(card.calls(), ElementsAre(PrivDataGet(dev)));
	ExpectNoMeterAndNoReference();
	EXPECT_EQ(memory.count(), 0u);
}

TEST_F(MeterRefused, UnknownPolicyIsRefusedWithoutALine)
{
	params.meter_policy_id = 8;

	ExpectRefused(Create(0x88), error, RTE_MTR_ERROR_TYPE_METER_POLICY_ID,
		"add meter but not find policy");

	EXPECT_THAT(log.lines(RTE_LOG_INFO), IsEmpty());
	EXPECT_TRUE(trace.back() == std::get<LogLine>(Found()[0]));
	EXPECT_THAT(card.calls(), ElementsAre(PrivDataGet(dev)));
	ExpectNoMeterAndNoReference();
	EXPECT_EQ(memory.count(), 0u);
}

TEST_F(MeterRefused, CreatingMeterId5TwiceFailsTheSecondTime)
{
	ASSERT_EQ(Create(0x88, 5), 0);
	StartOver();

	ExpectRefused(Create(0x88, 5), error, RTE_MTR_ERROR_TYPE_MTR_ID, "meter id repeat err");

	EXPECT_THAT(log.lines(RTE_LOG_INFO),
		ElementsAre(InstSays(RTE_LOG_ERR, "add meter has exist, id is 5")));
	EXPECT_THAT(card.calls(), ElementsAre(PrivDataGet(dev)));
	EXPECT_THAT(meter_ids(), ElementsAre(5u));
	EXPECT_EQ(profile->data.ref_cnt, 1u);
	EXPECT_EQ(policy->data.ref_cnt, 1u);
	EXPECT_EQ(memory.count(), 0u);
}

TEST_F(MeterRefused, NoMemoryIsRefusedBeforeAnIndexIsTaken)
{
	memory.Fail();

	ExpectRefused(Create(0x88), error, RTE_MTR_ERROR_TYPE_UNSPECIFIED,
		"Cannot allocate memory for meter");

	ExpectTrace(Asked("0x3", dev), Found());
	ExpectNoMeterAndNoReference();
}

/* On purpose: the record is neither freed nor listed, and the error is not set. */
TEST_F(MeterRefused, ExhaustedPoolReturnsMinusOneLeavesTheErrorAloneAndLeaksTheRecord)
{
	card.HandOut(meter_index_mgr, {});
	card.Drain(meter_index_mgr);
	LeavesRecordBehind();

	EXPECT_EQ(Create(0x88), -1);

	ExpectTrace(Asked("0x3", dev), Found(), PoolAlloc(meter_index_mgr, 0),
		InstSays(RTE_LOG_ERR, "meter get meter id failed, rc = -1"));
	ExpectErrorUntouched(error);
	ExpectNoMeterAndNoReference();
}

TEST_F(MeterRefused, StatusOfARefusingPoolStandsInTheLine)
{
	card.Fail(Op::PoolAlloc, 12);
	LeavesRecordBehind();

	EXPECT_EQ(Create(0x88), -1);

	EXPECT_THAT(log.lines(RTE_LOG_INFO),
		ElementsAre(InstSays(RTE_LOG_ERR, "meter get meter id failed, rc = 12")));
	ExpectErrorUntouched(error);
	ExpectNoMeterAndNoReference();
}

TEST_F(MeterRefused, FailedIschWriteLeavesCountsAndListUnchangedButTheHardwareMeterTaken)
{
	card.Fail(Op::IschWrite, 4);
	LeavesIndexTaken(meter_index_mgr, HW_METER);

	ExpectRefused(Create(0x88), error, RTE_MTR_ERROR_TYPE_MTR_PARAMS, "table add meter failed");

	ExpectTrace(Asked("0x3", dev), Found(), IndexTaken(), IschSet(),
		Says(RTE_LOG_ERR, "vask_p4_add_meter_cfg_2_hw",
			"add meter dpe isch shaper failed, rc = 4"),
		InstSays(RTE_LOG_INFO, "[meter]: create meter err free meter_id 9"));
	ExpectNoMeterAndNoReference();
	EXPECT_TRUE(IsTaken(meter_index_mgr, HW_METER));
}

TEST_F(MeterRefused, FailedShaperCommandLeavesTheIschRegisterWritten)
{
	card.Fail(Op::SetShaper, 4);
	LeavesIndexTaken(meter_index_mgr, HW_METER);

	ExpectRefused(Create(0x88), error, RTE_MTR_ERROR_TYPE_MTR_PARAMS, "table add meter failed");

	ExpectTrace(Asked("0x3", dev), Found(), IndexTaken(), IschProgrammed(), ShaperSet(),
		Says(RTE_LOG_ERR, "vask_p4_add_meter_cfg_2_hw", "add meter shaper failed, rc = 4"),
		InstSays(RTE_LOG_INFO, "[meter]: create meter err free meter_id 9"));
	ExpectNoMeterAndNoReference();
}

TEST_F(MeterRefused, FailedPortBindingLeavesTheShapersWrittenAndTheIndexTaken)
{
	card.Fail(Op::MepBindOutput, 4);
	LeavesIndexTaken(meter_index_mgr, HW_METER);

	ExpectRefused(Create(0x88), error, RTE_MTR_ERROR_TYPE_MTR_PARAMS, "table add meter failed");

	ExpectTrace(Asked("0x3", dev), Found(), IndexTaken(), IschProgrammed(), ShaperProgrammed(),
		Mapped(), CmdChannel(), MepBindOutput(0, SFI, HW_METER),
		Says(RTE_LOG_ERR, "vask_p4_meter_add_port_to_hw",
			"meter add: qorn set input port rx failed!"),
		InstSays(RTE_LOG_INFO, "[meter]: create meter err free meter_id 9"));
	ExpectNoMeterAndNoReference();
}

TEST_F(MeterRefused, EveryRefusalWithoutAnErrorRecordSetsErrnoOnly)
{
	params.stats_mask = 0x88;
	const auto create = [&](rte_eth_dev *device, uint32_t profile_id, uint32_t policy_id) {
		rte_errno = 0;
		params.meter_profile_id = profile_id;
		params.meter_policy_id = policy_id;
		return vask_p4_meter_create(device, METER, &params, 0, nullptr);
	};

	EXPECT_EQ(create(foreign_dev, PROFILE, POLICY), -16);
	EXPECT_EQ(rte_errno, 16);
	EXPECT_EQ(create(dev, 6, POLICY), -16);
	EXPECT_EQ(rte_errno, 16);
	EXPECT_EQ(create(dev, PROFILE, 6), -16);
	EXPECT_EQ(rte_errno, 16);
	memory.Fail();
	EXPECT_EQ(create(dev, PROFILE, POLICY), -16);
	EXPECT_EQ(rte_errno, 16);
	card.Fail(Op::MepBindOutput, 1);
	LeavesIndexTaken(meter_index_mgr, HW_METER);
	EXPECT_EQ(create(dev, PROFILE, POLICY), -16);
	EXPECT_EQ(rte_errno, 16);
	rte_errno = 0;
	EXPECT_EQ(vask_p4_meter_create(dev, METER, nullptr, 0, nullptr), -16);
	EXPECT_EQ(rte_errno, 16);
	ExpectNoMeterAndNoReference();
}

/* Every call that returns a status, one after the other, for each side of the port. */
TEST_F(MeterRefused, WhicheverCallFailsNoMeterIsListedAndNoReferenceMoves)
{
	struct {
		uint64_t side;
		unsigned calls; /* index, shapers, binding */
	} const rows[] = {{0, 4}, {RECEIVE, 3}, {TRANSMIT, 2}};

	uint32_t hw_meter = 100;
	for (const auto &row : rows) {
		for (unsigned nth = 1; nth <= row.calls; nth++) {
			StartOver();
			card.ClearFaults();
			card.HandOut(meter_index_mgr, {hw_meter});
			card.FailAnyOp(nth, 3);
			if (nth == 1)
				LeavesRecordBehind();
			else
				LeavesIndexTaken(meter_index_mgr, hw_meter);
			EXPECT_EQ(Create(row.side | 0x88), nth == 1 ? -1 : -16) << nth;
			ExpectNoMeterAndNoReference();
			hw_meter++;
		}
	}
	card.ClearFaults();
	card.HandOut(meter_index_mgr, {});
	EXPECT_EQ(Create(0x88), 0) << "one that nothing refuses";
}

} // namespace
