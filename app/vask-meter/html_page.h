/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_HTML_PAGE_H
#define VASK_METER_HTML_PAGE_H

/**
 * @file
 * What the program's pages are made of: one style that suits a desktop, a phone, paper and the dark, and
 * charts that gnuplot draws for each of them. A page needs nothing else and runs nothing.
 */

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <rte_meter.h>

/** Fills of the packet colours, told apart by lightness too: for gnuplot, by enum rte_color. */
extern const std::array<const char *, RTE_COLORS> HTML_COLOURS;
/** Lines of a chart: limits and committed values; excess. What came through has the colour of text. */
constexpr const char *HTML_LINE_1 = "#3f7fc1", *HTML_LINE_2 = "#c2682d", *HTML_LINE = "black";

/** A page around its body. */
std::string html_page(const std::string &title, const std::string &body);

/** Text as HTML shows it. */
std::string html_escaped(const std::string &text);

/** "2,222,370" */
std::string html_number(uint64_t value);

/** "43.1", in percent; "0.0" of nothing. */
std::string html_percent(uint64_t part, uint64_t whole);

/** A bar of three colours, as long as its place, with the shares of whole in words. */
std::string html_colour_bar(const std::array<uint64_t, RTE_COLORS> &parts, uint64_t whole);

/** What a mark in a chart or a bar means. */
struct html_key {
	const char *
		mark; /* "green", "yellow", "red"; or "box", "line", "dashes", and " c1" or " c2" for HTML_LINE_1 or _2 */
	std::string text;
};

std::string html_legend(const std::vector<html_key> &keys);

/** A chart to draw: gnuplot's script without legend, and what the page says beside it. */
struct html_chart {
	std::string title, script;
	std::vector<html_key> keys;
	bool panel; /* one of many beside each other, small everywhere */
};

/**
 * The charts as elements of the page, each drawn twice unless it is a panel: for wide places and for narrow
 * ones, so that letters keep their size.
 *
 * @throws vask_meter_error when gnuplot is not there or fails.
 */
std::vector<std::string> html_charts(const std::vector<html_chart> &charts);

/** gnuplot's axes as all charts have them. */
extern const char *const HTML_CHART_AXES;

#endif /* VASK_METER_HTML_PAGE_H */
