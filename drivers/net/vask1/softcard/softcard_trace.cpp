/* SPDX-License-Identifier: BSD-3-Clause */

#include "softcard_trace.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <rte_spinlock.h>
#include <rte_string_fns.h>

#include "softcard_call.h"
#include "softcard_fault.h"

static rte_spinlock_t trace_lock = RTE_SPINLOCK_INITIALIZER; /* guards the three below */
static FILE *trace_file;
static char trace_path[PATH_MAX];
static unsigned trace_users;
std::atomic<bool> softcard_trace_is_on;

static int
trace_open(const char *path)
{
	if (trace_file != nullptr) {
		if (strcmp(path, trace_path) != 0)
			return -EBUSY;
		trace_users++;
		return 0;
	}
	if (rte_strscpy(trace_path, path, sizeof(trace_path)) < 0)
		return -ENAMETOOLONG;
	trace_file = fopen(path, "ae");
	if (trace_file == nullptr)
		return -errno;
	setvbuf(trace_file, nullptr, _IOLBF, BUFSIZ);
	trace_users = 1;
	softcard_trace_is_on = true;
	return 0;
}

int
softcard_trace_open(const char *path)
{
	rte_spinlock_lock(&trace_lock);
	const int rc = trace_open(path);
	rte_spinlock_unlock(&trace_lock);
	return rc;
}

void
softcard_trace_close()
{
	rte_spinlock_lock(&trace_lock);
	if (trace_users > 0 && --trace_users == 0) {
		softcard_trace_is_on = false;
		fclose(trace_file);
		trace_file = nullptr;
	}
	rte_spinlock_unlock(&trace_lock);
}

static void
time_write(FILE *file)
{
	struct timespec now = {};
	struct tm utc = {};
	char text[32];

	clock_gettime(CLOCK_REALTIME, &now);
	gmtime_r(&now.tv_sec, &utc);
	strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S", &utc);
	fprintf(file, "%s.%06ldZ", text, now.tv_nsec / 1000);
}

static void
hex_write(FILE *file, const void *record, size_t size)
{
	fputs(" hex=", file);
	if (record == nullptr)
		fputc('-', file);
	else
		for (size_t i = 0; i < size; i++)
			fprintf(file, "%02x", static_cast<const uint8_t *>(record)[i]);
}

void
softcard_trace_call(
	const struct softcard_call &call, const void *record, size_t size, const char *fields, ...)
{
	va_list args;

	va_start(args, fields);
	rte_spinlock_lock(&trace_lock);
	if (trace_file != nullptr) {
		time_write(trace_file);
		fprintf(trace_file, " %s ", softcard_operation_name(call.op));
		vfprintf(trace_file, fields, args);
		hex_write(trace_file, record, size);
		fprintf(trace_file, " rc=%d%s\n", call.rc, call.fault ? " fault" : "");
	}
	rte_spinlock_unlock(&trace_lock);
	va_end(args);
}
