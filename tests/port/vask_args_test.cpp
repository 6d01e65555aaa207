/* SPDX-License-Identifier: BSD-3-Clause */
/* Device arguments: what is refused at probe, and how the log says so. */
#include "port_test.h"

namespace vask_test
{

struct Refusal {
	const char *name;
	const char *args;
	const char *line; /* what follows the device's name in the log */
};

class RefusedArgument : public PortTest, public ::testing::WithParamInterface<Refusal>
{
};

TEST_P(RefusedArgument, FailsTheProbeWithOneLineThatNamesItItsValueAndWhatIsAccepted)
{
	const unsigned before = rte_eth_dev_count_total();

	log();
	EXPECT_LT(probe("net_vask1_0", GetParam().args), 0);
	EXPECT_EQ(log(),
		std::string("[offload_smartnic] ") + "refuse net_vask1_0: " + GetParam().line +
			"\n");
	EXPECT_EQ(rte_eth_dev_count_total(), before);
	/* and nothing is left that would keep a good one from coming up */
	EXPECT_EQ(probe("net_vask1_0", ""), 0);
}

INSTANTIATE_TEST_SUITE_P(All, RefusedArgument,
	::testing::Values(Refusal{"UplinkEmpty", "uplink=",
				  "uplink= is refused: the name of an ethdev port of at most 63 "
				  "characters is accepted"},
		Refusal{"UplinkItself", "uplink=net_vask1_0",
			"uplink=net_vask1_0 is refused: another port's name is accepted"},
		Refusal{"SfiTooLarge", "sfi=16384",
			"sfi=16384 is refused: a number from 0 to 16383 is accepted"},
		Refusal{"SfiNegative", "sfi=-1",
			"sfi=-1 is refused: a number from 0 to 16383 is accepted"},
		Refusal{"SfiNoNumber", "sfi=12x",
			"sfi=12x is refused: a number from 0 to 16383 is accepted"},
		Refusal{"SfiHuge", "sfi=99999999999999999999999",
			"sfi=99999999999999999999999 is refused: a number from 0 to 16383 is "
			"accepted"},
		Refusal{"Clock", "clock=sun", "clock=sun is refused: tsc or capture is accepted"},
		Refusal{"Tick", "tick=ms", "tick=ms is refused: us or ns is accepted"},
		Refusal{"Shapers", "shapers=off",
			"shapers=off is refused: observe or enforce is accepted"},
		Refusal{"TraceEmpty",
			"trace=", "trace= is refused: the path of a file is accepted"},
		Refusal{"FaultEmpty", "fault=",
			"fault= is refused: <operation>:<n|every>:<code>[:<microseconds>] is "
			"accepted"},
		Refusal{"Twice", "clock=tsc,clock=tsc",
			"clock=... is refused: it is accepted once"},
		Refusal{"Unknown", "colour=blue",
			"colour=blue is refused: uplink, sfi, clock, tick, shapers, fault and trace "
			"are the arguments that are accepted"}),
	[](const auto &info) { return info.param.name; });

class Arguments : public PortTest
{
};

TEST_F(Arguments, MisspeltFaultIsRefusedWithTheOperationsThatExist)
{
	log();
	EXPECT_LT(probe("net_vask1_0", "fault=vask_p4_mep_add_meter_profil:every:-5"), 0);
	const std::string said = log();

	EXPECT_NE(
		said.find("net_vask1_0: fault=vask_p4_mep_add_meter_profil:every:-5 is refused: "),
		std::string::npos);
	for (const char *operation : {"vask_p4_mep_add_meter_profile", "vask_cmd_set_shaper",
		     "vask_p4_isch_shaper_csr_write", "qorn_meter_table_update"})
		EXPECT_NE(said.find(operation), std::string::npos) << operation;
	EXPECT_EQ(probe("net_vask1_0", ""), 0);
}

TEST_F(Arguments, TakenSfiIsRefusedAndFreeOnesAreGivenFromZero)
{
	ASSERT_EQ(probe("net_vask1_0", ""), 0);
	ASSERT_EQ(probe("net_vask1_1", "sfi=1"), 0);
	log();
	EXPECT_LT(probe("net_vask1_2", "sfi=1"), 0);
	EXPECT_NE(
		log().find(
			"net_vask1_2: sfi=1 is refused: it is the number of net_vask1_1, one that "
			"is free is accepted"),
		std::string::npos);
	ASSERT_EQ(probe("net_vask1_2", ""), 0);

	/* the address tells the number: 0, then the next free one, 2 */
	struct rte_ether_addr mac;
	ASSERT_EQ(rte_eth_macaddr_get(port_of("net_vask1_0"), &mac), 0);
	EXPECT_EQ(mac.addr_bytes[5], 0);
	ASSERT_EQ(rte_eth_macaddr_get(port_of("net_vask1_2"), &mac), 0);
	EXPECT_EQ(mac.addr_bytes[5], 2);
}

TEST_F(Arguments, TraceThatCannotBeOpenedIsRefused)
{
	log();
	EXPECT_LT(probe("net_vask1_0", "trace=/nowhere/trace"), 0);
	EXPECT_NE(
		log().find(
			"net_vask1_0: trace=/nowhere/trace is refused: No such file or directory"),
		std::string::npos);
}

} // namespace vask_test
