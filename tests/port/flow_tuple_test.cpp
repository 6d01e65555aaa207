/* SPDX-License-Identifier: BSD-3-Clause */
/* Rules with one mask: slots, the rte_hash behind them, and how both grow. */

#include "flow_support.h"

#include <random>

#include "vask_flow_tuple.h"

using namespace vask_test;

namespace
{

const vask_flow_tuple *
TupleOf(const Tables &tables)
{
	return ViewOf(tables)->entry[0].tuple;
}

TEST(FlowTuple, ATupleGrowsAndEveryRuleStaysInForce)
{
	Tables tables;
	std::vector<rte_flow *> rules;

	for (uint32_t n = 1; n <= 600; n++) {
		rules.push_back(tables.Add(RuleOfSource(n, n)));
		/* the newest, the oldest, and one between */
		EXPECT_EQ(tables.MeterOf(FrameOfSource(n)), n);
		EXPECT_EQ(tables.MeterOf(FrameOfSource(1)), 1u);
		EXPECT_EQ(tables.MeterOf(FrameOfSource((n + 1) / 2)), (n + 1) / 2);
		EXPECT_EQ(tables.MeterOf(FrameOfSource(n + 1)), 0u);
	}
	for (uint32_t n = 1; n <= 600; n += 2)
		tables.Remove(rules[n - 1]);
	for (uint32_t n = 1; n <= 600; n++)
		EXPECT_EQ(tables.MeterOf(FrameOfSource(n)), n % 2 ? 0 : n);
}

TEST(FlowTuple, KeysThatWantTheSameSlotAreAllFound)
{
	constexpr uint32_t N = 2000;
	Tables tables;
	std::mt19937 dice(3);
	std::vector<uint32_t> source(N);
	std::vector<rte_flow *> rules(N);
	uint32_t hash_from = 0;

	for (uint32_t n = 0; n < N; n++) {
		source[n] = dice() % 8000 * N + n; /* no two are the same */
		rules[n] = tables.Add(RuleOfSource(source[n], n + 1));
		if (hash_from == 0 && TupleOf(tables)->hash != nullptr)
			hash_from = n;
	}
	/* among so few keys some slot was wanted twice before the tuple had grown often */
	EXPECT_GT(hash_from, 1u);
	EXPECT_LT(hash_from, 200u);
	for (uint32_t n = 0; n < N; n++)
		EXPECT_EQ(tables.MeterOf(FrameOfSource(source[n])), n + 1);
	/* what stands in a slot goes, what stands behind it stays, and the other way round */
	for (uint32_t n = 0; n < N; n += 3) {
		tables.Remove(rules[n]);
		EXPECT_EQ(tables.MeterOf(FrameOfSource(source[n])), 0u);
	}
	for (uint32_t n = 0; n < N; n++)
		EXPECT_EQ(tables.MeterOf(FrameOfSource(source[n])), n % 3 ? n + 1 : 0);
	/* and they come back */
	for (uint32_t n = 0; n < N; n += 3)
		tables.Add(RuleOfSource(source[n], n + 1));
	for (uint32_t n = 0; n < N; n++)
		EXPECT_EQ(tables.MeterOf(FrameOfSource(source[n])), n + 1);
}

TEST(FlowTuple, RulesThatComeAndGoDoNotExhaustTheTuple)
{
	Tables tables;

	for (uint32_t n = 0; n < 50; n++)
		tables.Add(RuleOfSource(n, 1));
	for (uint32_t n = 1000; n < 6000; n++)
		tables.Remove(tables.Add(RuleOfSource(n, 2)));
	const vask_flow_tuple *tuple = TupleOf(tables);
	EXPECT_LE(tuple->capacity, 256u);
	EXPECT_EQ(tuple->n_keys, 50u);
}

TEST(FlowTuple, ARemovedRuleIsOutOfForceWhileABurstMaySeeIt)
{
	/* once without rte_hash, once with */
	for (uint32_t others : {1u, 500u}) {
		Tables tables;
		for (uint32_t n = 0; n < others; n++)
			tables.Add(RuleOfSource(1000 + n * 2654435761, 1));
		rte_flow *rule = tables.Add(RuleOfSource(7, 9));

		EXPECT_EQ(TupleOf(tables)->hash != nullptr, others == 500);
		rte_rcu_qsbr_thread_online(tables.port.rcu, 3);
		tables.Remove(rule);
		EXPECT_EQ(vask_flow_rule_meter(rule), 9u);
		EXPECT_EQ(tables.MeterOf(FrameOfSource(7)), 0u);
		rte_rcu_qsbr_thread_offline(tables.port.rcu, 3);
	}
}

/* Both kinds of tuple: keys that all have their slots, and keys some of which are only in the rte_hash. */
void
AddOthers(Tables &tables, bool hash)
{
	for (uint32_t n = 0; n < (hash ? 500 : 1); n++)
		tables.Add(RuleOfSource(1000 + n * 2654435761, 1));
	EXPECT_EQ(TupleOf(tables)->hash != nullptr, hash);
}

TEST(FlowTuple, ARuleComesBackWhileABurstMayStillSeeTheOneBefore)
{
	for (const bool hash : {false, true}) {
		Tables tables;
		AddOthers(tables, hash);
		rte_flow *rule = tables.Add(RuleOfSource(7, 9));
		const uint32_t capacity = TupleOf(tables)->capacity;

		rte_rcu_qsbr_thread_online(tables.port.rcu, 3);
		for (uint32_t meter = 10; meter < 14; meter++) {
			tables.Remove(rule);
			EXPECT_EQ(tables.MeterOf(FrameOfSource(7)), 0u);
			rule = tables.Add(RuleOfSource(7, meter));
			EXPECT_EQ(tables.MeterOf(FrameOfSource(7)), meter);
			EXPECT_EQ(tables.MeterOf(FrameOfSource(1000)), 1u);
		}
		rte_rcu_qsbr_thread_offline(tables.port.rcu, 3);
		EXPECT_EQ(tables.MeterOf(FrameOfSource(7)), 13u);
		/* what was kept for the burst did not make the tuple grow */
		EXPECT_EQ(TupleOf(tables)->capacity, capacity);
	}
}

TEST(FlowTuple, ASlotServesAnotherKeyWhenItsRuleIsGoneForEverybody)
{
	Tables tables;
	tables.Add(RuleOfSource(1000, 1));
	tables.Add(RuleOfSource(1001, 2));
	const vask_flow_tuple *tuple = TupleOf(tables);

	/* 14 keys fit beside those two: many more come and go than there are slots */
	for (uint32_t n = 0; n < 1000; n++) {
		rte_flow *rule = tables.Add(RuleOfSource(2000, 3));
		EXPECT_EQ(tables.MeterOf(FrameOfSource(2000)), 3u);
		tables.Remove(rule);
	}
	EXPECT_EQ(TupleOf(tables), tuple);
}

TEST(FlowTuple, AChangeOfMeterReachesThePacketsOfEveryHead)
{
	for (const bool hash : {false, true}) {
		Tables tables;
		AddOthers(tables, hash);
		std::vector<rte_flow *> rules;
		for (uint32_t n = 1; n <= 8; n++)
			rules.push_back(tables.Add(RuleOfSource(n, n)));

		for (uint32_t n = 1; n <= 8; n++) {
			vask_flow_rule_meter_set(rules[n - 1], 100 + n);
			EXPECT_EQ(vask_flow_rule_meter(rules[n - 1]), 100 + n);
			EXPECT_EQ(tables.MeterOf(FrameOfSource(n)), 100 + n);
		}
		vask_flow_rule_meter_set(rules[0], 0);
		EXPECT_EQ(tables.MeterOf(FrameOfSource(1)), 0u);
		EXPECT_EQ(tables.MeterOf(FrameOfSource(2)), 102u);
	}
}

TEST(FlowTuple, AChangeOfMeterOfARuleBehindAnotherShowsWhenItComesFirst)
{
	for (const bool hash : {false, true}) {
		Tables tables;
		AddOthers(tables, hash);
		rte_flow *second = tables.Add(RuleOfSource(7, 5));
		rte_flow *first = tables.Add(RuleOfSource(7, 6).Priority(0));

		tables.Remove(second);
		second = tables.Add(RuleOfSource(7, 5).Priority(1));
		vask_flow_rule_meter_set(second, 50);
		EXPECT_EQ(tables.MeterOf(FrameOfSource(7)), 6u);
		tables.Remove(first);
		EXPECT_EQ(tables.MeterOf(FrameOfSource(7)), 50u);
	}
}

TEST(FlowTuple, AChangeOfMeterDoesNotBringARemovedRuleBack)
{
	Tables tables;
	AddOthers(tables, false);
	rte_flow *rule = tables.Add(RuleOfSource(7, 9));

	rte_rcu_qsbr_thread_online(tables.port.rcu, 3);
	tables.Remove(rule);
	vask_flow_rule_meter_set(rule, 10);
	EXPECT_EQ(tables.MeterOf(FrameOfSource(7)), 0u);
	rte_rcu_qsbr_thread_offline(tables.port.rcu, 3);
}

} // namespace
