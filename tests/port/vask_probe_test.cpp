/* SPDX-License-Identifier: BSD-3-Clause */
/* The life of ports: probe, close, and what stands or falls with them. */
#include "port_test.h"

#include <cstdlib>

#include <rte_eal.h>

#include "rte_pmd_net_vask1.h"

namespace vask_test
{

class PortLife : public PortTest
{
      protected:
	/* One round from nothing to packets. What it leaves behind is for the close. */
	void run_round()
	{
		Wire wire = make_wire("wire");

		ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire,clock=capture,tick=ns"), 0);
		const uint16_t port = port_of("net_vask1_0");

		/* full pools: 255 profiles, 254 policies beside the default one, then no more */
		for (uint32_t id = 1; id <= 255; id++)
			ASSERT_EQ(add_profile(port, id, 80000, 20480, 20480), 0) << id;
		EXPECT_LT(add_profile(port, 256, 80000, 20480, 20480), 0);
		for (uint32_t id = 1; id <= 254; id++)
			ASSERT_EQ(add_policy(port, id), 0) << id;
		EXPECT_LT(add_policy(port, 256), 0);
		ASSERT_EQ(create_meter(port, 9, 5, 7, RECEIVE), 0);
		ASSERT_EQ(create_meter(port, 10, 5, 7, TRANSMIT), 0);
		ASSERT_EQ(create_meter(port, 0, 5, 7, 0), 0);
		ASSERT_EQ(create_meter(port, 0, 5, 7, 0), 0);
		ASSERT_NE(add_meter_rule(port, IPPROTO_UDP, 9), nullptr);
		ASSERT_NE(add_meter_rule(port, IPPROTO_UDP, 10, true), nullptr);

		ASSERT_EQ(start(port), 0);
		for (int i = 0; i < 100; i++)
			put(wire, {.length = 1000});
		EXPECT_EQ(receive(port).size(), 40u);
		EXPECT_EQ(stats(port, 9).n_pkts_dropped, 60u);
		EXPECT_EQ(send(port, std::vector<Frame>(30)), 30);
		EXPECT_EQ(sent(wire).size(), 30u);

		ASSERT_EQ(rte_eth_dev_stop(port), 0);
		ASSERT_EQ(rte_eth_dev_close(port), 0);
		EXPECT_EQ(meter_index_mgr, nullptr);
		EXPECT_EQ(remove("net_vask1_0"), 0);
		remove_wire(wire);
	}
};

TEST_F(PortLife, ProbeRunCloseAndProbeAgainStartsFromEmptyListsAndFullPools)
{
	for (int round = 0; round < 3; round++) {
		SCOPED_TRACE(round);
		run_round();
	}
}

TEST_F(PortLife, CloseDestroysThePortsMetersAndLeavesTheOtherPorts)
{
	ASSERT_EQ(probe("net_vask1_0", ""), 0);
	ASSERT_EQ(probe("net_vask1_1", ""), 0);
	const uint16_t first = port_of("net_vask1_0"), second = port_of("net_vask1_1");

	ASSERT_EQ(add_profile(first, 5, 80000, 20480, 20480), 0);
	ASSERT_EQ(create_meter(first, 0, 5, 0, RECEIVE), 0);
	ASSERT_EQ(create_meter(first, 8, 5, 0, RECEIVE), 0);
	ASSERT_EQ(create_meter(second, 0, 5, 0, RECEIVE), 0);
	ASSERT_EQ(create_meter(second, 9, 5, 0, RECEIVE), 0);
	ASSERT_EQ(rte_eth_dev_close(first), 0);
	remove("net_vask1_0");

	EXPECT_EQ(vask_p4_find_hw_meterid_by_upid(8), 0u);
	EXPECT_NE(vask_p4_find_hw_meterid_by_upid(9), 0u);
	/* the second port's meter 0 is still there: its profile is in use until both of its meters go */
	EXPECT_EQ(rte_mtr_destroy(second, 9, &error), 0);
	EXPECT_EQ(rte_mtr_meter_profile_delete(second, 5, &error), -EBUSY);
	EXPECT_EQ(rte_mtr_destroy(second, 0, &error), 0);
	EXPECT_EQ(rte_mtr_meter_profile_delete(second, 5, &error), 0);
}

TEST_F(PortLife, DefaultPolicyThatTheCardRefusesIsMissingAndThePortIsThere)
{
	ASSERT_EQ(probe("net_vask1_0", "fault=vask_p4_mep_add_meter_policy:1:-5"), 0);
	EXPECT_EQ(vask_p4_meter_get_policy(0), nullptr);
	const uint16_t port = port_of("net_vask1_0");
	ASSERT_EQ(add_profile(port, 5, 80000, 20480, 20480), 0);
	EXPECT_EQ(create_meter(port, 9, 5, 0, RECEIVE), -EBUSY);
	EXPECT_STREQ(error.message, "add meter but not find policy");
}

TEST_F(PortLife, PoolThatCannotBeCreatedFailsTheProbeAndTheNextOneWorks)
{
	for (const char *pool : {"1", "2", "3"}) {
		SCOPED_TRACE(pool);
		log();
		EXPECT_EQ(probe("net_vask1_0",
				  std::string("fault=vask_p4_indexstack_create:") + pool + ":-12"),
			-EIO);
		EXPECT_NE(log().find("net_vask1_0: the meter module does not start"),
			std::string::npos);
		EXPECT_EQ(meter_index_mgr, nullptr);
		EXPECT_EQ(profile_index_mgr, nullptr);
		EXPECT_EQ(policy_index_mgr, nullptr);
		run_round();
	}
}

/* Nobody looks at whether an index was held back: one that was not is handed out like any other. */
TEST_F(PortLife, IndexThatCannotBeHeldBackIsHandedOutAndTheNextProbeStartsFresh)
{
	struct Case {
		const char *nth;
		uint32_t profiles, policies, first_meter;
	};

	/* held back: 0 of the meters, of the profiles and of the policies, and 255 of the policies */
	for (const Case &c : {Case{"1", 255, 254, 0}, Case{"2", 256, 254, 1},
		     Case{"3", 255, 255, 1}, Case{"4", 255, 255, 1}}) {
		SCOPED_TRACE(c.nth);
		ASSERT_EQ(probe("net_vask1_0",
				  std::string("fault=vask_p4_indexstack_set:") + c.nth + ":-5"),
			0);
		const uint16_t port = port_of("net_vask1_0");
		uint32_t profiles = 0, policies = 0;

		while (add_profile(port, profiles + 1, 80000, 20480, 20480) == 0)
			profiles++;
		while (add_policy(port, policies + 1) == 0)
			policies++;
		EXPECT_EQ(profiles, c.profiles);
		EXPECT_EQ(policies, c.policies);
		ASSERT_EQ(create_meter(port, 9, 5, 7, RECEIVE), 0);
		EXPECT_EQ(vask_p4_find_hw_meterid_by_upid(9), c.first_meter);
		EXPECT_EQ(remove("net_vask1_0"), 0);
		run_round();
	}
}

TEST_F(PortLife, FailedProbeGivesTheUplinkBack)
{
	Wire wire = make_wire("wire");

	EXPECT_LT(probe("net_vask1_0", "uplink=net_ring_wire,fault=no_such_operation:1:-5"), 0);
	EXPECT_EQ(rte_eth_dev_count_avail(), 1);
	EXPECT_EQ(probe("net_vask1_0", "uplink=net_ring_wire"), 0);
	/* ours alone is seen */
	EXPECT_EQ(rte_eth_dev_count_avail(), 1);
	EXPECT_EQ(rte_eth_dev_count_total(), 2);
}

TEST_F(PortLife, MeterThatTheCardRefusesToDeleteGoesWithItsPortBecauseFaultsAreLifted)
{
	ASSERT_EQ(probe("net_vask1_0", ""), 0);
	const uint16_t port = port_of("net_vask1_0");

	ASSERT_EQ(add_profile(port, 5, 80000, 20480, 20480), 0);
	ASSERT_EQ(create_meter(port, 9, 5, 0, RECEIVE), 0);
	ASSERT_EQ(rte_pmd_net_vask1_fault_set("vask_p4_isch_shaper_csr_write:every:7"), 0);
	EXPECT_EQ(rte_mtr_destroy(port, 9, &error), -EBUSY);
	EXPECT_STREQ(error.message, "meter delete not success");
	EXPECT_NE(vask_p4_find_hw_meterid_by_upid(9), 0u);
	log();
	ASSERT_EQ(rte_eth_dev_close(port), 0);
	EXPECT_EQ(log().find("refuses"), std::string::npos);
	EXPECT_EQ(vask_p4_find_hw_meterid_by_upid(9), 0u);
}

TEST_F(PortLife, StartedPortIsStoppedWhenItsDeviceIsRemoved)
{
	Wire wire = make_wire("wire");

	ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire"), 0);
	ASSERT_EQ(start(port_of("net_vask1_0")), 0);
	put(wire, {});
	EXPECT_EQ(remove("net_vask1_0"), 0);
	EXPECT_EQ(rte_eth_dev_count_total(), 0);
}

TEST_F(PortLife, ResetTakesRulesAndMetersAwayAndThePortRunsAgain)
{
	Wire wire = make_wire("wire");

	ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire,clock=capture"), 0);
	const uint16_t port = port_of("net_vask1_0");
	ASSERT_EQ(add_profile(port, 5, 80000, 20480, 20480), 0);
	ASSERT_EQ(create_meter(port, 9, 5, 0, RECEIVE), 0);
	ASSERT_NE(add_meter_rule(port, IPPROTO_UDP, 9), nullptr);
	ASSERT_EQ(start(port), 0);
	ASSERT_EQ(rte_eth_dev_reset(port), 0);
	EXPECT_EQ(vask_p4_find_hw_meterid_by_upid(9), 0u);
	ASSERT_EQ(start(port), 0);
	for (int i = 0; i < 100; i++)
		put(wire, {.length = 1000});
	EXPECT_EQ(receive(port).size(), 100u);
}

TEST_F(PortLife, CallsOfTheDriversOwnAreRefusedWhileThereIsNoPort)
{
	const p4_meter_profile_t profile = {};

	EXPECT_EQ(rte_pmd_net_vask1_profile_add(1, &profile), -ENODEV);
	EXPECT_EQ(rte_pmd_net_vask1_instance_del(1), -ENODEV);
	EXPECT_EQ(rte_pmd_net_vask1_fault_set("vask_cmd_set_shaper:1:5"), -ENODEV);
}

TEST_F(PortLife, PortThatIsProbedAgainKnowsNothingOfTheOneBefore)
{
	/* keeps the card up */
	ASSERT_EQ(probe("net_vask1_0", ""), 0);
	Wire before_wire = make_wire("before");
	ASSERT_EQ(probe("net_vask1_1", "uplink=net_ring_before,sfi=77"), 0);
	const uint16_t before = port_of("net_vask1_1");
	ASSERT_EQ(start(before), 0);
	ASSERT_EQ(rte_eth_dev_set_mtu(before, 500), 0);
	put(before_wire, {.length = 1000});
	EXPECT_EQ(receive(before).size(), 0u);
	EXPECT_EQ(remove("net_vask1_1"), 0);
	remove_wire(before_wire);

	Wire after_wire = make_wire("after");
	ASSERT_EQ(probe("net_vask1_1", "uplink=net_ring_after,sfi=77"), 0);
	const uint16_t after = port_of("net_vask1_1");
	ASSERT_EQ(start(after), 0);
	put(after_wire, {.length = 1000});
	EXPECT_EQ(receive(after).size(), 1u);
}

TEST_F(PortLife, RefusedProbeLeavesTheFaultsThatWereSetBefore)
{
	ASSERT_EQ(probe("net_vask1_0", ""), 0);
	const uint16_t port = port_of("net_vask1_0");
	ASSERT_EQ(rte_pmd_net_vask1_fault_set("vask_p4_mep_add_meter_profile:1:-5"), 0);
	EXPECT_LT(probe("net_vask1_1",
			  "fault=vask_p4_mep_add_meter_profile:2:-5,fault=no_such_operation:1:-5"),
		0);
	EXPECT_EQ(add_profile(port, 5, 80000, 20480, 20480), -EBUSY);
	EXPECT_EQ(add_profile(port, 5, 80000, 20480, 20480), 0) << "a fault of the refused port";
}

/* Whoever ends without closing anything: the environment removes the devices, in the order of their probe. */
TEST_F(PortLife, EndOfTheEnvironmentRemovesPortsThatRun)
{
	if (getenv("VASK_EMULATED") != nullptr)
		GTEST_SKIP() << "an emulated program cannot start itself anew";

	const auto leave = [this](bool uplink_first) {
		if (uplink_first)
			make_wire("wire");
		ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire"), 0);
		if (!uplink_first)
			make_wire("wire");
		const uint16_t port = port_of("net_vask1_0");
		ASSERT_EQ(add_profile(port, 5, 80000, 20480, 20480), 0);
		ASSERT_EQ(create_meter(port, 9, 5, 0, RECEIVE), 0);
		ASSERT_NE(add_meter_rule(port, IPPROTO_UDP, 9), nullptr);
		ASSERT_EQ(start(port), 0);
		exit(rte_eal_cleanup() == 0 ? 42 : 1);
	};

	GTEST_FLAG_SET(death_test_style, "threadsafe");
	EXPECT_EXIT(leave(true), testing::ExitedWithCode(42), "");
	EXPECT_EXIT(leave(false), testing::ExitedWithCode(42), "");
}

TEST_F(PortLife, PortsThatEnforceShapersShareAClock)
{
	ASSERT_EQ(probe("net_vask1_0", "shapers=enforce,clock=capture"), 0);
	log();
	EXPECT_EQ(probe("net_vask1_1", "shapers=enforce"), -EINVAL);
	EXPECT_NE(log().find(
			  "net_vask1_1: clock=tsc is refused: net_vask1_0 enforces shapers too, so "
			  "capture is accepted"),
		std::string::npos);
	EXPECT_EQ(probe("net_vask1_1", "shapers=enforce,clock=capture"), 0);
	EXPECT_EQ(probe("net_vask1_2", "clock=tsc"), 0);
}

} // namespace vask_test
