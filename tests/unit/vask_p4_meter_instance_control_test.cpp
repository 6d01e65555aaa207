/* SPDX-License-Identifier: BSD-3-Clause */
#include "meters.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;
using ::testing::ElementsAre;

namespace
{

using MeterEnable = MeterTest;

TEST_F(MeterEnable, EnabledMeterIsLeftAloneWithoutTouchingTheCard)
{
	AddMeter(BOTH);

	EXPECT_EQ(vask_p4_meter_enable(dev, METER, &error), 0);

	ExpectTrace(
		Says(RTE_LOG_WARNING, "vask_p4_meter_enable", "enable meter is open, no need do!"));
	ExpectErrorUntouched(error);
}

} // namespace
