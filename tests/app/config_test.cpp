/* SPDX-License-Identifier: BSD-3-Clause */
#include "config.h"

#include <cstdlib>
#include <fstream>
#include <unistd.h>

#include <gmock/gmock.h>

#include "error.h"

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace
{
/* A file for the time of a test. */
class ConfigText
{
      public:
	explicit ConfigText(const std::string &text)
	{
		close(mkstemp(path.data()));
		std::ofstream(path) << text;
	}
	~ConfigText()
	{
		unlink(path.c_str());
	}
	std::string path = "config_test.XXXXXX";
};

const std::string PROFILE =
	"[profile 1]\nalgorithm = rfc2697\ncir = 2Mbit/s\ncbs = 16KiB\nebs = 8KiB\n";
const std::string METER = "[meter 9]\ndirection = rx\nprofile = 1\n";

meters_config
Read(const std::string &text)
{
	return config_read(ConfigText(text).path);
}

/* The line of refusal, from behind the file's name on. */
std::string
Refusal(const std::string &text)
{
	const ConfigText file(text);
	try {
		config_read(file.path);
	} catch (const vask_meter_error &e) {
		EXPECT_EQ(e.exit_code, VASK_METER_REFUSED);
		const std::string line = e.what();
		EXPECT_EQ(line.find(file.path), 0U) << line;
		EXPECT_EQ(line.find('\n'), std::string::npos) << line;
		return line.substr(file.path.size());
	}
	return "not refused";
}
} // namespace

TEST(Config, TheShortestOneHasDefaults)
{
	const meters_config c = Read(PROFILE + METER);
	EXPECT_FALSE(c.p4);
	EXPECT_FALSE(c.enforce);
	EXPECT_EQ(c.ports, 1);
	EXPECT_FALSE(c.mtu);
	ASSERT_THAT(c.meters, SizeIs(1));
	EXPECT_EQ(c.meters[0].id, 9U);
	EXPECT_EQ(c.meters[0].port, 0);
	EXPECT_EQ(c.meters[0].side, meter_side::RX);
	EXPECT_EQ(c.meters[0].policy, 0U);
	EXPECT_FALSE(c.meters[0].original_length);
	EXPECT_FALSE(c.meters[0].colour_aware);
	EXPECT_TRUE(c.meters[0].enable);
	EXPECT_THAT(c.flows, IsEmpty());
}

TEST(Config, EveryKeyIsRead)
{
	const meters_config c =
		Read("; a comment\n"
		     "[flow 3]\nmeter = 9 ; and one here\nport = 1\ndirection = egress\n"
		     "priority = 2\nvlan = 100\nsrc = 10.0.0.0/8\ndst = 10.0.0.2\n"
		     "dscp = 46\nprotocol = udp\nsport = 1\ndport = 65535\n"
		     "[meter 9]\nport = 1\ndirection = tx\nprofile = 5\npolicy = 7\n"
		     "original_length = yes\ncolor_aware = yes\nenable = no\n"
		     "[setup]\ninterface = p4\nshapers = enforce\nports = 2\nmtu = 1500\n"
		     "[profile 5]\nalgorithm = rfc4115\ncir = 5000pps\neir = 1kpps\n"
		     "cbs = 32packets\nebs = 1 packet\n"
		     "[policy 7]\ngreen = pass\nyellow = dscp 63\nred = drop\n");
	EXPECT_TRUE(c.p4);
	EXPECT_TRUE(c.enforce);
	EXPECT_EQ(c.ports, 2);
	EXPECT_EQ(c.mtu, 1500);

	const profile_config &p = *c.profile(5);
	EXPECT_EQ(p.algorithm, RTE_MTR_TRTCM_RFC4115);
	EXPECT_TRUE(p.packet_mode);
	EXPECT_EQ(p.cir, 5000U);
	EXPECT_EQ(p.eir, 1000U);
	EXPECT_EQ(p.cbs, 32U);
	EXPECT_EQ(p.ebs, 1U);

	const policy_config &y = *c.policy(7);
	EXPECT_EQ(y.colours[RTE_COLOR_GREEN].action, colour_config::PASS);
	EXPECT_EQ(y.colours[RTE_COLOR_YELLOW].action, colour_config::DSCP);
	EXPECT_EQ(y.colours[RTE_COLOR_YELLOW].dscp, 63);
	EXPECT_EQ(y.colours[RTE_COLOR_RED].action, colour_config::DROP);

	const meter_config &m = *c.meter(9);
	EXPECT_EQ(m.port, 1);
	EXPECT_EQ(m.side, meter_side::TX);
	EXPECT_TRUE(m.original_length);
	EXPECT_TRUE(m.colour_aware);
	EXPECT_FALSE(m.enable);

	ASSERT_THAT(c.flows, SizeIs(1));
	const flow_config &f = c.flows[0];
	EXPECT_EQ(f.meter, 9U);
	EXPECT_EQ(f.port, 1);
	EXPECT_TRUE(f.egress);
	EXPECT_EQ(f.priority, 2U);
	EXPECT_EQ(f.vlan, 100);
	EXPECT_EQ(f.family(), AF_INET);
	EXPECT_EQ(f.src->prefix, 8U);
	EXPECT_EQ(f.src->bytes[0], 10);
	EXPECT_EQ(f.dst->prefix, 32U);
	EXPECT_EQ(f.dst->bytes[3], 2);
	EXPECT_EQ(f.dscp, 46);
	EXPECT_EQ(f.protocol, IPPROTO_UDP);
	EXPECT_EQ(f.sport, 1);
	EXPECT_EQ(f.dport, 65535);
}

TEST(Config, PeakRateAndBurstAreThoseOfRfc2698)
{
	const profile_config p =
		Read("[profile 1]\nalgorithm = rfc2698\ncir = 8kbit/s\npir = 16kbit/s\n"
		     "cbs = 3B\npbs = 4B\n" +
			METER)
			.profiles[0];
	EXPECT_EQ(p.algorithm, RTE_MTR_TRTCM_RFC2698);
	EXPECT_EQ(p.cir, 1000U);
	EXPECT_EQ(p.eir, 2000U);
	EXPECT_EQ(p.cbs, 3U);
	EXPECT_EQ(p.ebs, 4U);
}

TEST(Config, AFlowTakesPortAndDirectionOfItsMeter)
{
	const meters_config c = Read("[setup]\nports = 2\n" + PROFILE +
		"[meter 9]\nport = 1\ndirection = tx\nprofile = 1\n[flow 1]\nmeter = 9\n");
	EXPECT_TRUE(c.flows[0].egress);
	EXPECT_EQ(c.flows[0].port, 1);
	EXPECT_EQ(c.flows[0].family(), 0);
}

TEST(Config, Ipv6AddressesHaveAPrefixOf128)
{
	const meters_config c =
		Read(PROFILE + METER + "[flow 1]\nmeter = 9\nsrc = 2001:db8::/32\n");
	EXPECT_EQ(c.flows[0].family(), AF_INET6);
	EXPECT_EQ(c.flows[0].src->prefix, 32U);
	EXPECT_EQ(c.flows[0].src->bytes[3], 0xb8);
}

TEST(Config, AWrongLineIsRefusedWithItsNumber)
{
	EXPECT_EQ(Refusal("cir = 1pps\n"),
		":1: \"cir = 1pps\" stands before the first [section]; accepted are keys in one");
	EXPECT_EQ(Refusal("\n[profile 1\n"),
		":2: \"[profile 1\": accepted is [name] or [name number]");
	EXPECT_EQ(Refusal("[setup]\nports 2\n"),
		":2: \"ports 2\": accepted are [section], key = value and ; comment");
	EXPECT_EQ(Refusal("[setup]\nports =\n"),
		":2: \"ports =\": accepted are [section], key = value and ; comment");
	EXPECT_THAT(Refusal("[setup]\nports = " + std::string(300, '1')),
		HasSubstr(":2: 308 characters"));
}

TEST(Config, AByteOfZeroIsRefusedWithItsLine)
{
	using namespace std::string_literals;

	EXPECT_EQ(
		Refusal("[meter 9]\nprofile\0 = 1\n"s), ":2: a byte of value 0; accepted is text");
}

TEST(Config, AWrongSectionIsRefused)
{
	EXPECT_EQ(Refusal("[profiles]\n"),
		":1: [profiles]: unknown section; accepted are setup, profile N, "
		"policy N, meter N, flow N");
	EXPECT_EQ(Refusal("[profile x]\n"),
		":1: [profile x]: accepted is a number from 0 to 4294967295");
	EXPECT_EQ(Refusal("[profile]\nx=1\n"),
		":1: [profile]: accepted is [profile N] with N from 0 to "
		"4294967295");
	EXPECT_EQ(Refusal("[setup 1]\nports=1\n"),
		":1: [setup 1]: accepted is [setup], without a number");
	EXPECT_EQ(Refusal("[setup]\n[setup]\n"), ":2: [setup]: stands twice; accepted is one");
	EXPECT_EQ(Refusal(PROFILE + PROFILE),
		":6: [profile 1]: stands twice; accepted is one section for each id");
	EXPECT_EQ(Refusal("[policy 0]\nred = drop\n"),
		":1: [policy 0]: accepted is [policy N] with N from 1 to 4294967295");
	EXPECT_EQ(Refusal(PROFILE + "[meter 0]\ndirection = rx\nprofile = 1\n"),
		":6: [meter 0]: accepted is [meter N] with N from 1 to 4294967295");
	EXPECT_EQ(Refusal(PROFILE), ": no meters; accepted is at least one [meter N]");
}

TEST(Config, AWrongKeyIsRefused)
{
	EXPECT_EQ(Refusal("[setup]\nport = 1\n"),
		":2: port: \"1\": unknown key; accepted are interface, shapers, ports, mtu");
	EXPECT_EQ(Refusal("[setup]\nports = 1\nports = 2\n"),
		":3: ports: \"2\": given twice in this section; accepted is each key once");
	EXPECT_EQ(Refusal("[profile 1]\ncir = 1pps\n"),
		":1: [profile 1]: algorithm is missing; accepted is rfc2697, rfc2698 or rfc4115");
	EXPECT_EQ(Refusal("[profile 1]\nalgorithm = rfc2697\ncir = 1pps\n"),
		":1: [profile 1]: cbs is missing; accepted is a burst such as 32packets");
	EXPECT_EQ(
		Refusal("[profile 1]\nalgorithm = rfc2697\ncir = 1pps\ncbs = 1packets\nebs = 1packets\n"
			"eir = 1pps\n"),
		":6: eir: \"1pps\": unknown key; accepted are algorithm, cir, cbs, ebs");
	EXPECT_EQ(Refusal(PROFILE + "[meter 9]\nprofile = 1\n"),
		":6: [meter 9]: direction is missing; accepted is rx, tx or both");
}

TEST(Config, AWrongValueIsRefusedWithWhatIsAccepted)
{
	EXPECT_EQ(Refusal("[setup]\ninterface = P4\n"),
		":2: interface: \"P4\": accepted are rte_mtr, p4");
	EXPECT_EQ(Refusal("[setup]\nports = 3\n"),
		":2: ports: \"3\": accepted is a number from 1 to 2");
	EXPECT_EQ(Refusal("[setup]\nmtu = 67\n"),
		":2: mtu: \"67\": accepted is a number from 68 to 16384");
	EXPECT_EQ(Refusal("[setup]\nmtu = 16385\n"),
		":2: mtu: \"16385\": accepted is a number from 68 to 16384");
	EXPECT_THAT(Refusal("[profile 1]\nalgorithm = rfc2697\ncir = 2Mbits\n"),
		HasSubstr(":3: cir: \"2Mbits\": unknown unit \"Mbits\"; accepted are bit/s"));
	EXPECT_EQ(Refusal("[profile 1]\nalgorithm = rfc2697\ncir = 2KiB\n"),
		":3: cir: \"2KiB\": accepted is a rate such as 10Mbit/s or 5000pps");
	EXPECT_EQ(Refusal("[profile 1]\nalgorithm = rfc2697\ncir = 2pps\ncbs = 2KiB\n"),
		":4: cbs: \"2KiB\": accepted is a burst such as 32packets, as cir counts packets");
	EXPECT_EQ(Refusal("[profile 1]\nalgorithm = rfc2699\ncir = 2pps\ncbs = 2packets\n"),
		":2: algorithm: \"rfc2699\": accepted are rfc2697, rfc2698, rfc4115");
	EXPECT_EQ(
		Refusal("[profile 1]\nalgorithm = rfc2698\ncir = 2pps\npir = 1pps\ncbs = 2packets\n"
			"pbs = 2packets\n"),
		":4: pir: \"1pps\": accepted is a pir not below cir");
	EXPECT_EQ(Refusal("[policy 1]\nred = block\n"),
		":2: red: \"block\": accepted are pass, drop and dscp N");
	EXPECT_EQ(Refusal("[policy 1]\nred = dscp 64\n"),
		":2: red: \"64\": accepted is a number from 0 to 63");
}

TEST(Config, WhatIsNamedMustBeThere)
{
	EXPECT_EQ(Refusal("[meter 9]\ndirection = rx\nprofile = 1\n"),
		":3: profile: \"1\": there is no [profile 1]; accepted is the number of a [profile N]");
	EXPECT_EQ(Refusal(PROFILE + METER + "policy = 7\n"),
		":9: policy: \"7\": there is no [policy 7]; accepted is the number of a [policy N], or 0");
	EXPECT_EQ(Refusal(PROFILE + METER + "port = 1\n"),
		":9: port: \"1\": accepted is a number from 0 to 0");
	EXPECT_EQ(Refusal(PROFILE + METER + "[flow 1]\nmeter = 8\n"),
		":10: meter: \"8\": there is no [meter 8]; accepted is the number of a [meter N]");
}

TEST(Config, AFlowRuleMustMakeSense)
{
	const auto refusal = [](const std::string &keys) {
		return Refusal(PROFILE + METER + "[flow 1]\nmeter = 9\n" + keys);
	};
	EXPECT_EQ(refusal("dport = 53\n"),
		":11: dport: \"53\": accepted is a port beside protocol = tcp or udp");
	EXPECT_EQ(refusal("src = 10.0.0.256\n"),
		":11: src: \"10.0.0.256\": accepted is an IPv4 or IPv6 address, with /prefix or without");
	EXPECT_EQ(refusal("src = 10.0.0.0/33\n"),
		":11: src: \"33\": accepted is a number from 0 to 32");
	EXPECT_EQ(refusal("src = 10.0.0.1\ndst = ::1\n"),
		":12: dst: \"::1\": accepted is an address of the family of src");
	EXPECT_EQ(refusal("vlan = 4095\n"),
		":11: vlan: \"4095\": accepted is a number from 0 to 4094");
	EXPECT_EQ(refusal("dscp = 64\n"), ":11: dscp: \"64\": accepted is a number from 0 to 63");
}

TEST(Config, TheP4TablesHaveEightBitRowsAndOneSide)
{
	const std::string p4 = "[setup]\ninterface = p4\n";
	EXPECT_EQ(Refusal(p4 + "[profile 256]\n"),
		":3: [profile 256]: accepted is [profile N] with N from 0 "
		"to 255");
	EXPECT_EQ(Refusal(p4 + "[policy 256]\n"),
		":3: [policy 256]: accepted is [policy N] with N from 1 to "
		"255");
	EXPECT_EQ(Refusal(p4 + PROFILE + "[meter 9]\nprofile = 1\ndirection = both\n"),
		":10: direction: \"both\": the P4 tables know one side only; accepted are rx, tx");
}

TEST(Config, AMissingFileIsRefused)
{
	try {
		config_read("no-such.cfg");
		FAIL() << "taken";
	} catch (const vask_meter_error &e) {
		EXPECT_STREQ(e.what(),
			"no-such.cfg: No such file or directory; accepted is a configuration file");
	}
}
