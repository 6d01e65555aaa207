/* SPDX-License-Identifier: BSD-3-Clause */
#include "program.h"

#include <array>
#include <cstring>

#include <rte_errno.h>
#include <rte_flow.h>
#include <rte_mtr.h>

#include "error.h"
#include "flow_rule.h"
#include "rte_pmd_net_vask1.h"

namespace
{
/* The driver's flags in the top bits of a meter's statistics mask. */
constexpr uint64_t MASK_RX = 1ULL << 63;
constexpr uint64_t MASK_TX = 1ULL << 62;
constexpr uint64_t MASK_ORIGINAL_LENGTH = 1ULL << 61;
constexpr uint64_t MASK_DROPS = RTE_MTR_STATS_N_PKTS_DROPPED | RTE_MTR_STATS_N_BYTES_DROPPED;

void
check_mtr(const std::string &where, int rc, const rte_mtr_error &error)
{
	if (rc != 0)
		fail("{}: refused by the port: {}", where,
			error.message ? error.message : rte_strerror(-rc));
}

/* The P4 tables give a code and no message; their log has it. */
void
check_p4(const std::string &where, int rc)
{
	if (rc != 0)
		fail("{}: refused by the P4 table; --verbose shows why", where);
}

rte_mtr_meter_profile
mtr_profile(const profile_config &p)
{
	rte_mtr_meter_profile profile = {};

	profile.alg = p.algorithm;
	profile.packet_mode = p.packet_mode;
	switch (p.algorithm) {
	case RTE_MTR_SRTCM_RFC2697:
		profile.srtcm_rfc2697 = {p.cir, p.cbs, p.ebs};
		break;
	case RTE_MTR_TRTCM_RFC2698:
		profile.trtcm_rfc2698 = {p.cir, p.eir, p.cbs, p.ebs};
		break;
	default:
		profile.trtcm_rfc4115 = {p.cir, p.eir, p.cbs, p.ebs};
		break;
	}
	return profile;
}

p4_meter_profile_t
p4_profile(const profile_config &p)
{
	p4_meter_profile_t entry = {};

	entry.cir = p.cir;
	entry.eir = p.eir;
	entry.cbs = p.cbs;
	entry.ebs = p.ebs;
	entry.packet_mode = p.packet_mode;
	entry.meter_rfc = static_cast<uint8_t>(p.algorithm - RTE_MTR_SRTCM_RFC2697) & 3;
	return entry;
}

void
add_mtr_policy(uint16_t port, const policy_config &p)
{
	std::array<std::array<rte_flow_action, 2>, RTE_COLORS> actions = {};
	std::array<rte_flow_action_set_dscp, RTE_COLORS> dscp = {};
	rte_mtr_meter_policy_params params = {};
	rte_mtr_error error = {};

	for (size_t colour = 0; colour < RTE_COLORS; colour++) {
		rte_flow_action *list = actions[colour].data();
		dscp[colour].dscp = p.colours[colour].dscp;
		switch (p.colours[colour].action) {
		case colour_config::DROP:
			list++->type = RTE_FLOW_ACTION_TYPE_DROP;
			break;
		case colour_config::DSCP:
			list->conf = &dscp[colour];
			list++->type = RTE_FLOW_ACTION_TYPE_SET_IPV4_DSCP;
			break;
		case colour_config::PASS:
			break;
		}
		list->type = RTE_FLOW_ACTION_TYPE_END;
		params.actions[colour] = actions[colour].data();
	}
	check_mtr(p.where, rte_mtr_meter_policy_add(port, p.id, &params, &error), error);
}

p4_meter_policer_t
p4_policer(const policy_config &p)
{
	static constexpr uint8_t codes[] = {0, 1, 2}; /* by colour_config::action */
	const auto code = [&p](rte_color c) {
		return codes[p.colours[c].action] & 3;
	};
	p4_meter_policer_t entry = {};

	entry.green_action = code(RTE_COLOR_GREEN);
	entry.green_dscp = p.colours[RTE_COLOR_GREEN].dscp & 63;
	entry.yellow_action = code(RTE_COLOR_YELLOW);
	entry.yellow_dscp = p.colours[RTE_COLOR_YELLOW].dscp & 63;
	entry.red_action = code(RTE_COLOR_RED);
	entry.red_dscp = p.colours[RTE_COLOR_RED].dscp & 63;
	return entry;
}

void
add_mtr_meter(uint16_t port, const meter_config &m)
{
	rte_mtr_params params = {};
	rte_mtr_error error = {};

	params.meter_profile_id = m.profile;
	params.meter_policy_id = m.policy;
	params.use_prev_mtr_color = m.colour_aware;
	params.meter_enable = m.enable;
	params.stats_mask = MASK_DROPS;
	if (m.side == meter_side::RX)
		params.stats_mask |= MASK_RX;
	if (m.side == meter_side::TX)
		params.stats_mask |= MASK_TX;
	if (m.original_length)
		params.stats_mask |= MASK_ORIGINAL_LENGTH;
	check_mtr(m.where, rte_mtr_create(port, m.id, &params, 0, &error), error);
}

p4_meter_instance_t
p4_instance(uint16_t port, const meter_config &m)
{
	p4_meter_instance_t entry = {};

	entry.type = 1;
	entry.dir = m.side == meter_side::TX;
	entry.meter_enable = m.enable;
	entry.color_mode = m.colour_aware;
	entry.origin_pkt = m.original_length;
	entry.stats_mask = P4_METER_STATS_N_PKTS_DROPPED | P4_METER_STATS_N_BYTES_DROPPED;
	entry.dpdk_port_id = port;
	entry.profile_id = m.profile & 0xff;
	entry.policer_id = m.policy & 0xff;
	return entry;
}

/* Creation enables a meter whatever it was asked, so disabling is a call of its own. */
void
disable(uint16_t port, const meter_config &m)
{
	rte_mtr_error error = {};
	check_mtr(m.where, rte_mtr_meter_disable(port, m.id, &error), error);
}
} // namespace

void
program_ports(const meters_config &config, const card_ports &ports)
{
	const uint16_t first = ports.ethdev(0);
	rte_mtr_error error = {};

	for (const profile_config &p : config.profiles) {
		if (config.p4) {
			const p4_meter_profile_t entry = p4_profile(p);
			check_p4(p.where, rte_pmd_net_vask1_profile_add(p.id, &entry));
		} else {
			rte_mtr_meter_profile profile = mtr_profile(p);
			check_mtr(p.where, rte_mtr_meter_profile_add(first, p.id, &profile, &error),
				error);
		}
	}
	for (const policy_config &p : config.policies) {
		if (config.p4) {
			const p4_meter_policer_t entry = p4_policer(p);
			check_p4(p.where, rte_pmd_net_vask1_policer_add(p.id, &entry));
		} else {
			add_mtr_policy(first, p);
		}
	}
	for (const meter_config &m : config.meters) {
		const uint16_t port = ports.ethdev(m.port);
		if (config.p4) {
			const p4_meter_instance_t entry = p4_instance(port, m);
			check_p4(m.where, rte_pmd_net_vask1_instance_add(m.id, &entry));
			/* the table tells nobody that a creation failed */
			if (vask_p4_find_hw_meterid_by_upid(m.id) == 0)
				check_p4(m.where, -1);
		} else {
			add_mtr_meter(port, m);
		}
		if (!m.enable)
			disable(port, m);
	}
	for (const flow_config &f : config.flows)
		create_flow_rule(f, ports.ethdev(f.port));
}

void
unprogram_ports(const meters_config &config, const card_ports &ports)
{
	const uint16_t first = ports.ethdev(0);
	rte_mtr_error error = {};

	for (uint16_t port = 0; port < config.ports; port++)
		rte_flow_flush(ports.ethdev(port), nullptr);
	for (const meter_config &m : config.meters)
		if (config.p4)
			check_p4(m.where, rte_pmd_net_vask1_instance_del(m.id));
		else
			check_mtr(m.where, rte_mtr_destroy(ports.ethdev(m.port), m.id, &error),
				error);
	for (const policy_config &p : config.policies)
		if (config.p4)
			check_p4(p.where, rte_pmd_net_vask1_policer_del(p.id));
		else
			check_mtr(p.where, rte_mtr_meter_policy_delete(first, p.id, &error), error);
	for (const profile_config &p : config.profiles)
		if (config.p4)
			check_p4(p.where, rte_pmd_net_vask1_profile_del(p.id));
		else
			check_mtr(
				p.where, rte_mtr_meter_profile_delete(first, p.id, &error), error);
}
