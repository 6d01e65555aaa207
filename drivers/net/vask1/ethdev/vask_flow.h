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

#include <rte_mbuf.h>
#include <rte_prefetch.h>

#include "softcard.h"
#include "vask_by_eights.h"
#include "vask_flow_table.h"
#include "vask_port.h"

/** The rte_flow operations of a port, for its flow_ops_get slot. They take the control lock themselves. */
extern const struct rte_flow_ops vask_flow_ops;

/** Gives a port its rule tables. The port's rcu must stand. 0, or -ENOMEM and there are none. */
int vask_flow_port_init(struct vask_port *port);

/** Removes a port's rules and tables. Under the control lock; no burst may be under way. */
void vask_flow_port_fini(struct vask_port *port);

/** What the rules say about a burst, beside what they write into it. */
struct vask_flow_verdict {
	uint64_t
		drop_mask; /* bit i: a rule drops packet i, which is neither metered nor freed here */
	bool metered;      /* some packet may have a meter, and hw_meter_id is written */
	bool diverted;     /* rules name queues for some packets, and tag is written */
};

/**
 * Whether a direction has no rule and no meter. A queue that finds it so may let a burst pass as it is.
 *
 * @param card        the port as the card knows it.
 * @param port_meter  receives the hardware meter that takes what no rule meters, 0 for none.
 */
static inline bool
vask_flow_idle(const struct vask_port *port, const struct softcard_port *card, int dir,
	uint32_t *port_meter)
{
	const struct vask_flow_state *state = port->flow[dir];

	*port_meter = state->metering.load(std::memory_order_relaxed)
		? 0
		: card->meter[dir].load(std::memory_order_relaxed);
	return *port_meter == 0 && state->view.load(std::memory_order_relaxed) == nullptr;
}

/** Calls the frames of a burst into the cache, if there are rules that will look into them. */
static inline void
vask_flow_prefetch(const struct vask_port *port, int dir, const struct softcard_burst *burst)
{
	if (port->flow[dir]->view.load(std::memory_order_relaxed) == nullptr)
		return;
	vask_by_eights(burst->pkts, burst->n,
		[](const struct rte_mbuf *m) { rte_prefetch0(rte_pktmbuf_mtod(m, const void *)); });
}

/**
 * Classifies a burst: writes the hardware meter of each packet into hw_meter_id, and the receive queue that a
 * rule sends it to, or VASK_FLOW_STAY, into tag, where the verdict says so.
 *
 * For the time of the call, and until the caller has used the verdict, the queue is on line in port->rcu.
 * Takes no lock, and writes nothing that another queue writes.
 *
 * @param card   the port as the card knows it.
 * @param queue  the receive or transmit queue, 0..VASK_QUEUES_MAX-1.
 * @param dir    VASK_P4_MEP_INGRESS or VASK_P4_MEP_EGRESS.
 */
static inline void
vask_flow_classify(const struct vask_port *port, const struct softcard_port *card, uint16_t queue,
	int dir, struct softcard_burst *burst, struct vask_flow_verdict *out)
{
	uint32_t port_meter;

	*out = {};
	if (likely(vask_flow_idle(port, card, dir, &port_meter)))
		return;
	out->metered = true;
	for (uint16_t i = 0; i < burst->n; i++)
		burst->hw_meter_id[i] = port_meter;
	vask_flow_state_classify(port->flow[dir], queue, softcard_meters(dir), burst, out);
}

#endif /* VASK_FLOW_H */
