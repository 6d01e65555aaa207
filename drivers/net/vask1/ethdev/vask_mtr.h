/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_MTR_H
#define VASK_MTR_H

/**
 * @file
 * The meter operations as the port hands them to ethdev: the module's, behind a guard.
 *
 * The guard serialises control calls, clears the caller's error record before each and sees that a refusal
 * fills it, brings the card's meter instances in step afterwards, and makes a statistics read whose mask is 0
 * or null (DPDK hands it as an output) ask for both drop counters. Slots that the module leaves empty stay so.
 */

struct rte_eth_dev;

/** Lays the guard around the module's operations, before any port has them. 0, or what the module returns. */
int vask_mtr_start(struct rte_eth_dev *dev);

/** The port's mtr_ops_get slot; *ops receives a `const struct rte_mtr_ops *`. 0. Takes no lock. */
int vask_mtr_ops_get(struct rte_eth_dev *dev, void *ops);

#endif /* VASK_MTR_H */
