/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef SOFTCARD_H
#define SOFTCARD_H

/**
 * @file
 * The software card: what stands behind the driver's lower layers when there is no card, as the port that
 * carries its packets sees it. The lower-layer operations themselves are declared in the seam's headers.
 *
 * Control calls (start, stop, instance records) are for one control thread at a time. Packet calls take no
 * lock of the control path; any number of threads may make them, on any port and queue, while control
 * calls are made. A control write becomes visible to packets as a whole record.
 */

#include <cstdint>

#include "vask_p4_mep_meter.h"

struct rte_mbuf;

constexpr uint32_t SOFTCARD_PROFILES = 256;
constexpr uint32_t SOFTCARD_POLICIES = 256;
constexpr uint32_t SOFTCARD_METERS = 4096;
constexpr uint32_t SOFTCARD_PORTS = 16384; /* the 14 bits of a source-port number */
constexpr uint16_t SOFTCARD_BURST_MAX = 64;

/** Powers the card up: every table empty, every counter zero. 0, or -ENOMEM. */
int softcard_start();

/** Powers the card down; no packet call may be under way. */
void softcard_stop();

/**
 * Writes an engine's meter instance.
 *
 * A record that becomes valid starts with full buckets and zero counters. One that was valid keeps its
 * counters and its levels, cut to the new bursts. Buckets and counters of the record handed in are not read.
 */
int softcard_meter_inst_write(
	int dir, uint32_t hw_meter_id, const struct vask_p4_mep_meter_inst_table *inst);

/** Clears an engine's meter instance, counters included. */
int softcard_meter_inst_clear(int dir, uint32_t hw_meter_id);

/** The hardware meter bound to a port's whole traffic in one direction, or 0. Safe from any thread. */
uint32_t softcard_port_meter(int dir, uint16_t port_sfi);

/** A burst on its way through an engine. */
struct softcard_burst {
	uint16_t n; /* packets, at most SOFTCARD_BURST_MAX */
	struct rte_mbuf *pkts[SOFTCARD_BURST_MAX];
	uint64_t now_ns[SOFTCARD_BURST_MAX];      /* when each packet is metered */
	uint32_t hw_meter_id[SOFTCARD_BURST_MAX]; /* the meter of each; 0: unmetered */
	uint16_t
		taken_off[SOFTCARD_BURST_MAX]; /* bytes the port took off each frame (a VLAN tag) */
};

/**
 * Meters a burst: colours each packet, rewrites its DSCP or drops it as the meter's policy says, and counts.
 * Dropped packets are freed; those that stay close up in pkts (and in now_ns and taken_off) in order.
 *
 * @return packets dropped.
 */
uint16_t softcard_meter_burst(int dir, struct softcard_burst *burst);

/**
 * Drops the frames that are longer than the port's MTU allows, as softcard_meter_burst() drops.
 *
 * @return packets dropped.
 */
uint16_t softcard_mtu_burst(uint16_t port_sfi, struct softcard_burst *burst);

#endif /* SOFTCARD_H */
