/* SPDX-License-Identifier: BSD-3-Clause */
#include "meters.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

using MeterCreate = MeterTest;

TEST_F(MeterCreate, UnknownProfileIsRefusedAndListIsUnchanged)
{
	rte_mtr_params params = {};
	params.meter_profile_id = 6;
	params.meter_policy_id = POLICY;

	ExpectRefused(vask_p4_meter_create(dev, METER, &params, 0, &error), error,
		RTE_MTR_ERROR_TYPE_METER_PROFILE_ID, "add meter but not find profile");

	EXPECT_THAT(log.lines(RTE_LOG_ERR),
		ElementsAre(Says(RTE_LOG_ERR, "vask_p4_meter_inst_create",
			"add meter but not find profile, meter 9, prf 6")));
	EXPECT_THAT(meter_ids(), IsEmpty());
	EXPECT_EQ(memory.count(), 0u);
}

} // namespace
