/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_P4_DRIVER_H
#define VASK_P4_DRIVER_H

#include <stdint.h>

#include "vask_p4_idx.h"

#ifdef __cplusplus
extern "C" {
#endif

struct rte_driver;

/** The driver as its bus knows it, by which its ports are told from others'. Set when it probes, and kept. */
extern const struct rte_driver *vask_p4_driver;

/**
 * @name Index pools
 * What the operations of vask_p4_idx.h do, with the same arguments and, where they are told here, the same
 * results: the card puts its faults and its trace around them. Any thread.
 * @{
 */

/** 0; -EINVAL for a null pointer or a capacity that cannot be had; -ENOMEM. *manager is null after both. */
int vask_p4_idx_create(uint32_t capacity, VASK_P4_INDEXSTACK_MANAGER **manager);

/** 0; -EINVAL for a null pointer; -ENOSPC. */
int vask_p4_idx_alloc(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t *pindex, uint32_t count);

/** 0; -EINVAL for a null pool or out of range; -EALREADY when one of the indexes is free. */
int vask_p4_idx_free(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t index, uint32_t count);

/** 0; -EINVAL for a null pool or out of range. */
int vask_p4_idx_set(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t index, uint32_t count);

void vask_p4_idx_destroy(VASK_P4_INDEXSTACK_MANAGER *manager);

/** How many indexes of a pool are free; 0 for a null pool. */
uint32_t vask_p4_idx_free_num(VASK_P4_INDEXSTACK_MANAGER *manager);
/** @} */

#ifdef __cplusplus
}
#endif

#endif /* VASK_P4_DRIVER_H */
