/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_RCU_H
#define VASK_RCU_H

/**
 * @file
 * What a burst may still read after a control call has replaced it: rte_rcu's quiescent states, with the bursts'
 * fence moved to the control path.
 *
 * A queue is on line for the time of a burst and off line between bursts, so that one that nobody polls keeps nobody
 * waiting. rte_rcu_qsbr_thread_online() ends with a full fence, the dearest instruction of a burst that passes as it
 * is. Here the control path has the kernel fence all threads of the process at once, membarrier(2), before it asks
 * who is on line: a burst that is not seen then began after the fence and finds what replaced the old. Where the
 * kernel has no such call, bursts fence themselves.
 */

#include <atomic>
#include <cstdint>

#include <rte_branch_prediction.h>
#include <rte_rcu_qsbr.h>

/** Each burst reads it: a cache line that nobody writes. */
struct alignas(RTE_CACHE_LINE_SIZE) vask_rcu_mode {
	std::atomic<bool> bursts_fence; /* they fence themselves */
};

extern struct vask_rcu_mode vask_rcu_mode;

/** A variable for threads 0..n-1, all off line; null when memory is short. To be freed with rte_free(). */
struct rte_rcu_qsbr *vask_rcu_create(uint32_t n);

/** Begins a burst: what it reads stays until rte_rcu_qsbr_thread_offline(). */
static inline void
vask_rcu_online(struct rte_rcu_qsbr *rcu, unsigned int thread)
{
	/* acquire: a burst that brings a later token sees what was replaced before that */
	const uint64_t token = __atomic_load_n(&rcu->token, __ATOMIC_ACQUIRE);

	__atomic_store_n(&rcu->qsbr_cnt[thread].cnt, token, __ATOMIC_RELAXED);
	__atomic_signal_fence(__ATOMIC_SEQ_CST);
	if (unlikely(vask_rcu_mode.bursts_fence.load(std::memory_order_relaxed)))
		__atomic_thread_fence(__ATOMIC_SEQ_CST);
}

/**
 * Fences all bursts, which interrupts each processor that runs a thread of the process. To be called before
 * vask_rcu_passed() asks for tokens started until now. Control path.
 */
void vask_rcu_fence();

/**
 * Whether the bursts that were under way at a token have ended; or waits until they have. Unlike
 * rte_rcu_qsbr_check() it looks at every thread: what that remembers of one writer's look may be wrong for another.
 */
bool vask_rcu_passed(const struct rte_rcu_qsbr *rcu, uint64_t token, bool wait);

/** Returns when every burst that was under way has ended. Not to be called from a burst. */
void vask_rcu_synchronize(struct rte_rcu_qsbr *rcu);

#endif /* VASK_RCU_H */
