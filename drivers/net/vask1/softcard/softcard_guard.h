/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef SOFTCARD_GUARD_H
#define SOFTCARD_GUARD_H

/**
 * @file
 * Who may touch the meters of an engine.
 *
 * To lock a meter for each packet costs more time than to meter it. So a burst that finds no other under way
 * takes the lock of the whole engine, and of no meter. The first that finds another makes the engine shared,
 * for good: from then on bursts take the lock of each meter that they come by and leave the engine's alone.
 * Control calls take both, for one meter at a time.
 */

#include <atomic>
#include <sched.h>

#include <rte_spinlock.h>

struct softcard_guard {
	rte_spinlock_t lock;     /* the engine's; while it is held nobody makes the engine shared */
	std::atomic<bool> burst; /* a burst holds the lock */
	std::atomic<bool> shared; /* bursts lock meters */
};

/**
 * Tries to take an engine for a burst.
 *
 * @return true: no meter is to be locked, and softcard_guard_leave() ends it. False: each meter is to be
 *   locked before it is touched, and there is nothing to end.
 */
static inline bool
softcard_guard_enter(struct softcard_guard &guard)
{
	if (guard.shared.load(std::memory_order_acquire))
		return false;
	if (!rte_spinlock_trylock(&guard.lock)) {
		const bool met = guard.burst.load(std::memory_order_relaxed);

		rte_spinlock_lock(&guard.lock);
		if (met)
			guard.shared.store(true, std::memory_order_release);
	}
	if (guard.shared.load(std::memory_order_relaxed)) {
		rte_spinlock_unlock(&guard.lock);
		return false;
	}
	guard.burst.store(true, std::memory_order_relaxed);
	return true;
}

static inline void
softcard_guard_leave(struct softcard_guard &guard)
{
	guard.burst.store(false, std::memory_order_relaxed);
	rte_spinlock_unlock(&guard.lock);
}

/** A control call's hold on one meter, as long as the scope lasts. */
class softcard_meter_hold
{
      public:
	softcard_meter_hold(struct softcard_guard &guard, rte_spinlock_t &meter)
		: engine_(guard.lock), meter_(meter)
	{
		/* a burst lasts microseconds, unless it lost this very core to us */
		while (!rte_spinlock_trylock(&engine_))
			sched_yield();
		rte_spinlock_lock(&meter_);
	}
	~softcard_meter_hold()
	{
		rte_spinlock_unlock(&meter_);
		rte_spinlock_unlock(&engine_);
	}
	softcard_meter_hold(const softcard_meter_hold &) = delete;
	softcard_meter_hold &operator=(const softcard_meter_hold &) = delete;

      private:
	rte_spinlock_t &engine_;
	rte_spinlock_t &meter_;
};

#endif /* SOFTCARD_GUARD_H */
