/* SPDX-License-Identifier: BSD-3-Clause */
#include "p4_entry.h"

#include <array>
#include <bit>
#include <cctype>
#include <string_view>

#include "error.h"
#include "quantity.h"
#include "vask_p4_meter.h"

static_assert(
	std::endian::native == std::endian::little, "bit n of an entry is bit n of its image");

namespace
{
constexpr p4_field PROFILE[] = {
	{"cir", 0, 64, "committed rate, bytes/s or packets/s"},
	{"eir", 64, 64, "excess or peak rate"},
	{"cbs", 128, 64, "committed burst, bytes or packets"},
	{"ebs", 192, 64, "excess or peak burst"},
	{"packet_mode", 256, 2, "0 bytes, else packets"},
	{"meter_rfc", 258, 2, "0 RFC 2697, 1 RFC 2698, 2 RFC 4115"},
	{"rsv", 260, 4, "not read"},
};

constexpr p4_field POLICER[] = {
	{"red_action", 0, 2, "0 pass, 1 rewrite the DSCP, 2 drop"},
	{"red_dscp", 2, 6, "the DSCP written by action 1"},
	{"yellow_action", 8, 2, "as red_action"},
	{"yellow_dscp", 10, 6, "as red_dscp"},
	{"green_action", 16, 2, "as red_action"},
	{"green_dscp", 18, 6, "as red_dscp"},
};

constexpr p4_field INSTANCE[] = {
	{"type", 0, 1, "1 the meter belongs to port dpdk_port_id"},
	{"dir", 1, 1, "0 receive, 1 transmit"},
	{"meter_enable", 2, 1, "1 enabled"},
	{"color_mode", 3, 1, "1 colour-aware"},
	{"origin_pkt", 4, 1, "1 meter the original packet length"},
	{"stats_mask", 5, 8, "counters wanted"},
	{"dpdk_port_id", 13, 16, "DPDK port number"},
	{"profile_id", 29, 8, "row of the profile table"},
	{"policer_id", 37, 8, "row of the policer table"},
	{"rsv", 45, 3, "not read"},
};

constexpr p4_layout LAYOUTS[] = {
	{"profile", sizeof(p4_meter_profile_t), PROFILE},
	{"policer", sizeof(p4_meter_policer_t), POLICER},
	{"instance", sizeof(p4_meter_instance_t), INSTANCE},
};

constexpr unsigned int P4_PORTS = 562; /* port numbers that the instance table takes */

const char *const MASK_NAMES[] = {"green packets", "yellow packets", "red packets",
	"dropped packets", "green bytes", "yellow bytes", "red bytes", "dropped bytes"};

uint64_t
value_of(const p4_layout &layout, std::span<const uint64_t> values, std::string_view name)
{
	for (size_t i = 0; i < layout.fields.size(); i++)
		if (layout.fields[i].name == name)
			return values[i];
	return 0;
}
} // namespace

std::span<const p4_layout>
p4_layouts()
{
	return LAYOUTS;
}

const p4_layout &
p4_layout_by_name(const std::string &name)
{
	for (const p4_layout &layout : LAYOUTS)
		if (name == layout.name)
			return layout;
	refuse("table \"{}\" is unknown; accepted are profile, policer, instance", name);
}

std::vector<uint8_t>
p4_encode(const p4_layout &layout, std::span<const uint64_t> values)
{
	std::vector<uint8_t> bytes(layout.size, 0);
	for (size_t i = 0; i < layout.fields.size(); i++) {
		const p4_field &f = layout.fields[i];
		if (f.width < 64 && values[i] >> f.width != 0)
			refuse("{}.{}: {} does not fit {} bits; accepted is 0 to {}", layout.name,
				f.name, values[i], f.width, (1U << f.width) - 1);
		for (unsigned int bit = 0; bit < f.width; bit++)
			if (values[i] >> bit & 1)
				bytes[(f.first_bit + bit) / 8] |= 1U << (f.first_bit + bit) % 8;
	}
	return bytes;
}

std::vector<uint64_t>
p4_decode(const p4_layout &layout, std::span<const uint8_t> bytes)
{
	if (bytes.size() != layout.size)
		refuse("{} bytes are not a {} entry; accepted are {} bytes, {} hexadecimal digits",
			bytes.size(), layout.name, layout.size, layout.size * 2);
	std::vector<uint64_t> values;
	for (const p4_field &f : layout.fields) {
		uint64_t value = 0;
		for (unsigned int bit = 0; bit < f.width; bit++) {
			const unsigned int at = f.first_bit + bit;
			value |= uint64_t{bytes[at / 8]} >> at % 8 & 1 ? uint64_t{1} << bit : 0;
		}
		values.push_back(value);
	}
	return values;
}

std::string
p4_field_words(const p4_field &field, uint64_t value)
{
	const std::string_view name = field.name;
	static const char *const rfcs[] = {"RFC 2697", "RFC 2698", "RFC 4115", "no algorithm"};
	static const char *const actions[] = {"pass", "rewrite the DSCP", "drop", "reserved"};

	if (name == "meter_rfc")
		return rfcs[value];
	if (name.ends_with("_action"))
		return actions[value];
	if (name == "packet_mode")
		return value == 0 ? "bytes" : "packets";
	if (name == "dir")
		return value == 0 ? "receive" : "transmit";
	if (name == "stats_mask") {
		std::string words;
		for (unsigned int bit = 0; bit < 8; bit++)
			if (value >> bit & 1)
				words += (words.empty() ? "" : ", ") + std::string(MASK_NAMES[bit]);
		return words;
	}
	return {};
}

std::vector<std::string>
p4_remarks(const p4_layout &layout, std::span<const uint64_t> values)
{
	const auto value = [&](std::string_view name) {
		return value_of(layout, values, name);
	};
	const std::string_view table = layout.name;
	std::vector<std::string> remarks;

	if (table == "profile") {
		if (value("meter_rfc") == 3)
			remarks.emplace_back(
				"meter_rfc 3: add refuses the entry; modify takes it and leaves "
				"the algorithm as it was");
		if (value("meter_rfc") == 0 && value("eir") != 0)
			remarks.emplace_back(
				"eir is not used by RFC 2697: add stores 0, modify stores it");
		if (value("meter_rfc") == 1 && value("eir") < value("cir"))
			remarks.emplace_back(
				"eir below cir: add refuses an RFC 2698 profile so, modify takes it");
	}
	if (table == "policer")
		for (const char *colour : {"red", "yellow", "green"})
			if (value(std::string(colour) + "_action") == 3)
				remarks.push_back(
					fmt::format("{}_action 3 is reserved: it is taken, and "
						    "packets pass",
						colour));
	if (table == "instance") {
		if (value("dpdk_port_id") >= P4_PORTS)
			remarks.push_back(fmt::format(
				"dpdk_port_id {}: add refuses port numbers of {} and more",
				value("dpdk_port_id"), P4_PORTS));
		if (value("type") == 0)
			remarks.emplace_back(
				"type 0: the meter has no port, and add does not create it, though "
				"it returns 0");
		if (value("meter_enable") == 0)
			remarks.emplace_back(
				"meter_enable 0: the meter is enabled once it is programmed, all the "
				"same");
	}
	if (value("rsv") != 0)
		remarks.emplace_back("rsv is not read");
	return remarks;
}

std::string
p4_draw(const p4_layout &layout, std::span<const uint64_t> values)
{
	const std::vector<uint8_t> bytes = p4_encode(layout, values);
	std::string out =
		fmt::format("{:<14}{:>9}  {:<24}{}\n", "field", "bits", "value", "meaning");

	for (size_t i = 0; i < layout.fields.size(); i++) {
		const p4_field &f = layout.fields[i];
		const std::string words = p4_field_words(f, values[i]);
		const std::string bits = f.width == 1
			? fmt::format("{}", f.first_bit)
			: fmt::format("{}..{}", f.first_bit, f.first_bit + f.width - 1);
		out += fmt::format("{:<14}{:>9}  {:<24}{}\n", f.name, bits, values[i],
			words.empty() ? f.meaning : words);
	}

	out += "\nbyte  hex  7 6 5 4 3 2 1 0  fields, high bit first\n";
	for (size_t byte = 0; byte < bytes.size(); byte++) {
		std::string bits, names;
		for (int bit = 7; bit >= 0; bit--)
			bits += bytes[byte] >> bit & 1 ? "1 " : "0 ";
		for (size_t i = layout.fields.size(); i-- > 0;) {
			const p4_field &f = layout.fields[i];
			const size_t first = std::max<size_t>(f.first_bit, byte * 8);
			const size_t last =
				std::min<size_t>(f.first_bit + f.width - 1, byte * 8 + 7);
			if (first > last)
				continue;
			names += names.empty() ? "" : " ";
			names += f.name;
			if (last - first + 1 < f.width)
				names += last == first ? fmt::format("[{}]", first - f.first_bit)
						       : fmt::format("[{}:{}]", last - f.first_bit,
								 first - f.first_bit);
		}
		out += fmt::format("{:>4}   {:02x}  {} {}\n", byte, bytes[byte], bits, names);
	}
	return out;
}

std::string
hex_of(std::span<const uint8_t> bytes)
{
	std::string out;
	for (const uint8_t b : bytes)
		out += fmt::format("{:02x}", b);
	return out;
}

std::vector<uint8_t>
bytes_of_hex(const std::string &text)
{
	std::string digits;
	size_t at = text.starts_with("0x") ? 2 : 0;
	for (; at < text.size(); at++) {
		const auto c = static_cast<unsigned char>(text[at]);
		if (c == ' ' || c == ':')
			continue;
		if (!std::isxdigit(c))
			refuse("\"{}\": '{}' is no hexadecimal digit; accepted are 0 to 9, a to f",
				text, text[at]);
		digits += text[at];
	}
	if (digits.size() % 2 != 0)
		refuse("\"{}\": {} hexadecimal digits make no whole bytes; accepted are two a byte",
			text, digits.size());

	std::vector<uint8_t> bytes;
	for (size_t i = 0; i < digits.size(); i += 2)
		bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
	return bytes;
}
