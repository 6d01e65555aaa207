/* SPDX-License-Identifier: BSD-3-Clause */

/* The fake itself: that what it is told to fail fails, and that what it forbids is noted. */

#include <cstdlib>

#include "module_test.h"
#include "qorn_hal_user_api.h"
#include "vask_p4_log.h"

using namespace vask_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace
{

class FakeCardTest : public ModuleTest
{
      protected:
	/* What the end of a test would complain about is what these tests provoke. */
	std::vector<std::string> TakeViolations()
	{
		return std::exchange(card.violations, {});
	}
};

TEST_F(FakeCardTest, FaultStrikesTheNthCallFromNowAndOnlyThat)
{
	card.Fail(Op::MepDelProfile, 7, 2);
	card.Fail(Op::MepDelProfile, 8, 4);

	std::vector<int> results;
	for (int i = 0; i < 5; i++)
		results.push_back(vask_p4_mep_del_meter_profile(0, 1));
	EXPECT_THAT(results, ElementsAre(0, 7, 0, 8, 0));
	EXPECT_EQ(vask_p4_mep_del_meter_policy(0, 1), 0);
}

TEST_F(FakeCardTest, StandingFaultStrikesEveryCallUntilItIsCleared)
{
	card.FailEvery(Op::IschWrite, -3);

	EXPECT_EQ(vask_p4_isch_shaper_csr_write({}), -3);
	EXPECT_EQ(vask_p4_isch_shaper_csr_write({}), -3);
	card.ClearFaults();
	EXPECT_EQ(vask_p4_isch_shaper_csr_write({}), 0);
}

TEST_F(FakeCardTest, FaultOfAnyOperationCountsOnlyThoseThatReturnAStatus)
{
	card.FailAnyOp(2, 9);

	EXPECT_EQ(vask_p4_mep_del_meter_profile(0, 1), 0);
	EXPECT_NE(vask_p4_priv_data_get(dev), nullptr);
	EXPECT_NE(vask_p4_get_global_cmd_channel(), nullptr);
	EXPECT_EQ(vask_p4_mep_del_meter_policy(1, 1), 9);
	EXPECT_EQ(vask_p4_mep_del_meter_policy(1, 1), 0);
}

TEST_F(FakeCardTest, FailedHandleIsNull)
{
	card.Fail(Op::CmdChannel, 1);
	card.Fail(Op::PrivDataGet, 1);

	EXPECT_EQ(vask_p4_get_global_cmd_channel(), nullptr);
	EXPECT_EQ(vask_p4_priv_data_get(dev), nullptr);
	EXPECT_EQ(vask_p4_priv_data_get(foreign_dev), nullptr);
	EXPECT_EQ(vask_p4_priv_data_get(dev)->rep.priv_port, SFI);
}

TEST_F(FakeCardTest, RefusedPoolCallsChangeNothing)
{
	card.check_locks = false;
	card.Fail(Op::PoolAlloc, 5);
	card.Fail(Op::PoolFree, 6);
	uint32_t index = 99;

	EXPECT_EQ(vask_p4_indexstack_alloc(meter_index_mgr, &index, 1), 5);
	EXPECT_EQ(index, 99u);
	EXPECT_EQ(vask_p4_indexstack_alloc(meter_index_mgr, &index, 1), 0);
	EXPECT_EQ(index, 1u);
	EXPECT_EQ(vask_p4_indexstack_free(meter_index_mgr, 1, 1), 6);
	EXPECT_EQ(card.pool(meter_index_mgr).used.count(1), 1u);
	EXPECT_EQ(vask_p4_indexstack_free(meter_index_mgr, 1, 1), 0);
	EXPECT_NE(vask_p4_indexstack_free(meter_index_mgr, 1, 1), 0) << "it is free already";
}

TEST_F(FakeCardTest, TransmitPortEntryIsReadBackAsItWasWritten)
{
	qorn_input_port_table_key_tx key = {};
	key.source_port = 5;
	qorn_input_port_table_result_tx entry = {};
	entry.metering_info0 = 77;
	vask_cmd_channel *channel = vask_p4_get_global_cmd_channel();
	EXPECT_EQ(qorn_input_port_tx_table_add(channel, &key, &entry), 0);

	qorn_input_port_table_result_tx read = {};
	EXPECT_EQ(qorn_input_port_tx_table_get(channel, &key, &read), 0);
	EXPECT_EQ(Bytes(read), Bytes(entry));
}

TEST_F(FakeCardTest, PoolCallWithoutTheRecordsLockIsNoted)
{
	uint32_t index;
	vask_p4_indexstack_alloc(profile_index_mgr, &index, 1);
	vask_p4_indexstack_free(profile_index_mgr, index, 1);

	EXPECT_THAT(TakeViolations(), SizeIs(2));
}

TEST_F(FakeCardTest, PoolCallUnderTheLockOfAListedRecordIsAllowedAndTwoLocksAreNot)
{
	auto *node = ListProfile(5);
	auto *other = ListPolicy(7);
	uint32_t index;

	rte_spinlock_lock(&node->data.sl);
	vask_p4_indexstack_alloc(profile_index_mgr, &index, 1);
	EXPECT_THAT(TakeViolations(), IsEmpty());

	rte_spinlock_lock(&other->data.sl);
	vask_p4_indexstack_free(profile_index_mgr, index, 1);
	EXPECT_THAT(TakeViolations(), SizeIs(1));
	rte_spinlock_unlock(&node->data.sl);
	rte_spinlock_unlock(&other->data.sl);
}

TEST_F(FakeCardTest, CallToTheCardUnderALockIsNotedEvenOfARecordThatIsNotListedYet)
{
	auto *node =
		static_cast<vask_p4_meter_cfg_node *>(calloc(1, sizeof(vask_p4_meter_cfg_node)));
	rte_spinlock_lock(&node->data.sl);
	EXPECT_EQ(card.LocksHeld(), 1u);
	vask_p4_mep_del_meter_profile(0, 1);
	EXPECT_THAT(TakeViolations(), SizeIs(1));
	free(node);
	EXPECT_EQ(card.LocksHeld(), 0u);
}

TEST_F(FakeCardTest, RecordToFillThatIsNotZeroedIsNoted)
{
	vask_p4_mep_meter_inst_table inst = {};
	inst.drop_pkt_cnt = 1;
	vask_p4_mep_read_meter_inst(0, 1, &inst);

	EXPECT_THAT(TakeViolations(), SizeIs(1));
}

TEST_F(FakeCardTest, CommandOnAChannelThatIsNotTheOneFetchedIsNoted)
{
	vask_cmd_channel stray = {};
	const vask_shaper_set_info info = {};

	vask_p4_get_global_cmd_channel();
	vask_cmd_set_shaper(&stray, &info);

	EXPECT_THAT(TakeViolations(), SizeIs(1));
}

TEST_F(FakeCardTest, UseOfAPoolAfterItsEndIsNoted)
{
	card.check_locks = false;
	uint32_t index;
	vask_p4_indexstack_destroy(policy_index_mgr);
	vask_p4_indexstack_alloc(policy_index_mgr, &index, 1);
	EXPECT_THAT(TakeViolations(), SizeIs(1));
	LeavesIndexTaken(policy_index_mgr, index);
}

TEST_F(FakeCardTest, CallocFailsOnDemandAndLiveBlocksAreKnown)
{
	memory.Fail(2);
	void *first = calloc(1, 24);
	void *second = calloc(1, 24);
	void *third = calloc(2, 12);

	EXPECT_NE(first, nullptr);
	EXPECT_EQ(second, nullptr);
	EXPECT_NE(third, nullptr);
	EXPECT_EQ(memory.count(), 3u);
	EXPECT_EQ(memory.live().at(third), 24u);
	const size_t live = memory.live().size();
	free(first);
	EXPECT_EQ(memory.live().size(), live - 1);
	free(third);
	EXPECT_EQ(memory.live().size(), live - 2);
}

TEST_F(FakeCardTest, LinesAndCallsStandInOneOrderWithTheirLevels)
{
	VASK_P4_LOG(WARNING, "before %d", 1);
	vask_p4_mep_del_meter_profile(1, 2);
	VASK_P4_LOG_DUMP(DEBUG, " after");

	EXPECT_THAT(trace,
		ElementsAre(Line(WARNING, "[offload_smartnic] TestBody before 1\n"),
			MepDelProfile(1, 2), Line(DEBUG, "[offload_smartnic]* after\n")));
	EXPECT_THAT(log.lines(WARNING),
		ElementsAre(Line(WARNING, "[offload_smartnic] TestBody before 1\n")));
}

} // namespace
