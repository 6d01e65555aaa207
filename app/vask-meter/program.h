/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_PROGRAM_H
#define VASK_METER_PROGRAM_H

/**
 * @file
 * Puts a configuration's profiles, policies, meters and flow rules into the ports, through rte_mtr or
 * through the P4 tables.
 */

#include "config.h"
#include "ports.h"

/** @throws vask_meter_error that names the object and the port's own message. */
void program_ports(const meters_config &config, const card_ports &ports);

/** Takes everything out again, in reverse order. @throws as program_ports(). */
void unprogram_ports(const meters_config &config, const card_ports &ports);

#endif /* VASK_METER_PROGRAM_H */
