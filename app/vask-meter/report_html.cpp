/* SPDX-License-Identifier: BSD-3-Clause */
#include "report_html.h"

#include <fmt/format.h>

#include "card_units.h"
#include "gnuplot.h"
#include "report_text.h"

namespace
{
const char *const HEAD = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<link rel="icon" href="data:,">
<title>vask-meter report</title>
<style>
body { font: 16px/1.5 system-ui, sans-serif; color: #1a1a1a; background: #fff; max-width: 60rem;
       margin: 0 auto; padding: 1rem; }
h1 { font-size: 1.6rem; margin: 0; }
h2 { font-size: 1.2rem; margin: 2rem 0 .5rem; border-top: 1px solid #ccc; padding-top: 1rem; }
p { margin: .25rem 0 .75rem; }
.scroll { overflow-x: auto; }
table { border-collapse: collapse; font-variant-numeric: tabular-nums; }
th, td { padding: .2rem .8rem .2rem 0; text-align: right; white-space: nowrap; }
th { font-weight: 600; border-bottom: 1px solid #999; }
th:first-child, td:first-child { text-align: left; }
tr.green td:first-child::before, tr.yellow td:first-child::before, tr.red td:first-child::before {
       content: ""; display: inline-block; width: .7em; height: .7em; margin-right: .4em; }
tr.green td:first-child::before { background: #2e8b57; }
tr.yellow td:first-child::before { background: #e8b500; }
tr.red td:first-child::before { background: #c8332b; }
svg { width: 100%; min-width: 32rem; height: auto; display: block; margin: .5rem 0; }
.note { color: #8a4b00; }
@media print { body { max-width: none; padding: 0; } section { break-inside: avoid; } }
</style>
</head>
<body>
)";

std::string
escaped(const std::string &text)
{
	std::string out;
	for (const char c : text) {
		if (c == '&')
			out += "&amp;";
		else if (c == '<')
			out += "&lt;";
		else if (c == '>')
			out += "&gt;";
		else
			out += c;
	}
	return out;
}

/* What a chart counts: Mbit/s and KiB, or packets. */
struct chart_units {
	const char *rate, *level;
	double rate_scale, level_scale; /* of bytes/s and bytes, or packets/s and packets */
};

chart_units
units_of(const profile_config &p)
{
	if (p.packet_mode)
		return {"packets/s", "packets", 1, 1};
	return {"Mbit/s", "KiB", 8e-6, 1.0 / 1024};
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
rates_between(
	const profile_config &p, const meter_stats &from, const meter_stats &to, double seconds)
{
	const auto rate = [&](uint64_t before, uint64_t after) {
		return seconds > 0
			? static_cast<double>(after - before) / seconds * units_of(p).rate_scale
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
rate_data(const replay_result &result, size_t index, const profile_config &p)
{
	const std::vector<replay_sample> &samples = result.samples;
	const size_t step = (samples.size() + RATE_BARS - 1) / RATE_BARS;
	std::string out = "$d << EOD\n", rates;
	meter_stats before = {};
	uint64_t start = result.first_ns;

	for (size_t i = std::min(step, samples.size()) - 1;;
		i = std::min(i + step, samples.size() - 1)) {
		const replay_sample &s = samples[i];
		rates = rates_between(
			p, before, s.meters[index], static_cast<double>(s.time_ns - start) / 1e9);
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
level_data(const replay_result &result, size_t index, const profile_config &p)
{
	const double scale = units_of(p).level_scale;
	std::string out = "$d << EOD\n";

	for (const replay_sample &s : result.samples)
		out += fmt::format("{:.6f} {:.3f} {:.3f}\n",
			static_cast<double>(s.time_ns - result.first_ns) / 1e9,
			static_cast<double>(s.meters[index].level_c) * scale,
			static_cast<double>(s.meters[index].level_e) * scale);
	return out + "EOD\n";
}

const char *const AXES =
	"set border 3\nset tics nomirror out\nset grid ytics lc rgb '#dddddd' lw 1\n"
	"set key outside top center horizontal\nset xlabel 'seconds'\nset yrange [0:*]\n";

std::string
rate_chart(const std::string &data, const replay_result &result, const profile_config &p)
{
	const chart_units units = units_of(p);
	const quantity_kind kind = p.packet_mode ? quantity_kind::PACKET_RATE : quantity_kind::RATE;
	const double held =
		static_cast<double>(card_engine_effective(kind, p.cir)) * units.rate_scale;

	return data + AXES +
		fmt::format(
			"set ylabel '{}'\nset xrange [0:{:.6f}]\n"
			"set style fill solid 1.0 noborder\n"
			"plot $d using 1:($2+$3+$4) with fillsteps lc rgb '#c8332b' title 'red', "
			"$d using 1:($2+$3) with fillsteps lc rgb '#e8b500' title 'yellow', "
			"$d using 1:2 with fillsteps lc rgb '#2e8b57' title 'green', "
			"$d using 1:5 with steps lc rgb '#000000' lw 1.5 title 'came through', "
			"{:.6f} with lines lc rgb '#1f4e9c' dt 2 lw 1.5 title 'committed rate'\n",
			units.rate, std::max(result.seconds(), 1e-6), held);
}

std::string
level_chart(const std::string &data, const replay_result &result, const profile_config &p)
{
	return data + AXES +
		fmt::format(
			"set ylabel '{}'\nset xrange [0:{:.6f}]\n"
			"plot $d using 1:2 with lines lc rgb '#2e8b57' lw 1.5 title 'committed bucket', "
			"$d using 1:3 with lines lc rgb '#e8b500' lw 1.5 title '{} bucket'\n",
			units_of(p).level, std::max(result.seconds(), 1e-6),
			p.algorithm == RTE_MTR_TRTCM_RFC2698 ? "peak" : "excess");
}

std::string
row(const char *name, uint64_t packets, uint64_t bytes, const std::string &rate)
{
	return fmt::format(
		"<tr class=\"{0}\"><td>{0}</td><td>{1}</td><td>{2}</td><td>{3}</td></tr>\n", name,
		packets, bytes, rate);
}

std::string
meter_section(const meters_config &config, const metered &m, const replay_result &result,
	const std::string &rates, const std::string &levels)
{
	static const char *const colours[] = {"green", "yellow", "red"};
	const profile_config &p = *config.profile(m.meter.profile);
	const quantity_kind kind = p.packet_mode ? quantity_kind::PACKET_RATE : quantity_kind::RATE;
	const auto line = [&](const char *name, uint64_t packets, uint64_t bytes) {
		return row(name, packets, bytes, result_rate(p, packets, bytes, result));
	};

	std::string out = fmt::format(
		"<section>\n<h2>Meter {}: port {} {}</h2>\n<p>Profile {}, {}; policy {}. Committed rate: asked "
		"{}, the card holds {}. {} packets had their DSCP rewritten.</p>\n<div class=\"scroll\"><table>\n"
		"<tr><th></th><th>packets</th><th>bytes</th><th>rate</th></tr>\n",
		m.meter.id, m.meter.port, m.egress ? "transmit" : "receive", p.id,
		algorithm_name(p.algorithm), m.meter.policy, format_quantity(kind, p.cir),
		format_quantity(kind, card_engine_effective(kind, p.cir)),
		m.stats.n_pkts_rewritten);
	out += line("offered", m.offered_packets(), m.offered_bytes());
	for (size_t c = 0; c < RTE_COLORS; c++)
		out += line(colours[c], m.stats.n_pkts[c], m.stats.n_bytes[c]);
	out += line("dropped", m.stats.n_pkts_dropped, m.stats.n_bytes_dropped);
	out += line("came through", m.passed_packets(), m.passed_bytes());
	const char *const chart = "<h3>{}</h3>\n<div class=\"scroll\">{}</div>\n";
	return out + "</table></div>\n" +
		fmt::format(
			fmt::runtime(chart), "Offered, by colour, and what came through", rates) +
		fmt::format(fmt::runtime(chart), "Bucket levels", levels) + "</section>\n";
}

std::string
profiles_section(const meters_config &config)
{
	std::string out =
		"<section>\n<h2>Profiles</h2>\n<div class=\"scroll\"><table>\n<tr><th>profile</th>"
		"<th></th><th>asked</th><th>the card holds</th></tr>\n";
	for (const profile_config &p : config.profiles)
		for (const profile_value &v : profile_values(p)) {
			const card_field field = card_fields(v.kind, v.value).front();
			const std::string warning = card_field_warning(field);
			out += fmt::format(
				"<tr><td>{} {}</td><td>{}</td><td>{}</td><td>{}{}</td></tr>\n",
				p.id, algorithm_name(p.algorithm), v.name,
				format_quantity(v.kind, v.value),
				format_quantity(v.kind, field.effective),
				warning.empty() ? ""
						: " <span class=\"note\">" + warning + "</span>");
		}
	return out + "</table></div>\n</section>\n";
}
} // namespace

std::string
result_html(const meters_config &config, const replay_result &result, const std::string &capture)
{
	std::vector<std::string> scripts;
	for (size_t i = 0; i < result.meters.size(); i++) {
		const profile_config &p = *config.profile(result.meters[i].meter.profile);
		scripts.push_back(rate_chart(rate_data(result, i, p), result, p));
		scripts.push_back(level_chart(level_data(result, i, p), result, p));
	}
	const std::vector<std::string> charts = gnuplot_svgs(scripts);

	std::string out = HEAD;
	out += fmt::format(
		"<h1>{} through {}</h1>\n<p>{} packets, {} bytes in {:.6f} s; {} packets, {} bytes "
		"left. Programmed through {}, shapers {}.</p>\n",
		escaped(capture), escaped(config.path), result.packets, result.bytes,
		result.seconds(), result.left_packets, result.left_bytes,
		config.p4 ? "the P4 tables" : "rte_mtr", config.enforce ? "enforced" : "observed");
	if (config.enforce)
		out += fmt::format("<p>Shapers delayed {} packets, by {:.6f} s at most.</p>\n",
			result.delayed_packets, static_cast<double>(result.longest_delay_ns) / 1e9);
	for (const auto &[cause, packets] : result.drops)
		out += fmt::format("<p>{}: {}</p>\n", escaped(cause), packets);
	out += profiles_section(config);
	for (size_t i = 0; i < result.meters.size(); i++)
		out += meter_section(
			config, result.meters[i], result, charts[2 * i], charts[2 * i + 1]);
	return out + "</body>\n</html>\n";
}
