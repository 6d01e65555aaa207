/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_FLOW_DUMP_H
#define VASK_FLOW_DUMP_H

/**
 * @file
 * A rule as text, in the words of dpdk-testpmd's `flow create`.
 */

#include <cstdio>

struct rte_flow;

/** Writes one line: handle, direction, priority, pattern, actions, the card's meter and the counts. */
void vask_flow_dump(struct rte_flow *rule, FILE *file);

#endif /* VASK_FLOW_DUMP_H */
