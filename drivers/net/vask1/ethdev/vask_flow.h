/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_FLOW_H
#define VASK_FLOW_H

/**
 * @file
 * The rte_flow rules of a port, and what they say about its packets.
 *
 * A rule matches the items eth, vlan, ipv4, ipv6, udp and tcp, with any mask; it meters (METER), counts
 * (COUNT), and sends a packet to another receive queue (QUEUE) or drops it (DROP). Of the rules that match
 * a packet the one with the lowest priority value applies, among equals the oldest. After a rule with
 * PASSTHRU the search goes on; the first METER met holds, and every COUNT met counts.
 */

#include <cstdint>

#include "softcard.h"
#include "vask_flow_table.h"
#include "vask_port.h"

/** The rte_flow operations of a port, for its flow_ops_get slot. They take the control lock themselves. */
extern const struct rte_flow_ops vask_flow_ops;

/** Gives a port its rule tables. The port's rcu must stand. 0, or -ENOMEM and there are none. */
int vask_flow_port_init(struct vask_port *port);

/** Removes a port's rules and tables. Under the control lock; no burst may be under way. */
void vask_flow_port_fini(struct vask_port *port);

/** What the rules say about a burst; element or bit i for packet i. */
struct vask_flow_verdict {
	/** The hardware meter of each packet, 0: unmetered. Not written unless `metered`. */
	uint32_t hw_meter_id[SOFTCARD_BURST_MAX];
	/** Receive queue that each packet goes to. Not written unless `diverted`. */
	uint16_t queue[SOFTCARD_BURST_MAX];
	/** Packets that a rule drops; they are neither metered nor freed here. */
	uint64_t drop_mask;
	bool metered;  /* some packet may have a meter */
	bool diverted; /* some packet goes to another queue than it arrived on */
};

/**
 * Classifies a burst.
 *
 * For the time of the call, and until the caller has used the verdict, the queue is on line in port->rcu.
 * Takes no lock, and writes nothing that another queue writes.
 *
 * @param queue  the receive or transmit queue, 0..VASK_QUEUES_MAX-1.
 * @param dir    VASK_P4_MEP_INGRESS or VASK_P4_MEP_EGRESS.
 * @param n      packets, at most SOFTCARD_BURST_MAX.
 */
static inline void
vask_flow_classify(const struct vask_port *port, uint16_t queue, int dir,
	struct rte_mbuf *const *pkts, uint16_t n, struct vask_flow_verdict *out)
{
	const struct vask_flow_state *state = port->flow[dir];
	const struct vask_flow_view *view = state->view.load(std::memory_order_acquire);
	uint32_t port_meter = 0;

	out->drop_mask = 0;
	out->diverted = false;
	if (view == nullptr || !state->metering.load(std::memory_order_relaxed))
		port_meter = softcard_port_meter(dir, vask_port_sfi(port));
	out->metered = port_meter != 0 || view != nullptr;
	if (out->metered)
		for (uint16_t i = 0; i < n; i++)
			out->hw_meter_id[i] = port_meter;
	if (view != nullptr)
		vask_flow_view_classify(view, queue, pkts, n, out);
}

#endif /* VASK_FLOW_H */
