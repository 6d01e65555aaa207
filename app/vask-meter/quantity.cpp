/* SPDX-License-Identifier: BSD-3-Clause */
#include "quantity.h"

#include <array>
#include <cmath>
#include <string_view>

#include <fmt/format.h>

#include "error.h"

const char *const QUANTITY_UNITS =
	"bit/s kbit/s Mbit/s Gbit/s, B/s kB/s MB/s GB/s, KiB/s MiB/s GiB/s for a rate; "
	"B kB MB GB KiB MiB GiB for a burst; pps kpps Mpps for a packet rate; packets for a burst of packets";

namespace
{
struct unit {
	std::string_view name;
	quantity_kind kind;
	uint64_t multiplier; /* value = number * multiplier / divisor */
	uint64_t divisor;
};

using enum quantity_kind;
constexpr std::array<unit, 23> UNITS = {{
	{"bit/s", RATE, 1, 8},
	{"kbit/s", RATE, 1000, 8},
	{"Mbit/s", RATE, 1000 * 1000, 8},
	{"Gbit/s", RATE, 1000 * 1000 * 1000, 8},
	{"B/s", RATE, 1, 1},
	{"kB/s", RATE, 1000, 1},
	{"MB/s", RATE, 1000 * 1000, 1},
	{"GB/s", RATE, 1000 * 1000 * 1000, 1},
	{"KiB/s", RATE, 1 << 10, 1},
	{"MiB/s", RATE, 1 << 20, 1},
	{"GiB/s", RATE, 1 << 30, 1},
	{"B", BURST, 1, 1},
	{"kB", BURST, 1000, 1},
	{"MB", BURST, 1000 * 1000, 1},
	{"GB", BURST, 1000 * 1000 * 1000, 1},
	{"KiB", BURST, 1 << 10, 1},
	{"MiB", BURST, 1 << 20, 1},
	{"GiB", BURST, 1 << 30, 1},
	{"pps", PACKET_RATE, 1, 1},
	{"kpps", PACKET_RATE, 1000, 1},
	{"Mpps", PACKET_RATE, 1000 * 1000, 1},
	{"packet", PACKETS, 1, 1},
	{"packets", PACKETS, 1, 1},
}};

constexpr size_t DIGITS_MAX = 20; /* of 2^64 - 1; as many after the point */
} // namespace

quantity
quantity_parse(const std::string &text)
{
	unsigned __int128 number = 0, scale = 1;
	size_t at = 0, digits = 0;
	bool point = false;
	for (; at < text.size(); at++) {
		const char c = text[at];
		if (c == '.' && !point) {
			point = true;
			continue;
		}
		if (c < '0' || c > '9')
			break;
		if (++digits > DIGITS_MAX)
			refuse("\"{}\": too many digits; accepted are at most {}", text,
				DIGITS_MAX);
		number = number * 10 + (c - '0');
		if (point)
			scale *= 10;
	}
	if (digits == 0 || text[at - 1] == '.')
		refuse("\"{}\" does not start with a number; accepted is a number and one of {}",
			text, QUANTITY_UNITS);
	while (at < text.size() && text[at] == ' ')
		at++;

	const std::string_view name = std::string_view(text).substr(at);
	for (const unit &u : UNITS) {
		if (u.name != name)
			continue;
		/* 20 digits times 2^30 stay below 2^97. */
		const unsigned __int128 product = number * u.multiplier;
		const unsigned __int128 divisor = scale * u.divisor;
		const unsigned __int128 value = product / divisor;
		if (value > UINT64_MAX)
			refuse("\"{}\": too large; accepted is at most 2^64 - 1 {}", text,
				u.kind == RATE            ? "bytes/s"
					: u.kind == BURST ? "bytes"
							  : "packets");
		return {u.kind, static_cast<uint64_t>(value), product % divisor != 0};
	}
	if (name.empty())
		refuse("\"{}\" has no unit; accepted are {}", text, QUANTITY_UNITS);
	refuse("\"{}\": unknown unit \"{}\"; accepted are {}", text, name, QUANTITY_UNITS);
}

/* At most four decimals, without trailing zeros. */
static std::string
trimmed(double value)
{
	std::string s = fmt::format("{:.4f}", value);
	s.erase(s.find_last_not_of('0') + 1);
	if (s.back() == '.')
		s.pop_back();
	return s;
}

std::string
format_rate(double bytes_per_second)
{
	const double bits = bytes_per_second * 8;
	if (bits >= 1e9)
		return trimmed(bits / 1e9) + " Gbit/s";
	if (bits >= 1e6)
		return trimmed(bits / 1e6) + " Mbit/s";
	if (bits >= 1e3)
		return trimmed(bits / 1e3) + " kbit/s";
	return trimmed(bits) + " bit/s";
}

std::string
format_bytes(uint64_t bytes)
{
	if (bytes != 0 && bytes % (1 << 30) == 0)
		return fmt::format("{} GiB", bytes >> 30);
	if (bytes != 0 && bytes % (1 << 20) == 0)
		return fmt::format("{} MiB", bytes >> 20);
	if (bytes != 0 && bytes % (1 << 10) == 0)
		return fmt::format("{} KiB", bytes >> 10);
	return fmt::format("{} B", bytes);
}

std::string
format_quantity(quantity_kind kind, uint64_t value)
{
	switch (kind) {
	case RATE:
		return format_rate(static_cast<double>(value));
	case BURST:
		return format_bytes(value);
	case PACKET_RATE:
		return fmt::format("{} pps", value);
	case PACKETS:
		return fmt::format("{} packet{}", value, value == 1 ? "" : "s");
	}
	return {};
}
