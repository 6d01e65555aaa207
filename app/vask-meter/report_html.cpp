/* SPDX-License-Identifier: BSD-3-Clause */
#include "report_html.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include <fmt/format.h>

#include "card_units.h"
#include "html_page.h"
#include "report_text.h"

namespace
{
const char *const COLOURS[] = {"green", "yellow", "red"};

/* What a meter's table and charts count rates and levels in. */
struct meter_units {
	const char *rate, *level;
	double rate_scale, level_scale; /* of bytes/s and bytes, or packets/s and packets */
};

/* One unit for all rates of a meter, so that they can be compared: by what was offered. */
meter_units
units_of(const profile_config &p, const metered &m, const replay_result &result)
{
	if (p.packet_mode)
		return {"packets/s", "packets", 1, 1};
	const double bits =
		8 * static_cast<double>(m.offered_bytes()) / std::max(result.seconds(), 1e-9);
	if (bits >= 1e9)
		return {"Gbit/s", "KiB", 8e-9, 1.0 / 1024};
	if (bits >= 1e6)
		return {"Mbit/s", "KiB", 8e-6, 1.0 / 1024};
	return {"kbit/s", "KiB", 8e-3, 1.0 / 1024};
}

uint64_t
amount(const profile_config &p, uint64_t packets, uint64_t bytes)
{
	return p.packet_mode ? packets : bytes;
}

constexpr size_t RATE_BARS = 80; /* about: more would not be told apart */

uint64_t
passed(const profile_config &p, const meter_stats &m)
{
	uint64_t all = 0;
	for (size_t c = 0; c < RTE_COLORS; c++)
		all += amount(p, m.n_pkts[c], m.n_bytes[c]);
	return all - amount(p, m.n_pkts_dropped, m.n_bytes_dropped);
}

/* Green, yellow, red and passed per second from one sample to another. */
std::string
rates_between(const profile_config &p, const meter_units &units, const meter_stats &from,
	const meter_stats &to, double seconds)
{
	const auto rate = [&](uint64_t before, uint64_t after) {
		return seconds > 0
			? static_cast<double>(after - before) / seconds * units.rate_scale
			: 0;
	};
	std::string out;
	for (size_t c = 0; c < RTE_COLORS; c++)
		out += fmt::format(" {:.6f}",
			rate(amount(p, from.n_pkts[c], from.n_bytes[c]),
				amount(p, to.n_pkts[c], to.n_bytes[c])));
	return out + fmt::format(" {:.6f}\n", rate(passed(p, from), passed(p, to)));
}

/* A line for each bar: seconds at its start, then its rates; the last one again where it ends. */
std::string
rate_data(const replay_result &result, size_t index, const profile_config &p,
	const meter_units &units)
{
	const std::vector<replay_sample> &samples = result.samples;
	const size_t step = (samples.size() + RATE_BARS - 1) / RATE_BARS;
	std::string out = "$d << EOD\n", rates;
	meter_stats before = {};
	uint64_t start = result.first_ns;

	for (size_t i = std::min(step, samples.size()) - 1;;
		i = std::min(i + step, samples.size() - 1)) {
		const replay_sample &s = samples[i];
		rates = rates_between(p, units, before, s.meters[index],
			static_cast<double>(s.time_ns - start) / 1e9);
		out += fmt::format("{:.6f}", static_cast<double>(start - result.first_ns) / 1e9) +
			rates;
		before = s.meters[index];
		start = s.time_ns;
		if (i == samples.size() - 1)
			break;
	}
	return out + fmt::format("{:.6f}", result.seconds()) + rates + "EOD\n";
}

/* A line for each sample: seconds and the two levels. */
std::string
level_data(const replay_result &result, size_t index, const meter_units &units)
{
	std::string out = "$d << EOD\n";

	for (const replay_sample &s : result.samples)
		out += fmt::format("{:.6f} {:.3f} {:.3f}\n",
			static_cast<double>(s.time_ns - result.first_ns) / 1e9,
			static_cast<double>(s.meters[index].level_c) * units.level_scale,
			static_cast<double>(s.meters[index].level_e) * units.level_scale);
	return out + "EOD\n";
}

std::string
axes(const char *unit, const replay_result &result)
{
	return HTML_CHART_AXES +
		fmt::format("set xlabel 'seconds'\nset ylabel '{}'\nset xrange [0:{:.6f}]\n", unit,
			std::max(result.seconds(), 1e-6));
}

html_chart
rate_chart(const replay_result &result, size_t index, const profile_config &p,
	const meter_units &units)
{
	const quantity_kind kind = p.packet_mode ? quantity_kind::PACKET_RATE : quantity_kind::RATE;
	const double held =
		static_cast<double>(card_engine_effective(kind, p.cir)) * units.rate_scale;

	return {fmt::format("Offered, by colour, and what came through, in {}", units.rate),
		rate_data(result, index, p, units) + axes(units.rate, result) +
			fmt::format("set style fill solid 1.0 noborder\n"
				    "plot $d using 1:($2+$3+$4) with fillsteps lc rgb '{0}', "
				    "$d using 1:($2+$3) with fillsteps lc rgb '{1}', "
				    "$d using 1:2 with fillsteps lc rgb '{2}', "
				    "$d using 1:5 with steps lc rgb '{3}' lw 1.5, "
				    "{4:.6f} with lines lc rgb 'white' lw 3.5, "
				    "{4:.6f} with lines lc rgb '{5}' lw 2\n",
				HTML_COLOURS[RTE_COLOR_RED], HTML_COLOURS[RTE_COLOR_YELLOW],
				HTML_COLOURS[RTE_COLOR_GREEN], HTML_LINE, held, HTML_LINE_1),
		{{"green", "green"}, {"yellow", "yellow"}, {"red", "red"}, {"line", "came through"},
			{"line c1", "committed rate"}},
		false};
}

html_chart
level_chart(const replay_result &result, size_t index, const profile_config &p,
	const meter_units &units)
{
	return {fmt::format("What the buckets held, in {}", units.level),
		level_data(result, index, units) + axes(units.level, result) +
			fmt::format("plot $d using 1:3 with lines lc rgb '{}' lw 1.5, "
				    "$d using 1:2 with lines lc rgb '{}' lw 1.5\n",
				HTML_LINE_2, HTML_LINE_1),
		{{"line c1", "committed bucket"},
			{"line c2",
				p.algorithm == RTE_MTR_TRTCM_RFC2698 ? "peak bucket"
								     : "excess bucket"}},
		false};
}

std::string
file_name(const std::string &path)
{
	return std::filesystem::path(path).filename().string();
}

std::string
anchor(const metered &m)
{
	return fmt::format("meter-{}-{}", m.meter.id, m.egress ? "tx" : "rx");
}

std::string
name_of(const metered &m)
{
	return fmt::format("Meter {}, port {} {}", m.meter.id, m.meter.port,
		m.egress ? "transmit" : "receive");
}

std::array<uint64_t, RTE_COLORS>
packets_by_colour(const metered &m)
{
	return {m.stats.n_pkts[RTE_COLOR_GREEN], m.stats.n_pkts[RTE_COLOR_YELLOW],
		m.stats.n_pkts[RTE_COLOR_RED]};
}

std::string
glance_section(const replay_result &result)
{
	std::string out = "<section>\n<h2>At a glance</h2>\n" +
		html_legend({{"green", "green"}, {"yellow", "yellow"}, {"red", "red packets"}});
	for (const metered &m : result.meters) {
		out += fmt::format("<div class=\"glance\"><p><a href=\"#{}\">{}</a><span>",
			anchor(m), name_of(m));
		if (m.offered_packets() == 0)
			out += "no packet met it</span></p></div>\n";
		else
			out += fmt::format("{} packets offered, {} % dropped</span></p>{}</div>\n",
				html_number(m.offered_packets()),
				html_percent(m.stats.n_pkts_dropped, m.offered_packets()),
				html_colour_bar(packets_by_colour(m), m.offered_packets()));
	}
	return out + "</section>\n";
}

std::string
meter_table(const metered &m, const replay_result &result, const profile_config &p)
{
	const meter_units units = units_of(p, m, result);
	std::string out =
		fmt::format("<div class=\"scroll\"><table>\n<thead><tr><th></th><th>packets</th>"
			    "<th>%</th><th>bytes</th><th>{}</th></tr></thead>\n<tbody>\n",
			units.rate);
	const auto row = [&](const std::string &mark, const char *name, uint64_t packets,
				 uint64_t bytes) {
		const double rate = result.seconds() > 0
			? static_cast<double>(amount(p, packets, bytes)) * units.rate_scale /
				result.seconds()
			: 0;
		out += fmt::format(
			"<tr><th>{}{}</th><td>{}</td><td>{}</td><td>{}</td><td>{:.3f}</td></tr>\n",
			mark, name, html_number(packets),
			html_percent(packets, m.offered_packets()), html_number(bytes), rate);
	};
	row("", "offered", m.offered_packets(), m.offered_bytes());
	for (size_t c = 0; c < RTE_COLORS; c++)
		row(fmt::format("<span class=\"mark {}\"></span>", COLOURS[c]), COLOURS[c],
			m.stats.n_pkts[c], m.stats.n_bytes[c]);
	row("", "dropped", m.stats.n_pkts_dropped, m.stats.n_bytes_dropped);
	row("", "came through", m.passed_packets(), m.passed_bytes());
	return out + "</tbody></table></div>\n";
}

std::string
meter_head(const meters_config &config, const metered &m)
{
	const profile_config &p = *config.profile(m.meter.profile);
	const quantity_kind kind = p.packet_mode ? quantity_kind::PACKET_RATE : quantity_kind::RATE;

	return fmt::format(
		"<section id=\"{}\">\n<h2>{}</h2>\n<p>Profile {}, {}; policy {}. Committed rate: "
		"asked {}, the card holds {}. {} packets had their DSCP rewritten.</p>\n",
		anchor(m), name_of(m), p.id, algorithm_name(p.algorithm), m.meter.policy,
		format_quantity(kind, p.cir),
		format_quantity(kind, card_engine_effective(kind, p.cir)),
		html_number(m.stats.n_pkts_rewritten));
}

std::string
profiles_section(const meters_config &config)
{
	std::string out =
		"<section>\n<h2>Profiles</h2>\n<div class=\"scroll\"><table>\n<thead><tr><th>profile</th>"
		"<th></th><th>asked</th><th>the card holds</th></tr></thead>\n<tbody>\n";
	for (const profile_config &p : config.profiles) {
		std::string head = fmt::format("{}", p.id), next = algorithm_name(p.algorithm);
		for (const profile_value &v : profile_values(p)) {
			const card_field field = card_fields(v.kind, v.value).front();
			const std::string warning = card_field_warning(field);
			out += fmt::format(
				"<tr{}><th>{}</th><td>{}</td><td>{}</td><td>{}</td></tr>\n",
				next.empty() ? "" : " class=\"first\"", head, v.name,
				format_quantity(v.kind, v.value),
				format_quantity(v.kind, field.effective));
			if (!warning.empty())
				out += fmt::format(
					"<tr><td></td><td class=\"words\" colspan=\"3\">{}: {}</td></tr>\n",
					v.name, warning);
			head = std::exchange(next, "");
		}
	}
	return out + "</tbody></table></div>\n</section>\n";
}

std::string
summary(const meters_config &config, const replay_result &result, const std::string &capture)
{
	std::string out = fmt::format(
		"<p>{}: {} packets, {} bytes in {:.6f} s; {} packets, {} bytes left. {}: programmed through "
		"{}, shapers {}.</p>\n",
		html_escaped(capture), html_number(result.packets), html_number(result.bytes),
		result.seconds(), html_number(result.left_packets), html_number(result.left_bytes),
		html_escaped(config.path), config.p4 ? "the P4 tables" : "rte_mtr",
		config.enforce ? "enforced" : "observed");
	if (config.enforce)
		out += fmt::format("<p>Shapers delayed {} packets, by {:.6f} s at most.</p>\n",
			html_number(result.delayed_packets),
			static_cast<double>(result.longest_delay_ns) / 1e9);
	for (const auto &[cause, packets] : result.drops)
		out += fmt::format("<p>{}: {}</p>\n", html_escaped(cause), html_number(packets));
	return out;
}
} // namespace

std::string
result_html(const meters_config &config, const replay_result &result, const std::string &capture)
{
	std::vector<html_chart> charts;
	for (size_t i = 0; i < result.meters.size(); i++) {
		const metered &m = result.meters[i];
		if (m.offered_packets() == 0)
			continue;
		const profile_config &p = *config.profile(m.meter.profile);
		const meter_units units = units_of(p, m, result);
		charts.push_back(rate_chart(result, i, p, units));
		charts.push_back(level_chart(result, i, p, units));
	}
	const std::vector<std::string> drawn = html_charts(charts);

	std::string body = summary(config, result, capture) + glance_section(result) +
		profiles_section(config);
	auto chart = drawn.begin();
	for (const metered &m : result.meters) {
		body += meter_head(config, m);
		if (m.offered_packets() == 0) {
			body += "<p>No packet met it.</p>\n</section>\n";
			continue;
		}
		body += meter_table(m, result, *config.profile(m.meter.profile));
		body += *chart++;
		body += *chart++;
		body += "</section>\n";
	}
	return html_page(
		fmt::format("{} through {}", file_name(capture), file_name(config.path)), body);
}
