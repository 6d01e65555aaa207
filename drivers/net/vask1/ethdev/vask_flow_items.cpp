/* SPDX-License-Identifier: BSD-3-Clause */
#include <cerrno>
#include <cstring>

#include "vask_flow_items.h"
#include "vask_p4_enum.h"

#define ITEM_ERROR(code, kind, text) \
	rte_flow_error_set(error, code, RTE_FLOW_ERROR_TYPE_##kind, item, text)

/* How far up the headers a pattern has come. */
enum layer {
	LAYER_NONE,
	LAYER_ETH,
	LAYER_VLAN,
	LAYER_VLAN2,
	LAYER_IP,
	LAYER_L4,
};

/* A pattern on its way into a key and a mask. */
struct pattern {
	union vask_flow_fields *key;
	union vask_flow_fields *mask;
	enum layer layer;
};

/* Copies an item's spec and mask, with the default mask where it has none. */
template <typename T>
static int
read_item(const struct rte_flow_item *item, const T &default_mask, T *spec, T *mask,
	struct rte_flow_error *error)
{
	static const T zero = {};

	*spec = zero;
	*mask = zero;
	if (item->spec == nullptr) {
		if (item->mask != nullptr)
			return ITEM_ERROR(EINVAL, ITEM_SPEC, "mask without spec");
		if (item->last != nullptr)
			return ITEM_ERROR(EINVAL, ITEM_SPEC, "last without spec");
		return 0;
	}
	memcpy(spec, item->spec, sizeof(*spec));
	*mask = default_mask;
	if (item->mask != nullptr)
		memcpy(mask, item->mask, sizeof(*mask));
	/* NOLINTNEXTLINE(bugprone-suspicious-memory-comparison,cert-exp42-c,cert-flp37-c): masked below */
	if (item->last != nullptr && memcmp(item->last, &zero, sizeof(zero)) != 0) {
		const uint8_t *first = reinterpret_cast<const uint8_t *>(spec);
		const uint8_t *last = static_cast<const uint8_t *>(item->last);
		const uint8_t *bits = reinterpret_cast<const uint8_t *>(mask);

		for (size_t i = 0; i < sizeof(T); i++)
			if (((first[i] ^ last[i]) & bits[i]) != 0)
				return ITEM_ERROR(ENOTSUP, ITEM_LAST, "ranges are not supported");
	}
	return 0;
}

/* A header bit that the frame must have, or must not have. */
static void
want(struct pattern *p, uint16_t bit, bool set)
{
	p->mask->present |= bit;
	if (set)
		p->key->present |= bit;
}

/* Whether a header bit is already wanted the other way round. */
static bool
contradicts(const struct pattern *p, uint16_t bit, bool set)
{
	return (p->mask->present & bit) != 0 && ((p->key->present & bit) != 0) != set;
}

template <typename T>
static void
put(T *key, T *mask, const void *spec_bytes, const void *mask_bytes)
{
	memcpy(key, spec_bytes, sizeof(*key));
	memcpy(mask, mask_bytes, sizeof(*mask));
}

static int
add_eth(struct pattern *p, const struct rte_flow_item *item, struct rte_flow_error *error)
{
	struct rte_flow_item_eth spec, mask, default_mask = {};
	int rc;

	if (p->layer != LAYER_NONE)
		return ITEM_ERROR(EINVAL, ITEM, "eth must be the first item");
	memset(&default_mask.hdr.dst_addr, 0xff, sizeof(default_mask.hdr.dst_addr));
	memset(&default_mask.hdr.src_addr, 0xff, sizeof(default_mask.hdr.src_addr));
	rc = read_item(item, default_mask, &spec, &mask, error);
	if (rc != 0)
		return rc;
	if (mask.reserved != 0)
		return ITEM_ERROR(ENOTSUP, ITEM_MASK, "reserved bits of eth must be 0");
	put(&p->key->eth, &p->mask->eth, &spec.hdr, &mask.hdr);
	want(p, VASK_FLOW_HAS_ETH, true);
	if (mask.has_vlan)
		want(p, VASK_FLOW_HAS_VLAN, spec.has_vlan);
	p->layer = LAYER_ETH;
	return 0;
}

static int
add_vlan(struct pattern *p, const struct rte_flow_item *item, struct rte_flow_error *error)
{
	struct rte_flow_item_vlan spec, mask, default_mask = {};
	const bool inner = p->layer == LAYER_VLAN;
	const uint16_t present = inner ? VASK_FLOW_HAS_VLAN2 : VASK_FLOW_HAS_VLAN;
	int rc;

	if (p->layer > LAYER_VLAN)
		return ITEM_ERROR(ENOTSUP, ITEM,
			p->layer == LAYER_VLAN2 ? "more than two vlan items are not supported"
						: "vlan must follow eth or vlan");
	default_mask.hdr.vlan_tci = RTE_BE16(0x0fff);
	rc = read_item(item, default_mask, &spec, &mask, error);
	if (rc != 0)
		return rc;
	if (mask.reserved != 0)
		return ITEM_ERROR(ENOTSUP, ITEM_MASK, "reserved bits of vlan must be 0");
	if (contradicts(p, present, true))
		return ITEM_ERROR(EINVAL, ITEM, "the item before excludes a VLAN tag here");
	put(&p->key->vlan[inner], &p->mask->vlan[inner], &spec.hdr, &mask.hdr);
	want(p, present, true);
	if (mask.has_more_vlan)
		want(p, inner ? VASK_FLOW_HAS_VLAN3 : VASK_FLOW_HAS_VLAN2, spec.has_more_vlan);
	p->layer = inner ? LAYER_VLAN2 : LAYER_VLAN;
	return 0;
}

static int
add_ipv4(struct pattern *p, const struct rte_flow_item *item, struct rte_flow_error *error)
{
	struct rte_flow_item_ipv4 spec, mask, default_mask = {};
	int rc;

	if (p->layer >= LAYER_IP)
		return ITEM_ERROR(EINVAL, ITEM, "ipv4 must follow eth or vlan");
	default_mask.hdr.src_addr = UINT32_MAX;
	default_mask.hdr.dst_addr = UINT32_MAX;
	rc = read_item(item, default_mask, &spec, &mask, error);
	if (rc != 0)
		return rc;
	put(&p->key->ipv4, &p->mask->ipv4, &spec.hdr, &mask.hdr);
	want(p, VASK_FLOW_HAS_IPV4, true);
	p->layer = LAYER_IP;
	return 0;
}

/* The item's extension header flags as bits of ipv6_ext. */
static uint16_t
ipv6_ext_bits(const struct rte_flow_item_ipv6 &item)
{
	return (item.has_hop_ext ? VASK_FLOW_EXT_HOP : 0) |
		(item.has_route_ext ? VASK_FLOW_EXT_ROUTE : 0) |
		(item.has_frag_ext ? VASK_FLOW_EXT_FRAG : 0) |
		(item.has_auth_ext ? VASK_FLOW_EXT_AUTH : 0) |
		(item.has_esp_ext ? VASK_FLOW_EXT_ESP : 0) |
		(item.has_dest_ext ? VASK_FLOW_EXT_DEST : 0) |
		(item.has_mobil_ext ? VASK_FLOW_EXT_MOBILITY : 0) |
		(item.has_hip_ext ? VASK_FLOW_EXT_HIP : 0) |
		(item.has_shim6_ext ? VASK_FLOW_EXT_SHIM6 : 0);
}

static int
add_ipv6(struct pattern *p, const struct rte_flow_item *item, struct rte_flow_error *error)
{
	struct rte_flow_item_ipv6 spec, mask, default_mask = {};
	int rc;

	if (p->layer >= LAYER_IP)
		return ITEM_ERROR(EINVAL, ITEM, "ipv6 must follow eth or vlan");
	memset(&default_mask.hdr.src_addr, 0xff, sizeof(default_mask.hdr.src_addr));
	memset(&default_mask.hdr.dst_addr, 0xff, sizeof(default_mask.hdr.dst_addr));
	rc = read_item(item, default_mask, &spec, &mask, error);
	if (rc != 0)
		return rc;
	if (mask.reserved != 0)
		return ITEM_ERROR(ENOTSUP, ITEM_MASK, "reserved bits of ipv6 must be 0");
	put(&p->key->ipv6, &p->mask->ipv6, &spec.hdr, &mask.hdr);
	p->key->ipv6_ext = ipv6_ext_bits(spec);
	p->mask->ipv6_ext = ipv6_ext_bits(mask);
	want(p, VASK_FLOW_HAS_IPV6, true);
	p->layer = LAYER_IP;
	return 0;
}

/* udp and tcp: ports first, the rest of the header behind them */
template <typename T>
static int
add_l4(struct pattern *p, const struct rte_flow_item *item, uint16_t present, const char *misplaced,
	struct rte_flow_error *error)
{
	T spec, mask, default_mask = {};
	const size_t ports = sizeof(p->key->l4_ports);
	int rc;

	if (p->layer != LAYER_NONE && p->layer != LAYER_IP)
		return ITEM_ERROR(EINVAL, ITEM, misplaced);
	default_mask.hdr.src_port = UINT16_MAX;
	default_mask.hdr.dst_port = UINT16_MAX;
	rc = read_item(item, default_mask, &spec, &mask, error);
	if (rc != 0)
		return rc;
	memcpy(p->key->l4_ports, &spec.hdr, ports);
	memcpy(p->mask->l4_ports, &mask.hdr, ports);
	memcpy(p->key->l4_rest, reinterpret_cast<uint8_t *>(&spec.hdr) + ports,
		sizeof(spec.hdr) - ports);
	memcpy(p->mask->l4_rest, reinterpret_cast<uint8_t *>(&mask.hdr) + ports,
		sizeof(mask.hdr) - ports);
	want(p, present, true);
	p->layer = LAYER_L4;
	return 0;
}

static int
parse_item(struct pattern *p, const struct rte_flow_item *item, struct rte_flow_error *error)
{
	switch (vask_p4_enum_number(&item->type)) {
	case RTE_FLOW_ITEM_TYPE_VOID:
		return 0;
	case RTE_FLOW_ITEM_TYPE_ETH:
		return add_eth(p, item, error);
	case RTE_FLOW_ITEM_TYPE_VLAN:
		return add_vlan(p, item, error);
	case RTE_FLOW_ITEM_TYPE_IPV4:
		return add_ipv4(p, item, error);
	case RTE_FLOW_ITEM_TYPE_IPV6:
		return add_ipv6(p, item, error);
	case RTE_FLOW_ITEM_TYPE_UDP:
		return add_l4<struct rte_flow_item_udp>(
			p, item, VASK_FLOW_HAS_UDP, "udp must follow ipv4 or ipv6", error);
	case RTE_FLOW_ITEM_TYPE_TCP:
		return add_l4<struct rte_flow_item_tcp>(
			p, item, VASK_FLOW_HAS_TCP, "tcp must follow ipv4 or ipv6", error);
	default:
		return ITEM_ERROR(ENOTSUP, ITEM,
			"this item is not supported: only eth, vlan, ipv4, ipv6, udp, tcp");
	}
}

int
vask_flow_items_parse(
	const struct rte_flow_item *item, struct vask_flow_spec *spec, struct rte_flow_error *error)
{
	struct pattern p = {&spec->key, &spec->mask, LAYER_NONE};

	if (item == nullptr)
		return rte_flow_error_set(
			error, EINVAL, RTE_FLOW_ERROR_TYPE_ITEM_NUM, nullptr, "no pattern");
	for (; vask_p4_enum_number(&item->type) != RTE_FLOW_ITEM_TYPE_END; item++) {
		int rc = parse_item(&p, item, error);

		if (rc != 0)
			return rc;
	}
	for (unsigned i = 0; i < VASK_FLOW_WORDS; i++)
		spec->key.word[i] &= spec->mask.word[i];
	return 0;
}
