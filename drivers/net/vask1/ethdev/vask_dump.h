/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_DUMP_H
#define VASK_DUMP_H

/**
 * @file
 * Everything that driver and card know, as text for people.
 */

#include <cstdio>

struct rte_eth_dev;

/** The port's eth_dev_priv_dump slot: the port itself, then what all ports share. Always 0. */
int vask_dump(struct rte_eth_dev *dev, FILE *file);

#endif /* VASK_DUMP_H */
