/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_ETHDEV_H
#define VASK_ETHDEV_H

/**
 * @file
 * A port as ethdev sees it.
 */

#include "vask_dpdk.h"

/** The port's ethdev operations; one table for all ports. */
const struct eth_dev_ops *vask_eth_dev_ops();

#endif /* VASK_ETHDEV_H */
