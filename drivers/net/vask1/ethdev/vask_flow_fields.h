/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_FLOW_FIELDS_H
#define VASK_FLOW_FIELDS_H

/**
 * @file
 * The fields of a frame that rules match: an image of fixed layout, the same for frames, keys and masks.
 *
 * Headers are looked for in the first VASK_FLOW_HEADERS_MAX bytes. A header that is not wholly there, or
 * that the length fields below it exclude, is absent, and so are those above it. Fragments, the first one
 * included, have no UDP or TCP header, so that all of a datagram match alike.
 */

#include <cstddef>
#include <cstdint>

#include <rte_ether.h>
#include <rte_ip.h>
#include <rte_tcp.h>
#include <rte_udp.h>

struct rte_mbuf;

constexpr uint32_t VASK_FLOW_HEADERS_MAX = 256;

/** Which headers a frame has: bits of vask_flow_fields::present. */
enum vask_flow_present : uint16_t {
	VASK_FLOW_HAS_ETH = 1 << 0,
	VASK_FLOW_HAS_VLAN = 1 << 1,  /* one tag at least */
	VASK_FLOW_HAS_VLAN2 = 1 << 2, /* two at least */
	VASK_FLOW_HAS_VLAN3 = 1 << 3, /* more: nothing behind them is looked at */
	VASK_FLOW_HAS_IPV4 = 1 << 4,
	VASK_FLOW_HAS_IPV6 = 1 << 5,
	VASK_FLOW_HAS_UDP = 1 << 6,
	VASK_FLOW_HAS_TCP = 1 << 7,
};

/** IPv6 extension headers of a frame: bits of vask_flow_fields::ipv6_ext. */
enum vask_flow_ipv6_ext : uint16_t {
	VASK_FLOW_EXT_HOP = 1 << 0,
	VASK_FLOW_EXT_ROUTE = 1 << 1,
	VASK_FLOW_EXT_FRAG = 1 << 2,
	VASK_FLOW_EXT_AUTH = 1 << 3,
	VASK_FLOW_EXT_ESP = 1 << 4,
	VASK_FLOW_EXT_DEST = 1 << 5,
	VASK_FLOW_EXT_MOBILITY = 1 << 6,
	VASK_FLOW_EXT_HIP = 1 << 7,
	VASK_FLOW_EXT_SHIM6 = 1 << 8,
};

/**
 * Fields in network byte order, as on the wire. A field means something only where `present` has its
 * header's bit, so a key that asks for a field asks for that bit too. Of a frame's image only word 0 is
 * set where a header is absent.
 *
 * Grouped so that the usual patterns fall into few words: ports beside the header bits, both IPv4
 * addresses in one word.
 */
union vask_flow_fields {
	struct {
		uint16_t present;  /* host order */
		uint16_t ipv6_ext; /* host order */
		uint16_t l4_ports[2];
		union {
			struct rte_ipv6_hdr ipv6;
			struct {
				uint32_t pad;
				struct rte_ipv4_hdr ipv4;
			};
		};
		/** The rest of the UDP (4 bytes) or TCP header (16). */
		uint8_t l4_rest[16];
		struct rte_ether_hdr eth;
		struct rte_vlan_hdr vlan[2]; /* outer, inner */
		uint16_t pad2;
	};
	uint64_t word[11];
};

constexpr unsigned VASK_FLOW_WORDS = 11;
constexpr unsigned VASK_FLOW_KEY_WORDS =
	12; /* the same in whole 16 bytes, which rte_hash compares at once */

static_assert(sizeof(union vask_flow_fields) == 8 * VASK_FLOW_WORDS, "no hidden padding");
static_assert(offsetof(union vask_flow_fields, ipv4) % 8 == 4, "IPv4 addresses in one word");
static_assert(offsetof(union vask_flow_fields, eth) % 8 == 0, "Ethernet header aligned");

/** Bits of vask_flow_fields::ipv4.fragment_offset: an offset other than 0, or more to follow. */
constexpr uint16_t VASK_FLOW_IPV4_FRAGMENT =
	RTE_BE16(RTE_IPV4_HDR_OFFSET_MASK | RTE_IPV4_HDR_MF_FLAG);

/** Reads the fields of a frame. Never reads past a segment's end or the frame's. */
void vask_flow_fields_read(const struct rte_mbuf *pkt, union vask_flow_fields *fields);

#endif /* VASK_FLOW_FIELDS_H */
