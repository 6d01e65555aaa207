/* SPDX-License-Identifier: BSD-3-Clause */
/* What rte_eth_dev_priv_dump() prints. */
#include "port_test.h"

#include <rte_cycles.h>
#include <rte_version.h>

#include "rte_pmd_net_vask1.h"

#if RTE_VERSION >= RTE_VERSION_NUM(22, 3, 0, 0)

namespace vask_test
{

class Dump : public PortTest
{
      protected:
	std::string dump(uint16_t port)
	{
		char *text = nullptr;
		size_t size = 0;
		FILE *file = open_memstream(&text, &size);

		EXPECT_EQ(rte_eth_dev_priv_dump(port, file), 0);
		fclose(file);
		std::string said(text, size);
		free(text);
		return said;
	}

	static void expect_in(const std::string &text, const std::string &part)
	{
		EXPECT_NE(text.find(part), std::string::npos) << part << "\nis not in\n" << text;
	}
};

TEST_F(Dump, ShowsWhatWasAskedBesideWhatTheCardHolds)
{
	Wire wire = make_wire("wire");

	ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire,clock=capture,tick=ns,sfi=7"), 0);
	const uint16_t port = port_of("net_vask1_0");
	ASSERT_EQ(add_profile(port, 5, 100000, 20000, 20480), 0);
	ASSERT_EQ(add_policy(port, 7), 0);
	ASSERT_EQ(create_meter(port, 9, 5, 7, RECEIVE | ORIGINAL_LENGTH), 0);
	ASSERT_EQ(start(port), 0);
	ASSERT_EQ(rte_eth_dev_set_mtu(port, 1500), 0);
	for (int i = 0; i < 50; i++)
		put(wire, {.length = 1000, .time_ns = 1000});
	receive(port);

	const std::string text = dump(port);
	expect_in(text, "port 1 net_vask1_0\n");
	expect_in(text, "  sfi                : 7\n");
	expect_in(text, "  uplink             : net_ring_wire\n");
	expect_in(text, "  MTU                : 1500\n");
	expect_in(text, "  receive binding    : hardware meter 1\n");
	/* 100000 bytes/s, 8 % more, in 100 kbit/s: 8; the word is 8 << 11 | 1 << 3 | 1 */
	expect_in(text,
		"  scheduler shaper   : register 0x4009, 800000 bit/s, burst 16384 bytes "
		"(observed only)\n");
	expect_in(text, "  port shaper        : register 0, off\n");
	expect_in(text, "  meters             : 4094 of 4096 free\n");
	expect_in(text, "  profiles           : 254 of 256 free\n");
	expect_in(text, "  policies           : 253 of 256 free\n");
	expect_in(text,
		"  profile 5: hardware 1, RFC 2697, byte mode, used by 1\n"
		"    committed rate    : asked 100000, held 96000 bytes/s (-4.00 %)\n"
		"    committed burst   : asked 20000, held 19456 bytes (-2.72 %)\n");
	expect_in(text, "    excess/peak burst : asked 20480, held 20480 bytes (+0.00 %)\n");
	expect_in(text, "  policy 7: hardware 1, green pass, yellow pass, red drop, used by 1\n");
	expect_in(text,
		"  meter 9: hardware 1, sfi 7, receive, enabled, profile 5, policy 7, original "
		"length\n");
	/* 19456 bytes are 19 packets, 20480 bytes 20 */
	expect_in(text, "green 19, yellow 20, red 11 packets; dropped 11 packets, 11000 bytes");
	expect_in(text, "buckets 456/19456 and 480/20480");
}

TEST_F(Dump, ShowsTheUnitThatTheCardCountsIn)
{
	ASSERT_EQ(probe("net_vask1_0", ""), 0);
	p4_meter_profile_t row = {};

	row.cir = 1000;
	row.packet_mode = 1;
	ASSERT_EQ(rte_pmd_net_vask1_profile_add(5, &row), 0);
	/* bit 0 is all that reaches the card, which then counts 8000 bytes for each unit */
	row.packet_mode = 2;
	ASSERT_EQ(rte_pmd_net_vask1_profile_add(6, &row), 0);
	const std::string text = dump(port_of("net_vask1_0"));
	expect_in(text,
		"  profile 5: hardware 1, RFC 2697, packet mode, used by 0\n"
		"    committed rate    : asked 1000, held 1000 packets/s (+0.00 %)\n");
	expect_in(text,
		"  profile 6: hardware 2, RFC 2697, byte mode, used by 0\n"
		"    committed rate    : asked 1000, held 8000000 bytes/s (+799900.00 %)\n");
}

TEST_F(Dump, MarksAShaperBelowItsRegistersResolution)
{
	ASSERT_EQ(probe("net_vask1_0", ""), 0);
	const uint16_t port = port_of("net_vask1_0");

	ASSERT_EQ(add_profile(port, 5, 11574, 20480, 20480), 0);
	ASSERT_EQ(create_meter(port, 9, 5, 0, RECEIVE), 0);
	expect_in(dump(port), "scheduler shaper   : register 0x9, BELOW ITS RESOLUTION");
}

TEST_F(Dump, TellsTheRateOfTheLastSecond)
{
	Wire wire = make_wire("wire");
	uint64_t now = 0;
	bool told = false;

	ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire,clock=capture,tick=ns"), 0);
	const uint16_t port = port_of("net_vask1_0");
	ASSERT_EQ(add_profile(port, 5, 80000000, 20480, 20480), 0);
	ASSERT_EQ(add_policy(port, 7, false), 0);
	ASSERT_EQ(create_meter(port, 9, 5, 7, RECEIVE), 0);
	ASSERT_EQ(start(port), 0);
	/* 1000 bytes each millisecond of the capture's time, whatever time it takes: 10^6 bytes/s */
	for (int i = 0; i < 500 && !told; i++) {
		put(wire, {.length = 1000, .time_ns = now += 1000000});
		receive(port);
		rte_delay_us_sleep(10000);
		told = dump(port).find("passed 1000000 bytes/s") != std::string::npos;
	}
	EXPECT_TRUE(told) << dump(port);
}

TEST_F(Dump, IsGivenWithoutAnUplinkAndWithFaultsSet)
{
	ASSERT_EQ(probe("net_vask1_0",
			  "uplink=net_ring_wire,fault=vask_p4_mep_read_meter_inst:every:-5"),
		0);
	const std::string text = dump(port_of("net_vask1_0"));

	expect_in(text, "  uplink             : net_ring_wire (missing)\n");
	expect_in(text, "  policy 0: hardware 255, green pass, yellow pass, red drop, used by 0\n");
}

} // namespace vask_test

#endif
