/* SPDX-License-Identifier: BSD-3-Clause */
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <rte_errno.h>

#include "softcard.h"
#include "softcard_fault.h"
#include "softcard_trace.h"
#include "vask_card.h"
#include "vask_meter_ref.h"
#include "vask_mtr.h"
#include "vask_p4_driver.h"
#include "vask_p4_log.h"
#include "vask_p4_meter.h"
#include "vask_port.h"
#include "vask_sampler.h"

static const struct rte_mtr_ops *
module_ops(const struct vask_port *port)
{
	const struct rte_mtr_ops *ops = nullptr;

	vask_p4_dev_mtr_ops_get(&rte_eth_devices[port->data->port_id], &ops);
	return ops;
}

static int
set_faults(const struct vask_port *port)
{
	char why[1024];

	for (unsigned i = 0; i < port->args.n_faults; i++) {
		const int rc = softcard_fault_parse(port->args.faults[i], why, sizeof(why));

		if (rc != 0) {
			VASK_P4_LOG(ERR, "%s: fault=%s is refused: %s", port->data->name,
				port->args.faults[i], why);
			return rc;
		}
	}
	return 0;
}

static int
open_trace(const struct vask_port *port)
{
	int rc;

	if (port->args.trace[0] == '\0')
		return 0;
	rc = softcard_trace_open(port->args.trace);
	if (rc != 0)
		VASK_P4_LOG(ERR, "%s: trace=%s is refused: %s", port->data->name, port->args.trace,
			rc == -EBUSY ? "another file is the trace" : rte_strerror(-rc));
	return rc;
}

static void
close_trace(const struct vask_port *port)
{
	if (port->args.trace[0] != '\0')
		softcard_trace_close();
}

static void
stop_module()
{
	vask_p4_meter_indexstack_destory();
	/* a start that fails halfway must not find the pools of the one before */
	meter_index_mgr = nullptr;
	profile_index_mgr = nullptr;
	policy_index_mgr = nullptr;
}

static int
start_module(const struct vask_port *port)
{
	if (vask_p4_meter_indexstack_init() != 0) {
		VASK_P4_LOG(ERR, "%s: the meter module does not start", port->data->name);
		stop_module();
		return -EIO;
	}
	return 0;
}

/* What the module was asked to delete and still has. */
template <typename head>
static void
free_nodes(head *list, const char *what)
{
	while (!TAILQ_EMPTY(list)) {
		auto *node = TAILQ_FIRST(list);

		VASK_P4_LOG(WARNING, "the card refuses to delete a %s, which is freed", what);
		TAILQ_REMOVE(list, node, next);
		free(node);
	}
}

/* Through the module; what it refuses is freed. */
static void
delete_profiles_and_policies(const struct vask_port *port)
{
	struct rte_eth_dev *dev = &rte_eth_devices[port->data->port_id];
	const struct rte_mtr_ops *ops = module_ops(port);
	struct rte_mtr_error error;
	void *following;

	for (struct vask_p4_meter_profile_node *node = TAILQ_FIRST(&vask_p4_meter_profile_list);
		node != nullptr;
		node = static_cast<struct vask_p4_meter_profile_node *>(following)) {
		following = TAILQ_NEXT(node, next);
		ops->meter_profile_delete(dev, node->data.profile_id, &error);
	}
	for (struct vask_p4_meter_policy_node *node = TAILQ_FIRST(&vask_p4_meter_policy_list);
		node != nullptr;
		node = static_cast<struct vask_p4_meter_policy_node *>(following)) {
		following = TAILQ_NEXT(node, next);
		ops->meter_policy_delete(dev, node->data.policy_id, &error);
	}
	free_nodes(&vask_p4_meter_profile_list, "meter profile");
	free_nodes(&vask_p4_meter_policy_list, "meter policy");
}

static struct vask_p4_meter_cfg_node *
meter_of(const struct vask_port *port)
{
	struct vask_p4_meter_cfg_node *node;

	TAILQ_FOREACH (node, &vask_p4_meter_list, next)
		if (node->data.port_sfi == vask_port_sfi(port))
			return node;
	return nullptr;
}

void
vask_card_destroy_meters(struct vask_port *port)
{
	struct rte_eth_dev *dev = &rte_eth_devices[port->data->port_id];
	const struct rte_mtr_ops *ops = module_ops(port);
	struct vask_p4_meter_cfg_node *node;
	struct rte_mtr_error error;

	while ((node = meter_of(port)) != nullptr) {
		const uint32_t meter_id = node->data.meter_id;

		/* the first of its id is the one that goes: ports may each have a meter 0 */
		TAILQ_REMOVE(&vask_p4_meter_list, node, next);
		TAILQ_INSERT_HEAD(&vask_p4_meter_list, node, next);
		if (ops->destroy(dev, meter_id, &error) != 0) {
			VASK_P4_LOG(WARNING, "the card refuses to delete meter %u, which is freed",
				meter_id);
			TAILQ_REMOVE(&vask_p4_meter_list, node, next);
			/* a disabled meter has given its index back */
			if (node->data.enable)
				vask_p4_idx_free(meter_index_mgr, node->data.hw_meter_id, 1);
			free(node);
		}
		vask_meter_refresh(meter_id);
	}
}

int
vask_card_join(struct vask_port *port)
{
	const bool first = TAILQ_EMPTY(&vask_ports);
	const uint32_t faults = softcard_fault_list(nullptr, 0);
	int rc;

	rc = open_trace(port);
	if (rc != 0)
		return rc;
	if (first) {
		rc = softcard_start();
		if (rc != 0) {
			VASK_P4_LOG(ERR, "%s: the card does not start: %s", port->data->name,
				rte_strerror(-rc));
			goto trace;
		}
	}
	rc = set_faults(port);
	if (rc != 0)
		goto card;
	if (first) {
		rc = start_module(port);
		if (rc != 0)
			goto card;
		rc = vask_mtr_start(&rte_eth_devices[port->data->port_id]);
		if (rc == 0)
			rc = vask_meter_ref_start();
		if (rc != 0) {
			delete_profiles_and_policies(port);
			stop_module();
			goto card;
		}
	}
	TAILQ_INSERT_TAIL(&vask_ports, port, next);
	if (first)
		vask_sampler_start();
	return 0;

card:
	softcard_fault_keep(faults);
	if (first)
		softcard_stop();
trace:
	close_trace(port);
	return rc;
}

void
vask_card_leave(struct vask_port *port)
{
	softcard_fault_clear();
	vask_card_destroy_meters(port);
	softcard_port_clear(vask_port_sfi(port));
	TAILQ_REMOVE(&vask_ports, port, next);
	if (TAILQ_EMPTY(&vask_ports)) {
		vask_sampler_stop();
		free_nodes(&vask_p4_meter_list, "meter");
		delete_profiles_and_policies(port);
		vask_meter_ref_stop();
		stop_module();
		softcard_stop();
	}
	close_trace(port);
}
