/* SPDX-License-Identifier: BSD-3-Clause */
#include <cstdio>

#include "softcard_view.h"
#include "vask_port.h"
#include "vask_view.h"

/* The engine's units, by packet mode. */
constexpr uint64_t RATE_UNIT[] = {8000, 1};
constexpr uint64_t BURST_UNIT[] = {1024, 1};

double
vask_quantity_error(const struct vask_quantity *quantity)
{
	const double asked = static_cast<double>(quantity->asked);

	return quantity->asked == 0 ? 0
				    : (static_cast<double>(quantity->held) - asked) * 100 / asked;
}

void
vask_view_profile(const struct vask_p4_meter_profile *p, struct vask_profile_view *view)
{
	struct vask_p4_mep_meter_profile_table held = {};

	softcard_view_profile(VASK_P4_MEP_INGRESS, p->hw_profile_id, &held);
	/* the card takes one bit of the mode: 2 is packets to the module, and bytes to the card */
	const unsigned mode = held.valid ? held.pm : p->packet_mode != 0;
	if (p->rfc2698_mode != 0)
		view->algorithm = "RFC 2698";
	else
		view->algorithm = p->eir == 0 ? "RFC 2697" : "RFC 4115";
	view->packets = mode != 0;
	view->unit = view->packets ? "packets" : "bytes";
	view->cir = {p->cir, held.cir * RATE_UNIT[mode]};
	view->cbs = {p->cbs, held.cbs * BURST_UNIT[mode]};
	view->eir = {p->eir, held.eir * RATE_UNIT[mode]};
	view->ebs = {p->ebs, held.ebs * BURST_UNIT[mode]};
}

const char *
vask_view_direction(uint32_t dir)
{
	if (dir == VASK_P4_MEP_INGRESS)
		return "receive";
	return dir == VASK_P4_MEP_EGRESS ? "transmit" : "both";
}

const char *
vask_view_action(uint32_t action, uint32_t dscp, char *text, unsigned size)
{
	if (action == 1)
		snprintf(text, size, "dscp %u", dscp);
	else
		snprintf(text, size, "%s", action == 2 ? "drop" : "pass");
	return text;
}

const struct vask_port *
vask_view_port(uint32_t sfi)
{
	const struct vask_port *port;

	TAILQ_FOREACH (port, &vask_ports, next)
		if (vask_port_sfi(port) == sfi)
			return port;
	return nullptr;
}
