/* SPDX-License-Identifier: BSD-3-Clause */
/* Modification of rows of the P4 meter instance table. */
#include "meters.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;
using ::testing::ElementsAre;

namespace
{

/* Meter 9 on profile 5 and policy 7 is about to move to profile 6 (1,250,000 bytes/s) and policy 8. */
class InstanceModify : public MeterTest
{
      protected:
	InstanceModify() : next(AddProfile(6, 12, 1250000)), next_policy(AddPolicy(8, 14))
	{
		next->data.ref_cnt = 10;
		next_policy->data.ref_cnt = 20;
		entry.profile_id = 6;
		entry.policer_id = 8;
		entry.type = 1;
		StartOver();
	}

	vask_p4_meter_cfg_node *AddMeter(uint32_t dir)
	{
		auto *meter = MeterTest::AddMeter(dir);
		StartOver();
		return meter;
	}

	int Modify(uint32_t id = METER)
	{
		return talvora_p4_offload_meter_table_instance_mod(id, &entry);
	}

	static LogLine ModSays(uint32_t level, const std::string &text)
	{
		return Says(level, "talvora_p4_offload_meter_table_instance_mod", text);
	}

	static LogLine FoundProfile(const std::string &id)
	{
		return Says(RTE_LOG_DEBUG, "vask_p4_find_meter_profile_byid",
			"add meter find profile, id is " + id);
	}

	static LogLine FoundPolicy(const std::string &id)
	{
		return Says(RTE_LOG_DEBUG, "vask_p4_find_meter_policy_byid",
			"add meter find policy, id is " + id);
	}

	static std::vector<Event> AllFound()
	{
		return Events(
			FoundProfile("6"), FoundPolicy("8"), FoundProfile("5"), FoundPolicy("7"));
	}

	static std::vector<Event> IschProgrammed()
	{
		return Events(IschSet(1250000, 108),
			Says(RTE_LOG_ERR, "vask_p4_add_meter_cfg_2_hw",
				"add meter dpe shaper rate(100kbps) suc"));
	}

	static std::vector<Event> ShaperProgrammed()
	{
		return Events(ShaperSet(10000),
			Says(RTE_LOG_DEBUG, "vask_p4_add_meter_cfg_2_hw", "add meter shaper suc."));
	}

	static std::vector<Event> Moved()
	{
		return Events(ModSays(RTE_LOG_WARNING,
				      "[change ref]:src profile ref 0 new ref 11, src policy ref 0 "
				      "new ref 21"),
			ModSays(RTE_LOG_WARNING,
				"[meter]: mod meter 9, profle 6 --> hw meter: 21, hw profile 12"));
	}

	static LogLine Missing(const std::string &meter_to_policies)
	{
		return ModSays(RTE_LOG_ERR, "[mod meter]input id err, " + meter_to_policies);
	}

	void ExpectCounts(uint32_t old_profile, uint32_t new_profile, uint32_t old_policy,
		uint32_t new_policy)
	{
		EXPECT_EQ(profile->data.ref_cnt, old_profile);
		EXPECT_EQ(next->data.ref_cnt, new_profile);
		EXPECT_EQ(policy->data.ref_cnt, old_policy);
		EXPECT_EQ(next_policy->data.ref_cnt, new_policy);
	}

	vask_p4_meter_profile_node *const next;
	vask_p4_meter_policy_node *const next_policy;
	p4_meter_instance_t entry = {};
};

TEST_F(InstanceModify, ReceiveEntryRewritesTheRecordAndProgramsTheIschRegister)
{
	auto *meter = AddMeter(TX);
	meter->data.is_color_aware = 1;
	meter->data.is_ori_pktlen = 1;

	EXPECT_EQ(Modify(), 0);

	ExpectTrace(AllFound(), IschProgrammed(), Moved());
	ExpectCounts(0, 11, 0, 21);
	EXPECT_EQ(meter->data.meter_id, METER);
	EXPECT_EQ(meter->data.hw_meter_id, HW_METER);
	EXPECT_EQ(meter->data.port_sfi, SFI);
	EXPECT_EQ(meter->data.dir, RX);
	EXPECT_EQ(meter->data.enable, 1u) << "programming enables whatever was asked";
	EXPECT_EQ(meter->data.type, 1u);
	EXPECT_EQ(meter->data.is_color_aware, 0u);
	EXPECT_EQ(meter->data.is_ori_pktlen, 0u);
	EXPECT_EQ(meter->data.stats_mask, 0u);
	EXPECT_EQ(meter->data.off_hw_state, 2u);
	vask_p4_meter_profile copied = next->data;
	copied.ref_cnt = 10;
	EXPECT_EQ(Bytes(meter->data.profile), Bytes(copied));
	vask_p4_meter_policy copied_policy = next_policy->data;
	copied_policy.ref_cnt = 20;
	EXPECT_EQ(Bytes(meter->data.policy), Bytes(copied_policy));
	EXPECT_EQ(memory.count(), 0u);
}

TEST_F(InstanceModify, TransmitEntryRewritesTheRecordAndProgramsThePortShaper)
{
	auto *meter = AddMeter(RX);
	entry.dir = 1;
	entry.type = 0;
	entry.color_mode = 1;
	entry.origin_pkt = 1;
	entry.meter_enable = 1;
	entry.stats_mask = 0xA5;

	EXPECT_EQ(Modify(), 0);

	ExpectTrace(AllFound(), ShaperProgrammed(), Moved());
	EXPECT_EQ(meter->data.dir, TX);
	EXPECT_EQ(meter->data.type, 0u);
	EXPECT_EQ(meter->data.is_color_aware, 1u);
	EXPECT_EQ(meter->data.is_ori_pktlen, 1u);
	EXPECT_EQ(meter->data.stats_mask, 0xA5u);
}

TEST_F(InstanceModify, ModifyingABothSidesMeterToDir0LeavesTheTransmitShaperInPlace)
{
	auto *meter = AddMeter(BOTH);

	EXPECT_EQ(Modify(), 0);

	EXPECT_EQ(meter->data.dir, RX);
	EXPECT_THAT(card.calls(), ElementsAre(IschWrite(IschRecord(108))));
}

TEST_F(InstanceModify, ModifyingAMeterToItsOwnProfileAndPolicyKeepsTheCountsAndReprograms)
{
	AddMeter(RX);
	entry.profile_id = PROFILE;
	entry.policer_id = POLICY;

	EXPECT_EQ(Modify(), 0);

	ExpectTrace(FoundProfile("5"), FoundPolicy("7"), FoundProfile("5"), FoundPolicy("7"),
		IschSet(),
		Says(RTE_LOG_ERR, "vask_p4_add_meter_cfg_2_hw",
			"add meter dpe shaper rate(100kbps) suc"),
		ModSays(RTE_LOG_WARNING,
			"[change ref]:src profile ref 1 new ref 1, src policy ref 1 new ref 1"),
		ModSays(RTE_LOG_WARNING,
			"[meter]: mod meter 9, profle 5 --> hw meter: 21, hw profile 11"));
	ExpectCounts(1, 10, 1, 20);
}

TEST_F(InstanceModify, UnknownProfileIdLeavesTheMeterUnchanged)
{
	auto *meter = AddMeter(BOTH);
	const std::vector<uint8_t> before = Bytes(meter->data);
	entry.profile_id = 99;

	EXPECT_EQ(Modify(), -1);

	ExpectTrace(FoundPolicy("8"), FoundProfile("5"), FoundPolicy("7"),
		Missing("meter is 9, profile id 99, policy 8, src profile 5, src policy 7"));
	EXPECT_EQ(Bytes(meter->data), before);
	ExpectCounts(1, 10, 1, 20);
}

TEST_F(InstanceModify, UnknownPolicyIdLeavesTheMeterUnchanged)
{
	auto *meter = AddMeter(BOTH);
	const std::vector<uint8_t> before = Bytes(meter->data);
	entry.policer_id = 99;

	EXPECT_EQ(Modify(), -1);

	ExpectTrace(FoundProfile("6"), FoundProfile("5"), FoundPolicy("7"),
		Missing("meter is 9, profile id 6, policy 99, src profile 5, src policy 7"));
	EXPECT_EQ(Bytes(meter->data), before);
	ExpectCounts(1, 10, 1, 20);
}

TEST_F(InstanceModify, UnknownMeterIdReturnsMinusOneWithoutReadingAMeterRecord)
{
	EXPECT_EQ(Modify(10), -1);

	ExpectTrace(FoundProfile("6"), FoundPolicy("8"),
		Missing("meter is 10, profile id 6, policy 8, src profile 0, src policy 0"));
	ExpectCounts(0, 10, 0, 20);
}

/* The record that the call before found is gone by now. */
TEST_F(InstanceModify, MeterDestroyedSinceTheLastModificationIsUnknown)
{
	AddMeter(RX);
	ASSERT_EQ(Modify(), 0);
	ASSERT_EQ(talvora_p4_offload_meter_table_instance_del(METER), 0);

	EXPECT_EQ(Modify(), -1);

	EXPECT_EQ(log.lines().back(),
		Missing("meter is 9, profile id 6, policy 8, src profile 0, src policy 0"));
}

TEST_F(InstanceModify, MeterId0IsUnknownEvenWhenItExists)
{
	MeterTest::AddMeter(RX, 0);
	StartOver();

	EXPECT_EQ(Modify(0), -1);

	ExpectTrace(FoundProfile("6"), FoundPolicy("8"),
		Missing("meter is 0, profile id 6, policy 8, src profile 0, src policy 0"));
}

TEST_F(InstanceModify, SourceProfileThatIsGoneIsRefused)
{
	auto *meter = AddMeter(RX);
	meter->data.profile.profile_id = 70;

	EXPECT_EQ(Modify(), -1);

	ExpectTrace(FoundProfile("6"), FoundPolicy("8"), FoundPolicy("7"),
		Missing("meter is 9, profile id 6, policy 8, src profile 70, src policy 7"));
	ExpectCounts(1, 10, 1, 20);
}

TEST_F(InstanceModify, SourcePolicyThatIsGoneIsRefused)
{
	auto *meter = AddMeter(RX);
	meter->data.policy.policy_id = 71;

	EXPECT_EQ(Modify(), -1);

	ExpectTrace(FoundProfile("6"), FoundPolicy("8"), FoundProfile("5"),
		Missing("meter is 9, profile id 6, policy 8, src profile 5, src policy 71"));
	ExpectCounts(1, 10, 1, 20);
}

TEST_F(InstanceModify, NullEntryReturnsMinusOneAndChangesNothing)
{
	auto *meter = AddMeter(RX);
	const std::vector<uint8_t> before = Bytes(meter->data);

	EXPECT_EQ(talvora_p4_offload_meter_table_instance_mod(METER, nullptr), -1);

	ExpectTrace();
	EXPECT_EQ(Bytes(meter->data), before);
}

TEST_F(InstanceModify, FailedIschWriteKeepsTheRewrittenRecordAndMovesNoReference)
{
	auto *meter = AddMeter(TX);
	card.Fail(Op::IschWrite, 5);

	EXPECT_EQ(Modify(), -1);

	ExpectTrace(AllFound(), IschSet(1250000, 108),
		Says(RTE_LOG_ERR, "vask_p4_add_meter_cfg_2_hw",
			"add meter dpe isch shaper failed, rc = 5"),
		ModSays(RTE_LOG_ERR, "mod meter 9 to hw err"));
	ExpectCounts(1, 10, 1, 20);
	EXPECT_EQ(meter->data.profile.profile_id, 6u);
	EXPECT_EQ(meter->data.policy.policy_id, 8u);
	EXPECT_EQ(meter->data.dir, RX);
	EXPECT_EQ(meter->data.enable, 0u) << "as the entry asked";
	EXPECT_EQ(meter->data.off_hw_state, 1u);
}

TEST_F(InstanceModify, FailedShaperCommandKeepsTheRewrittenRecordAndMovesNoReference)
{
	auto *meter = AddMeter(RX);
	entry.dir = 1;
	entry.meter_enable = 1;
	card.Fail(Op::SetShaper, -5);

	EXPECT_EQ(Modify(), -1);

	ExpectTrace(AllFound(), ShaperSet(10000),
		Says(RTE_LOG_ERR, "vask_p4_add_meter_cfg_2_hw", "add meter shaper failed, rc = -5"),
		ModSays(RTE_LOG_ERR, "mod meter 9 to hw err"));
	ExpectCounts(1, 10, 1, 20);
	EXPECT_EQ(meter->data.dir, TX);
	EXPECT_EQ(meter->data.enable, 1u);
	EXPECT_EQ(meter->data.off_hw_state, 1u);
}

TEST_F(InstanceModify, SourceCountOf0WrapsBecauseNothingChecksIt)
{
	AddMeter(RX);
	profile->data.ref_cnt = 0;
	policy->data.ref_cnt = 0;

	EXPECT_EQ(Modify(), 0);

	ExpectCounts(0xFFFFFFFF, 11, 0xFFFFFFFF, 21);
}

TEST_F(InstanceModify, RecordsLockIsInitialisedAgain)
{
	auto *meter = AddMeter(RX);
	rte_spinlock_lock(&meter->data.sl);
	card.check_locks = false;

	EXPECT_EQ(Modify(), 0);

	EXPECT_FALSE(rte_spinlock_is_locked(&meter->data.sl));
}

TEST_F(InstanceModify, StaleEngineCopyIsClearedAndPipelineCopiesStay)
{
	auto *meter = AddMeter(RX);
	memset(&meter->data.mep_inst, 0xFF, sizeof(meter->data.mep_inst));
	memset(&meter->data.table, 0xFF, sizeof(meter->data.table));
	memset(&meter->data.table_inst, 0xFF, sizeof(meter->data.table_inst));

	EXPECT_EQ(Modify(), 0);

	EXPECT_EQ(Bytes(meter->data.mep_inst), std::vector<uint8_t>(32));
	EXPECT_EQ(Bytes(meter->data.table), std::vector<uint8_t>(16, 0xFF));
	EXPECT_EQ(Bytes(meter->data.table_inst), std::vector<uint8_t>(20, 0xFF));
}

} // namespace
