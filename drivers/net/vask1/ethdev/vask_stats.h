/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_STATS_H
#define VASK_STATS_H

/**
 * @file
 * A port's statistics: the sums of what its queues count, since the last reset.
 */

#include "vask_dpdk.h"

int vask_stats_get(struct rte_eth_dev *dev, struct rte_eth_stats *stats VASK_STATS_GET_QUEUES);
int vask_stats_reset(struct rte_eth_dev *dev);

/** Extended statistics: what was dropped on the way, by reason; rx_... and tx_.... */
int vask_xstats_get(struct rte_eth_dev *dev, struct rte_eth_xstat *xstats, unsigned int n);
int
vask_xstats_get_names(struct rte_eth_dev *dev, struct rte_eth_xstat_name *names, unsigned int n);

#endif /* VASK_STATS_H */
