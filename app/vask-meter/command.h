/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_COMMAND_H
#define VASK_METER_COMMAND_H

/**
 * @file
 * The program's commands. Each adds itself, with its options and its help, and runs from its callback; it
 * throws vask_meter_error when it cannot do what was asked.
 */

#include <CLI/CLI.hpp>

/** What --help ends with: notes if any, an example for a shell, and the exit codes. */
void set_footer(CLI::App &command, const std::string &example, const std::string &notes = "");

/** An option for the path of a file to write. */
CLI::Option *add_output(CLI::App &command, const std::string &names, std::string &path,
	const std::string &description);

void add_replay_command(CLI::App &app);
void add_testpmd_command(CLI::App &app);
void add_tune_command(CLI::App &app);
void add_units_command(CLI::App &app);
void add_p4_command(CLI::App &app);
void add_watch_command(CLI::App &app);

#endif /* VASK_METER_COMMAND_H */
