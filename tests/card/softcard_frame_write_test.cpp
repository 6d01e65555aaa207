/* SPDX-License-Identifier: BSD-3-Clause */

/* Frames as the card changes them: whole, split, shared, cut off or made up. */

#include <random>

#include <rte_ether.h>
#include <rte_ip.h>

#include "frame_test.h"

namespace
{

using FrameWrite = Frame;

/* A frame whose segments have those lengths; the last one takes what is left. */
rte_mbuf *
MakeSplit(const std::vector<uint8_t> &bytes, const std::vector<size_t> &lengths)
{
	rte_mbuf *frame = nullptr;
	size_t at = 0;

	for (size_t i = 0; i <= lengths.size(); i++) {
		const size_t n = i < lengths.size() ? std::min(lengths[i], bytes.size() - at)
						    : bytes.size() - at;
		rte_mbuf *segment = MakeFrame({bytes.begin() + at, bytes.begin() + at + n});
		at += n;
		if (frame == nullptr)
			frame = segment;
		else
			EXPECT_EQ(rte_pktmbuf_chain(frame, segment), 0);
	}
	return frame;
}

/* The header checksum over the IPv4 header as it stands: 0 when it is right. */
uint16_t
HeaderSum(const std::vector<uint8_t> &bytes, size_t at = RTE_ETHER_HDR_LEN)
{
	return static_cast<uint16_t>(~rte_raw_cksum(&bytes.at(at), (bytes.at(at) & 15) * 4));
}

TEST_F(FrameWrite, AHeaderSplitAnywhereIsReadAndRewritten)
{
	const auto before = Ipv4Bytes(80, 46 << 2 | 1, {0x88a8, 0x8100}, 8);
	const size_t at = RTE_ETHER_HDR_LEN + 8;
	auto after = before;
	after[at + 1] = 10 << 2 | 1;

	for (size_t first = 1; first < before.size(); first++)
		for (size_t second : {1, 2, 5, 80}) {
			Keep(MakeSplit(before, {first, second, 0}));
			ASSERT_EQ(softcard_frame_dscp(frame), 46);
			ASSERT_TRUE(softcard_frame_dscp_write(&frame, 10));
			auto bytes = BytesOf(frame);
			ASSERT_EQ(HeaderSum(bytes, at), 0) << first << " " << second;
			bytes[at + 10] = before[at + 10];
			bytes[at + 11] = before[at + 11];
			ASSERT_EQ(bytes, after);
			rte_pktmbuf_free(frame);
			frame = nullptr;
		}
}

TEST_F(FrameWrite, EveryDscpReplacesEveryOtherWithARightChecksumAndTheSameEcn)
{
	for (unsigned from = 0; from < 256; from++)
		for (unsigned to = 0; to < 64; to++) {
			Keep(MakeIpv4(34, from));
			ASSERT_TRUE(softcard_frame_dscp_write(&frame, to));
			const auto bytes = BytesOf(frame);
			ASSERT_EQ(bytes[15], to << 2 | (from & 3));
			ASSERT_EQ(HeaderSum(bytes), 0);
			rte_pktmbuf_free(frame);
			frame = nullptr;
		}
}

TEST_F(FrameWrite, AWrongChecksumStaysAsWrongAsItWas)
{
	auto bytes = Ipv4Bytes(64, 0);
	bytes[24] ^= 0x12;
	bytes[25] ^= 0x34;
	const uint16_t wrong = HeaderSum(bytes);

	Keep(MakeFrame(bytes));
	ASSERT_TRUE(softcard_frame_dscp_write(&frame, 63));
	EXPECT_NE(wrong, 0);
	EXPECT_EQ(HeaderSum(BytesOf(frame)), wrong);
}

TEST_F(FrameWrite, AChecksumLeftToTheWireIsNotTouched)
{
	auto bytes = Ipv4Bytes(64, 0);
	bytes[24] = bytes[25] = 0;
	Keep(MakeFrame(bytes))->ol_flags |= RTE_MBUF_F_TX_IP_CKSUM | RTE_MBUF_F_TX_IPV4;
	ASSERT_TRUE(softcard_frame_dscp_write(&frame, 63));
	bytes[15] = 63 << 2;
	EXPECT_EQ(BytesOf(frame), bytes);
}

TEST_F(FrameWrite, OnlyTheDscpAndTheChecksumChange)
{
	auto bytes = Ipv4Bytes(100, 0, {0x8100}, 12);
	Keep(MakeFrame(bytes));
	ASSERT_TRUE(softcard_frame_dscp_write(&frame, 33));
	const auto now = BytesOf(frame);
	for (size_t i = 0; i < bytes.size(); i++) {
		const bool may_change = i == 19 || i == 28 || i == 29;
		EXPECT_TRUE(may_change || now[i] == bytes[i]) << i;
	}
}

TEST_F(FrameWrite, AFrameWithoutAHeaderIsNotWritten)
{
	const std::vector<uint8_t> bytes(64, 0x45);
	Keep(MakeFrame(bytes));
	EXPECT_FALSE(softcard_frame_dscp_write(&frame, 10));
	EXPECT_EQ(BytesOf(frame), bytes);
}

TEST_F(FrameWrite, TheSharersOfACloneKeepTheirDscp)
{
	rte_mbuf *original = MakeIpv4(64, 0);
	const auto before = BytesOf(original);
	Keep(rte_pktmbuf_clone(original, Pool()));
	frame->port = 7;

	ASSERT_TRUE(softcard_frame_dscp_write(&frame, 10));
	EXPECT_EQ(BytesOf(original), before);
	EXPECT_EQ(softcard_frame_dscp(frame), 10);
	EXPECT_EQ(HeaderSum(BytesOf(frame)), 0);
	EXPECT_EQ(frame->port, 7);
	EXPECT_TRUE(RTE_MBUF_DIRECT(frame));
	EXPECT_EQ(rte_mbuf_refcnt_read(original), 1);
	rte_pktmbuf_free(original);
}

TEST_F(FrameWrite, TheOriginalOfACloneIsNotWrittenInPlaceEither)
{
	rte_mbuf *original = MakeIpv4(64, 0);
	rte_mbuf *clone = rte_pktmbuf_clone(original, Pool());
	const auto before = BytesOf(clone);
	Keep(original);

	ASSERT_TRUE(softcard_frame_dscp_write(&frame, 10));
	EXPECT_EQ(BytesOf(clone), before);
	EXPECT_EQ(softcard_frame_dscp(frame), 10);
	rte_pktmbuf_free(clone);
}

TEST_F(FrameWrite, AFrameThatTwoHoldIsCopiedForTheOne)
{
	rte_mbuf *held = MakeIpv4(64, 0);
	rte_mbuf_refcnt_update(held, 1);
	Keep(held);

	ASSERT_TRUE(softcard_frame_dscp_write(&frame, 10));
	EXPECT_NE(frame, held);
	EXPECT_EQ(softcard_frame_dscp(held), 0);
	EXPECT_EQ(rte_mbuf_refcnt_read(held), 1);
	rte_pktmbuf_free(held);
}

TEST_F(FrameWrite, AFrameThatHasTheDscpAlreadyIsNotCopied)
{
	rte_mbuf *original = MakeIpv4(64, 10 << 2);
	rte_mbuf *clone = Keep(rte_pktmbuf_clone(original, Pool()));

	EXPECT_TRUE(softcard_frame_dscp_write(&frame, 10));
	EXPECT_EQ(frame, clone);
	rte_pktmbuf_free(original);
}

TEST_F(FrameWrite, ACloneFromAPoolWithoutRoomIsCopiedIntoThePoolOfItsData)
{
	rte_mempool *indirect = rte_pktmbuf_pool_create("indirect", 15, 0, 0, 0, SOCKET_ID_ANY);
	ASSERT_NE(indirect, nullptr);
	rte_mbuf *original = MakeIpv4(64, 0);
	Keep(rte_pktmbuf_clone(original, indirect));

	ASSERT_TRUE(softcard_frame_dscp_write(&frame, 10));
	EXPECT_EQ(frame->pool, Pool());
	EXPECT_EQ(softcard_frame_dscp(frame), 10);
	EXPECT_EQ(softcard_frame_dscp(original), 0);
	EXPECT_EQ(rte_mempool_in_use_count(indirect), 0u);
	rte_pktmbuf_free(original);
	rte_mempool_free(indirect);
}

TEST_F(FrameWrite, WithoutABufferToCopyIntoTheFrameStaysAsItIs)
{
	rte_mempool *small = rte_pktmbuf_pool_create("small", 1, 0, 0, 2176, SOCKET_ID_ANY);
	ASSERT_NE(small, nullptr);
	rte_mbuf *original = MakeIpv4(64, 0);
	rte_mbuf *clone = Keep(rte_pktmbuf_clone(original, small));
	ASSERT_NE(clone, nullptr);

	EXPECT_FALSE(softcard_frame_dscp_write(&frame, 10));
	EXPECT_EQ(frame, clone);
	EXPECT_EQ(softcard_frame_dscp(frame), 0);
	rte_pktmbuf_free(frame);
	frame = nullptr;
	rte_pktmbuf_free(original);
	rte_mempool_free(small);
}

/* A segment whose data ends where its memory ends, so that a sanitizer sees the first byte too many. */
rte_mbuf *
MakeTight(const uint8_t *data, size_t length)
{
	const auto release = [](void *memory, void *info) {
		free(memory);
		free(info);
	};
	auto *info = static_cast<rte_mbuf_ext_shared_info *>(
		calloc(1, sizeof(rte_mbuf_ext_shared_info)));
	void *memory = malloc(std::max<size_t>(length, 1));
	rte_mbuf *segment = rte_pktmbuf_alloc(Pool());

	memcpy(memory, data, length);
	info->free_cb = release;
	info->fcb_opaque = info;
	rte_mbuf_ext_refcnt_set(info, 1);
	rte_pktmbuf_attach_extbuf(segment, memory, RTE_BAD_IOVA, length, info);
	rte_pktmbuf_append(segment, length);
	return segment;
}

TEST_F(FrameWrite, RandomFramesInTightSegmentsAreReadAndWrittenWithinTheirBounds)
{
	std::mt19937 random(1);
	const auto pick = [&](unsigned n) {
		return static_cast<unsigned>(random() % n);
	};
	unsigned written = 0;

	for (int round = 0; round < 100000; round++) {
		/* a sound frame, with random tags and options, cut off and with random bytes changed */
		static constexpr uint16_t TPIDS[] = {0x8100, 0x88a8, 0x9100, 0x0800, 0x86dd};
		std::vector<uint16_t> tpids;
		for (unsigned i = pick(4); i > 0; i--)
			tpids.push_back(TPIDS[pick(5)]);
		auto bytes = Ipv4Bytes(100, pick(256), tpids, pick(11) * 4);
		bytes.resize(pick(101));
		for (unsigned i = pick(4); i > 0 && !bytes.empty(); i--)
			bytes[pick(bytes.size())] = random();

		rte_mbuf *pkt = nullptr;
		for (size_t at = 0; at < bytes.size() || pkt == nullptr;) {
			const size_t n = std::min<size_t>(bytes.size() - at, pick(40));
			rte_mbuf *segment = MakeTight(bytes.data() + at, n);
			at += n;
			if (pkt == nullptr)
				pkt = segment;
			else
				ASSERT_EQ(rte_pktmbuf_chain(pkt, segment), 0);
		}
		Keep(pkt);

		const int before = softcard_frame_dscp(frame);
		const uint8_t dscp = pick(64);
		ASSERT_LE(softcard_frame_tags(frame), 2u);
		ASSERT_EQ(softcard_frame_dscp_write(&frame, dscp), before >= 0);
		ASSERT_EQ(softcard_frame_dscp(frame), before >= 0 ? dscp : -1);
		const auto after = BytesOf(frame);
		ASSERT_EQ(after.size(), bytes.size());
		unsigned changed = 0;
		for (size_t i = 0; i < bytes.size(); i++)
			changed += after[i] != bytes[i];
		ASSERT_LE(changed, before >= 0 ? 3u : 0u);
		written += before >= 0;
		rte_pktmbuf_free(frame);
		frame = nullptr;
	}
	EXPECT_GT(written, 10000u);
}

} // namespace
