/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_DPDK_H
#define VASK_DPDK_H

/**
 * @file
 * DPDK's driver headers, and all that differs between the DPDK releases that the driver is built against.
 */

#include <cstddef>

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
#include <rte_mtr.h>
#include <rte_mtr_driver.h>
#include <rte_telemetry.h>
}

/* Ports print their private state through ethdev since 22.03. */
#define VASK_HAS_PRIV_DUMP (RTE_VERSION >= RTE_VERSION_NUM(22, 3, 0, 0))

/* A queue's own counts are an argument of their own since 25.11. */
#if RTE_VERSION >= RTE_VERSION_NUM(25, 11, 0, 0)
#define VASK_STATS_GET_QUEUES , struct eth_queue_stats *queues
#define VASK_QUEUE_STATS(stats) queues
#else
#define VASK_STATS_GET_QUEUES
#define VASK_QUEUE_STATS(stats) stats
#endif

/* Telemetry's unsigned numbers were renamed in 23.03. */
#if RTE_VERSION >= RTE_VERSION_NUM(23, 3, 0, 0)
#define vask_tel_add_dict_uint rte_tel_data_add_dict_uint
#define vask_tel_add_array_uint rte_tel_data_add_array_uint
#define VASK_TEL_UINT_VAL RTE_TEL_UINT_VAL
#else
#define vask_tel_add_dict_uint rte_tel_data_add_dict_u64
#define vask_tel_add_array_uint rte_tel_data_add_array_u64
#define VASK_TEL_UINT_VAL RTE_TEL_U64_VAL
#endif

/* The driver's DPDK ends struct rte_mtr_params with a field of its own. */
static_assert(offsetof(struct rte_mtr_params, direction) >
		offsetof(struct rte_mtr_params, meter_policy_id),
	"rte_mtr.h without the direction field: the installed header was found first");
#if RTE_VERSION >= RTE_VERSION_NUM(22, 11, 0, 0)
static_assert(
	sizeof(struct rte_mtr_params) == 56 && offsetof(struct rte_mtr_params, direction) == 48,
	"struct rte_mtr_params");
#else
static_assert(
	sizeof(struct rte_mtr_params) == 40 && offsetof(struct rte_mtr_params, direction) == 36,
	"struct rte_mtr_params");
#endif

#endif /* VASK_DPDK_H */
