/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef FUZZ_CHECK_H
#define FUZZ_CHECK_H

#include <cstdio>
#include <cstdlib>

/** What must hold. Where it does not, the program says so and ends, and the input at hand is a finding. */
#define FUZZ_CHECK(condition) \
	do { \
		if (!(condition)) { \
			fprintf(stderr, "%s:%d: %s: does not hold: %s\n", __FILE__, __LINE__, \
				__func__, #condition); \
			abort(); \
		} \
	} while (0)

#endif /* FUZZ_CHECK_H */
