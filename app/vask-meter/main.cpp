/* SPDX-License-Identifier: BSD-3-Clause */
/* vask-meter: what would these meters do to this traffic? */

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <new>

#include <fcntl.h>
#include <unistd.h>

#include "command.h"
#include "error.h"
#include "output_file.h"

namespace
{
int
report(int exit_code, const std::string &line)
{
	std::fprintf(stderr, "vask-meter: %s\n", one_line(line).c_str());
	return exit_code;
}

/* The command that was meant, as one types it to see its help. */
std::string
name_of_command(const CLI::App &app)
{
	for (const CLI::App *command : app.get_subcommands())
		return app.get_name() + " " + name_of_command(*command);
	return app.get_name();
}

/* The command that was named last: vask-meter itself, p4, p4 encode. */
const CLI::App &
last_command(const CLI::App &app)
{
	const std::vector<CLI::App *> named = app.get_subcommands();
	return named.empty() ? app : last_command(*named.front());
}

/* CLI11 says what is wrong, but not which commands there are. */
std::string
parse_error(const CLI::App &app, const CLI::ParseError &e)
{
	const CLI::App &command = last_command(app);
	std::string accepted;
	for (const CLI::App *sub : command.get_subcommands([](const CLI::App *) { return true; }))
		accepted += (accepted.empty() ? "" : ", ") + sub->get_name();
	if (accepted.empty())
		return fmt::format("{}; see {} --help", e.what(), name_of_command(app));

	const std::vector<std::string> words = app.remaining(true);
	return words.empty()
		? fmt::format("a command is missing; accepted are {}", accepted)
		: fmt::format("\"{}\": unknown command; accepted are {}", words.front(), accepted);
}

/* A descriptor that a shell closed would be given to the next file that is opened, and be printed to. */
void
keep_standard_descriptors()
{
	for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
		if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", O_RDONLY) != fd)
			std::abort();
}

void
add_commands(CLI::App &app)
{
	app.require_subcommand(1);
	app.set_version_flag("--version", VASK_METER_VERSION);
	set_footer(app, "vask-meter units 10Mbit/s 64KiB");
	add_replay_command(app);
	add_testpmd_command(app);
	add_tune_command(app);
	add_units_command(app);
	add_watch_command(app);
	add_p4_command(app);
}

int
run(int argc, char **argv)
{
	CLI::App app("Meters of the vask1 card, tried on a capture and explained.", "vask-meter");
	try {
		add_commands(app);
		try {
			app.parse(argc, argv);
		} catch (const CLI::Success &e) { /* --help, --version */
			app.exit(e);
			if (!std::cout.flush())
				fail("standard output: cannot be written: {}",
					std::strerror(errno));
		}
		flush_standard_output();
	} catch (const CLI::ParseError &e) {
		return report(VASK_METER_REFUSED, parse_error(app, e));
	} catch (const vask_meter_error &e) {
		return report(e.exit_code, e.what());
	} catch (const std::bad_alloc &) {
		return report(VASK_METER_FAILED, "out of memory");
	} catch (const std::exception &e) {
		return report(VASK_METER_FAILED, e.what());
	}
	return VASK_METER_OK;
}
} // namespace

int
main(int argc, char **argv)
{
	keep_standard_descriptors();
	/* a reader that went away is a failed write, after which nothing half-written stays */
	std::signal(SIGPIPE, SIG_IGN);

	try {
		return run(argc, argv);
	} catch (...) { /* before the first command, or on the way to tell an error */
		std::fputs("vask-meter: out of memory\n", stderr);
		return VASK_METER_FAILED;
	}
}
