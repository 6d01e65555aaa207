/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Telemetry of ports, meters, profiles, policies, shapers and pools. Lists are pages of ids, so that 4095 meters
 * fit in telemetry's limits.
 */
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "softcard.h"
#include "softcard_shaper.h"
#include "softcard_view.h"
#include "vask_p4_driver.h"
#include "vask_p4_meter.h"
#include "vask_port.h"
#include "vask_telemetry.h"
#include "vask_view.h"

namespace
{

constexpr unsigned PAGE_MAX = RTE_TEL_MAX_ARRAY_ENTRIES;

/* Reads up to n numbers parted by commas; how many there are, or -1. */
int
numbers(const char *text, uint32_t *value, int n)
{
	int found = 0;

	if (text == nullptr || *text == '\0')
		return 0;
	for (;;) {
		char *end;

		errno = 0;
		const unsigned long number = strtoul(text, &end, 10);
		if (*text < '0' || *text > '9' || errno != 0 || number > UINT32_MAX || found == n)
			return -1;
		value[found++] = static_cast<uint32_t>(number);
		if (*end == '\0')
			return found;
		if (*end != ',')
			return -1;
		text = end + 1;
	}
}

int
ports(const char *, const char *, struct rte_tel_data *d)
{
	const struct vask_control_guard lock;
	const struct vask_port *port;

	rte_tel_data_start_dict(d);
	TAILQ_FOREACH (port, &vask_ports, next) {
		struct rte_tel_data *p = vask_tel_dict();
		struct softcard_port_view v = {};

		if (p == nullptr)
			continue;
		softcard_view_port(vask_port_sfi(port), &v);
		vask_tel_add_dict_uint(p, "port_id", port->data->port_id);
		vask_tel_add_dict_uint(p, "sfi", vask_port_sfi(port));
		vask_tel_add_text(p, "uplink", port->args.uplink);
		vask_tel_add_bool(p, "uplink_present", port->uplink.port_id != VASK_UPLINK_NONE);
		rte_tel_data_add_dict_string(p, "clock", port->clock.capture ? "capture" : "tsc");
		rte_tel_data_add_dict_string(p, "shapers",
			port->args.shapers == vask_shapers::ENFORCE ? "enforce" : "observe");
		vask_tel_add_dict_uint(p, "mtu", v.mtu);
		vask_tel_add_dict_uint(p, "rx_hw_meter", v.rx_meter);
		vask_tel_add_dict_uint(p, "tx_hw_meter", v.tx_meter);
		vask_tel_add_dict(d, port->data->name, p);
	}
	return 0;
}

/* A page of a list: total, first, and the ids. `also` is what else is accepted in place of a page. */
template <typename head, typename get>
int
page_of_ids(const head *list, const char *command, const char *also, const char *params,
	struct rte_tel_data *d, get id_of)
{
	uint32_t page[2] = {0, PAGE_MAX};
	struct rte_tel_data *ids;
	uint32_t total = 0, listed = 0;

	if (numbers(params, page, 2) < 0 || page[1] == 0 || page[1] > PAGE_MAX)
		return vask_tel_error(d, "%s,%s<first>,<count> with a count of 1 to %u is accepted",
			command, also, PAGE_MAX);
	ids = rte_tel_data_alloc();
	if (ids == nullptr)
		return -ENOMEM;
	rte_tel_data_start_array(ids, VASK_TEL_UINT_VAL);
	for (auto *node = TAILQ_FIRST(list); node != nullptr; node = TAILQ_NEXT(node, next)) {
		if (total >= page[0] && total - page[0] < page[1]) {
			vask_tel_add_array_uint(ids, id_of(node));
			listed++;
		}
		total++;
	}
	rte_tel_data_start_dict(d);
	vask_tel_add_dict_uint(d, "total", total);
	vask_tel_add_dict_uint(d, "first", page[0]);
	vask_tel_add_dict_uint(d, "count", listed);
	vask_tel_add_dict(d, "ids", ids);
	return 0;
}

int
meters(const char *command, const char *params, struct rte_tel_data *d)
{
	const struct vask_control_guard lock;

	return page_of_ids(&vask_p4_meter_list, command, "", params, d,
		[](const auto *node) { return node->data.meter_id; });
}

/* What one engine knows of a meter; null when it has no record of it. */
struct rte_tel_data *
engine_dict(int dir, uint32_t hw_meter_id)
{
	struct softcard_meter_view v = {};
	struct rte_tel_data *e;

	if (softcard_view_meter(dir, hw_meter_id, &v) != 0 || !v.inst.valid)
		return nullptr;
	e = vask_tel_dict();
	if (e == nullptr)
		return nullptr;
	vask_tel_add_bool(e, "metering", v.metering);
	vask_tel_add_dict_uint(e, "green_packets", v.packets[RTE_COLOR_GREEN]);
	vask_tel_add_dict_uint(e, "green_bytes", v.bytes[RTE_COLOR_GREEN]);
	vask_tel_add_dict_uint(e, "yellow_packets", v.packets[RTE_COLOR_YELLOW]);
	vask_tel_add_dict_uint(e, "yellow_bytes", v.bytes[RTE_COLOR_YELLOW]);
	vask_tel_add_dict_uint(e, "red_packets", v.packets[RTE_COLOR_RED]);
	vask_tel_add_dict_uint(e, "red_bytes", v.bytes[RTE_COLOR_RED]);
	vask_tel_add_dict_uint(e, "dropped_packets", v.dropped_packets);
	vask_tel_add_dict_uint(e, "dropped_bytes", v.dropped_bytes);
	vask_tel_add_dict_uint(e, "rewritten_packets", v.rewritten);
	vask_tel_add_dict_uint(e, "passed_bytes_per_second", v.passed_bytes_s);
	vask_tel_add_dict_uint(e, "committed_bucket", v.level_c / v.level_unit);
	vask_tel_add_dict_uint(e, "excess_bucket", v.level_e / v.level_unit);
	return e;
}

int
meter(const char *command, const char *params, struct rte_tel_data *d)
{
	const struct vask_control_guard lock;
	const struct vask_p4_meter_cfg_node *node;
	uint32_t id;

	if (numbers(params, &id, 1) != 1)
		return vask_tel_error(d, "%s,<meter id> is accepted", command);
	TAILQ_FOREACH (node, &vask_p4_meter_list, next)
		if (node->data.meter_id == id)
			break;
	if (node == nullptr)
		return vask_tel_error(d, "there is no meter %u; /net_vask1/meters lists them", id);

	const struct vask_p4_meter_cfg_entry *m = &node->data;
	const struct vask_port *port = vask_view_port(m->port_sfi);
	rte_tel_data_start_dict(d);
	vask_tel_add_dict_uint(d, "meter_id", m->meter_id);
	vask_tel_add_dict_uint(d, "hw_meter_id", m->hw_meter_id);
	rte_tel_data_add_dict_string(d, "port", port != nullptr ? port->data->name : "");
	rte_tel_data_add_dict_string(d, "direction", vask_view_direction(m->dir));
	vask_tel_add_bool(d, "enabled", m->enable);
	vask_tel_add_dict_uint(d, "profile_id", m->profile.profile_id);
	vask_tel_add_dict_uint(d, "policy_id", m->policy.policy_id);
	vask_tel_add_bool(d, "color_aware", m->is_color_aware);
	vask_tel_add_bool(d, "original_length", m->is_ori_pktlen);
	vask_tel_add_dict(d, "ingress", engine_dict(VASK_P4_MEP_INGRESS, m->hw_meter_id));
	vask_tel_add_dict(d, "egress", engine_dict(VASK_P4_MEP_EGRESS, m->hw_meter_id));
	return 0;
}

void
add_quantity(struct rte_tel_data *d, const char *name, const struct vask_quantity *q)
{
	char text[RTE_TEL_MAX_STRING_LEN];

	snprintf(text, sizeof(text), "%s_asked", name);
	vask_tel_add_dict_uint(d, text, q->asked);
	snprintf(text, sizeof(text), "%s_held", name);
	vask_tel_add_dict_uint(d, text, q->held);
}

int
profiles(const char *command, const char *params, struct rte_tel_data *d)
{
	const struct vask_control_guard lock;
	const struct vask_p4_meter_profile_node *node;
	struct vask_profile_view v;
	uint32_t id;

	if (numbers(params, &id, 1) != 1)
		return page_of_ids(&vask_p4_meter_profile_list, command, "<id> or ", params, d,
			[](const auto *n) { return n->data.profile_id; });
	TAILQ_FOREACH (node, &vask_p4_meter_profile_list, next)
		if (node->data.profile_id == id)
			break;
	if (node == nullptr)
		return vask_tel_error(d, "there is no profile %u; %s lists them", id, command);
	vask_view_profile(&node->data, &v);
	rte_tel_data_start_dict(d);
	vask_tel_add_dict_uint(d, "profile_id", id);
	vask_tel_add_dict_uint(d, "hw_profile_id", node->data.hw_profile_id);
	vask_tel_add_dict_uint(d, "references", node->data.ref_cnt);
	rte_tel_data_add_dict_string(d, "algorithm", v.algorithm);
	rte_tel_data_add_dict_string(d, "unit", v.unit);
	add_quantity(d, "cir", &v.cir);
	add_quantity(d, "cbs", &v.cbs);
	add_quantity(d, "eir", &v.eir);
	add_quantity(d, "ebs", &v.ebs);
	return 0;
}

int
policies(const char *command, const char *params, struct rte_tel_data *d)
{
	const struct vask_control_guard lock;
	const struct vask_p4_meter_policy_node *node;
	char text[RTE_TEL_MAX_STRING_LEN];
	uint32_t id;

	if (numbers(params, &id, 1) != 1)
		return page_of_ids(&vask_p4_meter_policy_list, command, "<id> or ", params, d,
			[](const auto *n) { return n->data.policy_id; });
	TAILQ_FOREACH (node, &vask_p4_meter_policy_list, next)
		if (node->data.policy_id == id)
			break;
	if (node == nullptr)
		return vask_tel_error(d, "there is no policy %u; %s lists them", id, command);

	const struct vask_p4_meter_policy *p = &node->data;
	rte_tel_data_start_dict(d);
	vask_tel_add_dict_uint(d, "policy_id", id);
	vask_tel_add_dict_uint(d, "hw_policy_id", p->hw_policy_id);
	vask_tel_add_dict_uint(d, "references", p->ref_cnt);
	rte_tel_data_add_dict_string(
		d, "green", vask_view_action(p->green_action, p->green_dscp, text, sizeof(text)));
	rte_tel_data_add_dict_string(d, "yellow",
		vask_view_action(p->yellow_action, p->yellow_dscp, text, sizeof(text)));
	rte_tel_data_add_dict_string(
		d, "red", vask_view_action(p->red_action, p->red_dscp, text, sizeof(text)));
	return 0;
}

struct rte_tel_data *
shaper_dict(int dir, uint16_t sfi)
{
	struct rte_tel_data *d = vask_tel_dict();
	struct softcard_shaper_view s = {};

	if (d == nullptr)
		return nullptr;
	softcard_view_shaper(dir, sfi, &s);
	vask_tel_add_bool(d, "enabled", s.enabled);
	vask_tel_add_bool(d, "closed", s.closed);
	vask_tel_add_bool(d, "below_resolution", s.below_resolution);
	rte_tel_data_add_dict_string(d, "unit", s.packet_mode ? "packets/s" : "bit/s");
	vask_tel_add_dict_uint(d, "rate", s.rate);
	vask_tel_add_dict_uint(d, "burst", s.burst);
	vask_tel_add_dict_uint(d, "register", s.register_value);
	return d;
}

int
shapers(const char *command, const char *params, struct rte_tel_data *d)
{
	const struct vask_control_guard lock;
	const struct vask_port *port;
	uint32_t id;

	if (numbers(params, &id, 1) != 1)
		return vask_tel_error(d, "%s,<port id> is accepted", command);
	TAILQ_FOREACH (port, &vask_ports, next)
		if (port->data->port_id == id)
			break;
	if (port == nullptr)
		return vask_tel_error(
			d, "port %u is not one of the card's; /net_vask1/ports lists them", id);
	rte_tel_data_start_dict(d);
	vask_tel_add_bool(d, "enforced", port->args.shapers == vask_shapers::ENFORCE);
	vask_tel_add_dict(d, "port", shaper_dict(VASK_P4_MEP_EGRESS, vask_port_sfi(port)));
	vask_tel_add_dict(d, "scheduler", shaper_dict(VASK_P4_MEP_INGRESS, vask_port_sfi(port)));
	return 0;
}

void
add_pool(struct rte_tel_data *d, const char *name, VASK_P4_INDEXSTACK_MANAGER *pool, uint32_t size)
{
	struct rte_tel_data *p = vask_tel_dict();

	if (p == nullptr)
		return;
	vask_tel_add_dict_uint(p, "size", size);
	vask_tel_add_dict_uint(p, "free", vask_p4_idx_free_num(pool));
	vask_tel_add_dict(d, name, p);
}

int
pools(const char *, const char *, struct rte_tel_data *d)
{
	const struct vask_control_guard lock;

	if (TAILQ_EMPTY(&vask_ports))
		return vask_tel_error(d, "the card is down: there is no port");
	rte_tel_data_start_dict(d);
	add_pool(d, "meters", meter_index_mgr, SOFTCARD_METERS);
	add_pool(d, "profiles", profile_index_mgr, SOFTCARD_PROFILES);
	add_pool(d, "policies", policy_index_mgr, SOFTCARD_POLICIES);
	return 0;
}

} // namespace

RTE_INIT(vask_telemetry_init)
{
	rte_telemetry_register_cmd("/net_vask1/ports", ports, "The card's ports. No argument");
	rte_telemetry_register_cmd(
		"/net_vask1/meters", meters, "Ids of meters. Parameters: [first, count]");
	rte_telemetry_register_cmd(
		"/net_vask1/meter", meter, "A meter and its counters. Parameter: meter id");
	rte_telemetry_register_cmd(
		"/net_vask1/profiles", profiles, "Ids of profiles, or a profile. Parameter: [id]");
	rte_telemetry_register_cmd(
		"/net_vask1/policies", policies, "Ids of policies, or a policy. Parameter: [id]");
	rte_telemetry_register_cmd(
		"/net_vask1/shapers", shapers, "A port's shapers. Parameter: port id");
	rte_telemetry_register_cmd("/net_vask1/pools", pools, "Free indexes. No argument");
}
