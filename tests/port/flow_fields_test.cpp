/* SPDX-License-Identifier: BSD-3-Clause */
#include "flow_support.h"

#include <cstring>

#include "vask_flow_fields.h"

using namespace vask_test;

namespace
{

constexpr uint16_t ETH = VASK_FLOW_HAS_ETH;
constexpr uint16_t TAG = ETH | VASK_FLOW_HAS_VLAN;
constexpr uint16_t TAG2 = TAG | VASK_FLOW_HAS_VLAN2;
constexpr uint16_t IP4 = ETH | VASK_FLOW_HAS_IPV4;
constexpr uint16_t IP6 = ETH | VASK_FLOW_HAS_IPV6;
constexpr uint16_t UDP4 = IP4 | VASK_FLOW_HAS_UDP;
constexpr uint16_t TCP4 = IP4 | VASK_FLOW_HAS_TCP;
constexpr uint16_t UDP6 = IP6 | VASK_FLOW_HAS_UDP;

vask_flow_fields
Read(rte_mbuf *mbuf)
{
	vask_flow_fields fields = {};

	vask_flow_fields_read(mbuf, &fields);
	return fields;
}

/* What is found in a frame that ends where reading must end. */
vask_flow_fields
Read(const Bytes &frame)
{
	return Read(MakeGuardedMbuf(frame).get());
}

TEST(FlowFields, EthernetHeaderIsReadAsOnTheWire)
{
	const vask_flow_fields f = Read(Eth(Raw(0x88cc, 46), 0x22, 0x11));

	EXPECT_EQ(f.present, ETH);
	EXPECT_EQ(f.eth.dst_addr.addr_bytes[5], 0x22);
	EXPECT_EQ(f.eth.src_addr.addr_bytes[5], 0x11);
	EXPECT_EQ(f.eth.ether_type, rte_cpu_to_be_16(0x88cc));
}

TEST(FlowFields, Ipv4UdpHasAddressesAndPorts)
{
	const vask_flow_fields f =
		Read(Eth(Ipv4({.src = 0x01020304, .dst = 0x05060708, .tos = 0xb8}, Udp(4000, 53))));

	EXPECT_EQ(f.present, UDP4);
	EXPECT_EQ(f.ipv4.src_addr, rte_cpu_to_be_32(0x01020304));
	EXPECT_EQ(f.ipv4.dst_addr, rte_cpu_to_be_32(0x05060708));
	EXPECT_EQ(f.ipv4.type_of_service, 0xb8);
	EXPECT_EQ(f.l4_ports[0], rte_cpu_to_be_16(4000));
	EXPECT_EQ(f.l4_ports[1], rte_cpu_to_be_16(53));
}

TEST(FlowFields, TcpHeaderIsReadWhole)
{
	const vask_flow_fields f = Read(Eth(Ipv4({}, Tcp(1, 2))));
	const Bytes rest(f.l4_rest, f.l4_rest + 16);

	EXPECT_EQ(f.present, TCP4);
	EXPECT_EQ(rest, Bytes({1, 2, 3, 4, 5, 6, 7, 8, 0x50, 0x10, 0x03, 0xe8, 0, 0, 0, 0}));
}

TEST(FlowFields, OtherProtocolsHaveNoPorts)
{
	const vask_flow_fields f = Read(Eth(Ipv4({}, Raw(132, 20))));

	EXPECT_EQ(f.present, IP4);
	EXPECT_EQ(f.l4_ports[0], 0);
	EXPECT_EQ(f.l4_ports[1], 0);
}

TEST(FlowFields, OneTagIsTheOuterOne)
{
	const vask_flow_fields f = Read(Eth(Vlan(0x6005, Ipv4({}, Udp(1, 2)))));

	EXPECT_EQ(f.present, TAG | VASK_FLOW_HAS_IPV4 | VASK_FLOW_HAS_UDP);
	EXPECT_EQ(f.eth.ether_type, rte_cpu_to_be_16(0x8100));
	EXPECT_EQ(f.vlan[0].vlan_tci, rte_cpu_to_be_16(0x6005));
	EXPECT_EQ(f.vlan[0].eth_proto, rte_cpu_to_be_16(0x0800));
}

TEST(FlowFields, TwoTagsAreOuterAndInner)
{
	for (uint16_t tpid : {0x8100, 0x88a8, 0x9100}) {
		const vask_flow_fields f = Read(Eth(Vlan(7, Vlan(8, Ipv6(Tcp(1, 2))), tpid)));

		EXPECT_EQ(f.present, TAG2 | VASK_FLOW_HAS_IPV6 | VASK_FLOW_HAS_TCP);
		EXPECT_EQ(f.eth.ether_type, rte_cpu_to_be_16(tpid));
		EXPECT_EQ(f.vlan[0].vlan_tci, rte_cpu_to_be_16(7));
		EXPECT_EQ(f.vlan[0].eth_proto, rte_cpu_to_be_16(0x8100));
		EXPECT_EQ(f.vlan[1].vlan_tci, rte_cpu_to_be_16(8));
		EXPECT_EQ(f.vlan[1].eth_proto, rte_cpu_to_be_16(0x86dd));
	}
}

TEST(FlowFields, BehindAThirdTagNothingIsLookedAt)
{
	const vask_flow_fields f = Read(Eth(Vlan(1, Vlan(2, Vlan(3, Ipv4({}, Udp(1, 2)))))));

	EXPECT_EQ(f.present, TAG2 | VASK_FLOW_HAS_VLAN3);
}

TEST(FlowFields, Ipv4OptionsAreSkipped)
{
	for (unsigned options : {4u, 20u, 40u}) {
		const vask_flow_fields f =
			Read(Eth(Ipv4({.option_bytes = options}, Udp(4000, 53))));

		EXPECT_EQ(f.present, UDP4);
		EXPECT_EQ(f.l4_ports[1], rte_cpu_to_be_16(53));
	}
}

TEST(FlowFields, FragmentsHaveNoPortsTheFirstOneIncluded)
{
	EXPECT_EQ(Read(Eth(Ipv4({.fragment = 0x2000}, Udp(1, 2)))).present, IP4);
	EXPECT_EQ(Read(Eth(Ipv4({.fragment = 0x2001}, Udp(1, 2)))).present, IP4);
	EXPECT_EQ(Read(Eth(Ipv4({.fragment = 0x0001}, Udp(1, 2)))).present, IP4);
	EXPECT_EQ(Read(Eth(Ipv4({.fragment = 0x1fff}, Udp(1, 2)))).present, IP4);
	EXPECT_EQ(Read(Eth(Ipv4({.fragment = 0x4000}, Udp(1, 2)))).present, UDP4);
	EXPECT_EQ(Read(Eth(Ipv6(FragmentExt(0x0001, Udp(1, 2))))).present, IP6);
	EXPECT_EQ(Read(Eth(Ipv6(FragmentExt(0x0008, Udp(1, 2))))).present, IP6);
}

TEST(FlowFields, AWholeDatagramWithAFragmentHeaderHasPorts)
{
	const vask_flow_fields f = Read(Eth(Ipv6(FragmentExt(0x0006, Udp(1, 2)))));

	EXPECT_EQ(f.present, UDP6);
	EXPECT_EQ(f.ipv6_ext, VASK_FLOW_EXT_FRAG);
}

TEST(FlowFields, MalformedIpv4HeadersAreNone)
{
	Bytes version = Eth(Ipv4({}, Udp(1, 2)));
	Bytes short_header = version;

	version[14] = 0x65;
	short_header[14] = 0x44;
	EXPECT_EQ(Read(version).present, ETH);
	EXPECT_EQ(Read(short_header).present, ETH);
	EXPECT_EQ(Read(Eth(Ipv4({.total_length = 19}, Udp(1, 2)))).present, ETH);
	EXPECT_EQ(Read(Eth(Ipv4({.option_bytes = 4, .total_length = 23}, Udp(1, 2)))).present, ETH);
}

TEST(FlowFields, PaddingBehindTheIpv4LengthIsNoHeader)
{
	EXPECT_EQ(Read(Eth(Ipv4({.total_length = 20}, Udp(1, 2)))).present, IP4);
	EXPECT_EQ(Read(Eth(Ipv4({.total_length = 27}, Udp(1, 2)))).present, IP4);
	EXPECT_EQ(Read(Eth(Ipv4({.total_length = 28}, Udp(1, 2)))).present, UDP4);
	EXPECT_EQ(Read(Eth(Ipv4({.total_length = 39}, Tcp(1, 2)))).present, IP4);
	EXPECT_EQ(Read(Eth(Ipv4({.total_length = 40}, Tcp(1, 2)))).present, TCP4);
}

TEST(FlowFields, ALongerLengthThanTheFrameHidesNothingThatIsThere)
{
	EXPECT_EQ(Read(Eth(Ipv4({.total_length = 65535}, Udp(1, 2)))).present, UDP4);
}

TEST(FlowFields, MalformedIpv6HeadersAreNone)
{
	Bytes version = Eth(Ipv6(Udp(1, 2)));
	Bytes empty = version;

	version[14] = 0x45;
	empty[18] = empty[19] = 0;
	EXPECT_EQ(Read(version).present, ETH);
	EXPECT_EQ(Read(empty).present, IP6);
}

TEST(FlowFields, EveryIpv6ExtensionHeaderIsWalkedAndTold)
{
	const struct {
		uint8_t type;
		uint16_t bit;
	} walked[] = {{0, VASK_FLOW_EXT_HOP}, {43, VASK_FLOW_EXT_ROUTE}, {51, VASK_FLOW_EXT_AUTH},
		{60, VASK_FLOW_EXT_DEST}, {135, VASK_FLOW_EXT_MOBILITY}, {139, VASK_FLOW_EXT_HIP},
		{140, VASK_FLOW_EXT_SHIM6}};

	for (const auto &ext : walked)
		for (unsigned units : {1u, 3u}) {
			const vask_flow_fields f =
				Read(Eth(Ipv6(Ext(ext.type, Udp(4000, 53), units))));

			EXPECT_EQ(f.present, UDP6) << unsigned(ext.type);
			EXPECT_EQ(f.ipv6_ext, ext.bit) << unsigned(ext.type);
			EXPECT_EQ(f.l4_ports[1], rte_cpu_to_be_16(53));
		}
}

TEST(FlowFields, ExtensionHeadersAddUpAndEncryptionEndsTheWalk)
{
	const vask_flow_fields chain = Read(Eth(Ipv6(Ext(0, Ext(60, Ext(43, Udp(4000, 53), 2))))));
	const vask_flow_fields encrypted = Read(Eth(Ipv6(Ext(0, Ext(50, Udp(1, 2))))));

	EXPECT_EQ(chain.present, UDP6);
	EXPECT_EQ(chain.ipv6_ext, VASK_FLOW_EXT_HOP | VASK_FLOW_EXT_DEST | VASK_FLOW_EXT_ROUTE);
	EXPECT_EQ(chain.l4_ports[0], rte_cpu_to_be_16(4000));
	EXPECT_EQ(encrypted.present, IP6);
	EXPECT_EQ(encrypted.ipv6_ext, VASK_FLOW_EXT_HOP | VASK_FLOW_EXT_ESP);
}

TEST(FlowFields, HeadersAreLookedForInTheFirst256Bytes)
{
	/* 14 + 40 + 8 x 24 = 246: the UDP header ends at 254; eight more bytes put it past 256 */
	const Layer near = Ipv6(Ext(60, Udp(1, 2, 100), 24));
	const Layer far = Ipv6(Ext(60, Udp(1, 2, 100), 25));

	EXPECT_EQ(Read(Eth(near)).present, UDP6);
	EXPECT_EQ(Read(Eth(far)).present, IP6);
	EXPECT_EQ(Read(MakeMbuf(Eth(far), {100, 200}).get()).present, IP6);
}

std::vector<Bytes>
Samples()
{
	return {Eth(Ipv4({}, Udp(1, 2))), Eth(Ipv4({.option_bytes = 8}, Tcp(1, 2))),
		Eth(Vlan(5, Vlan(6, Ipv4({}, Tcp(1, 2))), 0x88a8)),
		Eth(Ipv6(Ext(0, FragmentExt(6, Ext(51, Udp(1, 2), 2)))))};
}

TEST(FlowFields, ATruncatedFrameHasTheHeadersThatAreWhole)
{
	/* eth 14, ipv4 20, udp 8 */
	const Bytes frame = Eth(Ipv4({}, Udp(1, 2)));

	for (size_t n = 0; n <= frame.size(); n++) {
		const uint16_t want = n < 14 ? 0 : n < 34 ? ETH : n < 42 ? IP4 : UDP4;

		EXPECT_EQ(Read(Bytes(frame.begin(), frame.begin() + n)).present, want) << n;
	}
}

TEST(FlowFields, TruncationNeverAddsAHeaderNorReadsPastTheEnd)
{
	for (const Bytes &frame : Samples()) {
		uint16_t before = 0;

		for (size_t n = 0; n <= frame.size(); n++) {
			const uint16_t now = Read(Bytes(frame.begin(), frame.begin() + n)).present;

			EXPECT_EQ(before & ~now, 0) << n;
			before = now;
		}
		EXPECT_EQ(before, Read(frame).present);
	}
}

TEST(FlowFields, SegmentsMakeNoDifferenceWhereverTheyAreCut)
{
	for (const Bytes &frame : Samples()) {
		const vask_flow_fields whole = Read(MakeMbuf(frame).get());

		for (size_t cut = 1; cut < frame.size(); cut++) {
			vask_flow_fields cut_once = Read(MakeMbuf(frame, {cut}).get());

			EXPECT_EQ(memcmp(&cut_once, &whole, sizeof(whole)), 0) << cut;
		}
		std::vector<size_t> bytes;
		for (size_t cut = 1; cut < 60; cut++)
			bytes.push_back(cut);
		vask_flow_fields cut_up = Read(MakeMbuf(frame, bytes).get());
		EXPECT_EQ(memcmp(&cut_up, &whole, sizeof(whole)), 0);
	}
}

} // namespace
