/* SPDX-License-Identifier: BSD-3-Clause */
#include <arpa/inet.h>
#include <cinttypes>
#include <cstddef>

#include "vask_flow_dump.h"
#include "vask_flow_rule.h"

enum format {
	HEX,     /* number as it stands on the wire */
	DECIMAL, /* likewise */
	MAC,
	IPV4,
	IPV6,
};

struct field {
	const char *name;
	size_t offset; /* in union vask_flow_fields */
	size_t size;
	enum format format;
};

#define FIELD(name, member, format) \
	{ \
		name, offsetof(union vask_flow_fields, member), sizeof(vask_flow_fields::member), \
			format \
	}

static constexpr struct field eth_fields[] = {
	FIELD("dst", eth.dst_addr, MAC),
	FIELD("src", eth.src_addr, MAC),
	FIELD("type", eth.ether_type, HEX),
};
static constexpr struct field vlan_fields[] = {
	FIELD("tci", vlan[0].vlan_tci, HEX),
	FIELD("inner_type", vlan[0].eth_proto, HEX),
};
static constexpr struct field vlan2_fields[] = {
	FIELD("tci", vlan[1].vlan_tci, HEX),
	FIELD("inner_type", vlan[1].eth_proto, HEX),
};
static constexpr struct field ipv4_fields[] = {
	FIELD("version_ihl", ipv4.version_ihl, HEX),
	FIELD("tos", ipv4.type_of_service, HEX),
	FIELD("length", ipv4.total_length, DECIMAL),
	FIELD("packet_id", ipv4.packet_id, DECIMAL),
	FIELD("fragment_offset", ipv4.fragment_offset, HEX),
	FIELD("ttl", ipv4.time_to_live, DECIMAL),
	FIELD("proto", ipv4.next_proto_id, DECIMAL),
	FIELD("checksum", ipv4.hdr_checksum, HEX),
	FIELD("src", ipv4.src_addr, IPV4),
	FIELD("dst", ipv4.dst_addr, IPV4),
};
static constexpr struct field ipv6_fields[] = {
	FIELD("vtc_flow", ipv6.vtc_flow, HEX),
	FIELD("length", ipv6.payload_len, DECIMAL),
	FIELD("proto", ipv6.proto, DECIMAL),
	FIELD("hop", ipv6.hop_limits, DECIMAL),
	FIELD("src", ipv6.src_addr, IPV6),
	FIELD("dst", ipv6.dst_addr, IPV6),
};
static constexpr size_t L4_REST = offsetof(union vask_flow_fields, l4_rest);
static constexpr struct field udp_fields[] = {
	FIELD("src", l4_ports[0], DECIMAL),
	FIELD("dst", l4_ports[1], DECIMAL),
	{"length", L4_REST, 2, DECIMAL},
	{"checksum", L4_REST + 2, 2, HEX},
};
static constexpr struct field tcp_fields[] = {
	FIELD("src", l4_ports[0], DECIMAL),
	FIELD("dst", l4_ports[1], DECIMAL),
	{"seq", L4_REST, 4, DECIMAL},
	{"ack", L4_REST + 4, 4, DECIMAL},
	{"data_off", L4_REST + 8, 1, HEX},
	{"flags", L4_REST + 9, 1, HEX},
	{"window", L4_REST + 10, 2, DECIMAL},
	{"checksum", L4_REST + 12, 2, HEX},
	{"urgent", L4_REST + 14, 2, DECIMAL},
};

struct item {
	const char *name;
	uint16_t present;
	const struct field *fields;
	size_t n_fields;
};

static constexpr struct item items[] = {
	{"eth", VASK_FLOW_HAS_ETH, eth_fields, RTE_DIM(eth_fields)},
	{"vlan", VASK_FLOW_HAS_VLAN, vlan_fields, RTE_DIM(vlan_fields)},
	{"vlan", VASK_FLOW_HAS_VLAN2, vlan2_fields, RTE_DIM(vlan2_fields)},
	{"vlan", VASK_FLOW_HAS_VLAN3, nullptr, 0},
	{"ipv4", VASK_FLOW_HAS_IPV4, ipv4_fields, RTE_DIM(ipv4_fields)},
	{"ipv6", VASK_FLOW_HAS_IPV6, ipv6_fields, RTE_DIM(ipv6_fields)},
	{"udp", VASK_FLOW_HAS_UDP, udp_fields, RTE_DIM(udp_fields)},
	{"tcp", VASK_FLOW_HAS_TCP, tcp_fields, RTE_DIM(tcp_fields)},
};

static void
print_value(const uint8_t *bytes, size_t size, enum format format, FILE *file)
{
	char text[INET6_ADDRSTRLEN];
	uint64_t number = 0;

	for (size_t i = 0; i < size && i < sizeof(number); i++)
		number = number << 8 | bytes[i];
	switch (format) {
	case HEX:
		fprintf(file, "0x%" PRIx64, number);
		break;
	case DECIMAL:
		fprintf(file, "%" PRIu64, number);
		break;
	case MAC:
		fprintf(file, "%02x:%02x:%02x:%02x:%02x:%02x", bytes[0], bytes[1], bytes[2],
			bytes[3], bytes[4], bytes[5]);
		break;
	case IPV4:
		fputs(inet_ntop(AF_INET, bytes, text, sizeof(text)), file);
		break;
	case IPV6:
		fputs(inet_ntop(AF_INET6, bytes, text, sizeof(text)), file);
		break;
	}
}

static void
print_field(const struct vask_flow_spec *spec, const struct field *field, FILE *file)
{
	const uint8_t *key = reinterpret_cast<const uint8_t *>(&spec->key) + field->offset;
	const uint8_t *mask = reinterpret_cast<const uint8_t *>(&spec->mask) + field->offset;
	bool none = true, all = true;

	for (size_t i = 0; i < field->size; i++) {
		none = none && mask[i] == 0;
		all = all && mask[i] == 0xff;
	}
	if (none)
		return;
	fprintf(file, " %s %s ", field->name, all ? "is" : "spec");
	print_value(key, field->size, field->format, file);
	if (all)
		return;
	fprintf(file, " %s mask ", field->name);
	print_value(mask, field->size, field->format, file);
}

static void
print_item(const struct vask_flow_spec *spec, const struct item *item, FILE *file)
{
	if ((spec->mask.present & item->present) == 0)
		return;
	fprintf(file, " %s%s", (spec->key.present & item->present) == 0 ? "no " : "", item->name);
	for (size_t i = 0; i < item->n_fields; i++)
		print_field(spec, &item->fields[i], file);
	if (item->present == VASK_FLOW_HAS_IPV6 && spec->mask.ipv6_ext != 0)
		fprintf(file, " extensions spec 0x%x extensions mask 0x%x", spec->key.ipv6_ext,
			spec->mask.ipv6_ext);
	fputs(" /", file);
}

void
vask_flow_dump(struct rte_flow *rule, FILE *file)
{
	const struct vask_flow_spec *spec = &rule->spec;
	uint64_t hits, bytes;

	fprintf(file, "%p: %s priority %u pattern", static_cast<const void *>(rule),
		spec->dir == VASK_P4_MEP_EGRESS ? "egress" : "ingress", spec->priority);
	for (const struct item &item : items)
		print_item(spec, &item, file);
	fputs(" end actions", file);
	if (spec->meter_id != 0)
		fprintf(file, " meter mtr_id %u (hw %u) /", spec->meter_id,
			vask_flow_rule_meter(rule));
	if (spec->count) {
		vask_flow_rule_count(rule, false, &hits, &bytes);
		fprintf(file, " count (%" PRIu64 " packets, %" PRIu64 " bytes) /", hits, bytes);
	}
	if (spec->fate == VASK_FLOW_DROP)
		fputs(" drop /", file);
	else if (spec->fate != VASK_FLOW_STAY)
		fprintf(file, " queue index %u /", spec->fate);
	else if (spec->passthru)
		fputs(" passthru /", file);
	fputs(" end\n", file);
}
