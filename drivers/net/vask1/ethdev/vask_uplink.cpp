/* SPDX-License-Identifier: BSD-3-Clause */
#include <cerrno>
#include <cstring>

#include <rte_pause.h>
#include <rte_string_fns.h>

#include "vask_p4_log.h"
#include "vask_port.h"
#include "vask_uplink.h"

static uint16_t
uplink_id(const struct vask_port *port)
{
	return port->uplink.port_id.load(std::memory_order_acquire);
}

/* Takes the uplink out of the bursts' hands. */
static void
uplink_quiesce(struct vask_port *port)
{
	port->uplink.burst_id.store(VASK_UPLINK_NONE, std::memory_order_seq_cst);
	vask_port_bursts_end(port);
}

static int
uplink_own(struct vask_port *port, uint16_t id)
{
	const int rc = rte_eth_dev_owner_set(id, &port->uplink.owner);

	if (rc != 0) {
		VASK_P4_LOG(ERR, "%s: uplink %s cannot be taken, it has another owner: %s",
			port->data->name, port->args.uplink, rte_strerror(-rc));
		return -EBUSY;
	}
	port->uplink.port_id.store(id, std::memory_order_release);
	VASK_P4_LOG(INFO, "%s: uplink is %s, port %u", port->data->name, port->args.uplink, id);
	return 0;
}

/* The port is being probed: no more than its name can be relied on. */
static int
uplink_appears(uint16_t port_id, enum rte_eth_event_type, void *arg, void *)
{
	struct vask_port *port = static_cast<struct vask_port *>(arg);

	if (uplink_id(port) == VASK_UPLINK_NONE &&
		strcmp(rte_eth_devices[port_id].data->name, port->args.uplink) == 0)
		uplink_own(port, port_id);
	return 0;
}

static int
uplink_disappears(uint16_t port_id, enum rte_eth_event_type, void *arg, void *)
{
	struct vask_port *port = static_cast<struct vask_port *>(arg);

	if (port_id != uplink_id(port))
		return 0;
	uplink_quiesce(port);
	port->uplink.port_id.store(VASK_UPLINK_NONE, std::memory_order_release);
	VASK_P4_LOG(WARNING, "%s: uplink %s is gone", port->data->name, port->args.uplink);
	return 0;
}

/* The driver has found its device gone; the port stands until somebody removes it. */
static int
uplink_is_unplugged(uint16_t port_id, enum rte_eth_event_type, void *arg, void *)
{
	struct vask_port *port = static_cast<struct vask_port *>(arg);

	if (port_id != uplink_id(port))
		return 0;
	uplink_quiesce(port);
	VASK_P4_LOG(WARNING, "%s: uplink %s is unplugged", port->data->name, port->args.uplink);
	return 0;
}

struct uplink_event {
	enum rte_eth_event_type type;
	rte_eth_dev_cb_fn happens;
};

static constexpr struct uplink_event uplink_events[] = {
	{RTE_ETH_EVENT_NEW, uplink_appears},
	{RTE_ETH_EVENT_INTR_RMV, uplink_is_unplugged},
	{RTE_ETH_EVENT_DESTROY, uplink_disappears},
};

/* Harmless for an event that was not registered. */
static void
uplink_unregister(struct vask_port *port)
{
	for (const struct uplink_event &event : uplink_events)
		/* -EAGAIN while the callback runs in another thread */
		while (rte_eth_dev_callback_unregister(
			       RTE_ETH_ALL, event.type, event.happens, port) == -EAGAIN)
			rte_pause();
}

int
vask_uplink_attach(struct vask_port *port)
{
	struct vask_port *other;
	uint16_t id;
	int rc;

	port->uplink.port_id = VASK_UPLINK_NONE;
	port->uplink.burst_id = VASK_UPLINK_NONE;

	/* neither one of ours as an uplink, nor two of ours on one */
	TAILQ_FOREACH (other, &vask_ports, next) {
		if (strcmp(other->data->name, port->args.uplink) == 0 ||
			strcmp(other->args.uplink, port->data->name) == 0 ||
			(port->args.uplink[0] != '\0' &&
				strcmp(other->args.uplink, port->args.uplink) == 0)) {
			VASK_P4_LOG(ERR, "%s: uplink=%s is refused: %s has uplink=%s",
				port->data->name, port->args.uplink, other->data->name,
				other->args.uplink);
			return -EBUSY;
		}
	}
	if (port->args.uplink[0] == '\0')
		return 0;

	rc = rte_eth_dev_owner_new(&port->uplink.owner.id);
	if (rc != 0)
		return rc;
	rte_strscpy(port->uplink.owner.name, port->data->name, sizeof(port->uplink.owner.name));

	for (const struct uplink_event &event : uplink_events) {
		rc = rte_eth_dev_callback_register(RTE_ETH_ALL, event.type, event.happens, port);
		if (rc != 0)
			break;
	}
	if (rc == 0 && rte_eth_dev_get_port_by_name(port->args.uplink, &id) == 0)
		rc = uplink_own(port, id);
	if (rc != 0)
		uplink_unregister(port);
	return rc;
}

/* Ends the waiting for events; returns the uplink, which is ours no more. */
static uint16_t
uplink_forget(struct vask_port *port)
{
	if (port->args.uplink[0] == '\0')
		return VASK_UPLINK_NONE;
	uplink_unregister(port);
	return port->uplink.port_id.exchange(VASK_UPLINK_NONE);
}

void
vask_uplink_release(struct vask_port *port)
{
	const uint16_t id = uplink_forget(port);

	if (id != VASK_UPLINK_NONE)
		rte_eth_dev_owner_unset(id, port->uplink.owner.id);
}

void
vask_uplink_close(struct vask_port *port)
{
	const uint16_t id = uplink_forget(port);

	if (id != VASK_UPLINK_NONE)
		rte_eth_dev_close(id);
}

int
vask_uplink_info(const struct vask_port *port, struct rte_eth_dev_info *info)
{
	const uint16_t id = uplink_id(port);

	return id == VASK_UPLINK_NONE ? -ENODEV : rte_eth_dev_info_get(id, info);
}

/* The part of the port's configuration that the uplink carries out. */
static void
uplink_conf(const struct vask_port *port, const struct rte_eth_dev_info *info,
	struct rte_eth_conf *conf)
{
	const struct rte_eth_conf *own = &port->data->dev_conf;

	*conf = {};
	conf->rxmode.mtu = own->rxmode.mtu;
	conf->rxmode.offloads = own->rxmode.offloads & ~RTE_ETH_RX_OFFLOAD_VLAN_STRIP;
	if (port->clock.capture)
		conf->rxmode.offloads |= RTE_ETH_RX_OFFLOAD_TIMESTAMP;
	conf->rxmode.offloads &= info->rx_offload_capa;
	conf->txmode.offloads = own->txmode.offloads & info->tx_offload_capa;
	if (port->rss != nullptr) {
		conf->rxmode.offloads &= ~RTE_ETH_RX_OFFLOAD_RSS_HASH;
	} else if ((own->rxmode.mq_mode & RTE_ETH_MQ_RX_RSS_FLAG) != 0) {
		conf->rxmode.mq_mode = RTE_ETH_MQ_RX_RSS;
		conf->rx_adv_conf.rss_conf = own->rx_adv_conf.rss_conf;
	}
}

int
vask_uplink_configure(struct vask_port *port, uint16_t n_rx, uint16_t n_tx)
{
	const uint16_t id = uplink_id(port);
	const char *name = port->data->name;
	struct rte_eth_dev_info info;
	struct rte_eth_conf conf;
	int rc;

	if (id == VASK_UPLINK_NONE) {
		VASK_P4_LOG(ERR,
			"%s: there is no uplink \"%s\"; name one with uplink=<ethdev name>", name,
			port->args.uplink);
		return -ENODEV;
	}
	rc = rte_eth_dev_info_get(id, &info);
	if (rc != 0)
		return rc;

	uplink_conf(port, &info, &conf);
	if (n_rx > info.max_rx_queues || n_tx > info.max_tx_queues) {
		VASK_P4_LOG(ERR,
			"%s: uplink %s has %u receive and %u transmit queues, not %u and %u%s",
			name, port->args.uplink, info.max_rx_queues, info.max_tx_queues, n_rx, n_tx,
			n_rx > info.max_rx_queues ? "; RSS serves more receive queues" : "");
		return -EINVAL;
	}
	if (conf.rxmode.mtu > info.max_mtu) {
		VASK_P4_LOG(ERR, "%s: uplink %s takes an MTU of at most %u, not %u", name,
			port->args.uplink, info.max_mtu, conf.rxmode.mtu);
		return -EINVAL;
	}
	rc = rte_eth_dev_configure(id, n_rx, n_tx, &conf);
	if (rc != 0)
		VASK_P4_LOG(ERR, "%s: uplink %s refuses its configuration: %s", name,
			port->args.uplink, rte_strerror(-rc));
	return rc;
}

int
vask_uplink_rx_queue_setup(const struct vask_port *port, uint16_t queue, uint16_t n_desc,
	unsigned int socket, struct rte_mempool *pool)
{
	const uint16_t id = uplink_id(port);
	int rc;

	if (id == VASK_UPLINK_NONE)
		return -ENODEV;
	rc = rte_eth_dev_adjust_nb_rx_tx_desc(id, &n_desc, nullptr);
	return rc != 0 ? rc : rte_eth_rx_queue_setup(id, queue, n_desc, socket, nullptr, pool);
}

int
vask_uplink_tx_queue_setup(
	const struct vask_port *port, uint16_t queue, uint16_t n_desc, unsigned int socket)
{
	const uint16_t id = uplink_id(port);
	int rc;

	if (id == VASK_UPLINK_NONE)
		return -ENODEV;
	rc = rte_eth_dev_adjust_nb_rx_tx_desc(id, nullptr, &n_desc);
	return rc != 0 ? rc : rte_eth_tx_queue_setup(id, queue, n_desc, socket, nullptr);
}

int
vask_uplink_start(struct vask_port *port)
{
	const uint16_t id = uplink_id(port);
	int rc;

	if (id == VASK_UPLINK_NONE) {
		VASK_P4_LOG(ERR, "%s: uplink %s is gone", port->data->name, port->args.uplink);
		return -ENODEV;
	}
	rc = rte_eth_dev_start(id);
	if (rc != 0) {
		VASK_P4_LOG(ERR, "%s: uplink %s does not start: %s", port->data->name,
			port->args.uplink, rte_strerror(-rc));
		return rc;
	}
	port->uplink.burst_id.store(id, std::memory_order_release);
	return 0;
}

int
vask_uplink_stop(struct vask_port *port)
{
	const uint16_t id = uplink_id(port);

	uplink_quiesce(port);
	return id == VASK_UPLINK_NONE ? 0 : rte_eth_dev_stop(id);
}
