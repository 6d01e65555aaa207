/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_ARGS_H
#define VASK_ARGS_H

/**
 * @file
 * Device arguments of a port.
 */

#include <climits>
#include <cstdint>

#include "vask_dpdk.h"

constexpr uint32_t VASK_SFI_MAX = 16383;
constexpr uint32_t VASK_SFI_ANY = UINT32_MAX;
constexpr unsigned VASK_FAULT_ARGS_MAX = 16;
constexpr unsigned VASK_FAULT_ARG_LEN = 96;

enum class vask_clock_source : uint8_t { TSC, CAPTURE };
enum class vask_tick : uint16_t { NS = 1, US = 1000 }; /* nanoseconds a tick */
enum class vask_shapers : uint8_t { OBSERVE, ENFORCE };

struct vask_args {
	char uplink[RTE_ETH_NAME_MAX_LEN]; /* ethdev name of the port that stands for the wire */
	uint32_t sfi;                      /* 0..16383, or VASK_SFI_ANY: the next free one */
	enum vask_clock_source clock;
	enum vask_tick tick;
	enum vask_shapers shapers;
	unsigned n_faults;
	char faults[VASK_FAULT_ARGS_MAX][VASK_FAULT_ARG_LEN]; /* as given: the card reads them */
	char trace[PATH_MAX];                                 /* empty: no trace */
};

/**
 * Reads the device arguments.
 *
 * @param name  the device's name, for the log.
 * @param text  `key=value,...` as the application gave it; null counts as empty.
 * @param args  receives the arguments, with the default for each that is missing.
 * @return 0, or -EINVAL (-ENOMEM) after one ERR line that names the argument, its value and what is accepted.
 */
int vask_args_parse(const char *name, const char *text, struct vask_args *args);

#endif /* VASK_ARGS_H */
