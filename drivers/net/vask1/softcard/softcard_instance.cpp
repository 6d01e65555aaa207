/* SPDX-License-Identifier: BSD-3-Clause */

/* Meter instances: from the engine's records to what packets use, and back to a record with counters. */

#include <algorithm>

#include <rte_bitops.h>
#include <rte_common.h>

#include "softcard_internal.h"

/* Bucket levels of an instance record count 8 bytes, so that its 27 bits hold the largest burst. */
static constexpr uint64_t RECORD_LEVEL_BYTES = 8;

static void
meter_set_add(struct softcard_meter_set *set, uint32_t hw_meter_id)
{
	set->n++;
	set->bits[hw_meter_id / 64] |= RTE_BIT64(hw_meter_id % 64);
}

static void
meter_set_remove(struct softcard_meter_set *set, uint32_t hw_meter_id)
{
	set->n--;
	set->bits[hw_meter_id / 64] &= ~RTE_BIT64(hw_meter_id % 64);
}

/* Buckets that are full whatever they hold; the next refresh cuts them to the bursts. */
static void
meter_fill(struct softcard_meter &meter)
{
	meter.state.level_c = UINT64_MAX;
	meter.state.level_e = UINT64_MAX;
}

struct softcard_count
softcard_meter_dropped(const struct softcard_meter &meter)
{
	struct softcard_count dropped = meter.dropped_base;

	for (uint32_t color = 0; color < meter.colors.size(); color++) {
		if (meter.drop_colors >> color & 1) {
			dropped.packets += meter.colors[color].packets;
			dropped.bytes += meter.colors[color].bytes;
		}
	}
	return dropped;
}

static __rte_noinline void
profile_convert(struct softcard_profile *profile)
{
	const struct vask_p4_mep_meter_profile_table &record = profile->record;

	profile->params = softcard_bucket_params_make(
		record.cir, record.cbs, record.eir, record.ebs, record.pm, record.rfc2698);
	profile->flags = record.pm ? SOFTCARD_METER_PACKETS : 0;
	profile->converted = true;
}

/* Takes a policy apart by colour. */
static __rte_noinline void
policy_convert(struct softcard_policy *policy)
{
	const struct vask_p4_mep_meter_policy_table &record = policy->record;
	const std::array<uint32_t, 3> actions = {
		record.green_action, record.yellow_action, record.red_action};
	uint8_t drop_colors = 0;
	uint8_t dscp_colors = 0;

	for (uint32_t color = 0; color < actions.size(); color++) {
		drop_colors |= (actions[color] == SOFTCARD_ACTION_DROP) << color;
		dscp_colors |= (actions[color] == SOFTCARD_ACTION_DSCP) << color;
	}
	policy->drop_colors = drop_colors;
	policy->dscp_colors = dscp_colors;
	policy->dscp = {static_cast<uint8_t>(record.green_dscp),
		static_cast<uint8_t>(record.yellow_dscp), static_cast<uint8_t>(record.red_dscp)};
	policy->flags = dscp_colors != 0 ? SOFTCARD_METER_REWRITES : 0;
	policy->converted = true;
}

/* What was dropped under the old policy stays counted. */
static void
drop_colors_set(struct softcard_meter &meter, uint8_t drop_colors)
{
	if (drop_colors == meter.drop_colors)
		return;

	const struct softcard_count before = softcard_meter_dropped(meter);
	meter.drop_colors = drop_colors;
	const struct softcard_count after = softcard_meter_dropped(meter);
	meter.dropped_base.packets += before.packets - after.packets;
	meter.dropped_base.bytes += before.bytes - after.bytes;
}

/*
 * Copies what the tables say about a held meter to where packets find it, levels cut to the bursts. Converts its
 * profile and policy if nobody needed them yet.
 */
static void
meter_refresh(struct softcard_profile &profile, struct softcard_policy &policy,
	const struct softcard_inst &inst, struct softcard_meter &meter)
{
	meter.flags = 0;
	if (!inst.valid || !profile.record.valid || !policy.record.valid)
		return;

	if (unlikely(!profile.converted))
		profile_convert(&profile);
	if (unlikely(!policy.converted))
		policy_convert(&policy);
	/* Levels in bytes say nothing about packets, nor the other way round. */
	if (profile.params.packet_mode != meter.params.packet_mode)
		meter_fill(meter);
	meter.params = profile.params;
	meter.state.level_c = std::min(meter.state.level_c, softcard_bucket_full_c(profile.params));
	meter.state.level_e = std::min(meter.state.level_e, softcard_bucket_full_e(profile.params));
	drop_colors_set(meter, policy.drop_colors);
	meter.dscp_colors = policy.dscp_colors;
	meter.dscp = policy.dscp;
	meter.flags = SOFTCARD_METER_ON | inst.flags | profile.flags | policy.flags;
}

void
softcard_meter_set_refresh(int dir, const struct softcard_meter_set *set)
{
	struct softcard_engine &engine = softcard->engines[dir];

	if (set->n == 0)
		return;
	for (uint32_t word = 0; word < set->bits.size(); word++)
		for (uint64_t bits = set->bits[word]; bits != 0; bits &= bits - 1) {
			const uint32_t hw_meter_id = word * 64 + rte_bsf64(bits);
			const struct softcard_inst &inst = engine.insts[hw_meter_id];
			struct softcard_meter &meter = engine.meters[hw_meter_id];
			const softcard_meter_hold hold(engine.guard, meter.lock);

			meter_refresh(engine.profiles[inst.profile_id],
				engine.policies[inst.policy_id], inst, meter);
		}
}

/* A held meter as it is when it is created: full buckets, nothing counted. */
static void
meter_reset(struct softcard_meter &meter)
{
	meter.flags = 0;
	meter.state.last_ns = 0;
	meter_fill(meter);
	meter.rewritten = 0;
	meter.colors = {};
	meter.dropped_base = {};
}

/* Takes an instance out of the sets of those that use its profile and policy. */
static void
inst_leave(struct softcard_engine &engine, uint32_t hw_meter_id, const struct softcard_inst &inst)
{
	if (!inst.valid)
		return;
	meter_set_remove(&engine.profiles[inst.profile_id].users, hw_meter_id);
	meter_set_remove(&engine.policies[inst.policy_id].users, hw_meter_id);
}

int
softcard_meter_inst_write(
	int dir, uint32_t hw_meter_id, const struct vask_p4_mep_meter_inst_table *inst)
{
	const int rc = softcard_record_check(dir, hw_meter_id, SOFTCARD_METERS, inst);
	if (rc != 0)
		return rc;

	struct softcard_engine &engine = softcard->engines[dir];
	struct softcard_meter &meter = engine.meters[hw_meter_id];
	struct softcard_inst &entry = engine.insts[hw_meter_id];
	struct softcard_profile &profile = engine.profiles[inst->profile_id];
	struct softcard_policy &policy = engine.policies[inst->policy_id];
	const bool fresh = inst->valid && !entry.valid;

	inst_leave(engine, hw_meter_id, entry);
	entry.valid = inst->valid;
	entry.profile_id = inst->profile_id;
	entry.policy_id = inst->policy_id;
	entry.flags = (inst->is_color_aware ? SOFTCARD_METER_AWARE : 0) |
		(inst->use_original_packet_length ? SOFTCARD_METER_ORIGINAL : 0);
	entry.stats_bytes_type = inst->stats_bytes_type;
	entry.stats_pkts_type = inst->stats_pkts_type;
	if (entry.valid) {
		meter_set_add(&profile.users, hw_meter_id);
		meter_set_add(&policy.users, hw_meter_id);
	}
	if (fresh)
		entry.rate = {};

	const softcard_meter_hold hold(engine.guard, meter.lock);
	if (fresh)
		meter_reset(meter);
	meter_refresh(profile, policy, entry, meter);
	return 0;
}

int
softcard_meter_inst_clear(int dir, uint32_t hw_meter_id)
{
	const int rc = softcard_engine_check(dir, hw_meter_id, SOFTCARD_METERS);
	if (rc != 0)
		return rc;

	struct softcard_engine &engine = softcard->engines[dir];
	struct softcard_meter &meter = engine.meters[hw_meter_id];

	inst_leave(engine, hw_meter_id, engine.insts[hw_meter_id]);
	engine.insts[hw_meter_id] = {};

	const softcard_meter_hold hold(engine.guard, meter.lock);
	meter_reset(meter);
	return 0;
}

/* A level in the unit of an instance record: 8 bytes, or 1 packet. */
static uint32_t
record_level(const struct softcard_bucket_params &params, uint64_t level)
{
	const uint64_t whole = level / SOFTCARD_LEVEL_UNIT[params.packet_mode];

	return params.packet_mode ? whole : whole / RECORD_LEVEL_BYTES;
}

struct softcard_meter
softcard_meter_copy(int dir, uint32_t hw_meter_id)
{
	struct softcard_engine &engine = softcard->engines[dir];
	struct softcard_meter &meter = engine.meters[hw_meter_id];
	struct softcard_meter copy = {}; /* all but the lock, which others may be trying */

	{
		const softcard_meter_hold hold(engine.guard, meter.lock);

		copy.flags = meter.flags;
		copy.params = meter.params;
		copy.state = meter.state;
		copy.rewritten = meter.rewritten;
		copy.colors = meter.colors;
		copy.drop_colors = meter.drop_colors;
		copy.dropped_base = meter.dropped_base;
	}
	copy.state.level_c = std::min(copy.state.level_c, softcard_bucket_full_c(copy.params));
	copy.state.level_e = std::min(copy.state.level_e, softcard_bucket_full_e(copy.params));
	return copy;
}

void
softcard_meter_inst_fill(int dir, uint32_t hw_meter_id, const struct softcard_meter &meter,
	struct vask_p4_mep_meter_inst_table *inst)
{
	const struct softcard_inst &entry = softcard->engines[dir].insts[hw_meter_id];
	const struct softcard_count dropped = softcard_meter_dropped(meter);

	*inst = {};
	inst->valid = entry.valid;
	inst->profile_id = entry.profile_id;
	inst->policy_id = entry.policy_id;
	inst->is_color_aware = (entry.flags & SOFTCARD_METER_AWARE) != 0;
	inst->use_original_packet_length = (entry.flags & SOFTCARD_METER_ORIGINAL) != 0;
	inst->stats_bytes_type = entry.stats_bytes_type;
	inst->stats_pkts_type = entry.stats_pkts_type;
	inst->bkt_c = record_level(meter.params, meter.state.level_c);
	inst->bkt_e = record_level(meter.params, meter.state.level_e);
	inst->drop_pkt_cnt = dropped.packets;
	inst->pkt_len_c = meter.colors[RTE_COLOR_GREEN].bytes;
	inst->pkt_len_e = meter.colors[RTE_COLOR_YELLOW].bytes;
	inst->drop_pkt_len_cnt = dropped.bytes;
}

int
softcard_meter_inst_read(int dir, uint32_t hw_meter_id, struct vask_p4_mep_meter_inst_table *inst)
{
	const int rc = softcard_record_check(dir, hw_meter_id, SOFTCARD_METERS, inst);
	if (rc != 0)
		return rc;

	softcard_meter_inst_fill(dir, hw_meter_id, softcard_meter_copy(dir, hw_meter_id), inst);
	return 0;
}
