/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_DEV_CMDS_H
#define VASK_DEV_CMDS_H

/**
 * @file
 * Device commands of the firmware: the port shaper.
 */

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "vask_cmd_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Payload of the port-shaper command, 12 bytes. */
struct vask_shaper_set_info {
	uint16_t sfi;           /* source-port number of the port */
	uint16_t bdf;           /* PCI bus/device/function, 0 when the port is named by sfi alone */
	uint16_t mode;          /* what max_rate counts: 0 bytes, 1 packets */
	uint16_t direction : 1; /* 0 */
	uint16_t rsvd : 15;     /* 1..15 */
	uint32_t max_rate;      /* kbit/s; 0 turns the shaper off */
};

static_assert(sizeof(struct vask_shaper_set_info) == 12, "shaper command payload");
static_assert(offsetof(struct vask_shaper_set_info, sfi) == 0, "sfi");
static_assert(offsetof(struct vask_shaper_set_info, bdf) == 2, "bdf");
static_assert(offsetof(struct vask_shaper_set_info, mode) == 4, "mode");
static_assert(offsetof(struct vask_shaper_set_info, max_rate) == 8, "max_rate");

/**
 * Sets the maximum rate of a port's shaper.
 *
 * @param channel  the channel to send on.
 * @param info     the command, read only for the time of the call.
 * @return 0, or the firmware's non-zero status; a refused command changes nothing.
 */
int vask_cmd_set_shaper(struct vask_cmd_channel *channel, const struct vask_shaper_set_info *info);

#ifdef __cplusplus
}
#endif

#endif /* VASK_DEV_CMDS_H */
