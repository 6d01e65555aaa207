/* SPDX-License-Identifier: BSD-3-Clause */

/* The shapers' registers and arithmetic. */

#include "softcard_shaper.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "softcard_internal.h"

/*
 * Debt counts 1/10^6 bit, or 1/10^9 packet: then a rate in kbit/s, or in packets/s, is what a nanosecond
 * pays off, and nothing is rounded.
 */
static constexpr uint64_t BYTE_COST = 8 * 1000000;
static constexpr uint64_t PACKET_COST = 1000000000;

/* 1 kbit/s is 125 bytes/s: a rate in kbit/s counts packets as it counts bytes. */
static constexpr uint64_t PACKETS_PER_KBIT = 125;

/* The scheduler's register: rate in 100 kbit/s, or in 1 Mbit/s at rate level 1; bursts in 16 KiB. */
static constexpr uint64_t ISCH_RATE_KBIT[2] = {100, 1000};
static constexpr uint64_t ISCH_BURST_BYTES = 16384;
static constexpr uint64_t ISCH_BURST_PACKETS = 16;

/* A new register value: what is owed under the old one is forgotten when they count different things. */
static void
shaper_write(struct softcard_shaper &shaper, bool enabled, bool closed, bool packet_mode,
	uint64_t rate_kbit, uint64_t burst, uint32_t register_value)
{
	rte_spinlock_lock(&shaper.lock);
	if (packet_mode != shaper.packet_mode || !enabled)
		shaper.debt = 0;
	shaper.enabled = enabled;
	shaper.closed = closed;
	shaper.packet_mode = packet_mode;
	shaper.register_value = register_value;
	shaper.rate = packet_mode ? rate_kbit * PACKETS_PER_KBIT : rate_kbit;
	shaper.burst = burst;
	rte_spinlock_unlock(&shaper.lock);
}

int
softcard_port_shaper_write(const struct vask_shaper_set_info *info)
{
	if (info == nullptr)
		return -EINVAL;
	if (softcard == nullptr)
		return -ENODEV;
	if (info->sfi >= SOFTCARD_PORTS)
		return -ERANGE;

	shaper_write(softcard->port_shapers[info->sfi], info->max_rate != 0, false, info->mode != 0,
		info->max_rate, 0, info->max_rate);
	return 0;
}

int
softcard_isch_write(struct vask_p4_isch_shaper value)
{
	if (softcard == nullptr)
		return -ENODEV;

	const uint64_t burst = value.mode ? value.pbs * ISCH_BURST_PACKETS * PACKET_COST
					  : value.pbs * ISCH_BURST_BYTES * BYTE_COST;
	uint32_t word;
	static_assert(sizeof(word) == sizeof(value));
	memcpy(&word, &value, sizeof(word));

	shaper_write(softcard->isch_shaper, value.enable, value.enable && value.alway_closed,
		value.mode, value.rate * ISCH_RATE_KBIT[value.rate_level], burst, word);
	return 0;
}

struct softcard_shaper *
softcard_shaper_of(int dir, uint16_t port_sfi)
{
	if (softcard_engine_check(dir, port_sfi, SOFTCARD_PORTS) != 0)
		return nullptr;
	return dir == VASK_P4_MEP_INGRESS ? &softcard->isch_shaper
					  : &softcard->port_shapers[port_sfi];
}

/* Off, or below its resolution, a shaper keeps no time: ports need not agree on one. */
static bool
limits(const struct softcard_shaper &shaper)
{
	return shaper.enabled && shaper.rate != 0;
}

bool
softcard_shaper_release(
	struct softcard_shaper *shaper, uint64_t earliest_ns, uint32_t length, uint64_t *release_ns)
{
	if (shaper->closed)
		return false;

	if (!limits(*shaper)) {
		*release_ns = earliest_ns;
		return true;
	}

	const uint64_t ready_ns = std::max(earliest_ns, shaper->last_ns);
	const uint64_t cost = shaper->packet_mode ? PACKET_COST : length * BYTE_COST;
	const uint64_t allowed = shaper->burst > cost ? shaper->burst - cost : 0;
	uint64_t wait_ns = 0;
	if (shaper->debt > allowed)
		wait_ns = (shaper->debt - allowed + shaper->rate - 1) / shaper->rate;
	*release_ns = std::max(ready_ns, shaper->last_ns + wait_ns);
	return true;
}

void
softcard_shaper_charge(struct softcard_shaper *shaper, uint64_t release_ns, uint32_t length)
{
	uint64_t paid;

	if (!limits(*shaper))
		return;
	if (__builtin_mul_overflow(release_ns - shaper->last_ns, shaper->rate, &paid))
		paid = UINT64_MAX;
	shaper->debt -= std::min(paid, shaper->debt);
	shaper->debt += shaper->packet_mode ? PACKET_COST : length * BYTE_COST;
	shaper->last_ns = release_ns;
}

int
softcard_view_shaper(int dir, uint16_t port_sfi, struct softcard_shaper_view *view)
{
	const int rc = softcard_record_check(dir, port_sfi, SOFTCARD_PORTS, view);
	if (rc != 0)
		return rc;

	struct softcard_shaper *shaper = softcard_shaper_of(dir, port_sfi);

	rte_spinlock_lock(&shaper->lock);
	view->enabled = shaper->enabled;
	view->closed = shaper->closed;
	view->below_resolution = shaper->enabled && !shaper->closed && shaper->rate == 0;
	view->packet_mode = shaper->packet_mode;
	view->rate = shaper->packet_mode ? shaper->rate : shaper->rate * 1000;
	view->burst = shaper->burst / (shaper->packet_mode ? PACKET_COST : BYTE_COST);
	view->register_value = shaper->register_value;
	rte_spinlock_unlock(&shaper->lock);
	return 0;
}
