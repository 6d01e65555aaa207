/* SPDX-License-Identifier: BSD-3-Clause */
#include <atomic>

#include <rte_alarm.h>
#include <rte_errno.h>

#include "softcard_view.h"
#include "vask_p4_log.h"
#include "vask_port.h"
#include "vask_sampler.h"

constexpr uint64_t PERIOD_US = 1000000;

static std::atomic<bool> sampling;

/* Whoever stops us holds the lock and waits for us, so we never wait for it. */
static void
sample(void *)
{
	if (vask_control_trylock()) {
		softcard_rate_sample();
		vask_control_unlock();
	}
	if (sampling)
		rte_eal_alarm_set(PERIOD_US, sample, nullptr);
}

void
vask_sampler_start()
{
	sampling = true;

	const int rc = rte_eal_alarm_set(PERIOD_US, sample, nullptr);
	if (rc != 0)
		VASK_P4_LOG(
			WARNING, "no alarm, so the meters' rates stay 0: %s", rte_strerror(-rc));
}

void
vask_sampler_stop()
{
	sampling = false;
	rte_eal_alarm_cancel(sample, nullptr);
}
