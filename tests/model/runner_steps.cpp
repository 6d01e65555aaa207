/* SPDX-License-Identifier: BSD-3-Clause */
/**
 * @file
 * The steps of FORMAT.md by name.
 */

#include <unordered_map>

#include "runner_calls.h"

#define STEP(name, ...) \
	{ \
		name, []([[maybe_unused]] const json &a, [[maybe_unused]] struct outcome &out) { \
			__VA_ARGS__; \
		} \
	}
#define WITH(node, list, ...) \
	auto *node = list; \
	NEED(node); \
	__VA_ARGS__

runner_step
runner_find_step(const std::string &name)
{
	static const std::unordered_map<std::string, runner_step> steps = {
		{"cap", runner_cap},
		{"padd", runner_padd},
		STEP("pdel",
			CALL(table()->meter_profile_delete(device(a[0]), u32(a[1]), ERROR_AT(2)))),
		STEP("pupd",
			CALL(table()->meter_profile_update(
				device(a[0]), u32(a[1]), u32(a[2]), ERROR_AT(3)))),
		{"qval", runner_qval},
		{"qadd", runner_qadd},
		STEP("qdel",
			CALL(table()->meter_policy_delete(device(a[0]), u32(a[1]), ERROR_AT(2)))),
		{"create", runner_create},
		STEP("destroy", CALL(table()->destroy(device(a[0]), u32(a[1]), ERROR_AT(2)))),
		STEP("enable", CALL(table()->meter_enable(device(a[0]), u32(a[1]), ERROR_AT(2)))),
		STEP("disable", CALL(table()->meter_disable(device(a[0]), u32(a[1]), ERROR_AT(2)))),
		{"stats", runner_stats},
		{"ops_get", runner_ops_get},
		STEP("init", CALL(vask_p4_meter_indexstack_init())),
		STEP("fini", module([&] { vask_p4_meter_indexstack_destory(); })),
		STEP("find_hw", out.extra = std::to_string(module([&] {
			return vask_p4_find_hw_meterid_by_upid(u32(a[0]));
		}))),
		STEP("find_m", out.extra = place_of(vask_p4_meter_list, module([&] {
			return vask_p4_find_meter_byid(u32(a[0]));
		}))),
		STEP("find_p", out.extra = place_of(vask_p4_meter_profile_list, module([&] {
			return vask_p4_find_meter_profile_byid(u32(a[0]));
		}))),
		STEP("find_q", out.extra = place_of(vask_p4_meter_policy_list, module([&] {
			return vask_p4_find_meter_policy_byid(u32(a[0]));
		}))),
		STEP("get_q", out.extra = place_of(vask_p4_meter_policy_list, module([&] {
			return vask_p4_meter_get_policy(u32(a[0]));
		}))),
		STEP("default", module([&] { vask_p4_meter_add_default_policy(u32(a[0])); })),
		STEP("mtu",
			CALL(vask_p4_dev_mtu_set(device(a[0]), static_cast<uint16_t>(u32(a[1]))))),
		{"inst_create", runner_inst_create},
		{"conv_inst", runner_conv_inst},
		{"cfg_2_pol", runner_cfg_2_pol},
		STEP("del_2_pol", CALL(vask_p4_del_meter_cfg_2_pol(u32(a[0])))),
		{"upd_2_hw", runner_upd_2_hw},
		{"pconv", runner_pconv},
		{"ptype", runner_ptype},
		{"pcmp", runner_pcmp},
		STEP("pconv_hw",
			WITH(node, PROFILE(a[2]),
				CALL(vask_p4_meter_convert_profile(
					integer(a[0]), integer(a[1]), node)))),
		STEP("p2hw", WITH(node, PROFILE(a[0]), CALL(vask_p4_meter_add_profile_2_hw(node)))),
		STEP("pdel2hw",
			WITH(node, PROFILE(a[0]), CALL(vask_p4_meter_del_profile_2_hw(node)))),
		STEP("pref",
			CALL(vask_p4_meter_profile_ref_dec(device(a[0]), u32(a[1]), ERROR_AT(2)))),
		STEP("qconv_hw",
			WITH(node, POLICY(a[2]),
				CALL(vask_p4_meter_convert_policy(
					integer(a[0]), integer(a[1]), node)))),
		STEP("q2hw", WITH(node, POLICY(a[0]), CALL(vask_p4_meter_add_policy_2_hw(node)))),
		STEP("qdel2hw",
			WITH(node, POLICY(a[0]), CALL(vask_p4_meter_del_policy_2_hw(node)))),
		STEP("qref",
			CALL(vask_p4_meter_policy_ref_dec(device(a[0]), u32(a[1]), ERROR_AT(2)))),
		STEP("m2hw", WITH(node, METER(a[0]), CALL(vask_p4_add_meter_cfg_2_hw(node)))),
		STEP("mdel2hw", WITH(node, METER(a[0]), CALL(vask_p4_del_meter_cfg_2_hw(node)))),
		STEP("port_add",
			WITH(node, METER(a[1]),
				CALL(vask_p4_meter_add_port_to_hw(
					integer(a[0]), node, ERROR_AT(2))))),
		STEP("port_del",
			WITH(node, METER(a[1]),
				CALL(vask_p4_meter_del_port_to_hw(integer(a[0]), node)))),
		{"shaper", runner_shaper},
		{"isch", runner_isch},
		{"unshaper", runner_unshaper},
		{"idx_get", runner_idx_get},
		STEP("idx_free", CALL(vask_p4_meter_free_index(pool(a[0]), u32(a[1])))),
		STEP("idx_set", module([&] { vask_p4_meter_set_index(pool(a[0]), u32(a[1])); })),
		{"from_std", runner_from_std},
		STEP("t_padd", row<p4_meter_profile_t> entry(a[1]);
			CALL(talvora_p4_offload_meter_table_profile_add(u32(a[0]), entry.get()))),
		STEP("t_pmod", row<p4_meter_profile_t> entry(a[1]);
			CALL(talvora_p4_offload_meter_table_profile_mod(u32(a[0]), entry.get()))),
		STEP("t_pdel", CALL(talvora_p4_offload_meter_table_profile_del(u32(a[0])))),
		STEP("t_qadd", row<p4_meter_policer_t> entry(a[1]);
			CALL(talvora_p4_offload_meter_table_policer_add(u32(a[0]), entry.get()))),
		STEP("t_qmod", row<p4_meter_policer_t> entry(a[1]);
			CALL(talvora_p4_offload_meter_table_policer_mod(u32(a[0]), entry.get()))),
		STEP("t_qdel", CALL(talvora_p4_offload_meter_table_policer_del(u32(a[0])))),
		STEP("t_iadd", row<p4_meter_instance_t> entry(a[1]);
			CALL(talvora_p4_offload_meter_table_instance_add(u32(a[0]), entry.get()))),
		STEP("t_imod", row<p4_meter_instance_t> entry(a[1]);
			CALL(talvora_p4_offload_meter_table_instance_mod(u32(a[0]), entry.get()))),
		STEP("t_idel", CALL(talvora_p4_offload_meter_table_instance_del(u32(a[0])))),
		STEP("inst",
			fake.instances[number(a[0]) != 0] =
				from_hex<std::array<uint8_t, 32>>(a[1])),
		STEP("fill", runner_mark(a, out, 1)),
		STEP("drain", runner_mark(a, out, 0)),
		{"poke", runner_poke},
	};
	auto found = steps.find(name);
	return found != steps.end() ? found->second : nullptr;
}
