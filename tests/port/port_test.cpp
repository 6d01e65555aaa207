/* SPDX-License-Identifier: BSD-3-Clause */
#include "port_test.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include <rte_bus_vdev.h>
#include <rte_eal.h>
#include <rte_eth_ring.h>
#include <rte_ether.h>
#include <rte_ip.h>
#include <rte_log.h>
#include <rte_mbuf_dyn.h>
#include <rte_tcp.h>
#include <rte_udp.h>

#include "keep_cpus.h"
#include "rte_pmd_net_vask1.h"

/* The list of alarms is guarded inside a library that ThreadSanitizer does not see into. */
extern "C" const char *
__tsan_default_suppressions()
{
	return "race:rte_eal_alarm_cancel\nrace:rte_eal_alarm_set\n";
}

namespace vask_test
{

namespace
{

int timestamp_offset;
uint64_t timestamp_flag;

class Eal : public ::testing::Environment
{
      public:
	void SetUp() override
	{
		std::string prefix = "--file-prefix=port" + std::to_string(getpid());
		std::vector<std::string> args = {
			"port_test", "--no-huge", "--no-pci", "-m", "192", "-l", "0,1", prefix};
		std::vector<char *> argv;

		for (std::string &arg : args)
			argv.push_back(arg.data());

		const KeepCpus keep;
		ASSERT_GE(rte_eal_init(static_cast<int>(argv.size()), argv.data()), 0);
		ASSERT_EQ(
			rte_mbuf_dyn_rx_timestamp_register(&timestamp_offset, &timestamp_flag), 0);
	}
	void TearDown() override
	{
		rte_eal_cleanup();
	}
};

const auto *const eal = ::testing::AddGlobalTestEnvironment(new Eal);

std::vector<struct rte_ring *>
make_rings(const std::string &prefix, unsigned n, unsigned size)
{
	std::vector<struct rte_ring *> rings;

	for (unsigned i = 0; i < n; i++)
		rings.push_back(rte_ring_create((prefix + std::to_string(i)).c_str(), size,
			SOCKET_ID_ANY, RING_F_EXACT_SZ));
	return rings;
}

void
free_ring(struct rte_ring *ring)
{
	void *m;

	while (rte_ring_dequeue(ring, &m) == 0)
		rte_pktmbuf_free(static_cast<struct rte_mbuf *>(m));
	rte_ring_free(ring);
}

} // namespace

void
PortTest::SetUp()
{
	pool = rte_pktmbuf_pool_create(
		"port_test", 8191, 0, 0, RTE_MBUF_DEFAULT_BUF_SIZE, SOCKET_ID_ANY);
	ASSERT_NE(pool, nullptr);
	stream_ = open_memstream(&text_, &size_);
	rte_openlog_stream(stream_);
	rte_log_set_level_pattern("pmd.net.vask1", RTE_LOG_DEBUG);
}

void
PortTest::TearDown()
{
	rte_pmd_net_vask1_fault_clear();
	rte_pktmbuf_free_bulk(held_.data(), static_cast<unsigned>(held_.size()));
	for (const std::string &name : std::vector<std::string>(devices_))
		remove(name);
	for (const Wire &wire : std::vector<Wire>(wires_))
		remove_wire(wire);
	EXPECT_EQ(rte_mempool_in_use_count(pool), 0u) << "mbufs were lost";
	rte_mempool_free(pool);
	rte_openlog_stream(nullptr);
	fclose(stream_);
	free(text_);
}

Wire
PortTest::make_wire(const std::string &name, unsigned queues, unsigned ring_size)
{
	Wire wire = {"net_ring_" + name, make_rings(name + "_rx", queues, ring_size),
		make_rings(name + "_tx", queues, ring_size)};

	EXPECT_GE(
		rte_eth_from_rings(name.c_str(), wire.rx.data(), queues, wire.tx.data(), queues, 0),
		0);
	wires_.push_back(wire);
	return wire;
}

void
PortTest::remove_wire(const Wire &wire)
{
	EXPECT_EQ(rte_vdev_uninit(wire.name.c_str()), 0);
	for (struct rte_ring *ring : wire.rx)
		free_ring(ring);
	for (struct rte_ring *ring : wire.tx)
		free_ring(ring);
	std::erase_if(wires_, [&](const Wire &w) { return w.name == wire.name; });
}

int
PortTest::probe(const std::string &name, const std::string &args)
{
	const int rc = rte_vdev_init(name.c_str(), args.c_str());

	if (rc == 0)
		devices_.push_back(name);
	return rc;
}

int
PortTest::remove(const std::string &name)
{
	std::erase(devices_, name);
	return rte_vdev_uninit(name.c_str());
}

uint16_t
PortTest::port_of(const std::string &name)
{
	uint16_t port = UINT16_MAX;

	EXPECT_EQ(rte_eth_dev_get_port_by_name(name.c_str(), &port), 0);
	return port;
}

int
PortTest::start(uint16_t port, uint16_t queues, uint64_t rx_offloads)
{
	struct rte_eth_conf conf = {};
	int rc;

	conf.rxmode.offloads = rx_offloads;
	rc = rte_eth_dev_configure(port, queues, queues, &conf);
	for (uint16_t q = 0; rc == 0 && q < queues; q++)
		rc = rte_eth_rx_queue_setup(port, q, 512, 0, nullptr, pool);
	for (uint16_t q = 0; rc == 0 && q < queues; q++)
		rc = rte_eth_tx_queue_setup(port, q, 512, 0, nullptr);
	return rc == 0 ? rte_eth_dev_start(port) : rc;
}

struct rte_mbuf *
PortTest::make(const Frame &frame)
{
	return make(frame, pool);
}

struct rte_mbuf *
PortTest::make(const Frame &frame, struct rte_mempool *from)
{
	struct rte_mbuf *m = rte_pktmbuf_alloc(from);
	char *at = rte_pktmbuf_append(m, frame.length);

	memset(at, 0, frame.length);
	at += 2 * RTE_ETHER_ADDR_LEN;
	for (uint16_t i = 0; i < frame.vlan_tags; i++) {
		const rte_be16_t tag[] = {RTE_BE16(RTE_ETHER_TYPE_VLAN), rte_cpu_to_be_16(100 + i)};

		memcpy(at, tag, sizeof(tag));
		at += sizeof(tag);
	}
	const rte_be16_t ipv4 = RTE_BE16(RTE_ETHER_TYPE_IPV4);
	memcpy(at, &ipv4, sizeof(ipv4));
	at += sizeof(ipv4);

	auto *ip = reinterpret_cast<struct rte_ipv4_hdr *>(at);
	const char *end = rte_pktmbuf_mtod(m, const char *) + frame.length;
	ip->version_ihl = RTE_IPV4_VHL_DEF;
	ip->type_of_service = static_cast<uint8_t>(frame.dscp << 2);
	ip->total_length = rte_cpu_to_be_16(static_cast<uint16_t>(end - at));
	ip->time_to_live = 64;
	ip->next_proto_id = static_cast<uint8_t>(frame.protocol);
	ip->src_addr = RTE_BE32(RTE_IPV4(10, 0, 0, 1));
	ip->dst_addr = RTE_BE32(RTE_IPV4(10, 0, 0, 2));
	ip->hdr_checksum = rte_ipv4_cksum(ip);
	/* the ports stand in the same place in UDP and TCP */
	auto *udp = reinterpret_cast<struct rte_udp_hdr *>(ip + 1);
	udp->src_port = RTE_BE16(4000);
	udp->dst_port = rte_cpu_to_be_16(frame.dst_port);

	*RTE_MBUF_DYNFIELD(m, timestamp_offset, rte_mbuf_timestamp_t *) = frame.time_ns;
	m->ol_flags |= timestamp_flag;
	return m;
}

void
PortTest::put(const Wire &wire, const Frame &frame, unsigned queue)
{
	ASSERT_EQ(rte_ring_enqueue(wire.rx.at(queue), make(frame)), 0);
}

std::vector<struct rte_mbuf *>
PortTest::receive(uint16_t port, uint16_t queue, uint16_t burst)
{
	std::vector<struct rte_mbuf *> pkts, all;
	/* a burst may be dropped whole: the wire is empty after enough empty-handed ones */
	unsigned idle = 0;

	while (idle < 100) {
		pkts.resize(burst);
		pkts.resize(rte_eth_rx_burst(port, queue, pkts.data(), burst));
		idle = pkts.empty() ? idle + 1 : 0;
		all.insert(all.end(), pkts.begin(), pkts.end());
	}
	held_.insert(held_.end(), all.begin(), all.end());
	return all;
}

std::vector<struct rte_mbuf *>
PortTest::sent(const Wire &wire, unsigned queue)
{
	std::vector<struct rte_mbuf *> all;
	void *m;

	while (rte_ring_dequeue(wire.tx.at(queue), &m) == 0)
		all.push_back(static_cast<struct rte_mbuf *>(m));
	held_.insert(held_.end(), all.begin(), all.end());
	return all;
}

uint16_t
PortTest::send(uint16_t port, const std::vector<Frame> &frames, uint16_t queue)
{
	std::vector<struct rte_mbuf *> pkts;

	for (const Frame &frame : frames)
		pkts.push_back(make(frame));
	const auto n = static_cast<uint16_t>(pkts.size());
	const uint16_t taken = rte_eth_tx_burst(port, queue, pkts.data(), n);
	rte_pktmbuf_free_bulk(pkts.data() + taken, n - taken);
	return taken;
}

int
PortTest::add_profile(
	uint16_t port, uint32_t id, uint64_t cir, uint64_t cbs, uint64_t ebs, uint64_t eir)
{
	struct rte_mtr_meter_profile profile = {};

	if (eir == 0) {
		profile.alg = RTE_MTR_SRTCM_RFC2697;
		profile.srtcm_rfc2697.cir = cir;
		profile.srtcm_rfc2697.cbs = cbs;
		profile.srtcm_rfc2697.ebs = ebs;
	} else {
		profile.alg = RTE_MTR_TRTCM_RFC4115;
		profile.trtcm_rfc4115.cir = cir;
		profile.trtcm_rfc4115.cbs = cbs;
		profile.trtcm_rfc4115.eir = eir;
		profile.trtcm_rfc4115.ebs = ebs;
	}
	return rte_mtr_meter_profile_add(port, id, &profile, &error);
}

int
PortTest::add_policy(uint16_t port, uint32_t id, bool drop_red)
{
	const struct rte_flow_action pass[] = {{RTE_FLOW_ACTION_TYPE_END, nullptr}};
	const struct rte_flow_action drop[] = {
		{RTE_FLOW_ACTION_TYPE_DROP, nullptr}, {RTE_FLOW_ACTION_TYPE_END, nullptr}};
	struct rte_mtr_meter_policy_params policy = {};

	policy.actions[RTE_COLOR_GREEN] = pass;
	policy.actions[RTE_COLOR_YELLOW] = pass;
	policy.actions[RTE_COLOR_RED] = drop_red ? drop : pass;
	return rte_mtr_meter_policy_add(port, id, &policy, &error);
}

int
PortTest::create_meter(uint16_t port, uint32_t id, uint32_t profile, uint32_t policy, uint64_t side)
{
	struct rte_mtr_params params = {};

	params.meter_profile_id = profile;
	params.meter_policy_id = policy;
	params.meter_enable = 1;
	params.stats_mask = side | DROP_COUNTERS;
	return rte_mtr_create(port, id, &params, 1, &error);
}

struct rte_mtr_stats
PortTest::stats(uint16_t port, uint32_t meter)
{
	struct rte_mtr_stats stats = {};
	uint64_t mask = 0;

	EXPECT_EQ(rte_mtr_stats_read(port, meter, &stats, &mask, 0, &error), 0);
	EXPECT_EQ(mask, DROP_COUNTERS) << "meter " << meter << " is not known";
	return stats;
}

struct rte_flow *
PortTest::add_rule(uint16_t port, uint8_t protocol, struct rte_flow_action action, bool egress)
{
	struct rte_flow_item_ipv4 spec = {}, mask = {};
	struct rte_flow_attr attr = {};

	spec.hdr.next_proto_id = protocol;
	mask.hdr.next_proto_id = 0xFF;
	attr.ingress = !egress;
	attr.egress = egress;
	const struct rte_flow_item any[] = {
		{RTE_FLOW_ITEM_TYPE_ETH, nullptr, nullptr, nullptr},
		{RTE_FLOW_ITEM_TYPE_END, nullptr, nullptr, nullptr},
	};
	const struct rte_flow_item ipv4[] = {
		{RTE_FLOW_ITEM_TYPE_ETH, nullptr, nullptr, nullptr},
		{RTE_FLOW_ITEM_TYPE_IPV4, &spec, nullptr, &mask},
		{RTE_FLOW_ITEM_TYPE_END, nullptr, nullptr, nullptr},
	};
	const struct rte_flow_action actions[] = {action, {RTE_FLOW_ACTION_TYPE_END, nullptr}};

	return rte_flow_create(port, &attr, protocol == 0 ? any : ipv4, actions, &flow_error);
}

struct rte_flow *
PortTest::add_meter_rule(uint16_t port, uint8_t protocol, uint32_t meter, bool egress)
{
	const struct rte_flow_action_meter conf = {meter};

	return add_rule(port, protocol, {RTE_FLOW_ACTION_TYPE_METER, &conf}, egress);
}

unsigned
PortTest::seconds(const char *variable, unsigned otherwise)
{
	const char *text = getenv(variable);
	unsigned asked = otherwise;

	if (text != nullptr) {
		const char *end = text + strlen(text);
		const auto [last, failure] = std::from_chars(text, end, asked);
		EXPECT_TRUE(failure == std::errc() && last == end)
			<< variable << ": \"" << text << "\": accepted are whole seconds";
	}
	return asked;
}

uint64_t
PortTest::xstat(uint16_t port, const std::string &name)
{
	uint64_t id = 0, value = 0;

	EXPECT_EQ(rte_eth_xstats_get_id_by_name(port, name.c_str(), &id), 0) << name;
	EXPECT_EQ(rte_eth_xstats_get_by_id(port, &id, &value, 1), 1);
	return value;
}

std::string
PortTest::log()
{
	fflush(stream_);
	std::string said(text_, size_);
	fclose(stream_);
	free(text_);
	stream_ = open_memstream(&text_, &size_);
	rte_openlog_stream(stream_);
	return said;
}

} // namespace vask_test
