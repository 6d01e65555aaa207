/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Memory and time of a net_vask1 port and of everything that it can be told to do: 255 profiles, 254 policies
 * besides the default one, 4095 meters with a rule each. Prints JSON.
 */

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <unistd.h>
#include <vector>

#include <rte_eal.h>
#include <rte_ethdev.h>
#include <rte_flow.h>
#include <rte_ip.h>
#include <rte_mbuf.h>

#include "control_setup.h"

constexpr uint16_t PORT = 0;

static void
must(bool good, const char *what)
{
	if (good)
		return;
	fprintf(stderr, "bench: %s failed\n", what);
	abort();
}

static double
resident_bytes()
{
	std::ifstream statm("/proc/self/statm");
	unsigned long all = 0, resident = 0;

	must(!(statm >> all >> resident).fail(), "/proc/self/statm");
	return static_cast<double>(resident) * getpagesize();
}

struct cost {
	double bytes;
	double seconds;
};

static struct cost
cost_of(const std::function<void()> &work)
{
	const double bytes = resident_bytes();
	const auto start = std::chrono::steady_clock::now();

	work();
	const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
	return {resident_bytes() - bytes, time.count()};
}

static void
add_rule(uint32_t meter)
{
	struct rte_flow_attr attr = {};
	struct rte_flow_item_ipv4 spec = {}, mask = {};
	const struct rte_flow_action_meter conf = {meter};
	const struct rte_flow_item pattern[] = {
		{RTE_FLOW_ITEM_TYPE_ETH, nullptr, nullptr, nullptr},
		{RTE_FLOW_ITEM_TYPE_IPV4, &spec, nullptr, &mask},
		{RTE_FLOW_ITEM_TYPE_END, nullptr, nullptr, nullptr},
	};
	const struct rte_flow_action actions[] = {
		{RTE_FLOW_ACTION_TYPE_METER, &conf}, {RTE_FLOW_ACTION_TYPE_END, nullptr}};

	attr.ingress = 1;
	spec.hdr.dst_addr = rte_cpu_to_be_32(meter);
	mask.hdr.dst_addr = RTE_BE32(UINT32_MAX);
	must(rte_flow_create(PORT, &attr, pattern, actions, nullptr) != nullptr, "rule");
}

static void
start_port()
{
	const struct rte_eth_conf conf = {};
	struct rte_mempool *pool = rte_pktmbuf_pool_create(
		"frames", 1023, 0, 0, RTE_MBUF_DEFAULT_BUF_SIZE, SOCKET_ID_ANY);

	must(pool != nullptr, "pool");
	must(rte_eal_hotplug_add("vdev", "net_vask1_0", "uplink=net_null0") == 0, "probe");
	must(rte_eal_hotplug_add("vdev", "net_null0", "") == 0, "probe of the uplink");
	must(rte_eth_dev_configure(PORT, 1, 1, &conf) == 0, "configure");
	must(rte_eth_rx_queue_setup(PORT, 0, 512, SOCKET_ID_ANY, nullptr, pool) == 0, "queue");
	must(rte_eth_tx_queue_setup(PORT, 0, 512, SOCKET_ID_ANY, nullptr) == 0, "queue");
	must(rte_eth_dev_start(PORT) == 0, "start");
}

template <typename Add>
static struct cost
fill(uint32_t n, Add add)
{
	return cost_of([=] {
		for (uint32_t id = 1; id <= n; id++)
			add(id);
	});
}

int
main()
{
	std::vector<std::string> args = {"footprint", "-l", "0", "--no-huge", "--no-pci", "-m",
		"256", "--no-telemetry", "--file-prefix=bench" + std::to_string(getpid())};
	std::vector<char *> argv;

	argv.reserve(args.size());
	for (std::string &arg : args)
		argv.push_back(arg.data());
	must(rte_eal_init(static_cast<int>(argv.size()), argv.data()) >= 0, "rte_eal_init");
	rte_log_set_level_pattern("pmd.net.vask1", RTE_LOG_EMERG);

	const struct cost port = cost_of(start_port);
	const struct cost profiles = fill(255, control_profile_add);
	const struct cost policies = fill(254, control_policy_add);
	const struct cost meters = fill(
		4095, [](uint32_t id) { control_meter_create(id, id % 255 + 1, id % 254 + 1); });
	const struct cost rules = fill(4095, add_rule);
	const std::pair<const char *, double> figures[] = {
		{"port and card, started: resident bytes", port.bytes},
		{"profile: resident bytes", profiles.bytes / 255},
		{"policy: resident bytes", policies.bytes / 254},
		{"meter: resident bytes", meters.bytes / 4095},
		{"rule: resident bytes", rules.bytes / 4095},
		{"profile: bytes of its node", sizeof(struct vask_p4_meter_profile_node)},
		{"policy: bytes of its node", sizeof(struct vask_p4_meter_policy_node)},
		{"meter: bytes of its node", sizeof(struct vask_p4_meter_cfg_node)},
		{"process with everything full: resident bytes", resident_bytes()},
		{"port probed, configured and started: ms", port.seconds * 1e3},
		{"255 profiles: ms", profiles.seconds * 1e3},
		{"254 policies: ms", policies.seconds * 1e3},
		{"4095 meters: ms", meters.seconds * 1e3},
		{"4095 rules: ms", rules.seconds * 1e3},
	};
	const char *separator = "{";

	for (const auto &[name, value] : figures) {
		printf("%s\n \"%s\": %.3f", separator, name, value);
		separator = ",";
	}
	printf("\n}\n");
	return 0;
}
