/* SPDX-License-Identifier: BSD-3-Clause */
#include "eal.h"

#include <cstdlib>
#include <vector>

#include <unistd.h>

#include <rte_bus_vdev.h>
#include <rte_eal.h>
#include <rte_eth_ring.h>
#include <rte_ethdev.h>
#include <rte_log.h>

#include "check.h"

void
fuzz_eal_init()
{
	std::vector<std::string> args = {"fuzz", "--no-huge", "--no-pci", "-m", "256", "-l", "0",
		"--log-level=emergency", "--file-prefix=fuzz" + std::to_string(getpid())};
	std::vector<char *> argv;

	argv.reserve(args.size());
	for (std::string &arg : args)
		argv.push_back(arg.data());
	FUZZ_CHECK(rte_eal_init(static_cast<int>(argv.size()), argv.data()) >= 0);
	rte_log_set_global_level(RTE_LOG_EMERG);
	rte_log_set_level_pattern("*", RTE_LOG_EMERG);
	atexit([] { rte_eal_cleanup(); });
}

uint16_t
fuzz_port_probe(unsigned n, const std::string &args, FuzzWire *wire)
{
	const std::string wire_name = "wire" + std::to_string(n);
	const std::string name = "net_vask1_" + std::to_string(n);
	uint16_t port = UINT16_MAX;

	for (uint16_t q = 0; q < FUZZ_QUEUES; q++) {
		const std::string queue = wire_name + "_" + std::to_string(q);

		wire->rx[q] = rte_ring_create(
			(queue + "rx").c_str(), 256, SOCKET_ID_ANY, RING_F_EXACT_SZ);
		wire->tx[q] = rte_ring_create(
			(queue + "tx").c_str(), 256, SOCKET_ID_ANY, RING_F_EXACT_SZ);
		FUZZ_CHECK(wire->rx[q] != nullptr && wire->tx[q] != nullptr);
	}
	FUZZ_CHECK(rte_eth_from_rings(wire_name.c_str(), wire->rx.data(), FUZZ_QUEUES,
			   wire->tx.data(), FUZZ_QUEUES, 0) >= 0);
	FUZZ_CHECK(
		rte_vdev_init(name.c_str(), ("uplink=net_ring_" + wire_name + args).c_str()) == 0);
	FUZZ_CHECK(rte_eth_dev_get_port_by_name(name.c_str(), &port) == 0);
	return port;
}

void
fuzz_port_start(uint16_t port, uint64_t rx_offloads, struct rte_mempool *pool)
{
	struct rte_eth_conf conf = {};

	conf.rxmode.offloads = rx_offloads;
	FUZZ_CHECK(rte_eth_dev_configure(port, FUZZ_QUEUES, FUZZ_QUEUES, &conf) == 0);
	for (uint16_t q = 0; q < FUZZ_QUEUES; q++) {
		FUZZ_CHECK(rte_eth_rx_queue_setup(port, q, 512, 0, nullptr, pool) == 0);
		FUZZ_CHECK(rte_eth_tx_queue_setup(port, q, 512, 0, nullptr) == 0);
	}
	FUZZ_CHECK(rte_eth_dev_start(port) == 0);
}
