/* SPDX-License-Identifier: BSD-3-Clause */
/* Receive-side scaling in software: hashes are those of a reference, and queues those of the table. */
#include "port_test.h"

#include <atomic>
#include <cstring>
#include <map>
#include <random>
#include <thread>

#include <arpa/inet.h>
#include <rte_errno.h>
#include <rte_ether.h>
#include <rte_ip.h>
#include <rte_tcp.h>
#include <rte_thash.h>
#include <rte_udp.h>

namespace vask_test
{

constexpr uint16_t QUEUES = 4;
constexpr uint64_t ADDRESSES = RTE_ETH_RSS_IPV4 | RTE_ETH_RSS_IPV6;
constexpr uint64_t PORTS = RTE_ETH_RSS_NONFRAG_IPV4_TCP | RTE_ETH_RSS_NONFRAG_IPV4_UDP |
	RTE_ETH_RSS_NONFRAG_IPV6_TCP | RTE_ETH_RSS_NONFRAG_IPV6_UDP;

/* Made of the bytes that published checks of the hash use. */
constexpr uint8_t DEFAULT_KEY[40] = {0x6d, 0x5a, 0x56, 0xda, 0x25, 0x5b, 0x0e, 0xc2, 0x41, 0x67,
	0x25, 0x3d, 0x43, 0xa3, 0x8f, 0xb0, 0xd0, 0xca, 0x2b, 0xcb, 0xae, 0x7b, 0x30, 0xb4, 0x77,
	0xcb, 0x2d, 0xa3, 0x80, 0x30, 0xf2, 0x0c, 0x6a, 0x42, 0xb7, 0x3b, 0xbe, 0xac, 0x01, 0xfa};

struct Flow {
	std::string src, dst; /* of one family */
	uint16_t sport = 0, dport = 0;
	uint8_t protocol = IPPROTO_UDP;
	bool fragment = false;
};

class Rss : public PortTest
{
      protected:
	void up(uint64_t types, const uint8_t *key = nullptr, unsigned uplink_queues = 1)
	{
		wire_ = make_wire("wire", uplink_queues, 4096);
		ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire,clock=capture,tick=ns"), 0);
		port_ = port_of("net_vask1_0");
		ASSERT_EQ(configure(types, key), 0) << log();
		for (uint16_t q = 0; q < QUEUES; q++)
			ASSERT_EQ(rte_eth_rx_queue_setup(port_, q, 512, 0, nullptr, pool), 0);
		ASSERT_EQ(rte_eth_tx_queue_setup(port_, 0, 512, 0, nullptr), 0);
		ASSERT_EQ(rte_eth_dev_start(port_), 0);
		for (uint16_t i = 0; i < 128; i++)
			reta_[i] = i % QUEUES;
	}

	int configure(uint64_t types, const uint8_t *key = nullptr, uint8_t key_length = 40)
	{
		struct rte_eth_conf conf = {};
		std::vector<uint8_t> copy;

		conf.rxmode.mq_mode = RTE_ETH_MQ_RX_RSS;
		conf.rxmode.offloads = RTE_ETH_RX_OFFLOAD_RSS_HASH;
		conf.rx_adv_conf.rss_conf.rss_hf = types;
		if (key != nullptr) {
			copy.assign(key, key + key_length);
			conf.rx_adv_conf.rss_conf.rss_key = copy.data();
			conf.rx_adv_conf.rss_conf.rss_key_len = key_length;
		}
		return rte_eth_dev_configure(port_, QUEUES, 1, &conf);
	}

	/* The frame of a flow, with its number behind the headers. */
	struct rte_mbuf *frame(const Flow &flow, uint32_t number)
	{
		struct rte_mbuf *m = rte_pktmbuf_alloc(pool);
		char *at = rte_pktmbuf_append(m, 120);
		const bool v6 = flow.src.find(':') != std::string::npos;
		auto *eth = reinterpret_cast<struct rte_ether_hdr *>(at);
		char *l4;

		memset(at, 0, 120);
		if (v6) {
			auto *ip = reinterpret_cast<struct rte_ipv6_hdr *>(eth + 1);

			eth->ether_type = RTE_BE16(RTE_ETHER_TYPE_IPV6);
			ip->vtc_flow = RTE_BE32(6u << 28);
			ip->payload_len = RTE_BE16(120 - 14 - 40);
			ip->proto = flow.protocol;
			EXPECT_EQ(inet_pton(AF_INET6, flow.src.c_str(), &ip->src_addr), 1);
			EXPECT_EQ(inet_pton(AF_INET6, flow.dst.c_str(), &ip->dst_addr), 1);
			l4 = reinterpret_cast<char *>(ip + 1);
		} else {
			auto *ip = reinterpret_cast<struct rte_ipv4_hdr *>(eth + 1);

			eth->ether_type = RTE_BE16(RTE_ETHER_TYPE_IPV4);
			ip->version_ihl = RTE_IPV4_VHL_DEF;
			ip->total_length = RTE_BE16(120 - 14);
			ip->next_proto_id = flow.protocol;
			ip->fragment_offset =
				flow.fragment ? RTE_BE16(RTE_IPV4_HDR_MF_FLAG) : rte_be16_t{0};
			EXPECT_EQ(inet_pton(AF_INET, flow.src.c_str(), &ip->src_addr), 1);
			EXPECT_EQ(inet_pton(AF_INET, flow.dst.c_str(), &ip->dst_addr), 1);
			l4 = reinterpret_cast<char *>(ip + 1);
		}
		const rte_be16_t ports[] = {
			rte_cpu_to_be_16(flow.sport), rte_cpu_to_be_16(flow.dport)};
		memcpy(l4, ports, sizeof(ports));
		memcpy(at + 120 - sizeof(number), &number, sizeof(number));
		return m;
	}

	static uint32_t number_of(const struct rte_mbuf *m)
	{
		uint32_t number;

		memcpy(&number, rte_pktmbuf_mtod_offset(m, char *, 120 - sizeof(number)),
			sizeof(number));
		return number;
	}

	/* The hash, by DPDK's tuple in the order of its fields. */
	static uint32_t reference(const Flow &flow, const uint8_t *key, bool ports)
	{
		union rte_thash_tuple tuple = {};
		const bool v6 = flow.src.find(':') != std::string::npos;

		if (v6) {
			struct rte_ipv6_hdr ip = {};

			inet_pton(AF_INET6, flow.src.c_str(), &ip.src_addr);
			inet_pton(AF_INET6, flow.dst.c_str(), &ip.dst_addr);
			rte_thash_load_v6_addrs(&ip, &tuple);
			tuple.v6.sport = flow.sport;
			tuple.v6.dport = flow.dport;
		} else {
			inet_pton(AF_INET, flow.src.c_str(), &tuple.v4.src_addr);
			inet_pton(AF_INET, flow.dst.c_str(), &tuple.v4.dst_addr);
			tuple.v4.src_addr = rte_be_to_cpu_32(tuple.v4.src_addr);
			tuple.v4.dst_addr = rte_be_to_cpu_32(tuple.v4.dst_addr);
			tuple.v4.sport = flow.sport;
			tuple.v4.dport = flow.dport;
		}
		const uint32_t words = v6 ? (ports ? RTE_THASH_V6_L4_LEN : RTE_THASH_V6_L3_LEN)
					  : (ports ? RTE_THASH_V4_L4_LEN : RTE_THASH_V4_L3_LEN);
		return rte_softrss(reinterpret_cast<uint32_t *>(&tuple), words, key);
	}

	/* Everything that all queues deliver: by number, the packet and its queue. */
	std::map<uint32_t, std::pair<struct rte_mbuf *, uint16_t>> receive_all()
	{
		std::map<uint32_t, std::pair<struct rte_mbuf *, uint16_t>> all;

		/* the uplink's queues come first and hand over to the others */
		for (int round = 0; round < 2; round++)
			for (uint16_t q = 0; q < QUEUES; q++)
				for (struct rte_mbuf *m : receive(port_, q))
					EXPECT_TRUE(all.try_emplace(number_of(m), m, q).second);
		return all;
	}

	/* Flows of both families and several protocols. */
	std::vector<Flow> random_flows(size_t n)
	{
		std::mt19937 random(1);
		std::vector<Flow> flows(n);
		const auto number = [&](unsigned end) {
			return std::to_string(random() % end);
		};

		for (Flow &flow : flows) {
			const bool v6 = random() % 2 == 0;
			const auto address = [&] {
				return v6 ? "2001:db8::" + number(10000) + ":" + number(10000)
					  : "10." + number(256) + "." + number(256) + "." +
						number(256);
			};
			flow.src = address();
			flow.dst = address();
			flow.sport = static_cast<uint16_t>(random());
			flow.dport = static_cast<uint16_t>(random());
			flow.protocol = random() % 2 ? IPPROTO_UDP : IPPROTO_TCP;
		}
		return flows;
	}

	/* Sends three packets of each flow through and compares hashes and queues. */
	void expect_spread(const std::vector<Flow> &flows, const uint8_t *key, bool ports)
	{
		for (uint32_t i = 0; i < 3 * flows.size(); i++)
			ASSERT_EQ(rte_ring_enqueue(wire_.rx[i % wire_.rx.size()],
					  frame(flows[i % flows.size()], i)),
				0);
		const auto all = receive_all();
		ASSERT_EQ(all.size(), 3 * flows.size());
		for (const auto &[i, got] : all) {
			const uint32_t hash = reference(flows[i % flows.size()], key, ports);

			ASSERT_NE(got.first->ol_flags & RTE_MBUF_F_RX_RSS_HASH, 0u) << i;
			ASSERT_EQ(got.first->hash.rss, hash) << i;
			ASSERT_EQ(got.second, reta_[hash % 128]) << i;
			ASSERT_EQ(got.first->port, port_);
		}
	}

	void set_reta(const std::array<uint16_t, 128> &reta)
	{
		struct rte_eth_rss_reta_entry64 entries[2] = {};

		for (unsigned i = 0; i < 128; i++) {
			entries[i / 64].mask = UINT64_MAX;
			entries[i / 64].reta[i % 64] = reta[i];
		}
		ASSERT_EQ(rte_eth_dev_rss_reta_update(port_, entries, 128), 0);
		reta_ = reta;
	}

	Wire wire_;
	uint16_t port_ = 0;
	std::array<uint16_t, 128> reta_ = {};
};

TEST_F(Rss, HashesAreThePublishedOnes)
{
	struct Vector {
		Flow flow;
		uint32_t addresses, ports;
	};
	const std::vector<Vector> vectors = {
		{{"66.9.149.187", "161.142.100.80", 2794, 1766, IPPROTO_TCP}, 0x323e8fc2,
			0x51ccc178},
		{{"199.92.111.2", "65.69.140.83", 14230, 4739, IPPROTO_TCP}, 0xd718262a,
			0xc626b0ea},
		{{"24.19.198.95", "12.22.207.184", 12898, 38024, IPPROTO_TCP}, 0xd2d0a5de,
			0x5c2b394a},
		{{"3ffe:2501:200:1fff::7", "3ffe:2501:200:3::1", 2794, 1766, IPPROTO_TCP},
			0x2cc18cd5, 0x40207d3d},
	};

	up(ADDRESSES | PORTS);
	for (bool ports : {true, false}) {
		struct rte_eth_rss_conf conf = {};

		conf.rss_hf = ports ? ADDRESSES | PORTS : ADDRESSES;
		ASSERT_EQ(rte_eth_dev_rss_hash_update(port_, &conf), 0);
		for (uint32_t i = 0; i < vectors.size(); i++)
			ASSERT_EQ(rte_ring_enqueue(wire_.rx[0], frame(vectors[i].flow, i)), 0);
		const auto all = receive_all();
		ASSERT_EQ(all.size(), vectors.size());
		for (const auto &[i, got] : all)
			EXPECT_EQ(got.first->hash.rss,
				ports ? vectors[i].ports : vectors[i].addresses)
				<< i;
	}
}

TEST_F(Rss, SpreadIsTheReferencesForOneQueueOfTheUplink)
{
	up(ADDRESSES | PORTS);
	expect_spread(random_flows(300), DEFAULT_KEY, true);
}

TEST_F(Rss, SpreadIsTheReferencesForAnUplinkOfSeveralQueuesThatHasNoRss)
{
	up(ADDRESSES | PORTS, nullptr, QUEUES);
	expect_spread(random_flows(300), DEFAULT_KEY, true);
}

TEST_F(Rss, SpreadIsTheReferencesByAddressesAloneAndByAnotherKey)
{
	uint8_t key[40], read[40] = {};
	struct rte_eth_rss_conf conf = {};

	for (unsigned i = 0; i < sizeof(key); i++)
		key[i] = static_cast<uint8_t>(17 * i + 3);
	up(ADDRESSES, key);
	const auto flows = random_flows(300);
	expect_spread(flows, key, false);

	conf.rss_key = read;
	conf.rss_key_len = sizeof(read);
	ASSERT_EQ(rte_eth_dev_rss_hash_conf_get(port_, &conf), 0);
	EXPECT_EQ(conf.rss_hf, ADDRESSES);
	EXPECT_EQ(memcmp(read, key, sizeof(key)), 0);

	key[0] ^= 0xff;
	conf = {};
	conf.rss_key = key;
	conf.rss_key_len = sizeof(key);
	conf.rss_hf = ADDRESSES | PORTS;
	ASSERT_EQ(rte_eth_dev_rss_hash_update(port_, &conf), 0);
	expect_spread(flows, key, true);
}

TEST_F(Rss, TableOfAnApplicationIsFollowedAndReadBack)
{
	std::array<uint16_t, 128> reta;
	struct rte_eth_rss_reta_entry64 read[2] = {};

	up(ADDRESSES | PORTS);
	for (unsigned i = 0; i < 128; i++)
		reta[i] = i < 100 ? 3 : 1;
	set_reta(reta);
	expect_spread(random_flows(300), DEFAULT_KEY, true);
	read[1].mask = UINT64_C(1) << 35 | UINT64_C(1) << 36; /* entries 99 and 100 */
	ASSERT_EQ(rte_eth_dev_rss_reta_query(port_, read, 128), 0);
	EXPECT_EQ(read[1].reta[35], 3);
	EXPECT_EQ(read[1].reta[36], 1);
	EXPECT_EQ(rte_eth_dev_rss_reta_query(port_, read, 64), -EINVAL);
}

TEST_F(Rss, TableChangesUnderTraffic)
{
	const auto flows = random_flows(64);
	std::atomic<bool> stop = false;
	std::atomic<uint64_t> changes = 0;
	uint64_t put = 0, got = 0;
	struct rte_mbuf *pkts[32];

	up(ADDRESSES | PORTS);
	std::thread control([&] {
		for (uint16_t queue = 0; !stop; queue = (queue + 1) % QUEUES, changes++) {
			std::array<uint16_t, 128> reta;

			reta.fill(queue);
			set_reta(reta);
		}
	});
	for (int round = 0; round < 2000; round++) {
		for (int i = 0; i < 32; i++, put++)
			ASSERT_EQ(
				rte_ring_enqueue(wire_.rx[0], frame(flows[put % flows.size()], 0)),
				0);
		for (uint16_t q = 0; q < QUEUES; q++) {
			const uint16_t n = rte_eth_rx_burst(port_, q, pkts, 32);

			got += n;
			rte_pktmbuf_free_bulk(pkts, n);
		}
	}
	stop = true;
	control.join();
	EXPECT_GT(changes, 0u);
	got += receive_all().size();
	EXPECT_EQ(put, got + xstat(port_, "rx_queue_dropped_packets"));
	/* from the call's return on packets go by the new table */
	expect_spread(flows, DEFAULT_KEY, true);
}

TEST_F(Rss, QueueRuleGoesBeforeTheTable)
{
	const struct rte_flow_action_queue to_0 = {0}, to_2 = {2};

	up(ADDRESSES | PORTS);
	std::array<uint16_t, 128> reta;
	reta.fill(3);
	set_reta(reta);
	ASSERT_NE(add_rule(port_, IPPROTO_UDP, {RTE_FLOW_ACTION_TYPE_QUEUE, &to_0}), nullptr);
	ASSERT_NE(add_rule(port_, IPPROTO_TCP, {RTE_FLOW_ACTION_TYPE_QUEUE, &to_2}), nullptr);
	const uint8_t protocols[] = {IPPROTO_UDP, IPPROTO_TCP, IPPROTO_ICMP};
	for (uint32_t i = 0; i < 30; i++)
		ASSERT_EQ(rte_ring_enqueue(wire_.rx[0],
				  frame({"10.0.0.1", "10.0.0.2", 1, 2, protocols[i % 3]}, i)),
			0);
	const auto all = receive_all();
	ASSERT_EQ(all.size(), 30u);
	for (const auto &[i, got] : all) {
		EXPECT_EQ(got.second, i % 3 == 0 ? 0 : i % 3 == 1 ? 2 : 3) << i;
		EXPECT_NE(got.first->ol_flags & RTE_MBUF_F_RX_RSS_HASH, 0u);
	}
}

TEST_F(Rss, PacketsWithoutAHashStayAndFragmentsGoByTheirAddresses)
{
	up(ADDRESSES | PORTS);
	std::array<uint16_t, 128> reta;
	reta.fill(3);
	set_reta(reta);
	struct rte_mbuf *arp = frame({"10.0.0.1", "10.0.0.2"}, 0);
	rte_pktmbuf_mtod(arp, struct rte_ether_hdr *)->ether_type = RTE_BE16(RTE_ETHER_TYPE_ARP);
	ASSERT_EQ(rte_ring_enqueue(wire_.rx[0], arp), 0);
	const Flow fragment = {"10.0.0.1", "10.0.0.2", 7, 8, IPPROTO_UDP, true};
	ASSERT_EQ(rte_ring_enqueue(wire_.rx[0], frame(fragment, 1)), 0);

	const auto all = receive_all();
	ASSERT_EQ(all.size(), 2u);
	EXPECT_EQ(all.at(0).second, 0);
	EXPECT_EQ(all.at(0).first->ol_flags & RTE_MBUF_F_RX_RSS_HASH, 0u);
	EXPECT_EQ(all.at(1).second, 3);
	EXPECT_EQ(all.at(1).first->hash.rss, reference(fragment, DEFAULT_KEY, false));
}

TEST_F(Rss, PacketsAreMeteredBeforeTheyAreSpread)
{
	up(ADDRESSES | PORTS);
	ASSERT_EQ(add_profile(port_, 5, 80000, 4096, 4096), 0);
	ASSERT_EQ(create_meter(port_, 9, 5, 0, RECEIVE), 0);
	/* 4096 bytes a bucket hold 34 frames of 120 bytes each */
	for (uint32_t i = 0; i < 100; i++)
		ASSERT_EQ(rte_ring_enqueue(
				  wire_.rx[0], frame({"10.0.0.1", "10.0.0.2", uint16_t(i), 2}, i)),
			0);
	EXPECT_EQ(receive_all().size(), 68u);
	EXPECT_EQ(stats(port_, 9).n_pkts_dropped, 32u);
}

TEST_F(Rss, QueueThatNobodyPollsLosesWhatItsRingCannotHold)
{
	up(ADDRESSES | PORTS);
	std::array<uint16_t, 128> reta;
	reta.fill(3);
	set_reta(reta);
	for (uint32_t i = 0; i < 1500; i++)
		ASSERT_EQ(rte_ring_enqueue(wire_.rx[0], frame({"10.0.0.1", "10.0.0.2"}, i)), 0);
	EXPECT_EQ(receive(port_, 0).size(), 0u);
	EXPECT_EQ(receive(port_, 3).size(), 1023u);
	EXPECT_EQ(xstat(port_, "rx_queue_dropped_packets"), 1500u - 1023);
}

TEST_F(Rss, AbilitiesAreTheSoftwaresWhereTheUplinkHasNone)
{
	struct rte_eth_dev_info info;

	make_wire("wire");
	ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire"), 0);
	ASSERT_EQ(rte_eth_dev_info_get(port_of("net_vask1_0"), &info), 0);
	EXPECT_EQ(info.max_rx_queues, 16);
	EXPECT_EQ(info.max_tx_queues, 1);
	EXPECT_EQ(info.flow_type_rss_offloads, ADDRESSES | PORTS);
	EXPECT_EQ(info.reta_size, 128);
	EXPECT_EQ(info.hash_key_size, 40);
	EXPECT_NE(info.rx_offload_capa & RTE_ETH_RX_OFFLOAD_RSS_HASH, 0u);
}

TEST_F(Rss, KeyOfAnotherLengthIsRefused)
{
	const uint8_t key[52] = {};

	make_wire("wire");
	ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire"), 0);
	port_ = port_of("net_vask1_0");
	log();
	EXPECT_LT(configure(ADDRESSES, key, sizeof(key)), 0);
	EXPECT_NE(
		log().find("net_vask1_0: an RSS key of 52 bytes is refused, one of 40 is accepted"),
		std::string::npos);
	EXPECT_EQ(configure(ADDRESSES, key, 40), 0);
}

} // namespace vask_test
