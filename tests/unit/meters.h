/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef TESTS_UNIT_METERS_H
#define TESTS_UNIT_METERS_H

/**
 * @file
 * A profile, a policy and meters on them, ready in the lists, and the events that programming them gives.
 */

#include <string>
#include <vector>

#include "module_test.h"

namespace vask_test
{

/** One sequence out of calls, lines and sequences. */
template <typename... Parts>
std::vector<Event>
Events(const Parts &...parts)
{
	struct {
		std::vector<Event> all;
		void Add(const Event &event)
		{
			all.push_back(event);
		}
		void Add(const std::vector<Event> &events)
		{
			all.insert(all.end(), events.begin(), events.end());
		}
	} sequence;

	(sequence.Add(parts), ...);
	return sequence.all;
}

/** The trace is exactly these calls and lines, in this order. */
template <typename... Parts>
void
ExpectTrace(const Parts &...parts)
{
	EXPECT_THAT(trace, ::testing::ElementsAreArray(Events(parts...)));
}

/** A line of a function: the text stands after the function's name and before the line feed. */
LogLine Says(uint32_t level, const std::string &function, const std::string &text);

/** @name Shaper records as the module fills them for a rate. @{ */
vask_p4_isch_shaper IschRecord(uint32_t rate, uint32_t mode = 0);
vask_shaper_set_info ShaperRecord(uint16_t sfi, uint32_t kbps, uint16_t mode = 0);
/** @} */

/**
 * Profile 5 (1 Gbit/s: 125,000,000 bytes/s, so 1,000,000 kbit/s, and with 8 % 10,800 times 100 kbit/s) as
 * hardware profile 11, policy 7 as hardware policy 13, both written to the card, used by no meter.
 */
class MeterTest : public ModuleTest
{
      protected:
	static constexpr uint32_t PROFILE = 5, HW_PROFILE = 11;
	static constexpr uint32_t POLICY = 7, HW_POLICY = 13;
	static constexpr uint64_t CIR = 125000000;
	static constexpr uint32_t ISCH_RATE = 10800;
	static constexpr uint32_t KBPS = 1000000;
	static constexpr uint32_t METER = 9, HW_METER = 21;
	static constexpr uint32_t RX = 0, TX = 1, NO_SIDE = 2, BOTH = 3;

	MeterTest();

	vask_p4_meter_profile_node *AddProfile(uint32_t id, uint32_t hw_profile_id, uint64_t cir);
	vask_p4_meter_policy_node *AddPolicy(uint32_t id, uint32_t hw_policy_id);

	/** A created meter: listed, enabled, holding its hardware index and its two references. */
	vask_p4_meter_cfg_node *
	AddMeter(uint32_t dir, uint32_t id = METER, uint32_t hw_meter_id = HW_METER);

	bool IsTaken(const VASK_P4_INDEXSTACK_MANAGER *pool, uint32_t index) const;

	/** @name What the shapers of such a meter are sent, with the lines around it. @{ */
	static std::vector<Event>
	IschSet(uint64_t cir = CIR, uint32_t rate = ISCH_RATE, int pm = 0);
	static std::vector<Event> ShaperSet(uint64_t kbps = KBPS, int pm = 0);
	static std::vector<Event> IschCleared();
	static std::vector<Event> ShaperCleared(int pm = 0);
	/** @} */

	vask_p4_meter_profile_node *const profile;
	vask_p4_meter_policy_node *const policy;
};

} // namespace vask_test

#endif /* TESTS_UNIT_METERS_H */
