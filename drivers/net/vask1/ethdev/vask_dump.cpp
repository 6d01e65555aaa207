/* SPDX-License-Identifier: BSD-3-Clause */
#include <cinttypes>

#include "softcard.h"
#include "softcard_shaper.h"
#include "softcard_view.h"
#include "vask_dump.h"
#include "vask_p4_driver.h"
#include "vask_p4_meter.h"
#include "vask_port.h"
#include "vask_view.h"

namespace
{

void
dump_shaper(FILE *file, const char *name, int dir, uint16_t sfi, bool enforced)
{
	struct softcard_shaper_view s = {};

	softcard_view_shaper(dir, sfi, &s);
	fprintf(file, "  %-18s : register %#x, ", name, s.register_value);
	if (s.closed)
		fprintf(file, "closed");
	else if (s.below_resolution)
		fprintf(file, "BELOW ITS RESOLUTION: does not limit");
	else if (!s.enabled)
		fprintf(file, "off");
	else
		fprintf(file, "%" PRIu64 " %s, burst %" PRIu64 " %s%s", s.rate,
			s.packet_mode ? "packets/s" : "bit/s", s.burst,
			s.packet_mode ? "packets" : "bytes", enforced ? "" : " (observed only)");
	fprintf(file, "\n");
}

void
dump_port(FILE *file, const struct vask_port *port)
{
	const uint16_t sfi = vask_port_sfi(port), uplink = port->uplink.port_id;
	const bool enforced = port->args.shapers == vask_shapers::ENFORCE;
	struct softcard_port_view v = {};

	softcard_view_port(sfi, &v);
	fprintf(file, "port %u %s\n", port->data->port_id, port->data->name);
	fprintf(file, "  %-18s : %u\n", "sfi", sfi);
	fprintf(file, "  %-18s : %s%s\n", "uplink", port->args.uplink,
		uplink == VASK_UPLINK_NONE ? " (missing)" : "");
	fprintf(file, "  %-18s : %s\n", "clock", port->clock.capture ? "capture" : "tsc");
	fprintf(file, "  %-18s : %" PRIu64 " ns\n", "now", vask_clock_now(&port->clock));
	fprintf(file, "  %-18s : %u%s\n", "MTU", v.mtu,
		v.mtu == 0 ? " (never set, not applied)" : "");
	fprintf(file, "  %-18s : hardware meter %u\n", "receive binding", v.rx_meter);
	fprintf(file, "  %-18s : hardware meter %u\n", "transmit binding", v.tx_meter);
	dump_shaper(file, "port shaper", VASK_P4_MEP_EGRESS, sfi, enforced);
	dump_shaper(file, "scheduler shaper", VASK_P4_MEP_INGRESS, sfi, enforced);
}

void
dump_pool(FILE *file, const char *name, VASK_P4_INDEXSTACK_MANAGER *pool, uint32_t size)
{
	fprintf(file, "  %-18s : %u of %u free\n", name, vask_p4_idx_free_num(pool), size);
}

void
dump_quantity(FILE *file, const char *name, const char *unit, const struct vask_quantity *q)
{
	fprintf(file, "    %-17s : asked %" PRIu64 ", held %" PRIu64 " %s (%+.2f %%)\n", name,
		q->asked, q->held, unit, vask_quantity_error(q));
}

void
dump_profile(FILE *file, const struct vask_p4_meter_profile *p)
{
	struct vask_profile_view v;

	vask_view_profile(p, &v);
	fprintf(file, "  profile %u: hardware %u, %s, %s, used by %u\n", p->profile_id,
		p->hw_profile_id, v.algorithm, v.packets ? "packet mode" : "byte mode", p->ref_cnt);
	dump_quantity(file, "committed rate", v.packets ? "packets/s" : "bytes/s", &v.cir);
	dump_quantity(file, "committed burst", v.unit, &v.cbs);
	dump_quantity(file, "excess/peak rate", v.packets ? "packets/s" : "bytes/s", &v.eir);
	dump_quantity(file, "excess/peak burst", v.unit, &v.ebs);
}

void
dump_policy(FILE *file, const struct vask_p4_meter_policy *p)
{
	char green[16], yellow[16], red[16];

	fprintf(file, "  policy %u: hardware %u, green %s, yellow %s, red %s, used by %u\n",
		p->policy_id, p->hw_policy_id,
		vask_view_action(p->green_action, p->green_dscp, green, sizeof(green)),
		vask_view_action(p->yellow_action, p->yellow_dscp, yellow, sizeof(yellow)),
		vask_view_action(p->red_action, p->red_dscp, red, sizeof(red)), p->ref_cnt);
}

/* The software record on one line, the record of each engine that meters beside it. */
void
dump_meter(FILE *file, const struct vask_p4_meter_cfg_entry *m)
{
	static const char *const engines[] = {"ingress", "egress"};

	fprintf(file, "  meter %u: hardware %u, sfi %u, %s, %s, profile %u, policy %u%s%s\n",
		m->meter_id, m->hw_meter_id, m->port_sfi, vask_view_direction(m->dir),
		m->enable ? "enabled" : "disabled", m->profile.profile_id, m->policy.policy_id,
		m->is_color_aware ? ", colour-aware" : "",
		m->is_ori_pktlen ? ", original length" : "");
	for (int dir : {VASK_P4_MEP_INGRESS, VASK_P4_MEP_EGRESS}) {
		struct softcard_meter_view v = {};

		if (softcard_view_meter(dir, m->hw_meter_id, &v) != 0 || !v.inst.valid)
			continue;
		fprintf(file,
			"    %-7s : hardware profile %u, policy %u, %s\n"
			"              green %" PRIu64 ", yellow %" PRIu64 ", red %" PRIu64
			" packets; dropped %" PRIu64 " packets, %" PRIu64
			" bytes; rewritten %" PRIu64 "\n"
			"              buckets %" PRIu64 "/%" PRIu64 " and %" PRIu64 "/%" PRIu64
			"; passed %" PRIu64 " bytes/s\n",
			engines[dir], v.inst.profile_id, v.inst.policy_id,
			v.metering ? "metering" : "not metering", v.packets[RTE_COLOR_GREEN],
			v.packets[RTE_COLOR_YELLOW], v.packets[RTE_COLOR_RED], v.dropped_packets,
			v.dropped_bytes, v.rewritten, v.level_c / v.level_unit,
			v.burst_c / v.level_unit, v.level_e / v.level_unit,
			v.burst_e / v.level_unit, v.passed_bytes_s);
	}
}

} // namespace

int
vask_dump(struct rte_eth_dev *dev, FILE *file)
{
	const struct vask_control_guard lock;
	const struct vask_p4_meter_profile_node *profile;
	const struct vask_p4_meter_policy_node *policy;
	const struct vask_p4_meter_cfg_node *meter;

	dump_port(file, vask_port_of(dev));
	fprintf(file, "pools\n");
	dump_pool(file, "meters", meter_index_mgr, SOFTCARD_METERS);
	dump_pool(file, "profiles", profile_index_mgr, SOFTCARD_PROFILES);
	dump_pool(file, "policies", policy_index_mgr, SOFTCARD_POLICIES);
	fprintf(file, "profiles\n");
	TAILQ_FOREACH (profile, &vask_p4_meter_profile_list, next)
		dump_profile(file, &profile->data);
	fprintf(file, "policies\n");
	TAILQ_FOREACH (policy, &vask_p4_meter_policy_list, next)
		dump_policy(file, &policy->data);
	fprintf(file, "meters\n");
	TAILQ_FOREACH (meter, &vask_p4_meter_list, next)
		dump_meter(file, &meter->data);
	return 0;
}
