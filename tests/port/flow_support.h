/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef FLOW_SUPPORT_H
#define FLOW_SUPPORT_H

/* What tests of the flow rules share: EAL, frames, rules, and rule tables without a port around them. */

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <rte_flow.h>
#include <rte_mbuf.h>

#include "vask_flow.h"
#include "vask_flow_parse.h"
#include "vask_rcu.h"

namespace vask_test
{

using Bytes = std::vector<uint8_t>;

/* A header with all that follows it, and the number by which the header below announces it. */
struct Layer {
	uint16_t type; /* an EtherType or an IP protocol */
	Bytes bytes;
};

struct Ipv4Fields {
	uint32_t src = 0x0a000001, dst = 0x0a000002; /* host order */
	uint8_t tos = 0;
	uint16_t fragment = 0; /* flags and offset as on the wire */
	unsigned option_bytes = 0;
	int total_length = -1; /* -1: as it is */
};

Layer Udp(uint16_t src, uint16_t dst, size_t payload = 18);
Layer Tcp(uint16_t src, uint16_t dst, size_t payload = 6);
Layer Raw(uint16_t type, size_t bytes);
Layer Ipv4(const Ipv4Fields &fields, const Layer &payload);
Layer Ipv6(const Layer &payload, uint8_t src_last = 1, uint8_t dst_last = 2);
/* An IPv6 extension header of 8 x units bytes. */
Layer Ext(uint8_t type, const Layer &payload, unsigned units = 1);
Layer FragmentExt(uint16_t offset_flags, const Layer &payload);
Layer Vlan(uint16_t tci, const Layer &payload, uint16_t tpid = 0x8100);
Bytes Eth(const Layer &payload, uint8_t dst_last = 2, uint8_t src_last = 1);

/* The pool of all test frames. */
rte_mempool *Pool();

struct FreeMbuf {
	void operator()(rte_mbuf *mbuf) const
	{
		rte_pktmbuf_free(mbuf);
	}
};
using Mbuf = std::unique_ptr<rte_mbuf, FreeMbuf>;

/* A frame in one segment, or cut into several before the bytes named, in rising order. */
Mbuf MakeMbuf(const Bytes &bytes, const std::vector<size_t> &cuts = {});

/* A frame in one segment whose last byte is the last one that may be read. */
Mbuf MakeGuardedMbuf(const Bytes &bytes);

/* A rule as an application would write it. */
class Rule
{
      public:
	Rule();
	Rule &Egress();
	Rule &Priority(uint32_t priority);

	Rule &Item(rte_flow_item_type type);
	template <typename T> Rule &Item(rte_flow_item_type type, const T &spec)
	{
		return Add(type, Keep(spec), nullptr, nullptr);
	}
	template <typename T> Rule &Item(rte_flow_item_type type, const T &spec, const T &mask)
	{
		return Add(type, Keep(spec), Keep(mask), nullptr);
	}
	Rule &Add(rte_flow_item_type type, const void *spec, const void *mask, const void *last);
	/* An item, or an action, by number: it may be none that there is, as a C program may write it. */
	Rule &ItemNumber(unsigned int number);
	Rule &ActionNumber(unsigned int number);

	Rule &Eth();
	Rule &Vlan();
	Rule &VlanId(uint16_t id);
	Rule &Ipv4();
	Rule &Ipv4Src(uint32_t src, uint32_t mask = UINT32_MAX);
	Rule &Ipv6();
	Rule &Udp();
	Rule &UdpDst(uint16_t dst, uint16_t mask = UINT16_MAX);
	Rule &Tcp();

	Rule &Action(rte_flow_action_type type);
	template <typename T> Rule &Action(rte_flow_action_type type, const T &conf)
	{
		return AddAction(type, Keep(conf));
	}
	Rule &AddAction(rte_flow_action_type type, const void *conf);
	Rule &Meter(uint32_t id);
	Rule &Queue(uint16_t index);
	Rule &Drop();
	Rule &Count();
	Rule &Passthru();

	/* A copy of a record that lives as long as the rule. */
	template <typename T> const T *Keep(const T &record)
	{
		auto kept = std::make_shared<T>(record);
		kept_.push_back(kept);
		return kept.get();
	}

	rte_flow_attr attr = {};
	const rte_flow_item *pattern() const
	{
		return items_.data();
	}
	const rte_flow_action *actions() const
	{
		return actions_.data();
	}

      private:
	std::vector<rte_flow_item> items_;
	std::vector<rte_flow_action> actions_;
	std::deque<std::shared_ptr<const void>> kept_;
};

/* What rules say about up to 64 frames, whether or not the port's code had to write it down. */
struct Verdict {
	uint32_t hw_meter_id[SOFTCARD_BURST_MAX]; /* 0: unmetered */
	uint16_t queue[SOFTCARD_BURST_MAX];
	uint64_t drop_mask;
	bool metered, diverted;
};

/* Classifies as a queue of a port does. */
Verdict
Classify(const vask_port &port, const std::vector<rte_mbuf *> &pkts, uint16_t queue, int dir);

/* Rule tables of both directions and what they say, with no ethdev port around. */
class Tables
{
      public:
	Tables();
	~Tables();
	Tables(const Tables &) = delete;
	Tables &operator=(const Tables &) = delete;

	/* Inserts a rule whose packets get hardware meter = its meter id. Null and a test failure if refused. */
	rte_flow *Add(const Rule &rule);
	void Remove(rte_flow *rule);

	Verdict Classify(const std::vector<rte_mbuf *> &pkts, uint16_t queue = 0,
		int dir = VASK_P4_MEP_INGRESS) const
	{
		return vask_test::Classify(port, pkts, queue, dir);
	}

	/* The meter that a frame gets. */
	uint32_t MeterOf(const Bytes &frame, int dir = VASK_P4_MEP_INGRESS);

	vask_port port = {};
};

/* What packets see of the receive rules; null without any. */
inline const vask_flow_view *
ViewOf(const Tables &tables)
{
	return tables.port.flow[VASK_P4_MEP_INGRESS]->view.load();
}

/* A rule for the frames of one source address. */
inline Rule
RuleOfSource(uint32_t n, uint32_t meter)
{
	return Rule().Eth().Ipv4Src(n).Udp().Meter(meter);
}

inline Bytes
FrameOfSource(uint32_t n)
{
	return Eth(Ipv4({.src = n}, Udp(1000, 80)));
}

/* Packets that a rule with COUNT has met. */
uint64_t Hits(rte_flow *rule);

} // namespace vask_test

#endif /* FLOW_SUPPORT_H */
