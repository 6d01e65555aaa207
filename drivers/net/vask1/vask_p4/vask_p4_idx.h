/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_P4_IDX_H
#define VASK_P4_IDX_H

/**
 * @file
 * The driver's index-stack allocator: pools of small hardware indexes.
 *
 * A pool hands out the indexes 0..capacity-1, one owner each. Every call takes the pool's own lock and
 * may come from any thread; creation and destruction of a pool may not race with its use.
 */

#include <pthread.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct HBitmap HBitmap;

/** One pool. The allocator alone reads or writes its fields. */
typedef struct VASK_P4_INDEXSTACK_MANAGER {
	HBitmap *hb;                   /* a bitmap of used indexes, where an allocator keeps one */
	uint32_t h_mem_size;           /* bytes of hb */
	uint32_t h_serialize_size;     /* bytes of hb when serialised */
	uint32_t total_serialize_size; /* bytes of the whole pool when serialised */
	unsigned long *bits; /* the stack of free indexes, and the place of each index in it */
	uint32_t s_mem_size; /* bytes of bits */
	uint32_t capacity;   /* indexes in the pool */
	uint32_t old_size;
	int granularity;
	uint32_t phead; /* where the stack is pushed and popped */
	uint32_t ptail; /* its other end */
	uint32_t freenum;
	uint32_t usednum;
	pthread_mutex_t lock;
} VASK_P4_INDEXSTACK_MANAGER;

/**
 * Creates a pool with every index free.
 *
 * @param capacity  number of indexes, at least 1.
 * @param manager   receives the pool, which the caller gives back with vask_p4_indexstack_destroy().
 * @return 0; non-zero when memory is short or an argument is bad, and *manager is null.
 */
int vask_p4_indexstack_create(uint32_t capacity, VASK_P4_INDEXSTACK_MANAGER **manager);

/**
 * Takes free indexes.
 *
 * @param pindex  receives count indexes.
 * @return 0; non-zero when fewer than count are free, and nothing is taken.
 */
int vask_p4_indexstack_alloc(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t *pindex, uint32_t count);

/**
 * Gives back the indexes index..index+count-1.
 *
 * @return 0; non-zero when one of them is out of range or already free, and nothing is freed.
 */
int vask_p4_indexstack_free(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t index, uint32_t count);

/** Marks index..index+count-1 used, so that no allocation hands them out. Out of range: no effect. */
int vask_p4_indexstack_set(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t index, uint32_t count);

/** Releases a pool; null is accepted. Its indexes mean nothing afterwards. */
void vask_p4_indexstack_destroy(VASK_P4_INDEXSTACK_MANAGER *manager);

#ifdef __cplusplus
}
#endif

#endif /* VASK_P4_IDX_H */
