/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_P4_LOG_H
#define VASK_P4_LOG_H

/**
 * @file
 * Log lines of the driver.
 *
 * Both macros take the level's short name (ERR, WARNING, INFO, DEBUG), a format without line feed, and
 * its arguments. They may be called from any thread that may call rte_log().
 */

#include <rte_common.h>
#include <rte_log.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The driver's log type, "pmd.net.vask1"; registered by the driver at start-up. */
extern int vask_p4_logtype;

/**
 * rte_log() itself, without its attribute: what calls a cold function is moved out of line and optimised for size,
 * and each operation of the driver logs on its way.
 */
int vask_p4_log(uint32_t level, uint32_t logtype, const char *format, ...) __asm__("rte_log")
	__rte_format_printf(3, 4);

#ifdef __cplusplus
}
#endif

/** A line that begins with the name of the function that stands around the call. */
#define VASK_P4_LOG(level, ...) \
	vask_p4_log(RTE_LOG_##level, vask_p4_logtype, \
		RTE_FMT("[offload_smartnic] %s " RTE_FMT_HEAD(__VA_ARGS__, ) "\n", __func__, \
			RTE_FMT_TAIL(__VA_ARGS__, )))

/** A line of a record's dump: no function name. */
#define VASK_P4_LOG_DUMP(level, ...) \
	vask_p4_log(RTE_LOG_##level, vask_p4_logtype, \
		RTE_FMT("[offload_smartnic]*" RTE_FMT_HEAD(__VA_ARGS__, ) "\n", \
			RTE_FMT_TAIL(__VA_ARGS__, )))

#endif /* VASK_P4_LOG_H */
