/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_REPORT_TEXT_H
#define VASK_METER_REPORT_TEXT_H

/**
 * @file
 * A replay's result as text, CSV and JSON. The same result gives the same bytes on any machine.
 */

#include <string>

#include "config.h"
#include "replay.h"

/** What the card makes of each profile: asked and held, with warnings. */
std::string profiles_text(const meters_config &config);

/** The capture, then a table for each meter, then the ports' drops. */
std::string result_text(const meters_config &config, const replay_result &result);

/** A line for each meter in each engine, below a line of names. */
std::string result_csv(const meters_config &config, const replay_result &result);

std::string result_json(const meters_config &config, const replay_result &result);

/** What is odd about a set-up though the card takes it, a line each. */
std::string remarks_text(const meters_config &config);

/** The name that testpmd and CONFIG give the algorithm: "rfc2697". */
const char *algorithm_name(enum rte_mtr_algorithm algorithm);

/** An amount over the time of the capture, in what the profile counts: "1.5 Mbit/s", "40.0 pps". */
std::string result_rate(const profile_config &profile, uint64_t packets, uint64_t bytes,
	const replay_result &result);

/** The rates and bursts of a profile under the names that its algorithm gives them. */
struct profile_value {
	const char *name;
	quantity_kind kind;
	uint64_t value;
};
std::vector<profile_value> profile_values(const profile_config &profile);

#endif /* VASK_METER_REPORT_TEXT_H */
