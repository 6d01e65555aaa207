/* SPDX-License-Identifier: BSD-3-Clause */
#include "meters.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

class MeterDestroy : public MeterTest
{
      protected:
	static LogLine DelSays(uint32_t level, const std::string &text)
	{
		return Says(level, "vask_p4_del_meter_cfg_2_hw", text);
	}

	static std::vector<Event>
	Released(const std::string &profile_left = "0", const std::string &policy_left = "0")
	{
		return Events(Says(RTE_LOG_INFO, "vask_p4_meter_profile_ref_dec",
				      "del meter profile ref cnt: " + profile_left),
			Says(RTE_LOG_INFO, "vask_p4_meter_policy_ref_dec",
				"dec meter policy ref cnt: " + policy_left));
	}

	/* A second release: the counts stay at 0. */
	static std::vector<Event> ReleasedAgain()
	{
		return Events(Says(RTE_LOG_ERR, "vask_p4_meter_profile_ref_dec",
				      "del meter profile ref cnt 0 err"),
			Says(RTE_LOG_ERR, "vask_p4_meter_policy_ref_dec",
				"dec meter policy ref cnt 0 err"));
	}

	static std::vector<Event> IschRemoved()
	{
		return Events(IschCleared(), DelSays(RTE_LOG_DEBUG, "del meter dpe shaper suc."));
	}

	static std::vector<Event> ShaperRemoved()
	{
		return Events(ShaperCleared(), DelSays(RTE_LOG_DEBUG, "del meter shaper suc."));
	}

	static std::vector<Event> PortRemoved()
	{
		return Events(CmdChannel(), MepUnbindOutput(0, SFI),
			DelSays(RTE_LOG_ERR, "del meter port suc."));
	}

	static LogLine Destroyed()
	{
		return Says(RTE_LOG_INFO, "vask_p4_meter_destroy",
			"del meter suc, meter is 9 profile_id 5 policy_id 7");
	}

	void ExpectListedWithCountsLowered()
	{
		EXPECT_THAT(meter_ids(), ElementsAre(METER));
		EXPECT_EQ(profile->data.ref_cnt, 0u);
		EXPECT_EQ(policy->data.ref_cnt, 0u);
		EXPECT_TRUE(IsTaken(meter_index_mgr, HW_METER));
	}
};

TEST_F(MeterDestroy, BothSidesAreReleasedClearedUnboundAndFreed)
{
	AddMeter(BOTH);

	EXPECT_EQ(vask_p4_meter_destroy(dev, METER, &error), 0);

	ExpectTrace(Released(), IschRemoved(), ShaperRemoved(), PortRemoved(),
		PoolFree(meter_index_mgr, HW_METER), Destroyed());
	ExpectErrorUntouched(error);
	EXPECT_THAT(meter_ids(), IsEmpty());
	EXPECT_EQ(profile->data.ref_cnt, 0u);
	EXPECT_EQ(policy->data.ref_cnt, 0u);
	EXPECT_FALSE(IsTaken(meter_index_mgr, HW_METER));
}

TEST_F(MeterDestroy, ReceiveMeterLeavesThePortShaperAlone)
{
	AddMeter(RX);

	EXPECT_EQ(vask_p4_meter_destroy(dev, METER, &error), 0);

	ExpectTrace(Released(), IschRemoved(), PortRemoved(), PoolFree(meter_index_mgr, HW_METER),
		Destroyed());
}

TEST_F(MeterDestroy, TransmitOnlyMeterWithTypeSetRemovesOnlyThePortShaper)
{
	AddMeter(TX);

	EXPECT_EQ(vask_p4_meter_destroy(dev, METER, &error), 0);

	ExpectTrace(Released(), ShaperRemoved(), DelSays(RTE_LOG_ERR, "del meter port suc."),
		PoolFree(meter_index_mgr, HW_METER), Destroyed());
}

TEST_F(MeterDestroy, NoSideAndTypeClearOnlyReturnsItsIndex)
{
	AddMeter(NO_SIDE)->data.type = 0;

	EXPECT_EQ(vask_p4_meter_destroy(dev, METER, &error), 0);

	ExpectTrace(Released(), PoolFree(meter_index_mgr, HW_METER), Destroyed());
}

TEST_F(MeterDestroy, UnknownIdReturnsZeroAndChangesNothing)
{
	AddMeter(BOTH);

	EXPECT_EQ(vask_p4_meter_destroy(dev, METER + 1, &error), 0);

	ExpectTrace(
		Says(RTE_LOG_INFO, "vask_p4_meter_destroy", "del meter id not found, id is 10"));
	ExpectErrorUntouched(error);
	EXPECT_THAT(meter_ids(), ElementsAre(METER));
	EXPECT_EQ(profile->data.ref_cnt, 1u);
	EXPECT_EQ(policy->data.ref_cnt, 1u);
}

TEST_F(MeterDestroy, EmptyListReturnsZero)
{
	EXPECT_EQ(vask_p4_meter_destroy(dev, 0, &error), 0);

	ExpectTrace(Says(RTE_LOG_INFO, "vask_p4_meter_destroy", "del meter id not found, id is 0"));
}

/* Unlike enable and disable. */
TEST_F(MeterDestroy, MeterId0IsFoundAndTheOldestOfSeveralGoesFirst)
{
	AddMeter(BOTH, 0, 31);
	AddMeter(BOTH, 0, 32);

	EXPECT_EQ(vask_p4_meter_destroy(dev, 0, &error), 0);
	EXPECT_FALSE(IsTaken(meter_index_mgr, 31));
	EXPECT_TRUE(IsTaken(meter_index_mgr, 32));
	EXPECT_THAT(meter_ids(), ElementsAre(0u));
}

TEST_F(MeterDestroy, OneOfSeveralLeavesTheOthersInOrder)
{
	AddMeter(TX, 1, 31);
	AddMeter(TX, 2, 32);
	AddMeter(TX, 3, 33);

	EXPECT_EQ(vask_p4_meter_destroy(dev, 2, &error), 0);

	EXPECT_THAT(meter_ids(), ElementsAre(1u, 3u));
	EXPECT_EQ(profile->data.ref_cnt, 2u);
	EXPECT_EQ(log.lines(RTE_LOG_INFO).at(0), std::get<LogLine>(Released("2")[0]));
}

TEST_F(MeterDestroy, NullDeviceIsAsGoodAsAny)
{
	AddMeter(RX);

	EXPECT_EQ(vask_p4_meter_destroy(nullptr, METER, &error), 0);

	EXPECT_THAT(meter_ids(), IsEmpty());
}

/* References first, hardware after, and they are not taken again: on purpose. */
TEST_F(MeterDestroy, FailedIschWriteLeavesThePortShaperAndTheMeterListedWithItsCountsAlreadyLowered)
{
	AddMeter(BOTH);
	card.Fail(Op::IschWrite, 6);

	ExpectRefused(vask_p4_meter_destroy(dev, METER, &error), error, RTE_MTR_ERROR_TYPE_MTR_ID,
		"meter delete not success");

	ExpectTrace(Released(), IschCleared(),
		DelSays(RTE_LOG_ERR, "del meter dpe shaper failed, rc = 6"));
	ExpectListedWithCountsLowered();
	EXPECT_EQ(TAILQ_FIRST(&vask_p4_meter_list)->data.enable, 1u);
}

TEST_F(MeterDestroy, FailedShaperCommandKeepsTheMeterListed)
{
	AddMeter(BOTH);
	card.Fail(Op::SetShaper, 6);

	ExpectRefused(vask_p4_meter_destroy(dev, METER, &error), error, RTE_MTR_ERROR_TYPE_MTR_ID,
		"meter delete not success");

	ExpectTrace(Released(), IschRemoved(), ShaperCleared(),
		DelSays(RTE_LOG_ERR, "del meter shaper failed, rc = 6"));
	ExpectListedWithCountsLowered();
}

TEST_F(MeterDestroy, FailedUnbindingKeepsTheMeterListed)
{
	AddMeter(BOTH);
	card.Fail(Op::MepUnbindOutput, 6);

	ExpectRefused(vask_p4_meter_destroy(dev, METER, &error), error, RTE_MTR_ERROR_TYPE_MTR_ID,
		"meter delete not success");

	ExpectTrace(Released(), IschRemoved(), ShaperRemoved(), CmdChannel(),
		MepUnbindOutput(0, SFI),
		Says(RTE_LOG_ERR, "vask_p4_meter_del_port_to_hw",
			"del meter bitmap failed, rc = 6"));
	ExpectListedWithCountsLowered();
}

TEST_F(MeterDestroy, RefusalWithoutAnErrorRecordSetsErrnoOnly)
{
	AddMeter(BOTH);
	card.Fail(Op::IschWrite, 6);

	EXPECT_EQ(vask_p4_meter_destroy(dev, METER, nullptr), -16);

	EXPECT_EQ(rte_errno, 16);
}

TEST_F(MeterDestroy, SecondDestroyReleasesAgainAtTheFloorAndRepeatsTheHardwareSteps)
{
	AddMeter(BOTH);
	card.Fail(Op::MepUnbindOutput, 6);
	ASSERT_EQ(vask_p4_meter_destroy(dev, METER, &error), -16);
	StartOver();

	EXPECT_EQ(vask_p4_meter_destroy(dev, METER, &error), 0);

	ExpectTrace(ReleasedAgain(), IschRemoved(), ShaperRemoved(), PortRemoved(),
		PoolFree(meter_index_mgr, HW_METER), Destroyed());
	EXPECT_THAT(meter_ids(), IsEmpty());
}

TEST_F(MeterDestroy, RefusedReturnOfTheIndexIsNotNoticed)
{
	AddMeter(RX);
	card.Fail(Op::PoolFree, 1);
	LeavesIndexTaken(meter_index_mgr, HW_METER);

	EXPECT_EQ(vask_p4_meter_destroy(dev, METER, &error), 0);

	EXPECT_THAT(meter_ids(), IsEmpty());
}

TEST_F(MeterDestroy, ReferencesGoBackToTheProfileAndPolicyThatTheMeterCopied)
{
	auto *meter = AddMeter(TX);
	auto *other = AddProfile(6, 12, 1);
	auto *other_policy = AddPolicy(8, 14);
	meter->data.profile = other->data;
	meter->data.policy = other_policy->data;
	other->data.ref_cnt = 4;
	other_policy->data.ref_cnt = 3;

	EXPECT_EQ(vask_p4_meter_destroy(dev, METER, &error), 0);

	EXPECT_EQ(other->data.ref_cnt, 3u);
	EXPECT_EQ(other_policy->data.ref_cnt, 2u);
	EXPECT_EQ(profile->data.ref_cnt, 1u);
	EXPECT_EQ(policy->data.ref_cnt, 1u);
	EXPECT_EQ(log.lines().back(),
		Says(RTE_LOG_INFO, "vask_p4_meter_destroy",
			"del meter suc, meter is 9 profile_id 6 policy_id 8"));
}

TEST_F(MeterDestroy, AfterASuccessfulDestroyTheIdCanBeCreatedAgainAndTheIndexIsFreeForReuse)
{
	AddMeter(BOTH);
	ASSERT_EQ(vask_p4_meter_destroy(dev, METER, &error), 0);
	card.HandOut(meter_index_mgr, {HW_METER});

	rte_mtr_params params = {};
	params.meter_profile_id = PROFILE;
	params.meter_policy_id = POLICY;
	EXPECT_EQ(vask_p4_meter_create(dev, METER, &params, 0, &error), 0);

	EXPECT_EQ(vask_p4_find_hw_meterid_by_upid(METER), HW_METER);
}

TEST_F(MeterDestroy, ProfileAndPolicyCanBeDeletedAfterwardsAndNotBefore)
{
	AddMeter(BOTH);
	EXPECT_EQ(vask_p4_meter_profile_delete(dev, PROFILE, &error), -16);
	EXPECT_EQ(vask_p4_meter_policy_delete(dev, POLICY, &error), -16);

	ASSERT_EQ(vask_p4_meter_destroy(dev, METER, &error), 0);

	EXPECT_EQ(vask_p4_meter_profile_delete(dev, PROFILE, &error), 0);
	EXPECT_EQ(vask_p4_meter_policy_delete(dev, POLICY, &error), 0);
}

} // namespace
