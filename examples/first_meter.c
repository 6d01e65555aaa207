/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * A metered port in a program of one's own: UDP that port 0 receives is held to 1 Mbit/s, and to 2 Mbit/s after the
 * first 500 packets. What is above is dropped; the rest is sent back. Explained in doc/tutorials/first_meter.md.
 *
 *   cc -O2 -DALLOW_EXPERIMENTAL_API examples/first_meter.c -o first_meter $(pkg-config --cflags --libs libdpdk)
 *
 * The arguments are EAL's. Nothing here is of net_vask1 but the bit of RECEIVE and the port's --vdev argument.
 * The program ends when the wire has been silent for a while, or, with --stay after EAL's arguments, on SIGINT or
 * SIGTERM.
 */

#include <inttypes.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <rte_eal.h>
#include <rte_ethdev.h>
#include <rte_flow.h>
#include <rte_mbuf.h>
#include <rte_mtr.h>

#define PORT 0
#define BURST 32
#define SILENCE 100000 /* empty polls */

/* Ids are the application's to choose. */
#define SLOW 1
#define FAST 2
#define DROP_RED 1
#define METER 1

/* net_vask1 takes the side of the port from the statistics mask: bit 63 for a receive meter. */
#define RECEIVE (UINT64_C(1) << 63)

static volatile sig_atomic_t stopped;

static void
stop(int signal_number)
{
	(void)signal_number;
	stopped = 1;
}

static void
die(const char *step, const char *reason)
{
	fprintf(stderr, "%s: %s\n", step, reason);
	rte_eal_cleanup();
	exit(EXIT_FAILURE);
}

static void
check(const char *step, int rc)
{
	if (rc < 0)
		die(step, rte_strerror(-rc));
}

/* The result of an rte_mtr call, whose error tells more than its number. */
static int
check_mtr(const char *step, int rc, const struct rte_mtr_error *error)
{
	if (rc != 0)
		fprintf(stderr, "%s: %s (error type %d)\n", step,
			error->message == NULL ? rte_strerror(-rc) : error->message, error->type);
	return rc;
}

static void
open_port(void)
{
	struct rte_mempool *pool =
		rte_pktmbuf_pool_create("packets", 4095, 0, 0, RTE_MBUF_DEFAULT_BUF_SIZE, 0);
	struct rte_eth_conf conf = {0};

	if (pool == NULL)
		die("packet buffers", rte_strerror(rte_errno));
	check("configure", rte_eth_dev_configure(PORT, 1, 1, &conf));
	check("receive queue", rte_eth_rx_queue_setup(PORT, 0, 512, 0, NULL, pool));
	check("transmit queue", rte_eth_tx_queue_setup(PORT, 0, 512, 0, NULL));
	check("start", rte_eth_dev_start(PORT));
}

/* Rates are bytes a second: 1 Mbit/s is 125000. */
static int
add_profile(uint32_t id, uint64_t cir)
{
	struct rte_mtr_meter_profile profile = {.alg = RTE_MTR_SRTCM_RFC2697};
	struct rte_mtr_error error;

	profile.srtcm_rfc2697.cir = cir;
	profile.srtcm_rfc2697.cbs = 16 * 1024;
	profile.srtcm_rfc2697.ebs = 16 * 1024;
	return check_mtr("profile", rte_mtr_meter_profile_add(PORT, id, &profile, &error), &error);
}

/* Green and yellow pass, red is dropped. */
static int
add_policy(void)
{
	static const struct rte_flow_action pass[] = {{.type = RTE_FLOW_ACTION_TYPE_END}};
	static const struct rte_flow_action drop[] = {
		{.type = RTE_FLOW_ACTION_TYPE_DROP}, {.type = RTE_FLOW_ACTION_TYPE_END}};
	struct rte_mtr_meter_policy_params policy = {.actions = {pass, pass, drop}};
	struct rte_mtr_error error;

	return check_mtr(
		"policy", rte_mtr_meter_policy_add(PORT, DROP_RED, &policy, &error), &error);
}

static int
add_meter(void)
{
	struct rte_mtr_params params = {
		.meter_profile_id = SLOW,
		.meter_policy_id = DROP_RED,
		.meter_enable = 1,
		.stats_mask =
			RECEIVE | RTE_MTR_STATS_N_PKTS_DROPPED | RTE_MTR_STATS_N_BYTES_DROPPED,
	};
	struct rte_mtr_error error;

	return check_mtr("meter", rte_mtr_create(PORT, METER, &params, 0, &error), &error);
}

/* All UDP over IPv4 goes to the meter; what no rule names passes. */
static struct rte_flow *
attach_meter(void)
{
	const struct rte_flow_attr attr = {.ingress = 1};
	const struct rte_flow_item pattern[] = {{.type = RTE_FLOW_ITEM_TYPE_ETH},
		{.type = RTE_FLOW_ITEM_TYPE_IPV4}, {.type = RTE_FLOW_ITEM_TYPE_UDP},
		{.type = RTE_FLOW_ITEM_TYPE_END}};
	const struct rte_flow_action_meter meter = {.mtr_id = METER};
	const struct rte_flow_action actions[] = {
		{.type = RTE_FLOW_ACTION_TYPE_METER, .conf = &meter},
		{.type = RTE_FLOW_ACTION_TYPE_END}};
	struct rte_flow_error error;
	struct rte_flow *flow = rte_flow_create(PORT, &attr, pattern, actions, &error);

	if (flow == NULL)
		fprintf(stderr, "flow rule: %s\n",
			error.message == NULL ? rte_strerror(rte_errno) : error.message);
	return flow;
}

static int
print_counters(const char *when)
{
	struct rte_mtr_stats stats;
	struct rte_mtr_error error;
	uint64_t mask = 0;
	const int rc = rte_mtr_stats_read(PORT, METER, &stats, &mask, 0, &error);

	if (check_mtr("statistics", rc, &error) == 0)
		printf("%s: the meter has dropped %" PRIu64 " packets, %" PRIu64 " bytes\n", when,
			stats.n_pkts_dropped, stats.n_bytes_dropped);
	fflush(stdout);
	return rc;
}

/* The meter goes on with its other profile: no packet is lost for it, and buckets keep what they hold. */
static int
speed_up(void)
{
	struct rte_mtr_error error;

	if (add_profile(FAST, 250000) != 0)
		return -1;
	return check_mtr("change", rte_mtr_meter_profile_update(PORT, METER, FAST, &error), &error);
}

static void
forward(bool stay)
{
	struct rte_mbuf *packets[BURST];
	uint64_t received = 0;
	bool fast = false;

	for (unsigned int silent = 0; !stopped && (stay || silent < SILENCE);) {
		const uint16_t n = rte_eth_rx_burst(PORT, 0, packets, BURST);
		const uint16_t sent = rte_eth_tx_burst(PORT, 0, packets, n);

		rte_pktmbuf_free_bulk(packets + sent, n - sent);
		silent = n == 0 ? silent + 1 : 0;
		if (silent == SILENCE)
			print_counters("the wire is silent");
		received += n;
		if (!fast && received >= 500) {
			print_counters("500 packets are through");
			if (speed_up() == 0)
				printf("2 Mbit/s from here on\n");
			fast = true;
		}
	}
	printf("%" PRIu64 " packets came through\n", received);
}

/* In this order: what is in use stays. */
static void
remove_meter(struct rte_flow *flow)
{
	struct rte_mtr_error error;

	rte_flow_destroy(PORT, flow, NULL);
	check_mtr("meter", rte_mtr_destroy(PORT, METER, &error), &error);
	check_mtr("policy", rte_mtr_meter_policy_delete(PORT, DROP_RED, &error), &error);
	check_mtr("profile", rte_mtr_meter_profile_delete(PORT, SLOW, &error), &error);
	check_mtr("profile", rte_mtr_meter_profile_delete(PORT, FAST, &error), &error);
}

int
main(int argc, char **argv)
{
	const int used = rte_eal_init(argc, argv);
	struct rte_flow *flow = NULL;
	bool stay;

	if (used < 0)
		return EXIT_FAILURE;
	stay = argc > used + 1 && strcmp(argv[used + 1], "--stay") == 0;
	signal(SIGINT, stop);
	signal(SIGTERM, stop);
	if (rte_eth_dev_count_avail() == 0)
		die("port", "EAL has none; give one with --vdev");

	open_port();
	if (add_profile(SLOW, 125000) != 0 || add_policy() != 0 || add_meter() != 0 ||
		(flow = attach_meter()) == NULL)
		die("port 0", "has no meter");
	forward(stay);
	remove_meter(flow);

	rte_eth_dev_stop(PORT);
	rte_eth_dev_close(PORT);
	return rte_eal_cleanup();
}
