/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_FLOW_FRAME_H
#define VASK_FLOW_FRAME_H

/**
 * @file
 * A frame as a lookup reads it: no image is made of the frames that are most of all traffic.
 */

#include <array>
#include <cstdint>
#include <cstring>
#include <netinet/in.h>

#include <rte_mbuf.h>

#include "vask_flow_fields.h"

/**
 * Where the fields of a frame are: word 0 by value, the others at an offset from base.
 *
 * A plain frame, that is untagged IPv4 without options and not a fragment, is read where it lies; any other
 * one from its image.
 */
struct vask_flow_frame {
	uint64_t word0;
	const uint8_t *base;
	uint32_t plain; /* 0 or 1: which offsets hold */
};

/** Offset of each word from vask_flow_frame::base, [plain][word]. That of word 0 is not used. */
extern const uint8_t vask_flow_offsets[2][VASK_FLOW_WORDS];

/** The frame of an image. */
static inline struct vask_flow_frame
vask_flow_frame_of(const union vask_flow_fields *image)
{
	return {image->word[0], reinterpret_cast<const uint8_t *>(image), 0};
}

/** The frame of a packet that is not plain. The image is read as long as the frame is. */
struct vask_flow_frame
vask_flow_frame_image(const struct rte_mbuf *pkt, union vask_flow_fields *image);

/** @name Where a plain frame has its headers, in bytes. @{ */
constexpr uint8_t VASK_FLOW_PLAIN_IPV4 = sizeof(struct rte_ether_hdr);
constexpr uint8_t VASK_FLOW_PLAIN_L4 = VASK_FLOW_PLAIN_IPV4 + sizeof(struct rte_ipv4_hdr);
constexpr uint8_t VASK_FLOW_PLAIN_END = VASK_FLOW_PLAIN_L4 + sizeof(struct rte_tcp_hdr);
/** @} */

/** What a protocol over plain IPv4 puts into word 0: the headers' bits, and the ports if it has any. */
struct vask_flow_plain_protocol {
	uint64_t present;
	uint32_t ports_mask;
	uint32_t min_length; /* bytes of the IPv4 packet */
};

constexpr std::array<struct vask_flow_plain_protocol, 256>
vask_flow_plain_protocols_make()
{
	constexpr unsigned PRESENT_SHIFT = RTE_BYTE_ORDER == RTE_LITTLE_ENDIAN ? 0 : 48;
	std::array<struct vask_flow_plain_protocol, 256> protocols = {};

	for (struct vask_flow_plain_protocol &protocol : protocols) {
		protocol.present = VASK_FLOW_HAS_ETH | VASK_FLOW_HAS_IPV4;
		protocol.min_length = sizeof(struct rte_ipv4_hdr);
	}
	protocols[IPPROTO_UDP].present |= VASK_FLOW_HAS_UDP;
	protocols[IPPROTO_UDP].min_length += sizeof(struct rte_udp_hdr);
	protocols[IPPROTO_UDP].ports_mask = UINT32_MAX;
	protocols[IPPROTO_TCP].present |= VASK_FLOW_HAS_TCP;
	protocols[IPPROTO_TCP].min_length += sizeof(struct rte_tcp_hdr);
	protocols[IPPROTO_TCP].ports_mask = UINT32_MAX;
	for (struct vask_flow_plain_protocol &protocol : protocols)
		protocol.present <<= PRESENT_SHIFT;
	return protocols;
}

/** By protocol. A table, because the next packet may have another one and a branch would be mispredicted. */
inline constexpr std::array<struct vask_flow_plain_protocol, 256> vask_flow_plain_protocols =
	vask_flow_plain_protocols_make();

/**
 * Finds the fields of a packet.
 *
 * @param image  room for an image. It and the packet are read as long as the frame is.
 */
static inline struct vask_flow_frame
vask_flow_frame_read(const struct rte_mbuf *pkt, union vask_flow_fields *image)
{
	/* EtherType, and the first byte of an IPv4 header without options: version 4, five words */
	constexpr uint32_t TYPE = RTE_BE32(RTE_ETHER_TYPE_IPV4 << 16 | 0x45 << 8);
	constexpr uint32_t TYPE_MASK = RTE_BE32(0xffffff00);
	constexpr unsigned PORTS_SHIFT = RTE_BYTE_ORDER == RTE_LITTLE_ENDIAN ? 32 : 0;
	const uint8_t *p = rte_pktmbuf_mtod(pkt, const uint8_t *);
	const struct rte_ipv4_hdr *ipv4 =
		reinterpret_cast<const struct rte_ipv4_hdr *>(p + VASK_FLOW_PLAIN_IPV4);
	uint32_t type, ports;

	if (unlikely(pkt->data_len < VASK_FLOW_PLAIN_END))
		return vask_flow_frame_image(pkt, image);
	memcpy(&type, p + offsetof(struct rte_ether_hdr, ether_type), sizeof(type));
	if (unlikely((type & TYPE_MASK) != TYPE ||
		    (ipv4->fragment_offset & VASK_FLOW_IPV4_FRAGMENT) != 0))
		return vask_flow_frame_image(pkt, image);

	const struct vask_flow_plain_protocol &protocol =
		vask_flow_plain_protocols[ipv4->next_proto_id];
	if (unlikely(rte_be_to_cpu_16(ipv4->total_length) < protocol.min_length))
		return vask_flow_frame_image(pkt, image);
	memcpy(&ports, p + VASK_FLOW_PLAIN_L4, sizeof(ports));
	return {protocol.present | uint64_t{ports & protocol.ports_mask} << PORTS_SHIFT, p, 1};
}

#endif /* VASK_FLOW_FRAME_H */
