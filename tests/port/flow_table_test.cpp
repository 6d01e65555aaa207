/* SPDX-License-Identifier: BSD-3-Clause */
#include "flow_support.h"

#include <algorithm>
#include <chrono>
#include <random>

using namespace vask_test;

namespace
{

const Bytes &
UdpFrame()
{
	static const Bytes frame = Eth(Ipv4({.src = 0x0a000001}, Udp(1000, 80)));

	return frame;
}

Rule
UdpRule()
{
	return Rule().Eth().Ipv4().Udp();
}

TEST(FlowTable, WithoutRulesThereIsNoViewAndNothingIsMetered)
{
	Tables tables;
	const Mbuf mbuf = MakeMbuf(UdpFrame());
	const Verdict v = tables.Classify({mbuf.get()});

	EXPECT_EQ(ViewOf(tables), nullptr);
	EXPECT_FALSE(v.metered);
	EXPECT_FALSE(v.diverted);
	EXPECT_EQ(v.drop_mask, 0u);
}

TEST(FlowTable, ARuleHoldsWhenItsCreationReturnsAndNoMoreWhenItsRemovalDoes)
{
	Tables tables;
	rte_flow *rule = tables.Add(UdpRule().Meter(9));

	EXPECT_EQ(tables.MeterOf(UdpFrame()), 9u);
	EXPECT_EQ(tables.MeterOf(Eth(Ipv4({}, Tcp(1, 2)))), 0u);
	tables.Remove(rule);
	EXPECT_EQ(tables.MeterOf(UdpFrame()), 0u);
	EXPECT_EQ(ViewOf(tables), nullptr);
}

TEST(FlowTable, DirectionsHaveRulesOfTheirOwn)
{
	Tables tables;

	tables.Add(UdpRule().Meter(1));
	tables.Add(UdpRule().Egress().Meter(2));
	EXPECT_EQ(tables.MeterOf(UdpFrame(), VASK_P4_MEP_INGRESS), 1u);
	EXPECT_EQ(tables.MeterOf(UdpFrame(), VASK_P4_MEP_EGRESS), 2u);
}

TEST(FlowTable, TheLowestPriorityValueWinsWhateverTheOrderOfCreation)
{
	std::vector<uint32_t> priorities = {0, 1, 7, 65535};

	do {
		Tables tables;
		for (uint32_t priority : priorities)
			tables.Add(Rule().Eth().Ipv4().UdpDst(80).Priority(priority).Meter(
				100 + priority));
		EXPECT_EQ(tables.MeterOf(UdpFrame()), 100u);
	} while (std::next_permutation(priorities.begin(), priorities.end()));
}

TEST(FlowTable, PrioritiesHoldBetweenDifferentPatterns)
{
	Tables tables;
	rte_flow *narrow = tables.Add(Rule().Ipv4Src(0x0a000001).Priority(5).Meter(1));
	rte_flow *wide = tables.Add(UdpRule().Priority(3).Meter(2));

	EXPECT_EQ(tables.MeterOf(UdpFrame()), 2u);
	tables.Add(Rule().Priority(2).Meter(3));
	EXPECT_EQ(tables.MeterOf(UdpFrame()), 3u);
	EXPECT_EQ(tables.MeterOf(Eth(Raw(0x88cc, 46))), 3u);
	tables.Remove(wide);
	tables.Remove(narrow);
	EXPECT_EQ(tables.MeterOf(UdpFrame()), 3u);
}

TEST(FlowTable, AmongEqualsTheOlderRuleWins)
{
	Tables tables;
	rte_flow *oldest = tables.Add(Rule().Ipv4Src(0x0a000001).Meter(1));
	rte_flow *middle = tables.Add(UdpRule().Meter(2));

	tables.Add(Rule().Eth().Meter(3));
	EXPECT_EQ(tables.MeterOf(UdpFrame()), 1u);
	tables.Remove(oldest);
	EXPECT_EQ(tables.MeterOf(UdpFrame()), 2u);
	tables.Add(Rule().Ipv4Src(0x0a000001).Meter(4));
	EXPECT_EQ(tables.MeterOf(UdpFrame()), 2u);
	tables.Remove(middle);
	EXPECT_EQ(tables.MeterOf(UdpFrame()), 3u);
}

TEST(FlowTable, RulesWithTheSamePatternTakeOverFromEachOther)
{
	/* once compared one by one, once in a hash table */
	for (uint32_t others : {0u, 100u}) {
		Tables tables;
		for (uint32_t n = 0; n < others; n++)
			tables.Add(RuleOfSource(1000 + n, 1));
		rte_flow *first = tables.Add(RuleOfSource(1, 11).Priority(4));
		rte_flow *second = tables.Add(RuleOfSource(1, 12).Priority(4));
		rte_flow *last = tables.Add(RuleOfSource(1, 13).Priority(9));
		rte_flow *best = tables.Add(RuleOfSource(1, 14).Priority(1));

		EXPECT_EQ(tables.MeterOf(FrameOfSource(1)), 14u);
		tables.Remove(second);
		EXPECT_EQ(tables.MeterOf(FrameOfSource(1)), 14u);
		tables.Remove(best);
		EXPECT_EQ(tables.MeterOf(FrameOfSource(1)), 11u);
		tables.Remove(first);
		EXPECT_EQ(tables.MeterOf(FrameOfSource(1)), 13u);
		tables.Remove(last);
		EXPECT_EQ(tables.MeterOf(FrameOfSource(1)), 0u);
	}
}

TEST(FlowTable, RulesSharingAMaskShareATuple)
{
	Tables tables;

	for (uint32_t n = 0; n < 10; n++)
		tables.Add(RuleOfSource(n, 1));
	EXPECT_EQ(ViewOf(tables)->n, 1u);
	tables.Add(UdpRule());
	EXPECT_EQ(ViewOf(tables)->n, 2u);
}

TEST(FlowTable, WhatABurstMaySeeIsKeptUntilItEnds)
{
	Tables tables;
	rte_flow *rule = tables.Add(UdpRule().Meter(9));
	vask_flow_state *state = tables.port.flow[VASK_P4_MEP_INGRESS];
	const auto retired = [&] {
		unsigned n = 0;
		vask_flow_retired *r;
		STAILQ_FOREACH(r, &state->retired, next)
		n++;
		return n;
	};

	vask_rcu_online(tables.port.rcu, 3);
	tables.Remove(rule);
	/* the rule, its tuple and the view that showed it */
	EXPECT_EQ(retired(), 3u);
	EXPECT_EQ(rule->spec.meter_id, 9u);
	tables.Add(UdpRule().Meter(8));
	EXPECT_EQ(retired(), 3u);
	rte_rcu_qsbr_thread_offline(tables.port.rcu, 3);
	rte_flow *other = tables.Add(Rule().Ipv6().Meter(7));
	/* the view from before the last rule */
	EXPECT_EQ(retired(), 1u);

	tables.Remove(other);
	EXPECT_EQ(retired(), state->n_retired);
}

TEST(FlowTable, RulesThatHaveGoneAreFreedTogether)
{
	Tables tables;
	const vask_flow_state *state = tables.port.flow[VASK_P4_MEP_INGRESS];
	std::vector<rte_flow *> rules;

	/* one after the other with the same pattern: each is retired alone */
	for (uint32_t n = 0; n < 200; n++)
		rules.push_back(tables.Add(UdpRule().Meter(9)));
	for (uint32_t n = 0; n < 63; n++)
		tables.Remove(rules[n]);
	EXPECT_EQ(state->n_retired, 63u);
	tables.Remove(rules[63]);
	EXPECT_EQ(state->n_retired, 0u);
	tables.Remove(rules[64]);
	EXPECT_EQ(state->n_retired, 1u);
	rules.push_back(tables.Add(UdpRule().Meter(9)));
	EXPECT_EQ(state->n_retired, 0u);
}

TEST(FlowTable, QueueAndDropAreTheVerdictOfThePacketsTheyMatch)
{
	Tables tables;
	const Mbuf udp = MakeMbuf(UdpFrame()), tcp = MakeMbuf(Eth(Ipv4({}, Tcp(1, 2)))),
		   other = MakeMbuf(Eth(Raw(0x88cc, 46)));

	tables.Add(UdpRule().Queue(3).Meter(5));
	tables.Add(Rule().Ipv4().Tcp().Drop());
	const Verdict v = tables.Classify({udp.get(), tcp.get(), other.get()}, 1);
	EXPECT_TRUE(v.diverted);
	EXPECT_EQ(v.queue[0], 3);
	EXPECT_EQ(v.queue[2], 1);
	EXPECT_EQ(v.drop_mask, 0b010u);
	EXPECT_EQ(v.hw_meter_id[0], 5u);
	EXPECT_EQ(v.hw_meter_id[2], 0u);
}

TEST(FlowTable, AfterPassthruTheSearchGoesOn)
{
	Tables tables;
	rte_flow *counts = tables.Add(Rule().Eth().Count().Passthru());
	rte_flow *shadow = tables.Add(Rule().Eth().Count().Meter(4).Passthru());

	tables.Add(UdpRule().Priority(1).Meter(5).Queue(2));
	tables.Add(Rule().Priority(2).Drop());

	const Mbuf udp = MakeMbuf(UdpFrame()), tcp = MakeMbuf(Eth(Ipv4({}, Tcp(1, 2))));
	const Verdict v = tables.Classify({udp.get(), tcp.get()});
	EXPECT_EQ(v.hw_meter_id[0], 4u); /* the first meter met */
	EXPECT_EQ(v.queue[0], 2);
	EXPECT_EQ(v.drop_mask, 0b10u);
	EXPECT_EQ(Hits(counts), 2u);
	EXPECT_EQ(Hits(shadow), 2u);
}

TEST(FlowTable, WithoutPassthruTheSearchEnds)
{
	Tables tables;
	rte_flow *first = tables.Add(Rule().Eth().Count());
	rte_flow *second = tables.Add(UdpRule().Count().Meter(5));

	EXPECT_EQ(tables.MeterOf(UdpFrame()), 0u);
	EXPECT_EQ(Hits(first), 1u);
	EXPECT_EQ(Hits(second), 0u);
}

TEST(FlowTable, CountsAddUpOverQueuesAndStartAgainAfterAReset)
{
	Tables tables;
	rte_flow *rule = tables.Add(UdpRule().Count());
	const Mbuf mbuf = MakeMbuf(UdpFrame());
	const uint64_t length = UdpFrame().size();
	uint64_t hits, bytes;

	for (uint16_t queue = 0; queue < VASK_QUEUES_MAX; queue++)
		tables.Classify({mbuf.get(), mbuf.get()}, queue);
	vask_flow_rule_count(rule, true, &hits, &bytes);
	EXPECT_EQ(hits, 32u);
	EXPECT_EQ(bytes, 32 * length);
	tables.Classify({mbuf.get()}, 5);
	vask_flow_rule_count(rule, false, &hits, &bytes);
	EXPECT_EQ(hits, 1u);
	EXPECT_EQ(bytes, length);
}

TEST(FlowTable, BytesAreThoseOfTheWholeFrameWhateverItsSegments)
{
	Tables tables;
	rte_flow *rule = tables.Add(UdpRule().Count());
	const Mbuf mbuf = MakeMbuf(UdpFrame(), {20, 40});
	uint64_t hits, bytes;

	tables.Classify({mbuf.get()});
	vask_flow_rule_count(rule, false, &hits, &bytes);
	EXPECT_EQ(bytes, UdpFrame().size());
}

/* 4095 rules on several masks, in the order of a shuffled deck. */
std::vector<Rule>
ManyRules()
{
	std::vector<Rule> rules;

	for (uint32_t n = 1; n <= 4095; n++)
		switch (n % 4) {
		case 0:
			rules.push_back(Rule().Eth().Ipv4Src(n << 8, 0xffffff00).Meter(n));
			break;
		case 1:
			rules.push_back(
				Rule().Eth().Ipv4Src(n << 8, 0xffffff00).UdpDst(80).Meter(n));
			break;
		case 2:
			rules.push_back(Rule().VlanId(n).Ipv4().Meter(n));
			break;
		default:
			rules.push_back(Rule().Eth().Ipv4().UdpDst(n).Meter(n));
		}
	std::shuffle(rules.begin(), rules.end(), std::mt19937(1));
	return rules;
}

TEST(FlowTable, FourThousandRulesAreCreatedAndRemovedOneByOneInUnderFiveSeconds)
{
	const std::vector<Rule> rules = ManyRules();
	std::vector<rte_flow *> flows;
	Tables tables;
	using Clock = std::chrono::steady_clock;

	const auto begin = Clock::now();
	for (const Rule &rule : rules)
		flows.push_back(tables.Add(rule));
	const auto created = Clock::now();
	EXPECT_EQ(ViewOf(tables)->n, 4u);
	EXPECT_EQ(tables.MeterOf(Eth(Ipv4({.src = 4092 << 8 | 7}, Tcp(1, 2)))), 4092u);
	EXPECT_EQ(tables.MeterOf(Eth(Ipv4({.src = 4093 << 8 | 7}, Udp(1, 80)))), 4093u);
	EXPECT_EQ(tables.MeterOf(Eth(Vlan(4094, Ipv4({}, Tcp(1, 2))))), 4094u);
	EXPECT_EQ(tables.MeterOf(Eth(Ipv4({}, Udp(1, 4095)))), 4095u);

	const auto removing = Clock::now();
	for (rte_flow *flow : flows)
		tables.Remove(flow);
	const auto removed = Clock::now();
	EXPECT_EQ(ViewOf(tables), nullptr);
	EXPECT_LT(created - begin, std::chrono::seconds(5));
	EXPECT_LT(removed - removing, std::chrono::seconds(5));
	RecordProperty("created_us",
		std::chrono::duration_cast<std::chrono::microseconds>(created - begin).count());
	RecordProperty("removed_us",
		std::chrono::duration_cast<std::chrono::microseconds>(removed - removing).count());
}

TEST(FlowTable, ThousandMasksWorkToo)
{
	Tables tables;

	/* /1 to /32 on both addresses */
	for (unsigned src = 1; src <= 32; src++)
		for (unsigned dst = 1; dst <= 32; dst++) {
			rte_flow_item_ipv4 spec = {}, mask = {};

			spec.hdr.src_addr = spec.hdr.dst_addr = UINT32_MAX;
			mask.hdr.src_addr = rte_cpu_to_be_32(UINT32_MAX << (32 - src));
			mask.hdr.dst_addr = rte_cpu_to_be_32(UINT32_MAX << (32 - dst));
			tables.Add(Rule().Item(RTE_FLOW_ITEM_TYPE_IPV4, spec, mask)
					   .Priority(100 - src - dst)
					   .Meter(src << 8 | dst));
		}
	EXPECT_EQ(ViewOf(tables)->n, 1024u);
	const auto meter = [&](uint32_t src, uint32_t dst) {
		return tables.MeterOf(Eth(Ipv4({.src = src, .dst = dst}, Udp(1, 2))));
	};
	EXPECT_EQ(meter(0xffffffff, 0xffffffff), 32u << 8 | 32);
	EXPECT_EQ(meter(0xffffff00, 0xfff00000), 24u << 8 | 12);
	EXPECT_EQ(meter(0x80000000, 0xffffffff), 1u << 8 | 32);
	EXPECT_EQ(meter(0x7fffffff, 0xffffffff), 0u);
}

} // namespace
