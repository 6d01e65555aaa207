/* SPDX-License-Identifier: BSD-3-Clause */
/* Random rules on random and malformed frames, beside the reference. */
#include "flow_reference.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <random>

using namespace vask_test;

namespace
{

/* Draws from few values, so that rules and frames meet. */
class Dice
{
      public:
	explicit Dice(unsigned seed) : engine_(seed)
	{
	}
	unsigned Below(unsigned n)
	{
		return std::uniform_int_distribution<unsigned>(0, n - 1)(engine_);
	}
	bool Once(unsigned n)
	{
		return Below(n) == 0;
	}
	template <typename T> T Of(std::initializer_list<T> values)
	{
		return values.begin()[Below(values.size())];
	}

	uint16_t Port()
	{
		return Of<uint16_t>({80, 443, 1000, 1001});
	}
	uint32_t Address()
	{
		return 0x0a000000 | Below(3) << 16 | Below(4);
	}
	uint16_t Tci()
	{
		return Of<uint16_t>({5, 6, 0x6005});
	}

      private:
	std::mt19937 engine_;
};

Layer
RandomTransport(Dice &dice)
{
	switch (dice.Below(4)) {
	case 0:
		return Raw(dice.Of<uint16_t>({1, 50, 132}), 20);
	case 1:
		return Tcp(dice.Port(), dice.Port());
	default:
		return Udp(dice.Port(), dice.Port());
	}
}

Layer
RandomNetwork(Dice &dice)
{
	Layer payload = RandomTransport(dice);

	if (dice.Once(12))
		return Raw(dice.Of<uint16_t>({0x0806, 0x0800, 0x86dd, 40}), 30);
	if (dice.Below(3) != 0)
		return Ipv4({.src = dice.Address(),
				    .dst = dice.Address(),
				    .tos = dice.Of<uint8_t>({0, 0x2e}),
				    .fragment = dice.Of<uint16_t>({0, 0, 0, 0x4000, 0x2000, 7}),
				    .option_bytes = dice.Once(4) ? 4 * dice.Below(11) : 0,
				    .total_length = dice.Once(6) ? int(dice.Below(70)) : -1},
			payload);
	while (dice.Once(2))
		payload = dice.Once(4) ? FragmentExt(dice.Of<uint16_t>({0, 1, 8, 6}), payload)
				       : Ext(dice.Of<uint8_t>({0, 43, 50, 51, 60, 135, 139, 140}),
						 payload, 1 + dice.Below(3));
	return Ipv6(payload, dice.Below(3), dice.Below(3));
}

Bytes
RandomFrame(Dice &dice)
{
	Layer layer = RandomNetwork(dice);

	while (dice.Once(3))
		layer = Vlan(dice.Tci(), layer, dice.Of<uint16_t>({0x8100, 0x88a8, 0x9100}));
	Bytes frame = Eth(layer, dice.Below(3), dice.Below(3));
	if (dice.Once(8))
		frame.resize(dice.Below(frame.size() + 1));
	for (unsigned n = dice.Once(4) ? dice.Below(4) : 0; n > 0 && !frame.empty(); n--)
		frame[dice.Below(std::min<size_t>(frame.size(), 60))] = dice.Below(256);
	if (dice.Once(10))
		frame.resize(frame.size() + dice.Below(40));
	return frame;
}

/* A mask on some bytes of a record: whole, part of them, or single bits. */
template <typename T>
T
RandomMask(Dice &dice, size_t first, size_t size)
{
	T mask = {};
	uint8_t *bytes = reinterpret_cast<uint8_t *>(&mask) + first;

	for (size_t i = 0; i < size; i++)
		bytes[i] = dice.Of<uint8_t>({0xff, 0xff, 0xff, 0, 0, 0xf0, 0x01});
	return mask;
}

template <typename T>
void
AddItem(Dice &dice, Rule *rule, rte_flow_item_type type, const T &spec, const T &mask)
{
	if (dice.Once(3))
		rule->Item(type);
	else if (dice.Once(3))
		rule->Item(type, spec);
	else
		rule->Item(type, spec, mask);
}

void
AddEth(Dice &dice, Rule *rule)
{
	rte_flow_item_eth spec = {}, mask = RandomMask<rte_flow_item_eth>(dice, 0, 14);

	memcpy(&spec,
		Eth(Raw(dice.Of<uint16_t>({0x0800, 0x86dd, 0x8100}), 0), dice.Below(3),
			dice.Below(3))
			.data(),
		14);
	mask.has_vlan = dice.Once(4);
	AddItem(dice, rule, RTE_FLOW_ITEM_TYPE_ETH, spec, mask);
}

void
AddVlan(Dice &dice, Rule *rule)
{
	rte_flow_item_vlan spec = {}, mask = RandomMask<rte_flow_item_vlan>(dice, 0, 4);

	spec.hdr.vlan_tci = rte_cpu_to_be_16(dice.Tci());
	spec.hdr.eth_proto = rte_cpu_to_be_16(dice.Of<uint16_t>({0x0800, 0x8100}));
	spec.has_more_vlan = 1;
	mask.has_more_vlan = dice.Once(4);
	AddItem(dice, rule, RTE_FLOW_ITEM_TYPE_VLAN, spec, mask);
}

void
AddIpv4(Dice &dice, Rule *rule)
{
	rte_flow_item_ipv4 spec = {}, mask = RandomMask<rte_flow_item_ipv4>(dice, 12, 8);
	const Bytes header = Ipv4({.src = dice.Address(), .dst = dice.Address()}, Udp(1, 2)).bytes;

	memcpy(&spec.hdr, header.data(), sizeof(spec.hdr));
	if (dice.Once(3))
		mask.hdr.next_proto_id = 0xff;
	if (dice.Once(6))
		mask.hdr.fragment_offset = 0xffff;
	if (dice.Once(6))
		mask.hdr.version_ihl = 0x0f;
	AddItem(dice, rule, RTE_FLOW_ITEM_TYPE_IPV4, spec, mask);
}

void
AddIpv6(Dice &dice, Rule *rule)
{
	rte_flow_item_ipv6 spec = {}, mask = {};
	const Bytes header = Ipv6(Udp(1, 2), dice.Below(3), dice.Below(3)).bytes;

	memcpy(&spec.hdr, header.data(), sizeof(spec.hdr));
	if (dice.Once(2))
		memset(&mask.hdr.src_addr, 0xff, 16);
	mask.has_frag_ext = dice.Once(3);
	mask.has_hop_ext = spec.has_hop_ext = dice.Once(4);
	mask.has_dest_ext = spec.has_dest_ext = dice.Once(4);
	AddItem(dice, rule, RTE_FLOW_ITEM_TYPE_IPV6, spec, mask);
}

void
AddTransport(Dice &dice, Rule *rule)
{
	if (dice.Once(3)) {
		rte_flow_item_tcp spec = {}, mask = RandomMask<rte_flow_item_tcp>(dice, 0, 4);
		const Bytes header = Tcp(dice.Port(), dice.Port()).bytes;

		memcpy(&spec.hdr, header.data(), sizeof(spec.hdr));
		if (dice.Once(3))
			mask.hdr.tcp_flags = 0x12;
		AddItem(dice, rule, RTE_FLOW_ITEM_TYPE_TCP, spec, mask);
	} else {
		rte_flow_item_udp spec = {}, mask = RandomMask<rte_flow_item_udp>(dice, 0, 4);
		const Bytes header = Udp(dice.Port(), dice.Port()).bytes;

		memcpy(&spec.hdr, header.data(), sizeof(spec.hdr));
		AddItem(dice, rule, RTE_FLOW_ITEM_TYPE_UDP, spec, mask);
	}
}

Rule
RandomRule(Dice &dice, int name)
{
	Rule rule;
	bool l2 = dice.Below(3) != 0;

	rule.Priority(dice.Below(3));
	if (l2)
		AddEth(dice, &rule);
	for (unsigned tags = dice.Once(3) ? 1 + dice.Below(2) : 0; tags > 0; tags--) {
		AddVlan(dice, &rule);
		l2 = true;
	}
	if (dice.Below(4) != 0) {
		if (dice.Below(3) != 0)
			AddIpv4(dice, &rule);
		else
			AddIpv6(dice, &rule);
		if (dice.Once(2))
			AddTransport(dice, &rule);
	} else if (!l2) {
		AddTransport(dice, &rule);
	}

	if (dice.Once(2))
		rule.Count();
	if (dice.Once(6))
		return rule.Drop();
	if (dice.Below(4) != 0)
		rule.Meter(name + 1);
	if (dice.Once(4))
		rule.Queue(dice.Below(4));
	else if (dice.Once(3))
		rule.Passthru();
	return rule;
}

/* A pattern that contradicts itself is refused, and another is drawn. */
bool
IsAccepted(const Rule &rule)
{
	const rte_flow_action *meter;
	vask_flow_spec spec;
	rte_flow_error error;

	return vask_flow_parse(VASK_QUEUES_MAX, &rule.attr, rule.pattern(), rule.actions(), &spec,
		       &meter, &error) == 0;
}

/* The port's tables and the reference, under the same rules. */
class Pair
{
      public:
	explicit Pair(unsigned seed) : dice(seed)
	{
	}

	void AddRule()
	{
		const int name = next_++;
		Rule rule = RandomRule(dice, name);

		while (!IsAccepted(rule))
			rule = RandomRule(dice, name);
		/* now and then the pattern of a rule that stands already */
		if (!rules_.empty() && dice.Once(6))
			rule = std::next(rules_.begin(), dice.Below(rules_.size()))->second.rule;
		rules_[name] = {rule, tables.Add(rule), 0};
		reference_.Add(name, rule);
	}

	void RemoveRule()
	{
		auto it = std::next(rules_.begin(), dice.Below(rules_.size()));

		tables.Remove(it->second.flow);
		reference_.Remove(it->first);
		rules_.erase(it);
	}

	size_t size() const
	{
		return rules_.size();
	}

	/* Sends a burst of random frames, in one segment or several, through both. */
	void Compare(size_t n)
	{
		std::vector<Bytes> frames;
		std::vector<Mbuf> mbufs;
		std::vector<rte_mbuf *> pkts;
		const uint16_t queue = dice.Below(4);

		for (size_t i = 0; i < n; i++) {
			frames.push_back(RandomFrame(dice));
			std::vector<size_t> cuts;
			for (size_t at = 0; dice.Once(3);) {
				at += 1 + dice.Below(30);
				if (at >= frames[i].size())
					break;
				cuts.push_back(at);
			}
			mbufs.push_back(cuts.empty() && dice.Once(8) ? MakeGuardedMbuf(frames[i])
								     : MakeMbuf(frames[i], cuts));
			pkts.push_back(mbufs[i].get());
		}
		const Verdict v = tables.Classify(pkts, queue);
		for (size_t i = 0; i < n; i++) {
			const FlowReference::Answer want = reference_.Classify(frames[i]);

			ASSERT_EQ((v.drop_mask >> i & 1) != 0, want.drop) << Hex(frames[i]);
			/* the meter of a frame that a later rule drops is never asked for */
			if (!want.drop) {
				ASSERT_EQ(v.hw_meter_id[i], want.meter) << Hex(frames[i]);
			}
			ASSERT_EQ(v.queue[i], want.queue.value_or(queue)) << Hex(frames[i]);
			for (int name : want.counted)
				rules_.at(name).hits++;
			matched += want.meter != 0 || want.drop || want.queue.has_value();
		}
		for (const auto &[name, entry] : rules_)
			if (entry.flow->spec.count) {
				ASSERT_EQ(Hits(entry.flow), entry.hits) << name;
			}
	}

	Dice dice;
	Tables tables;
	size_t matched = 0;

      private:
	static std::string Hex(const Bytes &frame)
	{
		std::string text;
		char digits[3];

		for (uint8_t byte : frame) {
			snprintf(digits, sizeof(digits), "%02x", byte);
			text += digits;
		}
		return text;
	}

	struct Entry {
		Rule rule;
		rte_flow *flow;
		uint64_t hits;
	};
	std::map<int, Entry> rules_;
	FlowReference reference_;
	int next_ = 0;
};

TEST(FlowRandom, VerdictsAndCountsAreThoseOfTheReference)
{
	size_t matched = 0;

	for (unsigned seed = 1; seed <= 40; seed++) {
		SCOPED_TRACE(seed);
		Pair pair(seed);

		for (unsigned rules = 0; rules < seed * 3; rules++)
			pair.AddRule();
		for (unsigned burst = 0; burst < 10; burst++)
			ASSERT_NO_FATAL_FAILURE(pair.Compare(64));
		matched += pair.matched;
	}
	/* the dice make most frames meet a rule */
	EXPECT_GT(matched, 40u * 640 / 2);
}

TEST(FlowRandom, RulesThatComeAndGoLeaveTheOthersInForce)
{
	for (unsigned seed = 100; seed < 120; seed++) {
		SCOPED_TRACE(seed);
		Pair pair(seed);

		for (unsigned step = 0; step < 300; step++) {
			if (pair.size() == 0 || pair.dice.Below(5) < (step < 200 ? 3u : 1u))
				pair.AddRule();
			else
				pair.RemoveRule();
			ASSERT_NO_FATAL_FAILURE(pair.Compare(1 + pair.dice.Below(8)));
		}
	}
}

} // namespace
