/* SPDX-License-Identifier: BSD-3-Clause */
#include "watch.h"

#include <algorithm>

#include <fmt/format.h>

#include "quantity.h"

namespace
{
double
key_of(const watch_row &row, watch_order order)
{
	switch (order) {
	case watch_order::GREEN:
		return row.rates[RTE_COLOR_GREEN];
	case watch_order::YELLOW:
		return row.rates[RTE_COLOR_YELLOW];
	case watch_order::RED:
		return row.rates[RTE_COLOR_RED];
	case watch_order::DROPPED:
		return static_cast<double>(row.dropped_packets);
	case watch_order::METER:
		break;
	}
	return -static_cast<double>(row.meter);
}

bool
passes(const watch_row &row, watch_filter filter)
{
	switch (filter) {
	case watch_filter::RX:
		return row.side == "rx";
	case watch_filter::TX:
		return row.side == "tx";
	case watch_filter::DROPPING:
		return row.dropped_packets > 0;
	case watch_filter::ALL:
		break;
	}
	return true;
}
} // namespace

const char *
watch_name(watch_order order)
{
	static const char *const names[] = {"meter", "green", "yellow", "red", "dropped"};
	return names[static_cast<size_t>(order)];
}

const char *
watch_name(watch_filter filter)
{
	static const char *const names[] = {"all", "rx", "tx", "dropping"};
	return names[static_cast<size_t>(filter)];
}

std::vector<watch_row>
watch_rows(const nlohmann::json &meter)
{
	std::vector<watch_row> rows;

	for (const auto &[engine, side] : {std::pair("ingress", "rx"), std::pair("egress", "tx")}) {
		if (!meter.contains(engine))
			continue;
		const nlohmann::json &e = meter[engine];
		const auto count = [&e](const char *name) {
			return e.value(name, uint64_t{0});
		};
		rows.push_back({meter.value("meter_id", 0U), meter.value("profile_id", 0U),
			meter.value("policy_id", 0U), meter.value("port", ""), side,
			meter.value("enabled", 0) != 0,
			{count("green_bytes"), count("yellow_bytes"), count("red_bytes")}, {},
			count("dropped_packets"), count("dropped_bytes"), count("committed_bucket"),
			count("excess_bucket")});
	}
	return rows;
}

void
watch_rates::update(std::vector<watch_row> &rows, std::chrono::steady_clock::time_point now)
{
	const double seconds = std::chrono::duration<double>(now - then_).count();
	std::map<std::pair<uint32_t, std::string>, std::array<uint64_t, RTE_COLORS>> seen;

	for (watch_row &row : rows) {
		const std::pair key(row.meter, row.side);
		const auto last = before_.find(key);
		/* a meter that was created anew counts from zero again */
		for (size_t c = 0; last != before_.end() && c < RTE_COLORS; c++)
			if (row.bytes[c] >= last->second[c])
				row.rates[c] = static_cast<double>(row.bytes[c] - last->second[c]) /
					seconds;
		seen[key] = row.bytes;
	}
	before_ = std::move(seen);
	then_ = now;
}

std::vector<watch_row>
watch_select(std::vector<watch_row> rows, watch_order order, watch_filter filter)
{
	std::erase_if(rows, [filter](const watch_row &row) { return !passes(row, filter); });
	std::stable_sort(rows.begin(), rows.end(), [order](const watch_row &a, const watch_row &b) {
		return key_of(a, order) > key_of(b, order);
	});
	return rows;
}

std::vector<std::string>
watch_lines(const std::vector<watch_row> &rows, bool live)
{
	constexpr const char *layout =
		"{:>10} {:<14} {:<4} {:>7} {:>6} {:>15} {:>15} {:>15} {:>12} {:>12} {:>12}";
	std::vector<std::string> lines = {fmt::format(fmt::runtime(layout), "meter", "port", "side",
		"profile", "policy", "green", "yellow", "red", "dropped", "committed", "excess")};

	for (const watch_row &row : rows) {
		const auto colour = [&](rte_color c) {
			return live ? format_rate(row.rates[c]) : fmt::format("{} B", row.bytes[c]);
		};
		lines.push_back(fmt::format(fmt::runtime(layout), row.meter, row.port,
			row.enabled ? row.side : "off", row.profile, row.policy,
			colour(RTE_COLOR_GREEN), colour(RTE_COLOR_YELLOW), colour(RTE_COLOR_RED),
			row.dropped_packets, row.committed_bucket, row.excess_bucket));
	}
	return lines;
}
