/* SPDX-License-Identifier: BSD-3-Clause */
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>

#include "command.h"
#include "error.h"
#include "p4_entry.h"
#include "quantity.h"

namespace
{
std::string table;
std::vector<std::string> words;
bool brief;

/* A plain number (0x for hexadecimal), or a quantity with its unit. */
uint64_t
number_of(const p4_layout &layout, const std::string &name, const std::string &text)
{
	const bool hex = text.starts_with("0x");
	const char *first = text.data() + (hex ? 2 : 0), *last = text.data() + text.size();
	uint64_t value = 0;
	const auto [end, failure] = std::from_chars(first, last, value, hex ? 16 : 10);

	if (failure == std::errc() && end == last)
		return value;
	if (failure == std::errc::result_out_of_range || hex)
		refuse("{}.{}: \"{}\" is no number of 64 bits; accepted are decimal, 0x and "
		       "hexadecimal, or a number with its unit",
			layout.name, name, text);
	try {
		return quantity_parse(text).value;
	} catch (const vask_meter_error &e) {
		refuse("{}.{}: {}", layout.name, name, e.what());
	}
}

std::string
names_of(const p4_layout &layout)
{
	std::string names;
	for (const p4_field &f : layout.fields)
		names += (names.empty() ? "" : " ") + std::string(f.name);
	return names;
}

/* name=value words to values; a field that is not named is 0. */
std::vector<uint64_t>
values_of(const p4_layout &layout, const std::vector<std::string> &assignments)
{
	std::vector<uint64_t> values(layout.fields.size(), 0);
	std::vector<bool> seen(layout.fields.size(), false);
	for (const std::string &word : assignments) {
		const size_t equals = word.find('=');
		const std::string name = word.substr(0, equals);
		size_t i = 0;
		while (i < layout.fields.size() && name != layout.fields[i].name)
			i++;
		if (equals == std::string::npos || i == layout.fields.size())
			refuse("\"{}\": accepted is FIELD=NUMBER with a field of {}", word,
				names_of(layout));
		if (seen[i])
			refuse("\"{}\": {} is given twice; accepted is each field once", word,
				name);
		seen[i] = true;
		values[i] = number_of(layout, name, word.substr(equals + 1));
	}
	return values;
}

std::string
assignments_of(const p4_layout &layout, const std::vector<uint64_t> &values)
{
	std::string line;
	for (size_t i = 0; i < values.size(); i++)
		line += fmt::format("{}{}={}", i == 0 ? "" : " ", layout.fields[i].name, values[i]);
	return line;
}

void
print_entry(const p4_layout &layout, const std::vector<uint64_t> &values, const std::string &line)
{
	fmt::print("{}\n", line);
	if (brief)
		return;
	fmt::print("\n{}", p4_draw(layout, values));
	for (const std::string &remark : p4_remarks(layout, values))
		fmt::print("note: {}\n", remark);
}

void
encode(const std::vector<std::string> &assignments)
{
	const p4_layout &layout = p4_layout_by_name(table);
	const std::vector<uint64_t> values = values_of(layout, assignments);
	print_entry(layout, values, hex_of(p4_encode(layout, values)));
}

void
decode(const std::string &hex)
{
	const p4_layout &layout = p4_layout_by_name(table);
	const std::vector<uint64_t> values = p4_decode(layout, bytes_of_hex(hex));
	print_entry(layout, values, assignments_of(layout, values));
}

/* Standard input, an entry a line, when the one word is "-". */
template <typename Function>
void
each_line(Function run)
{
	std::string line;
	for (unsigned int number = 1; std::getline(std::cin, line); number++) {
		try {
			run(line);
		} catch (const vask_meter_error &e) {
			throw vask_meter_error(e.exit_code,
				fmt::format("standard input:{}: {}", number, e.what()));
		}
	}
	if (std::ferror(stdin))
		fail("standard input: cannot be read: {}", std::strerror(errno));
}

bool
from_standard_input()
{
	return words.size() == 1 && words[0] == "-";
}

void
run_encode()
{
	if (!from_standard_input())
		return encode(words);
	each_line([](const std::string &line) {
		std::istringstream split(line);
		encode({std::istream_iterator<std::string>(split), {}});
	});
}

void
run_decode()
{
	if (from_standard_input())
		return each_line(decode);
	decode(fmt::format("{}", fmt::join(words, " ")));
}
} // namespace

void
add_p4_command(CLI::App &app)
{
	CLI::App *p4 =
		app.add_subcommand("p4", "Packed entries of the P4 tables: written and read");
	p4->require_subcommand(1);
	set_footer(*p4, "vask-meter p4 encode --brief policer red_action=2");

	CLI::App *to = p4->add_subcommand("encode", "From named fields to the bytes of an entry");
	to->add_option("TABLE", table, "profile, policer or instance")->required();
	to->add_option("FIELD=NUMBER", words,
		"fields (decimal, 0x..., or with a unit; 0 when left out), or - for lines of them");
	set_footer(
		*to, "vask-meter p4 encode profile cir=10Mbit/s cbs=64KiB ebs=64KiB meter_rfc=0");
	to->callback(run_encode);

	CLI::App *from = p4->add_subcommand("decode", "From the bytes of an entry to its fields");
	from->add_option("TABLE", table, "profile, policer or instance")->required();
	from->add_option("HEX", words, "the bytes in hexadecimal, or - for lines of them")
		->required();
	set_footer(*from, "vask-meter p4 decode policer 02 3a 00");
	from->callback(run_decode);

	for (CLI::App *sub : {to, from})
		sub->add_flag("--brief", brief, "one line an entry, without the picture");
}
