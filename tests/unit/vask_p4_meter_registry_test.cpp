/* SPDX-License-Identifier: BSD-3-Clause */

/* Lookups by the caller's id. */

#include "module_test.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

using FindMeter = SeamTest;
using FindProfile = SeamTest;
using FindPolicy = SeamTest;
using MeterCopy = ModuleTest;

TEST_F(FindMeter, IsFoundAmongOthersSilently)
{
	ListMeter(1);
	auto *wanted = ListMeter(2);
	ListMeter(3);

	EXPECT_EQ(vask_p4_find_meter_byid(2), wanted);
	EXPECT_THAT(trace, IsEmpty());
}

TEST_F(FindMeter, HardwareIndexIsFoundAmongOthersSilently)
{
	ListMeter(1)->data.hw_meter_id = 11;
	ListMeter(2)->data.hw_meter_id = 22;
	ListMeter(3)->data.hw_meter_id = 33;

	EXPECT_EQ(vask_p4_find_hw_meterid_by_upid(1), 11u);
	EXPECT_EQ(vask_p4_find_hw_meterid_by_upid(2), 22u);
	EXPECT_EQ(vask_p4_find_hw_meterid_by_upid(3), 33u);
	EXPECT_THAT(trace, IsEmpty());
}

TEST_F(FindMeter, IdZeroGivesNullAndZeroEvenWhenAMeterWithIdZeroIsListed)
{
	ListMeter(0)->data.hw_meter_id = 11;

	EXPECT_EQ(vask_p4_find_meter_byid(0), nullptr);
	EXPECT_EQ(vask_p4_find_hw_meterid_by_upid(0), 0u);
}

TEST_F(FindMeter, HardwareIndexOfAnUnknownIdIsZero)
{
	ListMeter(1)->data.hw_meter_id = 11;

	EXPECT_EQ(vask_p4_find_hw_meterid_by_upid(2), 0u);
	EXPECT_EQ(vask_p4_find_meter_byid(2), nullptr);
}

TEST_F(FindMeter, IdsAreComparedAsFull32BitValues)
{
	ListMeter(0x80000001)->data.hw_meter_id = 11;

	EXPECT_EQ(vask_p4_find_hw_meterid_by_upid(1), 0u);
	EXPECT_EQ(vask_p4_find_hw_meterid_by_upid(0x80000001), 11u);
}

TEST_F(FindMeter, OlderOfTwoWithTheSameIdWins)
{
	auto *older = ListMeter(4);
	older->data.hw_meter_id = 11;
	ListMeter(4)->data.hw_meter_id = 22;

	EXPECT_EQ(vask_p4_find_meter_byid(4), older);
	EXPECT_EQ(vask_p4_find_hw_meterid_by_upid(4), 11u);
}

TEST_F(FindMeter, EmptyListGivesNullWithoutLogging)
{
	EXPECT_EQ(vask_p4_find_meter_byid(1), nullptr);
	EXPECT_EQ(vask_p4_find_hw_meterid_by_upid(1), 0u);
	EXPECT_THAT(trace, IsEmpty());
}

TEST_F(FindProfile, IsFoundAmongOthersWithADebugLine)
{
	ListProfile(1);
	auto *wanted = ListProfile(2);
	ListProfile(3);

	EXPECT_EQ(vask_p4_find_meter_profile_byid(2), wanted);
	EXPECT_THAT(trace,
		ElementsAre(Line(DEBUG,
			"[offload_smartnic] vask_p4_find_meter_profile_byid add meter find "
			"profile, id is 2\n")));
}

TEST_F(FindProfile, IdZeroFindsAProfileWhoseIdIsZero)
{
	ListProfile(1);
	auto *wanted = ListProfile(0);

	EXPECT_EQ(vask_p4_find_meter_profile_byid(0), wanted);
	EXPECT_THAT(trace,
		ElementsAre(Line(DEBUG,
			"[offload_smartnic] vask_p4_find_meter_profile_byid add meter find "
			"profile, id is 0\n")));
}

TEST_F(FindProfile, UnknownIdGivesNullWithoutLogging)
{
	ListProfile(1);

	EXPECT_EQ(vask_p4_find_meter_profile_byid(0x10001), nullptr);
	EXPECT_THAT(trace, IsEmpty());
}

TEST_F(FindProfile, OlderOfTwoWithTheSameIdWins)
{
	auto *older = ListProfile(4);
	ListProfile(4);

	EXPECT_EQ(vask_p4_find_meter_profile_byid(4), older);
}

TEST_F(FindProfile, EmptyListGivesNullWithoutLogging)
{
	EXPECT_EQ(vask_p4_find_meter_profile_byid(0), nullptr);
	EXPECT_THAT(trace, IsEmpty());
}

TEST_F(FindPolicy, IsFoundAmongOthersWithADebugLine)
{
	ListPolicy(1);
	auto *wanted = ListPolicy(0xFFFFFFFF);
	ListPolicy(3);

	EXPECT_EQ(vask_p4_find_meter_policy_byid(0xFFFFFFFF), wanted);
	/* ids are printed as signed numbers */
	EXPECT_THAT(trace,
		ElementsAre(Line(DEBUG,
			"[offload_smartnic] vask_p4_find_meter_policy_byid add meter find "
			"policy, id is -1\n")));
}

TEST_F(FindPolicy, IdZeroFindsTheDefaultPolicy)
{
	vask_p4_meter_policy_node *wanted = ListPolicy(0);

	EXPECT_EQ(vask_p4_find_meter_policy_byid(0), wanted);
	EXPECT_THAT(trace,
		ElementsAre(Line(DEBUG,
			"[offload_smartnic] vask_p4_find_meter_policy_byid add meter find "
			"policy, id is 0\n")));
}

TEST_F(FindPolicy, UnknownIdGivesNullWithoutLogging)
{
	ListPolicy(1);

	EXPECT_EQ(vask_p4_find_meter_policy_byid(2), nullptr);
	EXPECT_THAT(trace, IsEmpty());
}

TEST_F(FindPolicy, OlderOfTwoWithTheSameIdWins)
{
	auto *older = ListPolicy(4);
	ListPolicy(4);

	EXPECT_EQ(vask_p4_find_meter_policy_byid(4), older);
}

TEST_F(FindPolicy, EmptyListGivesNullWithoutLogging)
{
	EXPECT_EQ(vask_p4_find_meter_policy_byid(0), nullptr);
	EXPECT_THAT(trace, IsEmpty());
}

TEST_F(MeterCopy, KeepsTheProfileOfTheMomentOfCopyingUntilTheMeterIsRePointed)
{
	auto *profile = ListProfile(5);
	profile->data.cir = 1250000;
	ListPolicy(7);
	rte_mtr_params params = {};
	params.meter_profile_id = 5;
	params.meter_policy_id = 7;
	params.stats_mask = RTE_BIT64(62);
	ASSERT_EQ(vask_p4_meter_create(dev, 9, &params, 0, &error), 0);
	const vask_p4_meter_cfg_node *meter = vask_p4_find_meter_byid(9);
	ASSERT_NE(meter, nullptr);

	profile->data.cir = 2500000;
	EXPECT_EQ(meter->data.profile.cir, 1250000u);

	ASSERT_EQ(vask_p4_meter_profile_update(dev, 9, 5, &error), 0);
	EXPECT_EQ(meter->data.profile.cir, 2500000u);
}

} // namespace
