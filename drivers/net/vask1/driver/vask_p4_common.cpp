/* SPDX-License-Identifier: BSD-3-Clause */
/* From a DPDK device to the driver's port. */

#include "vask_p4_common.h"

#include <cstdint>

extern "C" {
#include <ethdev_driver.h>
}

#include "vask_p4_driver.h"

const struct rte_driver *vask_p4_driver;

struct vask_p4_priv_port *
vask_p4_priv_data_get(struct rte_eth_dev *dev)
{
	/* As numbers: the address may lie past the array. */
	const auto address = reinterpret_cast<uintptr_t>(dev);
	const auto first = reinterpret_cast<uintptr_t>(&rte_eth_devices[0]);

	if (address < first || address >= first + RTE_MAX_ETHPORTS * sizeof(*dev))
		return nullptr;
	if (dev->state == RTE_ETH_DEV_UNUSED || dev->device == nullptr ||
		dev->device->driver == nullptr || /* as is vask_p4_driver before the first probe */
		dev->device->driver != vask_p4_driver)
		return nullptr;

	return static_cast<struct vask_p4_priv_port *>(dev->data->dev_private);
}
