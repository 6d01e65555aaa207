/* SPDX-License-Identifier: BSD-3-Clause */

/* The shapers' registers and their units. */

#include <cerrno>

#include "shaper_test.h"

namespace
{

TEST_F(Shaper, APortShapersRateIsInKbits)
{
	ASSERT_EQ(SetPortShaper(3, 1000), 0);
	const softcard_shaper_view view = ViewShaper(TX);
	EXPECT_TRUE(view.enabled);
	EXPECT_FALSE(view.packet_mode);
	EXPECT_EQ(view.rate, 1000000u);
	EXPECT_EQ(view.burst, 0u);
	EXPECT_EQ(view.register_value, 1000u);
	EXPECT_FALSE(ViewShaper(TX, 4).enabled);
	EXPECT_FALSE(ViewShaper(RX, 3).enabled);
}

TEST_F(Shaper, APortShapersPacketsAre125ForEachUnit)
{
	ASSERT_EQ(SetPortShaper(3, 8, 1), 0);
	EXPECT_TRUE(ViewShaper(TX).packet_mode);
	EXPECT_EQ(ViewShaper(TX).rate, 1000u);
}

TEST_F(Shaper, APortShaperOfRateZeroIsOff)
{
	ASSERT_EQ(SetPortShaper(3, 1000), 0);
	ASSERT_EQ(SetPortShaper(3, 0), 0);
	EXPECT_FALSE(ViewShaper(TX).enabled);
	EXPECT_FALSE(ViewShaper(TX).below_resolution);
}

TEST_F(Shaper, ASourcePortPastTheTableIsRefused)
{
	EXPECT_EQ(SetPortShaper(16383, 1000), 0);
	EXPECT_EQ(SetPortShaper(16384, 1000), -ERANGE);
	softcard_shaper_view view;
	EXPECT_EQ(softcard_view_shaper(TX, 16384, &view), -ERANGE);
	EXPECT_EQ(softcard_view_shaper(2, 1, &view), -EINVAL);
	EXPECT_EQ(softcard_view_shaper(TX, 1, nullptr), -EINVAL);
}

TEST_F(Shaper, TheSchedulersRegisterIsOneForAllPorts)
{
	ASSERT_EQ(vask_p4_isch_shaper_csr_write(Isch(108, 1)), 0);
	for (uint16_t sfi : {0, 3, 16383}) {
		const softcard_shaper_view view = ViewShaper(RX, sfi);
		EXPECT_TRUE(view.enabled);
		EXPECT_EQ(view.rate, 10800000u);
		EXPECT_EQ(view.burst, 16384u);
		EXPECT_EQ(view.register_value, 1u | 1u << 3 | 108u << 11);
	}
}

TEST_F(Shaper, TheSchedulersOtherUnits)
{
	ASSERT_EQ(vask_p4_isch_shaper_csr_write(Isch(108, 127, 0, 1)), 0);
	EXPECT_EQ(ViewShaper(RX).rate, 108000000u);
	EXPECT_EQ(ViewShaper(RX).burst, 127u * 16384);
	ASSERT_EQ(vask_p4_isch_shaper_csr_write(Isch(2, 1, 1)), 0);
	EXPECT_TRUE(ViewShaper(RX).packet_mode);
	EXPECT_EQ(ViewShaper(RX).rate, 25000u);
	EXPECT_EQ(ViewShaper(RX).burst, 16u);
}

} // namespace
