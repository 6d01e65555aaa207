/* SPDX-License-Identifier: BSD-3-Clause */

/* Policies added, programmed, counted, read back and deleted; the default policy. */

#include "actions.h"
#include "module_test.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

class PolicyTest : public ModuleTest
{
      protected:
	int Add(uint32_t id)
	{
		return vask_p4_meter_policy_add(dev, id, &actions.params, &error);
	}

	/* A policy that is in the card. */
	vask_p4_meter_policy_node *Added(uint32_t id)
	{
		EXPECT_EQ(Add(id), 0);
		vask_p4_meter_policy_node *node =
			TAILQ_LAST(&vask_p4_meter_policy_list, vask_p4_meter_policy_list_head);
		StartOver();
		return node;
	}

	std::vector<LogLine> Errors() const
	{
		return log.lines(ERR);
	}

	Actions actions{{}, {Dscp(20)}, {Drop()}};
};

using PolicyAdd = PolicyTest;
using PolicyToHw = PolicyTest;
using PolicyFromHw = PolicyTest;
using PolicyGet = PolicyTest;
using PolicyRefDec = PolicyTest;
using PolicyDelete = PolicyTest;
using DefaultPolicy = PolicyTest;

/* The engine's record of the fixture's lists. */
constexpr vask_p4_mep_meter_policy_table ENGINE_POLICY = {.red_action = 2,
	.yellow_action = 1,
	.green_action = 0,
	.red_dscp = 0,
	.yellow_dscp = 20,
	.green_dscp = 0,
	.cbnd = 0,
	.ebnd = 0,
	.rsv = 0,
	.valid = 1};

const char CONVERTED[] =
	"[offload_smartnic] vask_p4_meter_convert_policy meter policy convert policy red_action "
	"2,\n";

TEST_F(PolicyAdd, NewPolicyIsWrittenToTheIngressEngineAndListed)
{
	card.HandOut(policy_index_mgr, {31});

	EXPECT_EQ(Add(7), 0);

	EXPECT_THAT(trace,
		ElementsAre(PoolAlloc(policy_index_mgr, 31), Line(DEBUG, CONVERTED),
			MepAddPolicy(0, 31, ENGINE_POLICY),
			Line(INFO,
				"[offload_smartnic] vask_p4_meter_policy_add [policy]: add meter "
				"policy 7 to hw policy 31, red_action 2 red_dscp 0\n")));
	EXPECT_THAT(policy_ids(), ElementsAre(7));
	EXPECT_EQ(memory.count(), 1u);
	ExpectErrorUntouched(error);

	vask_p4_meter_policy expected = {};
	expected.yellow_dscp = 20;
	expected.yellow_action = 1;
	expected.red_action = 2;
	expected.policy_id = 7;
	expected.off_hw_state = 0; /* meant: this path does not tell the hardware state */
	expected.hw_policy_id = 31;
	expected.policy = ENGINE_POLICY;
	EXPECT_EQ(Bytes(TAILQ_FIRST(&vask_p4_meter_policy_list)->data), Bytes(expected));
}

TEST_F(PolicyAdd, LineTellsTheRedFieldsAsTheEngineHasThem)
{
	Actions red({}, {}, {Dscp(64 + 10)});
	EXPECT_EQ(vask_p4_meter_policy_add(dev, 0xFFFFFFFF, &red.params, &error), 0);

	EXPECT_EQ(log.lines().back(),
		Line(INFO,
			"[offload_smartnic] vask_p4_meter_policy_add [policy]: add meter policy -1 "
			"to hw policy 1, red_action 1 red_dscp 10\n"));
}

TEST_F(PolicyAdd, PoliciesAreListedInTheOrderInWhichTheyCame)
{
	for (uint32_t id : {9u, 3u, 7u})
		EXPECT_EQ(Add(id), 0);

	EXPECT_THAT(policy_ids(), ElementsAre(9, 3, 7));
}

TEST_F(PolicyAdd, NeitherDeviceNorErrorRecordIsNeeded)
{
	EXPECT_EQ(vask_p4_meter_policy_add(nullptr, 7, &actions.params, nullptr), 0);
	EXPECT_EQ(vask_p4_meter_policy_add(nullptr, 7, &actions.params, nullptr), -16);
	EXPECT_EQ(rte_errno, 16);

	EXPECT_THAT(card.calls(Op::PrivDataGet), IsEmpty());
}

TEST_F(PolicyAdd, NullListCountsAsAnEmptyOne)
{
	actions.params.actions[RTE_COLOR_GREEN] = nullptr;
	actions.params.actions[RTE_COLOR_YELLOW] = nullptr;

	EXPECT_EQ(Add(7), 0);

	vask_p4_mep_meter_policy_table engine = {};
	engine.red_action = 2;
	engine.valid = 1;
	EXPECT_THAT(card.calls(Op::MepAddPolicy), ElementsAre(MepAddPolicy(0, 1, engine)));

	rte_mtr_meter_policy_params none = {};
	EXPECT_EQ(vask_p4_meter_policy_add(dev, 8, &none, &error), 0);
}

TEST_F(PolicyAdd, TwoDifferentIdsWithIdenticalActionsAreBothAccepted)
{
	EXPECT_EQ(Add(7), 0);
	EXPECT_EQ(Add(8), 0);

	EXPECT_THAT(policy_ids(), ElementsAre(7, 8));
}

/* Meant: whole records are compared, ids and hardware indexes included, so that none ever matches. */
TEST_F(PolicyAdd, RecordThatDiffersInItsIdAloneIsAccepted)
{
	auto *twin = ListPolicy(6);
	twin->data.yellow_dscp = 20;
	twin->data.yellow_action = 1;
	twin->data.red_action = 2;

	EXPECT_EQ(Add(7), 0);

	EXPECT_THAT(policy_ids(), ElementsAre(6, 7));
	EXPECT_THAT(Errors(), IsEmpty());
}

TEST_F(PolicyAdd, IdsAreComparedAsFull32BitValues)
{
	EXPECT_EQ(Add(7), 0);
	EXPECT_EQ(Add(0x10007), 0);
	EXPECT_EQ(Add(0x80000007), 0);

	EXPECT_THAT(policy_ids(), ElementsAre(7, 0x10007, 0x80000007));
}

TEST_F(PolicyAdd, ListsThatDoNotValidateAreRefusedWithTheAddsOwnMessageAndNothingIsAllocated)
{
	Actions bad({}, {Void()}, {});
	ExpectRefused(vask_p4_meter_policy_add(dev, 7, &bad.params, &error), error,
		RTE_MTR_ERROR_TYPE_METER_POLICY, "validate policy action error");
	EXPECT_THAT(trace,
		ElementsAre(Line(ERR,
			"[offload_smartnic] vask_p4_meter_policy_validate action type 1 is not "
			"support\n")));

	StartOver();
	Actions many({Drop(), Drop(), Drop()}, {}, {});
	ExpectRefused(vask_p4_meter_policy_add(dev, 7, &many.params, &error), error,
		RTE_MTR_ERROR_TYPE_METER_POLICY, "validate policy action error");
	EXPECT_THAT(trace, IsEmpty());
	EXPECT_EQ(memory.count(), 0u);
	EXPECT_THAT(policy_ids(), IsEmpty());
}

TEST_F(PolicyAdd, NoMemoryIsRefusedSilently)
{
	memory.Fail();

	ExpectRefused(Add(7), error, RTE_MTR_ERROR_TYPE_UNSPECIFIED,
		"Cannot allocate memory for meter policy");

	EXPECT_THAT(trace, IsEmpty());
	EXPECT_THAT(policy_ids(), IsEmpty());
}

TEST_F(PolicyAdd, DscpActionWithoutConfIsRefusedAsAnUnsupportedActionAndTakesNoIndex)
{
	for (int colour = 0; colour < RTE_COLORS; colour++) {
		StartOver();
		ActionList lists[RTE_COLORS];
		lists[colour] = {{RTE_FLOW_ACTION_TYPE_SET_IPV4_DSCP, nullptr}};
		Actions bad(lists[0], lists[1], lists[2]);

		ExpectRefused(vask_p4_meter_policy_add(dev, 7, &bad.params, &error), error,
			RTE_MTR_ERROR_TYPE_METER_POLICY, "action type is not support");

		EXPECT_THAT(trace,
			ElementsAre(Line(ERR,
				"[offload_smartnic] vask_p4_meter_policy_add action type " +
					std::to_string(RTE_FLOW_ACTION_TYPE_SET_IPV4_DSCP) +
					" is not support\n")));
		EXPECT_EQ(memory.count(), 1u);
		EXPECT_THAT(policy_ids(), IsEmpty());
	}
}

/* The lists are read again after the allocation, and by then their owner may have changed them. */
TEST_F(PolicyAdd, ActionThatTurnsUnsupportedAfterValidationIsRefusedAndTheNodeFreed)
{
	memory.OnNext([this] { actions.lists[RTE_COLOR_RED][0] = Void(); });

	ExpectRefused(Add(7), error, RTE_MTR_ERROR_TYPE_METER_POLICY, "action type is not support");

	EXPECT_THAT(trace,
		ElementsAre(Line(ERR,
			"[offload_smartnic] vask_p4_meter_policy_add action type 1 is not "
			"support\n")));
	EXPECT_THAT(policy_ids(), IsEmpty());
}

TEST_F(PolicyAdd, ThirdActionThatAppearsAfterValidationIsRefusedAndTheNodeFreed)
{
	Actions longer({}, {}, {Drop(), Dscp(1), Void()});
	memory.OnNext([&] { actions.params = longer.params; });

	ExpectRefused(Add(7), error, RTE_MTR_ERROR_TYPE_METER_POLICY, "meter action is too much");

	EXPECT_THAT(trace, IsEmpty());
	EXPECT_THAT(policy_ids(), IsEmpty());
}

TEST_F(PolicyAdd, IdInUseIsRefusedAndTheListIsUnchanged)
{
	Added(6);
	Added(7);

	ExpectRefused(Add(7), error, RTE_MTR_ERROR_TYPE_METER_POLICY_ID,
		"input meter policy id is exist");

	/* no blank before the last "is": the text is so */
	EXPECT_THAT(trace,
		ElementsAre(Line(ERR,
			"[offload_smartnic] vask_p4_meter_policy_add input meter policy id is "
			"existid is 7\n")));
	EXPECT_EQ(memory.count(), 1u) << "the new node, freed again";
	EXPECT_THAT(policy_ids(), ElementsAre(6, 7));
}

TEST_F(PolicyAdd, EmptyPoolIsRefusedAndNothingIsWritten)
{
	card.Fail(Op::PoolAlloc, -7);

	ExpectRefused(Add(7), error, RTE_MTR_ERROR_TYPE_METER_POLICY,
		"meter policy offload hw not success");

	EXPECT_THAT(trace,
		ElementsAre(PoolAlloc(policy_index_mgr, 0),
			Line(ERR,
				"[offload_smartnic] vask_p4_meter_add_policy_2_hw meter get policy "
				"id failed, rc = -7\n")));
	EXPECT_THAT(policy_ids(), IsEmpty());
}

TEST_F(PolicyAdd, PoolThatHasReallyRunDryIsRefusedButIdZeroStillFinds255)
{
	card.Drain(policy_index_mgr);

	EXPECT_EQ(Add(7), -16);
	EXPECT_EQ(Add(0), 0);

	EXPECT_EQ(TAILQ_FIRST(&vask_p4_meter_policy_list)->data.hw_policy_id, 255u);
}

/* Meant: what was taken from the pool stays taken. */
TEST_F(PolicyAdd, RefusedEngineWriteFreesTheNodeAndKeepsTheHardwareIdTaken)
{
	card.Fail(Op::MepAddPolicy, 37);
	LeavesIndexTaken(policy_index_mgr, 1);

	ExpectRefused(Add(7), error, RTE_MTR_ERROR_TYPE_METER_POLICY,
		"meter policy offload hw not success");

	EXPECT_THAT(trace,
		ElementsAre(PoolAlloc(policy_index_mgr, 1), Line(DEBUG, CONVERTED),
			MepAddPolicy(0, 1, ENGINE_POLICY),
			Line(ERR,
				"[offload_smartnic] vask_p4_meter_convert_policy meter add policy "
				"lmem or reg failed, rc = 37\n"),
			Line(ERR,
				"[offload_smartnic] vask_p4_meter_add_policy_2_hw imep meter add "
				"policy mep failed, rc = -1\n")));
	EXPECT_THAT(policy_ids(), IsEmpty());

	EXPECT_EQ(Add(7), 0);
	EXPECT_EQ(TAILQ_FIRST(&vask_p4_meter_policy_list)->data.hw_policy_id, 2u);
}

TEST_F(PolicyAdd, EachRefusalIsTheSameWithoutAnErrorRecord)
{
	const auto refused = [this](uint32_t id, rte_mtr_meter_policy_params &params) {
		rte_errno = 0;
		EXPECT_EQ(vask_p4_meter_policy_add(dev, id, &params, nullptr), -16);
		EXPECT_EQ(rte_errno, 16);
	};
	Actions unsupported({}, {}, {Void()});
	Actions no_conf({}, {}, {{RTE_FLOW_ACTION_TYPE_SET_IPV4_DSCP, nullptr}});
	Actions too_many({}, {}, {Drop(), Drop(), Drop()});
	Actions changing({}, {}, {Drop()});

	Added(6);
	refused(6, actions.params);
	refused(7, unsupported.params);
	refused(7, no_conf.params);
	refused(7, too_many.params);
	memory.Fail();
	refused(7, actions.params);
	memory.OnNext([&] { changing.params = too_many.params; });
	refused(7, changing.params);
	card.Fail(Op::PoolAlloc, 1);
	refused(7, actions.params);
	EXPECT_THAT(policy_ids(), ElementsAre(6));
}

TEST_F(PolicyAdd, NullPolicyIsRefusedBeforeAnythingIsLoggedOrAllocated)
{
	ExpectRefusedAsNull(vask_p4_meter_policy_add(dev, 7, nullptr, &error), error);
	EXPECT_EQ(vask_p4_meter_policy_add(dev, 7, nullptr, nullptr), -16);

	EXPECT_THAT(trace, IsEmpty());
	EXPECT_EQ(memory.count(), 0u);
}

TEST_F(PolicyToHw, CalledTwiceOnOneNodeWritesTheIngressEngineTwiceWithTheSameHardwareId)
{
	auto *node = ListPolicy(7);
	node->data.red_action = 2;
	node->data.yellow_action = 1;
	node->data.yellow_dscp = 20;

	EXPECT_EQ(vask_p4_meter_add_policy_2_hw(node), 0);
	EXPECT_EQ(vask_p4_meter_add_policy_2_hw(node), 0);

	EXPECT_EQ(node->data.hw_policy_id, 1u);
	EXPECT_THAT(trace,
		ElementsAre(PoolAlloc(policy_index_mgr, 1), Line(DEBUG, CONVERTED),
			MepAddPolicy(0, 1, ENGINE_POLICY), Line(DEBUG, CONVERTED),
			MepAddPolicy(0, 1, ENGINE_POLICY)));
}

TEST_F(PolicyToHw, RefusedAllocationReturnsMinusOneAndKeepsNoId)
{
	auto *node = ListPolicy(7);
	card.Fail(Op::PoolAlloc, 3);

	EXPECT_EQ(vask_p4_meter_add_policy_2_hw(node), -1);

	EXPECT_EQ(node->data.hw_policy_id, 0u);
	EXPECT_EQ(card.LocksHeld(), 0u);
}

TEST_F(PolicyToHw, RefusedWriteReturnsTheConversionsMinusOneAndKeepsTheId)
{
	auto *node = ListPolicy(7);
	card.Fail(Op::MepAddPolicy, 99);

	EXPECT_EQ(vask_p4_meter_add_policy_2_hw(node), -1);

	EXPECT_EQ(node->data.hw_policy_id, 1u);
}

TEST_F(PolicyFromHw, ClearsIngressThenEgressGivesTheIdBackAndZeroesTheRecord)
{
	Added(6);
	auto *node = Added(7);

	EXPECT_EQ(vask_p4_meter_del_policy_2_hw(node), 0);

	EXPECT_THAT(trace,
		ElementsAre(MepDelPolicy(0, 2), MepDelPolicy(1, 2), PoolFree(policy_index_mgr, 2)));
	EXPECT_EQ(Bytes(node->data), Bytes(vask_p4_meter_policy{}));
	EXPECT_THAT(policy_ids(), ElementsAre(6, 0)) << "the links stay";
}

TEST_F(PolicyFromHw, RefusedIngressDeleteChangesNothing)
{
	auto *node = Added(7);
	const vask_p4_meter_policy before = node->data;
	card.Fail(Op::MepDelPolicy, 41);

	EXPECT_EQ(vask_p4_meter_del_policy_2_hw(node), 41);

	EXPECT_THAT(trace,
		ElementsAre(MepDelPolicy(0, 1),
			Line(ERR,
				"[offload_smartnic] vask_p4_meter_del_policy_2_hw imep meter del "
				"policy mep failed, rc = 41\n")));
	EXPECT_EQ(Bytes(node->data), Bytes(before));
}

TEST_F(PolicyFromHw, RefusedEgressDeleteKeepsTheIdThoughTheIngressEntryIsGone)
{
	auto *node = Added(7);
	const vask_p4_meter_policy before = node->data;
	card.Fail(Op::MepDelPolicy, -42, 2);

	EXPECT_EQ(vask_p4_meter_del_policy_2_hw(node), -42);

	EXPECT_THAT(trace,
		ElementsAre(MepDelPolicy(0, 1), MepDelPolicy(1, 1),
			Line(ERR,
				"[offload_smartnic] vask_p4_meter_del_policy_2_hw emep meter del "
				"policy mep failed, rc = -42\n")));
	EXPECT_EQ(Bytes(node->data), Bytes(before));
}

TEST_F(PolicyFromHw, ResultOfGivingTheIdBackIsIgnored)
{
	auto *node = Added(7);
	card.Fail(Op::PoolFree, -1);
	LeavesIndexTaken(policy_index_mgr, 1);

	EXPECT_EQ(vask_p4_meter_del_policy_2_hw(node), 0);

	EXPECT_EQ(node->data.hw_policy_id, 0u);
	EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PolicyGet, PolicyIsFoundAmongOthersWithALineOfItsActions)
{
	ListPolicy(6);
	auto *wanted = ListPolicy(0xFFFFFFFF);
	wanted->data.red_action = 2;
	wanted->data.yellow_action = 1;
	wanted->data.green_action = 3;

	EXPECT_EQ(vask_p4_meter_get_policy(0xFFFFFFFF), wanted);
	EXPECT_THAT(trace,
		ElementsAre(Line(INFO,
			"[offload_smartnic] vask_p4_meter_get_policy meter get policy 4294967295 "
			"ok. r_act:2,y_act:1,g_act:3\n")));
}

TEST_F(PolicyGet, OlderOfTwoWithTheSameIdWins)
{
	auto *older = ListPolicy(7);
	ListPolicy(7);

	EXPECT_EQ(vask_p4_meter_get_policy(7), older);
	EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(PolicyGet, UnknownIdGivesNullWithoutALine)
{
	ListPolicy(7);

	EXPECT_EQ(vask_p4_meter_get_policy(8), nullptr);
	EXPECT_THAT(trace, IsEmpty());
}

TEST_F(PolicyRefDec, LowersTheCountOfThatPolicyAloneAndNeverDeletesIt)
{
	auto *other = ListPolicy(6);
	auto *node = ListPolicy(7);
	other->data.ref_cnt = 8;
	node->data.ref_cnt = 2;

	EXPECT_EQ(vask_p4_meter_policy_ref_dec(dev, 7, &error), 0);
	EXPECT_EQ(vask_p4_meter_policy_ref_dec(dev, 7, &error), 0);

	EXPECT_EQ(node->data.ref_cnt, 0u);
	EXPECT_EQ(other->data.ref_cnt, 8u);
	EXPECT_THAT(policy_ids(), ElementsAre(6, 7));
	EXPECT_THAT(trace,
		ElementsAre(
			Line(INFO,
				"[offload_smartnic] vask_p4_meter_policy_ref_dec dec meter policy "
				"ref cnt: 1\n"),
			Line(INFO,
				"[offload_smartnic] vask_p4_meter_policy_ref_dec dec meter policy "
				"ref cnt: 0\n")));
	ExpectErrorUntouched(error);
}

TEST_F(PolicyRefDec, CountThatIsAlreadyZeroStaysZeroIsLoggedAsAnErrorAndReturnsZero)
{
	auto *node = ListPolicy(7);

	EXPECT_EQ(vask_p4_meter_policy_ref_dec(nullptr, 7, nullptr), 0);

	EXPECT_EQ(node->data.ref_cnt, 0u);
	EXPECT_THAT(trace,
		ElementsAre(Line(ERR,
			"[offload_smartnic] vask_p4_meter_policy_ref_dec dec meter policy ref cnt "
			"0 err\n")));
}

TEST_F(PolicyRefDec, UnknownPolicyIsLeftAloneSilently)
{
	auto *node = ListPolicy(7);
	node->data.ref_cnt = 1;

	EXPECT_EQ(vask_p4_meter_policy_ref_dec(dev, 8, &error), 0);

	EXPECT_EQ(node->data.ref_cnt, 1u);
	EXPECT_THAT(trace, IsEmpty());
}

TEST_F(PolicyDelete, PolicyIsClearedInBothEnginesUnlinkedAndFreedAndItsIndexReturns)
{
	Added(6);
	Added(7);
	Added(8);

	EXPECT_EQ(vask_p4_meter_policy_delete(dev, 7, &error), 0);

	EXPECT_THAT(trace,
		ElementsAre(MepDelPolicy(0, 2), MepDelPolicy(1, 2), PoolFree(policy_index_mgr, 2),
			Line(INFO,
				"[offload_smartnic] vask_p4_meter_policy_delete del meter policy id "
				"suc, id is 7\n")));
	EXPECT_THAT(policy_ids(), ElementsAre(6, 8));
	EXPECT_EQ(Added(9)->data.hw_policy_id, 2u);
}

TEST_F(PolicyDelete, UnknownIdReturnsZeroAndLogsAtInfo)
{
	Added(7);

	EXPECT_EQ(vask_p4_meter_policy_delete(dev, 8, &error), 0);

	EXPECT_THAT(trace,
		ElementsAre(Line(INFO,
			"[offload_smartnic] vask_p4_meter_policy_delete del meter policy id not "
			"found, id is 8\n")));
	EXPECT_THAT(policy_ids(), ElementsAre(7));
	ExpectErrorUntouched(error);
}

TEST_F(PolicyDelete, PolicyThatAMeterStillUsesIsRefusedAndStaysUsable)
{
	auto *node = Added(7);
	node->data.ref_cnt = 3;
	const vask_p4_meter_policy before = node->data;

	ExpectRefused(vask_p4_meter_policy_delete(dev, 7, &error), error,
		RTE_MTR_ERROR_TYPE_METER_POLICY, "meter policy reference not 0!");

	EXPECT_THAT(trace,
		ElementsAre(Line(ERR,
			"[offload_smartnic] vask_p4_meter_policy_delete del meter policy ref cnt: "
			"3 not 0\n")));
	EXPECT_EQ(Bytes(node->data), Bytes(before));
	EXPECT_EQ(vask_p4_meter_get_policy(7), node);
}

TEST_F(PolicyDelete, RefusedIngressDeleteIsLoggedTwiceAndKeepsTheNode)
{
	auto *node = Added(7);
	const vask_p4_meter_policy before = node->data;
	card.Fail(Op::MepDelPolicy, 41);

	ExpectRefused(vask_p4_meter_policy_delete(dev, 7, &error), error,
		RTE_MTR_ERROR_TYPE_METER_POLICY, "del meter policy id failed");

	EXPECT_THAT(trace,
		ElementsAre(MepDelPolicy(0, 1),
			Line(ERR,
				"[offload_smartnic] vask_p4_meter_del_policy_2_hw imep meter del "
				"policy mep failed, rc = 41\n"),
			Line(ERR,
				"[offload_smartnic] vask_p4_meter_policy_delete del meter policy id "
				"failed, rc is 41\n")));
	EXPECT_EQ(Bytes(node->data), Bytes(before));
	EXPECT_THAT(policy_ids(), ElementsAre(7));
}

TEST_F(PolicyDelete, RefusedEgressDeleteKeepsTheNodeAndASecondAttemptRepeatsBoth)
{
	auto *node = Added(7);
	const vask_p4_meter_policy before = node->data;
	card.Fail(Op::MepDelPolicy, 42, 2);

	ExpectRefused(vask_p4_meter_policy_delete(dev, 7, &error), error,
		RTE_MTR_ERROR_TYPE_METER_POLICY, "del meter policy id failed");
	EXPECT_THAT(Errors(),
		ElementsAre(Line(ERR,
				    "[offload_smartnic] vask_p4_meter_del_policy_2_hw emep meter "
				    "del policy mep failed, rc = 42\n"),
			Line(ERR,
				"[offload_smartnic] vask_p4_meter_policy_delete del meter policy id "
				"failed, rc is 42\n")));
	EXPECT_EQ(Bytes(node->data), Bytes(before));

	StartOver();
	EXPECT_EQ(vask_p4_meter_policy_delete(dev, 7, &error), 0);
	EXPECT_THAT(card.calls(),
		ElementsAre(MepDelPolicy(0, 1), MepDelPolicy(1, 1), PoolFree(policy_index_mgr, 1)));
	EXPECT_THAT(policy_ids(), IsEmpty());
}

TEST_F(PolicyDelete, NeitherDeviceNorErrorRecordIsNeeded)
{
	auto *node = Added(7);
	node->data.ref_cnt = 1;

	EXPECT_EQ(vask_p4_meter_policy_delete(nullptr, 7, nullptr), -16);
	EXPECT_EQ(rte_errno, 16);
	node->data.ref_cnt = 0;
	rte_errno = 0;
	card.Fail(Op::MepDelPolicy, 1);
	EXPECT_EQ(vask_p4_meter_policy_delete(nullptr, 7, nullptr), -16);
	EXPECT_EQ(rte_errno, 16);
	EXPECT_EQ(vask_p4_meter_policy_delete(nullptr, 7, nullptr), 0);
}

TEST_F(DefaultPolicy, TakesHardwareIndex255WithoutTouchingThePool)
{
	vask_p4_meter_add_default_policy(0);

	vask_p4_mep_meter_policy_table engine = {};
	engine.red_action = 2;
	engine.valid = 1;
	EXPECT_THAT(trace,
		ElementsAre(Line(DEBUG, CONVERTED), MepAddPolicy(0, 255, engine),
			Line(INFO,
				"[offload_smartnic] vask_p4_meter_policy_add [policy]: add meter "
				"policy 0 to hw policy 255, red_action 2 red_dscp 0\n")));

	vask_p4_meter_policy expected = {};
	expected.red_action = 2;
	expected.hw_policy_id = 255;
	expected.policy = engine;
	ASSERT_THAT(policy_ids(), ElementsAre(0));
	EXPECT_EQ(Bytes(TAILQ_FIRST(&vask_p4_meter_policy_list)->data), Bytes(expected));
}

TEST_F(DefaultPolicy, OnceItExistsAnyLaterAddOfIdZeroIsRefused)
{
	vask_p4_meter_add_default_policy(0);
	StartOver();

	ExpectRefused(Add(0), error, RTE_MTR_ERROR_TYPE_METER_POLICY_ID,
		"input meter policy id is exist");
	EXPECT_THAT(policy_ids(), ElementsAre(0));

	vask_p4_meter_add_default_policy(0);
	EXPECT_THAT(policy_ids(), ElementsAre(0));
}

TEST_F(DefaultPolicy, UnderAnotherIdItTakesItsIndexFromThePool)
{
	vask_p4_meter_add_default_policy(12);

	EXPECT_THAT(card.calls(Op::PoolAlloc), ElementsAre(PoolAlloc(policy_index_mgr, 1)));
	EXPECT_THAT(policy_ids(), ElementsAre(12));
}

TEST_F(DefaultPolicy, FailureIsOnlyLogged)
{
	card.FailEvery(Op::MepAddPolicy, 1);
	vask_p4_meter_add_default_policy(0);
	EXPECT_EQ(Errors().size(), 2u);

	StartOver();
	memory.FailEvery();
	vask_p4_meter_add_default_policy(0);
	EXPECT_THAT(trace, IsEmpty());
	EXPECT_THAT(policy_ids(), IsEmpty());
}

TEST_F(DefaultPolicy, DeletedItReturns255ToThePoolWhereOthersMayTakeIt)
{
	vask_p4_meter_add_default_policy(0);
	StartOver();

	EXPECT_EQ(vask_p4_meter_policy_delete(dev, 0, &error), 0);

	EXPECT_THAT(card.calls(),
		ElementsAre(MepDelPolicy(0, 255), MepDelPolicy(1, 255),
			PoolFree(policy_index_mgr, 255)));
	card.HandOut(policy_index_mgr, {255});
	EXPECT_EQ(Added(7)->data.hw_policy_id, 255u);
}

} // namespace
