/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Packets forwarded by one core between two net_null ports: as they are, with one rte_meter check a packet, and
 * with net_vask1 over the ports. A figure comes with the proof that the meters did what its name says, or not
 * at all.
 */

#include <atomic>
#include <chrono>
#include <ctime>
#include <memory>
#include <pthread.h>
#include <string>
#include <sys/prctl.h>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#include <rte_cycles.h>
#include <rte_ethdev.h>
#include <rte_mbuf.h>
#include <rte_meter.h>
#include <rte_mtr.h>

#include "instructions.h"
#include "packet_setup.h"

/* What the application does with a packet between receiving and sending it. */
enum check { NO_CHECK, ONE_METER, METER_OF_FLOW };

static struct rte_meter_trtcm_profile meter_profile;
static std::vector<struct rte_meter_trtcm> app_meters;

static void
app_meters_config(uint32_t n)
{
	/* as much as its arithmetic takes: all packets are green */
	struct rte_meter_trtcm_params params = {1000000000, 2000000000, 1 << 30, 1 << 30};

	rte_meter_trtcm_profile_config(&meter_profile, &params);
	app_meters.resize(n);
	for (struct rte_meter_trtcm &meter : app_meters)
		rte_meter_trtcm_config(&meter, &meter_profile);
}

template <enum check CHECK>
static void
app_check(struct rte_mbuf *const *pkts, uint16_t n)
{
	if (CHECK == NO_CHECK)
		return;

	const uint64_t now = rte_rdtsc();
	for (uint16_t i = 0; i < n; i++) {
		struct rte_meter_trtcm *meter =
			&app_meters[CHECK == METER_OF_FLOW ? packet_flow(pkts[i]) : 0];

		rte_mbuf_sched_color_set(pkts[i],
			rte_meter_trtcm_color_blind_check(
				meter, &meter_profile, now, pkts[i]->pkt_len));
	}
}

/*
 * Changes the last meter's profile again and again on another core, while it is let. Between two changes it sleeps,
 * as a control plane does: to spin would cost the packets what two threads of one core cost each other.
 */
class control_thread
{
      public:
	static constexpr unsigned PER_SECOND = 10000;

	control_thread(uint16_t port, uint32_t meter)
		: thread_([this, port, meter] { run(port, meter); })
	{
	}
	void resume()
	{
		start_ = std::chrono::steady_clock::now();
		paused_ = false;
		paused_.notify_one();
	}
	void pause()
	{
		paused_ = true;
		active_ += std::chrono::steady_clock::now() - start_;
	}
	/* Ends it. Whether it did what it should. */
	bool stop()
	{
		stop_ = true;
		paused_ = false;
		paused_.notify_one();
		thread_.join();
		return good_ && changes_ >= 0.95 * PER_SECOND * active_.count() &&
			changes_ <= 1.05 * PER_SECOND * active_.count() + 10;
	}

      private:
	void run(uint16_t port, uint32_t meter)
	{
		constexpr std::chrono::nanoseconds interval(1000000000 / PER_SECOND);
		auto next = std::chrono::steady_clock::now();
		cpu_set_t cpus;

		CPU_ZERO(&cpus);
		CPU_SET(1, &cpus);
		pthread_setaffinity_np(pthread_self(), sizeof(cpus), &cpus);
		prctl(PR_SET_TIMERSLACK, 1);
		while (!stop_) {
			if (paused_) {
				paused_.wait(true);
				next = std::chrono::steady_clock::now();
				continue;
			}
			good_ = rte_mtr_meter_profile_update(port, meter, 1, nullptr) == 0 && good_;
			changes_++;
			std::this_thread::sleep_until(next += interval);
		}
	}

	std::atomic<bool> stop_ = false;
	std::atomic<bool> paused_ = true;
	std::atomic<uint64_t> changes_ = 0;
	std::atomic<bool> good_ = true;
	std::chrono::steady_clock::time_point start_;
	std::chrono::duration<double> active_ = {};
	std::thread thread_;
};

/* CPU time of the calling thread. */
static uint64_t
cpu_ns()
{
	struct timespec now;

	clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
	return uint64_t{1000000000} * now.tv_sec + now.tv_nsec;
}

/* A pair of ports between which packets are forwarded. */
class path
{
      public:
	path(bool vask1, const struct packet_load &load)
		: load_(load), ports_(packet_pair(vask1, load.capture)),
		  pool_(packet_setup(ports_, load))
	{
	}
	~path()
	{
		packet_teardown(ports_, load_, pool_);
	}
	path(const path &) = delete;
	path &operator=(const path &) = delete;

	/* So many bursts. The CPU time that they took. */
	uint64_t run(enum check check, uint64_t bursts)
	{
		const uint64_t start = cpu_ns();

		INSTRUCTIONS_TOGGLE();
		switch (check) {
		case NO_CHECK:
			run<NO_CHECK>(bursts);
			break;
		case ONE_METER:
			run<ONE_METER>(bursts);
			break;
		case METER_OF_FLOW:
			run<METER_OF_FLOW>(bursts);
			break;
		}
		INSTRUCTIONS_TOGGLE();
		return cpu_ns() - start;
	}

	const struct packet_ports &ports() const
	{
		return ports_;
	}

	/* What is wrong with the packets that were forwarded until now, so many came from the wire; or null. */
	const char *prove(uint64_t packets) const
	{
		const char *wrong = packet_prove(load_, packets);
		const bool dropped_on_receive =
			load_.rules && load_.work == PACKET_HALF_RED && !load_.egress;

		if (wrong == nullptr && !dropped_on_receive && forwarded_ != packets)
			wrong = "packets were lost";
		return wrong;
	}

      private:
	template <enum check CHECK> void run(uint64_t bursts)
	{
		const bool restore = load_.work == PACKET_REWRITE;
		struct rte_mbuf *pkts[PACKET_BURST];

		for (uint64_t i = 0; i < bursts; i++) {
			const uint16_t got = rte_eth_rx_burst(ports_.from, 0, pkts, PACKET_BURST);

			app_check<CHECK>(pkts, got);
			if (restore)
				packet_restore(pkts, got);
			if (load_.capture)
				packet_stamp(pkts, got, &time_ns_);
			forwarded_ += rte_eth_tx_burst(ports_.to, 0, pkts, got);
		}
	}

	const struct packet_load load_;
	const struct packet_ports ports_;
	struct rte_mempool *const pool_;
	uint64_t forwarded_ = 0;
	uint64_t time_ns_ = 0;
};

struct scenario {
	std::string name;
	bool vask1;
	enum check check;
	struct packet_load load;
	bool changes; /* a control thread changes a meter */
};

/* CPU time, ns, of what runs in turn. */
struct times {
	uint64_t own;
	uint64_t quiet; /* without the control thread's changes */
	uint64_t plain;
	uint64_t rte_meter;
};

/*
 * Forwards, and with net_vask1 in turn with it, a few milliseconds each, what it is held against: a better moment of
 * the machine favours none of them. Each comes behind one that used other buffers, so all begin with the same cache.
 */
static void
forward(benchmark::State &bench, const struct scenario &s)
{
	/* long beside the time until one's buffers are in the cache again, and the control thread is awake */
	const uint64_t bursts = instructions_counted() ? 1024 : s.changes ? 8192 : 2048;
	const bool beside = s.vask1 && !instructions_counted();
	class path own(s.vask1, s.load);
	std::unique_ptr<class path> null;
	std::unique_ptr<control_thread> control;
	struct times took = {};

	app_meters_config(s.load.flows);
	if (beside)
		null = std::make_unique<class path>(false,
			packet_load{1, s.load.cached, false, false, s.load.capture, PACKET_GREEN});
	if (s.changes)
		control = std::make_unique<control_thread>(own.ports().from, s.load.flows);
	for (auto _ : bench) {
		struct times slice = {};

		if (s.changes)
			control->resume();
		slice.own = own.run(s.check, bursts);
		if (s.changes)
			control->pause();
		if (beside) {
			slice.plain = null->run(NO_CHECK, bursts);
			slice.quiet = own.run(s.check, bursts);
			slice.rte_meter = null->run(ONE_METER, bursts);
		}
		if (beside && !s.changes)
			slice.own = (slice.own + slice.quiet) / 2;
		bench.SetIterationTime(static_cast<double>(slice.own) / 1e9);
		took.quiet += slice.quiet;
		took.plain += slice.plain;
		took.rte_meter += slice.rte_meter;
	}

	const uint64_t packets = bench.iterations() * bursts * PACKET_BURST;
	const auto per_packet = [packets](uint64_t ns) {
		return static_cast<double>(ns) / static_cast<double>(packets);
	};
	const char *wrong = own.prove(beside ? 2 * packets : packets);

	instructions_dump(s.name, packets);
	if (wrong == nullptr && beside)
		wrong = null->prove(2 * packets);
	if (s.changes && !control->stop() && wrong == nullptr)
		wrong = "the control thread did not come to its changes";
	if (wrong != nullptr)
		bench.SkipWithError(wrong);
	bench.counters["packets_per_iteration"] = static_cast<double>(bursts * PACKET_BURST);
	if (beside) {
		bench.counters["plain_ns"] = per_packet(took.plain);
		bench.counters["rte_meter_ns"] = per_packet(took.rte_meter);
	}
	if (s.changes)
		bench.counters["quiet_ns"] = per_packet(took.quiet);
	bench.SetItemsProcessed(static_cast<int64_t>(packets));
}

static std::vector<struct scenario>
scenarios()
{
	constexpr struct packet_load plain = {1, false, false, false, false, PACKET_GREEN};
	const std::pair<const char *, enum packet_work> works[] = {{"green", PACKET_GREEN},
		{"half_red_drop", PACKET_HALF_RED}, {"rewrite", PACKET_REWRITE}};
	std::vector<struct scenario> all = {
		{"null/plain", false, NO_CHECK, plain, false},
		{"null/rte_meter", false, ONE_METER, plain, false},
		{"null/rte_meter_of_flow/4095", false, METER_OF_FLOW,
			{4095, false, false, false, false, PACKET_GREEN}, false},
		{"cached/null/plain", false, NO_CHECK, {1, true, false, false, false, PACKET_GREEN},
			false},
		{"cached/null/rte_meter", false, ONE_METER,
			{1, true, false, false, false, PACKET_GREEN}, false},
		{"cached/vask1/rx/1/green", true, NO_CHECK,
			{1, true, true, false, false, PACKET_GREEN}, false},
		{"cached/vask1/no_rule", true, NO_CHECK,
			{1, true, false, false, false, PACKET_GREEN}, false},
		{"vask1/no_rule", true, NO_CHECK, plain, false},
	};

	for (const bool egress : {false, true})
		for (const auto &[work_name, work] : works)
			for (const uint32_t flows : {1, 255, 4095})
				all.push_back({std::string("vask1/") + (egress ? "tx/" : "rx/") +
						std::to_string(flows) + "/" + work_name,
					true, NO_CHECK, {flows, false, true, egress, false, work},
					false});
	for (const uint32_t flows : {4, 16, 64, 1024, 2048})
		all.push_back({"vask1/rx/" + std::to_string(flows) + "/green", true, NO_CHECK,
			{flows, false, true, false, false, PACKET_GREEN}, false});
	all.push_back({"vask1/rx/4095/scattered", true, NO_CHECK,
		{4095, false, true, false, false, PACKET_SCATTERED}, false});
	all.push_back({"null/stamped", false, NO_CHECK,
		{1, false, false, false, true, PACKET_GREEN}, false});
	for (const uint32_t flows : {1, 4095})
		all.push_back({"vask1/tx/" + std::to_string(flows) + "/green/capture_clock", true,
			NO_CHECK, {flows, false, true, true, true, PACKET_GREEN}, false});
	if (!instructions_counted())
		for (const uint32_t flows : {1, 4095})
			all.push_back({"vask1/rx/" + std::to_string(flows) +
					"/green/10000_changes_a_second",
				true, NO_CHECK, {flows, false, true, false, false, PACKET_GREEN},
				true});
	return all;
}

int
main(int argc, char **argv)
{
	packet_eal_init();
	for (const struct scenario &s : scenarios()) {
		instructions_or_time(benchmark::RegisterBenchmark(s.name.c_str(),
					     [=](benchmark::State &bench) { forward(bench, s); })
					     ->UseManualTime(),
			s.changes ? 0.3 : 0.1, 1);
	}
	benchmark::Initialize(&argc, argv);
	if (benchmark::ReportUnrecognizedArguments(argc, argv))
		return 1;
	benchmark::RunSpecifiedBenchmarks();
	return 0;
}
