/* SPDX-License-Identifier: BSD-3-Clause */
#include "report_text.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "card_units.h"

namespace
{
const char *const COLOURS[] = {"green", "yellow", "red"};

const char *
side_of(const metered &m)
{
	return m.egress ? "tx" : "rx";
}

/* Per second over the capture; 0 when it has no length. */
double
per_second(uint64_t amount, const replay_result &result)
{
	return result.seconds() > 0 ? static_cast<double>(amount) / result.seconds() : 0;
}

std::string
flows_of(const meters_config &config, const metered &m)
{
	std::string ids;
	for (const flow_config &f : config.flows)
		if (f.meter == m.meter.id && f.egress == m.egress)
			ids += (ids.empty() ? "" : ", ") + std::to_string(f.id);
	return ids;
}
} // namespace

std::string
result_rate(const profile_config &p, uint64_t packets, uint64_t bytes, const replay_result &result)
{
	return p.packet_mode ? fmt::format("{:.1f} pps", per_second(packets, result))
			     : format_rate(per_second(bytes, result));
}

const char *
algorithm_name(enum rte_mtr_algorithm algorithm)
{
	switch (algorithm) {
	case RTE_MTR_SRTCM_RFC2697:
		return "rfc2697";
	case RTE_MTR_TRTCM_RFC2698:
		return "rfc2698";
	case RTE_MTR_TRTCM_RFC4115:
		return "rfc4115";
	default:
		return "none";
	}
}

std::vector<profile_value>
profile_values(const profile_config &p)
{
	const quantity_kind rate = p.packet_mode ? quantity_kind::PACKET_RATE : quantity_kind::RATE;
	const quantity_kind burst = p.packet_mode ? quantity_kind::PACKETS : quantity_kind::BURST;

	switch (p.algorithm) {
	case RTE_MTR_SRTCM_RFC2697:
		return {{"cir", rate, p.cir}, {"cbs", burst, p.cbs}, {"ebs", burst, p.ebs}};
	case RTE_MTR_TRTCM_RFC2698:
		return {{"cir", rate, p.cir}, {"pir", rate, p.eir}, {"cbs", burst, p.cbs},
			{"pbs", burst, p.ebs}};
	default:
		return {{"cir", rate, p.cir}, {"eir", rate, p.eir}, {"cbs", burst, p.cbs},
			{"ebs", burst, p.ebs}};
	}
}

std::string
profiles_text(const meters_config &config)
{
	std::string out =
		fmt::format("{:<24}{:>16}  {:>16}\n", "profile", "asked", "the card holds");

	for (const profile_config &p : config.profiles) {
		std::string head = fmt::format("{} {}", p.id, algorithm_name(p.algorithm));
		for (const profile_value &v : profile_values(p)) {
			const card_field field = card_fields(v.kind, v.value).front();
			const std::string warning = card_field_warning(field);
			out += fmt::format("{:<16}{:<8}{:>16}  {:>16}{}\n", head, v.name,
				format_quantity(v.kind, v.value),
				format_quantity(v.kind, field.effective),
				warning.empty() ? "" : "  warning: " + warning);
			head.clear();
		}
	}
	return out;
}

std::string
remarks_text(const meters_config &config)
{
	std::string out;

	for (const meter_config &m : config.meters) {
		bool ruled = false;
		for (const flow_config &f : config.flows)
			ruled |= f.meter == m.id;
		if (m.side == meter_side::TX && !ruled)
			out += fmt::format(
				"note: meter {} is for tx and no flow rule names it: no packet "
				"meets it\n",
				m.id);
	}
	return out;
}

static std::string
meter_text(const meters_config &config, const metered &m, const replay_result &result)
{
	const profile_config &p = *config.profile(m.meter.profile);
	const quantity_kind kind = p.packet_mode ? quantity_kind::PACKET_RATE : quantity_kind::RATE;
	const std::string flows = flows_of(config, m);
	std::string out = fmt::format("\nmeter {}: port {} {}, profile {}, policy {}{}\n",
		m.meter.id, m.meter.port, side_of(m), m.meter.profile, m.meter.policy,
		flows.empty() ? "" : ", flow " + flows);
	const auto line = [&](const char *name, uint64_t packets, uint64_t bytes) {
		out += fmt::format("  {:<14}{:>12}{:>16}  {:>16}\n", name, packets, bytes,
			result_rate(p, packets, bytes, result));
	};

	out += fmt::format("  {:<14}{:>12}{:>16}  {:>16}\n", "", "packets", "bytes", "rate");
	line("offered", m.offered_packets(), m.offered_bytes());
	for (size_t c = 0; c < RTE_COLORS; c++)
		line(COLOURS[c], m.stats.n_pkts[c], m.stats.n_bytes[c]);
	line("dropped", m.stats.n_pkts_dropped, m.stats.n_bytes_dropped);
	out += fmt::format("  {:<14}{:>12}\n", "rewritten", m.stats.n_pkts_rewritten);
	line("came through", m.passed_packets(), m.passed_bytes());
	out += fmt::format("  committed rate: asked {}, the card holds {}\n",
		format_quantity(kind, p.cir),
		format_quantity(kind, card_engine_effective(kind, p.cir)));
	return out;
}

std::string
result_text(const meters_config &config, const replay_result &result)
{
	std::string out = fmt::format("capture: {} packets, {} bytes in {:.9f} s, {}\n",
		result.packets, result.bytes, result.seconds(),
		format_rate(per_second(result.bytes, result)));

	out += fmt::format("programmed through {}, shapers {}\n",
		config.p4 ? "the P4 tables" : "rte_mtr", config.enforce ? "enforced" : "observed");
	for (const metered &m : result.meters)
		out += meter_text(config, m, result);
	out += fmt::format("\nleft: {} packets, {} bytes, {}\n", result.left_packets,
		result.left_bytes, format_rate(per_second(result.left_bytes, result)));
	if (config.enforce)
		out += fmt::format("delayed by shapers: {} packets, {:.9f} s at most\n",
			result.delayed_packets, static_cast<double>(result.longest_delay_ns) / 1e9);
	for (const auto &[cause, packets] : result.drops)
		out += fmt::format("{}: {}\n", cause, packets);
	return out;
}

std::string
result_csv(const meters_config &config, const replay_result &result)
{
	std::string out =
		"meter,port,direction,profile,policy,offered_packets,offered_bytes,green_packets,"
		"green_bytes,yellow_packets,yellow_bytes,red_packets,red_bytes,dropped_packets,"
		"dropped_bytes,rewritten_packets,passed_packets,passed_bytes,unit,asked_rate,"
		"held_rate,passed_rate\n";

	for (const metered &m : result.meters) {
		const profile_config &p = *config.profile(m.meter.profile);
		const quantity_kind kind =
			p.packet_mode ? quantity_kind::PACKET_RATE : quantity_kind::RATE;
		out += fmt::format("{},{},{},{},{},{},{}", m.meter.id, m.meter.port, side_of(m),
			m.meter.profile, m.meter.policy, m.offered_packets(), m.offered_bytes());
		for (size_t c = 0; c < RTE_COLORS; c++)
			out += fmt::format(",{},{}", m.stats.n_pkts[c], m.stats.n_bytes[c]);
		out += fmt::format(",{},{},{},{},{},{},{},{},{:.3f}\n", m.stats.n_pkts_dropped,
			m.stats.n_bytes_dropped, m.stats.n_pkts_rewritten, m.passed_packets(),
			m.passed_bytes(), p.packet_mode ? "packets/s" : "bytes/s", p.cir,
			card_engine_effective(kind, p.cir),
			per_second(p.packet_mode ? m.passed_packets() : m.passed_bytes(), result));
	}
	return out;
}

std::string
result_json(const meters_config &config, const replay_result &result)
{
	using json = nlohmann::ordered_json;
	const auto count = [](uint64_t packets, uint64_t bytes) {
		return json{{"packets", packets}, {"bytes", bytes}};
	};
	json root;

	root["capture"] = count(result.packets, result.bytes);
	root["capture"]["first_ns"] = result.first_ns;
	root["capture"]["last_ns"] = result.last_ns;
	root["interface"] = config.p4 ? "p4" : "rte_mtr";
	root["shapers"] = config.enforce ? "enforce" : "observe";
	root["profiles"] = json::array();
	for (const profile_config &p : config.profiles) {
		json profile = {{"id", p.id}, {"algorithm", algorithm_name(p.algorithm)},
			{"mode", p.packet_mode ? "packets" : "bytes"}};
		for (const profile_value &v : profile_values(p))
			profile[v.name] = {{"asked", v.value},
				{"held", card_engine_effective(v.kind, v.value)}};
		root["profiles"].push_back(profile);
	}
	root["meters"] = json::array();
	for (const metered &m : result.meters) {
		const profile_config &p = *config.profile(m.meter.profile);
		json meter = {{"id", m.meter.id}, {"port", m.meter.port}, {"direction", side_of(m)},
			{"profile", m.meter.profile}, {"policy", m.meter.policy}};
		meter["offered"] = count(m.offered_packets(), m.offered_bytes());
		for (size_t c = 0; c < RTE_COLORS; c++)
			meter[COLOURS[c]] = count(m.stats.n_pkts[c], m.stats.n_bytes[c]);
		meter["dropped"] = count(m.stats.n_pkts_dropped, m.stats.n_bytes_dropped);
		meter["rewritten"] = {{"packets", m.stats.n_pkts_rewritten}};
		meter["passed"] = count(m.passed_packets(), m.passed_bytes());
		meter["passed_rate"] =
			per_second(p.packet_mode ? m.passed_packets() : m.passed_bytes(), result);
		root["meters"].push_back(meter);
	}
	root["left"] = count(result.left_packets, result.left_bytes);
	root["delayed"] = {
		{"packets", result.delayed_packets}, {"longest_ns", result.longest_delay_ns}};
	root["drops"] = json::object();
	for (const auto &[cause, packets] : result.drops)
		root["drops"][cause] = packets;
	return root.dump(2) + "\n";
}
