/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_COMMAND_H
#define VASK_METER_COMMAND_H

/**
 * @file
 * The program's commands. Each adds itself, with its options and its help, and runs from its callback; it
 * throws vask_meter_error when it cannot do what was asked.
 */

#include <CLI/CLI.hpp>

void add_replay_command(CLI::App &app);
void add_testpmd_command(CLI::App &app);
void add_tune_command(CLI::App &app);
void add_units_command(CLI::App &app);
void add_p4_command(CLI::App &app);
void add_watch_command(CLI::App &app);

#endif /* VASK_METER_COMMAND_H */
