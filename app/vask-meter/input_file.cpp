/* SPDX-License-Identifier: BSD-3-Clause */
#include "input_file.h"

#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

#include "error.h"

uint64_t
check_input_file(const std::string &path, input_kind kind, const char *accepted)
{
	struct stat st = {};

	if (path.empty())
		refuse("\"\": the empty path; accepted is {}", accepted);
	if (stat(path.c_str(), &st) != 0 && errno != EACCES)
		refuse("{}: {}; accepted is {}", path, std::strerror(errno), accepted);
	if (access(path.c_str(), R_OK) != 0)
		fail("{}: cannot be read: {}", path, std::strerror(errno));
	if (S_ISDIR(st.st_mode))
		refuse("{}: is a directory; accepted is {}", path, accepted);
	if (S_ISREG(st.st_mode))
		return static_cast<uint64_t>(st.st_size);
	if (kind == input_kind::FILE)
		refuse("{}: is no regular file; accepted is {}", path, accepted);
	return 0;
}
