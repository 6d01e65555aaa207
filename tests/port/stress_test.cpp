/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Two forwarding threads while control calls come from one thread or two at once. VASK_STRESS_SECONDS
 * sets how long each case runs.
 */
#include "port_test.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <shared_mutex>
#include <thread>

#include <rte_errno.h>

#include "rte_pmd_net_vask1.h"

namespace vask_test
{

/* What a forwarding thread has seen. */
struct Tally {
	uint64_t put = 0;
	uint64_t received = 0;
	uint64_t taken = 0;
	uint64_t sent = 0;
};

class Stress : public PortTest
{
      protected:
	void SetUp() override
	{
		PortTest::SetUp();
		wire_ = make_wire("wire", 2, 512);
		ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire,clock=capture,tick=ns"), 0);
		port_ = port_of("net_vask1_0");
		ASSERT_EQ(add_profile(port_, 5, 80000000, 20480, 20480), 0);
		ASSERT_EQ(add_profile(port_, 6, 160000000, 20480, 20480, 80000000), 0);
		ASSERT_EQ(add_policy(port_, 7), 0);
		ASSERT_EQ(start(port_, 2), 0);
		/* one a thread: the pool's ring lies in a library that ThreadSanitizer does not see into */
		for (unsigned q = 0; q < 2; q++) {
			pools_[q] = rte_pktmbuf_pool_create(("stress" + std::to_string(q)).c_str(),
				4095, 0, 0, RTE_MBUF_DEFAULT_BUF_SIZE, SOCKET_ID_ANY);
			ASSERT_NE(pools_[q], nullptr) << rte_strerror(rte_errno);
		}
		/* the log would grow without end */
		rte_log_set_level_pattern("pmd.net.vask1", RTE_LOG_EMERG);
	}

	void TearDown() override
	{
		PortTest::TearDown();
		for (struct rte_mempool *p : pools_) {
			EXPECT_EQ(rte_mempool_in_use_count(p), 0u) << "mbufs were lost";
			rte_mempool_free(p);
		}
	}

	static std::chrono::seconds duration()
	{
		return std::chrono::seconds(seconds("VASK_STRESS_SECONDS", 2));
	}

	/* Frames of UDP and TCP in turn, through the port and out again, until told to stop. */
	void forward(uint16_t queue, const std::atomic<bool> *stop, Tally *tally)
	{
		struct rte_mbuf *pkts[32];
		uint64_t now = 0;

		while (!*stop) {
			for (int i = 0; i < 32; i++, now += 10000) {
				struct rte_mbuf *m =
					make({.length = 1000,
						     .time_ns = now,
						     .protocol = i % 2 ? IPPROTO_UDP : IPPROTO_TCP},
						pools_[queue]);

				if (rte_ring_enqueue(wire_.rx[queue], m) == 0)
					tally->put++;
				else /* nobody takes it: the port is stopped */
					rte_pktmbuf_free(m);
			}
			if (polled_.try_lock_shared()) {
				const uint16_t got = rte_eth_rx_burst(port_, queue, pkts, 32);
				tally->received += got;
				const uint16_t taken = rte_eth_tx_burst(port_, queue, pkts, got);
				tally->taken += taken;
				polled_.unlock_shared();
				rte_pktmbuf_free_bulk(pkts + taken, got - taken);
			}
			for (void *m; rte_ring_dequeue(wire_.tx[queue], &m) == 0; tally->sent++)
				rte_pktmbuf_free(static_cast<struct rte_mbuf *>(m));
		}
	}

	/* One round of everything that rte_mtr and rte_flow do with a meter. */
	void control_round(uint32_t meter)
	{
		struct rte_mtr_error error = {};
		struct rte_flow_error flow_error = {};
		struct rte_mtr_params params = {};
		struct rte_mtr_stats stats = {};
		struct rte_flow_attr in = {}, out = {};
		const struct rte_flow_item pattern[] = {
			{RTE_FLOW_ITEM_TYPE_ETH, nullptr, nullptr, nullptr},
			{RTE_FLOW_ITEM_TYPE_IPV4, nullptr, nullptr, nullptr},
			{RTE_FLOW_ITEM_TYPE_UDP, nullptr, nullptr, nullptr},
			{RTE_FLOW_ITEM_TYPE_END, nullptr, nullptr, nullptr},
		};
		const struct rte_flow_action_meter conf = {meter};
		const struct rte_flow_action actions[] = {
			{RTE_FLOW_ACTION_TYPE_METER, &conf}, {RTE_FLOW_ACTION_TYPE_END, nullptr}};
		uint64_t mask = 0;

		params.meter_profile_id = 5;
		params.meter_policy_id = 7;
		params.stats_mask = DROP_COUNTERS;
		in.ingress = 1;
		out.egress = 1;
		ASSERT_EQ(rte_mtr_create(port_, meter, &params, 1, &error), 0);
		struct rte_flow *rx = rte_flow_create(port_, &in, pattern, actions, &flow_error);
		struct rte_flow *tx = rte_flow_create(port_, &out, pattern, actions, &flow_error);
		ASSERT_NE(rx, nullptr) << flow_error.message;
		ASSERT_NE(tx, nullptr) << flow_error.message;
		EXPECT_EQ(rte_mtr_meter_profile_update(port_, meter, 6, &error), 0);
		EXPECT_EQ(rte_mtr_stats_read(port_, meter, &stats, &mask, 0, &error), 0);
		EXPECT_EQ(rte_mtr_meter_disable(port_, meter, &error), 0);
		EXPECT_EQ(rte_mtr_meter_enable(port_, meter, &error), 0);
		EXPECT_EQ(rte_flow_destroy(port_, rx, &flow_error), 0);
		EXPECT_EQ(rte_mtr_destroy(port_, meter, &error), 0);
		EXPECT_EQ(rte_flow_destroy(port_, tx, &flow_error), 0);
	}

	/* The same objects through the P4 tables. */
	void p4_round(uint32_t meter)
	{
		const p4_meter_profile_t profile = {8000000, 0, 20480, 20480, 0, 0, 0};
		p4_meter_policer_t policer = {};
		p4_meter_instance_t instance = {};

		policer.red_action = 2;
		instance.type = 1;
		instance.dpdk_port_id = port_;
		instance.profile_id = 30;
		instance.policer_id = 31;
		ASSERT_EQ(rte_pmd_net_vask1_profile_add(30, &profile), 0);
		ASSERT_EQ(rte_pmd_net_vask1_policer_add(31, &policer), 0);
		ASSERT_EQ(rte_pmd_net_vask1_instance_add(meter, &instance), 0);
		EXPECT_EQ(rte_pmd_net_vask1_profile_mod(30, &profile), 0);
		instance.dir = 1;
		EXPECT_EQ(rte_pmd_net_vask1_instance_mod(meter, &instance), 0);
		EXPECT_EQ(rte_pmd_net_vask1_instance_del(meter), 0);
		EXPECT_EQ(rte_pmd_net_vask1_policer_del(31), 0);
		EXPECT_EQ(rte_pmd_net_vask1_profile_del(30), 0);
	}

	/* What an operator's eyes do meanwhile. */
	void look()
	{
		struct rte_eth_stats stats;
		struct rte_eth_link link;

		EXPECT_EQ(rte_eth_stats_get(port_, &stats), 0);
		EXPECT_EQ(rte_eth_link_get_nowait(port_, &link), 0);
		xstat(port_, "rx_meter_dropped_packets");
	}

	/* Forwards while `control` threads make their calls; every packet is accounted for. */
	void run(const std::vector<std::function<void()>> &controls)
	{
		std::atomic<bool> stop_control = false, stop_forward = false;
		std::atomic<uint64_t> rounds = 0;
		std::vector<std::thread> threads, forwarders;
		Tally tally[2];

		for (uint16_t q = 0; q < 2; q++)
			forwarders.emplace_back([&, q] { forward(q, &stop_forward, &tally[q]); });
		for (const auto &control : controls)
			threads.emplace_back([&] {
				for (; !stop_control && !HasFatalFailure(); rounds++)
					control();
			});
		const auto end = std::chrono::steady_clock::now() + duration();
		while (std::chrono::steady_clock::now() < end) {
			look();
			std::this_thread::sleep_for(std::chrono::milliseconds(20));
		}
		stop_control = true;
		for (std::thread &t : threads)
			t.join();
		stop_forward = true;
		for (std::thread &t : forwarders)
			t.join();

		EXPECT_GT(rounds, 0u);
		uint64_t put = 0, received = 0, taken = 0, sent = 0;
		for (const Tally &t : tally) {
			EXPECT_GT(t.received, 0u);
			put += t.put;
			received += t.received;
			taken += t.taken;
			sent += t.sent;
		}
		const uint64_t left = rte_ring_count(wire_.rx[0]) + rte_ring_count(wire_.rx[1]);
		EXPECT_EQ(put, received + xstat(port_, "rx_meter_dropped_packets") + left);
		EXPECT_EQ(taken, sent + xstat(port_, "tx_meter_dropped_packets"));
	}

	Wire wire_;
	uint16_t port_ = 0;
	struct rte_mempool *pools_[2] = {};
	std::shared_mutex polled_; /* shared by those who burst */
};

TEST_F(Stress, ControlCallsOfOneThreadWhilePacketsFlow)
{
	uint32_t meter = 100;

	run({[&] {
		control_round(meter++);
	}});
}

TEST_F(Stress, ControlCallsOfTwoThreadsAtOnceThroughRteMtrAndTheP4TablesWhilePacketsFlow)
{
	uint32_t meter = 100, p4_meter = 1u << 20;

	run({[&] { control_round(meter++); },
		[&] {
			p4_round(p4_meter++);
		}});
}

TEST_F(Stress, PortIsStoppedAndStartedWhilePacketsCome)
{
	run({[&] {
		/* no thread may burst on a port that is stopped; what is on the wire goes on coming */
		const std::lock_guard lock(polled_);

		ASSERT_EQ(rte_eth_dev_stop(port_), 0);
		ASSERT_EQ(rte_eth_dev_start(port_), 0);
	}});
}

} // namespace vask_test
