/* SPDX-License-Identifier: BSD-3-Clause */

/* Who gets the meters of an engine, step by step. */

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "softcard_guard.h"

namespace
{

/* Starts a thread that tries to enter, and waits until it stands at the door or is through. */
class Visitor
{
      public:
	explicit Visitor(softcard_guard &guard)
		: thread_([this, &guard] {
			  here_ = true;
			  entered_ = softcard_guard_enter(guard);
			  if (entered_)
				  softcard_guard_leave(guard);
		  })
	{
		while (!here_)
			std::this_thread::yield();
	}
	~Visitor()
	{
		if (thread_.joinable())
			thread_.join();
	}
	Visitor(const Visitor &) = delete;
	Visitor &operator=(const Visitor &) = delete;

	/* Whether it had the engine to itself. */
	bool Entered()
	{
		thread_.join();
		return entered_;
	}

      private:
	std::atomic<bool> here_ = false;
	bool entered_ = false;
	std::thread thread_;
};

void
WaitAWhile()
{
	std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

TEST(Guard, GivesOneBurstAfterTheOtherTheWholeEngine)
{
	softcard_guard guard = {};

	for (int i = 0; i < 3; i++) {
		ASSERT_TRUE(softcard_guard_enter(guard));
		EXPECT_TRUE(rte_spinlock_is_locked(&guard.lock));
		softcard_guard_leave(guard);
		EXPECT_FALSE(rte_spinlock_is_locked(&guard.lock));
	}
	EXPECT_FALSE(guard.shared);
}

TEST(Guard, SharesTheEngineForGoodOnceABurstFindsAnother)
{
	softcard_guard guard = {};

	/* on a busy machine the other may come too late to meet us */
	for (int i = 0; i < 100 && !guard.shared; i++) {
		ASSERT_TRUE(softcard_guard_enter(guard));
		Visitor visitor(guard);
		WaitAWhile();
		EXPECT_FALSE(guard.shared) << "while a burst has the engine to itself";
		softcard_guard_leave(guard);
		const bool entered = visitor.Entered();
		EXPECT_EQ(guard.shared, !entered);
	}
	EXPECT_TRUE(guard.shared);
	EXPECT_FALSE(softcard_guard_enter(guard));
	EXPECT_FALSE(rte_spinlock_is_locked(&guard.lock)) << "bursts leave it alone from then on";
}

TEST(Guard, DoesNotTakeAControlCallForABurst)
{
	softcard_guard guard = {};
	rte_spinlock_t meter = RTE_SPINLOCK_INITIALIZER;
	std::unique_ptr<Visitor> visitor;
	{
		const softcard_meter_hold hold(guard, meter);

		visitor = std::make_unique<Visitor>(guard);
		WaitAWhile();
	}
	EXPECT_TRUE(visitor->Entered());
	EXPECT_FALSE(guard.shared);
}

TEST(Guard, LetsAControlCallHoldTheLockByWhichBurstsGo)
{
	for (const bool shared : {false, true}) {
		softcard_guard guard = {};
		rte_spinlock_t meter = RTE_SPINLOCK_INITIALIZER;

		guard.shared = shared;
		{
			const softcard_meter_hold hold(guard, meter);

			EXPECT_EQ(rte_spinlock_is_locked(&guard.lock), !shared);
			EXPECT_EQ(rte_spinlock_is_locked(&meter), shared);
		}
		EXPECT_FALSE(rte_spinlock_is_locked(&guard.lock));
		EXPECT_FALSE(rte_spinlock_is_locked(&meter));
	}
}

TEST(Guard, LetsAControlCallHoldTheMeterWhoseEngineBecomesSharedWhileItWaits)
{
	softcard_guard guard = {};
	rte_spinlock_t meter = RTE_SPINLOCK_INITIALIZER;
	std::atomic<bool> held = false;
	std::atomic<bool> end = false;

	ASSERT_TRUE(softcard_guard_enter(guard));
	std::thread control([&] {
		const softcard_meter_hold hold(guard, meter);

		held = true;
		while (!end)
			sched_yield();
	});
	WaitAWhile();
	guard.shared = true;
	softcard_guard_leave(guard);
	while (!held)
		sched_yield();
	EXPECT_FALSE(rte_spinlock_is_locked(&guard.lock));
	EXPECT_TRUE(rte_spinlock_is_locked(&meter));
	end = true;
	control.join();
	EXPECT_FALSE(rte_spinlock_is_locked(&meter));
}

TEST(Guard, MakesAControlCallWaitForTheBurst)
{
	softcard_guard guard = {};
	rte_spinlock_t meter = RTE_SPINLOCK_INITIALIZER;
	std::atomic<bool> held = false;

	ASSERT_TRUE(softcard_guard_enter(guard));
	std::thread control([&] {
		const softcard_meter_hold hold(guard, meter);

		held = true;
	});
	WaitAWhile();
	EXPECT_FALSE(held);
	softcard_guard_leave(guard);
	control.join();
	EXPECT_TRUE(held);
}

} // namespace
