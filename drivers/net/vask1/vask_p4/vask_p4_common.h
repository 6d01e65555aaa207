/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_P4_COMMON_H
#define VASK_P4_COMMON_H

/**
 * @file
 * The private data of a port, as the P4 modules of the driver see it.
 */

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct rte_eth_dev;

struct vask_p4_representor_info {
	uint16_t dev_port;  /* device port number */
	uint16_t priv_port; /* source-port number (SFI) of the port, 0..16383 */
	uint16_t port_id;   /* DPDK port id */
	uint16_t port_type;
	bool rep_flag; /* the port is a representor */
};

/** Private data of a port; a port's dev_private begins with it. */
struct vask_p4_priv_port {
	struct vask_p4_representor_info rep;
};

/**
 * The private data of one of the driver's ports.
 *
 * @param dev  a device, or null, or an address past the ethdev array: it is compared before it is read.
 * @return the port's private data, valid until the port is closed; null for a null device, for one
 *   outside the ethdev array or not attached, and for another driver's port.
 */
struct vask_p4_priv_port *vask_p4_priv_data_get(struct rte_eth_dev *dev);

#ifdef __cplusplus
}
#endif

#endif /* VASK_P4_COMMON_H */
