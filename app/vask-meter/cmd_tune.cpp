/* SPDX-License-Identifier: BSD-3-Clause */
#include <charconv>
#include <cstdio>
#include <optional>

#include "command.h"
#include "error.h"
#include "interrupt.h"
#include "output_file.h"
#include "tune.h"
#include "tune_html.h"

namespace
{
tune_options options;
std::string algorithm, loss, csv_path, report_path;

enum rte_mtr_algorithm
algorithm_of(const std::string &name)
{
	if (name == "rfc2697")
		return RTE_MTR_SRTCM_RFC2697;
	if (name == "rfc2698")
		return RTE_MTR_TRTCM_RFC2698;
	if (name == "rfc4115")
		return RTE_MTR_TRTCM_RFC4115;
	refuse("--algorithm \"{}\": accepted are rfc2697, rfc2698, rfc4115", name);
}

double
share_of(const std::string &text)
{
	double percent = 0;
	const char *last = text.data() + text.size() - (text.ends_with('%') ? 1 : 0);
	const auto [end, failure] = std::from_chars(text.data(), last, percent);

	if (!text.ends_with('%') || failure != std::errc() || end != last ||
		!(percent >= 0 && percent <= 100))
		refuse("--loss \"{}\": accepted is a share of the packets from 0% to 100%", text);
	return percent / 100;
}

/* "12.3/4.5/83.2": percent of packets green, yellow and red. */
std::string
shares_text(const tune_point &point, uint64_t packets)
{
	const auto percent = [packets](uint64_t n) {
		return 100 * static_cast<double>(n) / static_cast<double>(packets);
	};
	return fmt::format("{:.1f}/{:.1f}/{:.1f}", percent(point.counts[RTE_COLOR_GREEN]),
		percent(point.counts[RTE_COLOR_YELLOW]), percent(point.counts[RTE_COLOR_RED]));
}

void
print_sweep(const tune_result &result)
{
	fmt::print(
		"\npackets green/yellow/red in percent, by committed rate (down) and burst (across)\n"
		"{:>14}",
		"");
	/* every other burst: all of them would not fit a terminal */
	for (size_t i = 0; i < result.bursts.size(); i += 2)
		fmt::print("{:>17}", tune_burst_text(options, result.bursts[i]));
	for (size_t r = 0; r < result.rates.size(); r++) {
		fmt::print("\n{:>14}", tune_rate_text(options, result.rates[r]));
		for (size_t i = 0; i < result.bursts.size(); i += 2)
			fmt::print("{:>17}",
				shares_text(result.sweep[r * result.bursts.size() + i],
					result.packets));
	}
	fmt::print("\n");
}

void
print_smallest(const tune_result &result)
{
	fmt::print("\nsmallest committed rate that keeps the loss within {}, by burst\n", loss);
	fmt::print("{:>14}{:>16}{:>20}\n", "burst", "rate", "green/yellow/red");
	for (const tune_point &point : result.smallest)
		if (point.rate == 0)
			fmt::print("{:>14}{:>16}\n", tune_burst_text(options, point.burst), "none");
		else
			fmt::print("{:>14}{:>16}{:>20}\n", tune_burst_text(options, point.burst),
				tune_rate_text(options, point.rate),
				shares_text(point, result.packets));
}

std::string
sweep_csv(const tune_result &result)
{
	std::string lines = "rate,burst,green_packets,yellow_packets,red_packets\n";

	for (const tune_point &point : result.sweep)
		lines += fmt::format("{},{},{},{},{}\n", tune_rate_value(options, point.rate),
			tune_burst_value(options, point.burst), point.counts[RTE_COLOR_GREEN],
			point.counts[RTE_COLOR_YELLOW], point.counts[RTE_COLOR_RED]);
	return lines;
}

void
run()
{
	check_distinct(
		{{"CAPTURE", options.capture}, {"--csv", csv_path}, {"--report", report_path}});
	options.algorithm = algorithm_of(algorithm);
	options.loss = share_of(loss);
	const interrupt_guard signals;
	std::optional<output_file> csv, report;
	if (!csv_path.empty())
		csv.emplace(csv_path);
	if (!report_path.empty())
		report.emplace(report_path);
	const tune_result result = tune_run(tune_read(options), options);

	fmt::print("{} packets, mean rate {}, {}, excess {} %\n", result.packets,
		tune_rate_text(options, result.mean), algorithm, options.excess_percent);
	print_sweep(result);
	print_smallest(result);
	if (csv)
		csv->write(sweep_csv(result));
	if (report)
		report->write(tune_html(options, algorithm, loss, result));
	stop_if_interrupted();
	commit_outputs({csv ? &*csv : nullptr, report ? &*report : nullptr});
}
} // namespace

void
add_tune_command(CLI::App &app)
{
	CLI::App *tune = app.add_subcommand(
		"tune", "Which committed rate and burst a capture's traffic needs");
	algorithm = "rfc2697";
	loss = "0.1%";

	tune->add_option("CAPTURE", options.capture, "Ethernet frames, pcap or pcapng")->required();
	tune->add_option(
		"--filter", options.filter, "only the packets that pass, as pcap-filter(7) says");
	tune->add_option("--loss", loss, "share of the packets that may be red, say 0.1%")
		->capture_default_str();
	tune->add_option("--algorithm", algorithm, "rfc2697, rfc2698 or rfc4115")
		->capture_default_str();
	tune->add_flag("--packets", options.packet_mode, "count packets, not bytes");
	options.excess_percent = 100;
	tune->add_option("--excess", options.excess_percent,
		    "excess rate and burst in percent of the committed ones; with rfc2698 the peak is that "
		    "much above them")
		->check(CLI::Range(0, 1000))
		->capture_default_str();
	add_output(*tune, "--csv", csv_path, "the sweep, a line for each rate and burst");
	add_output(
		*tune, "--report", report_path, "a page with charts of the sweep; needs gnuplot");
	set_footer(
		*tune, "vask-meter tune tests/data/iperf3.pcap --filter 'udp port 5203' --loss 1%");
	tune->callback(run);
}
