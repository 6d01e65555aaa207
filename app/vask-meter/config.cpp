/* SPDX-License-Identifier: BSD-3-Clause */
#include "config.h"

#include <algorithm>
#include <arpa/inet.h>

#include "cfgfile.h"
#include "error.h"

namespace
{
constexpr uint32_t P4_ROW_MAX = 255; /* profile and policer ids of a P4 instance have 8 bits */
constexpr uint32_t PORTS_MAX = 2;
constexpr uint32_t MTU_MIN = 68, MTU_MAX = 16384;
constexpr uint32_t DSCP_MAX = 63;
constexpr uint32_t VLAN_MAX = 4094;
constexpr uint32_t PRIORITY_MAX = UINT16_MAX;
constexpr uint32_t L4_PORT_MAX = UINT16_MAX;

template <typename T>
const T *
by_id(const std::vector<T> &list, uint32_t id)
{
	const auto found =
		std::find_if(list.begin(), list.end(), [id](const T &t) { return t.id == id; });
	return found == list.end() ? nullptr : &*found;
}

/* The number of a section, which no other of its kind has. */
template <typename T>
uint32_t
new_id(const cfg_section &s, const std::vector<T> &list, uint32_t min, uint32_t max)
{
	if (!s.id || *s.id < min || *s.id > max)
		refuse("{}: accepted is [{} N] with N from {} to {}", s.where(), s.name, min, max);
	if (by_id(list, *s.id) != nullptr)
		refuse("{}: stands twice; accepted is one section for each id", s.where());
	return *s.id;
}

void
read_setup(const cfg_section &s, meters_config &config)
{
	s.check_keys({"interface", "shapers", "ports", "mtu"});
	if (s.id)
		refuse("{}: accepted is [setup], without a number", s.where());
	if (const cfg_entry *e = s.find("interface"))
		config.p4 = s.choice(*e, {"rte_mtr", "p4"}) == 1;
	if (const cfg_entry *e = s.find("shapers"))
		config.enforce = s.choice(*e, {"observe", "enforce"}) == 1;
	if (const cfg_entry *e = s.find("ports"))
		config.ports = static_cast<uint16_t>(s.number(*e, 1, PORTS_MAX));
	if (const cfg_entry *e = s.find("mtu"))
		config.mtu = static_cast<uint16_t>(s.number(*e, MTU_MIN, MTU_MAX));
}

/* A rate or a burst of a profile. The committed rate's unit says what the profile counts, and the others
 * must agree. */
uint64_t
profile_amount(const cfg_section &s, const char *key, bool rate, bool packet_mode)
{
	const char *accepted = rate
		? packet_mode ? "a packet rate such as 5000pps" : "a rate such as 10Mbit/s"
		: packet_mode ? "a burst such as 32packets"
			      : "a burst such as 64KiB";
	const quantity_kind kind = rate
		? packet_mode ? quantity_kind::PACKET_RATE : quantity_kind::RATE
		: packet_mode ? quantity_kind::PACKETS
			      : quantity_kind::BURST;
	const cfg_entry &e = s.need(key, accepted);
	const quantity q = s.amount(e);
	if (q.kind != kind)
		s.refuse_entry(e,
			fmt::format("accepted is {}, as cir counts {}", accepted,
				packet_mode ? "packets" : "bytes"));
	return q.value;
}

profile_config
read_profile(const cfg_section &s, const meters_config &config)
{
	const uint32_t id = new_id(s, config.profiles, 0, config.p4 ? P4_ROW_MAX : UINT32_MAX);
	const char *algorithms = "rfc2697, rfc2698 or rfc4115";
	const cfg_entry &algorithm = s.need("algorithm", algorithms);
	const cfg_entry &cir = s.need("cir", "a rate such as 10Mbit/s or 5000pps");
	const quantity_kind kind = s.amount(cir).kind;
	if (kind != quantity_kind::RATE && kind != quantity_kind::PACKET_RATE)
		s.refuse_entry(cir, "accepted is a rate such as 10Mbit/s or 5000pps");

	profile_config p = {};
	p.where = s.where();
	p.id = id;
	p.packet_mode = kind == quantity_kind::PACKET_RATE;
	const auto rate = [&](const char *key) {
		return profile_amount(s, key, true, p.packet_mode);
	};
	const auto burst = [&](const char *key) {
		return profile_amount(s, key, false, p.packet_mode);
	};
	p.cir = rate("cir");
	p.cbs = burst("cbs");
	switch (s.choice(algorithm, {"rfc2697", "rfc2698", "rfc4115"})) {
	case 0:
		s.check_keys({"algorithm", "cir", "cbs", "ebs"});
		p.algorithm = RTE_MTR_SRTCM_RFC2697;
		p.ebs = burst("ebs");
		break;
	case 1:
		s.check_keys({"algorithm", "cir", "pir", "cbs", "pbs"});
		p.algorithm = RTE_MTR_TRTCM_RFC2698;
		p.eir = rate("pir");
		p.ebs = burst("pbs");
		if (p.eir < p.cir)
			s.refuse_entry(*s.find("pir"), "accepted is a pir not below cir");
		break;
	default:
		s.check_keys({"algorithm", "cir", "eir", "cbs", "ebs"});
		p.algorithm = RTE_MTR_TRTCM_RFC4115;
		p.eir = rate("eir");
		p.ebs = burst("ebs");
		break;
	}
	return p;
}

policy_config
read_policy(const cfg_section &s, const meters_config &config)
{
	static const char *const keys[RTE_COLORS] = {"green", "yellow", "red"};
	policy_config p = {};

	p.where = s.where();
	p.id = new_id(s, config.policies, 1, config.p4 ? P4_ROW_MAX : UINT32_MAX);
	s.check_keys({"green", "yellow", "red"});
	for (size_t colour = 0; colour < RTE_COLORS; colour++) {
		const cfg_entry *e = s.find(keys[colour]);
		if (e == nullptr || e->value == "pass")
			continue;
		if (e->value == "drop") {
			p.colours[colour].action = colour_config::DROP;
		} else if (e->value.starts_with("dscp ")) {
			const cfg_entry dscp = {e->key, e->value.substr(5), e->line};
			p.colours[colour].action = colour_config::DSCP;
			p.colours[colour].dscp = static_cast<uint8_t>(s.number(dscp, 0, DSCP_MAX));
		} else {
			s.refuse_entry(*e, "accepted are pass, drop and dscp N");
		}
	}
	return p;
}

meter_config
read_meter(const cfg_section &s, const meters_config &config)
{
	meter_config m = {};

	m.where = s.where();
	m.id = new_id(s, config.meters, 1, UINT32_MAX);
	s.check_keys({"port", "direction", "profile", "policy", "original_length", "color_aware",
		"enable"});
	if (const cfg_entry *e = s.find("port"))
		m.port = static_cast<uint16_t>(s.number(*e, 0, config.ports - 1U));
	const cfg_entry &side = s.need("direction", "rx, tx or both");
	m.side = static_cast<meter_side>(s.choice(side, {"rx", "tx", "both"}));
	if (config.p4 && m.side == meter_side::BOTH)
		s.refuse_entry(side, "the P4 tables know one side only; accepted are rx, tx");
	const cfg_entry &profile = s.need("profile", "the number of a [profile N]");
	m.profile = s.number(profile, 0, UINT32_MAX);
	if (config.profile(m.profile) == nullptr)
		s.refuse_entry(profile,
			fmt::format(
				"there is no [profile {}]; accepted is the number of a [profile N]",
				m.profile));
	if (const cfg_entry *e = s.find("policy")) {
		m.policy = s.number(*e, 0, UINT32_MAX);
		if (m.policy != 0 && config.policy(m.policy) == nullptr)
			s.refuse_entry(*e,
				fmt::format(
					"there is no [policy {}]; accepted is the number of a [policy N], or 0",
					m.policy));
	}
	m.original_length = s.yes("original_length", false);
	m.colour_aware = s.yes("color_aware", false);
	m.enable = s.yes("enable", true);
	return m;
}

/* "10.0.0.1", "10.0.0.0/8", "2001:db8::/32" */
address_config
read_address(const cfg_section &s, const cfg_entry &e)
{
	const size_t slash = e.value.find('/');
	const std::string text = e.value.substr(0, slash);
	address_config a = {};

	a.family = text.find(':') == std::string::npos ? AF_INET : AF_INET6;
	a.prefix = a.family == AF_INET ? 32 : 128;
	if (inet_pton(a.family, text.c_str(), a.bytes) != 1)
		s.refuse_entry(e, "accepted is an IPv4 or IPv6 address, with /prefix or without");
	if (slash != std::string::npos)
		a.prefix = s.number({e.key, e.value.substr(slash + 1), e.line}, 0, a.prefix);
	return a;
}

flow_config
read_flow(const cfg_section &s, const meters_config &config)
{
	flow_config f = {};

	f.where = s.where();
	f.id = new_id(s, config.flows, 0, UINT32_MAX);
	s.check_keys({"meter", "port", "direction", "priority", "vlan", "src", "dst", "dscp",
		"protocol", "sport", "dport"});
	const cfg_entry &meter = s.need("meter", "the number of a [meter N]");
	f.meter = s.number(meter, 1, UINT32_MAX);
	const meter_config *m = config.meter(f.meter);
	if (m == nullptr)
		s.refuse_entry(meter,
			fmt::format("there is no [meter {}]; accepted is the number of a [meter N]",
				f.meter));
	f.port = m->port;
	f.egress = m->side == meter_side::TX;
	if (const cfg_entry *e = s.find("port"))
		f.port = static_cast<uint16_t>(s.number(*e, 0, config.ports - 1U));
	if (const cfg_entry *e = s.find("direction"))
		f.egress = s.choice(*e, {"ingress", "egress"}) == 1;
	if (const cfg_entry *e = s.find("priority"))
		f.priority = s.number(*e, 0, PRIORITY_MAX);
	if (const cfg_entry *e = s.find("vlan"))
		f.vlan = static_cast<uint16_t>(s.number(*e, 0, VLAN_MAX));
	if (const cfg_entry *e = s.find("src"))
		f.src = read_address(s, *e);
	if (const cfg_entry *e = s.find("dst"))
		f.dst = read_address(s, *e);
	if (f.src && f.dst && f.src->family != f.dst->family)
		s.refuse_entry(*s.find("dst"), "accepted is an address of the family of src");
	if (const cfg_entry *e = s.find("dscp"))
		f.dscp = static_cast<uint8_t>(s.number(*e, 0, DSCP_MAX));
	if (const cfg_entry *e = s.find("protocol"))
		f.protocol = s.choice(*e, {"tcp", "udp"}) == 0 ? IPPROTO_TCP : IPPROTO_UDP;
	for (auto [key, port] : {std::pair("sport", &f.sport), std::pair("dport", &f.dport)}) {
		const cfg_entry *e = s.find(key);
		if (e == nullptr)
			continue;
		if (!f.protocol)
			s.refuse_entry(*e, "accepted is a port beside protocol = tcp or udp");
		*port = static_cast<uint16_t>(s.number(*e, 0, L4_PORT_MAX));
	}
	return f;
}
} // namespace

int
flow_config::family() const
{
	if (src || dst)
		return src ? src->family : dst->family;
	return dscp || protocol ? AF_INET : 0;
}

const profile_config *
meters_config::profile(uint32_t id) const
{
	return by_id(profiles, id);
}

const policy_config *
meters_config::policy(uint32_t id) const
{
	return by_id(policies, id);
}

const meter_config *
meters_config::meter(uint32_t id) const
{
	return by_id(meters, id);
}

meters_config
config_read(const std::string &path)
{
	const std::vector<cfg_section> sections = cfgfile_read(path);
	meters_config config = {path, false, false, 1, {}, {}, {}, {}, {}};
	bool setup = false;

	/* Sections may stand in any order: what others name is read first. */
	for (const cfg_section &s : sections) {
		if (s.name == "setup" && setup)
			refuse("{}: stands twice; accepted is one", s.where());
		if (s.name == "setup") {
			read_setup(s, config);
			setup = true;
		} else if (s.name != "profile" && s.name != "policy" && s.name != "meter" &&
			s.name != "flow") {
			refuse("{}: unknown section; accepted are setup, profile N, policy N, meter N, flow N",
				s.where());
		}
	}
	for (const cfg_section &s : sections) {
		if (s.name == "profile")
			config.profiles.push_back(read_profile(s, config));
		if (s.name == "policy")
			config.policies.push_back(read_policy(s, config));
	}
	for (const cfg_section &s : sections)
		if (s.name == "meter")
			config.meters.push_back(read_meter(s, config));
	for (const cfg_section &s : sections)
		if (s.name == "flow")
			config.flows.push_back(read_flow(s, config));
	if (config.meters.empty())
		refuse("{}: no meters; accepted is at least one [meter N]", path);
	return config;
}
