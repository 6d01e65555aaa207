/* SPDX-License-Identifier: BSD-3-Clause */
#include "ports.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <sched.h>
#include <string>
#include <unistd.h>

#include <rte_bus_vdev.h>
#include <rte_eal.h>
#include <rte_errno.h>
#include <rte_eth_ring.h>
#include <rte_ethdev.h>
#include <rte_mbuf.h>
#include <rte_mbuf_dyn.h>
#include <rte_ring.h>

#include "error.h"

namespace
{
constexpr unsigned int SMALL_ROOM = RTE_PKTMBUF_HEADROOM + 2048;
constexpr unsigned int LARGE_ROOM = RTE_PKTMBUF_HEADROOM + 16384 + 64;
constexpr unsigned int POOL_SIZE = 1023;
constexpr unsigned int POOL_SIZE_SHAPED = 16383; /* the shapers' queues of two ports, full */
constexpr unsigned int POOL_CACHE = 256;
constexpr unsigned int WIRE_SIZE = 8192;
constexpr uint16_t DESCRIPTORS = 512;
constexpr int NUMA_SOCKET = 0;

const struct rte_mbuf_dynfield ARRIVAL = {
	"vask_meter_dynfield_arrival", sizeof(uint64_t), alignof(uint64_t), 0};

int
first_allowed_cpu()
{
	cpu_set_t set;
	int cpu = 0;

	if (sched_getaffinity(0, sizeof(set), &set) != 0)
		return 0;
	while (cpu < CPU_SETSIZE - 1 && !CPU_ISSET(cpu, &set))
		cpu++;
	return cpu;
}

/* EAL writes to standard error whatever the log levels: its last line is taken from there. */
int
start_eal(std::vector<char *> &argv, std::string *said)
{
	const int terminal = said ? dup(STDERR_FILENO) : -1;
	std::FILE *heard = said ? std::tmpfile() : nullptr;
	if (heard != nullptr)
		dup2(fileno(heard), STDERR_FILENO);
	const int rc = rte_eal_init(static_cast<int>(argv.size()), argv.data());
	if (heard != nullptr) {
		char line[256];
		dup2(terminal, STDERR_FILENO);
		std::rewind(heard);
		while (std::fgets(line, sizeof(line), heard) != nullptr)
			said->assign(line, std::strcspn(line, "\n"));
		std::fclose(heard);
	}
	if (terminal >= 0)
		close(terminal);
	return rc;
}

void
check(int rc, const char *what)
{
	if (rc < 0)
		fail("{}: {}", what, rte_strerror(-rc));
}

template <typename T>
T *
made(T *object, const char *what)
{
	if (object == nullptr)
		fail("{}: {}", what, rte_strerror(rte_errno));
	return object;
}
} // namespace

eal_session::eal_session(bool verbose)
{
	std::vector<std::string> args = {"vask-meter", "--no-huge", "--no-pci", "--no-telemetry",
		"--no-shconf", "-m", "512", "--lcores", fmt::format("0@{}", first_allowed_cpu()),
		"--file-prefix", "vask-meter"};
	if (!verbose)
		args.insert(args.end(), {"--log-level", "*:critical"});

	std::vector<char *> argv;
	argv.reserve(args.size());
	for (std::string &a : args)
		argv.push_back(a.data());
	std::string said;
	if (start_eal(argv, verbose ? nullptr : &said) < 0)
		fail("EAL does not start: {}", said.empty() ? rte_strerror(rte_errno) : said);
}

eal_session::~eal_session()
{
	rte_eal_cleanup();
}

card_ports::card_ports(uint16_t count, bool enforce_shapers)
	: pool_size_(enforce_shapers ? POOL_SIZE_SHAPED : POOL_SIZE)
{
	check(rte_mbuf_dyn_rx_timestamp_register(&time_field_, &time_flag_), "packet time stamp");
	arrival_field_ = rte_mbuf_dynfield_register(&ARRIVAL);
	if (arrival_field_ < 0)
		fail("packet arrival field: {}", rte_strerror(rte_errno));
	arrived_.reserve(BURST);
	for (uint16_t number = 0; number < count; number++)
		add_port(number, enforce_shapers);
}

void
card_ports::add_port(uint16_t number, bool enforce_shapers)
{
	const std::string wire = fmt::format("wire{}", number);
	const std::string name = fmt::format("net_vask1_{}", number);
	const std::string args = fmt::format("uplink=net_ring_{},clock=capture,tick=ns,shapers={}",
		wire, enforce_shapers ? "enforce" : "observe");
	struct rte_eth_conf conf = {};
	port p = {};

	check(rte_vdev_init(name.c_str(), args.c_str()), name.c_str());
	check(rte_eth_dev_get_port_by_name(name.c_str(), &p.id), name.c_str());
	p.in = made(rte_ring_create((wire + "_in").c_str(), WIRE_SIZE, NUMA_SOCKET,
			    RING_F_SP_ENQ | RING_F_SC_DEQ),
		"wire");
	p.out = made(rte_ring_create((wire + "_out").c_str(), WIRE_SIZE, NUMA_SOCKET,
			     RING_F_SP_ENQ | RING_F_SC_DEQ),
		"wire");
	if (rte_eth_from_rings(wire.c_str(), &p.in, 1, &p.out, 1, NUMA_SOCKET) < 0)
		fail("{}: {}", wire, rte_strerror(rte_errno));

	check(rte_eth_dev_configure(p.id, 1, 1, &conf), name.c_str());
	check(rte_eth_rx_queue_setup(p.id, 0, DESCRIPTORS, NUMA_SOCKET, nullptr, pool_for(0)),
		name.c_str());
	check(rte_eth_tx_queue_setup(p.id, 0, DESCRIPTORS, NUMA_SOCKET, nullptr), name.c_str());
	ports_.push_back(p);
}

card_ports::~card_ports()
{
	for (struct rte_mbuf *m : arrived_)
		rte_pktmbuf_free(m);
	for (const port &p : ports_) {
		if (started_)
			rte_eth_dev_stop(p.id);
		rte_eth_dev_close(p.id);
		for (struct rte_ring *wire : {p.in, p.out}) {
			void *m;
			while (rte_ring_dequeue(wire, &m) == 0)
				rte_pktmbuf_free(static_cast<struct rte_mbuf *>(m));
		}
	}
}

void
card_ports::set_mtu(uint16_t mtu)
{
	for (const port &p : ports_)
		check(rte_eth_dev_set_mtu(p.id, mtu), "mtu");
}

void
card_ports::start()
{
	for (const port &p : ports_)
		check(rte_eth_dev_start(p.id), "port start");
	started_ = true;
}

/* Frames above 2 KB are rare: the room for them is made when the first one comes. */
struct rte_mempool *
card_ports::pool_for(uint32_t length)
{
	const bool large = length > SMALL_ROOM - RTE_PKTMBUF_HEADROOM;
	struct rte_mempool *&pool = large ? large_ : small_;

	if (pool == nullptr)
		pool = made(rte_pktmbuf_pool_create(large ? "vask_meter_large" : "vask_meter_small",
				    pool_size_, POOL_CACHE, 0, large ? LARGE_ROOM : SMALL_ROOM,
				    NUMA_SOCKET),
			"packet buffers");
	return pool;
}

void
card_ports::arrive(const captured_frame &frame)
{
	struct rte_mbuf *m = made(rte_pktmbuf_alloc(pool_for(frame.length)), "packet buffers");

	std::memcpy(rte_pktmbuf_mtod(m, void *), frame.data, frame.length);
	m->data_len = static_cast<uint16_t>(frame.length);
	m->pkt_len = frame.length;
	*RTE_MBUF_DYNFIELD(m, time_field_, rte_mbuf_timestamp_t *) = frame.time_ns;
	*RTE_MBUF_DYNFIELD(m, arrival_field_, uint64_t *) = frame.time_ns;
	m->ol_flags |= time_flag_;
	arrived_.push_back(m);
}

/* Never asks the port for more than has arrived: finding its wire empty it would take the capture for
 * ended, and let time run on. */
void
card_ports::forward(const departure_fn &left)
{
	std::array<struct rte_mbuf *, BURST> packets;
	const auto n = static_cast<uint16_t>(arrived_.size());

	rte_ring_enqueue_bulk(
		ports_.front().in, reinterpret_cast<void **>(arrived_.data()), n, nullptr);
	arrived_.clear();
	send(packets.data(), rte_eth_rx_burst(ports_.front().id, 0, packets.data(), n), left);
}

void
card_ports::finish(const departure_fn &left)
{
	std::array<struct rte_mbuf *, BURST> packets;

	if (!arrived_.empty())
		forward(left);
	while (const uint16_t n = rte_eth_rx_burst(ports_.front().id, 0, packets.data(), BURST))
		send(packets.data(), n, left);
	/* An empty burst tells a port that nothing more will come. */
	do {
		rte_eth_tx_burst(ports_.back().id, 0, nullptr, 0);
		if (rte_ring_empty(ports_.back().out))
			return;
		take_departures(left);
	} while (true);
}

void
card_ports::send(struct rte_mbuf **packets, uint16_t n, const departure_fn &left)
{
	for (uint16_t sent = 0; sent < n;) {
		sent += rte_eth_tx_burst(ports_.back().id, 0, packets + sent, n - sent);
		take_departures(left);
	}
}

void
card_ports::take_departures(const departure_fn &left)
{
	std::array<struct rte_mbuf *, BURST> packets;
	unsigned int n;

	while ((n = rte_ring_dequeue_burst(ports_.back().out,
			reinterpret_cast<void **>(packets.data()), BURST, nullptr)) > 0) {
		for (unsigned int i = 0; i < n; i++)
			left(packets[i], *RTE_MBUF_DYNFIELD(packets[i], arrival_field_, uint64_t *),
				*RTE_MBUF_DYNFIELD(
					packets[i], time_field_, rte_mbuf_timestamp_t *));
		rte_pktmbuf_free_bulk(packets.data(), n);
	}
}
