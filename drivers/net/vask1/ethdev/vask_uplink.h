/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_UPLINK_H
#define VASK_UPLINK_H

/**
 * @file
 * The uplink: the other driver's port that stands for the wire.
 *
 * It is known by name and may appear before our port, after it, or never. Ours owns it from the moment both
 * exist, so applications neither see nor count it, and drives its configuration, queues, start, stop and
 * close.
 *
 * A driver that finds its device gone says so (RTE_ETH_EVENT_INTR_RMV), and bursts let go of the uplink at
 * once. A device that the application removes is not announced: ethdev's first word of it is
 * RTE_ETH_EVENT_DESTROY, from the release of the port, and by then the driver has closed the device, its
 * rings or capture files included. So whoever removes an uplink stops the traffic, or our port, before.
 */

#include <atomic>
#include <cstdint>

#include "vask_dpdk.h"

struct vask_port;

constexpr uint16_t VASK_UPLINK_NONE = UINT16_MAX;

struct vask_uplink {
	struct rte_eth_dev_owner owner;
	std::atomic<uint16_t> port_id;  /* the port that we own, or VASK_UPLINK_NONE */
	std::atomic<uint16_t> burst_id; /* the same while it is started: what bursts use */
};

/**
 * Takes ownership of the uplink, or waits for it when there is no such port yet.
 *
 * @return 0; -EBUSY after an ERR line: it is owned by another, or is one of the driver's own ports; or the
 *   negative errno of a refused registration.
 */
int vask_uplink_attach(struct vask_port *port);

/** Gives the uplink back as it is and forgets it: what a failed probe does. */
void vask_uplink_release(struct vask_port *port);

/** Closes the uplink and forgets it. Harmless when there is none. */
void vask_uplink_close(struct vask_port *port);

/** What the uplink can do. 0; -ENODEV while there is none. */
int vask_uplink_info(const struct vask_port *port, struct rte_eth_dev_info *info);

/** Configures the uplink after the port's own configuration. A lack of the uplink gives an ERR line. */
int vask_uplink_configure(struct vask_port *port, uint16_t n_rx, uint16_t n_tx);

int vask_uplink_rx_queue_setup(const struct vask_port *port, uint16_t queue, uint16_t n_desc,
	unsigned int socket, struct rte_mempool *pool);
int vask_uplink_tx_queue_setup(
	const struct vask_port *port, uint16_t queue, uint16_t n_desc, unsigned int socket);

int vask_uplink_start(struct vask_port *port);

/** Stops the uplink; when it returns no burst uses it any more. */
int vask_uplink_stop(struct vask_port *port);

#endif /* VASK_UPLINK_H */
