/* SPDX-License-Identifier: BSD-3-Clause */

/* Frames as the card reads them: every form of header, and none. */

#include <rte_ether.h>

#include "frame_test.h"

namespace
{

int
Dscp(const std::vector<uint8_t> &bytes)
{
	rte_mbuf *frame = MakeFrame(bytes);
	const int dscp = softcard_frame_dscp(frame);
	rte_pktmbuf_free(frame);
	return dscp;
}

TEST_F(Frame, TheDscpIsTheHighSixBitsOfTheTypeOfService)
{
	for (unsigned dscp = 0; dscp < 64; dscp++)
		for (unsigned ecn = 0; ecn < 4; ecn++)
			EXPECT_EQ(Dscp(Ipv4Bytes(64, dscp << 2 | ecn)), static_cast<int>(dscp));
}

TEST_F(Frame, AHeaderBehindOneOrTwoTagsIsFound)
{
	EXPECT_EQ(Dscp(Ipv4Bytes(64, 46 << 2, {0x8100})), 46);
	EXPECT_EQ(Dscp(Ipv4Bytes(64, 46 << 2, {0x88a8})), 46);
	EXPECT_EQ(Dscp(Ipv4Bytes(64, 46 << 2, {0x88a8, 0x8100})), 46);
	EXPECT_EQ(Dscp(Ipv4Bytes(64, 46 << 2, {0x8100, 0x8100})), 46);
	EXPECT_EQ(Dscp(Ipv4Bytes(64, 46 << 2, {0x9100, 0x8100})), 46);
}

TEST_F(Frame, AHeaderBehindMoreTagsOrAnotherTagIsNot)
{
	EXPECT_EQ(Dscp(Ipv4Bytes(64, 46 << 2, {0x88a8, 0x8100, 0x8100})), -1);
	EXPECT_EQ(Dscp(Ipv4Bytes(64, 46 << 2, {0x8847})), -1);
}

TEST_F(Frame, TagsAreCountedWhateverTheyCarry)
{
	const std::vector<std::pair<std::vector<uint16_t>, uint32_t>> rows = {
		{{}, 0}, {{0x8100}, 1}, {{0x88a8, 0x8100}, 2}, {{0x88a8, 0x8100, 0x8100}, 2}};
	for (const auto &[tpids, tags] : rows) {
		rte_mbuf *pkt = MakeFrame(Ipv4Bytes(64, 0, tpids));
		EXPECT_EQ(softcard_frame_tags(pkt), tags);
		rte_pktmbuf_free(pkt);
	}
}

TEST_F(Frame, OptionsAndFragmentsDoNotHideTheDscp)
{
	EXPECT_EQ(Dscp(Ipv4Bytes(64, 12 << 2, {}, 4)), 12);
	EXPECT_EQ(Dscp(Ipv4Bytes(74, 12 << 2, {}, 40)), 12);

	auto fragment = Ipv4Bytes(64, 12 << 2);
	fragment[RTE_ETHER_HDR_LEN + 6] = 0x20; /* more fragments, at 8 * 3 */
	fragment[RTE_ETHER_HDR_LEN + 7] = 0x03;
	EXPECT_EQ(Dscp(fragment), 12);
}

TEST_F(Frame, Ipv6AndArpHaveNone)
{
	auto bytes = Ipv4Bytes(64, 46 << 2);
	bytes[12] = 0x86;
	bytes[13] = 0xdd;
	EXPECT_EQ(Dscp(bytes), -1);
	bytes[12] = 0x08;
	bytes[13] = 0x06;
	EXPECT_EQ(Dscp(bytes), -1);
}

TEST_F(Frame, MalformedHeadersHaveNone)
{
	auto bytes = Ipv4Bytes(64, 46 << 2);

	bytes[14] = 0x65; /* version 6 under the type of IPv4 */
	EXPECT_EQ(Dscp(bytes), -1);
	bytes[14] = 0x44; /* header of 16 bytes */
	EXPECT_EQ(Dscp(bytes), -1);
	bytes[14] = 0x4f; /* header of 60 bytes in 50 */
	EXPECT_EQ(Dscp(bytes), -1);
	bytes[14] = 0x45;
	EXPECT_EQ(Dscp(bytes), 46);
	bytes[16] = 0; /* total length 19 */
	bytes[17] = 19;
	EXPECT_EQ(Dscp(bytes), -1);
	bytes[17] = 20;
	EXPECT_EQ(Dscp(bytes), 46);
}

TEST_F(Frame, AHeaderCutOffAnywhereHasNone)
{
	for (const auto &tpids :
		std::vector<std::vector<uint16_t>>{{}, {0x8100}, {0x88a8, 0x8100}}) {
		const auto bytes = Ipv4Bytes(64, 46 << 2, tpids, 4);
		const size_t end = RTE_ETHER_HDR_LEN + 4 * tpids.size() + 24;

		for (size_t length = 0; length < end; length++)
			EXPECT_EQ(Dscp({bytes.begin(), bytes.begin() + length}), -1) << length;
		EXPECT_EQ(Dscp({bytes.begin(), bytes.begin() + end}), 46);
	}
}

TEST_F(Frame, TheColourIsTheDropPrecedenceOfAssuredForwarding)
{
	/* AF11 to AF43 of RFC 2597 */
	const std::vector<std::array<unsigned, 3>> classes = {
		{10, 12, 14}, {18, 20, 22}, {26, 28, 30}, {34, 36, 38}};
	std::array<rte_color, 64> expected;
	expected.fill(RTE_COLOR_GREEN);
	for (const auto &precedences : classes) {
		expected[precedences[1]] = RTE_COLOR_YELLOW;
		expected[precedences[2]] = RTE_COLOR_RED;
	}
	for (unsigned dscp = 0; dscp < 64; dscp++) {
		Keep(MakeIpv4(64, dscp << 2 | 3));
		EXPECT_EQ(softcard_frame_color(frame), expected[dscp]) << dscp;
		rte_pktmbuf_free(frame);
		frame = nullptr;
	}
}

TEST_F(Frame, AFrameWithoutAHeaderIsGreen)
{
	Keep(MakeFrame(std::vector<uint8_t>(10)));
	EXPECT_EQ(softcard_frame_color(frame), RTE_COLOR_GREEN);
}

} // namespace
