/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef BENCH_CONTROL_OPERATIONS_H
#define BENCH_CONTROL_OPERATIONS_H

/**
 * @file
 * The operations that are timed, and what each cannot do without.
 */

#include <cstddef>
#include <cstdint>
#include <span>

#include "control_setup.h"

/** Nodes that the lookups of one call visit. */
struct walks {
	uint32_t profiles = 0;
	uint32_t policies = 0;
	uint32_t meters = 0;
};

/** What an operation's cost grows with, so what it is timed against. */
enum dimension : unsigned int {
	METERS = 1,
	PROFILES = 2,
	POLICIES = 4,
};

using step = void (*)(const control_state &);

struct operation {
	const char *name;
	unsigned int dimensions;
	step before;                            /* not timed */
	step call;                              /* timed */
	step after;                             /* not timed */
	walks (*visits)(const control_state &); /* as the lists stand before the call */
	size_t allocates;                       /* bytes of the node, or 0 */
	size_t frees;                           /* likewise */
};

/** The table's operations, then those of the P4 tables. */
extern const std::span<const operation> control_operations;

#endif /* BENCH_CONTROL_OPERATIONS_H */
