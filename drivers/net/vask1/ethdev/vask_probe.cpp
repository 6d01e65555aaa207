/* SPDX-License-Identifier: BSD-3-Clause */
/* The virtual device net_vask1: probe and removal. */
#include <cerrno>
#include <cstring>
#include <new>

#include <rte_malloc.h>

#include "vask_card.h"
#include "vask_ethdev.h"
#include "vask_flow.h"
#include "vask_p4_driver.h"
#include "vask_p4_log.h"
#include "vask_port.h"
#include "vask_rcu.h"
#include "vask_rxtx.h"

namespace
{

extern struct rte_vdev_driver net_vask1_driver; /* filled below, with what is below */

unsigned
ports_count()
{
	const struct vask_port *port;
	unsigned n = 0;

	TAILQ_FOREACH (port, &vask_ports, next)
		n++;
	return n;
}

const struct vask_port *
port_with_sfi(uint32_t sfi)
{
	const struct vask_port *port;

	TAILQ_FOREACH (port, &vask_ports, next)
		if (vask_port_sfi(port) == sfi)
			return port;
	return nullptr;
}

/* The number that was asked for, or the lowest free one; each is one port's. */
int
take_sfi(struct vask_port *port)
{
	uint32_t sfi = port->args.sfi;

	if (sfi == VASK_SFI_ANY) {
		for (sfi = 0; port_with_sfi(sfi) != nullptr; sfi++)
			;
	} else if (port_with_sfi(sfi) != nullptr) {
		VASK_P4_LOG(ERR,
			"%s: sfi=%u is refused: it is the number of %s, one that is free is accepted",
			port->data->name, sfi, port_with_sfi(sfi)->data->name);
		return -EBUSY;
	}
	port->priv.rep.priv_port = static_cast<uint16_t>(sfi);
	port->priv.rep.dev_port = static_cast<uint16_t>(sfi);
	port->priv.rep.port_id = port->data->port_id;
	return 0;
}

const char *
clock_name(const struct vask_port *port)
{
	return port->args.clock == vask_clock_source::CAPTURE ? "capture" : "tsc";
}

/* The scheduler has one shaper for all ports, and so one time. */
int
check_clock(const struct vask_port *port)
{
	const struct vask_port *other;

	if (port->args.shapers != vask_shapers::ENFORCE)
		return 0;
	TAILQ_FOREACH (other, &vask_ports, next)
		if (other->args.shapers == vask_shapers::ENFORCE &&
			other->args.clock != port->args.clock) {
			VASK_P4_LOG(ERR,
				"%s: clock=%s is refused: %s enforces shapers too, so %s is accepted",
				port->data->name, clock_name(port), other->data->name,
				clock_name(other));
			return -EINVAL;
		}
	return 0;
}

/* Locally administered, and told apart by the source-port number. */
void
set_mac(struct vask_port *port)
{
	const uint16_t sfi = vask_port_sfi(port);

	port->mac = {
		{0x02, 'v', 'k', '1', static_cast<uint8_t>(sfi >> 8), static_cast<uint8_t>(sfi)}};
	port->data->mac_addrs = &port->mac;
}

/* Under the control lock; a failure leaves the rcu and no more. */
int
port_init(struct vask_port *port)
{
	int rc;

	if (ports_count() == VASK_PORTS_MAX) {
		VASK_P4_LOG(ERR, "%s: the card has all of its %u ports", port->data->name,
			VASK_PORTS_MAX);
		return -ENOSPC;
	}
	rc = take_sfi(port);
	if (rc == 0)
		rc = check_clock(port);
	if (rc == 0)
		rc = vask_clock_init(&port->clock, &port->args);
	if (rc == 0) {
		port->rcu = vask_rcu_create(2 * VASK_QUEUES_MAX);
		rc = port->rcu != nullptr ? 0 : -ENOMEM;
	}
	if (rc == 0)
		rc = vask_uplink_attach(port);
	if (rc != 0)
		return rc;

	rc = vask_card_join(port);
	if (rc == 0) {
		rc = vask_flow_port_init(port);
		if (rc != 0)
			vask_card_leave(port);
	}
	if (rc != 0)
		vask_uplink_release(port);
	return rc;
}

int
probe(struct rte_vdev_device *vdev)
{
	const char *name = rte_vdev_device_name(vdev);
	struct vask_args args;
	struct rte_eth_dev *dev;
	struct vask_port *port;
	int rc;

	if (rte_eal_process_type() == RTE_PROC_SECONDARY) {
		VASK_P4_LOG(ERR,
			"%s: not in a secondary process: the card lives in the primary one", name);
		return -ENOTSUP;
	}
	rc = vask_args_parse(name, rte_vdev_device_args(vdev), &args);
	if (rc != 0)
		return rc;

	dev = rte_eth_vdev_allocate(vdev, sizeof(struct vask_port));
	if (dev == nullptr) {
		VASK_P4_LOG(ERR, "%s: no room for another ethdev port", name);
		return -ENOMEM;
	}
	port = new (dev->data->dev_private) vask_port();
	port->data = dev->data;
	port->args = args;
	dev->dev_ops = vask_eth_dev_ops();
	dev->rx_pkt_burst = vask_rx_burst;
	dev->tx_pkt_burst = vask_tx_burst;
	dev->data->dev_flags |= RTE_ETH_DEV_AUTOFILL_QUEUE_XSTATS;
	{
		const struct vask_control_guard lock;

		vask_p4_driver = &net_vask1_driver.driver;
		rc = port_init(port);
	}
	if (rc != 0) {
		rte_free(port->rcu);
		dev->data->mac_addrs = nullptr;
		rte_eth_dev_release_port(dev);
		return rc;
	}
	set_mac(port);
	rte_eth_dev_probing_finish(dev);
	VASK_P4_LOG(INFO, "%s: port %u, sfi %u", name, dev->data->port_id, vask_port_sfi(port));
	return 0;
}

int
remove(struct rte_vdev_device *vdev)
{
	struct rte_eth_dev *dev = rte_eth_dev_allocated(rte_vdev_device_name(vdev));

	if (dev == nullptr) /* closed before */
		return 0;
	if (dev->data->dev_started)
		rte_eth_dev_stop(dev->data->port_id);
	return rte_eth_dev_close(dev->data->port_id);
}

constexpr struct rte_vdev_driver
vdev_driver_fill()
{
	struct rte_vdev_driver driver = {};

	driver.probe = probe;
	driver.remove = remove;
	return driver;
}

constinit struct rte_vdev_driver net_vask1_driver = vdev_driver_fill();

} // namespace

RTE_PMD_REGISTER_VDEV(net_vask1, net_vask1_driver);

#define NET_VASK1_PARAMS \
	"uplink=<ethdev name> sfi=<0..16383> clock=<tsc|capture> tick=<us|ns> " \
	"shapers=<observe|enforce> fault=<operation>:<n|every>:<code> trace=<file>"

RTE_PMD_REGISTER_PARAM_STRING(net_vask1, NET_VASK1_PARAMS);

/* What DPDK's build generates for the drivers of its own tree, for dpdk-pmdinfo.py. */
__attribute__((used)) static const char net_vask1_pmd_info[] =
	"PMD_INFO_STRING= {\"name\": \"net_vask1\", \"params\": \"" NET_VASK1_PARAMS
	"\", \"pci_ids\": []}";
