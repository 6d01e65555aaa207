/* SPDX-License-Identifier: BSD-3-Clause */
#include "meters.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;

namespace
{

/* Meter 9 on profile 5 is about to move to profile 6: 1,250,000 bytes/s, 10,000 kbit/s, 108 with 8 %. */
class ProfileUpdate : public MeterTest
{
      protected:
	ProfileUpdate() : next(AddProfile(6, 12, 1250000))
	{
		next->data.eir = 99;
		next->data.rfc2698_mode = 1;
		StartOver();
	}

	static LogLine HwSays(uint32_t level, const std::string &text)
	{
		return Says(level, "vask_p4_meter_update_profile_2_hw", text);
	}

	static LogLine FoundProfile(const std::string &id)
	{
		return Says(RTE_LOG_DEBUG, "vask_p4_find_meter_profile_byid",
			"add meter find profile, id is " + id);
	}

	static std::vector<Event> Isch()
	{
		return IschSet(1250000, 108);
	}

	/* A success at error level, on purpose. */
	static LogLine IschSuc()
	{
		return HwSays(RTE_LOG_ERR, "update meter dpe shaper rate(100kbps) suc");
	}

	static std::vector<Event> Shaper()
	{
		return ShaperSet(10000);
	}

	static std::vector<Event> Moved()
	{
		return Events(FoundProfile("5"),
			HwSays(RTE_LOG_INFO,
				"meter update old profile_id 5 ref 0, new profile_id 6 ref 1"));
	}

	/* The meter holds the new profile, with the count that it had before. */
	void ExpectCopied(const vask_p4_meter_cfg_node *meter)
	{
		vask_p4_meter_profile copied = next->data;
		copied.ref_cnt = 0;
		EXPECT_EQ(Bytes(meter->data.profile), Bytes(copied));
	}

	void ExpectCounts(uint32_t old_count, uint32_t new_count)
	{
		EXPECT_EQ(profile->data.ref_cnt, old_count);
		EXPECT_EQ(next->data.ref_cnt, new_count);
		EXPECT_EQ(policy->data.ref_cnt, 1u);
	}

	vask_p4_meter_profile_node *const next;
};

TEST_F(ProfileUpdate, BothSidesHaveTheIschRegisterAndThenThePortShaperReprogrammed)
{
	auto *meter = AddMeter(BOTH);

	EXPECT_EQ(vask_p4_meter_profile_update(dev, METER, 6, &error), 0);

	ExpectTrace(FoundProfile("6"), Isch(), IschSuc(), Shaper(), Moved());
	ExpectErrorUntouched(error);
	ExpectCopied(meter);
	ExpectCounts(0, 1);
	EXPECT_EQ(meter->data.off_hw_state, 2u);
	EXPECT_EQ(meter->data.enable, 1u);
	EXPECT_EQ(meter->data.hw_meter_id, HW_METER);
}

TEST_F(ProfileUpdate, ReceiveMeterHasTheIschRegisterReprogrammedOnly)
{
	auto *meter = AddMeter(RX);

	EXPECT_EQ(vask_p4_meter_profile_update(dev, METER, 6, &error), 0);

	ExpectTrace(FoundProfile("6"), Isch(), IschSuc(), Moved());
	ExpectCopied(meter);
	ExpectCounts(0, 1);
}

TEST_F(ProfileUpdate, TransmitMeterHasThePortShaperReprogrammedOnly)
{
	auto *meter = AddMeter(TX);

	EXPECT_EQ(vask_p4_meter_profile_update(dev, METER, 6, &error), 0);

	ExpectTrace(FoundProfile("6"), Shaper(), Moved());
	ExpectCopied(meter);
	ExpectCounts(0, 1);
}

TEST_F(ProfileUpdate, MeterWithDir2ChangesProfileWithNoDeviceCallAndTheCountsStillMove)
{
	auto *meter = AddMeter(NO_SIDE);
	meter->data.off_hw_state = 0;

	EXPECT_EQ(vask_p4_meter_profile_update(dev, METER, 6, &error), 0);

	ExpectTrace(FoundProfile("6"), Moved());
	ExpectCopied(meter);
	ExpectCounts(0, 1);
	EXPECT_EQ(meter->data.off_hw_state, 2u);
}

TEST_F(ProfileUpdate, PacketModeOfTheNewProfileTravelsToBothShapers)
{
	AddMeter(BOTH);
	next->data.packet_mode = 3;

	EXPECT_EQ(vask_p4_meter_profile_update(dev, METER, 6, &error), 0);

	ExpectTrace(FoundProfile("6"), IschSet(1250000, 108, 3), IschSuc(), ShaperSet(10000, 3),
		Moved());
}

TEST_F(ProfileUpdate, DisabledMeterStaysDisabled)
{
	auto *meter = AddMeter(BOTH);
	meter->data.enable = 0;

	EXPECT_EQ(vask_p4_meter_profile_update(dev, METER, 6, &error), 0);

	EXPECT_EQ(meter->data.enable, 0u);
}

TEST_F(ProfileUpdate, UnknownMeterIdWithAKnownProfileIdIsRefused)
{
	ExpectRefused(vask_p4_meter_profile_update(dev, METER, 6, &error), error,
		RTE_MTR_ERROR_TYPE_METER_PROFILE, "input meter profile id or meter id err");

	ExpectTrace(FoundProfile("6"),
		Says(RTE_LOG_ERR, "vask_p4_meter_profile_update",
			"input meter profile id or meter id err, meter is 9, profile id 6"));
}

TEST_F(ProfileUpdate, UnknownProfileIdWithAKnownMeterIdIsRefused)
{
	auto *meter = AddMeter(BOTH);

	ExpectRefused(vask_p4_meter_profile_update(dev, METER, 8, &error), error,
		RTE_MTR_ERROR_TYPE_METER_PROFILE, "input meter profile id or meter id err");

	ExpectTrace(Says(RTE_LOG_ERR, "vask_p4_meter_profile_update",
		"input meter profile id or meter id err, meter is 9, profile id 8"));
	EXPECT_EQ(meter->data.profile.profile_id, PROFILE);
	ExpectCounts(1, 0);
}

TEST_F(ProfileUpdate, MeterId0IsNotFoundEvenWhenItExists)
{
	AddMeter(BOTH, 0);

	ExpectRefused(vask_p4_meter_profile_update(dev, 0, 6, &error), error,
		RTE_MTR_ERROR_TYPE_METER_PROFILE, "input meter profile id or meter id err");
}

TEST_F(ProfileUpdate, RefusalWithoutAnErrorRecordSetsErrnoOnly)
{
	EXPECT_EQ(vask_p4_meter_profile_update(dev, METER, 6, nullptr), -16);
	EXPECT_EQ(rte_errno, 16);
}

TEST_F(ProfileUpdate, FailedIschWriteOfABothSidesMeterSendsNoShaperCommandAndMovesNoReference)
{
	auto *meter = AddMeter(BOTH);
	card.Fail(Op::IschWrite, 50);

	EXPECT_EQ(vask_p4_meter_profile_update(dev, METER, 6, &error), 50);

	ExpectTrace(FoundProfile("6"), Isch(),
		HwSays(RTE_LOG_ERR, "add meter dpe shaper failed, rc = 50"));
	ExpectErrorUntouched(error);
	ExpectCopied(meter);
	ExpectCounts(1, 0);
	EXPECT_EQ(meter->data.off_hw_state, 1u);
}

TEST_F(ProfileUpdate, FailedIschWriteOfAReceiveMeterMovesNoReference)
{
	auto *meter = AddMeter(RX);
	card.Fail(Op::IschWrite, -1);

	EXPECT_EQ(vask_p4_meter_profile_update(dev, METER, 6, &error), -1);

	ExpectTrace(FoundProfile("6"), Isch(),
		HwSays(RTE_LOG_ERR, "add meter dpe shaper failed, rc = -1"));
	ExpectErrorUntouched(error);
	ExpectCounts(1, 0);
	EXPECT_EQ(meter->data.off_hw_state, 1u);
}

TEST_F(ProfileUpdate, FailedShaperCommandLeavesTheIschRegisterAndMovesNoReference)
{
	auto *meter = AddMeter(BOTH);
	card.Fail(Op::SetShaper, -16);

	EXPECT_EQ(vask_p4_meter_profile_update(dev, METER, 6, &error), -16);

	ExpectTrace(FoundProfile("6"), Isch(), IschSuc(), Shaper(),
		HwSays(RTE_LOG_ERR, "update meter shaper failed, rc = -16"));
	ExpectErrorUntouched(error);
	ExpectCopied(meter);
	ExpectCounts(1, 0);
	EXPECT_EQ(meter->data.off_hw_state, 1u);
}

TEST_F(ProfileUpdate, FailedShaperCommandOfATransmitMeterMovesNoReference)
{
	auto *meter = AddMeter(TX);
	card.Fail(Op::SetShaper, 7);

	EXPECT_EQ(vask_p4_meter_profile_update(dev, METER, 6, &error), 7);

	ExpectTrace(FoundProfile("6"), Shaper(),
		HwSays(RTE_LOG_ERR, "update meter shaper failed, rc = 7"));
	ExpectCopied(meter);
	ExpectCounts(1, 0);
	EXPECT_EQ(meter->data.off_hw_state, 1u);
}

/* The record already names the new profile, so the retry counts it up and down and the old one keeps 1. */
TEST_F(ProfileUpdate, RetryAfterAFailureCompletesTheChangeOnTheNewProfile)
{
	auto *meter = AddMeter(TX);
	card.Fail(Op::SetShaper, 7);
	ASSERT_EQ(vask_p4_meter_profile_update(dev, METER, 6, &error), 7);
	StartOver();

	EXPECT_EQ(vask_p4_meter_profile_update(dev, METER, 6, &error), 0);

	ExpectTrace(FoundProfile("6"), Shaper(), FoundProfile("6"),
		HwSays(RTE_LOG_INFO,
			"meter update old profile_id 6 ref 0, new profile_id 6 ref 0"));
	ExpectCounts(1, 0);
	EXPECT_EQ(meter->data.off_hw_state, 2u);
}

TEST_F(ProfileUpdate, AfterAMoveTheOldProfileCanBeDeletedAndTheNewOneCannot)
{
	AddMeter(BOTH);
	ASSERT_EQ(vask_p4_meter_profile_update(dev, METER, 6, &error), 0);
	ExpectCounts(0, 1);

	EXPECT_EQ(vask_p4_meter_profile_delete(dev, 6, &error), -16);
	EXPECT_EQ(vask_p4_meter_profile_delete(dev, PROFILE, &error), 0);
}

TEST_F(ProfileUpdate, MoveOntoTheSameProfileEndsWithTheSameCount)
{
	AddMeter(TX);

	EXPECT_EQ(vask_p4_meter_profile_update(dev, METER, PROFILE, &error), 0);

	ExpectTrace(FoundProfile("5"), ShaperSet(), FoundProfile("5"),
		HwSays(RTE_LOG_INFO,
			"meter update old profile_id 5 ref 1, new profile_id 5 ref 1"));
	ExpectCounts(1, 0);
	EXPECT_EQ(TAILQ_FIRST(&vask_p4_meter_list)->data.profile.ref_cnt, 1u)
		<< "the count before the change";
}

TEST_F(ProfileUpdate, OldProfileThatIsGoneIsNotCountedDownAndNotLogged)
{
	auto *meter = AddMeter(TX);
	meter->data.profile.profile_id = 77;

	EXPECT_EQ(vask_p4_meter_profile_update(dev, METER, 6, &error), 0);

	ExpectTrace(FoundProfile("6"), Shaper());
	ExpectCounts(1, 1);
	EXPECT_EQ(meter->data.off_hw_state, 2u);
}

TEST_F(ProfileUpdate, OldCountOf0WrapsBecauseNothingChecksIt)
{
	AddMeter(TX);
	profile->data.ref_cnt = 0;

	EXPECT_EQ(vask_p4_meter_profile_update(dev, METER, 6, &error), 0);

	ExpectTrace(FoundProfile("6"), Shaper(), FoundProfile("5"),
		HwSays(RTE_LOG_INFO,
			"meter update old profile_id 5 ref -1, new profile_id 6 ref 1"));
	ExpectCounts(0xFFFFFFFF, 1);
}

TEST_F(ProfileUpdate, EnginesAndIndexesAreLeftAlone)
{
	AddMeter(BOTH);
	StartOver();
	ASSERT_EQ(vask_p4_meter_profile_update(dev, METER, 6, &error), 0);

	for (const Call &call : card.calls())
		EXPECT_TRUE(call.op == Op::IschWrite || call.op == Op::CmdChannel ||
			call.op == Op::SetShaper)
			<< OpName(call.op);
	EXPECT_EQ(memory.count(), 0u);
}

} // namespace
