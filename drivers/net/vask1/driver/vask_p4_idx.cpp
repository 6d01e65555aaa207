/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Pools of hardware indexes as a stack of free ones, with the place of each index in the stack beside it: taking
 * and giving back are one step each, and the place tells whether an index is free. A fresh pool hands out
 * its indexes from the lowest up; one given back is the next to go out again.
 */

#include <cerrno>
#include <cstdlib>

#include "vask_p4_driver.h"

namespace
{

class pool_guard
{
      public:
	explicit pool_guard(pthread_mutex_t *lock) : lock_(lock)
	{
		pthread_mutex_lock(lock_);
	}
	~pool_guard()
	{
		pthread_mutex_unlock(lock_);
	}
	pool_guard(const pool_guard &) = delete;
	pool_guard &operator=(const pool_guard &) = delete;

      private:
	pthread_mutex_t *lock_;
};

unsigned long *
stack(VASK_P4_INDEXSTACK_MANAGER *pool)
{
	return pool->bits;
}

unsigned long *
place(VASK_P4_INDEXSTACK_MANAGER *pool)
{
	return pool->bits + pool->capacity;
}

bool
in_range(const VASK_P4_INDEXSTACK_MANAGER *pool, uint32_t index, uint32_t count)
{
	return index < pool->capacity && count <= pool->capacity - index;
}

bool
is_free(VASK_P4_INDEXSTACK_MANAGER *pool, uint32_t index)
{
	const unsigned long at = place(pool)[index];

	return at < pool->freenum && stack(pool)[at] == index;
}

void
put(VASK_P4_INDEXSTACK_MANAGER *pool, uint32_t at, unsigned long index)
{
	stack(pool)[at] = index;
	place(pool)[index] = at;
}

void
resize(VASK_P4_INDEXSTACK_MANAGER *pool, uint32_t freenum)
{
	pool->freenum = freenum;
	pool->usednum = pool->capacity - freenum;
	pool->phead = freenum;
}

} // namespace

int
vask_p4_idx_create(uint32_t capacity, VASK_P4_INDEXSTACK_MANAGER **manager)
{
	if (manager == nullptr)
		return -EINVAL;
	*manager = nullptr;
	if (capacity == 0 || capacity > UINT32_MAX / 2 / sizeof(unsigned long))
		return -EINVAL;

	const uint32_t bytes = 2 * capacity * sizeof(unsigned long);
	auto *pool = static_cast<VASK_P4_INDEXSTACK_MANAGER *>(calloc(1, sizeof(**manager)));
	auto *words = static_cast<unsigned long *>(calloc(1, bytes));

	if (pool == nullptr || words == nullptr || pthread_mutex_init(&pool->lock, nullptr) != 0) {
		free(words);
		free(pool);
		return -ENOMEM;
	}

	pool->bits = words;
	pool->s_mem_size = bytes;
	pool->capacity = capacity;
	pool->old_size = capacity;
	pool->granularity = 1;
	for (uint32_t i = 0; i < capacity; i++)
		put(pool, i, capacity - 1 - i);
	resize(pool, capacity);
	*manager = pool;
	return 0;
}

int
vask_p4_idx_alloc(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t *pindex, uint32_t count)
{
	if (manager == nullptr || pindex == nullptr)
		return -EINVAL;

	pool_guard guard(&manager->lock);

	if (count > manager->freenum)
		return -ENOSPC;
	for (uint32_t i = 0; i < count; i++)
		pindex[i] = stack(manager)[manager->freenum - 1 - i];
	resize(manager, manager->freenum - count);
	return 0;
}

int
vask_p4_idx_free(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t index, uint32_t count)
{
	if (manager == nullptr || !in_range(manager, index, count))
		return -EINVAL;

	pool_guard guard(&manager->lock);

	for (uint32_t i = 0; i < count; i++)
		if (is_free(manager, index + i))
			return -EALREADY;
	for (uint32_t i = 0; i < count; i++)
		put(manager, manager->freenum + i, index + i);
	resize(manager, manager->freenum + count);
	return 0;
}

int
vask_p4_idx_set(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t index, uint32_t count)
{
	if (manager == nullptr || !in_range(manager, index, count))
		return -EINVAL;

	pool_guard guard(&manager->lock);

	for (uint32_t i = index; i < index + count; i++) {
		if (!is_free(manager, i))
			continue;
		/* Close the gap, so that the others keep their order. */
		for (uint32_t at = place(manager)[i]; at + 1 < manager->freenum; at++)
			put(manager, at, stack(manager)[at + 1]);
		resize(manager, manager->freenum - 1);
	}
	return 0;
}

uint32_t
vask_p4_idx_free_num(VASK_P4_INDEXSTACK_MANAGER *manager)
{
	if (manager == nullptr)
		return 0;

	pool_guard guard(&manager->lock);

	return manager->freenum;
}

void
vask_p4_idx_destroy(VASK_P4_INDEXSTACK_MANAGER *manager)
{
	if (manager == nullptr)
		return;

	pthread_mutex_destroy(&manager->lock);
	free(manager->bits);
	free(manager);
}
