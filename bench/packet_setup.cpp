/* SPDX-License-Identifier: BSD-3-Clause */

#include "packet_setup.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

#include <rte_eal.h>
#include <rte_errno.h>
#include <rte_ethdev.h>
#include <rte_ether.h>
#include <rte_flow.h>
#include <rte_ip.h>
#include <rte_mbuf.h>
#include <rte_mbuf_dyn.h>
#include <rte_udp.h>

#include "rte_pmd_net_vask1.h"

constexpr uint32_t BUFFERS = 8190; /* twice the most flows */
constexpr uint32_t PROFILE = 1;
constexpr uint32_t POLICY = 1;
constexpr uint32_t FIRST_METER = 1;
constexpr uint32_t NETWORK = RTE_IPV4(10, 0, 0, 0); /* of the destinations, one a flow, in a row */
constexpr uint8_t EF = 46;
constexpr uint8_t AF13 = 14; /* the drop precedence that colour-aware meters take for red */

static std::vector<struct rte_flow *> rules;
static int time_field;
static uint64_t time_flag;

static void
must(bool good, const char *what)
{
	if (good)
		return;
	fprintf(stderr, "bench: %s failed: %s\n", what, rte_strerror(rte_errno));
	abort();
}

void
packet_eal_init()
{
	const std::string size = ",size=" + std::to_string(PACKET_SIZE);
	std::vector<std::string> args = {"packet_bench", "-l", "0", "--no-huge", "--no-pci", "-m",
		"256", "--no-telemetry", "--file-prefix=bench" + std::to_string(getpid()),
		"--vdev=net_vask1_0,uplink=net_null0", "--vdev=net_vask1_1,uplink=net_null1",
		"--vdev=net_null0" + size, "--vdev=net_null1" + size, "--vdev=net_null2" + size,
		"--vdev=net_null3" + size,
		"--vdev=net_vask1_2,uplink=net_null4,clock=capture,tick=ns",
		"--vdev=net_null4" + size, "--vdev=net_null5" + size};
	std::vector<char *> argv;

	argv.reserve(args.size());
	for (std::string &arg : args)
		argv.push_back(arg.data());
	must(rte_eal_init(static_cast<int>(argv.size()), argv.data()) >= 0, "rte_eal_init");
	must(rte_mbuf_dyn_rx_timestamp_register(&time_field, &time_flag) == 0, "times of packets");
	rte_log_set_level_pattern("pmd.net.vask1", RTE_LOG_EMERG);
}

static uint16_t
port_of(const char *name)
{
	uint16_t port;

	must(rte_eth_dev_get_port_by_name(name, &port) == 0, "port by name");
	return port;
}

struct packet_ports
packet_pair(bool vask1, bool capture)
{
	if (!vask1)
		return {port_of("net_null2"), port_of("net_null3")};
	if (capture)
		return {port_of("net_null5"), port_of("net_vask1_2")};
	return {port_of("net_vask1_0"), port_of("net_vask1_1")};
}

/* Where a flow goes. */
static rte_be32_t
destination(const struct packet_load &load, uint32_t flow)
{
	constexpr uint32_t FAR = 2654435761; /* odd: no two flows meet */

	return rte_cpu_to_be_32(
		load.work == PACKET_SCATTERED ? (NETWORK + flow) * FAR : NETWORK + flow);
}

/* The flow of each buffer: equally many of each, in random order. */
static std::vector<uint32_t>
random_flows(uint32_t flows, uint32_t buffers)
{
	std::vector<uint32_t> of(buffers);

	for (uint32_t i = 0; i < buffers; i++)
		of[i] = i;
	std::shuffle(of.begin(), of.end(), std::mt19937(flows));
	return of;
}

struct writer {
	const struct packet_load &load;
	std::vector<uint32_t>
		order; /* buffer -> serial number: its flow, and whether it is marked red */
};

static void
write_frame(struct rte_mempool *, void *opaque, void *object, unsigned index)
{
	const auto *w = static_cast<const struct writer *>(opaque);
	const uint32_t flow = w->order[index] % w->load.flows;
	const bool red =
		w->load.work == PACKET_HALF_RED && w->order[index] / w->load.flows % 2 != 0;
	auto *m = static_cast<struct rte_mbuf *>(object);
	auto *ether = reinterpret_cast<struct rte_ether_hdr *>(
		static_cast<uint8_t *>(m->buf_addr) + RTE_PKTMBUF_HEADROOM);
	auto *ip = reinterpret_cast<struct rte_ipv4_hdr *>(ether + 1);
	auto *udp = reinterpret_cast<struct rte_udp_hdr *>(ip + 1);

	*ether = {};
	ether->ether_type = RTE_BE16(RTE_ETHER_TYPE_IPV4);
	*ip = {};
	ip->version_ihl = RTE_IPV4_VHL_DEF;
	ip->type_of_service = red ? AF13 << 2 : 0;
	ip->total_length = rte_cpu_to_be_16(PACKET_SIZE - sizeof(*ether));
	ip->time_to_live = 64;
	ip->next_proto_id = IPPROTO_UDP;
	ip->src_addr = rte_cpu_to_be_32(RTE_IPV4(192, 0, 2, 1));
	ip->dst_addr = destination(w->load, flow);
	ip->hdr_checksum = rte_ipv4_cksum(ip);
	*udp = {};
	udp->src_port = udp->dst_port = rte_cpu_to_be_16(9);
	udp->dgram_len = rte_cpu_to_be_16(PACKET_SIZE - sizeof(*ether) - sizeof(*ip));
}

static struct rte_mempool *
make_pool(const std::string &name, const struct packet_load &load)
{
	/* of each flow equally many buffers, an even number of them */
	const uint32_t buffers = BUFFERS / (2 * load.flows) * (2 * load.flows);
	struct writer w = {load, random_flows(load.flows, buffers)};
	/* one thread uses it */
	struct rte_mempool *pool = rte_pktmbuf_pool_create_by_ops(name.c_str(), buffers,
		load.cached ? 256 : 0, 0, RTE_PKTMBUF_HEADROOM + 128, SOCKET_ID_ANY, "ring_sp_sc");

	must(pool != nullptr, "pool");
	must(rte_mempool_obj_iter(pool, write_frame, &w) == buffers, "frames");
	return pool;
}

static void
start_port(uint16_t port, struct rte_mempool *pool)
{
	const struct rte_eth_conf conf = {};

	must(rte_eth_dev_configure(port, 1, 1, &conf) == 0, "configure");
	must(rte_eth_rx_queue_setup(port, 0, 512, SOCKET_ID_ANY, nullptr, pool) == 0, "rx queue");
	must(rte_eth_tx_queue_setup(port, 0, 512, SOCKET_ID_ANY, nullptr) == 0, "tx queue");
	must(rte_eth_dev_start(port) == 0, "start");
}

static void
add_policy(uint16_t port, enum packet_work work)
{
	static const struct rte_flow_action end = {RTE_FLOW_ACTION_TYPE_END, nullptr};
	static const struct rte_flow_action drop[] = {{RTE_FLOW_ACTION_TYPE_DROP, nullptr}, end};
	static const struct rte_flow_action_set_dscp ef = {EF};
	static const struct rte_flow_action mark[] = {
		{RTE_FLOW_ACTION_TYPE_SET_IPV4_DSCP, &ef}, end};
	struct rte_mtr_meter_policy_params policy = {
		{work == PACKET_REWRITE ? mark : &end, &end, drop}};

	must(rte_mtr_meter_policy_add(port, POLICY, &policy, nullptr) == 0, "policy");
}

static void
add_meter(uint16_t port, const struct packet_load &load, uint32_t flow)
{
	struct rte_mtr_params params = {};
	struct rte_flow_attr attr = {};
	struct rte_flow_item_ipv4 spec = {}, mask = {};
	const struct rte_flow_action_meter conf = {FIRST_METER + flow};
	const struct rte_flow_item pattern[] = {
		{RTE_FLOW_ITEM_TYPE_ETH, nullptr, nullptr, nullptr},
		{RTE_FLOW_ITEM_TYPE_IPV4, &spec, nullptr, &mask},
		{RTE_FLOW_ITEM_TYPE_END, nullptr, nullptr, nullptr},
	};
	const struct rte_flow_action actions[] = {
		{RTE_FLOW_ACTION_TYPE_METER, &conf}, {RTE_FLOW_ACTION_TYPE_END, nullptr}};
	struct rte_flow_error error = {};

	params.meter_profile_id = PROFILE;
	params.meter_policy_id = POLICY;
	params.meter_enable = 1;
	params.use_prev_mtr_color = load.work == PACKET_HALF_RED;
	params.stats_mask = RTE_MTR_STATS_N_PKTS_DROPPED | RTE_MTR_STATS_N_BYTES_DROPPED;
	must(rte_mtr_create(port, FIRST_METER + flow, &params, 1, nullptr) == 0, "meter");

	attr.ingress = !load.egress;
	attr.egress = load.egress;
	spec.hdr.dst_addr = destination(load, flow);
	mask.hdr.dst_addr = RTE_BE32(UINT32_MAX);
	rules.push_back(rte_flow_create(port, &attr, pattern, actions, &error));
	must(rules.back() != nullptr, error.message != nullptr ? error.message : "rule");
}

struct rte_mempool *
packet_setup(const struct packet_ports &ports, const struct packet_load &load)
{
	const uint16_t metered = load.egress ? ports.to : ports.from;
	struct rte_mempool *pool = make_pool("frames_" + std::to_string(ports.from), load);

	start_port(ports.from, pool);
	start_port(ports.to, pool);
	if (!load.rules)
		return pool;

	struct rte_mtr_meter_profile profile = {};
	profile.alg = RTE_MTR_TRTCM_RFC2698;
	/* more than one core can send, so that only marked packets are red */
	profile.trtcm_rfc2698 = {UINT64_C(20000000000), UINT64_C(40000000000), 1 << 20, 1 << 20};
	must(rte_mtr_meter_profile_add(metered, PROFILE, &profile, nullptr) == 0, "profile");
	add_policy(metered, load.work);
	for (uint32_t flow = 0; flow < load.flows; flow++)
		add_meter(metered, load, flow);
	return pool;
}

void
packet_teardown(
	const struct packet_ports &ports, const struct packet_load &load, struct rte_mempool *pool)
{
	const uint16_t metered = load.egress ? ports.to : ports.from;

	if (load.rules) {
		for (struct rte_flow *rule : rules)
			must(rte_flow_destroy(metered, rule, nullptr) == 0, "rule's end");
		rules.clear();
		for (uint32_t flow = 0; flow < load.flows; flow++)
			must(rte_mtr_destroy(metered, FIRST_METER + flow, nullptr) == 0,
				"meter's end");
		must(rte_mtr_meter_policy_delete(metered, POLICY, nullptr) == 0, "policy's end");
		must(rte_mtr_meter_profile_delete(metered, PROFILE, nullptr) == 0, "profile's end");
	}
	must(rte_eth_dev_stop(ports.from) == 0, "stop");
	must(rte_eth_dev_stop(ports.to) == 0, "stop");
	must(rte_mempool_in_use_count(pool) == 0, "all buffers back");
	rte_mempool_free(pool);
}

const char *
packet_prove(const struct packet_load &load, uint64_t packets)
{
	/* the buffers come round in turn, so shares differ by what one flow has in the pool at most */
	const uint64_t round = uint64_t{2} * (BUFFERS / (2 * load.flows));
	const uint64_t share = packets / load.flows;
	uint64_t seen = 0;

	for (uint32_t flow = 0; load.rules && flow < load.flows; flow++) {
		struct rte_pmd_net_vask1_meter_stats stats;

		if (rte_pmd_net_vask1_meter_stats(FIRST_METER + flow, load.egress, &stats) != 0)
			return "a meter cannot be read";

		const uint64_t red = stats.n_pkts[RTE_COLOR_RED];
		const uint64_t all =
			stats.n_pkts[RTE_COLOR_GREEN] + stats.n_pkts[RTE_COLOR_YELLOW] + red;
		const uint64_t half = load.work == PACKET_HALF_RED ? all / 2 : 0;

		seen += all;
		if (!load.cached && (all > share + round || all + round < share))
			return "a flow had more or less than its share";
		if (stats.n_pkts[RTE_COLOR_YELLOW] != 0)
			return "packets were yellow";
		/* a buffer of a dropped packet is back a few places before its time, and so comes
		 * round a little more often */
		const uint64_t some = load.work == PACKET_HALF_RED ? round + all / 256 : 0;

		if (red > half + some || red + some < half)
			return "not as many packets were red as stated";
		if (stats.n_pkts_dropped != red)
			return "not as many packets were dropped as were red";
		if (stats.n_pkts_rewritten != (load.work == PACKET_REWRITE ? all : 0))
			return "not as many packets were rewritten as stated";
	}
	return load.rules && seen != packets ? "not every packet was metered" : nullptr;
}

static struct rte_ipv4_hdr *
ipv4_of(const struct rte_mbuf *pkt)
{
	return rte_pktmbuf_mtod_offset(pkt, struct rte_ipv4_hdr *, sizeof(struct rte_ether_hdr));
}

void
packet_restore(struct rte_mbuf *const *pkts, uint16_t n)
{
	for (uint16_t i = 0; i < n; i++)
		ipv4_of(pkts[i])->type_of_service = 0;
}

void
packet_stamp(struct rte_mbuf *const *pkts, uint16_t n, uint64_t *time_ns)
{
	constexpr uint64_t GAP_NS = 8 * (PACKET_SIZE + 20); /* with preamble and gap */

	for (uint16_t i = 0; i < n; i++) {
		*RTE_MBUF_DYNFIELD(pkts[i], time_field, rte_mbuf_timestamp_t *) = *time_ns +=
			GAP_NS;
		pkts[i]->ol_flags |= time_flag;
	}
}

uint32_t
packet_flow(const struct rte_mbuf *pkt)
{
	return rte_be_to_cpu_32(ipv4_of(pkt)->dst_addr) - NETWORK;
}
