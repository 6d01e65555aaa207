/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_TELEMETRY_H
#define VASK_TELEMETRY_H

/**
 * @file
 * What the telemetry commands under /net_vask1 share. Every answer is an object; where an argument is bad it
 * holds "error" and what is accepted.
 */

#include "vask_dpdk.h"

/** The answer to a bad argument; returns 0, for the command to return. */
__attribute__((format(printf, 2, 3))) int
vask_tel_error(struct rte_tel_data *d, const char *format, ...);

/** A nested object; null when memory is short, and then the answer lacks it. */
struct rte_tel_data *vask_tel_dict();

/** Hands a nested object over; null is left out. */
void vask_tel_add_dict(struct rte_tel_data *d, const char *name, struct rte_tel_data *inner);

/** Text from outside: bytes that are not printable ASCII, which telemetry makes no JSON of, become '?'. */
void vask_tel_add_text(struct rte_tel_data *d, const char *name, const char *text);

/** True or false as 1 or 0. */
void vask_tel_add_bool(struct rte_tel_data *d, const char *name, bool value);

#endif /* VASK_TELEMETRY_H */
