/* SPDX-License-Identifier: BSD-3-Clause */

/* The meter engines' operations, as the driver calls them. */

#include <cinttypes>

#include "softcard_call.h"
#include "softcard_internal.h"

int
vask_p4_mep_add_meter_profile(
	int dir, uint32_t hw_profile_id, const struct vask_p4_mep_meter_profile_table *profile)
{
	return softcard_call_do(
		SOFTCARD_OP_ADD_METER_PROFILE,
		[=] { return softcard_profile_write(dir, hw_profile_id, profile); },
		[=](const struct softcard_call &call) {
			const struct vask_p4_mep_meter_profile_table p =
				profile ? *profile : decltype(p){};

			softcard_trace_call(call, profile, sizeof(*profile),
				"dir=%d index=%u cir=%u cbs=%u eir=%u ebs=%u pm=%u rfc2698=%u cf=%u valid=%u",
				dir, hw_profile_id, unsigned(p.cir), unsigned(p.cbs),
				unsigned(p.eir), unsigned(p.ebs), unsigned(p.pm),
				unsigned(p.rfc2698), unsigned(p.cf), unsigned(p.valid));
		});
}

int
vask_p4_mep_del_meter_profile(int dir, uint32_t hw_profile_id)
{
	return softcard_call_do(
		SOFTCARD_OP_DEL_METER_PROFILE,
		[=] { return softcard_profile_clear(dir, hw_profile_id); },
		[=](const struct softcard_call &call) {
			softcard_trace_call(
				call, nullptr, 0, "dir=%d index=%u", dir, hw_profile_id);
		});
}

int
vask_p4_mep_add_meter_policy(
	int dir, uint32_t hw_policy_id, const struct vask_p4_mep_meter_policy_table *policy)
{
	return softcard_call_do(
		SOFTCARD_OP_ADD_METER_POLICY,
		[=] { return softcard_policy_write(dir, hw_policy_id, policy); },
		[=](const struct softcard_call &call) {
			const struct vask_p4_mep_meter_policy_table p =
				policy ? *policy : decltype(p){};

			softcard_trace_call(call, policy, sizeof(*policy),
				"dir=%d index=%u green_action=%u green_dscp=%u yellow_action=%u "
				"yellow_dscp=%u red_action=%u red_dscp=%u valid=%u",
				dir, hw_policy_id, p.green_action, p.green_dscp, p.yellow_action,
				p.yellow_dscp, p.red_action, p.red_dscp, p.valid);
		});
}

int
vask_p4_mep_del_meter_policy(int dir, uint32_t hw_policy_id)
{
	return softcard_call_do(
		SOFTCARD_OP_DEL_METER_POLICY,
		[=] { return softcard_policy_clear(dir, hw_policy_id); },
		[=](const struct softcard_call &call) {
			softcard_trace_call(call, nullptr, 0, "dir=%d index=%u", dir, hw_policy_id);
		});
}

int
vask_p4_mep_read_meter_inst(
	int dir, uint32_t hw_meter_id, struct vask_p4_mep_meter_inst_table *inst)
{
	return softcard_call_do(
		SOFTCARD_OP_READ_METER_INST,
		[=] { return softcard_meter_inst_read(dir, hw_meter_id, inst); },
		[=](const struct softcard_call &call) {
			const struct vask_p4_mep_meter_inst_table p = inst ? *inst : decltype(p){};

			softcard_trace_call(call, inst, sizeof(*inst),
				"dir=%d index=%u valid=%u profile_id=%u policy_id=%u is_color_aware=%u "
				"use_original_packet_length=%u stats_bytes_type=%u stats_pkts_type=%u "
				"bkt_c=%u bkt_e=%u drop_pkt_cnt=%u pkt_len_c=%u pkt_len_e=%u "
				"drop_pkt_len_cnt=%" PRIu64,
				dir, hw_meter_id, p.valid, p.profile_id, p.policy_id,
				p.is_color_aware, p.use_original_packet_length, p.stats_bytes_type,
				p.stats_pkts_type, p.bkt_c, p.bkt_e, p.drop_pkt_cnt, p.pkt_len_c,
				p.pkt_len_e, p.drop_pkt_len_cnt);
		});
}

int
vask_p4_mep_update_meter_output_by_meterid(int dir, uint32_t port_sfi, uint32_t hw_meter_id)
{
	return softcard_call_do(
		SOFTCARD_OP_UPDATE_OUTPUT_BY_METERID,
		[=] { return softcard_output_write(dir, port_sfi, hw_meter_id); },
		[=](const struct softcard_call &call) {
			softcard_trace_call(call, nullptr, 0, "dir=%d sfi=%u index=%u", dir,
				port_sfi, hw_meter_id);
		});
}

int
vask_p4_mep_del_meter_output_by_meterid(int dir, uint32_t port_sfi)
{
	return softcard_call_do(
		SOFTCARD_OP_DEL_OUTPUT_BY_METERID,
		[=] { return softcard_output_write(dir, port_sfi, 0); },
		[=](const struct softcard_call &call) {
			softcard_trace_call(call, nullptr, 0, "dir=%d sfi=%u", dir, port_sfi);
		});
}

int
vask_p4_mep_update_meter_output_by_mtu(uint16_t port, uint16_t mtu)
{
	return softcard_call_do(
		SOFTCARD_OP_UPDATE_OUTPUT_BY_MTU, [=] { return softcard_mtu_write(port, mtu); },
		[=](const struct softcard_call &call) {
			softcard_trace_call(call, nullptr, 0, "sfi=%u mtu=%u", port, mtu);
		});
}
