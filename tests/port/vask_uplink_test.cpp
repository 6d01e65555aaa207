/* SPDX-License-Identifier: BSD-3-Clause */
/* The uplink: taken when it appears, refused when it cannot be had, let go when it disappears. */
#include "port_test.h"

#include <atomic>
#include <thread>

#include "vask_dpdk.h"

namespace vask_test
{

class Uplink : public PortTest
{
      protected:
	bool said(const std::string &line)
	{
		return log().find(line) != std::string::npos;
	}
};

TEST_F(Uplink, NamedBeforeItExistsItIsTakenWhenItAppears)
{
	ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire,clock=capture"), 0);
	const uint16_t port = port_of("net_vask1_0");

	EXPECT_EQ(start(port), -ENODEV);
	EXPECT_TRUE(said("net_vask1_0: there is no uplink \"net_ring_wire\"; name one with "
			 "uplink=<ethdev name>"));

	Wire wire = make_wire("wire");
	EXPECT_EQ(rte_eth_dev_count_avail(), 1) << "the uplink is hidden";
	struct rte_eth_dev_owner owner;
	ASSERT_EQ(rte_eth_dev_owner_get(port_of("net_ring_wire"), &owner), 0);
	EXPECT_STREQ(owner.name, "net_vask1_0");

	ASSERT_EQ(start(port), 0);
	put(wire, {});
	const auto got = receive(port);
	ASSERT_EQ(got.size(), 1u);
	EXPECT_EQ(got[0]->port, port) << "packets carry our port's id";
}

TEST_F(Uplink, NoneAtAllIsRefusedAtConfigure)
{
	ASSERT_EQ(probe("net_vask1_0", ""), 0);
	EXPECT_EQ(start(port_of("net_vask1_0")), -ENODEV);
	EXPECT_TRUE(said("there is no uplink \"\"; name one with uplink=<ethdev name>"));
}

TEST_F(Uplink, OwnedByAnotherIsRefusedAtProbe)
{
	Wire wire = make_wire("wire");
	struct rte_eth_dev_owner other = {};

	ASSERT_EQ(rte_eth_dev_owner_new(&other.id), 0);
	ASSERT_EQ(rte_eth_dev_owner_set(port_of("net_ring_wire"), &other), 0);
	EXPECT_LT(probe("net_vask1_0", "uplink=net_ring_wire"), 0);
	EXPECT_TRUE(
		said("net_vask1_0: uplink net_ring_wire cannot be taken, it has another owner"));
	ASSERT_EQ(rte_eth_dev_owner_unset(port_of("net_ring_wire"), other.id), 0);
	EXPECT_EQ(probe("net_vask1_0", "uplink=net_ring_wire"), 0);
}

TEST_F(Uplink, OfAnotherPortOfTheCardIsRefusedAtProbe)
{
	ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire"), 0);
	EXPECT_LT(probe("net_vask1_1", "uplink=net_ring_wire"), 0);
	EXPECT_TRUE(said("net_vask1_1: uplink=net_ring_wire is refused: net_vask1_0 has "
			 "uplink=net_ring_wire"));
}

TEST_F(Uplink, PortOfTheCardIsNoUplink)
{
	ASSERT_EQ(probe("net_vask1_0", "uplink=net_vask1_1"), 0);
	EXPECT_LT(probe("net_vask1_1", ""), 0);
	EXPECT_LT(probe("net_vask1_2", "uplink=net_vask1_0"), 0);
}

TEST_F(Uplink, LackOfQueuesIsRefusedAtConfigure)
{
	make_wire("wire", 2);
	ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire"), 0);
	const uint16_t port = port_of("net_vask1_0");
	struct rte_eth_dev_info info;

	ASSERT_EQ(rte_eth_dev_info_get(port, &info), 0);
	EXPECT_EQ(info.max_tx_queues, 2);
	/* without RSS nothing would come to a third queue */
	const struct rte_eth_conf conf = {};
	EXPECT_EQ(rte_eth_dev_configure(port, 3, 2, &conf), -EINVAL);
	EXPECT_TRUE(said(
		"uplink net_ring_wire has 2 receive and 2 transmit queues, not 3 and 2; RSS serves more receive queues"));
	EXPECT_EQ(rte_eth_dev_configure(port, 2, 3, &conf), -EINVAL);
	EXPECT_EQ(start(port, 2), 0);
}

TEST_F(Uplink, RemovedFirstItLeavesAPortThatIsDownAndTakesItBackWhenItReturns)
{
	Wire wire = make_wire("wire");
	struct rte_eth_link link;

	ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire,clock=capture"), 0);
	const uint16_t port = port_of("net_vask1_0");
	ASSERT_EQ(start(port), 0);
	ASSERT_EQ(rte_eth_link_get_nowait(port, &link), 0);
	EXPECT_EQ(link.link_status, RTE_ETH_LINK_UP);

	remove_wire(wire);
	EXPECT_TRUE(said("net_vask1_0: uplink net_ring_wire is gone"));
	EXPECT_EQ(receive(port).size(), 0u);
	EXPECT_EQ(send(port, std::vector<Frame>(3)), 0);
	ASSERT_EQ(rte_eth_link_get_nowait(port, &link), 0);
	EXPECT_EQ(link.link_status, RTE_ETH_LINK_DOWN);
	ASSERT_EQ(rte_eth_dev_stop(port), 0);
	EXPECT_EQ(rte_eth_dev_start(port), -ENODEV);

	wire = make_wire("wire");
	ASSERT_EQ(start(port), 0);
	put(wire, {});
	EXPECT_EQ(receive(port).size(), 1u);
}

TEST_F(Uplink, WhoseDriverFindsItsDeviceGoneIsLetGoOfUnderTraffic)
{
	Wire wire = make_wire("wire", 1, 4096);
	struct rte_eth_link link;
	std::atomic<bool> stop = false;
	std::atomic<uint64_t> received = 0, idle = 0;

	ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire"), 0);
	const uint16_t port = port_of("net_vask1_0");
	ASSERT_EQ(start(port), 0);
	/* it makes the frames too: the ring lies in a library that ThreadSanitizer does not see into */
	std::thread poll([&] {
		struct rte_mbuf *pkts[32];

		for (int i = 0; i < 2000; i++)
			put(wire, {});
		while (!stop) {
			const uint16_t n = rte_eth_rx_burst(port, 0, pkts, 32);

			received += n;
			idle += n == 0;
			rte_pktmbuf_free_bulk(pkts, n);
		}
	});
	while (received == 0)
		;
	/* what a driver does; when it returns, no burst uses the uplink */
	rte_eth_dev_callback_process(
		&rte_eth_devices[port_of("net_ring_wire")], RTE_ETH_EVENT_INTR_RMV, nullptr);
	EXPECT_TRUE(said("net_vask1_0: uplink net_ring_wire is unplugged"));
	ASSERT_EQ(rte_eth_link_get_nowait(port, &link), 0);
	EXPECT_EQ(link.link_status, RTE_ETH_LINK_DOWN);
	remove_wire(wire);
	for (const uint64_t before = idle; idle < before + 1000;)
		;
	stop = true;
	poll.join();

	wire = make_wire("wire");
	ASSERT_EQ(rte_eth_dev_stop(port), 0);
	ASSERT_EQ(start(port), 0);
	put(wire, {});
	EXPECT_EQ(receive(port).size(), 1u);
}

TEST_F(Uplink, ClosesWithThePort)
{
	make_wire("wire");
	ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire"), 0);
	ASSERT_EQ(start(port_of("net_vask1_0")), 0);
	ASSERT_EQ(rte_eth_dev_stop(port_of("net_vask1_0")), 0);
	ASSERT_EQ(rte_eth_dev_close(port_of("net_vask1_0")), 0);
	EXPECT_EQ(rte_eth_dev_count_total(), 0);
}

} // namespace vask_test
