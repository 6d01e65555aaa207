/* SPDX-License-Identifier: BSD-3-Clause */
#include <cerrno>

#include "rte_pmd_net_vask1.h"
#include "softcard_fault.h"
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
