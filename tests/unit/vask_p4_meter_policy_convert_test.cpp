/* SPDX-License-Identifier: BSD-3-Clause */

/* Action lists: which are taken, and what they become in the driver's and in the engine's record. */

#include "actions.h"
#include "module_test.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

using PolicyValidate = ModuleTest;
using EnginePolicy = SeamTest;

const char TOO_MUCH[] = "meter action is too much";
const char NOT_SUPPORTED[] = "action type is not support";

LogLine
NotSupportedLine(int type)
{
	return Line(ERR,
		"[offload_smartnic] vask_p4_meter_policy_validate action type " +
			std::to_string(type) + " is not support\n");
}

TEST_F(PolicyValidate, AllThreeListsEmptyAreAccepted)
{
	Actions actions({}, {}, {});

	EXPECT_EQ(vask_p4_meter_policy_validate(dev, &actions.params, &error), 0);
	EXPECT_THAT(trace, IsEmpty());
	EXPECT_EQ(memory.count(), 0u);
	ExpectErrorUntouched(error);
}

TEST_F(PolicyValidate, NullListPointerIsAcceptedForEachColour)
{
	for (int colour = 0; colour < RTE_COLORS; colour++) {
		Actions actions({Drop()}, {Drop()}, {Drop()});
		actions.params.actions[colour] = nullptr;
		EXPECT_EQ(vask_p4_meter_policy_validate(dev, &actions.params, &error), 0) << colour;
	}
	rte_mtr_meter_policy_params none = {};
	EXPECT_EQ(vask_p4_meter_policy_validate(nullptr, &none, nullptr), 0);
}

TEST_F(PolicyValidate, TwoActionsInEachColourAreAcceptedInAnyCombination)
{
	const rte_flow_action dscp = Dscp(10);
	for (const ActionList &list : {ActionList{Drop(), Drop()}, ActionList{Drop(), dscp},
		     ActionList{dscp, Drop()}, ActionList{dscp, dscp}}) {
		Actions actions(list, list, list);
		EXPECT_EQ(vask_p4_meter_policy_validate(dev, &actions.params, &error), 0);
	}
	EXPECT_THAT(trace, IsEmpty());
}

TEST_F(PolicyValidate, ConfOfADscpActionIsNotExamined)
{
	Actions actions({}, {}, {{RTE_FLOW_ACTION_TYPE_SET_IPV4_DSCP, nullptr}});

	EXPECT_EQ(vask_p4_meter_policy_validate(dev, &actions.params, &error), 0);
}

TEST_F(PolicyValidate, ThirdActionInOneColourIsRefusedEvenWhenItIsDrop)
{
	const ActionList three = {Drop(), Dscp(1), Drop()};
	for (int colour = 0; colour < RTE_COLORS; colour++) {
		StartOver();
		ActionList lists[RTE_COLORS];
		lists[colour] = three;
		Actions actions(lists[0], lists[1], lists[2]);

		ExpectRefused(vask_p4_meter_policy_validate(dev, &actions.params, &error), error,
			RTE_MTR_ERROR_TYPE_METER_POLICY, TOO_MUCH);
		EXPECT_THAT(trace, IsEmpty()) << colour;
	}
}

TEST_F(PolicyValidate, ThirdActionIsRefusedForItsPlaceBeforeItsTypeIsLookedAt)
{
	Actions actions({Drop(), Drop(), Void()}, {}, {});

	ExpectRefused(vask_p4_meter_policy_validate(dev, &actions.params, &error), error,
		RTE_MTR_ERROR_TYPE_METER_POLICY, TOO_MUCH);
	EXPECT_THAT(trace, IsEmpty());
}

TEST_F(PolicyValidate, VoidAndIpv6DscpAreRefusedWithTheTypeNumberInTheLine)
{
	for (rte_flow_action_type type :
		{RTE_FLOW_ACTION_TYPE_VOID, RTE_FLOW_ACTION_TYPE_SET_IPV6_DSCP}) {
		for (int colour = 0; colour < RTE_COLORS; colour++) {
			StartOver();
			ActionList lists[RTE_COLORS];
			lists[colour] = {{type, nullptr}};
			Actions actions(lists[0], lists[1], lists[2]);

			ExpectRefused(vask_p4_meter_policy_validate(dev, &actions.params, &error),
				error, RTE_MTR_ERROR_TYPE_METER_POLICY, NOT_SUPPORTED);
			EXPECT_THAT(trace, ElementsAre(NotSupportedLine(type))) << colour;
		}
	}
}

TEST_F(PolicyValidate, VoidIsActionTypeOne)
{
	Actions actions({Void()}, {}, {});

	EXPECT_EQ(vask_p4_meter_policy_validate(dev, &actions.params, &error), -16);
	EXPECT_THAT(log.lines(), ElementsAre(NotSupportedLine(1)));
}

TEST_F(PolicyValidate, EveryTypeButDropAndIpv4DscpIsRefused)
{
	for (int type = RTE_FLOW_ACTION_TYPE_VOID; type <= RTE_FLOW_ACTION_TYPE_SET_IPV6_DSCP;
		type++) {
		if (type == RTE_FLOW_ACTION_TYPE_DROP || type == RTE_FLOW_ACTION_TYPE_SET_IPV4_DSCP)
			continue;
		StartOver();
		Actions actions(
			{}, {Drop(), {static_cast<rte_flow_action_type>(type), nullptr}}, {});
		ExpectRefused(vask_p4_meter_policy_validate(dev, &actions.params, &error), error,
			RTE_MTR_ERROR_TYPE_METER_POLICY, NOT_SUPPORTED);
		EXPECT_THAT(trace, ElementsAre(NotSupportedLine(type)));
	}
}

TEST_F(PolicyValidate, ColoursAreLookedAtFromGreenToRed)
{
	Actions actions({}, {Void()}, {Drop(), Drop(), Drop()});
	EXPECT_EQ(vask_p4_meter_policy_validate(dev, &actions.params, &error), -16);
	EXPECT_STREQ(error.message, NOT_SUPPORTED);

	Actions other({Drop(), Drop(), Drop()}, {Void()}, {});
	EXPECT_EQ(vask_p4_meter_policy_validate(dev, &other.params, &error), -16);
	EXPECT_STREQ(error.message, TOO_MUCH);
}

TEST_F(PolicyValidate, EachRefusalIsTheSameWithoutAnErrorRecord)
{
	Actions unsupported({Void()}, {}, {});
	Actions too_many({Drop(), Drop(), Drop()}, {}, {});
	for (Actions *actions : {&unsupported, &too_many}) {
		rte_errno = 0;
		EXPECT_EQ(vask_p4_meter_policy_validate(dev, &actions->params, nullptr), -16);
		EXPECT_EQ(rte_errno, 16);
	}
}

TEST_F(PolicyValidate, NullPolicyIsRefusedBeforeAnythingIsLogged)
{
	ExpectRefusedAsNull(vask_p4_meter_policy_validate(dev, nullptr, &error), error);
	EXPECT_EQ(vask_p4_meter_policy_validate(dev, nullptr, nullptr), -16);
	EXPECT_THAT(trace, IsEmpty());
}

/* The driver's record that a policy's lists become. */
class MappedPolicy : public ModuleTest
{
      protected:
	vask_p4_meter_policy Map(ActionList green, ActionList yellow, ActionList red)
	{
		Actions actions(std::move(green), std::move(yellow), std::move(red));
		EXPECT_EQ(vask_p4_meter_policy_add(dev, next_id_++, &actions.params, &error), 0);
		return TAILQ_LAST(&vask_p4_meter_policy_list, vask_p4_meter_policy_list_head)->data;
	}

      private:
	uint32_t next_id_ = 100;
};

TEST_F(MappedPolicy, GreenDropAndRedDscp10)
{
	const vask_p4_meter_policy policy = Map({Drop()}, {}, {Dscp(10)});

	EXPECT_EQ(policy.green_action, 2u);
	EXPECT_EQ(policy.green_dscp, 0u);
	EXPECT_EQ(policy.yellow_action, 0u);
	EXPECT_EQ(policy.yellow_dscp, 0u);
	EXPECT_EQ(policy.red_action, 1u);
	EXPECT_EQ(policy.red_dscp, 10u);
}

TEST_F(MappedPolicy, EachListFillsTheFieldsOfItsOwnColour)
{
	const vask_p4_meter_policy policy = Map({Dscp(11)}, {Dscp(22)}, {Dscp(33)});

	EXPECT_EQ(policy.green_dscp, 11u);
	EXPECT_EQ(policy.yellow_dscp, 22u);
	EXPECT_EQ(policy.red_dscp, 33u);
	EXPECT_EQ(policy.green_action, 1u);
	EXPECT_EQ(policy.yellow_action, 1u);
	EXPECT_EQ(policy.red_action, 1u);
}

TEST_F(MappedPolicy, AllThreeListsEmptyBecomeARecordOfZerosWithValidOne)
{
	const vask_p4_meter_policy policy = Map({}, {}, {});

	vask_p4_mep_meter_policy_table engine = {};
	engine.valid = 1;
	EXPECT_THAT(card.calls(Op::MepAddPolicy), ElementsAre(MepAddPolicy(0, 1, engine)));
	EXPECT_EQ(policy.green_action | policy.yellow_action | policy.red_action, 0u);
	EXPECT_EQ(policy.green_dscp | policy.yellow_dscp | policy.red_dscp, 0u);
}

/* Meant: the last action that writes a field wins, field by field. */
TEST_F(MappedPolicy, DscpThenDropLeavesDropWithTheDscpStillStored)
{
	const vask_p4_meter_policy policy = Map({Dscp(10), Drop()}, {}, {});

	EXPECT_EQ(policy.green_action, 2u);
	EXPECT_EQ(policy.green_dscp, 10u);
}

TEST_F(MappedPolicy, DropThenDscpLeavesDscp)
{
	const vask_p4_meter_policy policy = Map({}, {Drop(), Dscp(10)}, {});

	EXPECT_EQ(policy.yellow_action, 1u);
	EXPECT_EQ(policy.yellow_dscp, 10u);
}

TEST_F(MappedPolicy, OfTwoDscpActionsTheSecondValueStays)
{
	const vask_p4_meter_policy policy = Map({}, {}, {Dscp(10), Dscp(46)});

	EXPECT_EQ(policy.red_action, 1u);
	EXPECT_EQ(policy.red_dscp, 46u);
}

TEST_F(MappedPolicy, DscpByteAbove63IsKeptWholeAndOnlyItsLow6BitsReachTheEngine)
{
	const vask_p4_meter_policy policy = Map({Dscp(64)}, {Dscp(255)}, {Dscp(0x4A)});

	EXPECT_EQ(policy.green_dscp, 64u);
	EXPECT_EQ(policy.yellow_dscp, 255u);
	EXPECT_EQ(policy.red_dscp, 0x4Au);
	vask_p4_mep_meter_policy_table engine = {};
	engine.red_action = 1;
	engine.yellow_action = 1;
	engine.green_action = 1;
	engine.red_dscp = 0x0A;
	engine.yellow_dscp = 63;
	engine.green_dscp = 0;
	engine.valid = 1;
	EXPECT_THAT(card.calls(Op::MepAddPolicy), ElementsAre(MepAddPolicy(0, 1, engine)));
	EXPECT_EQ(Bytes(policy.policy), Bytes(engine));
}

vask_p4_meter_policy_node
PolicyNode()
{
	vask_p4_meter_policy_node node = {};
	node.data.red_action = 2;
	node.data.yellow_action = 1;
	node.data.yellow_dscp = 46;
	node.data.green_dscp = 3;
	return node;
}

vask_p4_mep_meter_policy_table
PolicyNodeInEngine()
{
	vask_p4_mep_meter_policy_table engine = {};
	engine.red_action = 2;
	engine.yellow_action = 1;
	engine.yellow_dscp = 46;
	engine.green_dscp = 3;
	engine.valid = 1;
	return engine;
}

const char CONVERTED[] =
	"[offload_smartnic] vask_p4_meter_convert_policy meter policy convert policy red_action "
	"2,\n";

TEST_F(EnginePolicy, IsWrittenToTheEngineAndKeptInTheRecord)
{
	for (int dir : {0, 1}) {
		StartOver();
		vask_p4_meter_policy_node node = PolicyNode();
		vask_p4_meter_policy expected = node.data;
		expected.policy = PolicyNodeInEngine();

		EXPECT_EQ(vask_p4_meter_convert_policy(dir, 77, &node), 0);

		EXPECT_THAT(trace,
			ElementsAre(Line(DEBUG, CONVERTED),
				MepAddPolicy(dir, 77, PolicyNodeInEngine())));
		EXPECT_EQ(Bytes(node.data), Bytes(expected));
	}
}

TEST_F(EnginePolicy, ActionsAreCutToTwoBits)
{
	vask_p4_meter_policy_node node = {};
	node.data.red_action = 5;
	node.data.yellow_action = 6;
	node.data.green_action = 7;

	EXPECT_EQ(vask_p4_meter_convert_policy(0, 1, &node), 0);

	vask_p4_mep_meter_policy_table engine = {};
	engine.red_action = 1;
	engine.yellow_action = 2;
	engine.green_action = 3;
	engine.valid = 1;
	EXPECT_EQ(Bytes(node.data.policy), Bytes(engine));
	/* the line tells the code as the engine gets it */
	EXPECT_THAT(log.lines(),
		ElementsAre(Line(DEBUG,
			"[offload_smartnic] vask_p4_meter_convert_policy meter policy convert "
			"policy red_action 1,\n")));
}

TEST_F(EnginePolicy, RefusedWriteIsLoggedAndLeavesTheRecordAsItWas)
{
	vask_p4_meter_policy_node node = PolicyNode();
	node.data.policy.rsv = 9;
	const vask_p4_meter_policy before = node.data;
	card.Fail(Op::MepAddPolicy, 64);

	EXPECT_EQ(vask_p4_meter_convert_policy(1, 12, &node), -1);

	EXPECT_THAT(trace,
		ElementsAre(Line(DEBUG, CONVERTED), MepAddPolicy(1, 12, PolicyNodeInEngine()),
			Line(ERR,
				"[offload_smartnic] vask_p4_meter_convert_policy meter add policy "
				"lmem or reg failed, rc = 64\n")));
	EXPECT_EQ(Bytes(node.data), Bytes(before));
}

} // namespace
