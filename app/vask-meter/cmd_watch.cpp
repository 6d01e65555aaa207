/* SPDX-License-Identifier: BSD-3-Clause */
#include <cstdio>
#include <cstdlib>

/* without its macros: they would hide half of the standard library */
#define NCURSES_NOMACROS
#include <ncurses.h>
#include <unistd.h>

#include "command.h"
#include "error.h"
#include "telemetry_client.h"
#include "watch.h"

namespace
{
std::string file_prefix, order_name, filter_name;
double interval = 1;

constexpr uint32_t PAGE = 100; /* ids in one answer */

template <typename Enum>
Enum
named(const char *option, const std::string &name, int count)
{
	std::string accepted;
	for (int i = 0; i < count; i++) {
		if (name == watch_name(static_cast<Enum>(i)))
			return static_cast<Enum>(i);
		accepted += (i == 0 ? "" : ", ") + std::string(watch_name(static_cast<Enum>(i)));
	}
	refuse("{} \"{}\": accepted are {}", option, name, accepted);
}

constexpr int ORDERS = static_cast<int>(watch_order::DROPPED) + 1;
constexpr int FILTERS = static_cast<int>(watch_filter::DROPPING) + 1;

std::vector<watch_row>
read_rows(telemetry_client &client)
{
	std::vector<watch_row> rows;

	for (uint32_t first = 0, total = 1; first < total; first += PAGE) {
		const nlohmann::json page =
			client.ask(fmt::format("/net_vask1/meters,{},{}", first, PAGE));
		if (!page.is_object() || !page.contains("ids"))
			fail("the process has no net_vask1 port; accepted is the --file-prefix of one that has");
		total = page.value("total", 0U);
		for (const uint32_t id : page["ids"].get<std::vector<uint32_t>>()) {
			/* an error when it was destroyed meanwhile: no engine, so no row */
			const nlohmann::json meter =
				client.ask(fmt::format("/net_vask1/meter,{}", id));
			for (watch_row &row : watch_rows(meter))
				rows.push_back(std::move(row));
		}
	}
	return rows;
}

/* The terminal as a screen, for the time of the watch. */
class screen
{
      public:
	screen()
	{
		/* initscr() would end the process */
		terminal_ = newterm(nullptr, stdout, stdin);
		if (terminal_ == nullptr)
			fail("TERM=\"{}\": unknown terminal; accepted are those of terminfo(5)",
				std::getenv("TERM") ? std::getenv("TERM") : "");
		cbreak();
		noecho();
		curs_set(0);
	}
	~screen()
	{
		endwin();
		delscreen(terminal_);
	}
	screen(const screen &) = delete;
	screen &operator=(const screen &) = delete;

      private:
	SCREEN *terminal_;
};

void
draw(const std::vector<std::string> &lines, watch_order order, watch_filter filter)
{
	erase();
	mvaddnstr(0, 0,
		fmt::format("vask-meter watch: {} rows; s sort: {}; f filter: {}; q quit",
			lines.size() - 1, watch_name(order), watch_name(filter))
			.c_str(),
		COLS);
	for (int i = 0; i < static_cast<int>(lines.size()) && i + 2 < LINES; i++) {
		if (i == 0)
			attron(A_BOLD);
		mvaddnstr(i + 2, 0, lines[static_cast<size_t>(i)].c_str(), COLS);
		attroff(A_BOLD);
	}
	refresh();
}

void
live(telemetry_client &client, watch_order order, watch_filter filter)
{
	watch_rates rates;
	std::vector<watch_row> rows;
	const screen whole;

	timeout(static_cast<int>(interval * 1000));
	for (int key = ERR; key != 'q';) {
		if (key == 's')
			order = static_cast<watch_order>((static_cast<int>(order) + 1) % ORDERS);
		else if (key == 'f')
			filter =
				static_cast<watch_filter>((static_cast<int>(filter) + 1) % FILTERS);
		if (key == ERR || rows.empty()) {
			rows = read_rows(client);
			rates.update(rows, std::chrono::steady_clock::now());
		}
		draw(watch_lines(watch_select(rows, order, filter), true), order, filter);
		key = getch();
	}
}

void
show(telemetry_client &client, watch_order order, watch_filter filter)
{
	if (isatty(STDOUT_FILENO) && isatty(STDIN_FILENO))
		return live(client, order, filter);

	std::vector<watch_row> rows = read_rows(client);
	for (watch_row &row : rows) /* one look knows no rates: totals give the order */
		row.rates = {static_cast<double>(row.bytes[0]), static_cast<double>(row.bytes[1]),
			static_cast<double>(row.bytes[2])};
	for (const std::string &line :
		watch_lines(watch_select(std::move(rows), order, filter), false))
		fmt::print("{}\n", line);
}

void
run()
{
	const watch_order order = named<watch_order>("--sort", order_name, ORDERS);
	const watch_filter filter = named<watch_filter>("--filter", filter_name, FILTERS);
	telemetry_client client(file_prefix);

	try {
		show(client, order, filter);
	} catch (const nlohmann::json::exception &) {
		client.not_telemetry();
	}
}
} // namespace

void
add_watch_command(CLI::App &app)
{
	CLI::App *watch =
		app.add_subcommand("watch", "Meters of a running process, through its telemetry");
	file_prefix = "rte";
	order_name = "meter";
	filter_name = "all";

	watch->add_option("--file-prefix", file_prefix, "the process's EAL option of that name")
		->capture_default_str();
	watch->add_option("--interval", interval, "seconds between two looks")
		->check(CLI::Range(0.1, 3600.0))
		->capture_default_str();
	watch->add_option("--sort", order_name, "meter, green, yellow, red or dropped")
		->capture_default_str();
	watch->add_option("--filter", filter_name, "all, rx, tx or dropping")
		->capture_default_str();
	set_footer(*watch, "vask-meter watch --file-prefix rte --sort red",
		"On a terminal: s changes the order, f the filter, q ends it. Elsewhere: the totals, once.");
	watch->callback(run);
}
