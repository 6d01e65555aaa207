/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_ERROR_H
#define VASK_METER_ERROR_H

/**
 * @file
 * How the program fails: one line on standard error, and one of these exit codes.
 */

#include <cctype>
#include <stdexcept>
#include <string>

#include <fmt/format.h>

enum vask_meter_exit {
	VASK_METER_OK = 0,
	VASK_METER_FAILED =
		1, /* the system or the port said no: memory, permission, disk, a refused call */
	VASK_METER_REFUSED = 2, /* the input is wrong: options, configuration, capture */
};

/** In one line, whatever stands in what it quotes: control characters as "\\x0a". */
inline std::string
one_line(const std::string &text)
{
	std::string line;
	for (const char c : text)
		if (std::iscntrl(static_cast<unsigned char>(c)))
			line += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
		else
			line += c;
	return line;
}

class vask_meter_error : public std::runtime_error
{
      public:
	vask_meter_error(int exit_code, const std::string &line)
		: std::runtime_error(one_line(line)), exit_code(exit_code)
	{
	}

	const int exit_code;
};

/** The input is wrong. The line says where, what it is, and what is accepted. */
template <typename... Args>
[[noreturn]] void
refuse(fmt::format_string<Args...> text, Args &&...args)
{
	throw vask_meter_error(VASK_METER_REFUSED, fmt::format(text, std::forward<Args>(args)...));
}

/** Something that should have worked did not. */
template <typename... Args>
[[noreturn]] void
fail(fmt::format_string<Args...> text, Args &&...args)
{
	throw vask_meter_error(VASK_METER_FAILED, fmt::format(text, std::forward<Args>(args)...));
}

#endif /* VASK_METER_ERROR_H */
