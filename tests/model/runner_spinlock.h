/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef RUNNER_SPINLOCK_H
#define RUNNER_SPINLOCK_H

/**
 * @file
 * Put in front of every source of the runner, the module's included, so that taking, releasing and
 * initialising a record's lock become events.
 */

#include <rte_spinlock.h>

extern "C" void runner_lock_event(const char *what, const rte_spinlock_t *lock);

static inline void
runner_spinlock_lock(rte_spinlock_t *lock)
{
	runner_lock_event("lock", lock);
	rte_spinlock_lock(lock);
}

static inline void
runner_spinlock_unlock(rte_spinlock_t *lock)
{
	runner_lock_event("unlock", lock);
	rte_spinlock_unlock(lock);
}

static inline void
runner_spinlock_init(rte_spinlock_t *lock)
{
	runner_lock_event("init", lock);
	rte_spinlock_init(lock);
}

#define rte_spinlock_lock runner_spinlock_lock
#define rte_spinlock_unlock runner_spinlock_unlock
#define rte_spinlock_init runner_spinlock_init

#endif /* RUNNER_SPINLOCK_H */
