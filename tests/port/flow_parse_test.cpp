/* SPDX-License-Identifier: BSD-3-Clause */
#include "flow_support.h"

#include <climits>
#include <cstring>

#include <rte_errno.h>

using namespace vask_test;

namespace
{

constexpr uint16_t RX_QUEUES = 4;

struct Parsed {
	int rc;
	vask_flow_spec spec;
	const rte_flow_action *meter;
	rte_flow_error error;
};

Parsed
Parse(const Rule &rule)
{
	Parsed parsed = {};

	parsed.rc = vask_flow_parse(RX_QUEUES, &rule.attr, rule.pattern(), rule.actions(),
		&parsed.spec, &parsed.meter, &parsed.error);
	return parsed;
}

void
ExpectRefused(const Parsed &parsed, int code, rte_flow_error_type type, const void *cause,
	const char *text)
{
	EXPECT_EQ(parsed.rc, -code);
	EXPECT_EQ(rte_errno, code);
	EXPECT_EQ(parsed.error.type, type);
	EXPECT_EQ(parsed.error.cause, cause);
	EXPECT_STREQ(parsed.error.message, text);
}

void
ExpectItemRefused(
	const Rule &rule, size_t item, int code, rte_flow_error_type type, const char *text)
{
	SCOPED_TRACE(text);
	ExpectRefused(Parse(rule), code, type, &rule.pattern()[item], text);
}

void
ExpectActionRefused(
	const Rule &rule, size_t action, int code, rte_flow_error_type type, const char *text)
{
	SCOPED_TRACE(text);
	ExpectRefused(Parse(rule), code, type, &rule.actions()[action], text);
}

template <typename T>
T
AllOnes()
{
	T record;

	memset(&record, 0xff, sizeof(record));
	return record;
}

/* attributes */

TEST(FlowAttr, PriorityAndDirectionAreTaken)
{
	const Parsed in = Parse(Rule().Priority(65535));
	const Parsed out = Parse(Rule().Egress());

	EXPECT_EQ(in.rc, 0);
	EXPECT_EQ(in.spec.priority, 65535u);
	EXPECT_EQ(in.spec.dir, VASK_P4_MEP_INGRESS);
	EXPECT_EQ(out.rc, 0);
	EXPECT_EQ(out.spec.dir, VASK_P4_MEP_EGRESS);
}

TEST(FlowAttr, EachRefusalNamesItsAttribute)
{
	Rule group, transfer, both, none;
	const Rule priority = Rule().Priority(65536);

	group.attr.group = 1;
	transfer.attr.transfer = 1;
	both.attr.egress = 1;
	none.attr.ingress = 0;
	ExpectRefused(Parse(group), ENOTSUP, RTE_FLOW_ERROR_TYPE_ATTR_GROUP, &group.attr,
		"there is no group but 0");
	ExpectRefused(Parse(priority), ENOTSUP, RTE_FLOW_ERROR_TYPE_ATTR_PRIORITY, &priority.attr,
		"priorities are 0 to 65535");
	ExpectRefused(Parse(transfer), ENOTSUP, RTE_FLOW_ERROR_TYPE_ATTR_TRANSFER, &transfer.attr,
		"transfer rules are not supported");
	ExpectRefused(Parse(both), ENOTSUP, RTE_FLOW_ERROR_TYPE_ATTR_EGRESS, &both.attr,
		"a rule is for ingress or for egress, not for both");
	ExpectRefused(Parse(none), EINVAL, RTE_FLOW_ERROR_TYPE_ATTR_INGRESS, &none.attr,
		"a rule is for ingress or for egress");
}

TEST(FlowAttr, MissingRecordsAreRefused)
{
	const Rule rule;
	Parsed p = {};

	p.rc = vask_flow_parse(
		1, nullptr, rule.pattern(), rule.actions(), &p.spec, &p.meter, &p.error);
	ExpectRefused(p, EINVAL, RTE_FLOW_ERROR_TYPE_ATTR, nullptr, "no attributes");
	p.rc = vask_flow_parse(1, &rule.attr, nullptr, rule.actions(), &p.spec, &p.meter, &p.error);
	ExpectRefused(p, EINVAL, RTE_FLOW_ERROR_TYPE_ITEM_NUM, nullptr, "no pattern");
	p.rc = vask_flow_parse(1, &rule.attr, rule.pattern(), nullptr, &p.spec, &p.meter, &p.error);
	ExpectRefused(p, EINVAL, RTE_FLOW_ERROR_TYPE_ACTION_NUM, nullptr, "no actions");
}

/* items */

TEST(FlowItem, WithoutSpecOnlyThePresenceIsAskedFor)
{
	const Parsed p = Parse(Rule().Eth().Ipv4().Udp());
	vask_flow_fields mask = {};

	mask.present = VASK_FLOW_HAS_ETH | VASK_FLOW_HAS_IPV4 | VASK_FLOW_HAS_UDP;
	EXPECT_EQ(p.rc, 0);
	EXPECT_EQ(memcmp(&p.spec.mask, &mask, sizeof(mask)), 0);
	EXPECT_EQ(memcmp(&p.spec.key, &mask, sizeof(mask)), 0);
}

TEST(FlowItem, AnEmptyPatternMatchesEverything)
{
	const Parsed p = Parse(Rule());
	const vask_flow_fields nothing = {};

	EXPECT_EQ(p.rc, 0);
	EXPECT_EQ(memcmp(&p.spec.mask, &nothing, sizeof(nothing)), 0);
}

TEST(FlowItem, VoidIsSkippedAnywhere)
{
	const Rule with = Rule().Item(RTE_FLOW_ITEM_TYPE_VOID)
				  .Eth()
				  .Item(RTE_FLOW_ITEM_TYPE_VOID)
				  .Ipv4()
				  .Item(RTE_FLOW_ITEM_TYPE_VOID)
				  .Action(RTE_FLOW_ACTION_TYPE_VOID);
	const Parsed a = Parse(with), b = Parse(Rule().Eth().Ipv4());

	EXPECT_EQ(a.rc, 0);
	EXPECT_EQ(memcmp(&a.spec, &b.spec, sizeof(a.spec)), 0);
}

TEST(FlowItem, WithoutMaskTheItemsDefaultHolds)
{
	const Parsed p = Parse(Rule().Item(RTE_FLOW_ITEM_TYPE_ETH, rte_flow_item_eth{})
				       .VlanId(0xffff)
				       .Item(RTE_FLOW_ITEM_TYPE_IPV4, AllOnes<rte_flow_item_ipv4>())
				       .Item(RTE_FLOW_ITEM_TYPE_TCP, AllOnes<rte_flow_item_tcp>()));
	vask_flow_fields mask = {};

	mask.present =
		VASK_FLOW_HAS_ETH | VASK_FLOW_HAS_VLAN | VASK_FLOW_HAS_IPV4 | VASK_FLOW_HAS_TCP;
	mask.eth.dst_addr = mask.eth.src_addr = AllOnes<rte_ether_addr>();
	mask.vlan[0].vlan_tci = RTE_BE16(0x0fff);
	mask.ipv4.src_addr = mask.ipv4.dst_addr = UINT32_MAX;
	mask.l4_ports[0] = mask.l4_ports[1] = UINT16_MAX;
	EXPECT_EQ(p.rc, 0);
	EXPECT_EQ(memcmp(&p.spec.mask, &mask, sizeof(mask)), 0);
	EXPECT_EQ(p.spec.key.vlan[0].vlan_tci, RTE_BE16(0x0fff));
	EXPECT_EQ(p.spec.key.ipv4.next_proto_id, 0);
}

TEST(FlowItem, WithoutMaskIpv6AndUdpMatchAddressesAndPorts)
{
	rte_flow_item_ipv6 ipv6 = {};
	rte_flow_item_udp udp = {};
	const Parsed p =
		Parse(Rule().Item(RTE_FLOW_ITEM_TYPE_IPV6, ipv6).Item(RTE_FLOW_ITEM_TYPE_UDP, udp));
	vask_flow_fields mask = {};

	mask.present = VASK_FLOW_HAS_IPV6 | VASK_FLOW_HAS_UDP;
	memset(&mask.ipv6.src_addr, 0xff, sizeof(mask.ipv6.src_addr));
	memset(&mask.ipv6.dst_addr, 0xff, sizeof(mask.ipv6.dst_addr));
	mask.l4_ports[0] = mask.l4_ports[1] = UINT16_MAX;
	EXPECT_EQ(p.rc, 0);
	EXPECT_EQ(memcmp(&p.spec.mask, &mask, sizeof(mask)), 0);
}

TEST(FlowItem, EveryHeaderBitMayBeMasked)
{
	rte_flow_item_eth eth = AllOnes<rte_flow_item_eth>();
	rte_flow_item_vlan vlan = AllOnes<rte_flow_item_vlan>();
	rte_flow_item_ipv6 ipv6 = AllOnes<rte_flow_item_ipv6>();

	eth.reserved = vlan.reserved = ipv6.reserved = 0;
	const Parsed v4 =
		Parse(Rule().Item(RTE_FLOW_ITEM_TYPE_ETH, eth, eth)
				.Item(RTE_FLOW_ITEM_TYPE_VLAN, vlan, vlan)
				.Item(RTE_FLOW_ITEM_TYPE_VLAN, vlan, vlan)
				.Item(RTE_FLOW_ITEM_TYPE_IPV4, AllOnes<rte_flow_item_ipv4>(),
					AllOnes<rte_flow_item_ipv4>())
				.Item(RTE_FLOW_ITEM_TYPE_TCP, AllOnes<rte_flow_item_tcp>(),
					AllOnes<rte_flow_item_tcp>()));
	const Parsed v6 = Parse(Rule().Item(RTE_FLOW_ITEM_TYPE_IPV6, ipv6, ipv6)
					.Item(RTE_FLOW_ITEM_TYPE_UDP, AllOnes<rte_flow_item_udp>(),
						AllOnes<rte_flow_item_udp>()));
	vask_flow_fields all4 = AllOnes<vask_flow_fields>(), all6 = {};

	all4.present = VASK_FLOW_HAS_ETH | VASK_FLOW_HAS_VLAN | VASK_FLOW_HAS_VLAN2 |
		VASK_FLOW_HAS_VLAN3 | VASK_FLOW_HAS_IPV4 | VASK_FLOW_HAS_TCP;
	all4.ipv6_ext = 0;
	all4.pad2 = 0;
	memset(&all4.ipv6, 0, sizeof(all4.ipv6));
	memset(&all4.ipv4, 0xff, sizeof(all4.ipv4));
	EXPECT_EQ(v4.rc, 0);
	EXPECT_EQ(memcmp(&v4.spec.mask, &all4, sizeof(all4)), 0);

	all6.present = VASK_FLOW_HAS_IPV6 | VASK_FLOW_HAS_UDP;
	all6.ipv6_ext = 0x1ff;
	memset(&all6.ipv6, 0xff, sizeof(all6.ipv6));
	memset(all6.l4_ports, 0xff, sizeof(all6.l4_ports));
	memset(all6.l4_rest, 0xff, 4);
	EXPECT_EQ(v6.rc, 0);
	EXPECT_EQ(memcmp(&v6.spec.mask, &all6, sizeof(all6)), 0);
}

TEST(FlowItem, BitsOutsideTheMaskAreNotInTheKey)
{
	const Parsed p = Parse(Rule().Ipv4Src(0xffffffff, 0xff00ff00));

	EXPECT_EQ(p.rc, 0);
	EXPECT_EQ(p.spec.key.ipv4.src_addr, rte_cpu_to_be_32(0xff00ff00));
}

TEST(FlowItem, LastIsAcceptedWhenItMakesNoRange)
{
	rte_flow_item_udp spec = {}, mask = {}, zero = {};
	Rule same, none, outside;

	spec.hdr.dst_port = RTE_BE16(80);
	mask.hdr.dst_port = UINT16_MAX;
	rte_flow_item_udp other = spec;
	other.hdr.src_port = RTE_BE16(9); /* which the mask leaves out */
	same.Ipv4().Add(RTE_FLOW_ITEM_TYPE_UDP, &spec, &mask, &spec);
	none.Ipv4().Add(RTE_FLOW_ITEM_TYPE_UDP, &spec, &mask, &zero);
	outside.Ipv4().Add(RTE_FLOW_ITEM_TYPE_UDP, &spec, &mask, &other);
	EXPECT_EQ(Parse(same).rc, 0);
	EXPECT_EQ(Parse(none).rc, 0);
	EXPECT_EQ(Parse(outside).rc, 0);
}

TEST(FlowItem, RangesAndRecordsWithoutSpecAreRefused)
{
	rte_flow_item_udp spec = {}, last = {}, mask = {};
	Rule range, lone_mask, lone_last;

	spec.hdr.dst_port = RTE_BE16(80);
	last.hdr.dst_port = RTE_BE16(90);
	mask.hdr.dst_port = UINT16_MAX;
	range.Ipv4().Add(RTE_FLOW_ITEM_TYPE_UDP, &spec, &mask, &last);
	lone_mask.Ipv4().Add(RTE_FLOW_ITEM_TYPE_UDP, nullptr, &mask, nullptr);
	lone_last.Ipv4().Add(RTE_FLOW_ITEM_TYPE_UDP, nullptr, nullptr, &last);
	ExpectItemRefused(
		range, 1, ENOTSUP, RTE_FLOW_ERROR_TYPE_ITEM_LAST, "ranges are not supported");
	ExpectItemRefused(lone_mask, 1, EINVAL, RTE_FLOW_ERROR_TYPE_ITEM_SPEC, "mask without spec");
	ExpectItemRefused(lone_last, 1, EINVAL, RTE_FLOW_ERROR_TYPE_ITEM_SPEC, "last without spec");
}

TEST(FlowItem, RefusedRangesAreThoseOfEveryItem)
{
	rte_flow_item_eth eth = AllOnes<rte_flow_item_eth>(), eth_spec = {};
	rte_flow_item_vlan vlan = AllOnes<rte_flow_item_vlan>(), vlan_spec = {};
	const auto ipv4 = AllOnes<rte_flow_item_ipv4>();
	const rte_flow_item_ipv4 ipv4_spec = {};
	rte_flow_item_ipv6 ipv6 = AllOnes<rte_flow_item_ipv6>(), ipv6_spec = {};
	const auto tcp = AllOnes<rte_flow_item_tcp>();
	const rte_flow_item_tcp tcp_spec = {};
	Rule rules[5];

	rules[0].Add(RTE_FLOW_ITEM_TYPE_ETH, &eth_spec, nullptr, &eth);
	rules[1].Add(RTE_FLOW_ITEM_TYPE_VLAN, &vlan_spec, nullptr, &vlan);
	rules[2].Add(RTE_FLOW_ITEM_TYPE_IPV4, &ipv4_spec, nullptr, &ipv4);
	rules[3].Add(RTE_FLOW_ITEM_TYPE_IPV6, &ipv6_spec, nullptr, &ipv6);
	rules[4].Add(RTE_FLOW_ITEM_TYPE_TCP, &tcp_spec, nullptr, &tcp);
	for (const Rule &rule : rules)
		ExpectItemRefused(rule, 0, ENOTSUP, RTE_FLOW_ERROR_TYPE_ITEM_LAST,
			"ranges are not supported");
}

TEST(FlowItem, ItemsOutOfOrderAreRefused)
{
	const auto ITEM = RTE_FLOW_ERROR_TYPE_ITEM;

	ExpectItemRefused(Rule().Eth().Eth(), 1, EINVAL, ITEM, "eth must be the first item");
	ExpectItemRefused(Rule().Ipv4().Eth(), 1, EINVAL, ITEM, "eth must be the first item");
	ExpectItemRefused(Rule().Ipv4().Vlan(), 1, ENOTSUP, ITEM, "vlan must follow eth or vlan");
	ExpectItemRefused(Rule().Vlan().Vlan().Vlan(), 2, ENOTSUP, ITEM,
		"more than two vlan items are not supported");
	ExpectItemRefused(Rule().Ipv4().Ipv4(), 1, EINVAL, ITEM, "ipv4 must follow eth or vlan");
	ExpectItemRefused(Rule().Udp().Ipv6(), 1, EINVAL, ITEM, "ipv6 must follow eth or vlan");
	ExpectItemRefused(Rule().Eth().Udp(), 1, EINVAL, ITEM, "udp must follow ipv4 or ipv6");
	ExpectItemRefused(
		Rule().Eth().Vlan().Tcp(), 2, EINVAL, ITEM, "tcp must follow ipv4 or ipv6");
	ExpectItemRefused(
		Rule().Ipv4().Udp().Tcp(), 2, EINVAL, ITEM, "tcp must follow ipv4 or ipv6");
}

TEST(FlowItem, LowerItemsMayBeLeftOut)
{
	EXPECT_EQ(Parse(Rule().Vlan().Ipv4().Tcp()).rc, 0);
	EXPECT_EQ(Parse(Rule().Ipv6().Udp()).rc, 0);
	EXPECT_EQ(Parse(Rule().Tcp()).rc, 0);
}

TEST(FlowItem, OtherItemsAreRefused)
{
	ExpectItemRefused(Rule().Eth().Ipv4().Item(RTE_FLOW_ITEM_TYPE_SCTP), 2, ENOTSUP,
		RTE_FLOW_ERROR_TYPE_ITEM,
		"this item is not supported: only eth, vlan, ipv4, ipv6, udp, tcp");
}

/* DPDK lets drivers agree with applications on types of their own, below zero. */
const unsigned int other_types[] = {1U << 31, UINT_MAX, 1 << 20, INT_MAX};

TEST(FlowItem, TypesThatDpdkDoesNotListAreRefused)
{
	for (const unsigned int type : other_types) {
		SCOPED_TRACE(type);
		ExpectItemRefused(Rule().Eth().ItemNumber(type), 1, ENOTSUP,
			RTE_FLOW_ERROR_TYPE_ITEM,
			"this item is not supported: only eth, vlan, ipv4, ipv6, udp, tcp");
	}
}

TEST(FlowItem, ReservedBitsAreRefused)
{
	rte_flow_item_eth eth = {};
	rte_flow_item_vlan vlan = {};
	rte_flow_item_ipv6 ipv6 = {};

	eth.reserved = vlan.reserved = ipv6.reserved = 1;
	ExpectItemRefused(Rule().Item(RTE_FLOW_ITEM_TYPE_ETH, eth, eth), 0, ENOTSUP,
		RTE_FLOW_ERROR_TYPE_ITEM_MASK, "reserved bits of eth must be 0");
	ExpectItemRefused(Rule().Item(RTE_FLOW_ITEM_TYPE_VLAN, vlan, vlan), 0, ENOTSUP,
		RTE_FLOW_ERROR_TYPE_ITEM_MASK, "reserved bits of vlan must be 0");
	ExpectItemRefused(Rule().Item(RTE_FLOW_ITEM_TYPE_IPV6, ipv6, ipv6), 0, ENOTSUP,
		RTE_FLOW_ERROR_TYPE_ITEM_MASK, "reserved bits of ipv6 must be 0");
}

TEST(FlowItem, ATagThatTheItemBeforeExcludesIsRefused)
{
	rte_flow_item_eth untagged = {}, eth_mask = {};
	rte_flow_item_vlan single = {}, vlan_mask = {};

	eth_mask.has_vlan = 1;
	vlan_mask.has_more_vlan = 1;
	ExpectItemRefused(Rule().Item(RTE_FLOW_ITEM_TYPE_ETH, untagged, eth_mask).Vlan(), 1, EINVAL,
		RTE_FLOW_ERROR_TYPE_ITEM, "the item before excludes a VLAN tag here");
	ExpectItemRefused(Rule().Item(RTE_FLOW_ITEM_TYPE_VLAN, single, vlan_mask).Vlan(), 1, EINVAL,
		RTE_FLOW_ERROR_TYPE_ITEM, "the item before excludes a VLAN tag here");
}

/* actions */

TEST(FlowAction, MeterCountAndQueueAreTaken)
{
	const Rule rule = Rule().Meter(9).Count().Queue(3);
	const Parsed p = Parse(rule);

	EXPECT_EQ(p.rc, 0);
	EXPECT_EQ(p.spec.meter_id, 9u);
	EXPECT_EQ(p.meter, &rule.actions()[0]);
	EXPECT_TRUE(p.spec.count);
	EXPECT_EQ(p.spec.fate, 3);
	EXPECT_FALSE(p.spec.passthru);
}

TEST(FlowAction, DropAndPassthruAndNothingAreFates)
{
	EXPECT_EQ(Parse(Rule().Drop()).spec.fate, VASK_FLOW_DROP);
	EXPECT_EQ(Parse(Rule().Passthru()).spec.fate, VASK_FLOW_STAY);
	EXPECT_TRUE(Parse(Rule().Passthru()).spec.passthru);
	EXPECT_EQ(Parse(Rule()).spec.fate, VASK_FLOW_STAY);
	EXPECT_EQ(Parse(Rule()).meter, nullptr);
}

TEST(FlowAction, MeterRefusalsNameTheAction)
{
	ExpectActionRefused(Rule().Count().Meter(9).Meter(9), 2, ENOTSUP,
		RTE_FLOW_ERROR_TYPE_ACTION, "a rule has one meter action at most");
	ExpectActionRefused(Rule().Meter(0), 0, ENOTSUP, RTE_FLOW_ERROR_TYPE_ACTION_CONF,
		"meter 0 cannot be used by a rule");
	ExpectActionRefused(Rule().Action(RTE_FLOW_ACTION_TYPE_METER), 0, EINVAL,
		RTE_FLOW_ERROR_TYPE_ACTION_CONF, "meter without a meter id");
	ExpectActionRefused(Rule().Drop().Meter(9), 1, EINVAL, RTE_FLOW_ERROR_TYPE_ACTION,
		"a rule that drops does not meter");
}

TEST(FlowAction, QueueRefusalsNameTheAction)
{
	ExpectActionRefused(Rule().Queue(RX_QUEUES), 0, EINVAL, RTE_FLOW_ERROR_TYPE_ACTION_CONF,
		"the port has no such receive queue");
	ExpectActionRefused(Rule().Action(RTE_FLOW_ACTION_TYPE_QUEUE), 0, EINVAL,
		RTE_FLOW_ERROR_TYPE_ACTION_CONF, "queue without an index");
	ExpectActionRefused(Rule().Egress().Queue(0), 0, ENOTSUP, RTE_FLOW_ERROR_TYPE_ACTION,
		"queue is for ingress rules only");
}

TEST(FlowAction, ContradictoryFatesAreRefused)
{
	const char *const text = "a rule has one of queue, drop and passthru, once";
	const Rule rules[] = {Rule().Drop().Queue(0), Rule().Queue(0).Queue(0),
		Rule().Passthru().Drop(), Rule().Drop().Passthru(), Rule().Drop().Drop()};

	for (const Rule &rule : rules)
		ExpectActionRefused(rule, 1, EINVAL, RTE_FLOW_ERROR_TYPE_ACTION, text);
}

TEST(FlowAction, OtherAndRepeatedActionsAreRefused)
{
	ExpectActionRefused(Rule().Count().Count(), 1, ENOTSUP, RTE_FLOW_ERROR_TYPE_ACTION,
		"a rule has one count action at most");
	ExpectActionRefused(Rule().Action(RTE_FLOW_ACTION_TYPE_FLAG), 0, ENOTSUP,
		RTE_FLOW_ERROR_TYPE_ACTION,
		"this action is not supported: only meter, queue, drop, count, passthru");
}

TEST(FlowAction, TypesThatDpdkDoesNotListAreRefused)
{
	for (const unsigned int type : other_types) {
		SCOPED_TRACE(type);
		ExpectActionRefused(Rule().Drop().ActionNumber(type), 1, ENOTSUP,
			RTE_FLOW_ERROR_TYPE_ACTION,
			"this action is not supported: only meter, queue, drop, count, passthru");
	}
}

} // namespace
