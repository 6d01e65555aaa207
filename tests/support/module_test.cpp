/* SPDX-License-Identifier: BSD-3-Clause */
#include "module_test.h"

#include <cstdlib>

namespace vask_test
{

using ::testing::IsEmpty;

namespace
{

/* Devices are told apart by their address alone. */
char device_memory[2];

const char UNTOUCHED_MESSAGE[] = "untouched";
char untouched_cause;

rte_mtr_error
UntouchedError()
{
	return {RTE_MTR_ERROR_TYPE_NONE, &untouched_cause, UNTOUCHED_MESSAGE};
}

template <typename Node, typename Head>
std::vector<Node *>
Nodes(const Head &head)
{
	std::vector<Node *> nodes;
	for (Node *node = TAILQ_FIRST(&head); node != nullptr; node = TAILQ_NEXT(node, next))
		nodes.push_back(node);
	return nodes;
}

template <typename Node, typename Head>
Node *
ListNew(Head &head)
{
	auto *node = static_cast<Node *>(calloc(1, sizeof(Node)));
	TAILQ_INSERT_TAIL(&head, node, next);
	return node;
}

template <typename Node, typename Head>
void
FreeAll(Head &head)
{
	for (Node *node : Nodes<Node>(head))
		free(node);
	TAILQ_INIT(&head);
}

auto
Profiles()
{
	return Nodes<vask_p4_meter_profile_node>(vask_p4_meter_profile_list);
}

auto
Policies()
{
	return Nodes<vask_p4_meter_policy_node>(vask_p4_meter_policy_list);
}

auto
Meters()
{
	return Nodes<vask_p4_meter_cfg_node>(vask_p4_meter_list);
}

std::set<uint32_t>
HeldIndexes(const VASK_P4_INDEXSTACK_MANAGER *manager)
{
	std::set<uint32_t> held;
	if (manager == profile_index_mgr)
		for (const auto *node : Profiles())
			held.insert(node->data.hw_profile_id);
	if (manager == policy_index_mgr)
		for (const auto *node : Policies())
			held.insert(node->data.hw_policy_id);
	if (manager == meter_index_mgr)
		for (const auto *node : Meters())
			held.insert(node->data.hw_meter_id);
	return held;
}

/* Indexes that are taken, not reserved and in no listed record. */
std::set<uint32_t>
StrandedIndexes(const FakeCard::Pool &pool)
{
	std::set<uint32_t> stranded = pool.used;
	for (uint32_t index : pool.reserved)
		stranded.erase(index);
	for (uint32_t index : HeldIndexes(&pool.manager))
		stranded.erase(index);
	return stranded;
}

} // namespace

SeamTest::SeamTest()
	: dev(reinterpret_cast<rte_eth_dev *>(&device_memory[0])),
	  foreign_dev(reinterpret_cast<rte_eth_dev *>(&device_memory[1])), card(TheCard()),
	  memory(TheAllocations())
{
	card.Reset();
	card.AddPort(dev, SFI);
	memory.Reset();
	meter_index_mgr = nullptr;
	profile_index_mgr = nullptr;
	policy_index_mgr = nullptr;
	StartOver();
}

SeamTest::~SeamTest()
{
	FreeAll<vask_p4_meter_profile_node>(vask_p4_meter_profile_list);
	FreeAll<vask_p4_meter_policy_node>(vask_p4_meter_policy_list);
	FreeAll<vask_p4_meter_cfg_node>(vask_p4_meter_list);
}

void
SeamTest::StartOver()
{
	trace.clear();
	memory.Restart();
	error = UntouchedError();
	rte_errno = 0;
}

void
SeamTest::TearDown()
{
	EXPECT_THAT(card.violations, IsEmpty());
	EXPECT_EQ(card.LocksHeld(), 0u) << "a record's lock is still held";

	std::set<void *> listed;
	for (auto *node : Profiles())
		listed.insert(node);
	for (auto *node : Policies())
		listed.insert(node);
	for (auto *node : Meters())
		listed.insert(node);
	std::vector<void *> unlisted;
	for (const auto &block : memory.live())
		if (!listed.contains(block.first))
			unlisted.push_back(block.first);
	EXPECT_EQ(unlisted.size(), left_behind_) << "blocks that live and stand in no list";
	for (void *block : unlisted)
		free(block);

	for (const auto &pool : card.pools()) {
		EXPECT_EQ(StrandedIndexes(*pool), stranded_[&pool->manager])
			<< "indexes taken and in no record, pool of " << pool->capacity;
	}
}

void
SeamTest::LeavesIndexTaken(const VASK_P4_INDEXSTACK_MANAGER *pool, uint32_t index)
{
	stranded_[pool].insert(index);
}

void
SeamTest::LeavesRecordBehind()
{
	left_behind_++;
}

vask_p4_meter_profile_node *
SeamTest::ListProfile(uint32_t profile_id)
{
	auto *node = ListNew<vask_p4_meter_profile_node>(vask_p4_meter_profile_list);
	node->data.profile_id = profile_id;
	return node;
}

vask_p4_meter_policy_node *
SeamTest::ListPolicy(uint32_t policy_id)
{
	auto *node = ListNew<vask_p4_meter_policy_node>(vask_p4_meter_policy_list);
	node->data.policy_id = policy_id;
	return node;
}

vask_p4_meter_cfg_node *
SeamTest::ListMeter(uint32_t meter_id)
{
	auto *node = ListNew<vask_p4_meter_cfg_node>(vask_p4_meter_list);
	node->data.meter_id = meter_id;
	return node;
}

std::vector<uint32_t>
SeamTest::profile_ids() const
{
	std::vector<uint32_t> ids;
	for (const auto *node : Profiles())
		ids.push_back(node->data.profile_id);
	return ids;
}

std::vector<uint32_t>
SeamTest::policy_ids() const
{
	std::vector<uint32_t> ids;
	for (const auto *node : Policies())
		ids.push_back(node->data.policy_id);
	return ids;
}

std::vector<uint32_t>
SeamTest::meter_ids() const
{
	std::vector<uint32_t> ids;
	for (const auto *node : Meters())
		ids.push_back(node->data.meter_id);
	return ids;
}

ModuleTest::ModuleTest()
{
	vask_p4_indexstack_create(4096, &meter_index_mgr);
	vask_p4_indexstack_create(256, &profile_index_mgr);
	vask_p4_indexstack_create(256, &policy_index_mgr);
	vask_p4_indexstack_set(meter_index_mgr, 0, 1);
	vask_p4_indexstack_set(profile_index_mgr, 0, 1);
	vask_p4_indexstack_set(policy_index_mgr, 0, 1);
	vask_p4_indexstack_set(policy_index_mgr, 255, 1);
	StartOver();
}

void
ExpectRefused(int rc, const rte_mtr_error &error, rte_mtr_error_type type, const char *message)
{
	EXPECT_EQ(rc, -16);
	EXPECT_EQ(rte_errno, 16);
	EXPECT_EQ(error.type, type);
	EXPECT_EQ(error.cause, nullptr);
	EXPECT_STREQ(error.message, message);
}

void
ExpectRefusedAsNull(int rc, const rte_mtr_error &error)
{
	EXPECT_EQ(rc, -16);
	EXPECT_EQ(rte_errno, 16);
	EXPECT_EQ(error.type, RTE_MTR_ERROR_TYPE_UNSPECIFIED);
	EXPECT_EQ(error.cause, nullptr);
	ASSERT_NE(error.message, nullptr);
	EXPECT_STRNE(error.message, "");
	EXPECT_STRNE(error.message, UNTOUCHED_MESSAGE);
}

void
ExpectErrorUntouched(const rte_mtr_error &error)
{
	EXPECT_EQ(rte_errno, 0);
	EXPECT_EQ(error.type, RTE_MTR_ERROR_TYPE_NONE);
	EXPECT_EQ(error.cause, &untouched_cause);
	EXPECT_EQ(error.message, UNTOUCHED_MESSAGE);
}

} // namespace vask_test
