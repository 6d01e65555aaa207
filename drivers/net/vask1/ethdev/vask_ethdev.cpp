/* SPDX-License-Identifier: BSD-3-Clause */
#include <cerrno>

#include <rte_malloc.h>

#include "softcard_view.h"
#include "vask_card.h"
#include "vask_dump.h"
#include "vask_ethdev.h"
#include "vask_flow.h"
#include "vask_mtr.h"
#include "vask_p4_log.h"
#include "vask_p4_meter.h"
#include "vask_port.h"
#include "vask_queue.h"
#include "vask_rss.h"
#include "vask_rxtx.h"
#include "vask_stats.h"
#include "vask_uplink_ops.h"

namespace
{

/* Beside the MTU: Ethernet header and up to two tags. */
constexpr uint32_t FRAME_OVERHEAD = RTE_ETHER_HDR_LEN + 2 * RTE_VLAN_HLEN;

/* What the uplink may do for us. Mbufs are replaced on the way, so no fast release of one pool's. */
constexpr uint64_t UPLINK_RX_OFFLOADS =
	RTE_ETH_RX_OFFLOAD_SCATTER | RTE_ETH_RX_OFFLOAD_CHECKSUM | RTE_ETH_RX_OFFLOAD_RSS_HASH;
constexpr uint64_t UPLINK_TX_OFFLOADS = RTE_ETH_TX_OFFLOAD_MULTI_SEGS |
	RTE_ETH_TX_OFFLOAD_IPV4_CKSUM | RTE_ETH_TX_OFFLOAD_UDP_CKSUM | RTE_ETH_TX_OFFLOAD_TCP_CKSUM;

int
dev_infos_get(struct rte_eth_dev *dev, struct rte_eth_dev_info *info)
{
	struct rte_eth_dev_info uplink;

	info->max_mac_addrs = 1;
	info->min_mtu = VASK_MTU_MIN;
	info->max_mtu = VASK_MTU_MAX;
	info->max_rx_pktlen = VASK_MTU_MAX + FRAME_OVERHEAD;
	info->max_rx_queues = VASK_QUEUES_MAX;
	info->max_tx_queues = VASK_QUEUES_MAX;
	info->default_rxportconf = {SOFTCARD_BURST_MAX, 512, 1};
	info->default_txportconf = {SOFTCARD_BURST_MAX, 512, 1};
	info->rx_offload_capa = RTE_ETH_RX_OFFLOAD_TIMESTAMP | RTE_ETH_RX_OFFLOAD_VLAN_STRIP;
	if (vask_uplink_info(vask_port_of(dev), &uplink) != 0)
		return 0;

	info->max_tx_queues = RTE_MIN(VASK_QUEUES_MAX, uplink.max_tx_queues);
	info->rx_offload_capa |= uplink.rx_offload_capa & UPLINK_RX_OFFLOADS;
	info->tx_offload_capa = uplink.tx_offload_capa & UPLINK_TX_OFFLOADS;
	info->min_rx_bufsize = uplink.min_rx_bufsize;
	info->rx_desc_lim = uplink.rx_desc_lim;
	info->tx_desc_lim = uplink.tx_desc_lim;
	info->flow_type_rss_offloads = uplink.flow_type_rss_offloads;
	info->reta_size = uplink.reta_size;
	info->hash_key_size = uplink.hash_key_size;
	info->if_index = uplink.if_index;
	vask_rss_info(vask_port_of(dev), &uplink, info);
	return 0;
}

int
mtu_set(struct rte_eth_dev *dev, uint16_t mtu)
{
	const struct vask_control_guard lock;
	const int rc = vask_p4_dev_mtu_set(dev, mtu);

	return rc > 0 ? -EIO : rc;
}

/* Without an MTU of its own the card applies none; ethdev fills in 1500 where the application names none. */
int
configure_mtu(struct rte_eth_dev *dev)
{
	const uint16_t mtu = dev->data->dev_conf.rxmode.mtu;
	struct softcard_port_view card = {};

	{
		const struct vask_control_guard lock;

		softcard_view_port(vask_port_sfi(vask_port_of(dev)), &card);
	}
	if (card.mtu == mtu || (card.mtu == 0 && mtu == RTE_ETHER_MTU))
		return 0;
	return mtu_set(dev, mtu);
}

int
dev_configure(struct rte_eth_dev *dev)
{
	struct vask_port *port = vask_port_of(dev);
	int rc;

	rc = vask_rss_configure(port);
	if (rc == 0)
		rc = vask_uplink_configure(
			port, vask_rss_uplink_queues(port), dev->data->nb_tx_queues);
	return rc != 0 ? rc : configure_mtu(dev);
}

int
rx_queue_setup(struct rte_eth_dev *dev, uint16_t id, uint16_t n_desc, unsigned int socket,
	const struct rte_eth_rxconf *, struct rte_mempool *pool)
{
	struct vask_port *port = vask_port_of(dev);
	const uint64_t offloads = dev->data->dev_conf.rxmode.offloads;
	struct vask_queue *q;
	int rc;

	if (id < vask_rss_uplink_queues(port)) {
		rc = vask_uplink_rx_queue_setup(port, id, n_desc, socket, pool);
		if (rc != 0)
			return rc;
	}
	q = vask_queue_create(port, VASK_P4_MEP_INGRESS, id, socket, pool);
	if (q == nullptr)
		return -ENOMEM;
	q->strip_vlan = (offloads & RTE_ETH_RX_OFFLOAD_VLAN_STRIP) != 0;
	q->leave_times = (offloads & RTE_ETH_RX_OFFLOAD_TIMESTAMP) != 0 && !port->clock.capture;
	dev->data->rx_queues[id] = q;
	return 0;
}

int
tx_queue_setup(struct rte_eth_dev *dev, uint16_t id, uint16_t n_desc, unsigned int socket,
	const struct rte_eth_txconf *)
{
	struct vask_port *port = vask_port_of(dev);
	struct vask_queue *q;
	int rc;

	rc = vask_uplink_tx_queue_setup(port, id, n_desc, socket);
	if (rc != 0)
		return rc;
	q = vask_queue_create(port, VASK_P4_MEP_EGRESS, id, socket, nullptr);
	if (q == nullptr)
		return -ENOMEM;
	dev->data->tx_queues[id] = q;
	return 0;
}

void
rx_queue_release(struct rte_eth_dev *dev, uint16_t id)
{
	vask_queue_free(static_cast<struct vask_queue *>(dev->data->rx_queues[id]));
	dev->data->rx_queues[id] = nullptr;
}

void
tx_queue_release(struct rte_eth_dev *dev, uint16_t id)
{
	vask_queue_free(static_cast<struct vask_queue *>(dev->data->tx_queues[id]));
	dev->data->tx_queues[id] = nullptr;
}

void
queue_states(struct rte_eth_dev *dev, uint8_t state)
{
	for (uint16_t i = 0; i < dev->data->nb_rx_queues; i++)
		dev->data->rx_queue_state[i] = state;
	for (uint16_t i = 0; i < dev->data->nb_tx_queues; i++)
		dev->data->tx_queue_state[i] = state;
}

/* Where there are several receive queues, one may get packets from another. */
int
open_handovers(const struct rte_eth_dev_data *data)
{
	int rc = 0;

	for (uint16_t i = 0; data->nb_rx_queues > 1 && i < data->nb_rx_queues && rc == 0; i++)
		if (data->rx_queues[i] != nullptr)
			rc = vask_queue_handover_open(
				static_cast<struct vask_queue *>(data->rx_queues[i]));
	return rc;
}

int
dev_start(struct rte_eth_dev *dev)
{
	int rc = open_handovers(dev->data);

	if (rc == 0)
		rc = vask_uplink_start(vask_port_of(dev));
	if (rc != 0)
		return rc;
	queue_states(dev, RTE_ETH_QUEUE_STATE_STARTED);
	return 0;
}

int
dev_stop(struct rte_eth_dev *dev)
{
	struct vask_port *port = vask_port_of(dev);
	int rc;

	/* the application's bursts have ended before its transmit queues are emptied */
	vask_port_bursts_end(port);
	if (port->clock.capture)
		for (uint16_t i = 0; i < dev->data->nb_tx_queues; i++)
			if (dev->data->tx_queues[i] != nullptr)
				vask_tx_flush(
					static_cast<struct vask_queue *>(dev->data->tx_queues[i]));
	rc = vask_uplink_stop(port);
	queue_states(dev, RTE_ETH_QUEUE_STATE_STOPPED);
	vask_uplink_link_update(dev, 0);
	return rc;
}

int
dev_close(struct rte_eth_dev *dev)
{
	struct vask_port *port = vask_port_of(dev);

	if (rte_eal_process_type() != RTE_PROC_PRIMARY)
		return 0;
	vask_uplink_close(port);
	for (uint16_t i = 0; i < dev->data->nb_rx_queues; i++)
		rx_queue_release(dev, i);
	for (uint16_t i = 0; i < dev->data->nb_tx_queues; i++)
		tx_queue_release(dev, i);
	vask_rss_fini(port);
	{
		const struct vask_control_guard lock;

		vask_flow_port_fini(port);
		vask_card_leave(port);
	}
	rte_free(port->rcu);
	/* it stands in the port, which ethdev frees as a whole */
	dev->data->mac_addrs = nullptr;
	return 0;
}

/* As after the probe: no rule, no meter, nothing counted. The application configures it again. */
int
dev_reset(struct rte_eth_dev *dev)
{
	struct vask_port *port = vask_port_of(dev);
	const struct vask_control_guard lock;

	vask_flow_port_fini(port);
	vask_card_destroy_meters(port);
	vask_stats_reset(dev);
	return vask_flow_port_init(port);
}

/* The card does not look at addresses; ethdev keeps it. */
int
mac_addr_set(struct rte_eth_dev *, struct rte_ether_addr *)
{
	return 0;
}

int
vlan_offload_set(struct rte_eth_dev *dev, int mask)
{
	const bool strip =
		(dev->data->dev_conf.rxmode.offloads & RTE_ETH_RX_OFFLOAD_VLAN_STRIP) != 0;

	if ((mask & RTE_ETH_VLAN_STRIP_MASK) != 0)
		for (uint16_t i = 0; i < dev->data->nb_rx_queues; i++)
			if (dev->data->rx_queues[i] != nullptr)
				static_cast<struct vask_queue *>(dev->data->rx_queues[i])
					->strip_vlan = strip;
	return 0;
}

/* In the unit of the mbufs' timestamps. */
int
read_clock(struct rte_eth_dev *dev, uint64_t *ticks)
{
	const struct vask_clock *clock = &vask_port_of(dev)->clock;

	*ticks = vask_clock_now(clock) / (clock->capture ? clock->ns_per_tick : 1);
	return 0;
}

int
flow_ops_get(struct rte_eth_dev *, const struct rte_flow_ops **ops)
{
	*ops = &vask_flow_ops;
	return 0;
}

/* By name, because releases of DPDK differ in their slots and in the order of them. */
constexpr struct eth_dev_ops
eth_dev_ops_fill()
{
	struct eth_dev_ops ops = {};

	ops.dev_configure = dev_configure;
	ops.dev_start = dev_start;
	ops.dev_stop = dev_stop;
	ops.dev_close = dev_close;
	ops.dev_reset = dev_reset;
	ops.dev_infos_get = dev_infos_get;
	ops.rx_queue_setup = rx_queue_setup;
	ops.rx_queue_release = rx_queue_release;
	ops.tx_queue_setup = tx_queue_setup;
	ops.tx_queue_release = tx_queue_release;
	ops.link_update = vask_uplink_link_update;
	ops.promiscuous_enable = vask_uplink_promiscuous_enable;
	ops.promiscuous_disable = vask_uplink_promiscuous_disable;
	ops.allmulticast_enable = vask_uplink_allmulticast_enable;
	ops.allmulticast_disable = vask_uplink_allmulticast_disable;
	ops.mac_addr_set = mac_addr_set;
	ops.mtu_set = mtu_set;
	ops.vlan_offload_set = vlan_offload_set;
	ops.rss_hash_update = vask_rss_hash_update;
	ops.rss_hash_conf_get = vask_rss_hash_conf_get;
	ops.reta_update = vask_rss_reta_update;
	ops.reta_query = vask_rss_reta_query;
	ops.stats_get = vask_stats_get;
	ops.stats_reset = vask_stats_reset;
	ops.xstats_get = vask_xstats_get;
	ops.xstats_get_names = vask_xstats_get_names;
	ops.xstats_reset = vask_stats_reset;
	ops.read_clock = read_clock;
#if VASK_HAS_PRIV_DUMP
	ops.eth_dev_priv_dump = vask_dump;
#endif
	ops.flow_ops_get = flow_ops_get;
	ops.mtr_ops_get = vask_mtr_ops_get;
	return ops;
}

constinit const struct eth_dev_ops ops_table = eth_dev_ops_fill();

} // namespace

const struct eth_dev_ops *
vask_eth_dev_ops()
{
	return &ops_table;
}
