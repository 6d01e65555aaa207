/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef BENCH_NULL_SEAM_H
#define BENCH_NULL_SEAM_H

/**
 * @file
 * Lower layers that do nothing and succeed, so that what is timed over them is the meter module alone. One
 * DPDK port stands on them: port 0, whose rte_mtr operations are the module's.
 */

#include <cstdint>

/** Attaches port 0; with bare, its rte_mtr slots return at once instead of entering the module. */
void null_seam_attach_port(bool bare);

/** Index pools that keep no lock and check nothing: full again. */
void null_seam_reset_pools();

#endif /* BENCH_NULL_SEAM_H */
