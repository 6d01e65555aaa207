/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_PORT_H
#define VASK_PORT_H

/**
 * @file
 * One port of the card, and the lock under which control calls change it.
 *
 * Directions are the engines': VASK_P4_MEP_INGRESS for what the port receives, VASK_P4_MEP_EGRESS for what
 * it transmits.
 */

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <sys/queue.h>

#include "vask_args.h"
#include "vask_clock.h"
#include "vask_dpdk.h"
#include "vask_p4_common.h"
#include "vask_p4_mep_meter.h"
#include "vask_uplink.h"

struct rte_rcu_qsbr;
struct vask_flow_state;
struct vask_rss;

constexpr uint16_t VASK_PORTS_MAX = 32;
constexpr uint16_t VASK_QUEUES_MAX = 16;
constexpr uint16_t VASK_MTU_MIN = 68;
constexpr uint16_t VASK_MTU_MAX = 16384;

/** Life of a port: dev_private, from probe to close. */
struct vask_port {
	/** Must stay first: the P4 modules see dev_private as this. rep.priv_port is the SFI. */
	struct vask_p4_priv_port priv;
	TAILQ_ENTRY(vask_port) next;
	struct rte_eth_dev_data *data;
	struct rte_ether_addr mac;
	struct vask_args args;
	/* what bursts read, but for the number of the port, is on one line: uplink.burst_id to clock.tsc_mult */
	alignas(RTE_CACHE_LINE_SIZE) struct vask_uplink uplink;
	/**
	 * Readers of what control calls replace: a queue is on line for the time of a burst, receive queue q
	 * as thread q and transmit queue q as thread VASK_QUEUES_MAX + q. See vask_port_bursts_end().
	 */
	struct rte_rcu_qsbr *rcu;
	/** Rules of each direction; owned by vask_flow, null before vask_flow_port_init(). */
	struct vask_flow_state *flow[2];
	/** How packets are spread in software; owned by vask_rss, null while they are not. */
	std::atomic<struct vask_rss *> rss;
	struct vask_clock clock;
};
static_assert(offsetof(struct vask_port, uplink.burst_id) / RTE_CACHE_LINE_SIZE ==
	offsetof(struct vask_port, clock.tsc_mult) / RTE_CACHE_LINE_SIZE);

TAILQ_HEAD(vask_port_list, vask_port);

/** The ports of the card in the order in which they were probed; read and changed under the lock. */
extern struct vask_port_list vask_ports;

/**
 * @name Control lock
 * One for the whole card, held for the time of each control call: the module leaves it to its callers to
 * serialise themselves. Not recursive; never taken by a burst.
 * @{
 */
void vask_control_lock();
void vask_control_unlock();

/** True, and the lock is held, when nobody else holds it. */
bool vask_control_trylock();

/** The lock, held until the end of a scope. */
struct vask_control_guard {
	vask_control_guard()
	{
		vask_control_lock();
	}
	~vask_control_guard()
	{
		vask_control_unlock();
	}
	vask_control_guard(const vask_control_guard &) = delete;
	vask_control_guard &operator=(const vask_control_guard &) = delete;
};
/** @} */

/** The port of one of the driver's devices. */
static inline struct vask_port *
vask_port_of(const struct rte_eth_dev *dev)
{
	return static_cast<struct vask_port *>(dev->data->dev_private);
}

/** Returns when every burst of a port that was under way has ended. Not to be called from a burst. */
void vask_port_bursts_end(const struct vask_port *port);

static inline uint16_t
vask_port_sfi(const struct vask_port *port)
{
	return port->priv.rep.priv_port;
}

#endif /* VASK_PORT_H */
