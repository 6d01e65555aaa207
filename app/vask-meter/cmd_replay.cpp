/* SPDX-License-Identifier: BSD-3-Clause */
#include <cstdio>
#include <optional>
#include <unistd.h>

#include "capture.h"
#include "command.h"
#include "error.h"
#include "interrupt.h"
#include "replay.h"
#include "report_html.h"
#include "report_text.h"

namespace
{
replay_options options;
std::string config_path, out_path, packets_path, csv_path, json_path, report_path;

/* A bar on a terminal for as long as it lives; its line is empty again afterwards. */
class progress_bar
{
      public:
	~progress_bar()
	{
		if (shown_)
			fmt::print(stderr, "\r{:{}}\r", "", WIDTH + 8);
	}

	void show(uint64_t position, uint64_t size)
	{
		if (size == 0)
			return;
		position = std::min(position, size);
		const auto done = static_cast<int>(position * WIDTH / size);
		fmt::print(stderr, "\r[{:=<{}}{:{}}] {:3}%", "", done, "", WIDTH - done,
			position * 100 / size);
		shown_ = true;
	}

      private:
	static constexpr int WIDTH = 40;
	bool shown_ = false;
};

replay_result
replay_with_bar(const meters_config &config)
{
	progress_bar bar;

	if (isatty(STDERR_FILENO))
		options.progress = [&bar](uint64_t position, uint64_t size) {
			bar.show(position, size);
		};
	return replay(config, options);
}

void
run()
{
	check_distinct({{"CONFIG", config_path}, {"CAPTURE", options.capture}, {"--out", out_path},
		{"--packets", packets_path}, {"--csv", csv_path}, {"--json", json_path},
		{"--report", report_path}});
	const meters_config config = config_read(config_path);
	fmt::print("{}{}", profiles_text(config), remarks_text(config));
	flush_standard_output();

	const interrupt_guard signals;
	/* all at first, so that a place that cannot be written shows before a long replay */
	std::optional<capture_writer> out;
	std::optional<output_file> packets, csv, json, report;
	if (!out_path.empty())
		options.out = &out.emplace(out_path);
	if (!packets_path.empty())
		options.packets = &packets.emplace(packets_path);
	if (!csv_path.empty())
		csv.emplace(csv_path);
	if (!json_path.empty())
		json.emplace(json_path);
	if (!report_path.empty())
		report.emplace(report_path);
	options.samples = report.has_value();

	const replay_result result = replay_with_bar(config);
	fmt::print("\n{}", result_text(config, result));
	if (csv)
		csv->write(result_csv(config, result));
	if (json)
		json->write(result_json(config, result));
	if (report)
		report->write(result_html(config, result, options.capture));

	stop_if_interrupted();
	commit_outputs({out ? &out->file() : nullptr, packets ? &*packets : nullptr,
		csv ? &*csv : nullptr, json ? &*json : nullptr, report ? &*report : nullptr});
}
} // namespace

void
add_replay_command(CLI::App &app)
{
	CLI::App *replay =
		app.add_subcommand("replay", "What these meters do to the traffic of a capture");
	replay->option_defaults()
		->take_last(); /* a script's options can be followed by one's own */
	replay->add_option("CONFIG", config_path, "profiles, policies, meters and flow rules")
		->required();
	replay->add_option("CAPTURE", options.capture, "Ethernet frames, pcap or pcapng")
		->required();
	add_output(*replay, "-o,--out", out_path, "the packets as they leave, a capture");
	add_output(*replay, "--csv", csv_path, "a line for each meter");
	add_output(*replay, "--json", json_path, "the whole result");
	add_output(*replay, "--packets", packets_path,
		"a line for each packet: its meters, their colours, and when it left");
	add_output(*replay, "--report", report_path,
		"a page with charts of rates by colour and bucket levels");
	replay->add_flag("--verbose", options.verbose, "let DPDK and the driver log");
	set_footer(*replay,
		"vask-meter replay examples/metered-port.cfg tests/data/iperf3.pcap --report report.html");
	replay->callback(run);
}
