/* SPDX-License-Identifier: BSD-3-Clause */
#include <cerrno>

#include "rte_pmd_net_vask1.h"
#include "softcard_fault.h"
#include "softcard_view.h"
#include "vask_meter_ref.h"
#include "vask_p4_log.h"
#include "vask_port.h"

/* The module has started when a port is listed. */
static bool
card_is_up()
{
	return !TAILQ_EMPTY(&vask_ports);
}

int
rte_pmd_net_vask1_profile_add(uint32_t id, const p4_meter_profile_t *entry)
{
	const struct vask_control_guard lock;

	if (!card_is_up())
		return -ENODEV;
	return talvora_p4_offload_meter_table_profile_add(id, entry);
}

int
rte_pmd_net_vask1_profile_mod(uint32_t id, const p4_meter_profile_t *entry)
{
	const struct vask_control_guard lock;

	if (!card_is_up())
		return -ENODEV;
	return talvora_p4_offload_meter_table_profile_mod(id, entry);
}

int
rte_pmd_net_vask1_profile_del(uint32_t id)
{
	const struct vask_control_guard lock;

	if (!card_is_up())
		return -ENODEV;
	return talvora_p4_offload_meter_table_profile_del(id);
}

int
rte_pmd_net_vask1_policer_add(uint32_t id, const p4_meter_policer_t *entry)
{
	const struct vask_control_guard lock;

	if (!card_is_up())
		return -ENODEV;
	return talvora_p4_offload_meter_table_policer_add(id, entry);
}

int
rte_pmd_net_vask1_policer_mod(uint32_t id, const p4_meter_policer_t *entry)
{
	const struct vask_control_guard lock;

	if (!card_is_up())
		return -ENODEV;
	return talvora_p4_offload_meter_table_policer_mod(id, entry);
}

int
rte_pmd_net_vask1_policer_del(uint32_t id)
{
	const struct vask_control_guard lock;

	if (!card_is_up())
		return -ENODEV;
	return talvora_p4_offload_meter_table_policer_del(id);
}

int
rte_pmd_net_vask1_instance_add(uint32_t id, const p4_meter_instance_t *entry)
{
	const struct vask_control_guard lock;

	if (!card_is_up())
		return -ENODEV;

	const int rc = talvora_p4_offload_meter_table_instance_add(id, entry);
	vask_meter_refresh(id);
	return rc;
}

int
rte_pmd_net_vask1_instance_mod(uint32_t id, const p4_meter_instance_t *entry)
{
	const struct vask_control_guard lock;

	if (!card_is_up())
		return -ENODEV;

	const int rc = talvora_p4_offload_meter_table_instance_mod(id, entry);
	vask_meter_refresh(id);
	return rc;
}

int
rte_pmd_net_vask1_instance_del(uint32_t id)
{
	const struct vask_control_guard lock;

	if (!card_is_up())
		return -ENODEV;

	const int rc = talvora_p4_offload_meter_table_instance_del(id);
	vask_meter_refresh(id);
	return rc;
}

int
rte_pmd_net_vask1_meter_stats(
	uint32_t mtr_id, int egress, struct rte_pmd_net_vask1_meter_stats *stats)
{
	const struct vask_control_guard lock;
	struct softcard_meter_view view = {};
	uint32_t hw_meter_id;
	int rc;

	if (!card_is_up())
		return -ENODEV;
	if (stats == nullptr)
		return -EINVAL;
	hw_meter_id = vask_p4_find_hw_meterid_by_upid(mtr_id);
	if (hw_meter_id == 0)
		return -ENOENT;
	rc = softcard_view_meter(
		egress != 0 ? VASK_P4_MEP_EGRESS : VASK_P4_MEP_INGRESS, hw_meter_id, &view);
	if (rc != 0)
		return rc;

	*stats = {};
	for (int color = RTE_COLOR_GREEN; color < RTE_COLORS; color++) {
		stats->n_pkts[color] = view.packets[color];
		stats->n_bytes[color] = view.bytes[color];
	}
	stats->n_pkts_dropped = view.dropped_packets;
	stats->n_bytes_dropped = view.dropped_bytes;
	stats->n_pkts_rewritten = view.rewritten;
	if (view.level_unit != 0) {
		stats->level_c = view.level_c / view.level_unit;
		stats->level_e = view.level_e / view.level_unit;
		stats->burst_c = view.burst_c / view.level_unit;
		stats->burst_e = view.burst_e / view.level_unit;
	}
	return 0;
}

int
rte_pmd_net_vask1_fault_set(const char *text)
{
	const struct vask_control_guard lock;
	char why[1024];
	int rc;

	if (!card_is_up())
		return -ENODEV;
	if (text == nullptr)
		return -EINVAL;
	rc = softcard_fault_parse(text, why, sizeof(why));
	if (rc != 0)
		VASK_P4_LOG(ERR, "fault %s is refused: %s", text, why);
	return rc;
}

void
rte_pmd_net_vask1_fault_clear(void)
{
	const struct vask_control_guard lock;

	softcard_fault_clear();
}
