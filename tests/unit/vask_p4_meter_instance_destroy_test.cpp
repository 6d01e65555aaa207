/* SPDX-License-Identifier: BSD-3-Clause */
#include "meters.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;
using ::testing::ElementsAre;

namespace
{

using MeterDestroy = MeterTest;

TEST_F(MeterDestroy, UnknownIdReturnsZeroAndChangesNothing)
{
	AddMeter(BOTH);

	EXPECT_EQ(vask_p4_meter_destroy(dev, METER + 1, &error), 0);

	ExpectTrace(
		Says(RTE_LOG_INFO, "vask_p4_meter_destroy", "del meter id not found, id is 10"));
	ExpectErrorUntouched(error);
	EXPECT_THAT(meter_ids(), ElementsAre(METER));
	EXPECT_EQ(profile->data.ref_cnt, 1u);
	EXPECT_EQ(policy->data.ref_cnt, 1u);
}

} // namespace
