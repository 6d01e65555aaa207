/* SPDX-License-Identifier: BSD-3-Clause */
#include <rte_cycles.h>
#include <rte_errno.h>
#include <rte_mbuf.h>
#include <rte_mbuf_dyn.h>

#include "vask_args.h"
#include "vask_clock.h"
#include "vask_p4_log.h"

/* One origin for all ports, because ports may share a meter. */
static uint64_t
tsc_ns(const struct vask_clock *clock)
{
	return static_cast<uint64_t>(
		(static_cast<unsigned __int128>(rte_rdtsc()) * clock->tsc_mult) >> 32);
}

static void
advance(std::atomic<uint64_t> *latest, uint64_t ns)
{
	uint64_t seen = latest->load(std::memory_order_relaxed);

	while (ns > seen && !latest->compare_exchange_weak(seen, ns, std::memory_order_relaxed))
		;
}

int
vask_clock_init(struct vask_clock *clock, const struct vask_args *args)
{
	constexpr uint64_t ns_per_s = 1000000000;

	clock->capture = args->clock == vask_clock_source::CAPTURE;
	clock->ns_per_tick = static_cast<uint32_t>(args->tick);
	clock->tsc_mult = (ns_per_s << 32) / rte_get_tsc_hz();
	clock->latest_ns = 0;
	if (rte_mbuf_dyn_rx_timestamp_register(&clock->dynfield, &clock->dynflag) != 0) {
		VASK_P4_LOG(
			ERR, "no room for the timestamp in the mbuf: %s", rte_strerror(rte_errno));
		return -rte_errno;
	}
	return 0;
}

void
vask_clock_stamp(
	struct vask_clock *clock, struct rte_mbuf *const *pkts, uint16_t n, uint64_t *now_ns)
{
	if (!clock->capture) {
		const uint64_t now = tsc_ns(clock);

		for (uint16_t i = 0; i < n; i++)
			now_ns[i] = now;
		return;
	}

	uint64_t latest = clock->latest_ns.load(std::memory_order_relaxed);
	for (uint16_t i = 0; i < n; i++) {
		if ((pkts[i]->ol_flags & clock->dynflag) == 0) {
			now_ns[i] = latest;
			continue;
		}
		now_ns[i] = *RTE_MBUF_DYNFIELD(pkts[i], clock->dynfield, rte_mbuf_timestamp_t *) *
			clock->ns_per_tick;
		if (now_ns[i] > latest)
			latest = now_ns[i];
	}
	advance(&clock->latest_ns, latest);
}

void
vask_clock_mark(const struct vask_clock *clock, struct rte_mbuf *const *pkts, uint16_t n,
	const uint64_t *now_ns)
{
	for (uint16_t i = 0; i < n; i++) {
		*RTE_MBUF_DYNFIELD(pkts[i], clock->dynfield, rte_mbuf_timestamp_t *) = now_ns[i];
		pkts[i]->ol_flags |= clock->dynflag;
	}
}

uint64_t
vask_clock_now(const struct vask_clock *clock)
{
	return clock->capture ? clock->latest_ns.load(std::memory_order_relaxed) : tsc_ns(clock);
}
