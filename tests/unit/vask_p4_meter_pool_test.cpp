/* SPDX-License-Identifier: BSD-3-Clause */

/* Index pools: start, stop, and the three wrappers. */

#include "module_test.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

using PoolStart = SeamTest;
using PoolStop = SeamTest;

/* The wrappers alone: no record's lock is held around them here. */
class PoolWrapper : public ModuleTest
{
      protected:
	PoolWrapper()
	{
		card.check_locks = false;
	}

	/* Takes indexes until none is left, gives them back, and tells which came. */
	std::set<uint32_t> TakeAll(VASK_P4_INDEXSTACK_MANAGER *pool)
	{
		std::set<uint32_t> taken;
		uint32_t index = 0;
		while (vask_p4_get_meter_index(pool, &index) == 0)
			EXPECT_TRUE(taken.insert(index).second) << index << " came twice";
		for (uint32_t one : taken)
			EXPECT_EQ(vask_p4_meter_free_index(pool, one), 0);
		return taken;
	}
};

constexpr vask_p4_mep_meter_policy_table DROP_RED = {.red_action = 2,
	.yellow_action = 0,
	.green_action = 0,
	.red_dscp = 0,
	.yellow_dscp = 0,
	.green_dscp = 0,
	.cbnd = 0,
	.ebnd = 0,
	.rsv = 0,
	.valid = 1};

const char CREATE_FAILED[] =
	"[offload_smartnic] vask_p4_meter_indexstack_init create indexstack for meter index pool "
	"failed.\n";

TEST_F(PoolStart, PoolsAreNullBeforeIt)
{
	EXPECT_EQ(meter_index_mgr, nullptr);
	EXPECT_EQ(profile_index_mgr, nullptr);
	EXPECT_EQ(policy_index_mgr, nullptr);
}

TEST_F(PoolStart, PoolsAreCreatedThenIndexesReservedThenTheDefaultPolicyIsAdded)
{
	EXPECT_EQ(vask_p4_meter_indexstack_init(), 0);

	EXPECT_THAT(trace,
		ElementsAre(PoolCreate(4096), PoolCreate(256), PoolCreate(256),
			PoolSet(meter_index_mgr, 0), PoolSet(profile_index_mgr, 0),
			PoolSet(policy_index_mgr, 0), PoolSet(policy_index_mgr, 255),
			Line(DEBUG,
				"[offload_smartnic] vask_p4_meter_convert_policy meter policy "
				"convert policy red_action 2,\n"),
			MepAddPolicy(0, 255, DROP_RED),
			Line(INFO,
				"[offload_smartnic] vask_p4_meter_policy_add [policy]: add meter "
				"policy 0 to hw policy 255, red_action 2 red_dscp 0\n")));
	EXPECT_EQ(card.pool(meter_index_mgr).capacity, 4096u);
	EXPECT_EQ(card.pool(profile_index_mgr).capacity, 256u);
	EXPECT_EQ(card.pool(policy_index_mgr).capacity, 256u);
	EXPECT_NE(profile_index_mgr, policy_index_mgr);
	EXPECT_THAT(policy_ids(), ElementsAre(0));
	EXPECT_THAT(profile_ids(), IsEmpty());
	EXPECT_THAT(meter_ids(), IsEmpty());
}

/* Which of the three creations fail, as bits. */
class PoolStartFailure : public PoolStart, public ::testing::WithParamInterface<unsigned>
{
};

TEST_P(PoolStartFailure, AllThreeAreAttemptedOneLineIsLoggedAndNothingMoreIsDone)
{
	const unsigned failing = GetParam();
	for (unsigned i = 0; i < 3; i++)
		if (failing & (1u << i))
			card.Fail(Op::PoolCreate, -12, i + 1);

	EXPECT_EQ(vask_p4_meter_indexstack_init(), -1);

	EXPECT_THAT(trace,
		ElementsAre(PoolCreate(4096), PoolCreate(256), PoolCreate(256),
			Line(ERR, CREATE_FAILED)));
	EXPECT_EQ(meter_index_mgr == nullptr, (failing & 1) != 0);
	EXPECT_EQ(profile_index_mgr == nullptr, (failing & 2) != 0);
	EXPECT_EQ(policy_index_mgr == nullptr, (failing & 4) != 0);
	for (const auto &pool : card.pools())
		EXPECT_FALSE(pool->destroyed);
	EXPECT_THAT(policy_ids(), IsEmpty());
	EXPECT_EQ(memory.count(), 0u);
}

INSTANTIATE_TEST_SUITE_P(EachSetOfFailingPools, PoolStartFailure, ::testing::Range(1u, 8u));

TEST_F(PoolStart,
	IfOnlyThePolicyPoolFailsItStillReturnsMinusOneWithOneLineAndTheFirstTwoPoolsRemain)
{
	card.Fail(Op::PoolCreate, 1, 3);

	EXPECT_EQ(vask_p4_meter_indexstack_init(), -1);

	EXPECT_THAT(log.lines(), ElementsAre(Line(ERR, CREATE_FAILED)));
	ASSERT_EQ(card.pools().size(), 2u);
	EXPECT_EQ(meter_index_mgr, &card.pools()[0]->manager);
	EXPECT_EQ(profile_index_mgr, &card.pools()[1]->manager);
	EXPECT_EQ(policy_index_mgr, nullptr);
	EXPECT_THAT(card.calls(Op::PoolDestroy), IsEmpty());
}

TEST_F(PoolStart, ADefaultPolicyThatTheCardRefusesDoesNotFailIt)
{
	card.Fail(Op::MepAddPolicy, -5);

	EXPECT_EQ(vask_p4_meter_indexstack_init(), 0);

	EXPECT_THAT(policy_ids(), IsEmpty());
	EXPECT_THAT(log.lines(ERR),
		ElementsAre(
			Line(ERR,
				"[offload_smartnic] vask_p4_meter_convert_policy meter add policy "
				"lmem or reg failed, rc = -5\n"),
			Line(ERR,
				"[offload_smartnic] vask_p4_meter_add_policy_2_hw imep meter add "
				"policy mep failed, rc = -1\n")));
}

TEST_F(PoolStart, NoMemoryForTheDefaultPolicyDoesNotFailIt)
{
	memory.Fail();

	EXPECT_EQ(vask_p4_meter_indexstack_init(), 0);

	EXPECT_EQ(memory.count(), 1u);
	EXPECT_THAT(policy_ids(), IsEmpty());
	EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PoolStop, PoolsAreDestroyedInOrderPointersStayAndListsAreNotEmptied)
{
	ASSERT_EQ(vask_p4_meter_indexstack_init(), 0);
	ListProfile(5);
	ListMeter(9);
	const auto *meters = meter_index_mgr;
	const auto *profiles = profile_index_mgr;
	const auto *policies = policy_index_mgr;
	StartOver();

	vask_p4_meter_indexstack_destory();

	EXPECT_THAT(trace,
		ElementsAre(PoolDestroy(meters), PoolDestroy(profiles), PoolDestroy(policies)));
	EXPECT_EQ(meter_index_mgr, meters);
	EXPECT_EQ(profile_index_mgr, profiles);
	EXPECT_EQ(policy_index_mgr, policies);
	EXPECT_THAT(profile_ids(), ElementsAre(5));
	EXPECT_THAT(policy_ids(), ElementsAre(0));
	EXPECT_THAT(meter_ids(), ElementsAre(9));
}

TEST_F(PoolWrapper, TakingAnIndexAsksThePoolForOne)
{
	card.HandOut(profile_index_mgr, {200});
	uint32_t index = 0;

	EXPECT_EQ(vask_p4_get_meter_index(profile_index_mgr, &index), 0);

	EXPECT_EQ(index, 200u);
	EXPECT_THAT(trace, ElementsAre(PoolAlloc(profile_index_mgr, 200)));
	EXPECT_EQ(vask_p4_meter_free_index(profile_index_mgr, 200), 0);
}

TEST_F(PoolWrapper, TakingAnIndexReturnsThePoolsOwnCode)
{
	card.Fail(Op::PoolAlloc, 77);
	uint32_t index = 3;

	EXPECT_EQ(vask_p4_get_meter_index(meter_index_mgr, &index), 77);

	EXPECT_EQ(index, 3u);
	EXPECT_THAT(trace, ElementsAre(PoolAlloc(meter_index_mgr, 0)));
}

TEST_F(PoolWrapper, GivingAnIndexBackReturnsThePoolsOwnCode)
{
	card.Fail(Op::PoolFree, -22);

	EXPECT_EQ(vask_p4_meter_free_index(policy_index_mgr, 6), -22);

	EXPECT_THAT(trace, ElementsAre(PoolFree(policy_index_mgr, 6)));
}

TEST_F(PoolWrapper, ReservingAnIndexMarksOne)
{
	vask_p4_meter_set_index(meter_index_mgr, 17);

	EXPECT_THAT(trace, ElementsAre(PoolSet(meter_index_mgr, 17)));
}

/* The pools as the start of the module leaves them. */
class StartedPools : public PoolWrapper
{
      protected:
	StartedPools()
	{
		EXPECT_EQ(vask_p4_meter_indexstack_init(), 0);
	}
};

TEST_F(StartedPools, NoAllocationYields0AndNoneFromThePolicyPoolYields255)
{
	EXPECT_EQ(TakeAll(meter_index_mgr).count(0), 0u);
	EXPECT_EQ(TakeAll(profile_index_mgr).count(0), 0u);
	EXPECT_EQ(TakeAll(policy_index_mgr).count(0), 0u);
	EXPECT_EQ(TakeAll(policy_index_mgr).count(255), 0u);
}

TEST_F(StartedPools, MeterPoolHandsOutAtMost4095ProfilePool255AndPolicyPool254)
{
	EXPECT_EQ(TakeAll(meter_index_mgr).size(), 4095u);
	EXPECT_EQ(TakeAll(profile_index_mgr).size(), 255u);
	EXPECT_EQ(TakeAll(policy_index_mgr).size(), 254u);
}

TEST_F(StartedPools, DeletingPolicy0Returns255ToThePoolLikeAnyOtherIndex)
{
	EXPECT_EQ(vask_p4_meter_policy_delete(dev, 0, &error), 0);

	const std::set<uint32_t> taken = TakeAll(policy_index_mgr);
	EXPECT_EQ(taken.size(), 255u);
	EXPECT_EQ(taken.count(255), 1u);
}

} // namespace
