/* SPDX-License-Identifier: BSD-3-Clause */
#include <atomic>
#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <rte_atomic.h>
#include <rte_cycles.h>
#include <rte_malloc.h>
#include <rte_pause.h>

#include "vask_rcu.h"

static long
membarrier(int command)
{
	return syscall(__NR_membarrier, command, 0, 0);
}

struct vask_rcu_mode vask_rcu_mode;

/* No burst is under way that began before bursts fenced. */
static std::atomic<bool> all_bursts_fence;

/* What bursts that began before have stored has long left their processors when the time is over. */
static void
bursts_fence_from_now_on()
{
	vask_rcu_mode.bursts_fence = true;
	rte_delay_us_sleep(10000);
	all_bursts_fence = true;
}

struct rte_rcu_qsbr *
vask_rcu_create(uint32_t n)
{
	auto *rcu = static_cast<struct rte_rcu_qsbr *>(
		rte_zmalloc("vask_rcu", rte_rcu_qsbr_get_memsize(n), RTE_CACHE_LINE_SIZE));

	if (rcu == nullptr)
		return nullptr;
	rte_rcu_qsbr_init(rcu, n);
	for (unsigned int i = 0; i < n; i++)
		rte_rcu_qsbr_thread_register(rcu, i);
	/* a process says beforehand that it will ask for such fences */
	if (membarrier(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED) != 0)
		bursts_fence_from_now_on();
	return rcu;
}

void
vask_rcu_fence()
{
	if (all_bursts_fence)
		rte_smp_mb();
	else if (membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED) != 0)
		bursts_fence_from_now_on(); /* the application has given the call up since */
}

bool
vask_rcu_passed(const struct rte_rcu_qsbr *rcu, uint64_t token, bool wait)
{
	for (uint32_t i = 0; i < rcu->max_threads; i++)
		for (;;) {
			const uint64_t seen =
				__atomic_load_n(&rcu->qsbr_cnt[i].cnt, __ATOMIC_ACQUIRE);

			if (seen == __RTE_QSBR_CNT_THR_OFFLINE || seen >= token)
				break;
			if (!wait)
				return false;
			rte_pause();
		}
	return true;
}

void
vask_rcu_synchronize(struct rte_rcu_qsbr *rcu)
{
	const uint64_t token = rte_rcu_qsbr_start(rcu);

	vask_rcu_fence();
	vask_rcu_passed(rcu, token, true);
}
