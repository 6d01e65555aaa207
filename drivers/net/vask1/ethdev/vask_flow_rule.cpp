/* SPDX-License-Identifier: BSD-3-Clause */
#include <rte_malloc.h>

#include "vask_flow_rule.h"
#include "vask_flow_table.h"

static_assert(offsetof(struct rte_flow, spec.key) <= RTE_CACHE_LINE_MIN_SIZE);

struct rte_flow *
vask_flow_rule_alloc(struct vask_flow_state *state, const struct vask_flow_spec *spec)
{
	struct rte_flow *rule = static_cast<struct rte_flow *>(
		rte_zmalloc("vask_flow_rule", sizeof(*rule), RTE_CACHE_LINE_SIZE));

	if (rule == nullptr)
		return nullptr;
	rule->spec = *spec;
	rule->state = state;
	rule->position = -1;
	if (spec->count)
		rule->count = static_cast<struct vask_flow_count *>(rte_zmalloc("vask_flow_count",
			VASK_QUEUES_MAX * sizeof(*rule->count), RTE_CACHE_LINE_SIZE));
	if (spec->count && rule->count == nullptr) {
		vask_flow_rule_free(rule);
		return nullptr;
	}
	if (spec->meter_id != 0 && spec->fate == VASK_FLOW_STAY && !spec->count && !spec->passthru)
		rule->brief.store(VASK_FLOW_BRIEF_METERS_ONLY, std::memory_order_relaxed);
	return rule;
}

void
vask_flow_rule_free(struct rte_flow *rule)
{
	rte_free(rule->count);
	rte_free(rule);
}

void
vask_flow_rule_count(struct rte_flow *rule, bool reset, uint64_t *hits, uint64_t *bytes)
{
	uint64_t all_hits = 0, all_bytes = 0;

	for (unsigned q = 0; q < VASK_QUEUES_MAX; q++) {
		all_hits += rule->count[q].hits.load(std::memory_order_relaxed);
		all_bytes += rule->count[q].bytes.load(std::memory_order_relaxed);
	}
	*hits = all_hits - rule->base_hits;
	*bytes = all_bytes - rule->base_bytes;
	if (reset) {
		rule->base_hits = all_hits;
		rule->base_bytes = all_bytes;
	}
}
