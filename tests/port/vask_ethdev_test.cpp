/* SPDX-License-Identifier: BSD-3-Clause */
/* What an application finds at a port: its description, its settings, and what it shares with others. */
#include "port_test.h"

#include <cstring>

#include <rte_bus_vdev.h>

namespace vask_test
{

class Ethdev : public PortTest
{
};

TEST_F(Ethdev, DescribesItself)
{
	struct rte_eth_dev_info info;

	make_wire("wire", 4);
	ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire"), 0);
	ASSERT_EQ(rte_eth_dev_info_get(port_of("net_vask1_0"), &info), 0);
	EXPECT_STREQ(info.driver_name, "net_vask1");
	EXPECT_EQ(info.min_mtu, 68);
	EXPECT_EQ(info.max_mtu, 16384);
	EXPECT_EQ(info.max_rx_pktlen, 16384u + 14 + 8);
	EXPECT_EQ(info.max_rx_queues, 16) << "spread in software";
	EXPECT_EQ(info.max_tx_queues, 4);
	EXPECT_EQ(info.rx_offload_capa,
		RTE_ETH_RX_OFFLOAD_TIMESTAMP | RTE_ETH_RX_OFFLOAD_VLAN_STRIP |
			RTE_ETH_RX_OFFLOAD_SCATTER | RTE_ETH_RX_OFFLOAD_RSS_HASH);
	EXPECT_EQ(info.tx_offload_capa, RTE_ETH_TX_OFFLOAD_MULTI_SEGS);
}

TEST_F(Ethdev, HasSixteenQueuePairsAtMost)
{
	struct rte_eth_dev_info info;

	make_wire("wire", 16);
	ASSERT_EQ(probe("net_vask1_0", ""), 0);
	ASSERT_EQ(rte_eth_dev_info_get(port_of("net_vask1_0"), &info), 0);
	EXPECT_EQ(info.max_rx_queues, 16);
}

TEST_F(Ethdev, KeepsTheAddressThatItIsGiven)
{
	struct rte_ether_addr mac = {{0x02, 1, 2, 3, 4, 5}}, kept;

	ASSERT_EQ(probe("net_vask1_0", "sfi=258"), 0);
	const uint16_t port = port_of("net_vask1_0");
	ASSERT_EQ(rte_eth_macaddr_get(port, &kept), 0);
	EXPECT_EQ(kept.addr_bytes[0], 2);
	EXPECT_EQ(kept.addr_bytes[4], 1);
	EXPECT_EQ(kept.addr_bytes[5], 2);
	ASSERT_EQ(rte_eth_dev_default_mac_addr_set(port, &mac), 0);
	ASSERT_EQ(rte_eth_macaddr_get(port, &kept), 0);
	EXPECT_EQ(memcmp(&kept, &mac, sizeof(mac)), 0);
}

TEST_F(Ethdev, TakesPromiscuousAndMulticastModesThatItsUplinkLacks)
{
	make_wire("wire");
	ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire"), 0);
	const uint16_t port = port_of("net_vask1_0");

	EXPECT_EQ(rte_eth_promiscuous_enable(port), 0);
	EXPECT_EQ(rte_eth_promiscuous_get(port), 1);
	EXPECT_EQ(rte_eth_promiscuous_disable(port), 0);
	EXPECT_EQ(rte_eth_promiscuous_get(port), 0);
	EXPECT_EQ(rte_eth_allmulticast_enable(port), 0);
	EXPECT_EQ(rte_eth_allmulticast_get(port), 1);
	EXPECT_EQ(rte_eth_allmulticast_disable(port), 0);
}

TEST_F(Ethdev, SpreadsPacketsAsItsUplinkDoes)
{
	struct rte_eth_rss_reta_entry64 reta[2] = {};
	struct rte_eth_rss_conf rss = {};
	struct rte_eth_dev_info info;
	struct rte_eth_conf conf = {};
	uint8_t key[40] = {};

	ASSERT_EQ(probe("net_vask1_0", "uplink=net_null0"), 0);
	ASSERT_EQ(rte_vdev_init("net_null0", ""), 0);
	const uint16_t port = port_of("net_vask1_0");
	ASSERT_EQ(rte_eth_dev_info_get(port, &info), 0);
	ASSERT_NE(info.flow_type_rss_offloads, 0u);
	ASSERT_EQ(info.reta_size, 128);

	conf.rxmode.mq_mode = RTE_ETH_MQ_RX_RSS;
	conf.rx_adv_conf.rss_conf.rss_hf = info.flow_type_rss_offloads;
	ASSERT_EQ(rte_eth_dev_configure(port, 2, 2, &conf), 0);
	rss.rss_hf = info.flow_type_rss_offloads;
	EXPECT_EQ(rte_eth_dev_rss_hash_update(port, &rss), 0);
	rss = {};
	rss.rss_key = key;
	rss.rss_key_len = sizeof(key);
	EXPECT_EQ(rte_eth_dev_rss_hash_conf_get(port, &rss), 0);
	EXPECT_EQ(rss.rss_hf, info.flow_type_rss_offloads);
	reta[0].mask = reta[1].mask = UINT64_MAX;
	reta[0].reta[3] = 1;
	EXPECT_EQ(rte_eth_dev_rss_reta_update(port, reta, 128), 0);
	memset(reta[0].reta, 0, sizeof(reta[0].reta));
	EXPECT_EQ(rte_eth_dev_rss_reta_query(port, reta, 128), 0);
	EXPECT_EQ(reta[0].reta[3], 1);
	remove("net_vask1_0");
	EXPECT_EQ(rte_vdev_uninit("net_null0"), 0);
}

TEST_F(Ethdev, PortsShareAMeterThroughTheirRules)
{
	const Wire wires[] = {make_wire("one"), make_wire("two")};
	uint16_t port[2];
	size_t passed = 0;

	for (int i = 0; i < 2; i++) {
		const std::string name = "net_vask1_" + std::to_string(i);

		ASSERT_EQ(probe(name, "clock=capture,uplink=" + wires[i].name), 0);
		port[i] = port_of(name);
		ASSERT_EQ(start(port[i]), 0);
	}
	ASSERT_EQ(add_profile(port[0], 5, 80000, 20480, 20480), 0);
	ASSERT_EQ(create_meter(port[0], 9, 5, 0, RECEIVE), 0);
	for (uint16_t p : port)
		ASSERT_NE(add_meter_rule(p, IPPROTO_UDP, 9), nullptr) << flow_error.message;
	for (int i = 0; i < 2; i++) {
		for (int n = 0; n < 30; n++)
			put(wires[i], {.length = 1000});
		passed += receive(port[i]).size();
	}
	/* 40 of the 60 packets find tokens, whichever port they came by */
	EXPECT_EQ(passed, 40u);
	EXPECT_EQ(stats(port[1], 9).n_pkts_dropped, 20u);
}

} // namespace vask_test
