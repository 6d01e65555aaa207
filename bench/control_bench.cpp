/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Times each operation of the meter module, its log lines filtered, and beside it what the operation is built on:
 * the bare call, filtered log lines, an allocation, bare list walks. The report adds these up to the budget that
 * each operation is held against. They are timed in turn with the operation and from the same state, because a
 * machine has better and worse moments, and what runs once in a while costs more than what runs in a loop. Two
 * programs are made of this: the module alone over lower layers that do nothing, and the module as a net_vask1
 * port has it.
 */

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>

#include <benchmark/benchmark.h>
#include <rte_cycles.h>

#include "control_operations.h"
#include "control_port.h"
#include "control_setup.h"
#include "instructions.h"
#include "vask_p4_log.h"

constexpr uint16_t PORT = CONTROL_PORT;

/* The processor's time with nothing reordered around it. */
static inline uint64_t
now()
{
#ifdef RTE_ARCH_X86
	__builtin_ia32_lfence();
	const uint64_t cycles = __builtin_ia32_rdtsc();
	__builtin_ia32_lfence();
	return cycles;
#else
	return rte_rdtsc_precise();
#endif
}

static double cycles_per_second;
static uint64_t empty_cycles; /* what now() twice in a row takes */

static void
calibrate()
{
	cycles_per_second = rte_get_tsc_hz();
	if (cycles_per_second == 0) {
		const auto start = std::chrono::steady_clock::now();
		const uint64_t first = now();

		while (std::chrono::steady_clock::now() - start < std::chrono::milliseconds(200))
			;
		cycles_per_second = (now() - first) /
			std::chrono::duration<double>(std::chrono::steady_clock::now() - start)
				.count();
	}
	empty_cycles = UINT64_MAX;
	for (int i = 0; i < 1000; i++) {
		const uint64_t first = now();

		empty_cycles = std::min(empty_cycles, now() - first);
	}
}

static double
seconds_since(uint64_t start)
{
	const uint64_t cycles = now() - start;

	return (cycles > empty_cycles ? cycles - empty_cycles : 0) / cycles_per_second;
}

/* Seconds that an operation cannot do without. */
struct bare_costs {
	double walks = 0;
	double call = 0;
	double lines = 0;
	double memory = 0;
};

static void
emit_lines(unsigned int n)
{
	for (unsigned int i = 0; i < n; i++)
		VASK_P4_LOG(DEBUG, "[meter]: meter %d read rx: cnt = %u, len = %lu!", i, 0U, 0UL);
}

static void
time_bare(bare_costs *bare, const operation &op, const control_state &state, unsigned int lines)
{
	uint64_t start = now();
	/* the same walks, bare: no lookup can do less */
	walks nodes = op.visits(state);
	benchmark::DoNotOptimize(nodes);
	bare->walks += seconds_since(start);

	control_port_attach(true);
	start = now();
	rte_mtr_meter_enable(PORT, 1, nullptr);
	bare->call += seconds_since(start);
	control_port_attach(false);

	start = now();
	emit_lines(lines);
	bare->lines += seconds_since(start);

	if (op.allocates == 0 && op.frees == 0)
		return;
	start = now();
	void *node = calloc(1, op.allocates + op.frees);
	benchmark::DoNotOptimize(node);
	if (op.allocates != 0)
		bare->memory += seconds_since(start);
	start = now();
	free(node);
	if (op.frees != 0)
		bare->memory += seconds_since(start);
}

static void
time_operation(benchmark::State &bench, const operation &op, const control_state &state)
{
	control_port_attach(false);
	control_setup(state);
	const instructions_heap heap;
	op.before(state);
	const walks visits = op.visits(state);
	const unsigned int lines = control_log_lines([&] { op.call(state); });
	op.after(state);

	bare_costs bare;
	for (auto _ : bench) {
		op.before(state);
		time_bare(&bare, op, state, lines);
		op.call(state);
		op.after(state);

		op.before(state);
		INSTRUCTIONS_TOGGLE();
		const uint64_t start = now();
		op.call(state);
		const double seconds = seconds_since(start);
		INSTRUCTIONS_TOGGLE();
		bench.SetIterationTime(seconds);
		op.after(state);
	}

	bench.counters["lines"] = lines;
	bench.counters["walks_ns"] = bare.walks / bench.iterations() * 1e9;
	bench.counters["call_ns"] = bare.call / bench.iterations() * 1e9;
	bench.counters["lines_ns"] = bare.lines / bench.iterations() * 1e9;
	bench.counters["memory_ns"] = bare.memory / bench.iterations() * 1e9;
	bench.counters["profile_nodes"] = visits.profiles;
	bench.counters["policy_nodes"] = visits.policies;
	bench.counters["meter_nodes"] = visits.meters;
	control_teardown();
}

/* What filling with meters cannot do without: for each, the walks and the node. Returns how long it took. */
static double
bare_fill(const control_state &state)
{
	struct vask_p4_meter_list_head list = TAILQ_HEAD_INITIALIZER(list);
	const uint64_t start = now();

	for (uint32_t id = 1; id <= state.meters; id++) {
		uint32_t visits = control_visits(&vask_p4_meter_profile_list, state.profiles) +
			control_visits(&vask_p4_meter_policy_list, state.policies) +
			control_visits(&list, id);
		benchmark::DoNotOptimize(visits);
		auto *node = static_cast<struct vask_p4_meter_cfg_node *>(
			calloc(1, sizeof(struct vask_p4_meter_cfg_node)));
		node->data.meter_id = id;
		TAILQ_INSERT_TAIL(&list, node, next);
	}
	const double seconds = seconds_since(start);
	while (auto *node = TAILQ_FIRST(&list)) {
		TAILQ_REMOVE(&list, node, next);
		free(node);
	}
	return seconds;
}

static void
time_fill(benchmark::State &bench, const control_state &state)
{
	double bare = 0, bare_lines = 0;

	control_port_attach(false);
	control_setup({0, state.profiles, state.policies, false});
	const unsigned int lines =
		control_log_lines([&] { control_meter_create(1, state.profiles, state.policies); });
	rte_mtr_destroy(PORT, 1, nullptr);
	for (auto _ : bench) {
		bare += bare_fill(state);
		uint64_t start = now();
		emit_lines(state.meters * lines);
		bare_lines += seconds_since(start);

		start = now();
		for (uint32_t id = 1; id <= state.meters; id++)
			control_meter_create(id, state.profiles, state.policies);
		bench.SetIterationTime(seconds_since(start));
		for (uint32_t id = 1; id <= state.meters; id++)
			rte_mtr_destroy(PORT, id, nullptr);
	}
	bench.counters["bare_ns"] = bare / bench.iterations() * 1e9;
	bench.counters["lines_ns"] = bare_lines / bench.iterations() * 1e9;
	control_teardown();
}

static void
time_empty(benchmark::State &bench, const control_state &state)
{
	control_port_attach(false);
	control_setup({0, state.profiles, state.policies, false});
	for (auto _ : bench) {
		for (uint32_t id = 1; id <= state.meters; id++)
			control_meter_create(id, state.profiles, state.policies);
		const uint64_t start = now();
		/* the newest first: each lookup walks what is left */
		for (uint32_t id = state.meters; id >= 1; id--)
			rte_mtr_destroy(PORT, id, nullptr);
		bench.SetIterationTime(seconds_since(start));
	}
	control_teardown();
}

/* What operations are built on. */

static void
time_bare_call(benchmark::State &bench)
{
	control_port_attach(true);
	for (auto _ : bench) {
		const uint64_t start = now();
		rte_mtr_meter_enable(PORT, 1, nullptr);
		bench.SetIterationTime(seconds_since(start));
	}
}

static void
time_filtered_line(benchmark::State &bench)
{
	constexpr unsigned int LINES = 16; /* in a row, as operations emit them */

	for (auto _ : bench) {
		const uint64_t start = now();
		emit_lines(LINES);
		bench.SetIterationTime(seconds_since(start) / LINES);
	}
}

/* A walk over nodes that the module allocated, reading the module's key: no lookup can do less. */
template <typename Head>
static void
time_walk(benchmark::State &bench, const Head *list, const control_state &state)
{
	control_port_attach(false);
	control_setup(state);
	for (auto _ : bench) {
		const uint64_t start = now();
		uint32_t visits = control_visits(list, UINT32_MAX);
		benchmark::DoNotOptimize(visits);
		bench.SetIterationTime(seconds_since(start));
	}
	control_teardown();
}

static void
configure(benchmark::internal::Benchmark *bench)
{
	instructions_or_time(bench->UseManualTime(), 0.007, 64);
}

static void
add(const std::string &name, const control_state &state,
	const std::function<void(benchmark::State &)> &body)
{
	const std::string at = name + "/meters:" + std::to_string(state.meters) +
		"/profiles:" + std::to_string(state.profiles) +
		"/policies:" + std::to_string(state.policies) +
		(state.shuffled ? "/shuffled" : "/in_order");

	configure(benchmark::RegisterBenchmark(at.c_str(), [=](benchmark::State &bench) {
		body(bench);
		instructions_dump(at, bench.iterations());
	}));
}

int
main(int argc, char **argv)
{
	control_port_init();
	/* Nothing is printed by the driver while it is timed. */
	rte_log_set_level(vask_p4_logtype, RTE_LOG_EMERG);
	calibrate();

	configure(benchmark::RegisterBenchmark("bare/call", time_bare_call));
	configure(benchmark::RegisterBenchmark("bare/line", time_filtered_line));

	for (const bool shuffled : {false, true}) {
		const auto each = [&](dimension along, const control_state &state, auto list) {
			add("walk", state,
				[=](benchmark::State &bench) { time_walk(bench, list, state); });
			for (const operation &op : control_operations) {
				control_state with = state;

				/* What works on a meter has one; a profile to be deleted has none. */
				if (op.dimensions & METERS)
					with.meters = std::max<uint32_t>(state.meters, 1);
				if (op.dimensions & along)
					add(op.name, with, [&op, with](benchmark::State &bench) {
						time_operation(bench, op, with);
					});
			}
		};

		for (const uint32_t meters : {1, 16, 256, 1024, 4095})
			each(METERS, {meters, 1, 1, shuffled}, &vask_p4_meter_list);
		for (const uint32_t profiles : {1, 64, 255})
			each(PROFILES, {0, profiles, 1, shuffled}, &vask_p4_meter_profile_list);
		for (const uint32_t policies : {1, 64, 254})
			each(POLICIES, {0, 1, policies, shuffled}, &vask_p4_meter_policy_list);
	}

	const control_state full = {4095, 1, 1, false};

	add("fill", full, [=](benchmark::State &bench) { time_fill(bench, full); });
	add("empty", full, [=](benchmark::State &bench) { time_empty(bench, full); });

	benchmark::Initialize(&argc, argv);
	if (benchmark::ReportUnrecognizedArguments(argc, argv))
		return 1;
	benchmark::RunSpecifiedBenchmarks();
	return 0;
}
