/* SPDX-License-Identifier: BSD-3-Clause */
/* Rules that change while packet threads classify. Meant for ThreadSanitizer too. */
#include "flow_support.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <random>
#include <thread>

using namespace vask_test;

namespace
{

using Clock = std::chrono::steady_clock;

/* Spread so that some keys want the same slot. */
uint32_t
Source(uint32_t n)
{
	return n * 2654435761;
}

Rule
SourceRule(uint32_t n)
{
	return Rule().Eth().Ipv4Src(Source(n)).Udp().Count().Meter(n);
}

Mbuf
SourceFrame(uint32_t n)
{
	return MakeMbuf(Eth(Ipv4({.src = Source(n)}, Udp(1000, 80))));
}

/* Threads that repeat a piece of work, each with its own queue number, until the scope ends. */
class PacketThreads
{
      public:
	PacketThreads(unsigned n, const std::function<void(uint16_t queue)> &burst)
	{
		for (unsigned queue = 0; queue < n; queue++)
			threads_.emplace_back([this, burst, queue] {
				while (!stop_.load(std::memory_order_relaxed)) {
					burst(queue);
					bursts_.fetch_add(1, std::memory_order_relaxed);
				}
			});
		while (bursts_.load() < 10 * n)
			std::this_thread::yield();
	}
	~PacketThreads()
	{
		stop_.store(true);
		for (std::thread &thread : threads_)
			thread.join();
	}

      private:
	std::atomic<bool> stop_ = false;
	std::atomic<uint64_t> bursts_ = 0;
	std::vector<std::thread> threads_;
};

TEST(FlowConcurrency, ARuleHoldsForEveryBurstThatBeginsAfterItsCreation)
{
	constexpr uint32_t N = 200;
	Tables tables;
	std::vector<Mbuf> frames;
	/* each rule's changes: modulo 4, 0 absent, 1 being created, 2 in force, 3 being removed */
	std::vector<std::atomic<unsigned>> state(N);
	std::atomic<unsigned> wrong = 0;

	for (uint32_t n = 0; n < N; n++)
		frames.push_back(SourceFrame(n + 1));
	{
		PacketThreads threads(2, [&](uint16_t queue) {
			thread_local uint32_t first = 0;
			std::vector<rte_mbuf *> pkts;
			unsigned before[32];

			for (uint32_t i = 0; i < 32; i++) {
				before[i] = state[(first + i) % N].load();
				pkts.push_back(frames[(first + i) % N].get());
			}
			const Verdict v = tables.Classify(pkts, queue);
			for (uint32_t i = 0; i < 32; i++) {
				const uint32_t n = (first + i) % N;

				/* changed while we looked: either answer will do */
				if (state[n].load() != before[i] || before[i] % 2 != 0)
					continue;
				wrong += v.hw_meter_id[i] != (before[i] % 4 == 2 ? n + 1 : 0);
			}
			first = (first + 7) % N;
		});
		std::vector<rte_flow *> flows(N);
		std::mt19937 dice(7);

		/* from few rules to a hash table and back, by way of growth */
		for (unsigned step = 0; step < 6000; step++) {
			const uint32_t n = dice() % N;
			const bool wanted = dice() % 100 < (step / 1000 % 2 ? 25u : 75u);

			if (wanted == (flows[n] != nullptr))
				continue;
			state[n]++;
			if (wanted) {
				flows[n] = tables.Add(SourceRule(n + 1));
			} else {
				tables.Remove(flows[n]);
				flows[n] = nullptr;
			}
			state[n]++;
		}
	}
	EXPECT_EQ(wrong.load(), 0u);
}

TEST(FlowConcurrency, ThePatternOfAStandingRuleIsNeverUnmatched)
{
	Tables tables;
	const Mbuf frame = SourceFrame(1);
	std::atomic<unsigned> wrong = 0;

	tables.Add(SourceRule(1).Priority(5));
	{
		PacketThreads threads(2, [&](uint16_t queue) {
			const Verdict v = tables.Classify({frame.get(), frame.get()}, queue);

			for (unsigned i = 0; i < 2; i++)
				wrong += v.hw_meter_id[i] != 1 && v.hw_meter_id[i] != 2;
		});
		for (unsigned step = 0; step < 2000; step++) {
			Rule better = SourceRule(1);
			Rule worse = SourceRule(1).Priority(9);
			rte_flow *flow = tables.Add(step % 2 ? better : worse);

			if (step % 2)
				vask_flow_rule_meter_set(flow, 2);
			tables.Remove(flow);
		}
	}
	EXPECT_EQ(wrong.load(), 0u);
}

/* Rules that only meter and rules that count as well take turns before one that stands. */
TEST(FlowConcurrency, AHeadOfAnotherKindIsMetAsOneOrTheOther)
{
	Tables tables;
	const Mbuf frame = SourceFrame(1);
	std::atomic<unsigned> wrong = 0;
	const auto only_meters = [](uint32_t meter) {
		return Rule().Eth().Ipv4Src(Source(1)).Udp().Meter(meter);
	};

	for (uint32_t n = 2; n < 40; n++)
		tables.Add(SourceRule(n));
	tables.Add(only_meters(1).Priority(5));
	{
		PacketThreads threads(2, [&](uint16_t queue) {
			const Verdict v = tables.Classify({frame.get(), frame.get()}, queue);

			for (unsigned i = 0; i < 2; i++)
				wrong += v.hw_meter_id[i] < 1 || v.hw_meter_id[i] > 3;
		});
		for (unsigned step = 0; step < 2000; step++)
			tables.Remove(
				tables.Add(step % 2 ? only_meters(2) : only_meters(3).Count()));
	}
	EXPECT_EQ(wrong.load(), 0u);
	EXPECT_EQ(tables.Classify({frame.get()}, 0).hw_meter_id[0], 1u);
}

TEST(FlowConcurrency, NoPacketIsCountedTwiceOrLost)
{
	constexpr unsigned QUEUES = 3;
	Tables tables;
	const Mbuf frame = SourceFrame(1);
	std::atomic<uint64_t> sent = 0;
	rte_flow *counted = tables.Add(SourceRule(1));

	{
		PacketThreads threads(QUEUES, [&](uint16_t queue) {
			tables.Classify({frame.get(), frame.get(), frame.get()}, queue);
			sent += 3;
		});
		for (uint32_t n = 2; n < 500; n++)
			tables.Add(SourceRule(n));
	}
	EXPECT_EQ(Hits(counted), sent.load());
}

TEST(FlowConcurrency, FourThousandRulesInUnderFiveSecondsWhilePacketsFlow)
{
	Tables tables;
	std::vector<Mbuf> frames;
	std::vector<rte_mbuf *> pkts;
	std::vector<rte_flow *> flows;
	Clock::duration creation, removal;

	for (uint32_t n = 1; n <= 32; n++) {
		frames.push_back(SourceFrame(n * 128));
		pkts.push_back(frames.back().get());
	}
	{
		PacketThreads threads(2, [&](uint16_t queue) { tables.Classify(pkts, queue); });
		const auto begin = Clock::now();
		for (uint32_t n = 1; n <= 4096; n++)
			flows.push_back(tables.Add(SourceRule(n)));
		creation = Clock::now() - begin;
		const auto full = Clock::now();
		for (rte_flow *flow : flows)
			tables.Remove(flow);
		removal = Clock::now() - full;
	}
	EXPECT_LT(creation, std::chrono::seconds(5));
	EXPECT_LT(removal, std::chrono::seconds(5));
	RecordProperty("created_us",
		std::chrono::duration_cast<std::chrono::microseconds>(creation).count());
	RecordProperty("removed_us",
		std::chrono::duration_cast<std::chrono::microseconds>(removal).count());
}

} // namespace
