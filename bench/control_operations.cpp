/* SPDX-License-Identifier: BSD-3-Clause */
#include "control_operations.h"

#include <benchmark/benchmark.h>

constexpr uint16_t PORT = CONTROL_PORT;

constexpr size_t PROFILE = sizeof(struct vask_p4_meter_profile_node);
constexpr size_t POLICY = sizeof(struct vask_p4_meter_policy_node);
constexpr size_t METER = sizeof(struct vask_p4_meter_cfg_node);

static void
nothing(const control_state &)
{
}

static walks
none(const control_state &)
{
	return {};
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

static constexpr operation OPERATIONS[] = {
	{"capabilities_get", METERS, nothing,
		[](const control_state &) {
			struct rte_mtr_capabilities cap;
			rte_mtr_capabilities_get(PORT, &cap, nullptr);
			benchmark::DoNotOptimize(cap);
		},
		nothing, none, 0, 0},
	{"profile_add", PROFILES, profile_delete, profile_add, nothing, profile_visits, PROFILE, 0},
	{"profile_delete", PROFILES, nothing, profile_delete, profile_add, profile_visits, 0,
		PROFILE},
	{"policy_validate", POLICIES, nothing,
		[](const control_state &) {
			auto policy = control_policy();
			rte_mtr_meter_policy_validate(PORT, &policy, nullptr);
		},
		nothing, none, 0, 0},
	{"policy_add", POLICIES, policy_delete, policy_add, nothing, policy_visits, POLICY, 0},
	{"policy_delete", POLICIES, nothing, policy_delete, policy_add, policy_visits, 0, POLICY},
	{"create", METERS | PROFILES | POLICIES, destroy, create, nothing, all_visits, METER, 0},
	{"destroy", METERS | PROFILES | POLICIES, nothing, destroy, create, all_visits, 0, METER},
	{"meter_enable", METERS, disable, enable, nothing, meter_visits, 0, 0},
	{"meter_disable", METERS, enable, disable, nothing, meter_visits, 0, 0},
	{"meter_profile_update", METERS | PROFILES,
		[](const control_state &s) {
			rte_mtr_meter_profile_update(PORT, s.meters, 1, nullptr);
		},
		[](const control_state &s) {
			rte_mtr_meter_profile_update(PORT, s.meters, s.profiles, nullptr);
		},
		nothing, update_visits, 0, 0},
	{"stats_read", METERS, nothing,
		[](const control_state &s) {
			struct rte_mtr_stats stats;
			uint64_t mask = RTE_MTR_STATS_N_PKTS_DROPPED;
			rte_mtr_stats_read(PORT, s.meters, &stats, &mask, 0, nullptr);
			benchmark::DoNotOptimize(stats);
		},
		nothing, meter_visits, 0, 0},
	{"p4_profile_add", PROFILES, profile_delete,
		[](const control_state &s) {
			talvora_p4_offload_meter_table_profile_add(s.profiles, &CONTROL_P4_PROFILE);
		},
		nothing, profile_visits, PROFILE, 0},
	{"p4_profile_mod", PROFILES, nothing,
		[](const control_state &s) {
			talvora_p4_offload_meter_table_profile_mod(s.profiles, &CONTROL_P4_PROFILE);
		},
		nothing, profile_visits, 0, 0},
	{"p4_profile_del", PROFILES, nothing,
		[](const control_state &s) {
			talvora_p4_offload_meter_table_profile_del(s.profiles);
		},
		profile_add, profile_visits, 0, PROFILE},
	{"p4_policer_add", POLICIES, policy_delete,
		[](const control_state &s) {
			talvora_p4_offload_meter_table_policer_add(s.policies, &CONTROL_P4_POLICER);
		},
		nothing, policy_visits, POLICY, 0},
	{"p4_policer_mod", POLICIES, nothing,
		[](const control_state &s) {
			talvora_p4_offload_meter_table_policer_mod(s.policies, &CONTROL_P4_POLICER);
		},
		nothing, policy_visits, 0, 0},
	{"p4_policer_del", POLICIES, nothing,
		[](const control_state &s) {
			talvora_p4_offload_meter_table_policer_del(s.policies);
		},
		policy_add, policy_visits, 0, POLICY},
	{"p4_instance_add", METERS | PROFILES | POLICIES, destroy,
		[](const control_state &s) {
			p4_meter_instance_t entry = {};
			entry.type = 1;
			entry.meter_enable = 1;
			entry.profile_id = s.profiles;
			entry.policer_id = s.policies;
			talvora_p4_offload_meter_table_instance_add(s.meters, &entry);
		},
		nothing, all_visits, METER, 0},
	{"p4_instance_mod", METERS | PROFILES | POLICIES,
		[](const control_state &s) { instance_mod(s, 1, 1); },
		[](const control_state &s) { instance_mod(s, s.profiles, s.policies); }, nothing,
		mod_visits, 0, 0},
	{"p4_instance_del", METERS | PROFILES | POLICIES, nothing,
		[](const control_state &s) {
			talvora_p4_offload_meter_table_instance_del(s.meters);
		},
		create, all_visits, 0, METER},
};

const std::span<const operation> control_operations(OPERATIONS);
