/* SPDX-License-Identifier: BSD-3-Clause */
#include "meters.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;

namespace
{

using ProfileTable = MeterTest;

TEST_F(ProfileTable, Rfc3IsRefusedBeforeAnythingIsAllocated)
{
	p4_meter_profile_t entry = {};
	entry.cir = 1000;
	entry.meter_rfc = 3;

	EXPECT_EQ(talvora_p4_offload_meter_table_profile_add(6, &entry), -1);

	ExpectTrace();
	EXPECT_EQ(memory.count(), 0u);
}

} // namespace
