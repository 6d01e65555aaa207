/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_POLICE_H
#define VASK_POLICE_H

/**
 * @file
 * What a burst meets on either side of a port: rules, engine and MTU. For the thread that bursts on the queue,
 * which is on line in the port's rcu.
 */

#include "vask_queue.h"

/** Whether packets pass as they are, so that they need not go through the queue's burst. */
static inline bool
vask_police_idle(const struct vask_queue *q)
{
	uint32_t port_meter;

	return !q->leave_times && q->shaper == nullptr && !q->port->clock.capture &&
		!q->strip_vlan.load(std::memory_order_relaxed) &&
		vask_flow_idle(q->port, q->card, q->dir, &port_meter) &&
		q->card->mtu.load(std::memory_order_relaxed) == 0;
}

/**
 * Sends the queue's burst, whose n and pkts are set, through rules, engine and MTU. What is dropped is counted
 * and gone afterwards; the others have closed up. Their times stand in now_ns, the queues that rules send them
 * to in tag when the verdict is `diverted`.
 */
void vask_police(struct vask_queue *queue);

#endif /* VASK_POLICE_H */
