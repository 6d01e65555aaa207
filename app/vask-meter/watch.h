/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_WATCH_H
#define VASK_METER_WATCH_H

/**
 * @file
 * Meters of a running process as rows of a table: read, put in order, cut down and printed.
 */

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>
#include <rte_meter.h>

/** A meter in one engine. Bytes are totals, rates in bytes/s. */
struct watch_row {
	uint32_t meter, profile, policy;
	std::string port, side; /* side: rx, tx */
	bool enabled;
	std::array<uint64_t, RTE_COLORS> bytes;
	std::array<double, RTE_COLORS> rates;
	uint64_t dropped_packets, dropped_bytes;
	uint64_t committed_bucket, excess_bucket;
};

enum class watch_order { METER, GREEN, YELLOW, RED, DROPPED };
enum class watch_filter { ALL, RX, TX, DROPPING };

const char *watch_name(watch_order order);
const char *watch_name(watch_filter filter);

/** Rows of a meter's answer from telemetry, one for each engine that has a record of it. */
std::vector<watch_row> watch_rows(const nlohmann::json &meter);

/** Fills rates from what the rows held at the last call. */
class watch_rates
{
      public:
	void update(std::vector<watch_row> &rows, std::chrono::steady_clock::time_point now);

      private:
	std::map<std::pair<uint32_t, std::string>, std::array<uint64_t, RTE_COLORS>> before_;
	std::chrono::steady_clock::time_point then_;
};

/** The rows that the filter lets through, in order: ids upwards, anything else from the largest down. */
std::vector<watch_row>
watch_select(std::vector<watch_row> rows, watch_order order, watch_filter filter);

/** The table, a line each, titles first. With live the colours are rates, else bytes so far. */
std::vector<std::string> watch_lines(const std::vector<watch_row> &rows, bool live);

#endif /* VASK_METER_WATCH_H */
