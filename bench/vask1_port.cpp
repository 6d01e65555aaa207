/* SPDX-License-Identifier: BSD-3-Clause */

/* Port 0 is net_vask1_0 on the software card, which observes shapers. */

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vector>

#include <rte_eal.h>
#include <rte_ethdev.h>

#include "control_port.h"

void
control_port_init()
{
	std::vector<std::string> args = {"port_control_bench", "-l", "0", "--no-huge", "--no-pci",
		"-m", "128", "--no-telemetry", "--file-prefix=bench" + std::to_string(getpid()),
		"--vdev=net_vask1_0,uplink=net_null0,shapers=observe", "--vdev=net_null0"};
	const struct rte_eth_conf conf = {};
	std::vector<char *> argv;

	argv.reserve(args.size());
	for (std::string &arg : args)
		argv.push_back(arg.data());
	if (rte_eal_init(static_cast<int>(argv.size()), argv.data()) < 0 ||
		rte_eth_dev_configure(0, 1, 1, &conf) != 0) {
		fprintf(stderr, "bench: no port\n");
		abort();
	}
}

/* Probing has started the module; the last meter's end leaves it as it was then. */
int
control_port_start()
{
	return 0;
}

void
control_port_stop()
{
}
