/* SPDX-License-Identifier: BSD-3-Clause */
#include "meters.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;
using ::testing::Each;
using ::testing::ElementsAre;

namespace
{

using MeterIntoCard = MeterTest;

LogLine
AddSays(uint32_t level, const std::string &text)
{
	return Says(level, "vask_p4_add_meter_cfg_2_hw", text);
}

LogLine
IschSuc()
{
	return AddSays(RTE_LOG_ERR, "add meter dpe shaper rate(100kbps) suc");
}

LogLine
ShaperSuc()
{
	return AddSays(RTE_LOG_DEBUG, "add meter shaper suc.");
}

TEST_F(MeterIntoCard, BothSidesWriteTheIschRegisterFirstAndThenThePortShaper)
{
	auto *meter = AddMeter(BOTH);

	EXPECT_EQ(vask_p4_add_meter_cfg_2_hw(meter), 0);

	ExpectTrace(IschSet(), IschSuc(), ShaperSet(), ShaperSuc());
}

} // namespace
