/* SPDX-License-Identifier: BSD-3-Clause */
/* vask-meter: what would these meters do to this traffic? */

#include <cstdio>
#include <new>

#include "command.h"
#include "error.h"

static const char *const FOOTER = "Exit codes:\n"
				  "  0  done\n"
				  "  1  the system or the port refused: memory, permission, disk\n"
				  "  2  the input is wrong: options, configuration or capture\n";

static int
report(int exit_code, const char *line)
{
	fmt::print(stderr, "vask-meter: {}\n", line);
	return exit_code;
}

int
main(int argc, char **argv)
{
	CLI::App app("Meters of the vask1 card, tried on a capture and explained.", "vask-meter");
	app.require_subcommand(1);
	app.footer(FOOTER);
	app.set_version_flag("--version", VASK_METER_VERSION);

	add_replay_command(app);
	add_testpmd_command(app);
	add_tune_command(app);
	add_units_command(app);
	add_watch_command(app);
	add_p4_command(app);

	try {
		app.parse(argc, argv);
		if (std::fflush(stdout) != 0)
			fail("standard output: cannot write");
	} catch (const CLI::Success &e) { /* --help, --version */
		return app.exit(e);
	} catch (const CLI::ParseError &e) {
		return report(VASK_METER_REFUSED,
			fmt::format("{}; see vask-meter --help", e.what()).c_str());
	} catch (const vask_meter_error &e) {
		return report(e.exit_code, e.what());
	} catch (const std::bad_alloc &) {
		return report(VASK_METER_FAILED, "out of memory");
	} catch (const std::exception &e) {
		return report(VASK_METER_FAILED, e.what());
	}
	return VASK_METER_OK;
}
