/* SPDX-License-Identifier: BSD-3-Clause */
/* The P4 tables take any bytes, any id and any failure: meant for the sanitizers' build. */
#include <random>

#include "meters.h"

extern "C" {
#include <ethdev_driver.h>
}

#include "vask_p4_meter_internal.h"

using namespace vask_test;
using ::testing::AnyOf;
using ::testing::Eq;

namespace
{

/* Calls of each of the 20 seeds; VASK_RANDOM_CALLS is for tools that make them slow. */
int
CallsPerSeed()
{
	const char *text = getenv("VASK_RANDOM_CALLS");

	return text != nullptr ? static_cast<int>(strtol(text, nullptr, 10)) : 5000;
}

class AnyBytes : public ModuleTest, public ::testing::WithParamInterface<int>
{
      protected:
	AnyBytes() : random(GetParam())
	{
		card.AddPort(&rte_eth_devices[0], SFI);
		card.AddPort(&rte_eth_devices[1], 7935);
		card.AddPort(&rte_eth_devices[2], 7936);
		card.AddPort(&rte_eth_devices[561], 0);
		if (GetParam() % 2 != 0)
			card.AddPort(nullptr, 7);
		vask_p4_meter_add_default_policy(0);
	}

	uint32_t Below(uint32_t limit)
	{
		return random() % limit;
	}

	/* Small ids meet each other; any other may come too. */
	uint32_t Id()
	{
		const uint32_t edges[] = {255, 256, 0x80000000, 0xFFFFFFFF};
		switch (Below(8)) {
		case 0:
			return random();
		case 1:
			return edges[Below(4)];
		default:
			return Below(6);
		}
	}

	template <typename Entry> Entry Random()
	{
		Entry entry = {};
		auto *bytes = reinterpret_cast<uint8_t *>(&entry);
		for (size_t n = 0; n < sizeof(entry); n++)
			bytes[n] = Below(4) == 0 ? Below(2) * 0xFF : random();
		return entry;
	}

	p4_meter_instance_t RandomInstance()
	{
		const uint16_t ports[] = {0, 1, 2, 3, 561, 562};
		auto entry = Random<p4_meter_instance_t>();
		if (Below(4) != 0) {
			entry.dpdk_port_id = ports[Below(6)];
			entry.profile_id = Below(6);
			entry.policer_id = Below(6);
		}
		return entry;
	}

	void PlanFaults()
	{
		card.ClearFaults();
		memory.Reset();
		for (uint32_t fault = Below(4); fault == 0; fault = Below(3))
			card.FailAnyOp(
				1 + Below(6), Below(2) ? -1 - int(Below(20)) : 1 + int(Below(99)));
		if (Below(16) == 0)
			memory.Fail(1 + Below(2));
	}

	int Call(uint32_t kind)
	{
		const auto profile = Random<p4_meter_profile_t>();
		const auto policer = Random<p4_meter_policer_t>();
		const auto instance = RandomInstance();
		const bool null = Below(32) == 0;

		switch (kind) {
		case 0:
			return talvora_p4_offload_meter_table_profile_add(
				Id(), null ? nullptr : &profile);
		case 1:
			return talvora_p4_offload_meter_table_profile_mod(
				Id(), null ? nullptr : &profile);
		case 2:
			return talvora_p4_offload_meter_table_profile_del(Id());
		case 3:
			return talvora_p4_offload_meter_table_policer_add(
				Id(), null ? nullptr : &policer);
		case 4:
			return talvora_p4_offload_meter_table_policer_mod(
				Id(), null ? nullptr : &policer);
		case 5:
			return talvora_p4_offload_meter_table_policer_del(Id());
		case 6:
			return talvora_p4_offload_meter_table_instance_add(
				Id(), null ? nullptr : &instance);
		case 7:
			return talvora_p4_offload_meter_table_instance_mod(
				Id(), null ? nullptr : &instance);
		default:
			return talvora_p4_offload_meter_table_instance_del(Id());
		}
	}

	/* A listed profile or meter holds an index of its own. */
	template <typename Head, typename Index>
	void
	ExpectOwnIndexes(const Head &head, const VASK_P4_INDEXSTACK_MANAGER *manager, Index index)
	{
		std::set<uint32_t> held;
		for (auto *node = TAILQ_FIRST(&head); node != nullptr;
			node = TAILQ_NEXT(node, next)) {
			EXPECT_TRUE(held.insert(index(node->data)).second);
			EXPECT_NE(index(node->data), 0u);
			EXPECT_EQ(card.pool(manager).used.count(index(node->data)), 1u);
		}
	}

	void ExpectListsInOrder()
	{
		ExpectOwnIndexes(vask_p4_meter_profile_list, profile_index_mgr,
			[](const vask_p4_meter_profile &record) { return record.hw_profile_id; });
		ExpectOwnIndexes(vask_p4_meter_list, meter_index_mgr,
			[](const vask_p4_meter_cfg_entry &record) { return record.hw_meter_id; });
		for (std::vector<uint32_t> ids : {profile_ids(), policy_ids(), meter_ids()}) {
			std::erase(ids, 0u); /* there may be several meters 0 */
			std::set<uint32_t> unique(ids.begin(), ids.end());
			EXPECT_EQ(unique.size(), ids.size());
		}
	}

	std::mt19937 random;
};

TEST_P(AnyBytes, IdsAndFaultsLeaveTheListsInOrder)
{
	const LogLine leak =
		Says(RTE_LOG_ERR, "vask_p4_meter_inst_create", "meter get meter id failed, rc = ");

	std::map<uint32_t, int> succeeded;
	const int calls = CallsPerSeed();
	for (int call = 0; call < calls && !HasFailure(); call++) {
		trace.clear();
		PlanFaults();
		/* More adds than deletes, so that there is something to modify. */
		const uint32_t kinds[] = {0, 0, 1, 2, 3, 3, 4, 5, 6, 6, 6, 6, 7, 7, 7, 8};
		const uint32_t kind = kinds[Below(16)];
		const int rc = Call(kind);
		EXPECT_THAT(rc, AnyOf(Eq(0), Eq(-1), Eq(-16), Eq(-22)));
		succeeded[kind] += rc == 0;
		ExpectListsInOrder();
		for (const LogLine &line : log.lines(RTE_LOG_ERR))
			if (line.text.starts_with(leak.text.substr(0, leak.text.size() - 1)))
				LeavesRecordBehind();
	}

	for (uint32_t kind = 0; kind < 9; kind++)
		EXPECT_GT(succeeded[kind], 0) << kind;

	/* Indexes that failures stranded are meant to be. */
	for (const auto &pool : card.pools())
		pool->reserved = pool->used;
}

INSTANTIATE_TEST_SUITE_P(Seeds, AnyBytes, ::testing::Range(1, 21));

} // namespace
