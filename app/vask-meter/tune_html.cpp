/* SPDX-License-Identifier: BSD-3-Clause */
#include "tune_html.h"

#include <algorithm>
#include <filesystem>

#include <fmt/format.h>

#include "html_page.h"

namespace
{
constexpr double LINEAR_SPAN =
	50; /* bars of rates further apart would not be seen beside each other */

/* What the charts count rates in. */
struct rate_axis {
	const char *unit;
	double scale; /* of bytes/s, or packets/s */
	int decimals; /* that a unit of the card needs */
};

rate_axis
rate_axis_of(const tune_options &options, const tune_result &result)
{
	const uint64_t bits = 8 * tune_rate_value(options, result.rates.back());
	if (options.packet_mode)
		return {"packets/s", 1, 0};
	if (bits >= 1000000000)
		return {"Gbit/s", 8e-9, 6};
	if (bits >= 1000000)
		return {"Mbit/s", 8e-6, 3};
	return {"kbit/s", 8e-3, 0};
}

double
on_axis(const tune_options &options, const rate_axis &axis, uint32_t rate)
{
	return static_cast<double>(tune_rate_value(options, rate)) * axis.scale;
}

std::string
number_on_axis(const tune_options &options, const rate_axis &axis, uint32_t rate)
{
	return fmt::format("{:.{}f}", on_axis(options, axis, rate), axis.decimals);
}

/* About each doubling of the rates that were tried. */
std::string
rate_ticks(const tune_options &options, const tune_result &result, const rate_axis &axis)
{
	std::string ticks;
	uint32_t last = 0;

	for (const uint32_t rate : result.rates)
		if (rate >= 2 * last) {
			ticks += fmt::format("{}'{}' {:.6f}", last == 0 ? "" : ", ",
				number_on_axis(options, axis, rate), on_axis(options, axis, rate));
			last = rate;
		}
	return ticks;
}

bool
within(const tune_options &options, const tune_result &result, const tune_point &point)
{
	return static_cast<double>(point.counts[RTE_COLOR_RED]) <=
		options.loss * static_cast<double>(result.packets);
}

/* A bar for each burst. */
html_chart
smallest_chart(const tune_options &options, const tune_result &result, const rate_axis &axis)
{
	std::string data = "$d << EOD\n", ticks, scale;
	double least = on_axis(options, axis, result.mean), most = least;

	for (size_t i = 0; i < result.smallest.size(); i++) {
		const tune_point &point = result.smallest[i];
		const double rate = on_axis(options, axis, point.rate);
		data += fmt::format("{} {:.6f}\n", i, rate);
		most = std::max(most, rate);
		if (rate > 0)
			least = std::min(least, rate);
		/* every other one: all of them would not fit a phone */
		if (i % 2 == 0)
			ticks += fmt::format("{}'{}' {}", i == 0 ? "" : ", ", point.burst, i);
	}
	const bool wide = most > LINEAR_SPAN * least;
	if (wide)
		scale = fmt::format("set logscale y\nset yrange [{:.6f}:*]\n", least / 2);
	return {fmt::format("Smallest committed rate, in {}, by burst{}", axis.unit,
			wide ? ", on a logarithmic scale" : ""),
		data + "EOD\n" + HTML_CHART_AXES + scale +
			fmt::format(
				"set xtics ({}) scale 0 offset 0,0.4\nset xrange [-0.6:{}]\nset xlabel 'burst, {}' offset 0,0.8\n"
				"set ylabel '{}'\nset style fill solid 1.0 noborder\nset boxwidth 0.7\n"
				"plot $d using 1:2 with boxes lc rgb '{}', "
				"{:.6f} with lines lc rgb '{}' lw 1.5 dt 2\n",
				ticks, static_cast<double>(result.smallest.size()) - 0.4,
				options.packet_mode ? "packets" : "KiB", axis.unit, HTML_LINE_1,
				on_axis(options, axis, result.mean), HTML_LINE_2),
		{{"box c1", "rate"}, {"dashes c2", "mean rate of the traffic"}}, false};
}

/* Shares by rate, with one burst; a line where the smallest rate that keeps the loss is. */
html_chart
share_panel(
	const tune_options &options, const tune_result &result, const rate_axis &axis, size_t burst)
{
	const tune_point &smallest = result.smallest[burst];
	const double first = on_axis(options, axis, result.rates.front());
	const double last =
		std::max(on_axis(options, axis, result.rates.back()), first + axis.scale);
	const double rate = on_axis(options, axis, smallest.rate);
	std::string data = "$d << EOD\n", mark;

	for (size_t r = 0; r < result.rates.size(); r++) {
		const tune_point &point = result.sweep[r * result.bursts.size() + burst];
		const auto percent = [&](rte_color c) {
			return 100 * static_cast<double>(point.counts[c]) /
				static_cast<double>(result.packets);
		};
		data += fmt::format("{:.6f} {:.4f} {:.4f}\n", on_axis(options, axis, point.rate),
			percent(RTE_COLOR_GREEN),
			percent(RTE_COLOR_GREEN) + percent(RTE_COLOR_YELLOW));
	}
	if (smallest.rate != 0 && rate >= first && rate <= last)
		mark = fmt::format(
			"set arrow from {0:.6f},0 to {0:.6f},100 nohead front lc rgb '{1}' "
			"lw 2 dt 2\n",
			rate, HTML_LINE);
	return {fmt::format("Burst {}", tune_burst_text(options, smallest.burst)),
		data + "EOD\n" + HTML_CHART_AXES + mark +
			fmt::format("set lmargin at screen 0.16\nset rmargin at screen 0.93\n"
				    "set tmargin at screen 0.92\nset bmargin at screen 0.34\n"
				    "set xlabel 'committed rate, {}'\nset logscale x 2\n"
				    "set xrange [{:.6f}:{:.6f}]\nset xtics ({})\n"
				    "set yrange [0:100]\nset ytics 25\n"
				    "plot $d using 1:(100) with filledcurves y=0 lc rgb '{}', "
				    "$d using 1:3 with filledcurves y=0 lc rgb '{}', "
				    "$d using 1:2 with filledcurves y=0 lc rgb '{}'\n",
				axis.unit, first, last, rate_ticks(options, result, axis),
				HTML_COLOURS[RTE_COLOR_RED], HTML_COLOURS[RTE_COLOR_YELLOW],
				HTML_COLOURS[RTE_COLOR_GREEN]),
		{}, true};
}

std::string
share_cells(const tune_result &result, const tune_point &point)
{
	std::string cells;
	for (const uint64_t count : point.counts)
		cells += fmt::format("<td>{}</td>", html_percent(count, result.packets));
	return cells;
}

std::string
share_heads()
{
	return "<th><span class=\"mark green\"></span>green %</th><th><span class=\"mark yellow\"></span>"
	       "yellow %</th><th><span class=\"mark red\"></span>red %</th>";
}

std::string
smallest_table(const tune_options &options, const tune_result &result, const rate_axis &axis)
{
	std::string out = fmt::format("<div class=\"scroll\"><table>\n<thead><tr><th>burst</th>"
				      "<th>{}</th>{}</tr></thead>\n<tbody>\n",
		axis.unit, share_heads());
	for (const tune_point &point : result.smallest) {
		out += fmt::format("<tr><th>{}</th>", tune_burst_text(options, point.burst));
		out += point.rate == 0
			? "<td class=\"words\" colspan=\"4\">none: no rate keeps it</td>"
			: fmt::format("<td>{}</td>{}", number_on_axis(options, axis, point.rate),
				  share_cells(result, point));
		out += "</tr>\n";
	}
	return out + "</tbody></table></div>\n";
}

std::string
panel_table(
	const tune_options &options, const tune_result &result, const rate_axis &axis, size_t burst)
{
	std::string out = fmt::format("<table>\n<thead><tr><th>{}</th>{}</tr></thead>\n<tbody>\n",
		axis.unit, share_heads());
	for (size_t r = 0; r < result.rates.size(); r++) {
		const tune_point &point = result.sweep[r * result.bursts.size() + burst];
		out += fmt::format("<tr{}><th>{}</th>{}</tr>\n",
			within(options, result, point) ? " class=\"within\"" : "",
			number_on_axis(options, axis, point.rate), share_cells(result, point));
	}
	return out + "</tbody></table>\n";
}
} // namespace

std::string
tune_html(const tune_options &options, const std::string &algorithm, const std::string &loss,
	const tune_result &result)
{
	const rate_axis axis = rate_axis_of(options, result);
	std::vector<html_chart> charts = {smallest_chart(options, result, axis)};
	for (size_t i = 0; i < result.bursts.size(); i++)
		charts.push_back(share_panel(options, result, axis, i));
	const std::vector<std::string> drawn = html_charts(charts);

	std::string body = fmt::format("<p>{}: {} packets{}, mean rate {}; {}, excess {} %.</p>\n",
		html_escaped(options.capture), html_number(result.packets),
		options.filter.empty()
			? ""
			: fmt::format(" that pass “{}”", html_escaped(options.filter)),
		tune_rate_text(options, result.mean), algorithm, options.excess_percent);
	body += fmt::format(
		"<section>\n<h2>Smallest committed rate that keeps the loss within {}</h2>\n",
		html_escaped(loss));
	body += drawn[0] + smallest_table(options, result, axis) + "</section>\n";
	body += fmt::format("<section>\n<h2>Share of packets by rate and burst</h2>\n{}"
			    "<p>Bold: the loss is within {}.</p>\n<div class=\"panels\">\n",
		html_legend({{"green", "green"}, {"yellow", "yellow"}, {"red", "red"},
			{"dashes", "smallest rate, where it is in the picture"}}),
		html_escaped(loss));
	for (size_t i = 0; i < result.bursts.size(); i++)
		body += "<section>\n" + drawn[i + 1] + panel_table(options, result, axis, i) +
			"</section>\n";
	return html_page("Which committed rate and burst does " +
			std::filesystem::path(options.capture).filename().string() + " need?",
		body + "</div>\n</section>\n");
}
