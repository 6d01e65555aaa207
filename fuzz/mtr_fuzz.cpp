/* SPDX-License-Identifier: BSD-3-Clause */
/* Sequences of rte_mtr calls on the meter module, each with any layer below it failing. */

extern "C" {
#include <rte_mtr_driver.h>
}

#include "actions.h"
#include "check.h"
#include "module.h"
#include "vask_p4_meter.h"

using namespace vask_test;

namespace
{

constexpr unsigned OBJECTS = 5; /* ids that inputs mostly use */
constexpr unsigned CALLS_MAX = 64;

const struct rte_mtr_ops *
Ops()
{
	const struct rte_mtr_ops *ops = nullptr;

	FUZZ_CHECK(vask_p4_dev_mtr_ops_get(Module::Device(0), &ops) == 0 && ops != nullptr);
	return ops;
}

/* What the engine holds for a rate in bytes/s or packets/s, and for a burst. */
uint64_t
EngineRate(uint64_t rate, bool packets)
{
	return (packets ? rate : rate / 8000) % (1u << 26);
}

uint64_t
EngineBurst(uint64_t burst, bool packets)
{
	return (packets ? burst : burst / 1024) % (1u << 20);
}

void
ProfileAdd(Input &in, Module &module)
{
	const uint32_t id = in.Id(OBJECTS);
	struct rte_mtr_meter_profile profile = {};
	const unsigned algorithm = in.Below(6); /* 0, 4 and 5 are none */
	bool null = false;

	memcpy(&profile.alg, &algorithm, sizeof(profile.alg));
	profile.packet_mode = static_cast<int>(in.Of<uint32_t>({0, 1, 2, UINT32_MAX}));
	profile.trtcm_rfc4115.cir = in.Number();
	profile.trtcm_rfc4115.eir = in.Number();
	profile.trtcm_rfc4115.cbs = in.Number();
	profile.trtcm_rfc4115.ebs = in.Number();
	null = in.Below(16) == 15;

	const bool known = Module::Profile(id) != nullptr;
	const struct rte_mtr_meter_profile asked = profile;
	const int rc = module.Make(in, Module::Leaves::NOTHING, [&](struct rte_mtr_error *error) {
		return Ops()->meter_profile_add(
			Module::Device(0), id, null ? nullptr : &profile, error);
	});

	if (module.struck())
		FUZZ_CHECK(rc == -EBUSY);
	FUZZ_CHECK(rc != 0 || (!known && !null && algorithm >= 1 && algorithm <= 3));
	if (rc != 0)
		return;
	module.profile_references[id] = 0;

	/* what stands in the record went down to the ingress engine */
	const bool packets = asked.packet_mode != 0;
	const vask_p4_meter_profile *held = Module::Profile(id);
	FUZZ_CHECK(held != nullptr && held->off_hw_state == VASK_P4_OFF_HW_DONE);
	const auto writes = module.Calls(Op::MepAddProfile);
	FUZZ_CHECK(writes.size() == 1 && writes[0].args.at(1) == held->hw_profile_id);
	FUZZ_CHECK(writes[0].record == Bytes(held->profile));
	FUZZ_CHECK(held->profile.cir == EngineRate(held->cir, packets));
	FUZZ_CHECK(held->profile.cbs == EngineBurst(held->cbs, packets));
	FUZZ_CHECK(held->profile.ebs == EngineBurst(held->ebs, packets));
	FUZZ_CHECK(held->profile.eir == EngineRate(held->eir, packets));
	FUZZ_CHECK(held->profile.rfc2698 == (algorithm == RTE_MTR_TRTCM_RFC2698));
	if (algorithm == RTE_MTR_SRTCM_RFC2697)
		FUZZ_CHECK(held->eir == 0);
	else
		FUZZ_CHECK(held->eir == asked.trtcm_rfc4115.eir);
	if (algorithm == RTE_MTR_TRTCM_RFC2698)
		FUZZ_CHECK(held->eir >= held->cir);
}

void
ProfileDelete(Input &in, Module &module)
{
	const uint32_t id = in.Id(OBJECTS);
	const vask_p4_meter_profile *held = Module::Profile(id);
	const bool used = held != nullptr && held->ref_cnt != 0;
	const int rc = module.Make(in, Module::Leaves::NOTHING, [&](struct rte_mtr_error *error) {
		return Ops()->meter_profile_delete(Module::Device(0), id, error);
	});

	FUZZ_CHECK(rc == 0 || used || module.struck());
	FUZZ_CHECK(rc != 0 || !used);
	FUZZ_CHECK((Module::Profile(id) == nullptr) == (rc == 0));
	if (rc == 0)
		module.profile_references.erase(id);
}

ActionList
ColourActions(Input &in)
{
	ActionList actions;

	for (unsigned n = in.Below(5); n > 0; n--) {
		switch (in.Below(5)) {
		case 0:
			actions.push_back(Void());
			break;
		case 1:
			actions.push_back({RTE_FLOW_ACTION_TYPE_SET_IPV4_DSCP, nullptr});
			break;
		case 2:
		case 3:
			actions.push_back(Dscp(in.Byte()));
			break;
		default:
			actions.push_back(Drop());
		}
	}
	return actions;
}

/* The code of a list of actions as the engine takes it, the last of two counts, or -1 for a list refused. */
int
CodeOf(const ActionList &actions)
{
	int code = 0;

	if (actions.size() > 2)
		return -1;
	for (const rte_flow_action &action : actions) {
		if (action.type == RTE_FLOW_ACTION_TYPE_DROP)
			code = 2;
		else if (action.type == RTE_FLOW_ACTION_TYPE_SET_IPV4_DSCP &&
			action.conf != nullptr)
			code = 1;
		else
			return -1;
	}
	return code;
}

void
PolicyAdd(Input &in, Module &module)
{
	const uint32_t id = in.Id(OBJECTS);
	const ActionList lists[] = {ColourActions(in), ColourActions(in), ColourActions(in)};
	const int codes[] = {CodeOf(lists[0]), CodeOf(lists[1]), CodeOf(lists[2])};
	const bool good = codes[0] >= 0 && codes[1] >= 0 && codes[2] >= 0;
	const bool validate_only = in.Below(4) == 3;
	const bool known = Module::Policy(id) != nullptr;
	Actions policy(lists[0], lists[1], lists[2]);

	const int rc = module.Make(in, Module::Leaves::NOTHING, [&](struct rte_mtr_error *error) {
		return validate_only
			? Ops()->meter_policy_validate(Module::Device(0), &policy.params, error)
			: Ops()->meter_policy_add(Module::Device(0), id, &policy.params, error);
	});

	if (validate_only) {
		FUZZ_CHECK(trace.empty() || module.Calls(Op::MepAddPolicy).empty());
		FUZZ_CHECK(!good || rc == 0);
		return;
	}
	FUZZ_CHECK(rc == 0 || !good || known || module.struck());
	FUZZ_CHECK(rc != 0 || (good && !known && !module.struck()));
	if (rc != 0)
		return;
	module.policy_references[id] = 0;

	const vask_p4_meter_policy *held = Module::Policy(id);
	FUZZ_CHECK(held != nullptr && (id != 0 || held->hw_policy_id == 255));
	FUZZ_CHECK(held->policy.green_action == static_cast<unsigned>(codes[0]));
	FUZZ_CHECK(held->policy.yellow_action == static_cast<unsigned>(codes[1]));
	FUZZ_CHECK(held->policy.red_action == static_cast<unsigned>(codes[2]));
	FUZZ_CHECK(held->policy.green_dscp == held->green_dscp % 64);
	FUZZ_CHECK(module.Calls(Op::MepAddPolicy).at(0).record == Bytes(held->policy));
}

void
PolicyDelete(Input &in, Module &module)
{
	const uint32_t id = in.Id(OBJECTS);
	const vask_p4_meter_policy *held = Module::Policy(id);
	const bool used = held != nullptr && held->ref_cnt != 0;
	const int rc = module.Make(in, Module::Leaves::NOTHING, [&](struct rte_mtr_error *error) {
		return Ops()->meter_policy_delete(Module::Device(0), id, error);
	});

	FUZZ_CHECK(rc == 0 || used || module.struck());
	FUZZ_CHECK(rc != 0 || !used);
	FUZZ_CHECK((Module::Policy(id) == nullptr) == (rc == 0));
	if (rc == 0)
		module.policy_references.erase(id);
}

void
Create(Input &in, Module &module)
{
	const uint32_t id = in.Id(OBJECTS);
	const unsigned device = in.Below(4);
	struct rte_mtr_params params = {};

	params.meter_profile_id = in.Id(OBJECTS);
	params.meter_policy_id = in.Id(OBJECTS);
	params.meter_enable = static_cast<int>(in.Of<uint32_t>({1, 0, 2, UINT32_MAX}));
	params.use_prev_mtr_color = in.Byte();
	params.stats_mask = static_cast<uint64_t>(in.Below(8)) << 61 | in.Byte();
	if (in.Below(16) == 15)
		module.card.Drain(meter_index_mgr);

	const bool possible = device < 2 && Module::Profile(params.meter_profile_id) != nullptr &&
		Module::Policy(params.meter_policy_id) != nullptr &&
		(id == 0 || Module::Meter(id) == nullptr);
	const int rc = module.Make(in, Module::Leaves::NOTHING, [&](struct rte_mtr_error *error) {
		return Ops()->create(Module::Device(device), id, &params, in.Bit(), error);
	});

	FUZZ_CHECK(rc != 0 || possible);
	/* the driver's own answer when no index is free */
	FUZZ_CHECK(rc == 0 || rc == -EBUSY || (rc == -1 && possible));
	if (rc != 0)
		return;
	module.profile_references.at(params.meter_profile_id)++;
	module.policy_references.at(params.meter_policy_id)++;

	const vask_p4_meter_cfg_entry *held = Module::Meter(id);
	FUZZ_CHECK(held != nullptr && held->enable == 1 && held->type == 1);
	if (id == 0)
		return;
	FUZZ_CHECK(held->dir == (params.stats_mask >> 63 ? 0u : params.stats_mask >> 62 ? 1u : 3u));
	FUZZ_CHECK(held->is_ori_pktlen == (params.stats_mask >> 61 & 1));
	FUZZ_CHECK(vask_p4_find_hw_meterid_by_upid(id) == held->hw_meter_id);
	/* a both-sides meter binds the receive side only */
	FUZZ_CHECK(module.Calls(Op::MepBindOutput).size() == (held->dir == 1 ? 0u : 1u));
}

void
Destroy(Input &in, Module &module)
{
	const uint32_t id = in.Id(OBJECTS);
	const vask_p4_meter_cfg_entry *held = Module::Meter(id);

	if (held != nullptr) {
		/* lowered first, and not taken back when the card refuses */
		Module::Drop(module.profile_references, held->profile.profile_id);
		Module::Drop(module.policy_references, held->policy.policy_id);
	}
	const int rc = module.Make(in, Module::Leaves::SOMETHING, [&](struct rte_mtr_error *error) {
		return Ops()->destroy(Module::Device(0), id, error);
	});

	FUZZ_CHECK(rc == 0 || module.struck());
	FUZZ_CHECK(rc == 0 || Module::Meter(id) == held);
}

void
EnableOrDisable(Input &in, Module &module)
{
	const bool enable = in.Bit();
	const uint32_t id = in.Id(OBJECTS);
	const vask_p4_meter_cfg_entry *held = id == 0 ? nullptr : Module::Meter(id);
	const bool enabled = held != nullptr && held->enable;
	const int rc = module.Make(in, Module::Leaves::NOTHING, [&](struct rte_mtr_error *error) {
		return enable ? Ops()->meter_enable(Module::Device(0), id, error)
			      : Ops()->meter_disable(Module::Device(0), id, error);
	});

	FUZZ_CHECK(rc == 0 || held == nullptr || module.struck());
	FUZZ_CHECK(rc != 0 || held != nullptr);
	if (rc == 0)
		FUZZ_CHECK(held->enable == enable);
	if (held != nullptr && enabled == enable)
		FUZZ_CHECK(rc == 0 && module.card.calls().empty());
}

void
ProfileUpdate(Input &in, Module &module)
{
	const uint32_t id = in.Id(OBJECTS), profile = in.Id(OBJECTS);
	const vask_p4_meter_cfg_entry *held = id == 0 ? nullptr : Module::Meter(id);
	const uint32_t old = held != nullptr ? held->profile.profile_id : 0;
	const bool possible = held != nullptr && Module::Profile(profile) != nullptr;
	const int rc = module.Make(in, Module::Leaves::SOMETHING, [&](struct rte_mtr_error *error) {
		return Ops()->meter_profile_update(Module::Device(0), id, profile, error);
	});

	FUZZ_CHECK(rc != 0 || possible);
	FUZZ_CHECK(rc == 0 || !possible || module.struck());
	if (possible)
		FUZZ_CHECK(held->profile.profile_id == profile);
	if (rc != 0)
		return;
	module.profile_references.at(profile)++;
	Module::Take(module.profile_references, old);
}

void
StatsRead(Input &in, Module &module)
{
	const uint32_t id = in.Id(OBJECTS);
	const vask_p4_meter_cfg_entry *held = Module::Meter(id);
	uint64_t mask = in.Byte();
	const bool asked = (mask & (RTE_MTR_STATS_N_PKTS_DROPPED | RTE_MTR_STATS_N_BYTES_DROPPED));
	struct rte_mtr_stats stats = {};
	vask_p4_mep_meter_inst_table counters[2] = {};

	stats.n_pkts_dropped = stats.n_bytes_dropped = 77;
	if (held != nullptr)
		for (int dir : {0, 1}) {
			counters[dir].drop_pkt_cnt = static_cast<uint32_t>(in.Number());
			counters[dir].drop_pkt_len_cnt = in.Number();
			module.card.instances[{dir, held->hw_meter_id}] = counters[dir];
		}
	const int rc = module.Make(in, Module::Leaves::NOTHING, [&](struct rte_mtr_error *error) {
		return Ops()->stats_read(Module::Device(0), id, &stats, &mask, in.Bit(), error);
	});

	FUZZ_CHECK((rc == 0) == asked);
	if (rc != 0 || held == nullptr) {
		FUZZ_CHECK(stats.n_pkts_dropped == 77 && stats.n_bytes_dropped == 77);
		return;
	}
	if (module.struck())
		return;
	const bool rx = held->dir != 1, tx = held->dir != 0;
	FUZZ_CHECK(stats.n_pkts_dropped ==
		static_cast<uint32_t>(
			(rx ? counters[0].drop_pkt_cnt : 0) + (tx ? counters[1].drop_pkt_cnt : 0)));
	FUZZ_CHECK(stats.n_bytes_dropped ==
		(rx ? counters[0].drop_pkt_len_cnt : 0) + (tx ? counters[1].drop_pkt_len_cnt : 0));
}

} // namespace

extern "C" int
LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	static constexpr void (*calls[])(Input &, Module &) = {ProfileAdd, ProfileDelete, PolicyAdd,
		PolicyDelete, Create, Destroy, EnableOrDisable, ProfileUpdate, StatsRead};
	Input in(data, size);
	Module module;

	for (unsigned n = 0; n < CALLS_MAX && !in.empty(); n++) {
		calls[in.Below(std::size(calls))](in, module);
		module.Check();
	}
	return 0;
}
