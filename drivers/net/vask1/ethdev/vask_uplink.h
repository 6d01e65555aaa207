/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_UPLINK_H
#define VASK_UPLINK_H

/**
 * @file
 * The uplink: the other driver's port that stands for the wire.
 *
 * It is known by name and may appear before our port, after it, or never. Ours owns it from the moment both
 * exist, so applications neither see nor count it, and drives its configuration, start, stop and close.
 */

#include <atomic>
#include <cstdint>

#include "vask_dpdk.h"

struct vask_port;

struct vask_uplink {
	std::atomic<uint16_t> port_id; /* RTE_MAX_ETHPORTS while there is none */
	struct rte_eth_dev_owner owner;
	bool started;
};

#endif /* VASK_UPLINK_H */
