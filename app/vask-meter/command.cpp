/* SPDX-License-Identifier: BSD-3-Clause */
#include "command.h"

#include <fmt/format.h>

void
set_footer(CLI::App &command, const std::string &example, const std::string &notes)
{
	command.footer(fmt::format(
		"{}{}Example:\n  {}\n\nExit codes:\n"
		"  0  done\n"
		"  1  the system or the port refused: memory, permission, disk, a call that "
		"the card refuses\n"
		"  2  the input is wrong: options, configuration or capture\n",
		notes, notes.empty() ? "" : "\n\n", example));
}

CLI::Option *
add_output(CLI::App &command, const std::string &names, std::string &path,
	const std::string &description)
{
	return command.add_option(names, path, description)
		->check(
			[](const std::string &text) {
				return text.empty()
					? "the path is empty; accepted is the path of a file"
					: "";
			},
			"");
}
