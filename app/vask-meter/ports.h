/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_PORTS_H
#define VASK_METER_PORTS_H

/**
 * @file
 * EAL in this process, and ports of the card whose wires are rings: packets go in with their times of
 * arrival and come out with those of departure, in nanoseconds. One thread, no devices, no hugepages.
 */

#include <cstdint>
#include <functional>
#include <vector>

#include "capture.h"

struct rte_mbuf;
struct rte_mempool;
struct rte_ring;

/** EAL, from construction to destruction. One a process. */
class eal_session
{
      public:
	/**
	 * @param verbose  let DPDK and the driver log as they do by default; else they are silent.
	 * @throws vask_meter_error when EAL does not start.
	 */
	explicit eal_session(bool verbose);
	~eal_session();
	eal_session(const eal_session &) = delete;
	eal_session &operator=(const eal_session &) = delete;
};

/** A packet that left, or was received: its buffer is taken back after the call. */
using departure_fn =
	std::function<void(const struct rte_mbuf *packet, uint64_t arrived_ns, uint64_t left_ns)>;

/**
 * One or two ports of the card. What arrives is received by the first and sent by the last: with one port
 * it leaves where it came from, with two it crosses.
 */
class card_ports
{
      public:
	/** @throws vask_meter_error when a port cannot be set up. */
	card_ports(uint16_t count, bool enforce_shapers);
	~card_ports();
	card_ports(const card_ports &) = delete;
	card_ports &operator=(const card_ports &) = delete;

	uint16_t ethdev(uint16_t port) const
	{
		return ports_[port].id;
	}

	void set_mtu(uint16_t mtu);
	void start();

	/** At most BURST frames may arrive before the next forward(). */
	static constexpr uint16_t BURST = 64;
	void arrive(const captured_frame &frame);
	uint16_t waiting() const
	{
		return static_cast<uint16_t>(arrived_.size());
	}

	/** Receives what has arrived and sends it. */
	void forward(const departure_fn &left);

	/** Lets time run on until the shapers have let go of everything. */
	void finish(const departure_fn &left);

      private:
	struct port {
		uint16_t id;
		struct rte_ring *in, *out; /* the wire, as the port sees it */
	};

	void add_port(uint16_t number, bool enforce_shapers);
	struct rte_mempool *pool_for(uint32_t length);
	void send(struct rte_mbuf **packets, uint16_t n, const departure_fn &left);
	void take_departures(const departure_fn &left);

	std::vector<port> ports_;
	std::vector<struct rte_mbuf *> arrived_;
	struct rte_mempool *small_ = nullptr, *large_ = nullptr;
	unsigned int pool_size_;
	int time_field_, arrival_field_;
	uint64_t time_flag_;
	bool started_ = false;
};

#endif /* VASK_METER_PORTS_H */
