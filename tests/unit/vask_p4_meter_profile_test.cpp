/* SPDX-License-Identifier: BSD-3-Clause */

/* Profiles added, programmed, counted and deleted. */

#include <cstring>

#include "module_test.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

class ProfileTest : public ModuleTest
{
      protected:
	ProfileTest()
	{
		params.alg = RTE_MTR_SRTCM_RFC2697;
		params.srtcm_rfc2697 = {1250000, 65536, 4096};
	}

	int Add(uint32_t id)
	{
		return vask_p4_meter_profile_add(dev, id, &params, &error);
	}

	/* A profile that is in the card. */
	vask_p4_meter_profile_node *Added(uint32_t id)
	{
		EXPECT_EQ(Add(id), 0);
		vask_p4_meter_profile_node *node =
			TAILQ_LAST(&vask_p4_meter_profile_list, vask_p4_meter_profile_list_head);
		StartOver();
		return node;
	}

	std::vector<LogLine> Errors() const
	{
		return log.lines(ERR);
	}

	rte_mtr_meter_profile params = {};
};

using ProfileAdd = ProfileTest;
using ProfileToHw = ProfileTest;
using ProfileFromHw = ProfileTest;
using ProfileRefDec = ProfileTest;
using ProfileDelete = ProfileTest;

/* The engine's record of the fixture's parameters: 1250000 / 8000, 65536 / 1024, 4096 / 1024. */
constexpr vask_p4_mep_meter_profile_table ENGINE_PROFILE = {
	.ebs = 4, .cbs = 64, .cf = 0, .eir = 0, .cir = 156, .pm = 0, .rfc2698 = 0, .valid = 1};

const char CONVERTED[] =
	"[offload_smartnic] vask_p4_meter_convert_profile meter profile convert fwd policy input "
	"cir 1250000, convert cir 156\n";

TEST_F(ProfileAdd, NewProfileIsDumpedWrittenToTheIngressEngineAndListed)
{
	card.HandOut(profile_index_mgr, {31});

	EXPECT_EQ(Add(5), 0);

	EXPECT_THAT(trace,
		ElementsAre(Line(DEBUG,
				    "[offload_smartnic] vask_p4_meter_profile_add \n* meter "
				    "profile input params dump :\n"),
			Line(DEBUG, "[offload_smartnic]*      meter_profile_id\t: 0x5\n"),
			Line(DEBUG, "[offload_smartnic]*      packet_mode\t\t\t: 0\n"),
			Line(DEBUG, "[offload_smartnic]*      alg\t\t\t\t\t: 0x1\n"),
			Line(DEBUG, "[offload_smartnic]*      cir\t\t\t\t\t: 1250000\n"),
			Line(DEBUG, "[offload_smartnic]*      eir\t\t\t\t\t: 65536\n"),
			Line(DEBUG, "[offload_smartnic]*      cbs\t\t\t\t\t: 4096\n"),
			Line(DEBUG, "[offload_smartnic]*      ebs\t\t\t\t\t: 0\n"),
			Line(DEBUG, "[offload_smartnic] vask_p4_meter_profile_add * over......\n"),
			PoolAlloc(profile_index_mgr, 31), Line(DEBUG, CONVERTED),
			MepAddProfile(0, 31, ENGINE_PROFILE),
			Line(WARNING,
				"[offload_smartnic] vask_p4_meter_profile_add [profile]: add meter "
				"profile 5 to hw profile 31, cir 1250000 cbs 65536\n")));
	EXPECT_THAT(profile_ids(), ElementsAre(5));
	EXPECT_EQ(memory.count(), 1u);
	ExpectErrorUntouched(error);

	vask_p4_meter_profile expected = {};
	expected.cir = 1250000;
	expected.cbs = 65536;
	expected.ebs = 4096;
	expected.profile_id = 5;
	expected.off_hw_state = 2;
	expected.hw_profile_id = 31;
	expected.profile = ENGINE_PROFILE;
	EXPECT_EQ(Bytes(TAILQ_FIRST(&vask_p4_meter_profile_list)->data), Bytes(expected));
}

/* The four words of the parameters' union go under the names of RFC 4115, whatever the algorithm. */
TEST_F(ProfileAdd, DumpNamesTheFourWordsInTheOrderOfTheUnion)
{
	params.alg = RTE_MTR_TRTCM_RFC2698;
	params.trtcm_rfc2698 = {UINT64_C(5000000000), UINT64_C(6000000000), 7000, 8000};
	params.packet_mode = 1;

	EXPECT_EQ(Add(0xFFFFFFFF), 0);

	const std::vector<LogLine> lines = log.lines();
	ASSERT_GE(lines.size(), 9u);
	EXPECT_THAT(std::vector<LogLine>(lines.begin() + 1, lines.begin() + 8),
		ElementsAre(
			Line(DEBUG, "[offload_smartnic]*      meter_profile_id\t: 0xffffffff\n"),
			Line(DEBUG, "[offload_smartnic]*      packet_mode\t\t\t: 0x1\n"),
			Line(DEBUG, "[offload_smartnic]*      alg\t\t\t\t\t: 0x2\n"),
			Line(DEBUG, "[offload_smartnic]*      cir\t\t\t\t\t: 5000000000\n"),
			Line(DEBUG, "[offload_smartnic]*      eir\t\t\t\t\t: 6000000000\n"),
			Line(DEBUG, "[offload_smartnic]*      cbs\t\t\t\t\t: 7000\n"),
			Line(DEBUG, "[offload_smartnic]*      ebs\t\t\t\t\t: 8000\n")));
	EXPECT_EQ(lines.back(),
		Line(WARNING,
			"[offload_smartnic] vask_p4_meter_profile_add [profile]: add meter profile "
			"-1 to hw profile 1, cir 5000000000 cbs 7000\n"));
}

TEST_F(ProfileAdd, EachAlgorithmReachesTheCard)
{
	EXPECT_EQ(Add(1), 0);
	params.alg = RTE_MTR_TRTCM_RFC2698;
	params.trtcm_rfc2698 = {8000, 16000, 1024, 2048};
	EXPECT_EQ(Add(2), 0);
	params.alg = RTE_MTR_TRTCM_RFC4115;
	EXPECT_EQ(Add(3), 0);

	vask_p4_mep_meter_profile_table two_rates = {};
	two_rates.cir = 1;
	two_rates.eir = 2;
	two_rates.cbs = 1;
	two_rates.ebs = 2;
	two_rates.valid = 1;
	vask_p4_mep_meter_profile_table rfc2698 = two_rates;
	rfc2698.rfc2698 = 1;
	EXPECT_THAT(card.calls(Op::MepAddProfile),
		ElementsAre(MepAddProfile(0, 1, ENGINE_PROFILE), MepAddProfile(0, 2, rfc2698),
			MepAddProfile(0, 3, two_rates)));
}

TEST_F(ProfileAdd, ProfilesAreListedInTheOrderInWhichTheyCame)
{
	for (uint32_t id : {9u, 3u, 7u})
		EXPECT_EQ(Add(id), 0);

	EXPECT_THAT(profile_ids(), ElementsAre(9, 3, 7));
}

TEST_F(ProfileAdd, DeviceIsNotUsed)
{
	EXPECT_EQ(vask_p4_meter_profile_add(nullptr, 5, &params, &error), 0);

	EXPECT_THAT(card.calls(Op::PrivDataGet), IsEmpty());
	EXPECT_THAT(profile_ids(), ElementsAre(5));
}

TEST_F(ProfileAdd, IdThatExistsIsRefusedBeforeAnythingIsAllocatedAndListIsUnchanged)
{
	Added(4);
	Added(5);

	ExpectRefused(Add(5), error, RTE_MTR_ERROR_TYPE_METER_PROFILE_ID,
		"input meter profile id is exist");

	EXPECT_THAT(Errors(),
		ElementsAre(Line(ERR,
			"[offload_smartnic] vask_p4_meter_profile_add input meter profile id is "
			"exist, id is 5\n")));
	EXPECT_EQ(log.lines().size(), 10u) << "the dump comes first";
	EXPECT_THAT(card.calls(), IsEmpty());
	EXPECT_EQ(memory.count(), 0u);
	EXPECT_THAT(profile_ids(), ElementsAre(4, 5));
}

TEST_F(ProfileAdd, IdsAreComparedAsFull32BitValues)
{
	EXPECT_EQ(Add(5), 0);
	EXPECT_EQ(Add(0x10005), 0);
	EXPECT_EQ(Add(0x80000005), 0);
	EXPECT_EQ(Add(0), 0);

	EXPECT_THAT(profile_ids(), ElementsAre(5, 0x10005, 0x80000005, 0));
}

TEST_F(ProfileAdd, NoMemoryIsRefusedWithoutALineOfItsOwn)
{
	memory.Fail();

	ExpectRefused(Add(5), error, RTE_MTR_ERROR_TYPE_UNSPECIFIED,
		"Cannot allocate memory for meter profile");

	EXPECT_THAT(Errors(), IsEmpty());
	EXPECT_THAT(card.calls(), IsEmpty());
	EXPECT_THAT(profile_ids(), IsEmpty());
}

TEST_F(ProfileAdd, Rfc2698WithPeakBelowCommittedIsRefusedAndLeavesNoNodeAndNoHardwareId)
{
	params.alg = RTE_MTR_TRTCM_RFC2698;
	params.trtcm_rfc2698 = {8000, 7999, 1024, 2048};

	ExpectRefused(Add(5), error, RTE_MTR_ERROR_TYPE_METER_PROFILE,
		"meter profile protocol is not supported");

	EXPECT_THAT(Errors(), IsEmpty());
	EXPECT_EQ(log.lines().size(), 9u) << "the dump alone";
	EXPECT_THAT(card.calls(), IsEmpty());
	EXPECT_EQ(memory.count(), 1u);
	EXPECT_THAT(profile_ids(), IsEmpty());
}

TEST_F(ProfileAdd, AlgorithmThatIsNoneOfTheThreeIsRefused)
{
	for (int alg : {0, 4}) {
		StartOver();
		params.alg = static_cast<rte_mtr_algorithm>(alg);
		ExpectRefused(Add(5), error, RTE_MTR_ERROR_TYPE_METER_PROFILE,
			"meter profile protocol is not supported");
		EXPECT_THAT(card.calls(), IsEmpty());
	}
	EXPECT_THAT(profile_ids(), IsEmpty());
}

TEST_F(ProfileAdd, EmptyPoolIsRefusedAndNothingIsWritten)
{
	card.Fail(Op::PoolAlloc, -7);

	ExpectRefused(Add(5), error, RTE_MTR_ERROR_TYPE_METER_PROFILE,
		"meter profile offload hw not success");

	EXPECT_THAT(Errors(),
		ElementsAre(Line(ERR,
			"[offload_smartnic] vask_p4_meter_add_profile_2_hw meter get profile id "
			"failed, rc = -7\n")));
	EXPECT_THAT(card.calls(), ElementsAre(PoolAlloc(profile_index_mgr, 0)));
	EXPECT_THAT(profile_ids(), IsEmpty());
}

TEST_F(ProfileAdd, PoolThatHasReallyRunDryIsRefused)
{
	card.Drain(profile_index_mgr);

	ExpectRefused(Add(5), error, RTE_MTR_ERROR_TYPE_METER_PROFILE,
		"meter profile offload hw not success");
}

TEST_F(ProfileAdd, All255HardwareIdsAreUsedAndNeverZero)
{
	for (uint32_t id = 1000; id < 1255; id++)
		ASSERT_EQ(Add(id), 0) << id;
	EXPECT_EQ(Add(2000), -16);

	std::set<uint32_t> used;
	vask_p4_meter_profile_node *node;
	TAILQ_FOREACH (node, &vask_p4_meter_profile_list, next)
		used.insert(node->data.hw_profile_id);
	EXPECT_EQ(used.size(), 255u);
	EXPECT_EQ(*used.begin(), 1u);
	EXPECT_EQ(*used.rbegin(), 255u);
}

/* Meant: what was taken from the pool stays taken. */
TEST_F(ProfileAdd, RefusedEngineWriteFreesTheNodeAndKeepsTheHardwareIdTaken)
{
	card.Fail(Op::MepAddProfile, 37);
	LeavesIndexTaken(profile_index_mgr, 1);

	ExpectRefused(Add(5), error, RTE_MTR_ERROR_TYPE_METER_PROFILE,
		"meter profile offload hw not success");

	EXPECT_THAT(Errors(),
		ElementsAre(Line(ERR,
				    "[offload_smartnic] vask_p4_meter_convert_profile meter add "
				    "fwd profile lmem failed, rc = 37\n"),
			Line(ERR,
				"[offload_smartnic] vask_p4_meter_add_profile_2_hw imep meter add "
				"profile mep failed, rc = -1\n")));
	EXPECT_THAT(card.calls(),
		ElementsAre(PoolAlloc(profile_index_mgr, 1), MepAddProfile(0, 1, ENGINE_PROFILE)));
	EXPECT_THAT(profile_ids(), IsEmpty());

	EXPECT_EQ(Add(5), 0);
	EXPECT_EQ(TAILQ_FIRST(&vask_p4_meter_profile_list)->data.hw_profile_id, 2u);
}

TEST_F(ProfileAdd, EachRefusalIsTheSameWithoutAnErrorRecord)
{
	const auto refused = [this](uint32_t id) {
		rte_errno = 0;
		EXPECT_EQ(vask_p4_meter_profile_add(dev, id, &params, nullptr), -16);
		EXPECT_EQ(rte_errno, 16);
	};

	Added(4);
	refused(4);
	memory.Fail();
	refused(5);
	card.Fail(Op::PoolAlloc, 1);
	refused(5);
	params.alg = RTE_MTR_NONE;
	refused(5);
	EXPECT_THAT(profile_ids(), ElementsAre(4));
}

TEST_F(ProfileAdd, NullProfileIsRefusedBeforeAnythingIsLoggedOrAllocated)
{
	ExpectRefusedAsNull(vask_p4_meter_profile_add(dev, 5, nullptr, &error), error);
	EXPECT_EQ(vask_p4_meter_profile_add(dev, 5, nullptr, nullptr), -16);

	EXPECT_THAT(trace, IsEmpty());
	EXPECT_EQ(memory.count(), 0u);
}

TEST_F(ProfileToHw, CalledTwiceOnOneNodeWritesTheIngressEngineTwiceWithTheSameHardwareId)
{
	vask_p4_meter_profile_node node = {};
	node.data.cir = 1250000;
	node.data.cbs = 65536;
	node.data.ebs = 4096;
	card.WatchLock(&node.data.sl);
	LeavesIndexTaken(profile_index_mgr, 1);

	EXPECT_EQ(vask_p4_meter_add_profile_2_hw(&node), 0);
	EXPECT_EQ(node.data.hw_profile_id, 1u);
	EXPECT_EQ(vask_p4_meter_add_profile_2_hw(&node), 0);
	EXPECT_EQ(node.data.hw_profile_id, 1u);

	EXPECT_THAT(trace,
		ElementsAre(PoolAlloc(profile_index_mgr, 1), Line(DEBUG, CONVERTED),
			MepAddProfile(0, 1, ENGINE_PROFILE), Line(DEBUG, CONVERTED),
			MepAddProfile(0, 1, ENGINE_PROFILE)));
	EXPECT_EQ(node.data.off_hw_state, 0u);
	card.ForgetLocks();
}

TEST_F(ProfileToHw, RefusedAllocationReturnsMinusOneAndKeepsNoId)
{
	vask_p4_meter_profile_node node = {};
	card.WatchLock(&node.data.sl);
	card.Fail(Op::PoolAlloc, 3);

	EXPECT_EQ(vask_p4_meter_add_profile_2_hw(&node), -1);

	EXPECT_EQ(node.data.hw_profile_id, 0u);
	EXPECT_EQ(card.LocksHeld(), 0u);
	EXPECT_THAT(trace,
		ElementsAre(PoolAlloc(profile_index_mgr, 0),
			Line(ERR,
				"[offload_smartnic] vask_p4_meter_add_profile_2_hw meter get "
				"profile id failed, rc = 3\n")));
	card.ForgetLocks();
}

TEST_F(ProfileToHw, RefusedWriteReturnsTheConversionsMinusOneAndKeepsTheId)
{
	vask_p4_meter_profile_node *node = ListProfile(5);
	card.Fail(Op::MepAddProfile, 99);

	EXPECT_EQ(vask_p4_meter_add_profile_2_hw(node), -1);

	EXPECT_EQ(node->data.hw_profile_id, 1u);
	EXPECT_THAT(Errors(),
		ElementsAre(Line(ERR,
				    "[offload_smartnic] vask_p4_meter_convert_profile meter add "
				    "fwd profile lmem failed, rc = 99\n"),
			Line(ERR,
				"[offload_smartnic] vask_p4_meter_add_profile_2_hw imep meter add "
				"profile mep failed, rc = -1\n")));
}

TEST_F(ProfileFromHw, ClearsIngressThenEgressGivesTheIdBackAndZeroesTheRecord)
{
	Added(4);
	vask_p4_meter_profile_node *node = Added(5);

	EXPECT_EQ(vask_p4_meter_del_profile_2_hw(node), 0);

	EXPECT_THAT(trace,
		ElementsAre(
			MepDelProfile(0, 2), MepDelProfile(1, 2), PoolFree(profile_index_mgr, 2)));
	EXPECT_EQ(Bytes(node->data), Bytes(vask_p4_meter_profile{}));
	EXPECT_THAT(profile_ids(), ElementsAre(4, 0)) << "the links stay";
}

TEST_F(ProfileFromHw, RefusedIngressDeleteChangesNothing)
{
	vask_p4_meter_profile_node *node = Added(5);
	const vask_p4_meter_profile before = node->data;
	card.Fail(Op::MepDelProfile, 41);

	EXPECT_EQ(vask_p4_meter_del_profile_2_hw(node), 41);

	EXPECT_THAT(trace,
		ElementsAre(MepDelProfile(0, 1),
			Line(ERR,
				"[offload_smartnic] vask_p4_meter_del_profile_2_hw imep meter del "
				"profile mep failed, rc = 41\n")));
	EXPECT_EQ(Bytes(node->data), Bytes(before));
}

TEST_F(ProfileFromHw, RefusedEgressDeleteKeepsTheIdThoughTheIngressEntryIsGone)
{
	vask_p4_meter_profile_node *node = Added(5);
	const vask_p4_meter_profile before = node->data;
	card.Fail(Op::MepDelProfile, -42, 2);

	EXPECT_EQ(vask_p4_meter_del_profile_2_hw(node), -42);

	EXPECT_THAT(trace,
		ElementsAre(MepDelProfile(0, 1), MepDelProfile(1, 1),
			Line(ERR,
				"[offload_smartnic] vask_p4_meter_del_profile_2_hw emep meter del "
				"profile mep failed, rc = -42\n")));
	EXPECT_EQ(Bytes(node->data), Bytes(before));
}

TEST_F(ProfileFromHw, ResultOfGivingTheIdBackIsIgnored)
{
	vask_p4_meter_profile_node *node = Added(5);
	card.Fail(Op::PoolFree, -1);
	LeavesIndexTaken(profile_index_mgr, 1);

	EXPECT_EQ(vask_p4_meter_del_profile_2_hw(node), 0);

	EXPECT_EQ(node->data.hw_profile_id, 0u);
	EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ProfileRefDec, LowersTheCountOfThatProfileAlone)
{
	auto *other = ListProfile(4);
	auto *node = ListProfile(5);
	other->data.ref_cnt = 8;
	node->data.ref_cnt = 2;

	EXPECT_EQ(vask_p4_meter_profile_ref_dec(dev, 5, &error), 0);

	EXPECT_EQ(node->data.ref_cnt, 1u);
	EXPECT_EQ(other->data.ref_cnt, 8u);
	EXPECT_THAT(trace,
		ElementsAre(Line(INFO,
			"[offload_smartnic] vask_p4_meter_profile_ref_dec del meter profile ref "
			"cnt: 1\n")));
	ExpectErrorUntouched(error);
}

TEST_F(ProfileRefDec, CountOfZeroStaysZeroIsLoggedAsAnErrorAndReturnsZero)
{
	auto *node = ListProfile(5);

	EXPECT_EQ(vask_p4_meter_profile_ref_dec(nullptr, 5, nullptr), 0);

	EXPECT_EQ(node->data.ref_cnt, 0u);
	EXPECT_THAT(trace,
		ElementsAre(Line(ERR,
			"[offload_smartnic] vask_p4_meter_profile_ref_dec del meter profile ref "
			"cnt 0 err\n")));
}

TEST_F(ProfileRefDec, UnknownProfileIsLeftAloneSilently)
{
	ListProfile(5)->data.ref_cnt = 1;

	EXPECT_EQ(vask_p4_meter_profile_ref_dec(dev, 6, &error), 0);

	EXPECT_THAT(trace, IsEmpty());
	EXPECT_EQ(TAILQ_FIRST(&vask_p4_meter_profile_list)->data.ref_cnt, 1u);
}

TEST_F(ProfileDelete, ProfileIsClearedInBothEnginesUnlinkedAndFreed)
{
	Added(4);
	Added(5);
	Added(6);

	EXPECT_EQ(vask_p4_meter_profile_delete(dev, 5, &error), 0);

	EXPECT_THAT(trace,
		ElementsAre(MepDelProfile(0, 2), MepDelProfile(1, 2),
			PoolFree(profile_index_mgr, 2),
			Line(INFO,
				"[offload_smartnic] vask_p4_meter_profile_delete del meter profile "
				"id suc, id is 5\n")));
	EXPECT_THAT(profile_ids(), ElementsAre(4, 6));
	ExpectErrorUntouched(error);
}

TEST_F(ProfileDelete, IdThatWasNeverAddedReturnsZeroAndLogsAtInfo)
{
	Added(5);

	EXPECT_EQ(vask_p4_meter_profile_delete(dev, 6, &error), 0);

	EXPECT_THAT(trace,
		ElementsAre(Line(INFO,
			"[offload_smartnic] vask_p4_meter_profile_delete del meter profile id not "
			"found, id is 6\n")));
	EXPECT_THAT(profile_ids(), ElementsAre(5));
	ExpectErrorUntouched(error);
}

TEST_F(ProfileDelete, ProfileInUseIsRefusedAndStays)
{
	auto *node = Added(5);
	node->data.ref_cnt = 3;
	const vask_p4_meter_profile before = node->data;

	ExpectRefused(vask_p4_meter_profile_delete(dev, 5, &error), error,
		RTE_MTR_ERROR_TYPE_METER_PROFILE, "meter profile reference not 0!");

	EXPECT_THAT(trace,
		ElementsAre(Line(ERR,
			"[offload_smartnic] vask_p4_meter_profile_delete del meter profile ref "
			"cnt: 3 not 0\n")));
	EXPECT_EQ(Bytes(node->data), Bytes(before));
	EXPECT_THAT(profile_ids(), ElementsAre(5));
}

TEST_F(ProfileDelete, ProfileWithOneReferenceGoesAfterItIsGivenBackAndItsHardwareIdCanComeAgain)
{
	Added(5)->data.ref_cnt = 1;
	EXPECT_EQ(vask_p4_meter_profile_delete(dev, 5, &error), -16);
	EXPECT_EQ(vask_p4_meter_profile_ref_dec(dev, 5, &error), 0);

	EXPECT_EQ(vask_p4_meter_profile_delete(dev, 5, &error), 0);

	EXPECT_EQ(card.pool(profile_index_mgr).used.count(1), 0u);
	EXPECT_EQ(Added(6)->data.hw_profile_id, 1u);
}

TEST_F(ProfileDelete, RefusedIngressDeleteIsLoggedTwiceAndKeepsTheNode)
{
	auto *node = Added(5);
	const vask_p4_meter_profile before = node->data;
	card.Fail(Op::MepDelProfile, 41);

	ExpectRefused(vask_p4_meter_profile_delete(dev, 5, &error), error,
		RTE_MTR_ERROR_TYPE_METER_PROFILE, "del meter profile id failed");

	EXPECT_THAT(trace,
		ElementsAre(MepDelProfile(0, 1),
			Line(ERR,
				"[offload_smartnic] vask_p4_meter_del_profile_2_hw imep meter del "
				"profile mep failed, rc = 41\n"),
			Line(ERR,
				"[offload_smartnic] vask_p4_meter_profile_delete del meter profile "
				"id failed, rc is 41\n")));
	EXPECT_EQ(Bytes(node->data), Bytes(before));
	EXPECT_THAT(profile_ids(), ElementsAre(5));
}

TEST_F(ProfileDelete, RefusedEgressDeleteKeepsTheNodeAndASecondAttemptRepeatsBoth)
{
	auto *node = Added(5);
	const vask_p4_meter_profile before = node->data;
	card.Fail(Op::MepDelProfile, 42, 2);

	ExpectRefused(vask_p4_meter_profile_delete(dev, 5, &error), error,
		RTE_MTR_ERROR_TYPE_METER_PROFILE, "del meter profile id failed");
	EXPECT_THAT(trace,
		ElementsAre(MepDelProfile(0, 1), MepDelProfile(1, 1),
			Line(ERR,
				"[offload_smartnic] vask_p4_meter_del_profile_2_hw emep meter del "
				"profile mep failed, rc = 42\n"),
			Line(ERR,
				"[offload_smartnic] vask_p4_meter_profile_delete del meter profile "
				"id failed, rc is 42\n")));
	EXPECT_EQ(Bytes(node->data), Bytes(before));

	StartOver();
	EXPECT_EQ(vask_p4_meter_profile_delete(dev, 5, &error), 0);
	EXPECT_THAT(card.calls(),
		ElementsAre(
			MepDelProfile(0, 1), MepDelProfile(1, 1), PoolFree(profile_index_mgr, 1)));
	EXPECT_THAT(profile_ids(), IsEmpty());
}

TEST_F(ProfileDelete, NeitherDeviceNorErrorRecordIsNeeded)
{
	Added(5)->data.ref_cnt = 1;

	EXPECT_EQ(vask_p4_meter_profile_delete(nullptr, 5, nullptr), -16);
	EXPECT_EQ(rte_errno, 16);
	TAILQ_FIRST(&vask_p4_meter_profile_list)->data.ref_cnt = 0;
	rte_errno = 0;
	card.Fail(Op::MepDelProfile, 1);
	EXPECT_EQ(vask_p4_meter_profile_delete(nullptr, 5, nullptr), -16);
	EXPECT_EQ(rte_errno, 16);
	EXPECT_EQ(vask_p4_meter_profile_delete(nullptr, 5, nullptr), 0);
}

} // namespace
