/* SPDX-License-Identifier: BSD-3-Clause */
#include "flow_rule.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <vector>

#include <rte_errno.h>
#include <rte_flow.h>

#include "error.h"

namespace
{
constexpr rte_be16_t WHOLE = RTE_BE16(0xffff);
constexpr uint8_t DSCP_SHIFT = 2;

/* The records that a pattern's items point at. */
struct rule_records {
	rte_flow_item_vlan vlan = {}, vlan_mask = {};
	rte_flow_item_ipv4 ipv4 = {}, ipv4_mask = {};
	rte_flow_item_ipv6 ipv6 = {}, ipv6_mask = {};
	rte_flow_item_udp udp = {}, udp_mask = {};
	rte_flow_item_tcp tcp = {}, tcp_mask = {};
	std::vector<rte_flow_item> pattern;

	void add(rte_flow_item_type type, const void *spec, const void *mask)
	{
		rte_flow_item item = {};
		item.type = type;
		item.spec = spec;
		item.mask = mask;
		pattern.push_back(item);
	}
};

/* An address with its mask, both in network order, and bits beyond the prefix cut off. */
struct masked_address {
	uint8_t bytes[16], mask[16];
};

masked_address
masked(const address_config &address)
{
	masked_address m = {};
	for (unsigned int i = 0; i < 16 && i * 8 < address.prefix; i++) {
		const unsigned int bits = std::min(address.prefix - i * 8, 8U);
		m.mask[i] = static_cast<uint8_t>(0xff << (8 - bits));
		m.bytes[i] = address.bytes[i] & m.mask[i];
	}
	return m;
}

template <typename Field>
void
set_address(const std::optional<address_config> &address, Field *spec, Field *mask)
{
	if (!address)
		return;
	const masked_address m = masked(*address);
	std::memcpy(spec, m.bytes, sizeof(*spec));
	std::memcpy(mask, m.mask, sizeof(*mask));
}

void
set_ipv4(const flow_config &rule, rule_records &r)
{
	rte_be32_t spec[2] = {}, mask[2] = {}; /* rte_ipv4_hdr is packed */

	set_address(rule.src, &spec[0], &mask[0]);
	set_address(rule.dst, &spec[1], &mask[1]);
	r.ipv4.hdr.src_addr = spec[0];
	r.ipv4.hdr.dst_addr = spec[1];
	r.ipv4_mask.hdr.src_addr = mask[0];
	r.ipv4_mask.hdr.dst_addr = mask[1];
	if (rule.dscp) {
		r.ipv4.hdr.type_of_service = static_cast<uint8_t>(*rule.dscp << DSCP_SHIFT);
		r.ipv4_mask.hdr.type_of_service = 0x3f << DSCP_SHIFT;
	}
	r.add(RTE_FLOW_ITEM_TYPE_IPV4, &r.ipv4, &r.ipv4_mask);
}

void
set_ipv6(const flow_config &rule, rule_records &r)
{
	set_address(rule.src, &r.ipv6.hdr.src_addr, &r.ipv6_mask.hdr.src_addr);
	set_address(rule.dst, &r.ipv6.hdr.dst_addr, &r.ipv6_mask.hdr.dst_addr);
	if (rule.dscp) { /* version 4 bits, traffic class 8, flow label 20 */
		r.ipv6.hdr.vtc_flow = htonl(static_cast<uint32_t>(*rule.dscp) << (20 + DSCP_SHIFT));
		r.ipv6_mask.hdr.vtc_flow = htonl(0x3fU << (20 + DSCP_SHIFT));
	}
	r.add(RTE_FLOW_ITEM_TYPE_IPV6, &r.ipv6, &r.ipv6_mask);
}

template <typename Header>
void
set_ports(const flow_config &rule, Header &spec, Header &mask)
{
	if (rule.sport) {
		spec.src_port = htons(*rule.sport);
		mask.src_port = WHOLE;
	}
	if (rule.dport) {
		spec.dst_port = htons(*rule.dport);
		mask.dst_port = WHOLE;
	}
}

void
set_pattern(const flow_config &rule, rule_records &r)
{
	r.add(RTE_FLOW_ITEM_TYPE_ETH, nullptr, nullptr);
	if (rule.vlan) {
		r.vlan.tci = htons(*rule.vlan);
		r.vlan_mask.tci = RTE_BE16(0xfff);
		r.add(RTE_FLOW_ITEM_TYPE_VLAN, &r.vlan, &r.vlan_mask);
	}
	if (rule.family() == AF_INET)
		set_ipv4(rule, r);
	if (rule.family() == AF_INET6)
		set_ipv6(rule, r);
	if (rule.protocol == IPPROTO_UDP) {
		set_ports(rule, r.udp.hdr, r.udp_mask.hdr);
		r.add(RTE_FLOW_ITEM_TYPE_UDP, &r.udp, &r.udp_mask);
	}
	if (rule.protocol == IPPROTO_TCP) {
		set_ports(rule, r.tcp.hdr, r.tcp_mask.hdr);
		r.add(RTE_FLOW_ITEM_TYPE_TCP, &r.tcp, &r.tcp_mask);
	}
	r.add(RTE_FLOW_ITEM_TYPE_END, nullptr, nullptr);
}

/* " src spec 10.0.0.0 src mask 255.0.0.0", or " src is 10.0.0.2" */
std::string
address_words(const char *name, const address_config &address)
{
	const masked_address m = masked(address);
	const unsigned int whole = address.family == AF_INET ? 32 : 128;
	char text[INET6_ADDRSTRLEN], mask_text[INET6_ADDRSTRLEN];

	inet_ntop(address.family, m.bytes, text, sizeof(text));
	inet_ntop(address.family, m.mask, mask_text, sizeof(mask_text));
	return address.prefix == whole
		? fmt::format(" {} is {}", name, text)
		: fmt::format(" {0} spec {1} {0} mask {2}", name, text, mask_text);
}

std::string
ip_words(const flow_config &rule)
{
	std::string words = rule.family() == AF_INET ? " / ipv4" : " / ipv6";

	if (rule.src)
		words += address_words("src", *rule.src);
	if (rule.dst)
		words += address_words("dst", *rule.dst);
	if (rule.dscp)
		words += fmt::format(" {0} spec {1} {0} mask {2}",
			rule.family() == AF_INET ? "tos" : "tc", *rule.dscp << DSCP_SHIFT,
			0x3f << DSCP_SHIFT);
	return words;
}
} // namespace

void
create_flow_rule(const flow_config &rule, uint16_t ethdev)
{
	rte_flow_attr attr = {};
	rte_flow_action_meter meter = {rule.meter};
	rte_flow_action actions[2] = {};
	rte_flow_error error = {};
	rule_records records;

	attr.priority = rule.priority;
	attr.ingress = !rule.egress;
	attr.egress = rule.egress;
	set_pattern(rule, records);
	actions[0].type = RTE_FLOW_ACTION_TYPE_METER;
	actions[0].conf = &meter;
	actions[1].type = RTE_FLOW_ACTION_TYPE_END;
	if (rte_flow_create(ethdev, &attr, records.pattern.data(), actions, &error) == nullptr)
		fail("{}: refused by the port: {}", rule.where,
			error.message ? error.message : rte_strerror(rte_errno));
}

std::string
flow_rule_command(const flow_config &rule)
{
	std::string command = fmt::format("flow create {} {}{} pattern eth", rule.port,
		rule.priority ? fmt::format("priority {} ", rule.priority) : "",
		rule.egress ? "egress" : "ingress");

	if (rule.vlan)
		command += fmt::format(" / vlan vid is {}", *rule.vlan);
	if (rule.family() != 0)
		command += ip_words(rule);
	if (rule.protocol) {
		command += *rule.protocol == IPPROTO_UDP ? " / udp" : " / tcp";
		if (rule.sport)
			command += fmt::format(" src is {}", *rule.sport);
		if (rule.dport)
			command += fmt::format(" dst is {}", *rule.dport);
	}
	return command + fmt::format(" / end actions meter mtr_id {} / end", rule.meter);
}
