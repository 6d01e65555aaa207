/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef FUZZ_ENGINE_REFERENCE_H
#define FUZZ_ENGINE_REFERENCE_H

/**
 * @file
 * What an engine should say: its tables as they were written, and meters that keep their tokens in 128 bits.
 */

#include <algorithm>
#include <array>
#include <cstdint>

#include <rte_meter.h>

#include "vask_p4_mep_meter.h"

using Wide = unsigned __int128;

constexpr Wide NANO = 1000000000;
constexpr unsigned IDS = 4; /* profiles, policies and meters 1 to 3; 0 is none or never written */

/* A meter as the RFCs have it: tokens in 1/10^9 byte, or packet. */
struct Reference {
	Wide c = ~Wide{0}, e = ~Wide{0};
	uint64_t last_ns = 0;
	bool packet_mode = false;
	std::array<uint64_t, 3> packets = {}, bytes = {};
	uint64_t dropped_packets = 0, dropped_bytes = 0, rewritten = 0;
};

struct Engine {
	std::array<vask_p4_mep_meter_profile_table, IDS> profiles = {};
	std::array<vask_p4_mep_meter_policy_table, IDS> policies = {};
	std::array<vask_p4_mep_meter_inst_table, IDS> insts = {};
	std::array<Reference, IDS> meters;

	bool Metering(unsigned id) const
	{
		const auto &inst = insts[id];

		return inst.valid && profiles[inst.profile_id].valid &&
			policies[inst.policy_id].valid;
	}

	Wide Full(const vask_p4_mep_meter_profile_table &profile, uint64_t burst) const
	{
		return Wide{burst} * (profile.pm ? 1 : 1024) * NANO;
	}

	/* Levels are cut to the bursts that hold now; packets fill the buckets anew after bytes. */
	void Refresh()
	{
		for (unsigned id = 1; id < IDS; id++) {
			const auto &profile = profiles[insts[id].profile_id];
			Reference &meter = meters[id];

			if (!Metering(id))
				continue;
			if (profile.pm != meter.packet_mode)
				meter.c = meter.e = ~Wide{0};
			meter.packet_mode = profile.pm;
			meter.c = std::min(meter.c, Full(profile, profile.cbs));
			meter.e = std::min(meter.e, Full(profile, profile.ebs));
		}
	}

	rte_color Check(unsigned id, uint64_t now_ns, uint32_t length, rte_color in)
	{
		const auto &p = profiles[insts[id].profile_id];
		const Wide rate_unit = p.pm ? 1 : 8000;
		Reference &m = meters[id];

		if (now_ns > m.last_ns) {
			const Wide elapsed = now_ns - m.last_ns;
			const Wide full_c = Full(p, p.cbs), full_e = Full(p, p.ebs);
			Wide c = m.c + elapsed * p.cir * rate_unit, over = 0;

			if (c > full_c) {
				over = c - full_c;
				c = full_c;
			}
			m.c = c;
			m.e += p.rfc2698 || p.eir != 0 ? elapsed * p.eir * rate_unit : over;
			m.e = std::min(m.e, full_e);
			m.last_ns = now_ns;
		}
		const Wide cost = (p.pm ? 1 : length) * NANO;
		if (p.rfc2698) {
			if (in == RTE_COLOR_RED || m.e < cost)
				return RTE_COLOR_RED;
			m.e -= cost;
			if (in == RTE_COLOR_YELLOW || m.c < cost)
				return RTE_COLOR_YELLOW;
			m.c -= cost;
			return RTE_COLOR_GREEN;
		}
		if (in == RTE_COLOR_GREEN && m.c >= cost) {
			m.c -= cost;
			return RTE_COLOR_GREEN;
		}
		if (in != RTE_COLOR_RED && m.e >= cost) {
			m.e -= cost;
			return RTE_COLOR_YELLOW;
		}
		return RTE_COLOR_RED;
	}
};

#endif /* FUZZ_ENGINE_REFERENCE_H */
