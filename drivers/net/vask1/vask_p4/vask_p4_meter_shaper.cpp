/* SPDX-License-Identifier: BSD-3-Clause */
/* A committed rate in the units of the port shaper and of the ingress scheduler's shaper. */

#include "vask_p4_meter_internal.h"

/*
 * Both take bytes/s, also when the rate counts packets: the mode travels in the records. Products wrap in 64
 * bits, divisions truncate, and results are cut to the width that holds them; nothing saturates, and
 * nothing is raised to a minimum.
 */
static constexpr uint32_t
port_shaper_rate(uint64_t cir)
{
	return static_cast<uint32_t>(cir * 8 / 1000);
}

/* Raised by 8 % before it is turned into 100 kbit/s, each division on its own. */
static constexpr uint32_t
isch_shaper_rate(uint64_t cir)
{
	return static_cast<uint32_t>(cir * 108 / 100 * 8 / 100000);
}

constexpr uint32_t ISCH_RATE_MASK = 0x7FFFF;

static_assert(port_shaper_rate(125000000) == 1000000, "1 Gbit/s in kbit/s");
static_assert(isch_shaper_rate(11574) == 0 && isch_shaper_rate(11575) == 1);
static_assert(isch_shaper_rate(125000000) == 10800, "1 Gbit/s and 8 % in 100 kbit/s");
static_assert((isch_shaper_rate(6068148148) & ISCH_RATE_MASK) == ISCH_RATE_MASK);
static_assert((isch_shaper_rate(6068148149) & ISCH_RATE_MASK) == 0, "the field wraps");

void
vask_p4_meter_add_convert_shaper(
	uint32_t sfi, uint64_t cir, int pm, struct vask_shaper_set_info *shaper_info)
{
	const uint32_t shaper_cir = port_shaper_rate(cir);

	shaper_info->sfi = static_cast<uint16_t>(sfi);
	shaper_info->max_rate = shaper_cir;
	shaper_info->mode = static_cast<uint16_t>(pm);
	shaper_info->direction = 1;
	VASK_P4_LOG(DEBUG, "add convert shaper meter sfi %d pm %d, rate %u (kbps).", sfi, pm,
		shaper_cir);
}

void
vask_p4_meter_add_convert_isch_shaper(uint64_t cir, int pm, struct vask_p4_isch_shaper *shaper_info)
{
	const uint32_t shaper_cir = isch_shaper_rate(cir);

	shaper_info->enable = 1;
	shaper_info->mode = pm & 1;
	shaper_info->pbs = 1;
	shaper_info->rate_level = 0;
	shaper_info->rate = shaper_cir & ISCH_RATE_MASK;
	/* The line has room for 32 bits of the rate. */
	VASK_P4_LOG(DEBUG, "add convert isch shaper meter pm %d, rate %u -> %u (100kbps).", pm,
		static_cast<uint32_t>(cir), shaper_cir);
}

void
vask_p4_meter_del_convert_shaper(uint32_t sfi, int pm, struct vask_shaper_set_info *shaper_info)
{
	/* max_rate stays 0, which turns the shaper off. */
	shaper_info->sfi = static_cast<uint16_t>(sfi);
	shaper_info->mode = static_cast<uint16_t>(pm);
	shaper_info->direction = 1;
	VASK_P4_LOG(DEBUG, "del convert shaper meter sfi %d pm %d.", sfi, pm);
}
