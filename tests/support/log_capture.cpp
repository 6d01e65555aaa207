/* SPDX-License-Identifier: BSD-3-Clause */
#include "log_capture.h"

#include <sys/types.h>

#include <rte_log.h>

#include "vask_p4_log.h"

namespace vask_test
{

namespace
{

/* rte_vlog() flushes after each message and the stream buffers whole ones, so a write is a message. */
ssize_t
AppendLine(void *, const char *text, size_t length)
{
	trace.emplace_back(LogLine{static_cast<uint32_t>(rte_log_cur_msg_loglevel()),
		rte_log_cur_msg_logtype(), std::string(text, length)});
	return static_cast<ssize_t>(length);
}

} // namespace

LogCapture::LogCapture()
{
	cookie_io_functions_t functions = {};
	functions.write = AppendLine;
	stream_ = fopencookie(nullptr, "w", functions);
	rte_openlog_stream(stream_);
	rte_log_set_level(vask_p4_logtype, RTE_LOG_DEBUG);
}

LogCapture::~LogCapture()
{
	rte_openlog_stream(nullptr);
	fclose(stream_);
}

std::vector<LogLine>
LogCapture::lines() const
{
	return lines(RTE_LOG_DEBUG);
}

std::vector<LogLine>
LogCapture::lines(uint32_t level) const
{
	std::vector<LogLine> lines;
	for (const Event &event : trace)
		if (const auto *line = std::get_if<LogLine>(&event);
			line != nullptr && line->level <= level)
			lines.push_back(*line);
	return lines;
}

} // namespace vask_test
