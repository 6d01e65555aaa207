/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * A P4 control plane in small: it adds a profile, a policer and a meter instance as rows of the P4 tables,
 * sends packets, reads the counters, points the meter at another policer and removes everything.
 *
 * Built beside the plugin; the arguments are EAL's:
 *   ./p4_control_plane --no-huge --no-pci
 *
 * The port's wire is a ring that hands back what the port sends, so each packet is received, and metered,
 * once. With clock=capture a packet without a time stamp stops the clock: no bucket is ever refilled, and
 * the colours follow from the bursts alone.
 */

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <rte_bus_vdev.h>
#include <rte_eal.h>
#include <rte_eth_ring.h>
#include <rte_ethdev.h>
#include <rte_ip.h>
#include <rte_mbuf.h>
#include <rte_ring.h>

#include "rte_pmd_net_vask1.h"

/* Rows of the tables, chosen by the control plane. */
constexpr uint32_t PROFILE = 1;
constexpr uint32_t POLICER_STRICT = 2;
constexpr uint32_t POLICER_LENIENT = 3;
constexpr uint32_t METER = 9;

constexpr uint16_t PACKETS = 50;
constexpr uint16_t FRAME_LENGTH = 500;
constexpr uint8_t DSCP_AF13 = 14;

static void
check(int rc, const char *what)
{
	if (rc >= 0)
		return;
	fprintf(stderr, "%s: %s\n", what, rte_strerror(-rc));
	exit(EXIT_FAILURE);
}

/* One port of the card, its wire looped back. */
static uint16_t
open_port(struct rte_mempool *pool)
{
	struct rte_eth_conf conf = {};
	uint16_t port;

	check(rte_vdev_init("net_vask1_0", "uplink=net_ring_wire,clock=capture"), "net_vask1_0");
	check(rte_eth_dev_get_port_by_name("net_vask1_0", &port), "net_vask1_0");
	check(rte_eth_from_ring(rte_ring_create("wire", 1024, 0, 0)), "wire");

	check(rte_eth_dev_configure(port, 1, 1, &conf), "configure");
	check(rte_eth_rx_queue_setup(port, 0, 512, 0, nullptr, pool), "receive queue");
	check(rte_eth_tx_queue_setup(port, 0, 512, 0, nullptr), "transmit queue");
	check(rte_eth_dev_start(port), "start");
	return port;
}

/* 10 KiB green, 5 KiB more yellow, the rest red. Numbers stand in the entries as the host holds them. */
static void
add_profile()
{
	p4_meter_profile_t entry = {};

	entry.meter_rfc = 0; /* RFC 2697 */
	entry.packet_mode = 0;
	entry.cir = 1250000; /* bytes/s */
	entry.cbs = 10 * 1024;
	entry.ebs = 5 * 1024;
	check(rte_pmd_net_vask1_profile_add(PROFILE, &entry), "profile");
}

static void
add_policers()
{
	p4_meter_policer_t entry = {}; /* action 0: pass */

	entry.yellow_action = 1; /* rewrite the DSCP */
	entry.yellow_dscp = DSCP_AF13;
	check(rte_pmd_net_vask1_policer_add(POLICER_LENIENT, &entry), "policer");
	entry.red_action = 2; /* drop */
	check(rte_pmd_net_vask1_policer_add(POLICER_STRICT, &entry), "policer");
}

static p4_meter_instance_t
instance(uint16_t port, uint32_t policer)
{
	p4_meter_instance_t entry = {};

	entry.type = 1; /* the meter belongs to a port */
	entry.dpdk_port_id = port;
	entry.dir = 0; /* receive */
	entry.meter_enable = 1;
	entry.stats_mask = P4_METER_STATS_N_PKTS_DROPPED | P4_METER_STATS_N_BYTES_DROPPED;
	entry.profile_id = PROFILE;
	entry.policer_id = policer & 0xff;
	return entry;
}

static void
add_meter(uint16_t port)
{
	const p4_meter_instance_t entry = instance(port, POLICER_STRICT);

	check(rte_pmd_net_vask1_instance_add(METER, &entry), "meter");
	/* Adding an instance returns 0 even when the meter was refused: look. */
	if (vask_p4_find_hw_meterid_by_upid(METER) == 0) {
		fprintf(stderr, "meter %u was refused\n", METER);
		exit(EXIT_FAILURE);
	}
}

static struct rte_mbuf *
udp_packet(struct rte_mempool *pool)
{
	struct rte_mbuf *m = rte_pktmbuf_alloc(pool);
	char *frame = m == nullptr ? nullptr : rte_pktmbuf_append(m, FRAME_LENGTH);

	if (frame == nullptr) {
		fprintf(stderr, "no packet buffer\n");
		exit(EXIT_FAILURE);
	}
	memset(frame, 0, FRAME_LENGTH);
	rte_ether_hdr *eth = reinterpret_cast<rte_ether_hdr *>(frame);
	eth->ether_type = RTE_BE16(RTE_ETHER_TYPE_IPV4);
	rte_ipv4_hdr *ip = reinterpret_cast<rte_ipv4_hdr *>(eth + 1);
	ip->version_ihl = RTE_IPV4_VHL_DEF;
	ip->total_length = rte_cpu_to_be_16(FRAME_LENGTH - sizeof(*eth));
	ip->time_to_live = 64;
	ip->next_proto_id = IPPROTO_UDP;
	ip->hdr_checksum = rte_ipv4_cksum(ip);
	return m;
}

/* Sends a batch round the wire and prints what came back and what the meter has counted so far. */
static void
send_packets(uint16_t port, struct rte_mempool *pool, const char *step)
{
	struct rte_pmd_net_vask1_meter_stats stats;
	struct rte_mbuf *packets[PACKETS];
	uint16_t received = 0, n;

	for (struct rte_mbuf *&m : packets)
		m = udp_packet(pool);
	for (uint16_t sent = 0; sent < PACKETS;)
		sent += rte_eth_tx_burst(port, 0, packets + sent, PACKETS - sent);
	while ((n = rte_eth_rx_burst(port, 0, packets, PACKETS)) > 0) {
		rte_pktmbuf_free_bulk(packets, n);
		received += n;
	}

	check(rte_pmd_net_vask1_meter_stats(METER, 0, &stats), "statistics");
	printf("%s: sent %u, received %u; green %lu, yellow %lu (DSCP rewritten in %lu), red %lu, "
	       "dropped %lu packets of %lu bytes\n",
		step, PACKETS, received, stats.n_pkts[RTE_COLOR_GREEN],
		stats.n_pkts[RTE_COLOR_YELLOW], stats.n_pkts_rewritten, stats.n_pkts[RTE_COLOR_RED],
		stats.n_pkts_dropped, stats.n_bytes_dropped);
}

int
main(int argc, char **argv)
{
	if (rte_eal_init(argc, argv) < 0)
		return EXIT_FAILURE;

	struct rte_mempool *pool =
		rte_pktmbuf_pool_create("packets", 1023, 0, 0, RTE_MBUF_DEFAULT_BUF_SIZE, 0);
	if (pool == nullptr)
		return EXIT_FAILURE;
	const uint16_t port = open_port(pool);

	add_profile();
	add_policers();
	add_meter(port);
	send_packets(port, pool, "strict");

	const p4_meter_instance_t lenient = instance(port, POLICER_LENIENT);
	check(rte_pmd_net_vask1_instance_mod(METER, &lenient), "modify");
	send_packets(port, pool, "lenient");

	/* In this order: what a meter uses cannot be deleted. */
	check(rte_pmd_net_vask1_instance_del(METER), "delete the meter");
	check(rte_pmd_net_vask1_policer_del(POLICER_STRICT), "delete the policer");
	check(rte_pmd_net_vask1_policer_del(POLICER_LENIENT), "delete the policer");
	check(rte_pmd_net_vask1_profile_del(PROFILE), "delete the profile");
	printf("removed: meter %u is %s\n", METER,
		vask_p4_find_hw_meterid_by_upid(METER) == 0 ? "gone" : "still there");

	rte_eth_dev_stop(port);
	rte_eth_dev_close(port);
	return rte_eal_cleanup();
}
