/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef BENCH_INSTRUCTIONS_H
#define BENCH_INSTRUCTIONS_H

/**
 * @file
 * Instructions counted instead of time taken. A benchmark marks what is to be counted; when the program runs
 * under callgrind (started with --collect-atstart=no) the marks switch collection on and off, and each benchmark
 * leaves a dump of its own. Outside of callgrind the marks cost a few cycles, so they stand outside of what is
 * timed.
 */

#include <cstdint>
#include <cstdlib>
#include <malloc.h>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <valgrind/callgrind.h>

/** Switches collection on, or off again. */
#define INSTRUCTIONS_TOGGLE() CALLGRIND_TOGGLE_COLLECT

/** Whether instructions are counted in this run. */
static inline bool
instructions_counted()
{
	return RUNNING_ON_VALGRIND != 0;
}

/** Ends a benchmark: what was collected goes into a dump that carries its name and what it is to be divided by. */
static inline void
instructions_dump(const std::string &name, uint64_t items)
{
	/* a name of its own: the macro is more than one statement, which a temporary does not outlive */
	const std::string text = name + " items:" + std::to_string(items);

	CALLGRIND_DUMP_STATS_AT(text.c_str());
}

/**
 * While instructions are counted, takes all that the heap has lying about, for the time of a scope: what an allocation
 * costs depends on what others have left there. Those that are counted come from behind all others.
 */
class instructions_heap
{
      public:
	instructions_heap()
	{
		if (!instructions_counted())
			return;
		blocks_.reserve(1 << 20);
		while (mallinfo2().ordblks > 1 && blocks_.size() < blocks_.capacity())
			for (int i = 0; i < 64; i++)
				blocks_.push_back(calloc(1, 1));
	}
	~instructions_heap()
	{
		for (void *block : blocks_)
			free(block);
	}
	instructions_heap(const instructions_heap &) = delete;
	instructions_heap &operator=(const instructions_heap &) = delete;

      private:
	std::vector<void *> blocks_;
};

/** So many repetitions that a median says something, or, when instructions are counted, one short one. */
static inline void
instructions_or_time(benchmark::internal::Benchmark *bench, double seconds, int64_t iterations)
{
	if (instructions_counted())
		bench->Iterations(iterations);
	else
		bench->MinTime(seconds)->Repetitions(7)->ReportAggregatesOnly(false);
}

#endif /* BENCH_INSTRUCTIONS_H */
