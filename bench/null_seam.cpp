/* SPDX-License-Identifier: BSD-3-Clause */

/* Lower layers that do nothing and succeed, so that what is timed over them is the meter module alone. */

#include <numeric>
#include <vector>

#include "control_port.h"
#include "vask_dpdk.h"

#include "qorn_hal_user_api.h"
#include "vask_dev_cmds.h"
#include "vask_p4_common.h"
#include "vask_p4_log.h"
#include "vask_p4_meter.h"

RTE_LOG_REGISTER_DEFAULT(vask_p4_logtype, NOTICE);

struct vask_p4_meter_profile_list_head vask_p4_meter_profile_list =
	TAILQ_HEAD_INITIALIZER(vask_p4_meter_profile_list);
struct vask_p4_meter_policy_list_head vask_p4_meter_policy_list =
	TAILQ_HEAD_INITIALIZER(vask_p4_meter_policy_list);
struct vask_p4_meter_list_head vask_p4_meter_list = TAILQ_HEAD_INITIALIZER(vask_p4_meter_list);

/* Pools: a stack of free indexes in a vector that the manager's first pointer leads to. */

static std::vector<uint32_t> &
free_indexes(VASK_P4_INDEXSTACK_MANAGER *pool)
{
	return *reinterpret_cast<std::vector<uint32_t> *>(pool->hb);
}

static void
refill(VASK_P4_INDEXSTACK_MANAGER *pool)
{
	auto &indexes = free_indexes(pool);

	indexes.resize(pool->capacity);
	std::iota(indexes.rbegin(), indexes.rend(), 0);
}

int
vask_p4_indexstack_create(uint32_t capacity, VASK_P4_INDEXSTACK_MANAGER **manager)
{
	*manager = new VASK_P4_INDEXSTACK_MANAGER{};
	(*manager)->capacity = capacity;
	(*manager)->hb = reinterpret_cast<HBitmap *>(new std::vector<uint32_t>);
	refill(*manager);
	return 0;
}

int
vask_p4_indexstack_alloc(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t *pindex, uint32_t /*count*/)
{
	auto &indexes = free_indexes(manager);

	if (indexes.empty())
		return -1;
	*pindex = indexes.back();
	indexes.pop_back();
	return 0;
}

int
vask_p4_indexstack_free(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t index, uint32_t /*count*/)
{
	free_indexes(manager).push_back(index);
	return 0;
}

int
vask_p4_indexstack_set(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t index, uint32_t /*count*/)
{
	std::erase(free_indexes(manager), index);
	return 0;
}

void
vask_p4_indexstack_destroy(VASK_P4_INDEXSTACK_MANAGER *manager)
{
	delete &free_indexes(manager);
	delete manager;
}

/* The card. */

int
vask_p4_mep_add_meter_profile(int, uint32_t, const struct vask_p4_mep_meter_profile_table *)
{
	return 0;
}

int
vask_p4_mep_del_meter_profile(int, uint32_t)
{
	return 0;
}

int
vask_p4_mep_add_meter_policy(int, uint32_t, const struct vask_p4_mep_meter_policy_table *)
{
	return 0;
}

int
vask_p4_mep_del_meter_policy(int, uint32_t)
{
	return 0;
}

int
vask_p4_mep_read_meter_inst(int, uint32_t, struct vask_p4_mep_meter_inst_table *)
{
	return 0;
}

int
vask_p4_mep_update_meter_output_by_meterid(int, uint32_t, uint32_t)
{
	return 0;
}

int
vask_p4_mep_del_meter_output_by_meterid(int, uint32_t)
{
	return 0;
}

int
vask_p4_mep_update_meter_output_by_mtu(uint16_t, uint16_t)
{
	return 0;
}

struct vask_cmd_channel *
vask_p4_get_global_cmd_channel(void)
{
	static struct vask_cmd_channel channel;

	return &channel;
}

int
qorn_meter_profile_update(
	struct vask_cmd_channel *, const uint32_t *, const struct qorn_meter_profile_table *)
{
	return 0;
}

int
qorn_meter_profile_delete(struct vask_cmd_channel *, uint32_t)
{
	return 0;
}

int
qorn_meter_table_update(
	struct vask_cmd_channel *, const uint32_t *, const struct qorn_meter_table *)
{
	return 0;
}

int
qorn_meter_table_delete(struct vask_cmd_channel *, uint32_t)
{
	return 0;
}

int
qorn_input_port_tx_table_get(struct vask_cmd_channel *, const struct qorn_input_port_table_key_tx *,
	struct qorn_input_port_table_result_tx *)
{
	return 0;
}

int
qorn_input_port_tx_table_add(struct vask_cmd_channel *, const struct qorn_input_port_table_key_tx *,
	const struct qorn_input_port_table_result_tx *)
{
	return 0;
}

int
vask_cmd_set_shaper(struct vask_cmd_channel *, const struct vask_shaper_set_info *)
{
	return 0;
}

int vask_p4_isch_shaper_csr_write(struct vask_p4_isch_shaper)
{
	return 0;
}

struct vask_p4_priv_port *
vask_p4_priv_data_get(struct rte_eth_dev *dev)
{
	static struct vask_p4_priv_port port;

	return dev != nullptr ? &port : nullptr;
}

/* The port: operations, and no device. */

void
control_port_init()
{
	static struct eth_dev_ops dev_ops;
	static struct rte_eth_dev_data data;

	dev_ops.mtr_ops_get = vask_p4_dev_mtr_ops_get;
	rte_eth_devices[0].dev_ops = &dev_ops;
	rte_eth_devices[0].data = &data;
	rte_eth_devices[0].state = RTE_ETH_DEV_ATTACHED;
}

int
control_port_start()
{
	return vask_p4_meter_indexstack_init();
}

void
control_port_stop()
{
	vask_p4_meter_indexstack_destory();
}
