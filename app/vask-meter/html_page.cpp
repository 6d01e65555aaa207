/* SPDX-License-Identifier: BSD-3-Clause */
#include "html_page.h"

#include <locale>

#include <fmt/format.h>

#include "gnuplot.h"

/* in light and in dark, and told apart by lightness where hues are not; the style below has them too */
const std::array<const char *, RTE_COLORS> HTML_COLOURS = {"#2f9e78", "#f2c84b", "#b83a50"};

const char *const HTML_CHART_AXES =
	"set border 3\nset tics nomirror out scale 0.6\nset xtics offset 0,0.4\nset xlabel offset 0,0.8\nset grid ytics lc rgb '#888888' lw 0.5\nunset key\nset format '%.7g'\n"
	"set yrange [0:*]\n";

namespace
{
constexpr unsigned int WIDE_WIDTH = 860, WIDE_HEIGHT = 280;
constexpr unsigned int NARROW_WIDTH = 350, NARROW_HEIGHT = 230;
constexpr unsigned int PANEL_WIDTH = 300, PANEL_HEIGHT = 170;

const char *const STYLE = R"(
:root { color-scheme: light dark; --text: #1a1a1a; --page: #fff; --rule: #c8c8c8; --note: #8a4b00;
        --green: #2f9e78; --yellow: #f2c84b; --red: #b83a50; --line1: #3f7fc1; --line2: #c2682d; }
* { box-sizing: border-box; }
body { font: 16px/1.5 system-ui, sans-serif; color: var(--text); background: var(--page);
       max-width: 58rem; margin: 0 auto; padding: 1rem; overflow-wrap: anywhere; }
h1 { font-size: 1.6rem; line-height: 1.25; margin: 0 0 .5rem; }
h2 { font-size: 1.25rem; margin: 2rem 0 .5rem; border-top: 1px solid var(--rule); padding-top: 1rem; }
h3 { font-size: 1rem; margin: 1.25rem 0 .25rem; }
p { margin: .25rem 0 .75rem; }
a { color: inherit; }
.scroll { overflow-x: auto; }
table { border-collapse: collapse; font-variant-numeric: tabular-nums; margin: .5rem 0; }
th, td { padding: .2rem 0 .2rem 1.1rem; text-align: right; white-space: nowrap; }
th { font-weight: 600; }
thead th { border-bottom: 1px solid var(--rule); vertical-align: bottom; }
th:first-child, td:first-child { text-align: left; padding-left: 0; }
tbody th { font-weight: 400; }
tr.first > * { border-top: 1px solid var(--rule); }
td.words { text-align: left; white-space: normal; color: var(--note); }
tr.within { font-weight: 600; }
.mark { display: inline-block; width: .75em; height: .75em; margin-right: .4em; }
.mark.box { background: currentColor; }
.mark.line, .mark.dashes { height: 0; width: 1.4em; vertical-align: middle; border-top: 2px solid; }
.mark.dashes { border-top-style: dashed; }
.c1 { color: var(--line1); } .c2 { color: var(--line2); }
.green { background: var(--green); } .yellow { background: var(--yellow); } .red { background: var(--red); }
.mark, .bar span { print-color-adjust: exact; -webkit-print-color-adjust: exact; }
.legend { list-style: none; display: flex; flex-wrap: wrap; gap: .1rem 1.2rem; margin: .25rem 0; padding: 0;
       font-size: .9rem; }
.bar { display: flex; height: 1.1rem; margin: .2rem 0; }
.glance { margin: .75rem 0; }
.glance p { display: flex; flex-wrap: wrap; justify-content: space-between; gap: 0 1rem; margin: 0; }
figure { margin: 0; break-inside: avoid; }
svg { width: 100%; height: auto; display: block; }
.narrow { display: none; }
.panels { display: grid; grid-template-columns: repeat(auto-fill, minmax(min(17rem, 100%), 1fr)); gap: 1.5rem; }
.panels section { break-inside: avoid; }
.panels h3 { margin: 0; }
.panels table { font-size: .8125rem; width: 100%; }
.panels th, .panels td { padding-left: .5rem; }
.panels thead .mark { display: none; }
.panels th:first-child { padding-left: 0; }
@media (max-width: 40rem) {
  table { font-size: .8125rem; }
  th, td { padding-left: .5rem; }
  thead .mark { display: none; }
  .wide { display: none; }
  .narrow { display: block; }
}
@media (prefers-color-scheme: dark) {
  :root { --text: #e4e4e4; --page: #17191c; --rule: #484c52; --note: #e8a45c; }
}
@media print {
  :root { color-scheme: light; --text: #000; --page: #fff; --rule: #999; --note: #8a4b00; }
  body { max-width: none; padding: 0; font-size: 11pt; }
  h2, h3, .legend { break-after: avoid; }
  section > p { break-after: avoid; }
  table, .glance { break-inside: avoid; }
  .wide { display: block; }
  .narrow { display: none; }
  .panels { grid-template-columns: repeat(3, 1fr); gap: .75rem 1.5rem; }
  .panels table { font-size: 8pt; }
  .panels th, .panels td { padding-top: 0; padding-bottom: 0; }
}
)";

/* "1,234" in any locale of the process. */
class thousands : public std::numpunct<char>
{
	char do_thousands_sep() const override
	{
		return ',';
	}
	std::string do_grouping() const override
	{
		return "\3";
	}
};
} // namespace

std::string
html_page(const std::string &title, const std::string &body)
{
	return fmt::format(
		"<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
		"<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
		"<link rel=\"icon\" href=\"data:,\">\n<title>{0}</title>\n<style>{1}</style>\n"
		"</head>\n<body>\n<h1>{0}</h1>\n{2}</body>\n</html>\n",
		html_escaped(title), STYLE, body);
}

std::string
html_escaped(const std::string &text)
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

std::string
html_number(uint64_t value)
{
	static const std::locale locale(std::locale::classic(), new thousands);
	return fmt::format(locale, "{:L}", value);
}

std::string
html_percent(uint64_t part, uint64_t whole)
{
	return fmt::format("{:.1f}",
		whole == 0 ? 0.0 : 100 * static_cast<double>(part) / static_cast<double>(whole));
}

std::string
html_colour_bar(const std::array<uint64_t, RTE_COLORS> &parts, uint64_t whole)
{
	static const char *const names[] = {"green", "yellow", "red"};
	std::string words, spans;

	for (size_t c = 0; c < RTE_COLORS; c++) {
		words += fmt::format(
			"{}{} {} %", c == 0 ? "" : ", ", names[c], html_percent(parts[c], whole));
		spans += fmt::format(
			"<span class=\"{}\" style=\"flex: {} 0 0\"></span>", names[c], parts[c]);
	}
	return fmt::format(
		"<div class=\"bar\" role=\"img\" aria-label=\"{0}\" title=\"{0}\">{1}</div>\n",
		words, spans);
}

std::string
html_legend(const std::vector<html_key> &keys)
{
	std::string out = "<ul class=\"legend\">";
	for (const html_key &key : keys)
		out += fmt::format(
			"<li><span class=\"mark {}\"></span>{}</li>", key.mark, key.text);
	return out + "</ul>\n";
}

std::vector<std::string>
html_charts(const std::vector<html_chart> &charts)
{
	std::vector<gnuplot_script> scripts;
	for (const html_chart &chart : charts) {
		if (chart.panel) {
			scripts.push_back({chart.script, PANEL_WIDTH, PANEL_HEIGHT});
		} else {
			scripts.push_back({chart.script, WIDE_WIDTH, WIDE_HEIGHT});
			scripts.push_back({chart.script, NARROW_WIDTH, NARROW_HEIGHT});
		}
	}
	const std::vector<std::string> svgs = gnuplot_svgs(scripts);

	std::vector<std::string> out;
	auto svg = svgs.begin();
	for (const html_chart &chart : charts) {
		std::string figure = fmt::format("<figure><h3>{}</h3>\n", chart.title);
		if (!chart.keys.empty())
			figure += html_legend(chart.keys);
		if (chart.panel) {
			figure += *svg++;
		} else {
			figure += fmt::format("<div class=\"wide\">{}</div>", *svg++);
			figure += fmt::format("<div class=\"narrow\">{}</div>", *svg++);
		}
		out.push_back(figure + "</figure>\n");
	}
	return out;
}
