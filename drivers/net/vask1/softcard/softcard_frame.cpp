/* SPDX-License-Identifier: BSD-3-Clause */

#include "softcard_frame.h"

#include <array>

#include <rte_byteorder.h>
#include <rte_ether.h>
#include <rte_ip.h>
#include <rte_mbuf.h>

/* ECN, the low bits of the type-of-service byte. */
static constexpr uint8_t ECN_MASK = 0x03;
static constexpr uint32_t DSCP_SHIFT = 2;

/* Where the frame's network header begins and what the type field before it says. */
struct frame_network {
	uint32_t offset;
	uint16_t ether_type; /* 0: the frame ends before it */
	uint32_t tags;
};

static uint16_t
ether_type_read(const struct rte_mbuf *frame, uint32_t offset)
{
	uint8_t copy[sizeof(rte_be16_t)];
	const void *data = rte_pktmbuf_read(frame, offset, sizeof(copy), copy);
	if (data == nullptr)
		return 0;

	const uint8_t *type = static_cast<const uint8_t *>(data);
	return type[0] << 8 | type[1];
}

static bool
is_tag(uint16_t ether_type)
{
	return ether_type == RTE_ETHER_TYPE_VLAN || ether_type == RTE_ETHER_TYPE_QINQ ||
		ether_type == RTE_ETHER_TYPE_QINQ1;
}

static struct frame_network
network_find(const struct rte_mbuf *frame)
{
	struct frame_network network = {};

	network.offset = RTE_ETHER_HDR_LEN;
	network.ether_type = ether_type_read(frame, network.offset - sizeof(rte_be16_t));
	while (is_tag(network.ether_type) && network.tags < SOFTCARD_FRAME_TAGS_MAX) {
		network.tags++;
		network.offset += sizeof(struct rte_vlan_hdr);
		network.ether_type = ether_type_read(frame, network.offset - sizeof(rte_be16_t));
	}
	return network;
}

uint32_t
softcard_frame_tags(const struct rte_mbuf *frame)
{
	return network_find(frame).tags;
}

/*
 * A frame's IPv4 header where it lies, or a copy of its fixed part when it is split; null when the frame
 * has none or it is malformed.
 */
static const struct rte_ipv4_hdr *
ipv4_read(const struct rte_mbuf *frame, uint32_t *offset, struct rte_ipv4_hdr *copy)
{
	const struct frame_network network = network_find(frame);
	if (network.ether_type != RTE_ETHER_TYPE_IPV4)
		return nullptr;

	const void *data = rte_pktmbuf_read(frame, network.offset, sizeof(*copy), copy);
	if (data == nullptr)
		return nullptr;

	const struct rte_ipv4_hdr *ipv4 = static_cast<const struct rte_ipv4_hdr *>(data);
	const uint32_t length =
		(ipv4->version_ihl & RTE_IPV4_HDR_IHL_MASK) * RTE_IPV4_IHL_MULTIPLIER;
	if (ipv4->version_ihl >> 4 != IPVERSION || length < sizeof(*ipv4) ||
		network.offset + length > rte_pktmbuf_pkt_len(frame) ||
		rte_be_to_cpu_16(ipv4->total_length) < length)
		return nullptr;
	*offset = network.offset;
	return ipv4;
}

int
softcard_frame_dscp(const struct rte_mbuf *frame)
{
	struct rte_ipv4_hdr copy;
	uint32_t offset;
	const struct rte_ipv4_hdr *ipv4 = ipv4_read(frame, &offset, &copy);

	return ipv4 == nullptr ? -1 : ipv4->type_of_service >> DSCP_SHIFT;
}

enum rte_color
softcard_frame_color(const struct rte_mbuf *frame)
{
	const int dscp = softcard_frame_dscp(frame);
	if (dscp < 0)
		return RTE_COLOR_GREEN;

	/* AFxy is 8x + 2y: classes x 1 to 4, drop precedences y 1 to 3. */
	const int af_class = dscp >> 3;
	const int precedence = dscp >> 1 & 3;
	if ((dscp & 1) != 0 || af_class < 1 || af_class > 4 || precedence == 0)
		return RTE_COLOR_GREEN;
	return static_cast<enum rte_color>(precedence - 1);
}

/* Whether nobody else sees the bytes of a frame up to that offset. */
static bool
is_private(const struct rte_mbuf *frame, uint32_t end)
{
	uint32_t seen = 0;

	for (const struct rte_mbuf *seg = frame; seg != nullptr && seen < end; seg = seg->next) {
		if (!RTE_MBUF_DIRECT(seg) || rte_mbuf_refcnt_read(seg) != 1)
			return false;
		seen += rte_pktmbuf_data_len(seg);
	}
	return true;
}

/* A pool whose buffers hold data: the frame's own, or, for a clone's, the one its data came from. */
static struct rte_mempool *
data_pool(struct rte_mbuf *frame)
{
	if (rte_pktmbuf_data_room_size(frame->pool) > RTE_PKTMBUF_HEADROOM)
		return frame->pool;
	if (RTE_MBUF_CLONED(frame))
		return rte_mbuf_from_indirect(frame)->pool;
	return nullptr;
}

static bool
make_private(struct rte_mbuf **frame)
{
	struct rte_mempool *pool = data_pool(*frame);
	struct rte_mbuf *copy =
		pool == nullptr ? nullptr : rte_pktmbuf_copy(*frame, pool, 0, UINT32_MAX);
	if (copy == nullptr)
		return false;

	rte_pktmbuf_free(*frame);
	*frame = copy;
	return true;
}

static uint8_t &
byte_at(struct rte_mbuf *frame, uint32_t offset)
{
	while (offset >= rte_pktmbuf_data_len(frame)) {
		offset -= rte_pktmbuf_data_len(frame);
		frame = frame->next;
	}
	return *rte_pktmbuf_mtod_offset(frame, uint8_t *, offset);
}

/* RFC 1624, equation 3, for one 16-bit word of the header that changes. */
static uint16_t
checksum_update(uint16_t checksum, uint16_t before, uint16_t after)
{
	uint32_t sum = static_cast<uint16_t>(~checksum) + static_cast<uint16_t>(~before) + after;

	sum = (sum & 0xffff) + (sum >> 16);
	sum = (sum & 0xffff) + (sum >> 16);
	return ~sum;
}

bool
softcard_frame_dscp_write(struct rte_mbuf **frame, uint8_t dscp)
{
	struct rte_ipv4_hdr copy;
	uint32_t offset;
	const struct rte_ipv4_hdr *ipv4 = ipv4_read(*frame, &offset, &copy);
	if (ipv4 == nullptr)
		return false;

	const uint8_t before = ipv4->type_of_service;
	const uint8_t after = dscp << DSCP_SHIFT | (before & ECN_MASK);
	if (after == before)
		return true;

	const uint16_t checksum = checksum_update(rte_be_to_cpu_16(ipv4->hdr_checksum),
		ipv4->version_ihl << 8 | before, ipv4->version_ihl << 8 | after);
	const uint32_t tos_at = offset + offsetof(struct rte_ipv4_hdr, type_of_service);
	const uint32_t checksum_at = offset + offsetof(struct rte_ipv4_hdr, hdr_checksum);

	if (!is_private(*frame, checksum_at + sizeof(checksum)) && !make_private(frame))
		return false;

	byte_at(*frame, tos_at) = after;
	/* A checksum that the sender left to the wire's side is none yet. */
	if (((*frame)->ol_flags & RTE_MBUF_F_TX_IP_CKSUM) == 0) {
		byte_at(*frame, checksum_at) = checksum >> 8;
		byte_at(*frame, checksum_at + 1) = checksum;
	}
	return true;
}
