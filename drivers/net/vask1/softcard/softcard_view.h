/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef SOFTCARD_VIEW_H
#define SOFTCARD_VIEW_H

/**
 * @file
 * Read-only views of the card's tables, for dumps, telemetry and tests.
 *
 * These read the card directly: no fault hits them and no trace shows them. They may run beside packet
 * calls; beside control calls they are to be serialised by the caller. All return 0, -EINVAL (unknown
 * engine, null record), -ERANGE (index past the table) or -ENODEV (card down).
 */

#include <cstdint>

#include "qorn_hal_raw_struct.h"
#include "vask_p4_mep_meter.h"

/** A meter of an engine, as one moment's picture. Arrays are indexed by enum rte_color. */
struct softcard_meter_view {
	struct vask_p4_mep_meter_inst_table inst; /* as the engine's own read gives it */
	bool metering;                            /* instance, profile and policy are valid */
	uint64_t level_c;    /* committed bucket, 1/level_unit byte or packet */
	uint64_t level_e;    /* excess or peak bucket, likewise */
	uint64_t burst_c;    /* what the committed bucket holds when full */
	uint64_t burst_e;    /* what the excess bucket holds when full */
	uint64_t level_unit; /* parts of a byte (or packet, in packet mode) in the four above */
	uint64_t last_ns;    /* time of the latest packet */
	uint64_t packets[3];
	uint64_t bytes[3];
	uint64_t dropped_packets;
	uint64_t dropped_bytes;
	uint64_t rewritten; /* packets whose DSCP was to be rewritten and has the value asked for */
	uint64_t passed_bytes_s; /* bytes/s let through, over the last two softcard_rate_sample() */
};

int softcard_view_meter(int dir, uint32_t hw_meter_id, struct softcard_meter_view *view);

/**
 * Takes a sample for passed_bytes_s: to be called about once a second. The rate is that between the latest
 * packets of two samples, in the packets' own time, so it holds under either clock.
 */
void softcard_rate_sample();

/** An engine's copy of a profile; all zero when it is not in use. */
int softcard_view_profile(
	int dir, uint32_t hw_profile_id, struct vask_p4_mep_meter_profile_table *profile);

/** An engine's copy of a policy; all zero when it is not in use. */
int
softcard_view_policy(int dir, uint32_t hw_policy_id, struct vask_p4_mep_meter_policy_table *policy);

/** A pipeline meter profile; all zero when it is not in use. */
int softcard_view_pipeline_profile(uint32_t index, struct qorn_meter_profile_table *profile);

/** A pipeline meter; all zero when it is not in use. */
int softcard_view_pipeline_meter(uint32_t index, struct qorn_meter_table *meter);

/** What the card holds for a source port, the shaper aside. */
struct softcard_port_view {
	uint32_t rx_meter; /* meter output of the ingress engine, 0: none */
	uint32_t tx_meter; /* metering_info0 as written, 0: none */
	uint16_t mtu;      /* bytes, 0: never written */
	struct qorn_input_port_table_result_tx tx_entry;
};

int softcard_view_port(uint16_t port_sfi, struct softcard_port_view *view);

#endif /* SOFTCARD_VIEW_H */
