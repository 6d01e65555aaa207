/* SPDX-License-Identifier: BSD-3-Clause */
/* Where rte_mtr and the P4 tables differ. */
#include <rte_version.h>

#include "two_interfaces.h"

#if RTE_VERSION >= RTE_VERSION_NUM(22, 3, 0, 0)

namespace vask_test
{

TEST_F(TwoInterfaces, ModifyingARowTakesEirForRfc2697WhichAddingDoesNot)
{
	const Wanted wanted = {.eir = 160000};
	const p4_meter_profile_t row = ProfileRow(wanted);

	Open();
	ASSERT_EQ(rte_pmd_net_vask1_profile_add(PROFILE, &row), 0);
	const std::string added = Dump();
	ASSERT_EQ(rte_pmd_net_vask1_profile_mod(PROFILE, &row), 0);
	const std::string modified = Dump();
	EXPECT_NE(added.find("excess/peak rate  : asked 0, held 0 "), std::string::npos) << added;
	EXPECT_NE(
		modified.find("excess/peak rate  : asked 160000, held 160000 "), std::string::npos)
		<< modified;
}

TEST_F(TwoInterfaces, ModifyingARowAppliesNoRateRuleAndNeverTakesRfc2698Back)
{
	const Wanted below = {.alg = RTE_MTR_TRTCM_RFC2698, .cir = 80000, .eir = 8000};
	const p4_meter_profile_t row = ProfileRow(below);
	rte_mtr_meter_profile profile = Profile(below);

	Open();
	EXPECT_EQ(rte_mtr_meter_profile_add(port_, PROFILE, &profile, &error), -EBUSY);
	EXPECT_EQ(rte_pmd_net_vask1_profile_add(PROFILE, &row), -EBUSY);

	p4_meter_profile_t other = ProfileRow({});
	ASSERT_EQ(rte_pmd_net_vask1_profile_add(PROFILE, &other), 0);
	EXPECT_EQ(rte_pmd_net_vask1_profile_mod(PROFILE, &row), 0);
	EXPECT_NE(Dump().find("profile 5: hardware 1, RFC 2698,"), std::string::npos) << Dump();
	EXPECT_EQ(rte_pmd_net_vask1_profile_mod(PROFILE, &other), 0);
	EXPECT_NE(Dump().find("profile 5: hardware 1, RFC 2698,"), std::string::npos) << Dump();
}

TEST_F(TwoInterfaces, ModifiedRowsReachNoMeterThatUsesThem)
{
	Open();
	ProgramThroughTables({});
	const std::string before = Dump();
	const p4_meter_profile_t faster = ProfileRow({.cir = 800000});
	ASSERT_EQ(rte_pmd_net_vask1_profile_mod(PROFILE, &faster), 0);

	/* The shaper keeps the rate of the meter's own copy; only the profile's lines change. */
	const std::string after = Dump();
	EXPECT_EQ(before.substr(0, before.find("profiles\n")),
		after.substr(0, after.find("profiles\n")));
	EXPECT_NE(before, after);
}

TEST_F(TwoInterfaces, OnlyARowCanHoldAction3WhichPassesPackets)
{
	Open();
	ProgramThroughTables({.red = static_cast<Action>(3)});
	EXPECT_EQ(Offer(false).size(), 60u);
}

TEST_F(TwoInterfaces, OnlyRteMtrMakesABothSidesMeterAndModifyingItsRowKeepsOneSide)
{
	Open();
	ProgramThroughMtr({});
	ASSERT_EQ(rte_mtr_destroy(port_, METER, &error), 0);
	ASSERT_EQ(create_meter(port_, METER, PROFILE, POLICY, 0), 0);
	const std::string both = Dump();
	EXPECT_NE(both.find(", both, enabled,"), std::string::npos) << both;

	const p4_meter_instance_t row = InstanceRow({});
	ASSERT_EQ(rte_pmd_net_vask1_instance_mod(METER, &row), 0);
	const std::string receive_only = Dump();
	EXPECT_NE(receive_only.find(", receive, enabled,"), std::string::npos) << receive_only;

	/* The shaper of the side that went stays as it was. */
	const auto port_shaper = [](const std::string &dump) {
		const size_t at = dump.find("port shaper");
		return dump.substr(at, dump.find('\n', at) - at);
	};
	EXPECT_NE(port_shaper(both).find("640000 bit/s"), std::string::npos) << both;
	EXPECT_EQ(port_shaper(both), port_shaper(receive_only));
}

TEST_F(TwoInterfaces, RefusedCreationShowsInTheResultOfRteMtrOnly)
{
	Open();
	ProgramThroughMtr({});
	const p4_meter_instance_t row = InstanceRow({});

	EXPECT_EQ(CreateMeter({}), -EBUSY);
	EXPECT_STREQ(error.message, "meter id repeat err");
	EXPECT_EQ(rte_pmd_net_vask1_instance_add(METER, &row), 0);

	p4_meter_instance_t no_port = row;
	no_port.type = 0;
	EXPECT_EQ(rte_pmd_net_vask1_instance_add(METER + 1, &no_port), 0);
	EXPECT_EQ(vask_p4_find_hw_meterid_by_upid(METER + 1), 0u)
		<< "a row that belongs to no port has no device to stand on";
	no_port.dpdk_port_id = 562;
	EXPECT_EQ(rte_pmd_net_vask1_instance_add(METER + 1, &no_port), -EINVAL);
}

TEST_F(TwoInterfaces, DuplicatesAndUnknownIdsAreRefusedInEachInterfacesOwnWay)
{
	Open();
	ProgramThroughMtr({});
	const p4_meter_policer_t policer = PolicerRow({});
	const p4_meter_profile_t profile = ProfileRow({});
	const p4_meter_instance_t instance = InstanceRow({});

	EXPECT_EQ(AddPolicy(POLICY, {}), -EBUSY);
	EXPECT_EQ(rte_pmd_net_vask1_policer_add(POLICY, &policer), -1);
	EXPECT_EQ(rte_pmd_net_vask1_profile_add(PROFILE, &profile), -EBUSY)
		<< "a profile's row is added by the same operation";
	EXPECT_EQ(rte_mtr_meter_profile_update(port_, METER + 1, PROFILE, &error), -EBUSY);
	EXPECT_EQ(rte_pmd_net_vask1_instance_mod(METER + 1, &instance), -1);
	EXPECT_EQ(rte_pmd_net_vask1_profile_mod(PROFILE + 1, &profile), -1);
	EXPECT_EQ(rte_pmd_net_vask1_policer_mod(POLICY + 1, &policer), -1);
}

TEST_F(TwoInterfaces, OnlyARowsPolicyRecordsThatItReachedTheCard)
{
	Open();
	ProgramThroughMtr({});
	const p4_meter_policer_t policer = PolicerRow({});
	ASSERT_EQ(rte_pmd_net_vask1_policer_add(POLICY + 1, &policer), 0);

	EXPECT_EQ(vask_p4_meter_get_policy(POLICY)->data.off_hw_state, VASK_P4_OFF_HW_NONE);
	EXPECT_EQ(vask_p4_meter_get_policy(POLICY + 1)->data.off_hw_state, VASK_P4_OFF_HW_DONE);
}

} // namespace vask_test

#endif
