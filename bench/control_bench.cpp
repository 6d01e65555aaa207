/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Times each operation of the meter module, its log lines filtered, and beside it what the operation is built on:
 * the bare call, a filtered log line, an allocation, a bare list walk. The report adds these up to the budget that
 * each operation is held against. Two programs are made of this: the module alone over lower layers that do
 * nothing, and the module as a net_vask1 port has it.
 */

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>

#include <benchmark/benchmark.h>
#include <rte_cycles.h>

#include "control_port.h"
#include "control_setup.h"
#include "instructions.h"
#include "vask_p4_log.h"

constexpr uint16_t PORT = 0;

/* Nodes that the lookups of one call visit. */
struct walks {
	uint32_t profiles = 0;
	uint32_t policies = 0;
	uint32_t meters = 0;
};

/* What an operation's cost grows with, so what it is timed against. */
enum dimension : unsigned int {
	METERS = 1,
	PROFILES = 2,
	POLICIES = 4,
};

using step = void (*)(const control_state &);

struct operation {
	const char *name;
	unsigned int dimensions;
	step before;                            /* not timed */
	step call;                              /* timed */
	step after;                             /* not timed */
	walks (*visits)(const control_state &); /* as the lists stand before the call */
	const char *memory;                     /* the node that it allocates (+) or frees (-) */
};

static void
nothing(const control_state &)
{
}

static walks
none(const control_state &)
{
	return {};
}

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

/* Meter ids run from 1 to state.meters; the last one is what the operations work on. */
static void
profile_delete(const control_state &s)
{
	rte_mtr_meter_profile_delete(PORT, s.profiles, nullptr);
}

static void
profile_add(const control_state &s)
{
	control_profile_add(s.profiles);
}

static void
policy_delete(const control_state &s)
{
	rte_mtr_meter_policy_delete(PORT, s.policies, nullptr);
}

static void
policy_add(const control_state &s)
{
	control_policy_add(s.policies);
}

static void
destroy(const control_state &s)
{
	rte_mtr_destroy(PORT, s.meters, nullptr);
}

static void
create(const control_state &s)
{
	control_meter_create(s.meters, s.profiles, s.policies);
}

static void
enable(const control_state &s)
{
	rte_mtr_meter_enable(PORT, s.meters, nullptr);
}

static void
disable(const control_state &s)
{
	rte_mtr_meter_disable(PORT, s.meters, nullptr);
}

static walks
profile_visits(const control_state &s)
{
	return {.profiles = control_visits(&vask_p4_meter_profile_list, s.profiles)};
}

static walks
policy_visits(const control_state &s)
{
	return {.policies = control_visits(&vask_p4_meter_policy_list, s.policies)};
}

static walks
meter_visits(const control_state &s)
{
	return {.meters = control_visits(&vask_p4_meter_list, s.meters)};
}

static walks
all_visits(const control_state &s)
{
	return {profile_visits(s).profiles, policy_visits(s).policies, meter_visits(s).meters};
}

/* The old profile or policy is looked up beside the new one. */
static walks
update_visits(const control_state &s)
{
	walks visits = all_visits(s);

	visits.policies = 0;
	visits.profiles += control_visits(&vask_p4_meter_profile_list, 1);
	return visits;
}

static walks
mod_visits(const control_state &s)
{
	walks visits = update_visits(s);

	visits.policies = policy_visits(s).policies + control_visits(&vask_p4_meter_policy_list, 1);
	return visits;
}

/* The last meter back onto the first profile and policy, where the others are. */
static void
instance_mod(const control_state &s, uint32_t profile_id, uint32_t policy_id)
{
	p4_meter_instance_t entry = {};

	entry.type = 1;
	entry.meter_enable = 1;
	entry.profile_id = profile_id;
	entry.policer_id = policy_id;
	talvora_p4_offload_meter_table_instance_mod(s.meters, &entry);
}

static const operation operations[] = {
	{"capabilities_get", METERS, nothing,
		[](const control_state &) {
			struct rte_mtr_capabilities cap;
			rte_mtr_capabilities_get(PORT, &cap, nullptr);
			benchmark::DoNotOptimize(cap);
		},
		nothing, none, ""},
	{"profile_add", PROFILES, profile_delete, profile_add, nothing, profile_visits, "+profile"},
	{"profile_delete", PROFILES, nothing, profile_delete, profile_add, profile_visits,
		"-profile"},
	{"policy_validate", POLICIES, nothing,
		[](const control_state &) {
			auto policy = control_policy();
			rte_mtr_meter_policy_validate(PORT, &policy, nullptr);
		},
		nothing, none, ""},
	{"policy_add", POLICIES, policy_delete, policy_add, nothing, policy_visits, "+policy"},
	{"policy_delete", POLICIES, nothing, policy_delete, policy_add, policy_visits, "-policy"},
	{"create", METERS | PROFILES | POLICIES, destroy, create, nothing, all_visits, "+meter"},
	{"destroy", METERS | PROFILES | POLICIES, nothing, destroy, create, all_visits, "-meter"},
	{"meter_enable", METERS, disable, enable, nothing, meter_visits, ""},
	{"meter_disable", METERS, enable, disable, nothing, meter_visits, ""},
	{"meter_profile_update", METERS | PROFILES,
		[](const control_state &s) {
			rte_mtr_meter_profile_update(PORT, s.meters, 1, nullptr);
		},
		[](const control_state &s) {
			rte_mtr_meter_profile_update(PORT, s.meters, s.profiles, nullptr);
		},
		nothing, update_visits, ""},
	{"stats_read", METERS, nothing,
		[](const control_state &s) {
			struct rte_mtr_stats stats;
			uint64_t mask = RTE_MTR_STATS_N_PKTS_DROPPED;
			rte_mtr_stats_read(PORT, s.meters, &stats, &mask, 0, nullptr);
			benchmark::DoNotOptimize(stats);
		},
		nothing, meter_visits, ""},
	{"p4_profile_add", PROFILES, profile_delete,
		[](const control_state &s) {
			talvora_p4_offload_meter_table_profile_add(s.profiles, &CONTROL_P4_PROFILE);
		},
		nothing, profile_visits, "+profile"},
	{"p4_profile_mod", PROFILES, nothing,
		[](const control_state &s) {
			talvora_p4_offload_meter_table_profile_mod(s.profiles, &CONTROL_P4_PROFILE);
		},
		nothing, profile_visits, ""},
	{"p4_profile_del", PROFILES, nothing,
		[](const control_state &s) {
			talvora_p4_offload_meter_table_profile_del(s.profiles);
		},
		profile_add, profile_visits, "-profile"},
	{"p4_policer_add", POLICIES, policy_delete,
		[](const control_state &s) {
			talvora_p4_offload_meter_table_policer_add(s.policies, &CONTROL_P4_POLICER);
		},
		nothing, policy_visits, "+policy"},
	{"p4_policer_mod", POLICIES, nothing,
		[](const control_state &s) {
			talvora_p4_offload_meter_table_policer_mod(s.policies, &CONTROL_P4_POLICER);
		},
		nothing, policy_visits, ""},
	{"p4_policer_del", POLICIES, nothing,
		[](const control_state &s) {
			talvora_p4_offload_meter_table_policer_del(s.policies);
		},
		policy_add, policy_visits, "-policy"},
	{"p4_instance_add", METERS | PROFILES | POLICIES, destroy,
		[](const control_state &s) {
			p4_meter_instance_t entry = {};
			entry.type = 1;
			entry.meter_enable = 1;
			entry.profile_id = s.profiles;
			entry.policer_id = s.policies;
			talvora_p4_offload_meter_table_instance_add(s.meters, &entry);
		},
		nothing, all_visits, "+meter"},
	{"p4_instance_mod", METERS | PROFILES | POLICIES,
		[](const control_state &s) { instance_mod(s, 1, 1); },
		[](const control_state &s) { instance_mod(s, s.profiles, s.policies); }, nothing,
		mod_visits, ""},
	{"p4_instance_del", METERS | PROFILES | POLICIES, nothing,
		[](const control_state &s) {
			talvora_p4_offload_meter_table_instance_del(s.meters);
		},
		create, all_visits, "-meter"},
};

static void
time_operation(benchmark::State &bench, const operation &op, const control_state &state)
{
	control_port_attach(false);
	control_setup(state);
	op.before(state);
	const walks visits = op.visits(state);
	const unsigned int lines = control_log_lines([&] { op.call(state); });
	op.after(state);

	double walked = 0;
	for (auto _ : bench) {
		op.before(state);
		/* the same walks, bare: no lookup can do less */
		uint64_t start = now();
		walks nodes = op.visits(state);
		benchmark::DoNotOptimize(nodes);
		walked += seconds_since(start);

		INSTRUCTIONS_TOGGLE();
		start = now();
		op.call(state);
		const double seconds = seconds_since(start);
		INSTRUCTIONS_TOGGLE();
		bench.SetIterationTime(seconds);
		op.after(state);
	}

	bench.counters["lines"] = lines;
	bench.counters["walks_ns"] = walked / bench.iterations() * 1e9;
	bench.counters["profile_nodes"] = visits.profiles;
	bench.counters["policy_nodes"] = visits.policies;
	bench.counters["meter_nodes"] = visits.meters;
	bench.SetLabel(op.memory);
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
	double bare = 0;

	control_port_attach(false);
	control_setup({0, state.profiles, state.policies, false});
	for (auto _ : bench) {
		bare += bare_fill(state);
		const uint64_t start = now();
		for (uint32_t id = 1; id <= state.meters; id++)
			control_meter_create(id, state.profiles, state.policies);
		bench.SetIterationTime(seconds_since(start));
		for (uint32_t id = 1; id <= state.meters; id++)
			rte_mtr_destroy(PORT, id, nullptr);
	}
	bench.counters["bare_ns"] = bare / bench.iterations() * 1e9;
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
	constexpr int LINES = 16; /* in a row, as operations emit them */

	for (auto _ : bench) {
		const uint64_t start = now();
		for (int i = 0; i < LINES; i++)
			VASK_P4_LOG(DEBUG, "[meter]: meter %d read rx: cnt = %u, len = %lu!", i, 0U,
				0UL);
		bench.SetIterationTime(seconds_since(start) / LINES);
	}
}

template <typename Node>
static void
time_alloc(benchmark::State &bench, bool release)
{
	for (auto _ : bench) {
		uint64_t start = now();
		void *node = calloc(1, sizeof(Node));
		benchmark::DoNotOptimize(node);
		if (!release)
			bench.SetIterationTime(seconds_since(start));
		start = now();
		free(node);
		if (release)
			bench.SetIterationTime(seconds_since(start));
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
	instructions_or_time(bench->UseManualTime(), 0.02, 64);
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
	for (const bool release : {false, true}) {
		const std::string sign = release ? "-" : "+";

		configure(benchmark::RegisterBenchmark(("bare/" + sign + "profile").c_str(),
			time_alloc<struct vask_p4_meter_profile_node>, release));
		configure(benchmark::RegisterBenchmark(("bare/" + sign + "policy").c_str(),
			time_alloc<struct vask_p4_meter_policy_node>, release));
		configure(benchmark::RegisterBenchmark(("bare/" + sign + "meter").c_str(),
			time_alloc<struct vask_p4_meter_cfg_node>, release));
	}

	for (const bool shuffled : {false, true}) {
		const auto each = [&](dimension along, const control_state &state, auto list) {
			add("walk", state,
				[=](benchmark::State &bench) { time_walk(bench, list, state); });
			for (const operation &op : operations) {
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
