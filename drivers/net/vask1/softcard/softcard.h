/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef SOFTCARD_H
#define SOFTCARD_H

/**
 * @file
 * The software card: what stands behind the driver's lower layers when there is no card, as the port that
 * carries its packets sees it. The lower-layer operations themselves are declared in the seam's headers,
 * delay queues in softcard_shaper.h, views of the tables in softcard_view.h, injected faults in
 * softcard_fault.h and the trace of operations in softcard_trace.h.
 *
 * Control calls (start, stop, instance records) are for one control thread at a time. Any number of threads may
 * make packet calls, on any port and queue, while control calls are made; a packet call waits for one record
 * to be written at most. A control write becomes visible to packets as a whole record.
 */

#include <atomic>
#include <cstddef>
#include <cstdint>

#include <rte_common.h>
#include <rte_prefetch.h>

#include "vask_p4_mep_meter.h"

struct rte_mbuf;
struct softcard_meter;

constexpr uint32_t SOFTCARD_ENGINES = 2; /* indexed by enum vask_p4_mep_dir */
constexpr uint32_t SOFTCARD_PROFILES = 256;
constexpr uint32_t SOFTCARD_POLICIES = 256;
constexpr uint32_t SOFTCARD_METERS = 4096;
constexpr uint32_t SOFTCARD_PORTS = 16384; /* the 14 bits of a source-port number */
constexpr uint16_t SOFTCARD_BURST_MAX = 64;
/** Bytes from one meter to the next: two lines of 64, or one that is longer. */
constexpr size_t SOFTCARD_METER_SIZE = 128;

/**
 * Powers the card up: every table empty, every counter zero.
 *
 * @return 0; -EALREADY when it is up; -ENOMEM.
 */
int softcard_start();

/**
 * Powers the card down: frees its tables and lifts all faults. No other call may be under way. Harmless when
 * it is down.
 */
void softcard_stop();

/**
 * Writes an engine's meter instance.
 *
 * A record that becomes valid starts with full buckets and zero counters. One that was valid keeps its
 * counters and its levels, cut to the new bursts. Buckets and counters of the record handed in are not read.
 *
 * @return 0; -EINVAL for an unknown engine or a null record; -ERANGE for an index past the table; -ENODEV
 *   when the card is down.
 */
int softcard_meter_inst_write(
	int dir, uint32_t hw_meter_id, const struct vask_p4_mep_meter_inst_table *inst);

/** Clears an engine's meter instance, counters included. Results as of softcard_meter_inst_write(). */
int softcard_meter_inst_clear(int dir, uint32_t hw_meter_id);

/**
 * What the card does with all the packets of a source port. Any thread may load it; each burst does, and comes by one
 * cache line.
 */
struct alignas(uint64_t) softcard_port {
	/**
	 * The hardware meter bound to the port's whole traffic in each direction, or 0. Ingress: the meter output
	 * that the engine holds for the port. Egress: metering_info0 of the port's transmit input-port entry.
	 */
	std::atomic<uint16_t> meter[SOFTCARD_ENGINES];
	std::atomic<uint16_t> mtu; /* bytes, 0: never written */
};

/** A source port, to be read until the card goes down; null while it is down, or past the table. */
const struct softcard_port *softcard_port_of(uint16_t port_sfi);

/** The hardware meter bound to a port's whole traffic in one direction, or 0. Safe from any thread. */
uint32_t softcard_port_meter(int dir, uint16_t port_sfi);

/**
 * Forgets what the tables hold for a source port that is gone: meter output, MTU, transmit input-port entry
 * and port shaper. No packet of that port may be under way. 0, -ERANGE or -ENODEV.
 */
int softcard_port_clear(uint16_t port_sfi);

/**
 * A burst on its way through an engine. The arrays run side by side: element i of each belongs to packet i.
 * Only the first n elements are read.
 */
struct softcard_burst {
	uint16_t n; /* packets, at most SOFTCARD_BURST_MAX */
	uint64_t
		dropped_bytes; /* of the packets to be dropped; written by softcard_meter_burst() */
	struct rte_mbuf *pkts[SOFTCARD_BURST_MAX];
	uint64_t now_ns[SOFTCARD_BURST_MAX];      /* when each packet is metered */
	uint32_t hw_meter_id[SOFTCARD_BURST_MAX]; /* the meter of each; 0: unmetered */
	uint16_t
		taken_off[SOFTCARD_BURST_MAX]; /* bytes the port took off each frame (a VLAN tag) */
	uint16_t tag[SOFTCARD_BURST_MAX];      /* the caller's own (a queue, say), carried along */
};

/** The meters of an engine, for softcard_meter_prefetch(); null while the card is down. */
const struct softcard_meter *softcard_meters(int dir);

/** Calls a meter into the cache that softcard_meter_burst() will soon be asked for. */
static inline void
softcard_meter_prefetch(const struct softcard_meter *meters, uint32_t hw_meter_id)
{
	/* one that does not exist, or of no engine, costs a needless line, and no branch */
	/* NOLINTNEXTLINE(performance-no-int-to-ptr): there may be no object to point into */
	rte_prefetch0(reinterpret_cast<const void *>(reinterpret_cast<uintptr_t>(meters) +
		hw_meter_id % SOFTCARD_METERS * SOFTCARD_METER_SIZE));
}

/**
 * Meters a burst: colours each packet, rewrites its DSCP as the meter's policy says, and counts.
 *
 * Packets that the policy drops are counted as dropped and named in the result; they stay where they are
 * and stay the caller's, who calls softcard_burst_drop(). Their lengths, as their meters count them, stand in
 * dropped_bytes. A packet whose header other mbufs share is
 * replaced in pkts by one with a header of its own before its DSCP is rewritten.
 *
 * @return one bit for each packet that is to be dropped, bit i for packet i.
 */
uint64_t softcard_meter_burst(int dir, struct softcard_burst *burst);

/**
 * Finds the frames that are longer than the port's MTU allows: MTU + 14 + 4 for each VLAN tag, once an MTU
 * has been written. Counts nothing.
 *
 * @return one bit for each frame that is to be dropped, bit i for packet i.
 */
uint64_t softcard_mtu_burst(const struct softcard_port *port, const struct softcard_burst *burst);

/**
 * Frees the packets whose bits are set and closes the others up in all arrays, in order.
 *
 * @return packets freed.
 */
uint16_t softcard_burst_drop(struct softcard_burst *burst, uint64_t drop_mask);

#endif /* SOFTCARD_H */
