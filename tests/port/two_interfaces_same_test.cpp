/* SPDX-License-Identifier: BSD-3-Clause */
/* The same meters through rte_mtr and through the P4 tables: card and packets cannot tell them apart. */
#include <rte_version.h>

#include "two_interfaces.h"

#if RTE_VERSION >= RTE_VERSION_NUM(22, 3, 0, 0)

namespace vask_test
{

TEST_F(TwoInterfaces, EachAlgorithmOnEachSideInBytesAndPackets)
{
	for (auto alg : {RTE_MTR_SRTCM_RFC2697, RTE_MTR_TRTCM_RFC2698, RTE_MTR_TRTCM_RFC4115}) {
		for (bool packet_mode : {false, true}) {
			for (bool transmit : {false, true}) {
				SCOPED_TRACE(std::to_string(alg) + (packet_mode ? " packets" : "") +
					(transmit ? " transmit" : " receive"));
				Wanted wanted = {.alg = alg,
					.packet_mode = packet_mode,
					.transmit = transmit};
				if (packet_mode)
					wanted.cir = 100, wanted.eir = 200, wanted.cbs = 4,
					wanted.ebs = 6;
				const size_t passed = ExpectTheSame(wanted);
				EXPECT_GT(passed, 0u);
				EXPECT_LT(passed, 60u) << "some are red and dropped";
			}
		}
	}
}

TEST_F(TwoInterfaces, EachActionOnEachColour)
{
	for (Action action : {PASS, REWRITE, DROP}) {
		SCOPED_TRACE(static_cast<int>(action));
		ExpectTheSame({.green = action, .green_dscp = 0});
		ExpectTheSame({.yellow = action, .yellow_dscp = 0});
		ExpectTheSame({.red = action, .red_dscp = 0});
	}
	EXPECT_EQ(ExpectTheSame({.green = REWRITE,
			  .yellow = REWRITE,
			  .red = REWRITE,
			  .green_dscp = 46,
			  .yellow_dscp = 63,
			  .red_dscp = 8}),
		60u);
}

TEST_F(TwoInterfaces, ColourAwareAndOriginalLengthMeters)
{
	ExpectTheSame({.colour_aware = true});
	ExpectTheSame({.original_length = true});
	ExpectTheSame({.transmit = true, .colour_aware = true, .original_length = true});
}

TEST_F(TwoInterfaces, LiveMeterMovedToAnotherProfile)
{
	const Wanted first, second = {.cir = 800000, .cbs = 16384};
	Outcome outcomes[2];

	for (bool through_tables : {false, true}) {
		Outcome &outcome = outcomes[through_tables];
		Open();
		ProgramThroughMtr(first);
		rte_mtr_meter_profile profile = Profile(second);
		ASSERT_EQ(rte_mtr_meter_profile_add(port_, 6, &profile, &error), 0);
		if (through_tables) {
			p4_meter_instance_t row = InstanceRow(first);
			row.profile_id = 6;
			ASSERT_EQ(rte_pmd_net_vask1_instance_mod(METER, &row), 0);
		} else {
			ASSERT_EQ(rte_mtr_meter_profile_update(port_, METER, 6, &error), 0);
		}
		outcome.frames = Offer(false);
		outcome.tables = Dump();
		Close();
	}
	EXPECT_EQ(outcomes[0].tables, outcomes[1].tables);
	EXPECT_EQ(outcomes[0].frames, outcomes[1].frames);
}

TEST_F(TwoInterfaces, RemovedThroughEitherEverythingIsGone)
{
	std::string dumps[2];

	for (bool through_tables : {false, true}) {
		Open();
		ProgramThroughMtr({});
		if (through_tables) {
			EXPECT_EQ(rte_pmd_net_vask1_instance_del(METER), 0);
			EXPECT_EQ(rte_pmd_net_vask1_policer_del(POLICY), 0);
			EXPECT_EQ(rte_pmd_net_vask1_profile_del(PROFILE), 0);
		} else {
			EXPECT_EQ(rte_mtr_destroy(port_, METER, &error), 0);
			EXPECT_EQ(rte_mtr_meter_policy_delete(port_, POLICY, &error), 0);
			EXPECT_EQ(rte_mtr_meter_profile_delete(port_, PROFILE, &error), 0);
		}
		dumps[through_tables] = Dump();
		Close();
	}
	EXPECT_EQ(dumps[0], dumps[1]);
	EXPECT_NE(dumps[0].find("meters             : 4095 of 4096 free"), std::string::npos)
		<< dumps[0];
}

} // namespace vask_test

#endif
