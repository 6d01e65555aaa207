/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef SOFTCARD_GUARD_H
#define SOFTCARD_GUARD_H

/**
 * @file
 * Who may touch the meters of an engine.
 *
 * To lock a meter for each packet costs more time than to meter it. So a burst that sees no other under way
 * takes the lock of the whole engine, and of no meter. The first that sees another makes the engine shared,
 * for good: from then on bursts take the lock of each meter that they come by and leave the engine's alone.
 * A control call takes the lock by which bursts go, for one meter at a time.
 *
 * As with any spinlock, threads that share a core must not meet here with real-time priorities.
 */

#include <atomic>
#include <sched.h>

#include <rte_branch_prediction.h>
#include <rte_common.h>
#include <rte_pause.h>
#include <rte_spinlock.h>

struct softcard_guard {
	rte_spinlock_t lock;      /* the engine's; only its holder makes the engine shared */
	std::atomic<bool> burst;  /* a burst holds the lock; a hint for others */
	std::atomic<bool> shared; /* bursts lock meters */
};

/** Takes a lock if it is free. One that is not stays in its holder's cache. */
static inline bool
softcard_guard_trytake(rte_spinlock_t &lock)
{
	return rte_spinlock_is_locked(&lock) == 0 && rte_spinlock_trylock(&lock) != 0;
}

/** Waits for a lock that may be held by a thread which lost its core, perhaps to us, and takes it. */
static __rte_noinline void
softcard_guard_wait(rte_spinlock_t &lock)
{
	constexpr int SPINS = 1000; /* a few times what a burst takes */

	for (int i = 0; !softcard_guard_trytake(lock); i++)
		if (i < SPINS)
			rte_pause();
		else
			sched_yield();
}

/** Takes a lock, mostly at once. */
static inline void
softcard_guard_take(rte_spinlock_t &lock)
{
	if (unlikely(!softcard_guard_trytake(lock)))
		softcard_guard_wait(lock);
}

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
		/* or a control call has it; to be wrong costs time, and nothing else */
		const bool met = guard.burst.load(std::memory_order_relaxed);

		softcard_guard_wait(guard.lock);
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
		: lock_(take(guard, meter))
	{
	}
	~softcard_meter_hold()
	{
		rte_spinlock_unlock(&lock_);
	}
	softcard_meter_hold(const softcard_meter_hold &) = delete;
	softcard_meter_hold &operator=(const softcard_meter_hold &) = delete;

      private:
	static rte_spinlock_t &take(struct softcard_guard &guard, rte_spinlock_t &meter)
	{
		if (!guard.shared.load(std::memory_order_acquire)) {
			softcard_guard_take(guard.lock);
			/* stays so: only the lock's holder could change it */
			if (!guard.shared.load(std::memory_order_relaxed))
				return guard.lock;
			rte_spinlock_unlock(&guard.lock);
		}
		softcard_guard_take(meter);
		return meter;
	}

	rte_spinlock_t &lock_;
};

#endif /* SOFTCARD_GUARD_H */
