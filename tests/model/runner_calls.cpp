/* SPDX-License-Identifier: BSD-3-Clause */
#include "runner_calls.h"

static const uint64_t stats_untouched = 7777777777777777777U;

static std::string
quoted_hex(const void *bytes, size_t size)
{
	return '"' + runner_hex(bytes, size) + '"';
}

/* The operation table */

void
runner_cap(const json &a, struct outcome &out)
{
	struct rte_mtr_capabilities c;
	memset(&c, 0xA5, sizeof(c));
	CALL(table()->capabilities_get(device(a[0]), &c, ERROR_AT(1)));
	int others = 0;
	for (size_t n = 0; n < sizeof(c); n++) {
		others += reinterpret_cast<uint8_t *>(&c)[n] != 0;
	}
	out.extra = json{c.n_max, c.n_shared_max, c.identical, c.shared_identical,
		c.shared_n_flows_per_mtr_max, c.chaining_n_mtrs_per_flow_max,
		c.chaining_use_prev_mtr_color_supported, c.chaining_use_prev_mtr_color_enforced,
		c.meter_srtcm_rfc2697_n_max, c.meter_trtcm_rfc2698_n_max,
		c.meter_trtcm_rfc4115_n_max, c.meter_rate_max, c.meter_policy_n_max,
		c.color_aware_srtcm_rfc2697_supported, c.color_aware_trtcm_rfc2698_supported,
		c.color_aware_trtcm_rfc4115_supported, c.srtcm_rfc2697_byte_mode_supported,
		c.srtcm_rfc2697_packet_mode_supported, c.trtcm_rfc2698_byte_mode_supported,
		c.trtcm_rfc2698_packet_mode_supported, c.trtcm_rfc4115_byte_mode_supported,
		c.trtcm_rfc4115_packet_mode_supported, c.stats_mask, others}
			    .dump();
}

void
runner_padd(const json &a, struct outcome &out)
{
	profile_argument profile(a[2]);
	CALL(table()->meter_profile_add(device(a[0]), u32(a[1]), profile.get(), ERROR_AT(3)));
}

void
runner_qadd(const json &a, struct outcome &out)
{
	policy_argument policy(a[2]);
	CALL(table()->meter_policy_add(device(a[0]), u32(a[1]), policy.get(), ERROR_AT(3)));
}

void
runner_qval(const json &a, struct outcome &out)
{
	policy_argument policy(a[1]);
	CALL(table()->meter_policy_validate(device(a[0]), policy.get(), ERROR_AT(2)));
}

void
runner_create(const json &a, struct outcome &out)
{
	params_argument params(a[2]);
	CALL(table()->create(device(a[0]), u32(a[1]), params.get(), integer(a[3]), ERROR_AT(4)));
}

void
runner_stats(const json &a, struct outcome &out)
{
	uint64_t words[8];
	struct rte_mtr_stats record;
	static_assert(sizeof(record) == sizeof(words));
	for (uint64_t &word : words) {
		word = stats_untouched;
	}
	memcpy(&record, words, sizeof(words));
	bool masked = !a[2].is_null();
	uint64_t mask = masked ? number(a[2]) : 0;
	CALL(table()->stats_read(device(a[0]), u32(a[1]), a[4] == 1 ? &record : nullptr,
		masked ? &mask : nullptr, integer(a[3]), ERROR_AT(5)));
	memcpy(words, &record, sizeof(words));
	json extra;
	if (a[4] == 1) {
		extra = words;
		extra.push_back(masked ? json(mask) : json());
	} else if (masked) {
		extra = json::array({mask});
	}
	out.extra = extra.dump();
}

void
runner_ops_get(const json &a, struct outcome &out)
{
	static const void *earlier;
	const struct rte_mtr_ops *ops = nullptr;
	CALL(vask_p4_dev_mtr_ops_get(device(a[0]), &ops));
	if (ops == nullptr) {
		return;
	}
	const bool slots[] = {ops->capabilities_get != nullptr, ops->meter_profile_add != nullptr,
		ops->meter_profile_delete != nullptr, ops->create != nullptr,
		ops->destroy != nullptr, ops->meter_enable != nullptr,
		ops->meter_disable != nullptr, ops->meter_profile_update != nullptr,
		ops->meter_dscp_table_update != nullptr, ops->stats_update != nullptr,
		ops->stats_read != nullptr, ops->meter_policy_validate != nullptr,
		ops->meter_policy_add != nullptr, ops->meter_policy_delete != nullptr,
		ops->meter_policy_update != nullptr};
	std::string text;
	int named = 0;
	for (bool filled : slots) {
		text += filled ? '1' : '0';
		named += filled;
	}
	int all = 0;
	for (size_t n = 0; n < sizeof(*ops); n += sizeof(void *)) {
		void *slot;
		memcpy(&slot, reinterpret_cast<const char *>(ops) + n, sizeof(slot));
		all += slot != nullptr;
	}
	text += "+" + std::to_string(all - named);
	if (earlier != nullptr && earlier != ops) {
		text += "!";
	}
	earlier = ops;
	out.extra = runner_quoted(text);
}

/* Exported and internal functions */

void
runner_inst_create(const json &a, struct outcome &out)
{
	params_argument params(a[2]);
	CALL(vask_p4_meter_inst_create(device(a[0]), u32(a[1]), params.get(), integer(a[3]),
		integer(a[4]), ERROR_AT(6), integer(a[5])));
}

void
runner_conv_inst(const json &a, struct outcome &out)
{
	auto *meter = METER(a[0]);
	NEED(meter);
	auto inst = from_hex<struct vask_p4_mep_meter_inst_table>(a[1]);
	module([&] { vask_p4_meter_convert_inst(meter, &inst); });
	out.extra = quoted_hex(&inst, sizeof(inst));
}

void
runner_cfg_2_pol(const json &a, struct outcome &out)
{
	auto *profile = PROFILE(a[0]);
	auto *meter = METER(a[1]);
	NEED(profile);
	NEED(meter);
	CALL(vask_p4_update_meter_cfg_2_pol(profile, meter, u32(a[2])));
}

void
runner_upd_2_hw(const json &a, struct outcome &out)
{
	auto *profile = PROFILE(a[0]);
	auto *meter = METER(a[1]);
	NEED(profile);
	NEED(meter);
	CALL(vask_p4_meter_update_profile_2_hw(&profile->data, &meter->data));
}

void
runner_pconv(const json &a, struct outcome &out)
{
	profile_argument profile(a[1]);
	struct vask_p4_meter_profile record = {};
	record.eir = number(a[0]);
	CALL(vask_p4_profile_convert(&record, profile.get()));
	out.extra = '"' + runner_text(record) + '"';
}

void
runner_ptype(const json &a, struct outcome &out)
{
	struct vask_p4_meter_profile record = {};
	bool given = !a[0].is_null();
	if (given) {
		record.eir = number(a[0][0]);
		record.rfc2698_mode = u32(a[0][1]);
	}
	enum rte_mtr_algorithm type =
		module([&] { return vask_p4_meter_get_profile_type(given ? &record : nullptr); });
	int32_t value;
	memcpy(&value, &type, sizeof(value));
	out.extra = std::to_string(value);
}

void
runner_pcmp(const json &a, struct outcome &out)
{
	struct vask_p4_meter_profile record = {};
	record.cir = number(a[0][0]);
	record.cbs = number(a[0][1]);
	record.eir = number(a[0][2]);
	record.ebs = number(a[0][3]);
	record.packet_mode = integer(a[0][4]);
	record.rfc2698_mode = u32(a[0][5]);
	profile_argument profile(a[1]);
	CALL(vask_p4_meter_profile_cmp(&record, profile.get()));
}

void
runner_shaper(const json &a, struct outcome &out)
{
	auto info = from_hex<struct vask_shaper_set_info>(a[3]);
	module([&] {
		vask_p4_meter_add_convert_shaper(u32(a[0]), number(a[1]), integer(a[2]), &info);
	});
	out.extra = quoted_hex(&info, sizeof(info));
}

void
runner_isch(const json &a, struct outcome &out)
{
	auto word = from_hex<struct vask_p4_isch_shaper>(a[2]);
	module([&] { vask_p4_meter_add_convert_isch_shaper(number(a[0]), integer(a[1]), &word); });
	out.extra = quoted_hex(&word, sizeof(word));
}

void
runner_unshaper(const json &a, struct outcome &out)
{
	auto info = from_hex<struct vask_shaper_set_info>(a[2]);
	module([&] { vask_p4_meter_del_convert_shaper(u32(a[0]), integer(a[1]), &info); });
	out.extra = quoted_hex(&info, sizeof(info));
}

void
runner_idx_get(const json &a, struct outcome &out)
{
	uint32_t index = 0;
	CALL(vask_p4_get_meter_index(pool(a[0]), &index));
	out.extra = *out.result == 0 ? std::to_string(index) : "null";
}

void
runner_from_std(const json &a, struct outcome &out)
{
	struct rte_mtr_meter_profile profile = {};
	row<p4_meter_profile_t> entry(a[1]);
	bool given = a[0] == 1;
	CALL(talvora_p4_offload_meter_profile_convert_from_std_2_nstd(
		given ? &profile : nullptr, entry.get()));
	if (given) {
		int alg;
		uint64_t words[4];
		memcpy(&alg, &profile.alg, sizeof(alg));
		memcpy(words, &profile.trtcm_rfc4115, sizeof(words));
		out.extra = json{alg, profile.packet_mode, words[0], words[1], words[2], words[3]}
				    .dump();
	}
}

/* The fake and the test itself */

void
runner_mark(const json &a, struct outcome &out, uint8_t value)
{
	runner_pool *marked = runner_pool_of(pool(a[0]));
	if (marked == nullptr || marked->dead) {
		out.skipped = true;
		return;
	}
	for (size_t n = number(a[1]); n <= number(a[2]) && n < marked->used.size(); n++) {
		marked->used[n] = value;
	}
}

void
runner_poke(const json &a, struct outcome &out)
{
	uint64_t v = number(a[3]);
	auto w = static_cast<uint32_t>(v);
	auto field = number(a[2]);
	char list = a[0].get_ref<const std::string &>()[0];
	if (list == 'P') {
		auto *node = PROFILE(a[1]);
		NEED(node);
		auto &p = node->data;
		uint64_t *wide[] = {&p.cir, &p.cbs, &p.eir, &p.ebs};
		auto *mode = reinterpret_cast<uint32_t *>(&p.packet_mode);
		auto *lock = reinterpret_cast<uint32_t *>(const_cast<int *>(&p.sl.locked));
		uint32_t *narrow[] = {mode, &p.rfc2698_mode, &p.profile_id, &p.ref_cnt,
			&p.off_hw_state, lock, &p.hw_profile_id};
		if (field < 4) {
			*wide[field] = v;
		} else {
			*narrow[field - 4] = w;
		}
	} else if (list == 'Q') {
		auto *node = POLICY(a[1]);
		NEED(node);
		auto &q = node->data;
		auto *lock = reinterpret_cast<uint32_t *>(const_cast<int *>(&q.sl.locked));
		uint32_t *fields[] = {&q.red_dscp, &q.yellow_dscp, &q.green_dscp, &q.red_action,
			&q.yellow_action, &q.green_action, &q.policy_id, &q.ref_cnt,
			&q.off_hw_state, lock, &q.hw_policy_id};
		*fields[field] = w;
	} else {
		auto *node = METER(a[1]);
		NEED(node);
		auto &m = node->data;
		auto *lock = reinterpret_cast<uint32_t *>(const_cast<int *>(&m.sl.locked));
		uint32_t *fields[] = {&m.meter_id, &m.hw_meter_id, &m.port_sfi, &m.dir, nullptr,
			nullptr, nullptr, nullptr, &m.stats_mask, &m.off_hw_state, lock};
		if (fields[field] != nullptr) {
			*fields[field] = w;
		} else if (field == 4) {
			m.enable = w & 1;
		} else if (field == 5) {
			m.type = w & 1;
		} else if (field == 6) {
			m.is_color_aware = w & 1;
		} else {
			m.is_ori_pktlen = w & 1;
		}
	}
}
