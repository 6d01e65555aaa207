/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef QORN_HAL_USER_API_H
#define QORN_HAL_USER_API_H

/**
 * @file
 * Calls on the pipeline's tables.
 *
 * Every call returns a qorn_status: QORN_OK (0), or a code below 0 and the table is unchanged. Records
 * are read or filled during the call and stay the caller's. Calls are serialised by the command
 * channel's lock; a read followed by a write of the same entry is not one step, and callers that do both
 * keep other writers of that entry away.
 */

#include <stdint.h>

#include "qorn_hal_raw_struct.h"
#include "vask_cmd_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Result codes of the pipeline layer. There is no code -7. */
enum qorn_status {
	QORN_OK = 0,
	QORN_ERR_PARAM = -1,
	QORN_ERR_NOT_IMPL = -2,
	QORN_ERR_NOT_READY = -3,
	QORN_ERR_NOT_SUPPORTED = -4,
	QORN_ERR_BAD_PTR = -5,
	QORN_ERR_INVAL_SIZE = -6,
	QORN_ERR_DEVQORN_NOT_SUPPORTED = -8,
	QORN_ERR_RESET_FAILED = -9,
	QORN_ERR_FW_API_VER = -10,
	QORN_ERR_NO_MEMORY = -11,
	QORN_ERR_CFG = -12,
	QORN_ERR_OUT_OF_RANGE = -13,
	QORN_ERR_ALREADY_EXISTS = -14,
};

/** Writes the meter profile at *index. */
int qorn_meter_profile_update(struct vask_cmd_channel *channel, const uint32_t *index,
	const struct qorn_meter_profile_table *entry);

/** Clears the meter profile at index. */
int qorn_meter_profile_delete(struct vask_cmd_channel *channel, uint32_t index);

/** Writes the meter at *index, counters and buckets included. */
int qorn_meter_table_update(struct vask_cmd_channel *channel, const uint32_t *index,
	const struct qorn_meter_table *entry);

/** Clears the meter at index. */
int qorn_meter_table_delete(struct vask_cmd_channel *channel, uint32_t index);

/**
 * Reads the transmit input-port entry of a source port.
 *
 * @param result  zeroed by the caller; filled on success.
 */
int qorn_input_port_tx_table_get(struct vask_cmd_channel *channel,
	const struct qorn_input_port_table_key_tx *key,
	struct qorn_input_port_table_result_tx *result);

/** Creates or overwrites the transmit input-port entry of a source port. */
int qorn_input_port_tx_table_add(struct vask_cmd_channel *channel,
	const struct qorn_input_port_table_key_tx *key,
	const struct qorn_input_port_table_result_tx *result);

#ifdef __cplusplus
}
#endif

#endif /* QORN_HAL_USER_API_H */
