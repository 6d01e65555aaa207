/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_DPDK_H
#define VASK_DPDK_H

/**
 * @file
 * DPDK's driver headers, and all that differs between the DPDK releases that the driver is built against.
 */

#include <rte_version.h>

/* The driver headers got their own extern "C" only after 21.11. */
extern "C" {
#include <ethdev_driver.h>
#include <ethdev_vdev.h>
#include <rte_kvargs.h>
#if RTE_VERSION >= RTE_VERSION_NUM(22, 11, 0, 0)
#include <bus_vdev_driver.h>
#include <dev_driver.h>
#else
#include <rte_bus_vdev.h>
#include <rte_dev.h>
#endif
#include <rte_flow_driver.h>
#include <rte_mtr_driver.h>
}

#endif /* VASK_DPDK_H */
