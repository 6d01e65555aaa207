/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef TESTS_SUPPORT_LOG_CAPTURE_H
#define TESTS_SUPPORT_LOG_CAPTURE_H

/**
 * @file
 * Takes DPDK's log stream while it lives; each line is appended to the trace.
 */

#include <cstdio>
#include <vector>

#include "trace.h"

namespace vask_test
{

class LogCapture
{
      public:
	/** Opens the stream, with the driver's log type at debug level. */
	LogCapture();
	~LogCapture();
	LogCapture(const LogCapture &) = delete;
	LogCapture &operator=(const LogCapture &) = delete;

	/** All lines in the trace. */
	std::vector<LogLine> lines() const;

	/** The lines in the trace that are at least as severe as `level`. */
	std::vector<LogLine> lines(uint32_t level) const;

      private:
	FILE *stream_;
};

} // namespace vask_test

#endif /* TESTS_SUPPORT_LOG_CAPTURE_H */
