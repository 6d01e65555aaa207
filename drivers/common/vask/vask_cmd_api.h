/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_CMD_API_H
#define VASK_CMD_API_H

/**
 * @file
 * The firmware command channel.
 *
 * The command layer owns the one channel of the card. Its users fetch the handle just before each
 * command and pass it on; none of them looks inside. The layer serialises commands with the
 * channel's own lock, so any control thread may send one.
 */

#include <stdint.h>

#include <rte_common.h>
#include <rte_spinlock.h>

#ifdef __cplusplus
extern "C" {
#endif

struct rte_memzone;
struct vask_cmd_channel;
struct vask_cmd_entry;

/** How the command layer rings the firmware's doorbell. */
struct vask_cmd_channel_ops {
	int (*kick)(struct vask_cmd_channel *channel);
};

/** Handle of the firmware command channel; opaque outside the command layer. */
struct vask_cmd_channel {
	char name[32];
	void *entry_base;
	rte_iova_t entry_phy_base;
	const struct rte_memzone *entry_input_memzones;
	const struct rte_memzone *entry_output_memzones;
	uint32_t entry_num;
	uint32_t doorbell_type;
	uint64_t doorbell_data;
	uint32_t notify_type;
	uint64_t notify_data;
	uint32_t mhu_id;
	rte_spinlock_t lock;
	struct vask_cmd_channel_ops channel_ops;
	struct vask_cmd_entry *free_entry_head;
	struct vask_cmd_entry *busy_entry_head;
};

/**
 * The driver's command channel.
 *
 * @return the one channel of the card, owned by the command layer; valid as long as the driver is up.
 */
struct vask_cmd_channel *vask_p4_get_global_cmd_channel(void);

#ifdef __cplusplus
}
#endif

#endif /* VASK_CMD_API_H */
