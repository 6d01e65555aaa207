/* SPDX-License-Identifier: BSD-3-Clause */
/* The P4 policer table. */
#include "meters.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

class PolicerTable : public MeterTest
{
      protected:
	PolicerTable()
	{
		entry.red_action = 2;
		entry.red_dscp = 1;
		entry.yellow_action = 1;
		entry.yellow_dscp = 20;
		entry.green_action = 3;
		entry.green_dscp = 63;
		card.HandOut(policy_index_mgr, {40});
	}

	/* What the engine gets for that entry. */
	static vask_p4_mep_meter_policy_table Engine()
	{
		vask_p4_mep_meter_policy_table record = {};
		record.red_action = 2;
		record.red_dscp = 1;
		record.yellow_action = 1;
		record.yellow_dscp = 20;
		record.green_action = 3;
		record.green_dscp = 63;
		record.valid = 1;
		return record;
	}

	static LogLine Converted()
	{
		return Says(RTE_LOG_DEBUG, "vask_p4_meter_convert_policy",
			"meter policy convert policy red_action 2,");
	}

	static std::vector<Event> WriteRefused()
	{
		return Events(Says(RTE_LOG_ERR, "vask_p4_meter_convert_policy",
				      "meter add policy lmem or reg failed, rc = 2"),
			Says(RTE_LOG_ERR, "vask_p4_meter_add_policy_2_hw",
				"imep meter add policy mep failed, rc = -1"));
	}

	static LogLine AddSays(uint32_t level, const std::string &text)
	{
		return Says(level, "talvora_p4_offload_meter_table_policer_add", text);
	}

	static LogLine ModSays(uint32_t level, const std::string &text)
	{
		return Says(level, "talvora_p4_offload_meter_table_policer_mod", text);
	}

	void ExpectFields(const vask_p4_meter_policy &record)
	{
		EXPECT_EQ(record.red_action, 2u);
		EXPECT_EQ(record.red_dscp, 1u);
		EXPECT_EQ(record.yellow_action, 1u);
		EXPECT_EQ(record.yellow_dscp, 20u);
		EXPECT_EQ(record.green_action, 3u);
		EXPECT_EQ(record.green_dscp, 63u);
	}

	p4_meter_policer_t entry = {};
};

TEST_F(PolicerTable, AddTakesAnIndexWritesTheIngressEngineAndLists)
{
	EXPECT_EQ(talvora_p4_offload_meter_table_policer_add(6, &entry), 0);

	ExpectTrace(PoolAlloc(policy_index_mgr, 40), Converted(), MepAddPolicy(0, 40, Engine()),
		AddSays(RTE_LOG_INFO,
			"talvora_p4_offload_meter_table_policer_add: priv add meter policy 6 to hw "
			"policy 40, red_action 2 red_dscp 1"));
	EXPECT_THAT(policy_ids(), ElementsAre(POLICY, 6u));
	const vask_p4_meter_policy &added = TAILQ_NEXT(policy, next)->data;
	ExpectFields(added);
	EXPECT_EQ(added.hw_policy_id, 40u);
	EXPECT_EQ(added.off_hw_state, 2u);
	EXPECT_EQ(added.ref_cnt, 0u);
	EXPECT_EQ(Bytes(added.policy), Bytes(Engine()));
}

TEST_F(PolicerTable, EntryWithActionCode3IsAcceptedAndProgrammed)
{
	entry = {};
	entry.red_action = 3;

	EXPECT_EQ(talvora_p4_offload_meter_table_policer_add(6, &entry), 0);

	vask_p4_mep_meter_policy_table record = {};
	record.red_action = 3;
	record.valid = 1;
	EXPECT_THAT(card.calls(Op::MepAddPolicy), ElementsAre(MepAddPolicy(0, 40, record)));
}

TEST_F(PolicerTable, SameConfigurationUnderAnotherIdIsAccepted)
{
	card.HandOut(policy_index_mgr, {40, 41});
	EXPECT_EQ(talvora_p4_offload_meter_table_policer_add(6, &entry), 0);
	EXPECT_EQ(talvora_p4_offload_meter_table_policer_add(8, &entry), 0);

	EXPECT_THAT(policy_ids(), ElementsAre(POLICY, 6u, 8u));
}

TEST_F(PolicerTable, IdInUseIsRefused)
{
	EXPECT_EQ(talvora_p4_offload_meter_table_policer_add(POLICY, &entry), -1);

	ExpectTrace(AddSays(RTE_LOG_ERR, "input meter policy id is existid; id is 7"));
	EXPECT_EQ(memory.count(), 0u);
	EXPECT_EQ(rte_errno, 0);
	EXPECT_THAT(policy_ids(), ElementsAre(POLICY));
}

TEST_F(PolicerTable, NullEntryIsRefusedBeforeAnythingIsAllocatedOrLogged)
{
	EXPECT_EQ(talvora_p4_offload_meter_table_policer_add(6, nullptr), -1);
	EXPECT_EQ(talvora_p4_offload_meter_table_policer_mod(POLICY, nullptr), -1);

	ExpectTrace();
	EXPECT_EQ(memory.count(), 0u);
	EXPECT_EQ(policy->data.red_action, 2u);
}

TEST_F(PolicerTable, NoMemoryReturnsMinusOneWithoutALine)
{
	memory.Fail();

	EXPECT_EQ(talvora_p4_offload_meter_table_policer_add(6, &entry), -1);

	ExpectTrace();
	EXPECT_THAT(policy_ids(), ElementsAre(POLICY));
}

TEST_F(PolicerTable, NoFreeIndexFreesTheNode)
{
	card.Fail(Op::PoolAlloc, 3);

	EXPECT_EQ(talvora_p4_offload_meter_table_policer_add(6, &entry), -1);

	ExpectTrace(PoolAlloc(policy_index_mgr, 0),
		Says(RTE_LOG_ERR, "vask_p4_meter_add_policy_2_hw",
			"meter get policy id failed, rc = 3"));
	EXPECT_THAT(policy_ids(), ElementsAre(POLICY));
}

TEST_F(PolicerTable, FailedWriteFreesTheNodeAndLeavesItsIndexTaken)
{
	card.Fail(Op::MepAddPolicy, 2);
	LeavesIndexTaken(policy_index_mgr, 40);

	EXPECT_EQ(talvora_p4_offload_meter_table_policer_add(6, &entry), -1);

	ExpectTrace(PoolAlloc(policy_index_mgr, 40), Converted(), MepAddPolicy(0, 40, Engine()),
		WriteRefused());
	EXPECT_THAT(policy_ids(), ElementsAre(POLICY));
	EXPECT_EQ(rte_errno, 0);
}

TEST_F(PolicerTable, Id0BelongsToTheDefaultPolicyFromInitialisationOn)
{
	vask_p4_meter_add_default_policy(0);
	StartOver();

	EXPECT_EQ(talvora_p4_offload_meter_table_policer_add(0, &entry), -1);

	ExpectTrace(AddSays(RTE_LOG_ERR, "input meter policy id is existid; id is 0"));
}

TEST_F(PolicerTable, Id0TakesHardwareIndex255WithoutThePoolWhenItIsFree)
{
	EXPECT_EQ(talvora_p4_offload_meter_table_policer_add(0, &entry), 0);

	EXPECT_THAT(card.calls(), ElementsAre(MepAddPolicy(0, 255, Engine())));
}

TEST_F(PolicerTable, ModifyRewritesTheRecordUnderItsHardwareIndexInUseOrNot)
{
	auto *meter = AddMeter(BOTH);
	StartOver();

	EXPECT_EQ(talvora_p4_offload_meter_table_policer_mod(POLICY, &entry), 0);

	ExpectTrace(Converted(), MepAddPolicy(0, HW_POLICY, Engine()),
		ModSays(RTE_LOG_INFO,
			"talvora_p4_offload_meter_table_policer_mod: priv mod meter policy 7 to hw "
			"policy 13, red_action 2 red_dscp 1"));
	ExpectFields(policy->data);
	EXPECT_EQ(policy->data.off_hw_state, 2u);
	EXPECT_EQ(policy->data.ref_cnt, 1u);
	EXPECT_EQ(Bytes(policy->data.policy), Bytes(Engine()));
	EXPECT_EQ(meter->data.policy.green_action, 0u) << "meters keep their own copy";
	EXPECT_EQ(memory.count(), 0u);
}

TEST_F(PolicerTable, ModifyingAnUnknownPolicerReturnsMinusOneAndChangesNothing)
{
	const std::vector<uint8_t> before = Bytes(policy->data);

	EXPECT_EQ(talvora_p4_offload_meter_table_policer_mod(6, &entry), -1);

	ExpectTrace(ModSays(RTE_LOG_ERR, "input meter policy id 6 not found"));
	EXPECT_EQ(Bytes(policy->data), before);
}

TEST_F(PolicerTable, FailedModifyKeepsTheNewValuesAndState1)
{
	card.Fail(Op::MepAddPolicy, 2);

	EXPECT_EQ(talvora_p4_offload_meter_table_policer_mod(POLICY, &entry), -1);

	ExpectTrace(Converted(), MepAddPolicy(0, HW_POLICY, Engine()), WriteRefused());
	ExpectFields(policy->data);
	EXPECT_EQ(policy->data.off_hw_state, 1u);
	EXPECT_EQ(policy->data.policy.green_action, 0u)
		<< "the copy of what the engine holds is the old one";
	EXPECT_EQ(policy->data.hw_policy_id, HW_POLICY);
}

TEST_F(PolicerTable, DeletingAPolicerStillUsedByAMeterReturnsMinusEbusy)
{
	AddMeter(BOTH);

	EXPECT_EQ(talvora_p4_offload_meter_table_policer_del(POLICY), -16);

	EXPECT_THAT(log.lines(RTE_LOG_INFO),
		ElementsAre(Says(RTE_LOG_ERR, "vask_p4_meter_policy_delete",
			"del meter policy ref cnt: 1 not 0")));
	EXPECT_THAT(policy_ids(), ElementsAre(POLICY));
}

TEST_F(PolicerTable, DeleteTakesThePolicyFromBothEnginesAndAnUnknownOneIsNoError)
{
	EXPECT_EQ(talvora_p4_offload_meter_table_policer_del(POLICY), 0);
	EXPECT_EQ(talvora_p4_offload_meter_table_policer_del(POLICY), 0);

	EXPECT_THAT(card.calls(),
		ElementsAre(MepDelPolicy(0, HW_POLICY), MepDelPolicy(1, HW_POLICY),
			PoolFree(policy_index_mgr, HW_POLICY)));
	EXPECT_THAT(policy_ids(), IsEmpty());
}

TEST_F(PolicerTable, DeleteThatAnEngineRefusesReturnsMinusEbusy)
{
	for (unsigned nth : {1u, 2u}) {
		card.ClearFaults();
		card.Fail(Op::MepDelPolicy, 9, nth);
		EXPECT_EQ(talvora_p4_offload_meter_table_policer_del(POLICY), -16);
		EXPECT_THAT(policy_ids(), ElementsAre(POLICY));
	}
}

} // namespace
