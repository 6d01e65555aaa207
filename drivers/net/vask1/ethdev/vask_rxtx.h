/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_RXTX_H
#define VASK_RXTX_H

/**
 * @file
 * Bursts: the way of packets between the application and the uplink, through rules, engine, MTU and shaper.
 */

#include <cstdint>

struct rte_mbuf;
struct vask_queue;

/** The ethdev's receive burst: takes at most n packets from the uplink and hands out those that are left. */
uint16_t vask_rx_burst(void *queue, struct rte_mbuf **pkts, uint16_t n);

/**
 * The ethdev's transmit burst. A packet that is taken has been metered; one that the uplink has no room for
 * waits in the queue and goes first in the next burst. With n = 0 only waiting packets move on.
 *
 * @return packets taken, those dropped on the way included.
 */
uint16_t vask_tx_burst(void *queue, struct rte_mbuf **pkts, uint16_t n);

/** Sends, as if time ran on, what waits in a transmit queue's shaper. For the capture clock, at stop. */
void vask_tx_flush(struct vask_queue *queue);

#endif /* VASK_RXTX_H */
