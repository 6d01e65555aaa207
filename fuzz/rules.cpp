/* SPDX-License-Identifier: BSD-3-Clause */
#include "rules.h"

#include <algorithm>
#include <cstring>

using namespace vask_test;

namespace
{

/* The record of an item: bytes of a frame, bytes of the input, or all ones; the rest is 0. */
template <typename T>
T
Record(Input &in, const Bytes &frame)
{
	T record = {};
	const uint8_t how = in.Byte();
	Bytes bytes;

	if (how == 255) {
		memset(&record, 0xff, sizeof(record.hdr));
	} else if (how >= 128) {
		const size_t at = std::min<size_t>(how - 128, frame.size());

		bytes.assign(frame.begin() + static_cast<ptrdiff_t>(at), frame.end());
		bytes.resize(std::min(bytes.size(), sizeof(record.hdr)));
	} else {
		bytes = in.Bytes(std::min<size_t>(how, sizeof(record)));
	}
	if (!bytes.empty())
		memcpy(&record, bytes.data(), bytes.size());
	return record;
}

template <typename T>
void
AddItem(Input &in, const Bytes &frame, Rule *rule, rte_flow_item_type type)
{
	const uint8_t has = in.Byte();

	rule->Add(type, has & 1 ? rule->Keep(Record<T>(in, frame)) : nullptr,
		has & 2 ? rule->Keep(Record<T>(in, frame)) : nullptr,
		has & 4 ? rule->Keep(Record<T>(in, frame)) : nullptr);
}

} // namespace

void
fuzz_item_add(Input &in, const Bytes &frame, Rule *rule)
{
	switch (in.Below(8)) {
	case 0:
		return AddItem<rte_flow_item_eth>(in, frame, rule, RTE_FLOW_ITEM_TYPE_ETH);
	case 1:
		return AddItem<rte_flow_item_vlan>(in, frame, rule, RTE_FLOW_ITEM_TYPE_VLAN);
	case 2:
		return AddItem<rte_flow_item_ipv4>(in, frame, rule, RTE_FLOW_ITEM_TYPE_IPV4);
	case 3:
		return AddItem<rte_flow_item_ipv6>(in, frame, rule, RTE_FLOW_ITEM_TYPE_IPV6);
	case 4:
		return AddItem<rte_flow_item_udp>(in, frame, rule, RTE_FLOW_ITEM_TYPE_UDP);
	case 5:
		return AddItem<rte_flow_item_tcp>(in, frame, rule, RTE_FLOW_ITEM_TYPE_TCP);
	case 6:
		rule->Item(RTE_FLOW_ITEM_TYPE_VOID);
		return;
	default:
		/* END would end the pattern here */
		rule->ItemNumber(1 + in.Below(80));
	}
}

void
fuzz_action_add(Input &in, Rule *rule)
{
	switch (in.Below(8)) {
	case 0:
	case 1:
		rule->Meter(in.Id(FUZZ_RULE_METERS));
		return;
	case 2:
		rule->Count();
		return;
	case 3:
		rule->Queue(static_cast<uint16_t>(in.Below(FUZZ_RULE_QUEUES)));
		return;
	case 4:
		rule->Drop();
		return;
	case 5:
		rule->Passthru();
		return;
	case 6:
		rule->Action(RTE_FLOW_ACTION_TYPE_VOID);
		return;
	default:
		/* METER and QUEUE among them, without what they need */
		rule->ActionNumber(1 + in.Below(80));
	}
}
