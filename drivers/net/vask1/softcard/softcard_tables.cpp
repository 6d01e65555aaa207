/* SPDX-License-Identifier: BSD-3-Clause */

/* The card's power switch, and its engines' tables of profiles, policies, meter outputs and MTUs. */

#include <cerrno>
#include <sys/mman.h>

#include <rte_malloc.h>

#include "softcard_fault.h"
#include "softcard_internal.h"

struct softcard *softcard;

int
softcard_start()
{
	if (softcard != nullptr)
		return -EALREADY;

	/* Zero, and most of it is never touched, so that no memory stands behind it. */
	void *memory = mmap(nullptr, sizeof(struct softcard), PROT_READ | PROT_WRITE,
		MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
	if (memory == MAP_FAILED)
		return -ENOMEM;
	struct softcard *card = static_cast<struct softcard *>(memory);

	for (auto &engine : card->engines) {
		engine.meters = static_cast<struct softcard_meter *>(rte_zmalloc("softcard_meters",
			SOFTCARD_METERS * sizeof(struct softcard_meter),
			alignof(struct softcard_meter)));
		if (engine.meters == nullptr) {
			rte_free(card->engines[0].meters);
			munmap(memory, sizeof(struct softcard));
			return -ENOMEM;
		}
	}
	softcard = card;
	return 0;
}

void
softcard_stop()
{
	if (softcard == nullptr)
		return;

	for (auto &engine : softcard->engines)
		rte_free(engine.meters);
	munmap(softcard, sizeof(struct softcard));
	softcard = nullptr;
	softcard_fault_clear();
}

static void
profile_set(int dir, uint32_t hw_profile_id, const struct vask_p4_mep_meter_profile_table &record)
{
	struct softcard_profile &profile = softcard->engines[dir].profiles[hw_profile_id];

	profile.record = record;
	profile.converted = false;
	softcard_meter_set_refresh(dir, &profile.users);
}

static void
policy_set(int dir, uint32_t hw_policy_id, const struct vask_p4_mep_meter_policy_table &record)
{
	struct softcard_policy &policy = softcard->engines[dir].policies[hw_policy_id];

	policy.record = record;
	policy.converted = false;
	softcard_meter_set_refresh(dir, &policy.users);
}

int
softcard_profile_write(
	int dir, uint32_t hw_profile_id, const struct vask_p4_mep_meter_profile_table *profile)
{
	const int rc = softcard_record_check(dir, hw_profile_id, SOFTCARD_PROFILES, profile);
	if (rc != 0)
		return rc;

	/* The driver writes profiles through the ingress engine only: it hands them on. */
	if (dir == VASK_P4_MEP_INGRESS)
		profile_set(VASK_P4_MEP_INGRESS, hw_profile_id, *profile);
	profile_set(VASK_P4_MEP_EGRESS, hw_profile_id, *profile);
	return 0;
}

int
softcard_profile_clear(int dir, uint32_t hw_profile_id)
{
	const int rc = softcard_engine_check(dir, hw_profile_id, SOFTCARD_PROFILES);
	if (rc != 0)
		return rc;

	profile_set(dir, hw_profile_id, {});
	return 0;
}

int
softcard_policy_write(
	int dir, uint32_t hw_policy_id, const struct vask_p4_mep_meter_policy_table *policy)
{
	const int rc = softcard_record_check(dir, hw_policy_id, SOFTCARD_POLICIES, policy);
	if (rc != 0)
		return rc;

	if (dir == VASK_P4_MEP_INGRESS)
		policy_set(VASK_P4_MEP_INGRESS, hw_policy_id, *policy);
	policy_set(VASK_P4_MEP_EGRESS, hw_policy_id, *policy);
	return 0;
}

int
softcard_policy_clear(int dir, uint32_t hw_policy_id)
{
	const int rc = softcard_engine_check(dir, hw_policy_id, SOFTCARD_POLICIES);
	if (rc != 0)
		return rc;

	policy_set(dir, hw_policy_id, {});
	return 0;
}

int
softcard_output_write(int dir, uint32_t port_sfi, uint32_t hw_meter_id)
{
	const int rc = softcard_engine_check(dir, port_sfi, SOFTCARD_PORTS);
	if (rc != 0)
		return rc;
	if (hw_meter_id >= SOFTCARD_METERS)
		return -ERANGE;

	/* Outputs bind what is received; what a port transmits is bound by its pipeline entry. */
	if (dir == VASK_P4_MEP_INGRESS)
		softcard->ports[port_sfi].meter[dir].store(
			static_cast<uint16_t>(hw_meter_id), std::memory_order_relaxed);
	return 0;
}

int
softcard_mtu_write(uint32_t port_sfi, uint16_t mtu)
{
	const int rc = softcard_engine_check(VASK_P4_MEP_INGRESS, port_sfi, SOFTCARD_PORTS);
	if (rc != 0)
		return rc;

	softcard->ports[port_sfi].mtu.store(mtu, std::memory_order_relaxed);
	return 0;
}

const struct softcard_port *
softcard_port_of(uint16_t port_sfi)
{
	return softcard_engine_check(VASK_P4_MEP_INGRESS, port_sfi, SOFTCARD_PORTS) == 0
		? &softcard->ports[port_sfi]
		: nullptr;
}

uint32_t
softcard_port_meter(int dir, uint16_t port_sfi)
{
	return softcard_engine_check(dir, port_sfi, SOFTCARD_PORTS) == 0
		? softcard->ports[port_sfi].meter[dir].load(std::memory_order_relaxed)
		: 0;
}

int
softcard_port_clear(uint16_t port_sfi)
{
	const int rc = softcard_engine_check(VASK_P4_MEP_INGRESS, port_sfi, SOFTCARD_PORTS);
	if (rc != 0)
		return rc;

	const struct qorn_input_port_table_result_tx no_entry = {};
	struct vask_shaper_set_info shaper_off = {};

	shaper_off.sfi = port_sfi;
	softcard_output_write(VASK_P4_MEP_INGRESS, port_sfi, 0);
	softcard_mtu_write(port_sfi, 0);
	softcard_tx_port_write(port_sfi, &no_entry);
	softcard_port_shaper_write(&shaper_off);
	return 0;
}
