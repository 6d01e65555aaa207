/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Packets forwarded by one core between two net_null ports: as they are, with one rte_meter check a packet, and
 * with net_vask1 over the ports. A figure comes with the proof that the meters did what its name says, or not
 * at all.
 */

#include <atomic>
#include <chrono>
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
 * Changes the last meter's profile again and again on another core. Between two changes it sleeps, as a control
 * plane does: to spin would cost the packets what two threads of one core cost each other.
 */
class control_thread
{
      public:
	static constexpr unsigned PER_SECOND = 10000;

	control_thread(uint16_t port, uint32_t meter)
		: thread_([this, port, meter] { run(port, meter); })
	{
		while (changes_ == 0)
			rte_pause();
		start_ = std::chrono::steady_clock::now();
	}
	/* Ends it. Whether it did what it should. */
	bool stop()
	{
		const std::chrono::duration<double> time =
			std::chrono::steady_clock::now() - start_;

		stop_ = true;
		thread_.join();
		return good_ && changes_ >= 0.95 * PER_SECOND * time.count();
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
			std::this_thread::sleep_until(next += interval);
			good_ = rte_mtr_meter_profile_update(port, meter, 1, nullptr) == 0 && good_;
			changes_++;
		}
	}

	std::atomic<bool> stop_ = false;
	std::atomic<uint64_t> changes_ = 0;
	std::atomic<bool> good_ = true;
	std::chrono::steady_clock::time_point start_;
	std::thread thread_;
};

struct scenario {
	std::string name;
	bool vask1;
	enum check check;
	struct packet_load load;
	bool changes; /* a control thread changes a meter */
};

template <enum check CHECK>
static void
forward(benchmark::State &bench, const struct scenario &s)
{
	const struct packet_ports ports = packet_pair(s.vask1, s.load.capture);
	struct rte_mempool *pool = packet_setup(ports, s.load);
	struct rte_mbuf *pkts[PACKET_BURST];
	const bool restore = s.load.work == PACKET_REWRITE;
	const bool dropped_on_receive =
		s.load.rules && s.load.work == PACKET_HALF_RED && !s.load.egress;
	uint64_t bursts = 0, forwarded = 0, time_ns = 0;
	std::unique_ptr<control_thread> control;
	const char *wrong = nullptr;

	app_meters_config(s.load.flows);
	if (s.changes)
		control = std::make_unique<control_thread>(ports.from, s.load.flows);
	INSTRUCTIONS_TOGGLE();
	for (auto _ : bench) {
		const uint16_t got = rte_eth_rx_burst(ports.from, 0, pkts, PACKET_BURST);

		app_check<CHECK>(pkts, got);
		if (restore)
			packet_restore(pkts, got);
		if (s.load.capture)
			packet_stamp(pkts, got, &time_ns);
		forwarded += rte_eth_tx_burst(ports.to, 0, pkts, got);
		bursts++;
	}
	INSTRUCTIONS_TOGGLE();
	if (control != nullptr && !control->stop())
		wrong = "the control thread did not come to its changes";

	const uint64_t packets = bursts * PACKET_BURST;
	instructions_dump(s.name, packets);
	if (wrong == nullptr)
		wrong = packet_prove(s.load, packets);
	if (wrong == nullptr && !dropped_on_receive && forwarded != packets)
		wrong = "packets were lost";
	if (wrong != nullptr)
		bench.SkipWithError(wrong);
	bench.counters["packets_per_iteration"] = PACKET_BURST;
	bench.SetItemsProcessed(packets);
	packet_teardown(ports, s.load, pool);
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
		const auto body = s.check == NO_CHECK ? forward<NO_CHECK>
			: s.check == ONE_METER        ? forward<ONE_METER>
						      : forward<METER_OF_FLOW>;

		instructions_or_time(benchmark::RegisterBenchmark(s.name.c_str(),
					     [=](benchmark::State &bench) { body(bench, s); }),
			0.1, 1024);
	}
	benchmark::Initialize(&argc, argv);
	if (benchmark::ReportUnrecognizedArguments(argc, argv))
		return 1;
	benchmark::RunSpecifiedBenchmarks();
	return 0;
}
