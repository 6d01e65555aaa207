/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_UPLINK_OPS_H
#define VASK_UPLINK_OPS_H

/**
 * @file
 * Ethdev operations of a port that its uplink carries out.
 */

#include "vask_dpdk.h"

/** The link is the uplink's; down while there is none or it is stopped. */
int vask_uplink_link_update(struct rte_eth_dev *dev, int wait_to_complete);

/**
 * @name Filters of addresses
 * An uplink that has none lets everything through, so its refusal counts as success.
 * @{
 */
int vask_uplink_promiscuous_enable(struct rte_eth_dev *dev);
int vask_uplink_promiscuous_disable(struct rte_eth_dev *dev);
int vask_uplink_allmulticast_enable(struct rte_eth_dev *dev);
int vask_uplink_allmulticast_disable(struct rte_eth_dev *dev);
/** @} */

/**
 * @name Receive-side scaling
 * Of the uplink, over its queues, which are the port's. -ENODEV while there is no uplink.
 * @{
 */
int vask_uplink_rss_hash_update(struct rte_eth_dev *dev, struct rte_eth_rss_conf *conf);
int vask_uplink_rss_hash_conf_get(struct rte_eth_dev *dev, struct rte_eth_rss_conf *conf);
int vask_uplink_reta_update(
	struct rte_eth_dev *dev, struct rte_eth_rss_reta_entry64 *reta, uint16_t size);
int vask_uplink_reta_query(
	struct rte_eth_dev *dev, struct rte_eth_rss_reta_entry64 *reta, uint16_t size);
/** @} */

#endif /* VASK_UPLINK_OPS_H */
