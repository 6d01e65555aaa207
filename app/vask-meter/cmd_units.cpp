/* SPDX-License-Identifier: BSD-3-Clause */
#include <cstdio>

#include "card_units.h"
#include "command.h"
#include "error.h"
#include "quantity.h"

/* The value held against the one asked for, in percent of the latter. */
static std::string
error_of(uint64_t asked, const card_field &field)
{
	if (!field.limits)
		return "no limit";
	if (asked == 0)
		return "0 %";
	const double off = static_cast<double>(field.effective) - static_cast<double>(asked);
	return fmt::format("{:+.3f} %", 100 * off / static_cast<double>(asked));
}

static const char *
unit_of(quantity_kind kind)
{
	switch (kind) {
	case quantity_kind::RATE:
		return "bytes/s";
	case quantity_kind::BURST:
		return "bytes";
	case quantity_kind::PACKET_RATE:
		return "packets/s";
	case quantity_kind::PACKETS:
		break;
	}
	return "packets";
}

static void
print_units(const std::string &text)
{
	const quantity q = quantity_parse(text);

	fmt::print("{}: {} {}", text, q.value, unit_of(q.kind));
	if (q.kind == quantity_kind::RATE)
		fmt::print(", {}", format_rate(static_cast<double>(q.value)));
	fmt::print("{}\n", q.cut ? " (a fraction was cut off)" : "");

	fmt::print("  {:<26}{:<14}{:>12}  {:<40}{}\n", "table", "field", "holds", "effective",
		"error");
	for (const card_field &f : card_fields(q.kind, q.value)) {
		std::string effective = fmt::format("{} {}", f.effective, unit_of(q.kind));
		if (q.kind == quantity_kind::RATE)
			effective +=
				fmt::format(", {}", format_rate(static_cast<double>(f.effective)));
		fmt::print("  {:<26}{:<14}{:>12}  {:<40}{}\n", f.table, f.field, f.holds, effective,
			error_of(q.value, f));
	}
	for (const card_field &f : card_fields(q.kind, q.value)) {
		const std::string warning = card_field_warning(f);
		if (!warning.empty())
			fmt::print("  warning: {} {}: {}\n", f.table, f.field, warning);
	}
}

void
add_units_command(CLI::App &app)
{
	static std::vector<std::string> quantities;

	CLI::App *units = app.add_subcommand("units",
		"What each table and register of the card holds for a rate, a burst or a packet rate");
	units->add_option("QUANTITY", quantities, "a number with its unit, or several")->required();
	set_footer(*units, "vask-meter units 10Mbit/s 64KiB 5000pps",
		fmt::format("Units: {}.", QUANTITY_UNITS));
	units->callback([] {
		for (const std::string &text : quantities)
			print_units(text);
	});
}
