/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef FUZZ_MEMORY_FILE_H
#define FUZZ_MEMORY_FILE_H

#include <cstddef>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include "check.h"

/** A file in memory, by a path that a program opens; gone with its object. */
class MemoryFile
{
      public:
	MemoryFile(const void *bytes, size_t size) : fd_(memfd_create("fuzz", 0))
	{
		FUZZ_CHECK(fd_ >= 0);
		FUZZ_CHECK(write(fd_, bytes, size) == static_cast<ssize_t>(size));
	}
	~MemoryFile()
	{
		close(fd_);
	}
	MemoryFile(const MemoryFile &) = delete;
	MemoryFile &operator=(const MemoryFile &) = delete;

	std::string path() const
	{
		return "/proc/self/fd/" + std::to_string(fd_);
	}

      private:
	int fd_;
};

#endif /* FUZZ_MEMORY_FILE_H */
