/* SPDX-License-Identifier: BSD-3-Clause */
#include <array>
#include <cerrno>
#include <cstdlib>
#include <sys/queue.h>

#include <rte_hash_crc.h>

#include "softcard.h"
#include "vask_flow_table.h"
#include "vask_meter_ref.h"
#include "vask_p4_log.h"
#include "vask_p4_meter.h"

/* Every meter of the card, and as many more that rules name though they are gone. */
constexpr uint32_t REFS_MAX = 2 * SOFTCARD_METERS;

/* Rules name no meter 0, of which there may be several: each of those goes by its index. */
struct ref_key {
	uint32_t meter_id;
	uint32_t index; /* of a meter 0; 0 for the others */
};

struct alignas(RTE_CACHE_LINE_MIN_SIZE) vask_meter_ref {
	struct ref_key key;
	SLIST_ENTRY(vask_meter_ref) next; /* in the chain of its key, or of the free ones */
	const struct vask_p4_meter_cfg_node *node; /* null, or the meter, if its id is not 0 */
	uint32_t hw_meter_id; /* where its records stand in the card, 0: nowhere */
	uint16_t n_rules;
	std::array<bool, SOFTCARD_ENGINES> engine; /* those that use the meter, or did */
	std::array<struct rte_flow *, VASK_METER_RULES_MAX> rules; /* n_rules */
};

static_assert(sizeof(struct vask_meter_ref) == RTE_CACHE_LINE_MIN_SIZE, "a call touches one line");

SLIST_HEAD(ref_list, vask_meter_ref);

/*
 * Chains, by the key's hash. An rte_hash would do as well, but its lookup, insertion and deletion cost more than
 * all that the meter module does to create a meter.
 */
static std::array<struct ref_list, 4096> chains;
static struct ref_list free_refs;
static struct vask_meter_ref *refs; /* REFS_MAX, or null; those from n_refs on were never taken */
static uint32_t n_refs;

/* A meter was disabled: its index is free, and stays its own, so that two meters may have the same from then on. */
static bool indexes_shared;

int
vask_meter_ref_start()
{
	/* most of them are never touched, and have no memory until then */
	refs = static_cast<struct vask_meter_ref *>(
		aligned_alloc(alignof(struct vask_meter_ref), REFS_MAX * sizeof(*refs)));
	return refs != nullptr ? 0 : -ENOMEM;
}

void
vask_meter_ref_stop()
{
	free(refs);
	refs = nullptr;
	n_refs = 0;
	indexes_shared = false;
	chains = {};
	free_refs = {};
}

static struct ref_list *
chain_of(const struct ref_key &key)
{
	return &chains[rte_hash_crc_4byte(key.meter_id, key.index) % chains.size()];
}

static struct vask_meter_ref *
find_ref(const struct ref_key &key)
{
	struct vask_meter_ref *ref;

	SLIST_FOREACH (ref, chain_of(key), next)
		if (ref->key.meter_id == key.meter_id && ref->key.index == key.index)
			return ref;
	return nullptr;
}

static struct vask_meter_ref *
add_ref(const struct ref_key &key)
{
	struct vask_meter_ref *ref = SLIST_FIRST(&free_refs);

	if (ref != nullptr)
		SLIST_REMOVE_HEAD(&free_refs, next);
	else if (refs != nullptr && n_refs < REFS_MAX)
		ref = &refs[n_refs++];
	else
		return nullptr;
	ref->key = key;
	ref->hw_meter_id = 0;
	ref->node = nullptr;
	ref->engine = {};
	ref->n_rules = 0;
	SLIST_INSERT_HEAD(chain_of(key), ref, next);
	return ref;
}

/* Forgets a meter that no rule names and no record stands for. */
static void
drop_ref(struct vask_meter_ref *ref)
{
	if (ref->n_rules != 0 || ref->hw_meter_id != 0)
		return;

	struct ref_list *chain = chain_of(ref->key);
	SLIST_REMOVE(chain, ref, vask_meter_ref, next);
	SLIST_INSERT_HEAD(&free_refs, ref, next);
}

static struct ref_key
key_of(const struct vask_p4_meter_cfg_node *node)
{
	const struct vask_p4_meter_cfg_entry *meter = &node->data;

	return {meter->meter_id, meter->meter_id == 0 ? meter->hw_meter_id : 0};
}

int
vask_meter_ref_check(uint32_t meter_id)
{
	const struct vask_meter_ref *ref = find_ref({meter_id, 0});

	if (meter_id == 0)
		return -EINVAL;
	if (vask_p4_find_hw_meterid_by_upid(meter_id) == 0)
		return -ENOENT;
	return ref != nullptr && ref->n_rules == VASK_METER_RULES_MAX ? -ENOSPC : 0;
}

int
vask_meter_ref_attach(struct rte_flow *rule)
{
	const uint32_t meter_id = rule->spec.meter_id;
	struct vask_meter_ref *ref = find_ref({meter_id, 0});
	int rc = vask_meter_ref_check(meter_id);

	if (rc != 0)
		return rc;
	if (ref == nullptr)
		ref = add_ref({meter_id, 0});
	if (ref == nullptr)
		return -ENOMEM;
	ref->rules[ref->n_rules++] = rule;
	ref->engine[rule->spec.dir] = true;
	rule->meter = ref;
	vask_meter_refresh(meter_id);
	return 0;
}

void
vask_meter_ref_detach(struct rte_flow *rule)
{
	struct vask_meter_ref *ref = rule->meter;

	if (ref == nullptr)
		return;
	for (uint32_t i = 0; i < ref->n_rules; i++)
		if (ref->rules[i] == rule) {
			ref->rules[i] = ref->rules[--ref->n_rules];
			break;
		}
	rule->meter = nullptr;
	drop_ref(ref);
}

static void
show_rules(struct vask_meter_ref *ref, uint32_t hw_meter_id)
{
	for (uint32_t i = 0; i < ref->n_rules; i++)
		vask_flow_rule_meter_set(ref->rules[i], hw_meter_id);
}

static void
write_record(int dir, const struct vask_p4_meter_cfg_node *node)
{
	struct vask_p4_mep_meter_inst_table inst = {};
	int rc;

	vask_p4_meter_convert_inst(node, &inst);
	rc = softcard_meter_inst_write(dir, node->data.hw_meter_id, &inst);
	if (rc != 0)
		VASK_P4_LOG(ERR, "meter %u: instance record %u of engine %d not written, rc = %d",
			node->data.meter_id, node->data.hw_meter_id, dir, rc);
}

/* Whether a rule, or the binding of its port, uses an enabled meter in an engine. */
static bool
is_used(const struct vask_meter_ref *ref, const struct vask_p4_meter_cfg_node *node, unsigned dir)
{
	return (ref != nullptr && ref->engine[dir]) ||
		softcard_port_meter(dir, node->data.port_sfi) == node->data.hw_meter_id;
}

/* Writes the records of an enabled meter that something uses. */
static void
enter_index(struct vask_meter_ref *ref, const struct vask_p4_meter_cfg_node *node)
{
	const struct vask_p4_meter_cfg_entry *meter = &node->data;

	for (unsigned dir = 0; dir < SOFTCARD_ENGINES; dir++) {
		if (!is_used(ref, node, dir))
			continue;
		if (ref == nullptr)
			ref = add_ref(key_of(node));
		if (ref == nullptr) {
			VASK_P4_LOG(ERR, "meter %u: no memory, its packets pass unmetered",
				meter->meter_id);
			return;
		}
		ref->engine[dir] = true;
		write_record(dir, node);
		ref->hw_meter_id = meter->hw_meter_id;
		ref->node = node;
	}
	if (ref != nullptr)
		show_rules(ref, ref->hw_meter_id);
}

/* Takes a meter's records out of the card, but for those that an enabled meter which shares its index uses. */
static void
leave_index(struct vask_meter_ref *ref)
{
	const struct vask_p4_meter_cfg_node *node;
	const uint32_t index = ref->hw_meter_id;
	bool used[SOFTCARD_ENGINES] = {};

	show_rules(ref, 0);
	ref->hw_meter_id = 0;
	if (indexes_shared)
		TAILQ_FOREACH (node, &vask_p4_meter_list, next) {
			if (likely(node->data.hw_meter_id != index) || !node->data.enable)
				continue;
			struct vask_meter_ref *sharer = find_ref(key_of(node));
			for (unsigned dir = 0; dir < SOFTCARD_ENGINES; dir++)
				used[dir] |= is_used(sharer, node, dir);
			enter_index(sharer, node);
		}
	for (unsigned dir = 0; dir < SOFTCARD_ENGINES; dir++)
		if (ref->engine[dir] && !used[dir])
			softcard_meter_inst_clear(dir, index);
}

/* `found`: the meter, or null when it is absent or disabled. */
static void
refresh(struct vask_meter_ref *ref, const struct vask_p4_meter_cfg_node *found)
{
	if (ref != nullptr && ref->hw_meter_id != 0 &&
		(found == nullptr || found->data.hw_meter_id != ref->hw_meter_id))
		leave_index(ref);
	if (found != nullptr)
		enter_index(ref, found);
	else if (ref != nullptr)
		drop_ref(ref);
}

/* Meters 0 are only ever created and destroyed, one a call. */
static void
refresh_meters_0()
{
	std::array<bool, SOFTCARD_METERS> held = {};
	const struct vask_p4_meter_cfg_node *node;
	struct vask_meter_ref *gone = nullptr;
	struct vask_meter_ref *ref;

	TAILQ_FOREACH (node, &vask_p4_meter_list, next) {
		if (node->data.meter_id != 0)
			continue;
		held[node->data.hw_meter_id] = true;
		enter_index(find_ref(key_of(node)), node);
	}
	for (struct ref_list &chain : chains)
		SLIST_FOREACH (ref, &chain, next)
			if (ref->key.meter_id == 0 && !held[ref->key.index])
				gone = ref;
	if (gone != nullptr)
		refresh(gone, nullptr);
}

/* A meter other than 0, where it meters: present and enabled. */
static const struct vask_p4_meter_cfg_node *
metering(const struct vask_p4_meter_cfg_node *node)
{
	return node != nullptr && node->data.enable && node->data.hw_meter_id != 0 ? node : nullptr;
}

void
vask_meter_refresh(uint32_t meter_id)
{
	const struct vask_p4_meter_cfg_node *node;
	struct vask_meter_ref *ref = find_ref({meter_id, 0});

	if (meter_id == 0) {
		refresh_meters_0();
		return;
	}
	TAILQ_FOREACH (node, &vask_p4_meter_list, next)
		if (node->data.meter_id == meter_id)
			break;
	if (ref != nullptr)
		ref->node = node;
	refresh(ref, metering(node));
}

void
vask_meter_changed(uint32_t meter_id)
{
	struct vask_meter_ref *ref = find_ref({meter_id, 0});

	if (meter_id != 0 && ref != nullptr && ref->node != nullptr)
		refresh(ref, metering(ref->node));
	else
		vask_meter_refresh(meter_id);
}

void
vask_meter_disabled(uint32_t meter_id)
{
	indexes_shared = true;
	vask_meter_changed(meter_id);
}

void
vask_meter_destroyed(uint32_t meter_id)
{
	struct vask_meter_ref *ref = find_ref({meter_id, 0});

	if (meter_id == 0) {
		refresh_meters_0();
	} else if (ref != nullptr) {
		ref->node = nullptr;
		refresh(ref, nullptr);
	}
	/* the pool has each index once, and nobody else has one */
	if (TAILQ_EMPTY(&vask_p4_meter_list))
		indexes_shared = false;
}

void
vask_meter_created(uint32_t meter_id)
{
	const struct vask_p4_meter_cfg_node *last =
		TAILQ_LAST(&vask_p4_meter_list, vask_p4_meter_list_head);

	if (meter_id != 0 && last != nullptr && last->data.meter_id == meter_id)
		refresh(find_ref({meter_id, 0}), metering(last));
	else
		vask_meter_refresh(meter_id);
}
