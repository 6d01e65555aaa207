/* SPDX-License-Identifier: BSD-3-Clause */
#include <algorithm>
#include <cstring>
#include <netinet/in.h>
#include <netinet/ip.h>

#include <rte_mbuf.h>

#include "vask_flow_fields.h"

constexpr uint16_t ETHER_TYPE_IPV4 = RTE_BE16(RTE_ETHER_TYPE_IPV4);
constexpr uint16_t ETHER_TYPE_IPV6 = RTE_BE16(RTE_ETHER_TYPE_IPV6);
constexpr uint16_t TPID_VLAN = RTE_BE16(RTE_ETHER_TYPE_VLAN);
constexpr uint16_t TPID_QINQ = RTE_BE16(RTE_ETHER_TYPE_QINQ);
constexpr uint16_t TPID_QINQ1 = RTE_BE16(RTE_ETHER_TYPE_QINQ1);

/* offset of a fragment other than 0, or more to follow */
constexpr uint16_t IPV6_FRAGMENT = RTE_BE16(0xfff9);

constexpr uint8_t IPV6_VERSION = 6;
constexpr uint8_t NEXT_MOBILITY = 135;
constexpr uint8_t NEXT_HIP = 139;
constexpr uint8_t NEXT_SHIM6 = 140;

static inline uint16_t
load16(const uint8_t *p)
{
	uint16_t value;

	memcpy(&value, p, sizeof(value));
	return value;
}

static inline bool
is_tag(uint16_t ether_type)
{
	return ether_type == TPID_VLAN || ether_type == TPID_QINQ || ether_type == TPID_QINQ1;
}

/* Each of these returns the bits of the headers that it found. */

static inline uint16_t
read_l4(const uint8_t *p, uint32_t off, uint32_t end, uint8_t proto, union vask_flow_fields *f)
{
	if (proto == IPPROTO_UDP && off + sizeof(struct rte_udp_hdr) <= end) {
		memcpy(f->l4_ports, p + off, sizeof(f->l4_ports));
		memcpy(f->l4_rest, p + off + 4, sizeof(struct rte_udp_hdr) - 4);
		return VASK_FLOW_HAS_UDP;
	}
	if (proto == IPPROTO_TCP && off + sizeof(struct rte_tcp_hdr) <= end) {
		memcpy(f->l4_ports, p + off, sizeof(f->l4_ports));
		memcpy(f->l4_rest, p + off + 4, sizeof(struct rte_tcp_hdr) - 4);
		return VASK_FLOW_HAS_TCP;
	}
	return 0;
}

static inline uint16_t
read_ipv4(const uint8_t *p, uint32_t off, uint32_t len, union vask_flow_fields *f)
{
	const struct rte_ipv4_hdr *ipv4 = reinterpret_cast<const struct rte_ipv4_hdr *>(p + off);
	uint32_t header, total;

	if (off + sizeof(*ipv4) > len || ipv4->version_ihl >> 4 != IPVERSION)
		return 0;
	header = (ipv4->version_ihl & RTE_IPV4_HDR_IHL_MASK) * RTE_IPV4_IHL_MULTIPLIER;
	total = rte_be_to_cpu_16(ipv4->total_length);
	if (header < sizeof(*ipv4) || total < header)
		return 0;
	memcpy(&f->ipv4, ipv4, sizeof(f->ipv4));
	if ((ipv4->fragment_offset & VASK_FLOW_IPV4_FRAGMENT) != 0)
		return VASK_FLOW_HAS_IPV4;
	return VASK_FLOW_HAS_IPV4 |
		read_l4(p, off + header, std::min(len, off + total), ipv4->next_proto_id, f);
}

/* The bit of an extension header, or 0 for any other protocol. */
static inline uint16_t
ipv6_ext(uint8_t proto)
{
	switch (proto) {
	case IPPROTO_HOPOPTS:
		return VASK_FLOW_EXT_HOP;
	case IPPROTO_ROUTING:
		return VASK_FLOW_EXT_ROUTE;
	case IPPROTO_FRAGMENT:
		return VASK_FLOW_EXT_FRAG;
	case IPPROTO_AH:
		return VASK_FLOW_EXT_AUTH;
	case IPPROTO_ESP:
		return VASK_FLOW_EXT_ESP;
	case IPPROTO_DSTOPTS:
		return VASK_FLOW_EXT_DEST;
	case NEXT_MOBILITY:
		return VASK_FLOW_EXT_MOBILITY;
	case NEXT_HIP:
		return VASK_FLOW_EXT_HIP;
	case NEXT_SHIM6:
		return VASK_FLOW_EXT_SHIM6;
	default:
		return 0;
	}
}

/* Walks the extension headers to the protocol behind them. */
static uint16_t
read_ipv6_payload(
	const uint8_t *p, uint32_t off, uint32_t end, uint8_t proto, union vask_flow_fields *f)
{
	for (uint16_t ext; (ext = ipv6_ext(proto)) != 0;) {
		uint32_t size;

		/* none is shorter than 8 bytes */
		if (off + 8 > end)
			return 0;
		if (ext == VASK_FLOW_EXT_FRAG || ext == VASK_FLOW_EXT_ESP)
			size = 8;
		else if (ext == VASK_FLOW_EXT_AUTH)
			size = (p[off + 1] + 2) * 4;
		else
			size = (p[off + 1] + 1) * 8;
		if (off + size > end)
			return 0;
		f->ipv6_ext |= ext;
		if (ext == VASK_FLOW_EXT_ESP) /* what follows is encrypted */
			return 0;
		/* a whole datagram may carry a fragment header too */
		if (ext == VASK_FLOW_EXT_FRAG && (load16(p + off + 2) & IPV6_FRAGMENT) != 0)
			return 0;
		proto = p[off];
		off += size;
	}
	return read_l4(p, off, end, proto, f);
}

static inline uint16_t
read_ipv6(const uint8_t *p, uint32_t off, uint32_t len, union vask_flow_fields *f)
{
	const struct rte_ipv6_hdr *ipv6 = reinterpret_cast<const struct rte_ipv6_hdr *>(p + off);

	if (off + sizeof(*ipv6) > len || p[off] >> 4 != IPV6_VERSION)
		return 0;
	memcpy(&f->ipv6, ipv6, sizeof(f->ipv6));
	off += sizeof(*ipv6);
	len = std::min(len, off + rte_be_to_cpu_16(ipv6->payload_len));
	return VASK_FLOW_HAS_IPV6 | read_ipv6_payload(p, off, len, ipv6->proto, f);
}

static inline uint16_t
read_headers(const uint8_t *p, uint32_t len, union vask_flow_fields *f)
{
	uint32_t off = sizeof(struct rte_ether_hdr);
	uint16_t present = VASK_FLOW_HAS_ETH;
	uint16_t type;

	if (len < off)
		return 0;
	memcpy(&f->eth, p, sizeof(f->eth));
	type = load16(p + offsetof(struct rte_ether_hdr, ether_type));
	for (unsigned tags = 0; unlikely(is_tag(type)); tags++) {
		if (off + sizeof(struct rte_vlan_hdr) > len)
			return present;
		if (tags == RTE_DIM(f->vlan))
			return present | VASK_FLOW_HAS_VLAN3;
		memcpy(&f->vlan[tags], p + off, sizeof(f->vlan[tags]));
		present |= tags == 0 ? VASK_FLOW_HAS_VLAN : VASK_FLOW_HAS_VLAN2;
		type = f->vlan[tags].eth_proto;
		off += sizeof(struct rte_vlan_hdr);
	}
	if (likely(type == ETHER_TYPE_IPV4))
		return present | read_ipv4(p, off, len, f);
	if (type == ETHER_TYPE_IPV6)
		return present | read_ipv6(p, off, len, f);
	return present;
}

void
vask_flow_fields_read(const struct rte_mbuf *pkt, union vask_flow_fields *f)
{
	uint8_t copy[VASK_FLOW_HEADERS_MAX];
	const uint32_t len = std::min(pkt->pkt_len, VASK_FLOW_HEADERS_MAX);
	const void *p = rte_pktmbuf_read(pkt, 0, len, copy);

	/* the word that every key has a part in */
	f->word[0] = 0;
	f->present = p == nullptr ? 0 : read_headers(static_cast<const uint8_t *>(p), len, f);
}
