/* SPDX-License-Identifier: BSD-3-Clause */
#include "card_units.h"

#include <fmt/format.h>

namespace
{
constexpr uint64_t ENGINE_RATE_UNIT = 8000;  /* bytes/s */
constexpr uint64_t ENGINE_BURST_UNIT = 1024; /* bytes */
constexpr uint64_t ENGINE_RATE_MASK = (1 << 26) - 1;
constexpr uint64_t ENGINE_BURST_MASK = (1 << 20) - 1;
constexpr uint64_t PIPELINE_RATE_MASK = (1 << 28) - 1;
constexpr uint64_t PIPELINE_BURST_MASK = (1 << 20) - 1;
constexpr uint64_t SCHEDULER_RATE_MASK = (1 << 19) - 1;

/* One unit of the shapers' rate: 1 kbit/s and 100 kbit/s, in packet mode 125 and 12500 packets/s. */
constexpr uint64_t PORT_SHAPER_UNIT = 125;
constexpr uint64_t SCHEDULER_UNIT = 12500;

card_field
engine_field(quantity_kind kind, uint64_t value)
{
	switch (kind) {
	case quantity_kind::RATE: {
		const uint64_t units = value / ENGINE_RATE_UNIT;
		const uint64_t held = units & ENGINE_RATE_MASK;
		return {"meter engine profile", "cir, eir", units, held, held * ENGINE_RATE_UNIT,
			true};
	}
	case quantity_kind::BURST: {
		const uint64_t units = value / ENGINE_BURST_UNIT;
		const uint64_t held = units & ENGINE_BURST_MASK;
		return {"meter engine profile", "cbs, ebs", units, held, held * ENGINE_BURST_UNIT,
			true};
	}
	case quantity_kind::PACKET_RATE:
		return {"meter engine profile", "cir, eir", value, value & ENGINE_RATE_MASK,
			value & ENGINE_RATE_MASK, true};
	case quantity_kind::PACKETS:
		break;
	}
	return {"meter engine profile", "cbs, ebs", value, value & ENGINE_BURST_MASK,
		value & ENGINE_BURST_MASK, true};
}
} // namespace

std::vector<card_field>
card_fields(quantity_kind kind, uint64_t value)
{
	std::vector<card_field> fields = {engine_field(kind, value)};

	if (kind == quantity_kind::BURST || kind == quantity_kind::PACKETS) {
		const uint64_t held = value & PIPELINE_BURST_MASK;
		fields.push_back({"pipeline meter profile", "cbs, ebs", value, held, held, true});
		return fields;
	}
	fields.push_back({"pipeline meter profile", "cir, eir", value, value & PIPELINE_RATE_MASK,
		value & PIPELINE_RATE_MASK, true});

	/* The shapers follow the committed rate by one formula, for bytes as for packets. The card's driver
	 * computes in 64 bits, which the products may exceed. */
	using wide = unsigned __int128;
	const auto max_rate = static_cast<uint32_t>(value * 8 / 1000);
	fields.push_back({"port shaper", "max_rate", static_cast<uint64_t>(wide{value} * 8 / 1000),
		max_rate, max_rate * PORT_SHAPER_UNIT, max_rate != 0});

	const uint64_t rate = value * 108 / 100 * 8 / 100000 & SCHEDULER_RATE_MASK;
	fields.push_back({"ingress-scheduler shaper", "rate (+8 %)",
		static_cast<uint64_t>(wide{value} * 108 / 100 * 8 / 100000), rate,
		rate * SCHEDULER_UNIT, rate != 0});
	return fields;
}

uint64_t
card_engine_effective(quantity_kind kind, uint64_t value)
{
	return engine_field(kind, value).effective;
}

std::string
card_field_warning(const card_field &field)
{
	if (field.asked != field.holds)
		return fmt::format(
			"wraps: {} does not fit and is cut to {}", field.asked, field.holds);
	if (field.holds == 0 && !field.limits)
		return "below the resolution: the shaper does not limit";
	if (field.holds == 0)
		return "below the resolution: the engine holds 0";
	return {};
}
