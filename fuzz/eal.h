/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef FUZZ_EAL_H
#define FUZZ_EAL_H

/**
 * @file
 * DPDK's environment for a target, and a port of the software card with rings for a wire.
 */

#include <array>
#include <string>

#include <rte_mbuf.h>
#include <rte_ring.h>

constexpr uint16_t FUZZ_QUEUES = 4;

/** Starts EAL without hugepages and devices, and ends it with the program. Silent but for what is fatal. */
void fuzz_eal_init();

/** The uplink of a port: what is put into rx the port receives, what it sends is in tx. */
struct FuzzWire {
	std::array<struct rte_ring *, FUZZ_QUEUES> rx, tx;
};

/** Probes `net_vask1_<n>` over `net_ring_wire<n>` with further arguments ("" or ",key=value...").  */
uint16_t fuzz_port_probe(unsigned n, const std::string &args, FuzzWire *wire);

/** Configures and starts a port with FUZZ_QUEUES queue pairs. */
void fuzz_port_start(uint16_t port, uint64_t rx_offloads, struct rte_mempool *pool);

#endif /* FUZZ_EAL_H */
