/* SPDX-License-Identifier: BSD-3-Clause */

/*
 * Packets in two threads while a third changes everything they use. The assertions are few; a thread
 * sanitizer makes the rest of the test.
 */

#include <atomic>
#include <thread>

#include "card_test.h"
#include "qorn_hal_user_api.h"
#include "softcard_shaper.h"
#include "vask_dev_cmds.h"
#include "vask_p4_meter.h"

namespace
{

constexpr uint32_t METERS = 8;

class Threads : public CardTest
{
      protected:
	void SetUp() override
	{
		CardTest::SetUp();
		for (size_t i = 0; i < pools.size(); i++) {
			pools[i] = rte_pktmbuf_pool_create(("thread" + std::to_string(i)).c_str(),
				255, 0, 0, 256 + RTE_PKTMBUF_HEADROOM, SOCKET_ID_ANY);
			ASSERT_NE(pools[i], nullptr);
		}
	}

	void TearDown() override
	{
		for (rte_mempool *pool : pools) {
			EXPECT_EQ(rte_mempool_in_use_count(pool), 0u);
			rte_mempool_free(pool);
		}
		CardTest::TearDown();
	}

	/* Meters bursts in one direction until told to stop, and checks what comes back. */
	void Forward(int dir, rte_mempool *pool)
	{
		uint64_t now_ns = 1;

		UsePool(pool);
		while (!stop) {
			std::vector<rte_mbuf *> pkts;
			for (int i = 0; i < 32; i++)
				pkts.push_back(MakeIpv4(64 + i));
			softcard_burst burst = Burst(0, now_ns += 1000, pkts);
			for (uint32_t i = 0; i < burst.n; i++)
				burst.hw_meter_id[i] = softcard_port_meter(dir, i % 4) + i % METERS;
			uint64_t drop = softcard_meter_burst(dir, &burst);
			drop |= softcard_mtu_burst(softcard_port_of(5), &burst);
			EXPECT_EQ(drop >> 32, 0u);
			softcard_burst_drop(&burst, drop);
			Free(burst);
			bursts++;
		}
	}

	void Change(int round)
	{
		const auto profile = ProfileRecord({1u + round % 1000, round % 3 + 0u,
			round % 2 * 500u, round % 5 + 0u, round % 7 == 0, round % 4 == 0});
		const auto policy = PolicyRecord({round % 3 + 0u, 1, 2}, {10, 20, round % 64 + 0u});
		const uint32_t meter = 1 + round % METERS;
		auto inst = InstRecord(1 + round % 3, 1 + round % 2);
		const qorn_input_port_table_key_tx key = {.source_port = round % 4 + 0u, .resv = 0};
		qorn_input_port_table_result_tx entry = {};

		inst.is_color_aware = round % 2;
		inst.valid = round % 5 != 0;
		vask_p4_mep_add_meter_profile(RX, 1 + round % 3, &profile);
		vask_p4_mep_add_meter_policy(RX, 1 + round % 2, &policy);
		for (int dir : {RX, TX}) {
			if (round % 11 == 0)
				softcard_meter_inst_clear(dir, meter);
			else
				softcard_meter_inst_write(dir, meter, &inst);
			vask_p4_mep_read_meter_inst(dir, meter, &inst);
			const softcard_meter_view view = View(dir, meter);
			EXPECT_LE(view.level_c, view.burst_c);
			EXPECT_LE(view.level_e, view.burst_e);
			EXPECT_LE(view.dropped_packets,
				view.packets[0] + view.packets[1] + view.packets[2]);
		}
		vask_p4_mep_update_meter_output_by_meterid(RX, round % 4, meter);
		entry.metering_info0 = meter;
		qorn_input_port_tx_table_add(vask_p4_get_global_cmd_channel(), &key, &entry);
		vask_p4_mep_update_meter_output_by_mtu(5, round % 2 ? 68 : 1500);
		if (round % 13 == 0) {
			vask_p4_mep_del_meter_profile(RX, 1 + round % 3);
			vask_p4_mep_del_meter_policy(TX, 1 + round % 2);
			vask_p4_mep_del_meter_output_by_meterid(RX, round % 4);
			softcard_rate_sample();
		}
	}

	std::array<rte_mempool *, 4> pools;
	std::atomic<bool> stop = false;
	std::atomic<uint64_t> bursts = 0;
};

TEST_F(Threads, MeterWhileAControlThreadChangesEverything)
{
	std::thread receive([this] { Forward(RX, pools[0]); });
	std::thread transmit([this] { Forward(TX, pools[1]); });
	for (int round = 0; round < 20000 || bursts < 2000; round++)
		Change(round);
	stop = true;
	receive.join();
	transmit.join();
}

TEST_F(Threads, MeterTwoInEachEngineWhileAControlThreadChangesEverything)
{
	std::vector<std::thread> threads;

	for (size_t i = 0; i < pools.size(); i++)
		threads.emplace_back([this, i] { Forward(i % 2 == 0 ? RX : TX, pools[i]); });
	for (int round = 0; round < 20000 || bursts < 2000; round++)
		Change(round);
	stop = true;
	for (std::thread &thread : threads)
		thread.join();
}

TEST_F(Threads, TwoThatShareAMeterCountEveryPacketOnce)
{
	constexpr int ROUNDS = 2000;
	MakeMeter(RX, 1, {0, 0, 0, 1048575, true}, DropRed());
	const auto forward = [this](int thread) {
		UsePool(pools[thread]);
		for (int round = 0; round < ROUNDS; round++) {
			softcard_burst burst = Burst(1, round, {MakeIpv4(64), MakeIpv4(100)});
			softcard_meter_burst(RX, &burst);
			Free(burst);
		}
	};
	std::thread first(forward, 0), second(forward, 1);
	first.join();
	second.join();
	/* no committed tokens, 1048575 packets of excess, no refill */
	EXPECT_EQ(View(RX, 1).packets[1], 4u * ROUNDS);
	EXPECT_EQ(View(RX, 1).bytes[1], 2u * ROUNDS * 164);
	EXPECT_EQ(View(RX, 1).level_e, (1048575ull - 4 * ROUNDS) * 1000000000);
}

TEST_F(Threads, QueuesOfOneShaperWhileItsRegisterIsWritten)
{
	const auto forward = [this](int dir, int thread) {
		UsePool(pools[thread]);
		softcard_queue *queue = softcard_queue_create(dir, 3, 64, SOCKET_ID_ANY);
		ASSERT_NE(queue, nullptr);
		uint64_t now_ns = 0;
		while (!stop) {
			rte_mbuf *pkts[8];
			uint64_t times[8], releases[8];
			for (int i = 0; i < 8; i++) {
				pkts[i] = MakeIpv4(64 + i);
				times[i] = now_ns += 1000;
			}
			softcard_queue_put(queue, pkts, times, 8);
			const uint16_t n = softcard_queue_get(queue, now_ns, pkts, releases, 8);
			for (uint16_t i = 0; i < n; i++)
				EXPECT_LE(releases[i], now_ns);
			rte_pktmbuf_free_bulk(pkts, n);
			bursts++;
		}
		softcard_queue_free(queue);
	};
	std::thread first(forward, TX, 0), second(forward, TX, 1), third(forward, RX, 2);
	for (uint32_t round = 0; round < 5000 || bursts < 2000; round++) {
		vask_shaper_set_info info = {};
		vask_p4_isch_shaper value = {};
		softcard_shaper_view view;
		info.sfi = 3;
		info.max_rate = round % 3 * 100000;
		info.mode = round % 2;
		value.enable = round % 2;
		value.rate = round % 5 * 100;
		vask_cmd_set_shaper(vask_p4_get_global_cmd_channel(), &info);
		vask_p4_isch_shaper_csr_write(value);
		EXPECT_EQ(softcard_view_shaper(TX, 3, &view), 0);
	}
	stop = true;
	first.join();
	second.join();
	third.join();
}

} // namespace
