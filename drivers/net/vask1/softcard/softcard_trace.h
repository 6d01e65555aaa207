/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef SOFTCARD_TRACE_H
#define SOFTCARD_TRACE_H

/**
 * @file
 * A trace of the lower-layer operations in a file, one line for each call:
 *
 *     <time> <operation> <field>=<value> ... hex=<record's bytes>|- rc=<result> [fault]
 *
 * The time is ISO 8601 with microseconds, UTC. Fields are separated by one blank and hold none.
 */

/**
 * Opens the trace, appending. One file at a time: the same path again is counted and closed as often.
 *
 * @return 0; -EBUSY while another path is traced; else the negative errno of opening the file.
 */
int softcard_trace_open(const char *path);

/** Closes the trace when every softcard_trace_open() has its close. Harmless when none is open. */
void softcard_trace_close();

#endif /* SOFTCARD_TRACE_H */
