/* SPDX-License-Identifier: BSD-3-Clause */
#include "vask_rcu.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include <gtest/gtest.h>
#include <rte_malloc.h>

namespace
{

constexpr uint32_t THREADS = 2;

class Rcu : public ::testing::Test
{
      protected:
	~Rcu() override
	{
		vask_rcu_mode.bursts_fence = fenced_;
	}
	/* Whether all bursts have ended that were under way at a token. */
	bool Passed(uint64_t token)
	{
		vask_rcu_fence();
		return vask_rcu_passed(rcu_.get(), token, false);
	}

	const std::unique_ptr<rte_rcu_qsbr, void (*)(void *)> rcu_{
		vask_rcu_create(THREADS), rte_free};
	const bool fenced_ = vask_rcu_mode.bursts_fence;
};

TEST_F(Rcu, ThreadsBetweenBurstsKeepNobodyWaiting)
{
	EXPECT_TRUE(Passed(rte_rcu_qsbr_start(rcu_.get())));
	vask_rcu_online(rcu_.get(), 0);
	rte_rcu_qsbr_thread_offline(rcu_.get(), 0);
	EXPECT_TRUE(Passed(rte_rcu_qsbr_start(rcu_.get())));
	vask_rcu_synchronize(rcu_.get());
}

TEST_F(Rcu, BurstThatBeganBeforeATokenHoldsItUpUntilItEnds)
{
	vask_rcu_online(rcu_.get(), 1);
	const uint64_t token = rte_rcu_qsbr_start(rcu_.get());

	EXPECT_FALSE(Passed(token));
	rte_rcu_qsbr_thread_offline(rcu_.get(), 1);
	EXPECT_TRUE(Passed(token));
}

TEST_F(Rcu, BurstThatBeginsAfterATokenDoesNotHoldItUp)
{
	const uint64_t token = rte_rcu_qsbr_start(rcu_.get());

	vask_rcu_online(rcu_.get(), 0);
	EXPECT_TRUE(Passed(token));
	EXPECT_FALSE(Passed(rte_rcu_qsbr_start(rcu_.get())));
	rte_rcu_qsbr_thread_offline(rcu_.get(), 0);
}

/* Lines that two threads write in turn: what is stored after them takes its time to leave the processor. */
class ContestedLines
{
      public:
	void Write(uint64_t value)
	{
		for (Line &line : lines_)
			line.value.store(value, std::memory_order_relaxed);
	}

      private:
	struct alignas(RTE_CACHE_LINE_SIZE) Line {
		std::atomic<uint64_t> value;
	};
	Line lines_[16] = {};
};

/* A reader in bursts, and a writer who spoils what it has replaced once all bursts under way have ended. */
void
ReadWhileItIsReplaced(rte_rcu_qsbr *rcu)
{
	constexpr uint64_t SPOILT = UINT64_MAX;
	std::atomic<uint64_t> values[2] = {0, SPOILT};
	std::atomic<std::atomic<uint64_t> *> current = &values[0];
	std::atomic<bool> stop = false;
	ContestedLines lines;
	uint64_t spoilt = 0, bursts = 0, replaced = 0;
	std::thread reader([&] {
		for (; !stop.load(std::memory_order_relaxed); bursts++) {
			lines.Write(bursts);
			vask_rcu_online(rcu, 0);
			const std::atomic<uint64_t> *value =
				current.load(std::memory_order_acquire);

			for (int i = 0; i < 1000; i++)
				spoilt += value->load(std::memory_order_relaxed) == SPOILT;
			rte_rcu_qsbr_thread_offline(rcu, 0);
		}
	});
	const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);

	for (; std::chrono::steady_clock::now() < end; replaced++) {
		std::atomic<uint64_t> *old = &values[replaced % 2];
		std::atomic<uint64_t> *fresh = &values[(replaced + 1) % 2];

		fresh->store(replaced, std::memory_order_relaxed);
		lines.Write(replaced);
		current.store(fresh, std::memory_order_release);
		vask_rcu_synchronize(rcu);
		old->store(SPOILT, std::memory_order_relaxed);
	}
	stop = true;
	reader.join();
	EXPECT_EQ(spoilt, 0u) << bursts << " bursts, " << replaced << " times replaced";
	EXPECT_GT(bursts, 0u);
	EXPECT_GT(replaced, 0u);
}

TEST_F(Rcu, NothingIsTakenAwayUnderABurstThatDoesNotFence)
{
	if (vask_rcu_mode.bursts_fence)
		GTEST_SKIP() << "the kernel has no membarrier";
	ReadWhileItIsReplaced(rcu_.get());
}

TEST_F(Rcu, NothingIsTakenAwayUnderABurstThatFences)
{
	vask_rcu_mode.bursts_fence = true;
	ReadWhileItIsReplaced(rcu_.get());
}

} // namespace
