/* SPDX-License-Identifier: BSD-3-Clause */
#include <cstdio>
#include <unistd.h>

#include "capture.h"
#include "command.h"
#include "error.h"
#include "replay.h"
#include "report_html.h"
#include "report_text.h"

namespace
{
replay_options options;
std::string config_path, csv, json, report;

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
	const meters_config config = config_read(config_path);

	fmt::print("{}{}", profiles_text(config), remarks_text(config));
	if (std::fflush(stdout) != 0)
		fail("standard output: cannot write");
	options.samples = !report.empty();
	const replay_result result = replay_with_bar(config);

	fmt::print("\n{}", result_text(config, result));
	if (!csv.empty())
		write_whole_file(csv, result_csv(config, result));
	if (!json.empty())
		write_whole_file(json, result_json(config, result));
	if (!report.empty())
		write_whole_file(report, result_html(config, result, options.capture));
	for (const std::string &path : {options.out, options.packets, csv, json, report})
		if (!path.empty())
			fmt::print("wrote {}\n", path);
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
	replay->add_option("-o,--out", options.out, "the packets as they leave, a capture");
	replay->add_option("--csv", csv, "a line for each meter");
	replay->add_option("--json", json, "the whole result");
	replay->add_option("--packets", options.packets,
		"a line for each packet: its meters, their colours, and when it left");
	replay->add_option(
		"--report", report, "a page with charts of rates by colour and bucket levels");
	replay->add_flag("--verbose", options.verbose, "let DPDK and the driver log");
	replay->footer(
		"Example:\n  vask-meter replay examples/metered-port.cfg tests/data/iperf3.pcap "
		"-o out.pcap\n");
	replay->callback(run);
}
