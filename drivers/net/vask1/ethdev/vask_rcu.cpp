/* SPDX-License-Identifier: BSD-3-Clause */
#include <atomic>
#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <rte_atomic.h>
#include <rte_cycles.h>
#include <rte_malloc.h>

#include "vask_rcu.h"

static long
membarrier(int command)
{
	return syscall(__NR_membarrier, command, 0, 0);
}

struct vask_rcu_mode vask_rcu_mode;

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
		vask_rcu_mode.bursts_fence = true;
	return rcu;
}

void
vask_rcu_fence()
{
	if (vask_rcu_mode.bursts_fence) {
		rte_smp_mb();
		return;
	}
	if (membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED) == 0)
		return;
	/* the application has given the call up since: bursts fence from now on, and those that began without have
	 * long been seen when the time is over */
	vask_rcu_mode.bursts_fence = true;
	rte_delay_us_sleep(10000);
}

/* What rte_rcu_qsbr_synchronize() does, but inline, so that ThreadSanitizer sees whom it waits for. */
void
vask_rcu_synchronize(struct rte_rcu_qsbr *rcu)
{
	const uint64_t token = rte_rcu_qsbr_start(rcu);

	vask_rcu_fence();
	rte_rcu_qsbr_check(rcu, token, true);
}
