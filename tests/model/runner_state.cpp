/* SPDX-License-Identifier: BSD-3-Clause */
#include "runner_fake.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>

std::string
runner_hex(const void *bytes, size_t size)
{
	static const char digits[] = "0123456789abcdef";
	const auto *at = static_cast<const uint8_t *>(bytes);
	std::string text;
	text.reserve(2 * size);
	for (size_t n = 0; n < size; n++) {
		text += digits[at[n] >> 4];
		text += digits[at[n] & 15];
	}
	return text;
}

std::string
runner_quoted(const std::string &text)
{
	std::string out = "\"";
	for (char c : text) {
		switch (c) {
		case '\n':
			out += "\\n";
			break;
		case '\t':
			out += "\\t";
			break;
		case '"':
		case '\\':
			out += '\\';
			[[fallthrough]];
		default:
			out += c;
		}
	}
	return out + '"';
}

static std::string
numbers(std::initializer_list<uint64_t> values)
{
	std::string text;
	for (uint64_t value : values) {
		char digits[24];
		snprintf(digits, sizeof(digits), "%" PRIx64 ",", value);
		text += digits;
	}
	return text;
}

std::string
runner_text(const struct vask_p4_meter_profile &p)
{
	return numbers({p.cir, p.cbs, p.eir, p.ebs, static_cast<uint32_t>(p.packet_mode),
		       p.rfc2698_mode, p.profile_id, p.ref_cnt, p.off_hw_state,
		       static_cast<uint32_t>(p.sl.locked), p.hw_profile_id}) +
		runner_hex(&p.profile, sizeof(p.profile));
}

static std::string
runner_text(const struct vask_p4_meter_policy &q)
{
	return numbers({q.red_dscp, q.yellow_dscp, q.green_dscp, q.red_action, q.yellow_action,
		       q.green_action, q.policy_id, q.ref_cnt, q.off_hw_state,
		       static_cast<uint32_t>(q.sl.locked), q.hw_policy_id}) +
		runner_hex(&q.policy, sizeof(q.policy));
}

static std::string
runner_text(const struct vask_p4_meter_cfg_entry &m)
{
	return numbers({m.meter_id, m.hw_meter_id, m.port_sfi, m.dir, m.enable, m.type,
		       m.is_color_aware, m.is_ori_pktlen, m.stats_mask, m.off_hw_state,
		       static_cast<uint32_t>(m.sl.locked)}) +
		runner_text(m.profile) + ',' + runner_text(m.policy) + ',' +
		runner_hex(&m.table, sizeof(m.table)) + ',' +
		runner_hex(&m.table_inst, sizeof(m.table_inst)) + ',' +
		runner_hex(&m.mep_inst, sizeof(m.mep_inst));
}

/* The records of a list, joined; a list with a wrong link is broken. */
template <typename Head>
static std::string
list_text(const Head &list)
{
	std::string text;
	auto *const *link = &list.tqh_first;
	for (auto *node = list.tqh_first; node != nullptr; node = node->next.tqe_next) {
		if (node->next.tqe_prev != link) {
			return "broken";
		}
		if (!text.empty()) {
			text += ';';
		}
		text += runner_text(node->data);
		link = &node->next.tqe_next;
	}
	return list.tqh_last == link ? text : "broken";
}

struct runner_pool *
runner_pool_of(const VASK_P4_INDEXSTACK_MANAGER *manager)
{
	for (runner_pool &pool : fake.pools) {
		if (manager == &pool.manager) {
			return &pool;
		}
	}
	return nullptr;
}

static std::string
pool_text(const VASK_P4_INDEXSTACK_MANAGER *manager)
{
	const runner_pool *pool = runner_pool_of(manager);
	if (pool == nullptr) {
		return manager == nullptr ? "0=" : "?=";
	}
	std::string text;
	for (size_t first = 0; first < pool->used.size(); first++) {
		if (pool->used[first] == 0) {
			continue;
		}
		size_t last = first;
		while (last + 1 < pool->used.size() && pool->used[last + 1] != 0) {
			last++;
		}
		text += (text.empty() ? "" : ",") + std::to_string(first);
		if (last > first) {
			text += "-" + std::to_string(last);
		}
		first = last;
	}
	return std::to_string(pool->number) + "=" + text;
}

std::string
runner_state()
{
	unsigned int p = 0;
	unsigned int q = 0;
	unsigned int m = 0;
	for (const runner_block &block : fake.live) {
		p += block.kind == 'P';
		q += block.kind == 'Q';
		m += block.kind == 'M';
	}
	return "P:" + list_text(vask_p4_meter_profile_list) +
		"|Q:" + list_text(vask_p4_meter_policy_list) +
		"|M:" + list_text(vask_p4_meter_list) + "|I:" + pool_text(meter_index_mgr) + ";" +
		pool_text(profile_index_mgr) + ";" + pool_text(policy_index_mgr) +
		"|A:" + std::to_string(p) + "," + std::to_string(q) + "," + std::to_string(m) +
		"," + std::to_string(fake.bad_frees);
}

void
runner_reset()
{
	for (const runner_block &block : fake.live) {
		free(block.address);
	}
	fake = runner_fake{};
	TAILQ_INIT(&vask_p4_meter_profile_list);
	TAILQ_INIT(&vask_p4_meter_policy_list);
	TAILQ_INIT(&vask_p4_meter_list);
	meter_index_mgr = nullptr;
	profile_index_mgr = nullptr;
	policy_index_mgr = nullptr;
}

void
runner_begin_step()
{
	fake.recording = false;
	fake.events.clear();
	fake.faults.clear();
	fake.calls.clear();
	fake.channels = 0;
}
