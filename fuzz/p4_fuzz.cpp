/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Entries of the P4 tables, byte by byte, through the table calls and the module's other exported calls, each
 * with any layer below it failing. What the tables take from an entry is what vask-meter decodes.
 */

extern "C" {
#include <ethdev_driver.h>
}

#include "check.h"
#include "module.h"
#include "p4_entry.h"
#include "vask_p4_meter.h"

using namespace vask_test;

namespace
{

constexpr unsigned OBJECTS = 5; /* ids that inputs mostly use; an entry holds 8 bits of them */
constexpr unsigned CALLS_MAX = 64;

/* An entry, and its fields as vask-meter reads them; what is decoded and encoded again is the same. */
template <typename Entry> struct Row {
	Row(Input &in, const char *table)
	{
		const p4_layout &layout = p4_layout_by_name(table);
		std::vector<uint8_t> bytes = in.Bytes(sizeof(Entry));

		bytes.resize(sizeof(Entry));
		memcpy(&entry, bytes.data(), sizeof(entry));
		values = p4_decode(layout, bytes);
		FUZZ_CHECK(p4_encode(layout, values) == bytes);
		FUZZ_CHECK(bytes_of_hex(hex_of(bytes)) == bytes);
		FUZZ_CHECK(!p4_draw(layout, values).empty());
		p4_remarks(layout, values);
		for (size_t i = 0; i < layout.fields.size(); i++)
			fields[layout.fields[i].name] = values[i];
	}

	uint64_t operator[](const char *field) const
	{
		return fields.at(field);
	}

	Entry entry;
	std::vector<uint64_t> values;
	std::map<std::string, uint64_t> fields;
};

void
ProfileWrite(Input &in, Module &module)
{
	const bool modify = in.Bit();
	const uint32_t id = in.Id(OBJECTS);
	const Row<p4_meter_profile_t> row(in, "profile");
	const vask_p4_meter_profile *held = Module::Profile(id);
	const bool known = held != nullptr;
	const bool two_rates = known && held->rfc2698_mode;
	const int rc = module.Make(in, modify ? Module::Leaves::SOMETHING : Module::Leaves::NOTHING,
		[&](struct rte_mtr_error *) {
			return modify ? talvora_p4_offload_meter_table_profile_mod(id, &row.entry)
				      : talvora_p4_offload_meter_table_profile_add(id, &row.entry);
		});

	if (modify) {
		FUZZ_CHECK(known || rc == -1);
		FUZZ_CHECK(rc == 0 || !known || module.struck());
	} else {
		FUZZ_CHECK(rc != 0 || (!known && row["meter_rfc"] != 3));
		FUZZ_CHECK(row["meter_rfc"] != 3 || rc == -1);
		if (rc == 0)
			module.profile_references[id] = 0;
	}
	if (rc != 0)
		return;

	held = Module::Profile(id);
	FUZZ_CHECK(held->cir == row["cir"] && held->cbs == row["cbs"] && held->ebs == row["ebs"]);
	FUZZ_CHECK(held->eir == row["eir"] || (!modify && row["meter_rfc"] == 0));
	FUZZ_CHECK(static_cast<uint64_t>(held->packet_mode) == row["packet_mode"]);
	/* once set, a change does not take it back */
	FUZZ_CHECK(held->rfc2698_mode == (row["meter_rfc"] == 1 || (modify && two_rates)));
	FUZZ_CHECK(module.Calls(Op::MepAddProfile).at(0).record == Bytes(held->profile));
	if (row["packet_mode"] != 0)
		FUZZ_CHECK(held->profile.cir == row["cir"] % (1u << 26));
	else
		FUZZ_CHECK(held->profile.cir == row["cir"] / 8000 % (1u << 26));
}

void
PolicerWrite(Input &in, Module &module)
{
	const bool modify = in.Bit();
	const uint32_t id = in.Id(OBJECTS);
	const Row<p4_meter_policer_t> row(in, "policer");
	const bool known = Module::Policy(id) != nullptr;
	const int rc = module.Make(in, modify ? Module::Leaves::SOMETHING : Module::Leaves::NOTHING,
		[&](struct rte_mtr_error *) {
			return modify ? talvora_p4_offload_meter_table_policer_mod(id, &row.entry)
				      : talvora_p4_offload_meter_table_policer_add(id, &row.entry);
		});

	FUZZ_CHECK(rc == 0 || rc == -1);
	FUZZ_CHECK(rc == 0 || known != modify || module.struck());
	FUZZ_CHECK(rc != 0 || known == modify);
	if (rc != 0)
		return;
	if (!modify)
		module.policy_references[id] = 0;

	const vask_p4_meter_policy *held = Module::Policy(id);
	FUZZ_CHECK(held->red_action == row["red_action"] && held->red_dscp == row["red_dscp"]);
	FUZZ_CHECK(held->yellow_action == row["yellow_action"] &&
		held->yellow_dscp == row["yellow_dscp"]);
	FUZZ_CHECK(
		held->green_action == row["green_action"] && held->green_dscp == row["green_dscp"]);
	FUZZ_CHECK(held->policy.red_action == row["red_action"] &&
		held->policy.green_dscp == row["green_dscp"]);
	FUZZ_CHECK(module.Calls(Op::MepAddPolicy).at(0).record == Bytes(held->policy));
}

void
Delete(Input &in, Module &module)
{
	const bool policer = in.Bit();
	const uint32_t id = in.Id(OBJECTS);
	const vask_p4_meter_profile *profile = policer ? nullptr : Module::Profile(id);
	const vask_p4_meter_policy *policy = policer ? Module::Policy(id) : nullptr;
	const bool used = (profile != nullptr && profile->ref_cnt != 0) ||
		(policy != nullptr && policy->ref_cnt != 0);
	const int rc = module.Make(in, Module::Leaves::NOTHING, [&](struct rte_mtr_error *) {
		return policer ? talvora_p4_offload_meter_table_policer_del(id)
			       : talvora_p4_offload_meter_table_profile_del(id);
	});

	FUZZ_CHECK(rc == 0 || (rc == -EBUSY && (used || module.struck())));
	FUZZ_CHECK(rc != 0 || !used);
	if (rc == 0)
		(policer ? module.policy_references : module.profile_references).erase(id);
}

/* What an instance entry leaves in a meter. */
void
CheckInstance(const Row<p4_meter_instance_t> &row, const vask_p4_meter_cfg_entry &held)
{
	FUZZ_CHECK(held.type == row["type"] && held.dir == row["dir"]);
	FUZZ_CHECK(held.is_color_aware == row["color_mode"]);
	FUZZ_CHECK(held.is_ori_pktlen == row["origin_pkt"]);
	FUZZ_CHECK(held.stats_mask == row["stats_mask"]);
	FUZZ_CHECK(held.profile.profile_id == row["profile_id"]);
	FUZZ_CHECK(held.policy.policy_id == row["policer_id"]);
	/* whatever was asked for: programming a meter enables it */
	FUZZ_CHECK(held.enable == 1);
}

void
InstanceAdd(Input &in, Module &module)
{
	const uint32_t id = in.Id(OBJECTS);
	const Row<p4_meter_instance_t> row(in, "instance");
	const uint64_t port = row["dpdk_port_id"];
	const bool possible = row["type"] == 1 && port < 2 &&
		Module::Profile(row.entry.profile_id) != nullptr &&
		Module::Policy(row.entry.policer_id) != nullptr &&
		(id == 0 || Module::Meter(id) == nullptr);
	const size_t before = module.meters();
	const int rc = module.Make(in, Module::Leaves::NOTHING, [&](struct rte_mtr_error *) {
		return talvora_p4_offload_meter_table_instance_add(id, &row.entry);
	});

	/* a refusal shows in the log only */
	FUZZ_CHECK(rc == (port < 562 ? 0 : -EINVAL));
	const bool added = module.meters() > before;
	FUZZ_CHECK(added == (possible && !module.struck()) || (possible && module.struck()));
	if (!added)
		return;
	module.profile_references.at(row.entry.profile_id)++;
	module.policy_references.at(row.entry.policer_id)++;
	if (id != 0)
		CheckInstance(row, *Module::Meter(id));
}

void
InstanceModify(Input &in, Module &module)
{
	const uint32_t id = in.Id(OBJECTS);
	const Row<p4_meter_instance_t> row(in, "instance");
	const vask_p4_meter_cfg_entry *held = id == 0 ? nullptr : Module::Meter(id);
	const uint32_t profile = held != nullptr ? held->profile.profile_id : 0;
	const uint32_t policy = held != nullptr ? held->policy.policy_id : 0;
	const uint32_t index = held != nullptr ? held->hw_meter_id : 0;
	const uint32_t sfi = held != nullptr ? held->port_sfi : 0;
	const bool possible = held != nullptr && Module::Profile(row.entry.profile_id) != nullptr &&
		Module::Policy(row.entry.policer_id) != nullptr &&
		Module::Profile(profile) != nullptr && Module::Policy(policy) != nullptr;
	const int rc = module.Make(in, Module::Leaves::SOMETHING, [&](struct rte_mtr_error *) {
		return talvora_p4_offload_meter_table_instance_mod(id, &row.entry);
	});

	FUZZ_CHECK(rc == 0 || (rc == -1 && (!possible || module.struck())));
	FUZZ_CHECK(rc != 0 || possible);
	if (possible)
		FUZZ_CHECK(held->hw_meter_id == index && held->port_sfi == sfi);
	if (rc != 0)
		return;
	Module::Take(module.profile_references, profile);
	Module::Take(module.policy_references, policy);
	module.profile_references.at(row.entry.profile_id)++;
	module.policy_references.at(row.entry.policer_id)++;
	CheckInstance(row, *held);
}

void
InstanceDelete(Input &in, Module &module)
{
	const uint32_t id = in.Id(OBJECTS);
	const vask_p4_meter_cfg_entry *held = Module::Meter(id);

	if (held != nullptr) {
		Module::Drop(module.profile_references, held->profile.profile_id);
		Module::Drop(module.policy_references, held->policy.policy_id);
	}
	const size_t before = module.meters();
	const int rc = module.Make(in, Module::Leaves::SOMETHING, [&](struct rte_mtr_error *) {
		return talvora_p4_offload_meter_table_instance_del(id);
	});

	FUZZ_CHECK(rc == 0 || (rc == -EBUSY && module.struck()));
	FUZZ_CHECK(module.meters() == before - (rc == 0 && held != nullptr));
}

/* The pipeline's tables get a profile and a meter as the caller counts, cut to the widths of their fields. */
void
PipelineUpdate(Input &in, Module &module)
{
	const uint32_t profile = in.Id(OBJECTS), meter = in.Id(OBJECTS), index = in.Id(OBJECTS);
	vask_p4_meter_profile_node *profile_node;
	vask_p4_meter_cfg_node *meter_node;

	TAILQ_FOREACH (profile_node, &vask_p4_meter_profile_list, next)
		if (profile_node->data.profile_id == profile)
			break;
	TAILQ_FOREACH (meter_node, &vask_p4_meter_list, next)
		if (meter_node->data.meter_id == meter)
			break;
	if (profile_node == nullptr || meter_node == nullptr)
		return;
	const int rc = module.Make(in, Module::Leaves::SOMETHING, [&](struct rte_mtr_error *) {
		return vask_p4_update_meter_cfg_2_pol(profile_node, meter_node, index);
	});

	FUZZ_CHECK(rc == 0 || (rc == -1 && module.struck()));
	if (rc != 0)
		return;
	const auto profiles = module.Calls(Op::PipeProfileUpdate);
	const auto meters = module.Calls(Op::PipeMeterUpdate);
	FUZZ_CHECK(profiles.size() == 1 && meters.size() == 1);
	FUZZ_CHECK(profiles[0].args.at(0) == profile && meters[0].args.at(0) == index);
	FUZZ_CHECK(profiles[0].record == Bytes(meter_node->data.table));
	FUZZ_CHECK(meters[0].record == Bytes(meter_node->data.table_inst));

	const qorn_meter_profile_table &held = meter_node->data.table;
	const vask_p4_meter_profile &asked = profile_node->data;
	FUZZ_CHECK((held.cir_l25 | uint64_t{held.cir_h3} << 25) == asked.cir % (1u << 28));
	FUZZ_CHECK((held.cbs_l1 | uint64_t{held.cbs_h19} << 1) == asked.cbs % (1u << 20));
	FUZZ_CHECK((held.ebs_l13 | uint64_t{held.ebs_h7} << 13) == asked.ebs % (1u << 20));
	FUZZ_CHECK(held.eir == asked.eir % (1u << 28));
	FUZZ_CHECK(meter_node->data.table_inst.meter_profile_id == profile % 256);
}

/* The engine's instance record: state and counters stay, the rest is the meter's. */
void
InstanceConvert(Input &in, Module &)
{
	const uint32_t id = in.Id(OBJECTS);
	vask_p4_mep_meter_inst_table before = {};
	vask_p4_meter_cfg_node *node;

	const std::vector<uint8_t> bytes = in.Bytes(sizeof(before));
	if (!bytes.empty())
		memcpy(&before, bytes.data(), bytes.size());
	TAILQ_FOREACH (node, &vask_p4_meter_list, next)
		if (node->data.meter_id == id)
			break;
	if (node == nullptr)
		return;

	vask_p4_mep_meter_inst_table inst = before;
	vask_p4_meter_convert_inst(node, &inst);
	FUZZ_CHECK(inst.valid == node->data.enable);
	FUZZ_CHECK(inst.profile_id == node->data.profile.hw_profile_id);
	FUZZ_CHECK(inst.policy_id == node->data.policy.hw_policy_id);
	FUZZ_CHECK((node->data.stats_mask & 15) != 0
			? inst.stats_pkts_type >= 1 && inst.stats_pkts_type <= 4
			: inst.stats_pkts_type == before.stats_pkts_type);
	FUZZ_CHECK(inst.rsv1 == before.rsv1);
	/* buckets and counters: all from bit 32 on */
	FUZZ_CHECK(memcmp(reinterpret_cast<uint8_t *>(&inst) + 4,
			   reinterpret_cast<uint8_t *>(&before) + 4, sizeof(inst) - 4) == 0);
}

void
MtuSet(Input &in, Module &module)
{
	const unsigned device = in.Below(4);
	const auto mtu = static_cast<uint16_t>(in.Raw(2));
	const int rc = module.Make(in, Module::Leaves::NOTHING, [&](struct rte_mtr_error *) {
		return vask_p4_dev_mtu_set(Module::Device(device), mtu);
	});
	const bool good = device < 3 && mtu >= 68 && mtu <= 16384;

	FUZZ_CHECK(good ? rc == 0 || module.struck() : rc == -EINVAL);
	FUZZ_CHECK(module.Calls(Op::MepSetMtu).size() == (good ? 1 : 0));
}

} // namespace

extern "C" int
LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	static constexpr void (*calls[])(Input &, Module &) = {ProfileWrite, PolicerWrite, Delete,
		InstanceAdd, InstanceModify, InstanceDelete, PipelineUpdate, InstanceConvert,
		MtuSet};
	Input in(data, size);
	Module module;

	for (unsigned n = 0; n < CALLS_MAX && !in.empty(); n++) {
		calls[in.Below(std::size(calls))](in, module);
		module.Check();
	}
	return 0;
}
