/* SPDX-License-Identifier: BSD-3-Clause */
#include "allocations.h"

#include <utility>

namespace vask_test
{

Allocations &
TheAllocations()
{
	static auto *allocations = new Allocations;
	return *allocations;
}

void
Allocations::Reset()
{
	count_ = 0;
	fail_in_ = 0;
	fail_every_ = false;
	on_next_ = nullptr;
}

void
Allocations::Fail(unsigned nth)
{
	fail_in_ = nth;
}

void
Allocations::FailEvery()
{
	fail_every_ = true;
}

void
Allocations::OnNext(std::function<void()> action)
{
	on_next_ = std::move(action);
}

bool
Allocations::Refused()
{
	count_++;
	if (on_next_)
		std::exchange(on_next_, nullptr)();
	return fail_every_ || (fail_in_ != 0 && --fail_in_ == 0);
}

void
Allocations::Given(void *block, size_t size)
{
	live_[block] = size;
}

void
Allocations::Freed(void *block)
{
	live_.erase(block);
}

} // namespace vask_test

extern "C" {

void *__real_calloc(size_t members, size_t size);
void __real_free(void *block);

void *
__wrap_calloc(size_t members, size_t size)
{
	vask_test::Allocations &allocations = vask_test::TheAllocations();

	if (allocations.Refused())
		return nullptr;
	void *block = __real_calloc(members, size);
	if (block != nullptr)
		allocations.Given(block, members * size);
	return block;
}

void
__wrap_free(void *block)
{
	vask_test::TheAllocations().Freed(block);
	__real_free(block);
}

} /* extern "C" */
