/* SPDX-License-Identifier: BSD-3-Clause */
/* Rules with one mask: slots, the rte_hash behind them, and how both grow. */

#include "flow_support.h"

#include <bit>
#include <random>
#include <vector>

#include "vask_flow_key.h"
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
		vask_rcu_online(tables.port.rcu, 3);
		tables.Remove(rule);
		EXPECT_EQ(vask_flow_rule_meter(rule), 9u);
		EXPECT_EQ(tables.MeterOf(FrameOfSource(7)), 0u);
		rte_rcu_qsbr_thread_offline(tables.port.rcu, 3);
	}
}

TEST(FlowTuple, AddressesInARowNeedNoHashBesideTheirSlots)
{
	for (const uint32_t first : {0x0a000000u, 0xc0a80000u, 0xac100001u}) {
		Tables tables;

		for (uint32_t n = 0; n < 4095; n++) {
			tables.Add(RuleOfSource(first + n, n + 1));
			/* after 1, 3, 7 .. 4095 rules */
			if (std::has_single_bit(n + 2)) {
				EXPECT_EQ(TupleOf(tables)->hash, nullptr) << n + 1;
			}
		}
		for (uint32_t n = 0; n < 4095; n++)
			EXPECT_EQ(tables.MeterOf(FrameOfSource(first + n)), n + 1);
		EXPECT_EQ(TupleOf(tables)->capacity, 4096u);
	}
}

TEST(FlowTuple, RulesThatComeAndGoBesideAddressesInARowBuildFewTuples)
{
	constexpr unsigned CHANGES = 5000;
	constexpr unsigned TUPLES = 8; /* replaced at most, the last for one with an rte_hash */
	Tables tables;
	std::mt19937 dice(5);

	for (uint32_t n = 0; n < 4000; n++)
		tables.Add(RuleOfSource(0x0a000000 + n, 1));
	const uint64_t before = tables.port.rcu->token;
	for (unsigned n = 0; n < CHANGES; n++)
		tables.Remove(tables.Add(RuleOfSource(0xc0000000 + dice() % 0x10000000, 2)));
	/* each rule that goes is retired, and each tuple that is replaced with the view that showed it */
	EXPECT_LE(tables.port.rcu->token - before, CHANGES + 2 * TUPLES);
	EXPECT_EQ(TupleOf(tables)->capacity, 4096u);
	for (uint32_t n = 0; n < 4000; n++)
		EXPECT_EQ(tables.MeterOf(FrameOfSource(0x0a000000 + n)), 1u);
}

/* Both kinds of tuple: keys that all have their slots, and keys some of which are only in the rte_hash. */
void
AddOthers(Tables &tables, bool hash)
{
	for (uint32_t n = 0; n < (hash ? 500 : 2); n++)
		tables.Add(RuleOfSource(1000 + n * 2654435761, 1));
	EXPECT_EQ(TupleOf(tables)->hash != nullptr, hash);
}

/* The slot that the frames of a source want. */
const vask_flow_slot *
SlotOf(const vask_flow_tuple *tuple, uint32_t source)
{
	const Mbuf mbuf = MakeMbuf(FrameOfSource(source));
	vask_flow_fields image;
	const vask_flow_frame frame = vask_flow_frame_read(mbuf.get(), &image);
	uint64_t key[VASK_FLOW_KEY_WORDS];

	vask_flow_tuple_key(tuple, &frame, key);
	return vask_flow_slot_of(tuple, tuple->slot_size, vask_flow_key_hash(key, tuple->n_words));
}

/* The first source from 1 on that wants a slot of which `good` holds. */
template <typename Good>
uint32_t
FirstSource(const vask_flow_tuple *tuple, const Good &good)
{
	for (uint32_t source = 1; source < 100000; source++)
		if (good(source, SlotOf(tuple, source)))
			return source;
	ADD_FAILURE() << "no source wants such a slot";
	return 0;
}

bool
IsFree(uint32_t, const vask_flow_slot *slot)
{
	return slot->brief == 0;
}

/* Two sources that want the same slot, which is free. */
struct Rivals {
	const vask_flow_slot *slot;
	uint32_t one;
	uint32_t other;
};

Rivals
RivalsOf(const vask_flow_tuple *tuple)
{
	const uint32_t one = FirstSource(tuple, IsFree);
	const vask_flow_slot *slot = SlotOf(tuple, one);

	return {slot, one, FirstSource(tuple, [&](uint32_t source, const vask_flow_slot *its) {
			return its == slot && source != one;
		})};
}

TEST(FlowTuple, ARuleComesBackToItsSlotWhileABurstMayStillSeeTheOneBefore)
{
	for (const bool hash : {false, true}) {
		Tables tables;
		AddOthers(tables, hash);
		const vask_flow_tuple *tuple = TupleOf(tables);
		const uint8_t *slots = tuple->slots;
		const uint32_t source = FirstSource(tuple, IsFree);
		rte_flow *rule = tables.Add(RuleOfSource(source, 9));

		vask_rcu_online(tables.port.rcu, 3);
		for (uint32_t meter = 10; meter < 14; meter++) {
			tables.Remove(rule);
			EXPECT_EQ(tables.MeterOf(FrameOfSource(source)), 0u);
			rule = tables.Add(RuleOfSource(source, meter));
			EXPECT_EQ(tables.MeterOf(FrameOfSource(source)), meter);
			EXPECT_EQ(SlotOf(tuple, source)->rule, rule);
		}
		rte_rcu_qsbr_thread_offline(tables.port.rcu, 3);
		/* now the four before are freed, and leave the slot alone */
		tables.Remove(tables.Add(RuleOfSource(FirstSource(tuple, IsFree), 1)));
		EXPECT_EQ(SlotOf(tuple, source)->rule, rule);
		EXPECT_EQ(tables.MeterOf(FrameOfSource(source)), 13u);
		EXPECT_EQ(TupleOf(tables)->slots, slots);
	}
}

TEST(FlowTuple, ASlotServesAnotherKeyWhenItsRuleIsGoneForEverybody)
{
	for (const bool hash : {false, true}) {
		Tables tables;
		AddOthers(tables, hash);
		const auto [slot, one, other] = RivalsOf(TupleOf(tables));

		tables.Remove(tables.Add(RuleOfSource(one, 8)));
		rte_flow *rule = tables.Add(RuleOfSource(other, 9));
		EXPECT_EQ(slot->rule, rule);
		EXPECT_EQ(tables.MeterOf(FrameOfSource(other)), 9u);
		EXPECT_EQ(tables.MeterOf(FrameOfSource(one)), 0u);
	}
}

TEST(FlowTuple, ASlotKeepsItsKeyWhileABurstMaySeeTheRuleThatIsGone)
{
	for (const bool hash : {false, true}) {
		Tables tables;
		AddOthers(tables, hash);
		const auto [slot, one, other] = RivalsOf(TupleOf(tables));
		rte_flow *rule = tables.Add(RuleOfSource(one, 8));
		const uint32_t n_words = TupleOf(tables)->key_words;
		const std::vector<uint64_t> key(slot->key, slot->key + n_words);

		vask_rcu_online(tables.port.rcu, 3);
		tables.Remove(rule);
		tables.Add(RuleOfSource(other, 9));
		EXPECT_EQ(std::vector<uint64_t>(slot->key, slot->key + n_words), key);
		EXPECT_EQ(slot->rule, rule);
		EXPECT_EQ(tables.MeterOf(FrameOfSource(other)), 9u);
		EXPECT_EQ(tables.MeterOf(FrameOfSource(one)), 0u);
		rte_rcu_qsbr_thread_offline(tables.port.rcu, 3);
	}
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

	vask_rcu_online(tables.port.rcu, 3);
	tables.Remove(rule);
	vask_flow_rule_meter_set(rule, 10);
	EXPECT_EQ(tables.MeterOf(FrameOfSource(7)), 0u);
	rte_rcu_qsbr_thread_offline(tables.port.rcu, 3);
}

} // namespace
