/* SPDX-License-Identifier: BSD-3-Clause */
#include <cerrno>

#include "vask_port.h"
#include "vask_uplink_ops.h"

int
vask_uplink_link_update(struct rte_eth_dev *dev, int)
{
	struct vask_port *port = vask_port_of(dev);
	const uint16_t uplink = port->uplink.burst_id;
	struct rte_eth_link link = {};

	if (uplink == VASK_UPLINK_NONE || rte_eth_link_get_nowait(uplink, &link) != 0)
		link = {};
	return rte_eth_linkstatus_set(dev, &link);
}

/* A filter of addresses that the uplink does not have lets everything through. */
static int
uplink_filter(struct rte_eth_dev *dev, int (*set)(uint16_t port_id))
{
	const uint16_t uplink = vask_port_of(dev)->uplink.port_id;
	const int rc = uplink == VASK_UPLINK_NONE ? 0 : set(uplink);

	return rc == -ENOTSUP ? 0 : rc;
}

int
vask_uplink_promiscuous_enable(struct rte_eth_dev *dev)
{
	return uplink_filter(dev, rte_eth_promiscuous_enable);
}

int
vask_uplink_promiscuous_disable(struct rte_eth_dev *dev)
{
	return uplink_filter(dev, rte_eth_promiscuous_disable);
}

int
vask_uplink_allmulticast_enable(struct rte_eth_dev *dev)
{
	return uplink_filter(dev, rte_eth_allmulticast_enable);
}

int
vask_uplink_allmulticast_disable(struct rte_eth_dev *dev)
{
	return uplink_filter(dev, rte_eth_allmulticast_disable);
}

int
vask_uplink_rss_hash_update(struct rte_eth_dev *dev, struct rte_eth_rss_conf *conf)
{
	const uint16_t uplink = vask_port_of(dev)->uplink.port_id;

	return uplink == VASK_UPLINK_NONE ? -ENODEV : rte_eth_dev_rss_hash_update(uplink, conf);
}

int
vask_uplink_rss_hash_conf_get(struct rte_eth_dev *dev, struct rte_eth_rss_conf *conf)
{
	const uint16_t uplink = vask_port_of(dev)->uplink.port_id;

	return uplink == VASK_UPLINK_NONE ? -ENODEV : rte_eth_dev_rss_hash_conf_get(uplink, conf);
}

int
vask_uplink_reta_update(
	struct rte_eth_dev *dev, struct rte_eth_rss_reta_entry64 *reta, uint16_t size)
{
	const uint16_t uplink = vask_port_of(dev)->uplink.port_id;

	return uplink == VASK_UPLINK_NONE ? -ENODEV
					  : rte_eth_dev_rss_reta_update(uplink, reta, size);
}

int
vask_uplink_reta_query(
	struct rte_eth_dev *dev, struct rte_eth_rss_reta_entry64 *reta, uint16_t size)
{
	const uint16_t uplink = vask_port_of(dev)->uplink.port_id;

	return uplink == VASK_UPLINK_NONE ? -ENODEV
					  : rte_eth_dev_rss_reta_query(uplink, reta, size);
}
