/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_VIEW_H
#define VASK_VIEW_H

/**
 * @file
 * What the driver was asked for beside what the card holds, for people: dumps and telemetry. Calls are for the
 * control lock's holder.
 */

#include <cstdint>

#include "vask_p4_info.h"

struct vask_port;

/** A rate or burst as asked, and as the card's units hold it. */
struct vask_quantity {
	uint64_t asked;
	uint64_t held;
};

/** How much the card's value lies above (or, below 0, under) what was asked, in percent; 0 when nothing was. */
double vask_quantity_error(const struct vask_quantity *quantity);

struct vask_profile_view {
	const char *algorithm; /* "RFC 2697", ... */
	const char *unit;      /* what the card counts: "bytes" or "packets" */
	bool packets;          /* the latter */
	struct vask_quantity cir;
	struct vask_quantity cbs;
	struct vask_quantity eir; /* excess or peak rate */
	struct vask_quantity ebs; /* excess or peak burst */
};

void vask_view_profile(const struct vask_p4_meter_profile *profile, struct vask_profile_view *view);

/** "receive", "transmit" or "both". */
const char *vask_view_direction(uint32_t dir);

/** An action code as text, "dscp 10" for one that rewrites; in the caller's buffer. */
const char *vask_view_action(uint32_t action, uint32_t dscp, char *text, unsigned size);

/** The port with a source-port number, or null. */
const struct vask_port *vask_view_port(uint32_t sfi);

#endif /* VASK_VIEW_H */
