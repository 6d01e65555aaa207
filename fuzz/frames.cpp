/* SPDX-License-Identifier: BSD-3-Clause */
#include "frames.h"

#include <cstdlib>
#include <cstring>

#include "check.h"

namespace
{

constexpr size_t LENGTH_MAX = 4000;

/* The number in two bytes, 0 past the end. */
unsigned
Word(const FrameBytes &bytes, size_t at)
{
	return at + 2 <= bytes.size() ? bytes[at] << 8 | bytes[at + 1] : 0;
}

bool
IsTag(unsigned type)
{
	return type == 0x8100 || type == 0x88a8 || type == 0x9100;
}

struct External {
	struct rte_mbuf_ext_shared_info shared;
	uint8_t *bytes;
};

void
FreeExternal(void *, void *opaque)
{
	External *external = static_cast<External *>(opaque);

	free(external->bytes);
	delete external;
}

} // namespace

FrameBytes
fuzz_bytes_of(const struct rte_mbuf *frame)
{
	FrameBytes bytes;

	for (; frame != nullptr; frame = frame->next) {
		const uint8_t *data = rte_pktmbuf_mtod(frame, const uint8_t *);
		bytes.insert(bytes.end(), data, data + rte_pktmbuf_data_len(frame));
	}
	return bytes;
}

unsigned
fuzz_tags(const FrameBytes &frame)
{
	unsigned tags = 0;

	while (tags < 2 && IsTag(Word(frame, 12 + 4 * tags)))
		tags++;
	return tags;
}

size_t
fuzz_ipv4_at(const FrameBytes &frame)
{
	const size_t type_at = 12 + 4 * fuzz_tags(frame), at = type_at + 2;

	if (Word(frame, type_at) != 0x0800 || at + 20 > frame.size())
		return 0;
	const unsigned length = frame[at] % 16 * 4;
	if (frame[at] / 16 != 4 || length < 20 || at + length > frame.size() ||
		Word(frame, at + 2) < length)
		return 0;
	return at;
}

uint32_t
fuzz_header_sum(const FrameBytes &frame, size_t at)
{
	uint32_t sum = 0;

	for (unsigned i = 0; i < frame[at] % 16 * 4u; i += 2)
		sum += Word(frame, at + i);
	return sum % 0xffff;
}

FrameMaker::~FrameMaker()
{
	for (const Shared &shared : shared_)
		/* what the frame had behind it is freed */
		rte_pktmbuf_free_seg(shared.mbuf);
}

struct rte_mbuf *
FrameMaker::Segment(const FrameBytes &bytes, unsigned kind)
{
	struct rte_mbuf *mbuf = rte_pktmbuf_alloc(pool_);

	if (mbuf == nullptr)
		return nullptr;
	if (kind == 1) {
		/* just as long as the segment: a sanitizer sees who reads past it */
		auto *external = new External;
		external->bytes = static_cast<uint8_t *>(malloc(bytes.size() + 1));
		external->shared.free_cb = FreeExternal;
		external->shared.fcb_opaque = external;
		rte_mbuf_ext_refcnt_set(&external->shared, 1);
		rte_pktmbuf_attach_extbuf(mbuf, external->bytes + 1, RTE_BAD_IOVA,
			static_cast<uint16_t>(bytes.size()), &external->shared);
	}
	char *data = rte_pktmbuf_append(mbuf, static_cast<uint16_t>(bytes.size()));
	FUZZ_CHECK(data != nullptr);
	if (!bytes.empty())
		memcpy(data, bytes.data(), bytes.size());
	if (kind == 2) {
		rte_mbuf_refcnt_update(mbuf, 1);
		shared_.push_back({mbuf, bytes});
	} else if (kind == 3) {
		struct rte_mbuf *clone = rte_pktmbuf_clone(mbuf, clones_);

		shared_.push_back({mbuf, bytes});
		return clone;
	}
	return mbuf;
}

struct rte_mbuf *
FrameMaker::Make(Input &in)
{
	FrameBytes bytes = in.Bytes(in.Byte() % 128);
	/* what follows the bytes given is zeroes */
	bytes.resize(bytes.size() + in.Raw(2) % LENGTH_MAX);
	struct rte_mbuf *frame = nullptr;

	for (size_t at = 0; frame == nullptr || at < bytes.size();) {
		const uint8_t how = in.Byte();
		/* a cut within the headers, or none; buffers hold 2048 bytes */
		const size_t length = std::min(how < 4 ? size_t{2000} : size_t{how} / 4,
			std::min(bytes.size() - at, size_t{2000}));
		const auto from = bytes.begin() + static_cast<ptrdiff_t>(at);
		struct rte_mbuf *segment =
			Segment({from, from + static_cast<ptrdiff_t>(length)}, how % 4);

		if (segment == nullptr) {
			rte_pktmbuf_free(frame);
			return nullptr;
		}
		if (frame == nullptr)
			frame = segment;
		else
			FUZZ_CHECK(rte_pktmbuf_chain(frame, segment) == 0);
		at += length;
	}
	return frame;
}

void
FrameMaker::CheckShared() const
{
	for (const Shared &shared : shared_) {
		const uint8_t *data = rte_pktmbuf_mtod(shared.mbuf, const uint8_t *);

		FUZZ_CHECK(rte_pktmbuf_data_len(shared.mbuf) == shared.bytes.size());
		FUZZ_CHECK(shared.bytes.empty() ||
			memcmp(data, shared.bytes.data(), shared.bytes.size()) == 0);
	}
}
