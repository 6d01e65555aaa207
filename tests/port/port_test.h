/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef TESTS_PORT_PORT_TEST_H
#define TESTS_PORT_PORT_TEST_H

/**
 * @file
 * Tests of a whole port in process: the environment layer, an uplink of rings that a test fills and empties,
 * frames, and the meter objects of the tests.
 */

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <rte_ethdev.h>
#include <rte_flow.h>
#include <rte_mbuf.h>
#include <rte_mtr.h>

namespace vask_test
{

constexpr uint64_t RECEIVE = UINT64_C(1) << 63;
constexpr uint64_t TRANSMIT = UINT64_C(1) << 62;
constexpr uint64_t ORIGINAL_LENGTH = UINT64_C(1) << 61;
constexpr uint64_t DROP_COUNTERS = RTE_MTR_STATS_N_PKTS_DROPPED | RTE_MTR_STATS_N_BYTES_DROPPED;

/** What a test asks of a frame: Ethernet, tags, IPv4, UDP or TCP, and padding up to its length. */
struct Frame {
	uint16_t length = 1000; /* bytes without FCS */
	uint64_t time_ns = 0;
	int protocol = IPPROTO_UDP;
	uint8_t dscp = 0;
	uint16_t dst_port = 5000;
	uint16_t vlan_tags = 0;
};

/** An uplink: what a test puts in is received by the port, what the port sends the test takes out. */
struct Wire {
	std::string name; /* of its ethdev port */
	std::vector<struct rte_ring *> rx;
	std::vector<struct rte_ring *> tx;
};

class PortTest : public ::testing::Test
{
      protected:
	void SetUp() override;
	void TearDown() override;

	/** Creates the uplink `net_ring_<name>`. */
	Wire make_wire(const std::string &name, unsigned queues = 1, unsigned ring_size = 2048);
	void remove_wire(const Wire &wire);

	/** Probes a device; the result of rte_vdev_init(). */
	int probe(const std::string &name, const std::string &args);
	/** Removes it. */
	int remove(const std::string &name);
	/** The port of a device, which must exist. */
	uint16_t port_of(const std::string &name);
	/** Configures and starts a port with that many queue pairs; 0, or the first refusal. */
	int start(uint16_t port, uint16_t queues = 1, uint64_t rx_offloads = 0);

	struct rte_mbuf *make(const Frame &frame);
	static struct rte_mbuf *make(const Frame &frame, struct rte_mempool *from);
	/** Puts a frame on the wire. */
	void put(const Wire &wire, const Frame &frame, unsigned queue = 0);
	/** Receives all that there is, freed at the end of the test. */
	std::vector<struct rte_mbuf *>
	receive(uint16_t port, uint16_t queue = 0, uint16_t burst = 32);
	/** Takes what was sent off the wire, freed at the end of the test. */
	std::vector<struct rte_mbuf *> sent(const Wire &wire, unsigned queue = 0);
	/** Sends frames in one burst; how many were taken. The rest is freed. */
	uint16_t send(uint16_t port, const std::vector<Frame> &frames, uint16_t queue = 0);

	/** RFC 2697 in bytes; with an excess rate RFC 4115. */
	int add_profile(uint16_t port, uint32_t id, uint64_t cir, uint64_t cbs, uint64_t ebs,
		uint64_t eir = 0);
	/** Red is dropped if asked for; other colours pass. */
	int add_policy(uint16_t port, uint32_t id, bool drop_red = true);
	int
	create_meter(uint16_t port, uint32_t id, uint32_t profile, uint32_t policy, uint64_t side);
	struct rte_mtr_stats stats(uint16_t port, uint32_t meter);
	/** A rule on IPv4 packets of a protocol (0: on all packets) with one action. */
	struct rte_flow *add_rule(uint16_t port, uint8_t protocol, struct rte_flow_action action,
		bool egress = false);
	struct rte_flow *
	add_meter_rule(uint16_t port, uint8_t protocol, uint32_t meter, bool egress = false);

	uint64_t xstat(uint16_t port, const std::string &name);

	/** Whole seconds that a variable of the environment asks for; without it, so many. */
	static unsigned seconds(const char *variable, unsigned otherwise);

	/** The driver's log since the last call. */
	std::string log();

	struct rte_mempool *pool = nullptr;
	struct rte_mtr_error error = {};
	struct rte_flow_error flow_error = {};

      private:
	std::vector<struct rte_mbuf *> held_;
	std::vector<std::string> devices_;
	std::vector<Wire> wires_;
	FILE *stream_ = nullptr;
	char *text_ = nullptr;
	size_t size_ = 0;
};

} // namespace vask_test

#endif /* TESTS_PORT_PORT_TEST_H */
