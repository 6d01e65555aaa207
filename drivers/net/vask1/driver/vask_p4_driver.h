/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_P4_DRIVER_H
#define VASK_P4_DRIVER_H

#include <stdint.h>

#include "vask_p4_idx.h"

/** Name under which the driver registers with its bus, and by which its ports are told from others'. */
#define VASK_P4_DRIVER_NAME "net_vask1"

#ifdef __cplusplus
extern "C" {
#endif

/** How many indexes of a pool are free; 0 for a null pool. Any thread. */
uint32_t vask_p4_indexstack_free_num(VASK_P4_INDEXSTACK_MANAGER *manager);

#ifdef __cplusplus
}
#endif

#endif /* VASK_P4_DRIVER_H */
