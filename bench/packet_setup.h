/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef BENCH_PACKET_SETUP_H
#define BENCH_PACKET_SETUP_H

/**
 * @file
 * The ports between which packets are forwarded, the pool whose buffers hold the frames, and the meters and
 * rules on the way.
 *
 * net_null hands buffers out as they lie, so the frames are written into the pool beforehand: each flow into
 * equally many buffers, in random order. The pool is a ring without a cache, so the buffers come round in turn,
 * all of them.
 */

#include <cstdint>

#include <rte_mtr.h>

struct rte_mempool;

constexpr uint16_t PACKET_SIZE = 64; /* bytes, as net_null says it */
constexpr uint16_t PACKET_BURST = 32;

/** What the meters do. */
enum packet_work {
	PACKET_GREEN,    /* all packets green, all pass */
	PACKET_HALF_RED, /* every other packet of each flow arrives marked red: red, dropped */
	PACKET_REWRITE,  /* all packets green and given DSCP 46 */
	PACKET_SCATTERED /* all green, the flows' addresses not in a row but all over */
};

struct packet_load {
	uint32_t flows; /* 1..4095 */
	bool cached;    /* a pool with a cache, so the same few buffers are used over and over */
	bool rules;     /* a rule and a meter for each flow */
	bool egress;    /* on the way out instead of in */
	bool capture;   /* the clock is that of the packets, which carry times; on the way out */
	enum packet_work work;
};

/** Starts DPDK with three plain net_null ports and three net_vask1 ports over others, the last with clock=capture. */
void packet_eal_init();

/** A pair of ports: packets go from one to the other. */
struct packet_ports {
	uint16_t from;
	uint16_t to;
};

/** The plain pair, the metered one, or one whose way out is metered by the packets' own times. */
struct packet_ports packet_pair(bool vask1, bool capture);

/** A pool with frames, the ports of a pair started with it and, where the load says so, meters and rules. */
struct rte_mempool *packet_setup(const struct packet_ports &ports, const struct packet_load &load);

/** Takes meters and rules away, stops the ports, frees the pool. */
void packet_teardown(
	const struct packet_ports &ports, const struct packet_load &load, struct rte_mempool *pool);

/**
 * Holds the meters' counters against what the load says of so many packets that came from the wire.
 *
 * @return null when every packet matched, each flow's share of them, and each was coloured, dropped or
 *   rewritten as stated; else what was not so.
 */
const char *packet_prove(const struct packet_load &load, uint64_t packets);

/** Writes the DSCP of a frame back to 0, as it was, so that the next rewriting has work to do. */
void packet_restore(struct rte_mbuf *const *pkts, uint16_t n);

/** Gives packets times as if they had arrived at 1 Gbit/s. time_ns is that of the last one, and moves on. */
void packet_stamp(struct rte_mbuf *const *pkts, uint16_t n, uint64_t *time_ns);

/** The flow that a frame belongs to, 0 for the first. */
uint32_t packet_flow(const struct rte_mbuf *pkt);

#endif /* BENCH_PACKET_SETUP_H */
