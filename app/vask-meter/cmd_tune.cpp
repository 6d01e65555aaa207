/* SPDX-License-Identifier: BSD-3-Clause */
#include <charconv>
#include <cstdio>
#include <span>

#include "capture.h"
#include "command.h"
#include "error.h"
#include "quantity.h"
#include "tune.h"

namespace
{
tune_options options;
std::string algorithm = "rfc2697", loss = "0.1%", csv;

/* Bursts that are tried: 2 KiB to 1 MiB, or 1 to 512 packets. */
constexpr uint32_t BURSTS_BYTES[] = {2, 4, 8, 16, 32, 64, 128, 256, 512, 1024};
constexpr uint32_t BURSTS_PACKETS[] = {1, 2, 4, 8, 16, 32, 64, 128, 256, 512};
/* Rates that are tried, in percent of the traffic's mean. */
constexpr uint32_t RATES_PERCENT[] = {50, 75, 90, 100, 110, 125, 150, 200, 300, 400};

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

std::string
rate_text(uint32_t units)
{
	return options.packet_mode ? format_quantity(quantity_kind::PACKET_RATE, units)
				   : format_quantity(quantity_kind::RATE, uint64_t{units} * 8000);
}

std::string
burst_text(uint32_t units)
{
	return options.packet_mode ? format_quantity(quantity_kind::PACKETS, units)
				   : format_quantity(quantity_kind::BURST, uint64_t{units} * 1024);
}

/* "12.3/4.5/83.2": percent of packets green, yellow and red. */
std::string
shares_text(const std::array<uint64_t, RTE_COLORS> &counts, size_t packets)
{
	const auto percent = [packets](uint64_t n) {
		return 100 * static_cast<double>(n) / static_cast<double>(packets);
	};
	return fmt::format("{:.1f}/{:.1f}/{:.1f}", percent(counts[RTE_COLOR_GREEN]),
		percent(counts[RTE_COLOR_YELLOW]), percent(counts[RTE_COLOR_RED]));
}

void
print_sweep(
	const std::vector<tune_packet> &packets, std::span<const uint32_t> bursts, uint32_t mean)
{
	std::string lines = "rate,burst,green_packets,yellow_packets,red_packets\n";

	fmt::print(
		"\npackets green/yellow/red in percent, by committed rate (down) and burst (across)\n"
		"{:>14}",
		"");
	/* every other burst: all of them would not fit a terminal */
	for (size_t i = 0; i < bursts.size(); i += 2)
		fmt::print("{:>17}", burst_text(bursts[i]));
	for (const uint32_t percent : RATES_PERCENT) {
		const auto rate = static_cast<uint32_t>(
			std::max<uint64_t>(1, uint64_t{mean} * percent / 100));
		fmt::print("\n{:>14}", rate_text(rate));
		for (size_t i = 0; i < bursts.size(); i++) {
			const uint32_t burst = bursts[i];
			const auto counts = tune_color_counts(packets, options, rate, burst);
			if (i % 2 == 0)
				fmt::print("{:>17}", shares_text(counts, packets.size()));
			lines += fmt::format("{},{},{},{},{}\n",
				uint64_t{rate} * (options.packet_mode ? 1 : 8000),
				uint64_t{burst} * (options.packet_mode ? 1 : 1024),
				counts[RTE_COLOR_GREEN], counts[RTE_COLOR_YELLOW],
				counts[RTE_COLOR_RED]);
		}
	}
	fmt::print("\n");
	if (!csv.empty()) {
		write_whole_file(csv, lines);
		fmt::print("wrote {}\n", csv);
	}
}

void
print_smallest(const std::vector<tune_packet> &packets, std::span<const uint32_t> bursts)
{
	fmt::print("\nsmallest committed rate that keeps the loss within {}, by burst\n", loss);
	fmt::print("{:>14}{:>16}{:>20}\n", "burst", "rate", "green/yellow/red");
	for (const uint32_t burst : bursts) {
		const uint32_t rate = tune_rate(packets, options, burst);
		if (rate == 0)
			fmt::print("{:>14}{:>16}\n", burst_text(burst), "none");
		else
			fmt::print("{:>14}{:>16}{:>20}\n", burst_text(burst), rate_text(rate),
				shares_text(tune_color_counts(packets, options, rate, burst),
					packets.size()));
	}
}

void
run()
{
	options.algorithm = algorithm_of(algorithm);
	options.loss = share_of(loss);
	const std::vector<tune_packet> packets = tune_read(options);
	const uint32_t mean = tune_mean_rate(packets, options.packet_mode);
	const std::span<const uint32_t> bursts =
		options.packet_mode ? std::span(BURSTS_PACKETS) : std::span(BURSTS_BYTES);

	fmt::print("{} packets, mean rate {}, {}, excess {} %\n", packets.size(), rate_text(mean),
		algorithm, options.excess_percent);
	print_sweep(packets, bursts, mean);
	print_smallest(packets, bursts);
}
} // namespace

void
add_tune_command(CLI::App &app)
{
	CLI::App *tune = app.add_subcommand(
		"tune", "Which committed rate and burst a capture's traffic needs");

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
	tune->add_option("--csv", csv, "the sweep, a line for each rate and burst");
	tune->footer(
		"Example:\n  vask-meter tune tests/data/iperf3.pcap --filter 'udp port 5203' --loss 1%\n");
	tune->callback(run);
}
