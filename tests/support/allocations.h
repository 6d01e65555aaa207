/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef TESTS_SUPPORT_ALLOCATIONS_H
#define TESTS_SUPPORT_ALLOCATIONS_H

/**
 * @file
 * The program's own calloc() and free(), wrapped by the linker: counted, watched for leaks, and told to
 * fail on demand. Nothing in libc or DPDK's shared libraries is wrapped.
 */

#include <cstddef>
#include <functional>
#include <map>

namespace vask_test
{

class Allocations
{
      public:
	/** Forgets faults and counts; blocks that live stay watched. */
	void Reset();

	/** Lets the nth calloc() from now give null. */
	void Fail(unsigned nth = 1);
	void FailEvery();

	/** Runs once, inside the next calloc(): what somebody else may do just then. */
	void OnNext(std::function<void()> action);

	/** calloc() calls since the last Reset() or Restart(), refused ones included. */
	unsigned count() const
	{
		return count_;
	}

	void Restart()
	{
		count_ = 0;
	}

	/** Blocks that calloc() gave and nobody freed: address and size. */
	const std::map<void *, size_t> &live() const
	{
		return live_;
	}

	/** Called by the wrapped functions. */
	bool Refused();
	void Given(void *block, size_t size);
	void Freed(void *block);

      private:
	unsigned count_ = 0;
	unsigned fail_in_ = 0;
	bool fail_every_ = false;
	std::function<void()> on_next_;
	std::map<void *, size_t> live_;
};

/** The one watch; it outlives every static object, because their destructors free. */
Allocations &TheAllocations();

} // namespace vask_test

#endif /* TESTS_SUPPORT_ALLOCATIONS_H */
