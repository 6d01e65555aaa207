/* SPDX-License-Identifier: BSD-3-Clause */
#include "flow_reference.h"

#include <algorithm>
#include <cstring>
#include <set>

namespace vask_test
{

namespace
{

/* The headers of a frame, each one whole or not there. */
struct Headers {
	Bytes eth;               /* 14 bytes */
	std::vector<Bytes> tags; /* 4 bytes each: TCI, type behind it */
	bool more_tags = false;
	Bytes ipv4, ipv6, udp, tcp; /* fixed parts */
	std::set<int> extensions;   /* by protocol number */
};

class Dissector
{
      public:
	explicit Dissector(const Bytes &frame)
		: frame_(frame.begin(), frame.begin() + std::min<size_t>(frame.size(), 256))
	{
		Ethernet();
	}

	Headers headers;

      private:
	/* n bytes at the place reached, or none when they are not all there */
	Bytes Peek(size_t n) const
	{
		if (at_ + n > frame_.size())
			return {};
		return Bytes(frame_.begin() + at_, frame_.begin() + at_ + n);
	}
	static unsigned Number(const Bytes &bytes, size_t at)
	{
		return bytes[at] << 8 | bytes[at + 1];
	}
	/* the frame ends after n more bytes, if it did not before */
	void End(size_t n)
	{
		if (at_ + n < frame_.size())
			frame_.resize(at_ + n);
	}

	void Ethernet()
	{
		headers.eth = Peek(14);
		if (headers.eth.empty())
			return;
		at_ = 14;
		unsigned type = Number(headers.eth, 12);
		while (type == 0x8100 || type == 0x88a8 || type == 0x9100) {
			const Bytes tag = Peek(4);
			if (tag.empty())
				return;
			if (headers.tags.size() == 2) {
				headers.more_tags = true;
				return;
			}
			headers.tags.push_back(tag);
			at_ += 4;
			type = Number(tag, 2);
		}
		if (type == 0x0800)
			InternetV4();
		if (type == 0x86dd)
			InternetV6();
	}

	void InternetV4()
	{
		const Bytes h = Peek(20);
		if (h.empty() || h[0] / 16 != 4 || h[0] % 16 < 5)
			return;
		const unsigned length = h[0] % 16 * 4, total = Number(h, 2);
		if (total < length)
			return;
		headers.ipv4 = h;
		const bool more = h[6] & 0x20;
		const unsigned offset = Number(h, 6) % 0x2000;
		if (more || offset != 0)
			return;
		End(total);
		at_ += length;
		Transport(h[9]);
	}

	void InternetV6()
	{
		const Bytes h = Peek(40);
		if (h.empty() || h[0] / 16 != 6)
			return;
		headers.ipv6 = h;
		at_ += 40;
		End(Number(h, 4));
		Extension(h[6]);
	}

	void Extension(unsigned protocol)
	{
		static const std::set<unsigned> by_eight = {0, 43, 60, 135, 139, 140};
		const Bytes h = Peek(8);
		size_t length = 8;

		if (!by_eight.contains(protocol) && protocol != 44 && protocol != 50 &&
			protocol != 51)
			return Transport(protocol);
		if (h.empty())
			return;
		if (protocol == 51)
			length = 8 + 4 * h[1];
		if (by_eight.contains(protocol))
			length = 8 + 8 * h[1];
		if (Peek(length).empty())
			return;
		headers.extensions.insert(protocol);
		if (protocol == 50)
			return;
		if (protocol == 44 && (Number(h, 2) / 8 != 0 || h[3] % 2 != 0))
			return;
		at_ += length;
		Extension(h[0]);
	}

	void Transport(unsigned protocol)
	{
		if (protocol == 17)
			headers.udp = Peek(8);
		if (protocol == 6)
			headers.tcp = Peek(20);
	}

	Bytes frame_;
	size_t at_ = 0;
};

/* Whether a header is there and agrees with the first bytes of an item. */
bool
Agrees(const Bytes &header, const rte_flow_item &item, const Bytes &default_mask)
{
	if (header.empty())
		return false;
	if (item.spec == nullptr)
		return true;
	const uint8_t *spec = static_cast<const uint8_t *>(item.spec);
	const uint8_t *mask = static_cast<const uint8_t *>(item.mask);
	for (size_t i = 0; i < header.size(); i++) {
		const unsigned m = mask != nullptr ? mask[i] : default_mask[i];
		if ((header[i] & m) != (spec[i] & m))
			return false;
	}
	return true;
}

/* n bytes, of which `count` from `first` on are all ones. */
Bytes
Ones(size_t n, size_t first, size_t count)
{
	Bytes bytes(n, 0);

	std::fill_n(bytes.begin() + first, count, 0xff);
	return bytes;
}

/* One of the flags that follow the header in an item. */
template <typename T, typename F>
bool
FlagAgrees(const rte_flow_item &item, bool fact, F flag)
{
	if (item.spec == nullptr || item.mask == nullptr)
		return true;
	if (!flag(*static_cast<const T *>(item.mask)))
		return true;
	return flag(*static_cast<const T *>(item.spec)) == fact;
}

bool
ExtensionsAgree(const rte_flow_item &item, const Headers &h)
{
	using V6 = rte_flow_item_ipv6;
	const auto agrees = [&](int protocol, auto flag) {
		return FlagAgrees<V6>(item, h.extensions.contains(protocol), flag);
	};

	return agrees(0, [](const V6 &i) { return i.has_hop_ext; }) &&
		agrees(43, [](const V6 &i) { return i.has_route_ext; }) &&
		agrees(44, [](const V6 &i) { return i.has_frag_ext; }) &&
		agrees(51, [](const V6 &i) { return i.has_auth_ext; }) &&
		agrees(50, [](const V6 &i) { return i.has_esp_ext; }) &&
		agrees(60, [](const V6 &i) { return i.has_dest_ext; }) &&
		agrees(135, [](const V6 &i) { return i.has_mobil_ext; }) &&
		agrees(139, [](const V6 &i) { return i.has_hip_ext; }) &&
		agrees(140, [](const V6 &i) { return i.has_shim6_ext; });
}

bool
Matches(const Rule &rule, const Headers &h)
{
	size_t tag = 0;

	for (const rte_flow_item *item = rule.pattern(); item->type != RTE_FLOW_ITEM_TYPE_END;
		item++) {
		bool ok = true;

		switch (item->type) {
		case RTE_FLOW_ITEM_TYPE_ETH:
			ok = Agrees(h.eth, *item, Ones(14, 0, 12)) &&
				FlagAgrees<rte_flow_item_eth>(*item, !h.tags.empty(),
					[](const rte_flow_item_eth &i) { return i.has_vlan; });
			break;
		case RTE_FLOW_ITEM_TYPE_VLAN: {
			const size_t behind = h.tags.size() + h.more_tags;
			ok = tag < h.tags.size() &&
				Agrees(h.tags[tag], *item, {0x0f, 0xff, 0, 0}) &&
				FlagAgrees<rte_flow_item_vlan>(
					*item, behind > tag + 1, [](const rte_flow_item_vlan &i) {
						return i.has_more_vlan;
					});
			tag++;
			break;
		}
		case RTE_FLOW_ITEM_TYPE_IPV4:
			ok = Agrees(h.ipv4, *item, Ones(20, 12, 8));
			break;
		case RTE_FLOW_ITEM_TYPE_IPV6:
			ok = Agrees(h.ipv6, *item, Ones(40, 8, 32)) && ExtensionsAgree(*item, h);
			break;
		case RTE_FLOW_ITEM_TYPE_UDP:
			ok = Agrees(h.udp, *item, Ones(8, 0, 4));
			break;
		case RTE_FLOW_ITEM_TYPE_TCP:
			ok = Agrees(h.tcp, *item, Ones(20, 0, 4));
			break;
		default:
			break;
		}
		if (!ok)
			return false;
	}
	return true;
}

} // namespace

void
FlowReference::Add(int name, const Rule &rule)
{
	const auto after = std::upper_bound(entries_.begin(), entries_.end(), rule.attr.priority,
		[](uint32_t priority, const Entry &e) { return priority < e.rule.attr.priority; });

	entries_.insert(after, {name, rule});
}

void
FlowReference::Remove(int name)
{
	std::erase_if(entries_, [&](const Entry &entry) { return entry.name == name; });
}

FlowReference::Answer
FlowReference::Classify(const Bytes &frame) const
{
	const Headers headers = Dissector(frame).headers;
	Answer answer;

	for (const Entry &entry : entries_) {
		bool passes_on = false;

		if (!Matches(entry.rule, headers))
			continue;
		for (const rte_flow_action *action = entry.rule.actions();
			action->type != RTE_FLOW_ACTION_TYPE_END; action++) {
			if (action->type == RTE_FLOW_ACTION_TYPE_METER && answer.meter == 0)
				answer.meter =
					static_cast<const rte_flow_action_meter *>(action->conf)
						->mtr_id;
			if (action->type == RTE_FLOW_ACTION_TYPE_COUNT)
				answer.counted.push_back(entry.name);
			if (action->type == RTE_FLOW_ACTION_TYPE_DROP)
				answer.drop = true;
			if (action->type == RTE_FLOW_ACTION_TYPE_QUEUE)
				answer.queue =
					static_cast<const rte_flow_action_queue *>(action->conf)
						->index;
			if (action->type == RTE_FLOW_ACTION_TYPE_PASSTHRU)
				passes_on = true;
		}
		if (!passes_on)
			break;
	}
	return answer;
}

} // namespace vask_test
