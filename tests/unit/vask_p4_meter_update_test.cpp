/* SPDX-License-Identifier: BSD-3-Clause */
#include "meters.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;

namespace
{

using ProfileUpdate = MeterTest;

TEST_F(ProfileUpdate, NeutralDirectionMakesNoDeviceCallAndStillMovesTheCounts)
{
	auto *meter = AddMeter(NO_SIDE);
	auto *next = AddProfile(6, 12, 1250000);

	EXPECT_EQ(vask_p4_meter_profile_update(dev, METER, 6, &error), 0);

	EXPECT_TRUE(card.calls().empty());
	EXPECT_EQ(profile->data.ref_cnt, 0u);
	EXPECT_EQ(next->data.ref_cnt, 1u);
	EXPECT_EQ(meter->data.profile.profile_id, 6u);
}

} // namespace
