/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_INPUT_FILE_H
#define VASK_METER_INPUT_FILE_H

#include <cstdint>
#include <string>

enum class input_kind {
	FILE,   /* read more than once */
	STREAM, /* may be a pipe or a terminal */
};

/**
 * Looks whether a file can be read, before a library does and says less about it.
 *
 * @param accepted  ends the line of refusal: "a capture".
 * @return its size in bytes, 0 when it is no regular file.
 * @throws vask_meter_error: missing, a directory, no permission.
 */
uint64_t check_input_file(const std::string &path, input_kind kind, const char *accepted);

#endif /* VASK_METER_INPUT_FILE_H */
