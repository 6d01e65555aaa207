/* SPDX-License-Identifier: BSD-3-Clause */

#include "control_port.h"

#include "vask_dpdk.h"

static int
bare_meter_enable(struct rte_eth_dev *, uint32_t, struct rte_mtr_error *)
{
	return 0;
}

static int
bare_mtr_ops_get(struct rte_eth_dev *, void *ops)
{
	static const struct rte_mtr_ops bare = [] {
		struct rte_mtr_ops slots = {};

		slots.meter_enable = bare_meter_enable;
		return slots;
	}();

	*static_cast<const struct rte_mtr_ops **>(ops) = &bare;
	return 0;
}

void
control_port_attach(bool bare)
{
	static const struct eth_dev_ops *const own = rte_eth_devices[0].dev_ops;
	static struct eth_dev_ops bare_ops = *own;

	bare_ops.mtr_ops_get = bare_mtr_ops_get;
	rte_eth_devices[0].dev_ops = bare ? &bare_ops : own;
}
