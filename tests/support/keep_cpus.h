/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef KEEP_CPUS_H
#define KEEP_CPUS_H

#include <sched.h>

namespace vask_test
{

/**
 * Gives the calling thread back, at the end of the scope, the processors that it had at its beginning.
 *
 * rte_eal_init() ties its caller to the main lcore's processor, which threads that the caller starts inherit: tests
 * with several of them would run one at a time.
 */
class KeepCpus
{
      public:
	KeepCpus()
	{
		known_ = sched_getaffinity(0, sizeof(cpus_), &cpus_) == 0;
	}
	~KeepCpus()
	{
		if (known_)
			sched_setaffinity(0, sizeof(cpus_), &cpus_);
	}
	KeepCpus(const KeepCpus &) = delete;
	KeepCpus &operator=(const KeepCpus &) = delete;

      private:
	cpu_set_t cpus_;
	bool known_;
};

} // namespace vask_test

#endif /* KEEP_CPUS_H */
