/* SPDX-License-Identifier: BSD-3-Clause */
#include "cfgfile.h"

#include <charconv>
#include <fstream>
#include <memory>
#include <set>

#include <rte_cfgfile.h>

#include "error.h"
#include "input_file.h"

namespace
{
struct cfgfile_closer {
	void operator()(rte_cfgfile *cfg) const
	{
		rte_cfgfile_close(cfg);
	}
};

std::string
stripped(const std::string &text)
{
	const size_t first = text.find_first_not_of(" \t\r\n\v\f");
	return first == std::string::npos
		? ""
		: text.substr(first, text.find_last_not_of(" \t\r\n\v\f") - first + 1);
}

std::optional<uint32_t>
u32_of(const std::string &text)
{
	uint32_t value = 0;
	const char *last = text.data() + text.size();
	const auto [end, failure] = std::from_chars(text.data(), last, value);
	if (failure != std::errc() || end != last)
		return {};
	return value;
}

/* rte_cfgfile keeps no line numbers, skips lines that it does not know and logs what it refuses: so the
 * lines are looked at first. Gives the line of each section and of each of its keys, in order. */
std::vector<std::vector<unsigned int>>
lines_of(const std::string &path)
{
	check_input_file(path, input_kind::FILE, "a configuration file");
	std::ifstream in(path);

	std::vector<std::vector<unsigned int>> sections;
	std::string line;
	for (unsigned int number = 1; std::getline(in, line); number++) {
		/* the library's lines would end there */
		if (line.find('\0') != std::string::npos)
			refuse("{}:{}: a byte of value 0; accepted is text", path, number);
		/* as the library cuts comments: at the first ';' that no backslash precedes */
		const size_t semicolon = line.find(';');
		if (semicolon != std::string::npos &&
			(semicolon == 0 || line[semicolon - 1] != '\\'))
			line.resize(semicolon);
		line = stripped(line);
		if (line.empty())
			continue;
		if (line.size() >= CFG_VALUE_LEN)
			refuse("{}:{}: {} characters; accepted are lines of less than {}", path,
				number, line.size(), CFG_VALUE_LEN);
		if (line.front() == '[') {
			if (line.back() != ']' || line.size() - 2 >= CFG_NAME_LEN)
				refuse("{}:{}: \"{}\": accepted is [name] or [name number]", path,
					number, line);
			sections.push_back({number});
			continue;
		}
		const size_t equals = line.find('=');
		if (equals == std::string::npos || equals == 0 || equals >= CFG_NAME_LEN ||
			stripped(line.substr(equals + 1)).empty())
			refuse("{}:{}: \"{}\": accepted are [section], key = value and ; comment",
				path, number, line);
		if (sections.empty())
			refuse("{}:{}: \"{}\" stands before the first [section]; accepted are keys in one",
				path, number, line);
		sections.back().push_back(number);
	}
	return sections;
}
} // namespace

std::vector<cfg_section>
cfgfile_read(const std::string &path)
{
	const std::vector<std::vector<unsigned int>> lines = lines_of(path);
	const std::unique_ptr<rte_cfgfile, cfgfile_closer> cfg(rte_cfgfile_load(path.c_str(), 0));
	if (!cfg)
		refuse("{}: cannot be read as a configuration file", path);

	std::vector<cfg_section> sections;
	for (size_t i = 0; i < lines.size(); i++) {
		const auto index = static_cast<int>(i);
		const auto count = static_cast<int>(lines[i].size() - 1);
		char name[CFG_NAME_LEN] = "";
		std::vector<rte_cfgfile_entry> entries(lines[i].size());

		if (rte_cfgfile_section_entries_by_index(
			    cfg.get(), index, name, entries.data(), count) != count)
			fail("{}:{}: cannot be read as a section", path, lines[i][0]);

		cfg_section section = {path, stripped(name), {}, lines[i][0], {}};
		if (const size_t space = section.name.find(' '); space != std::string::npos) {
			section.id = u32_of(stripped(section.name.substr(space)));
			if (!section.id)
				refuse("{}:{}: [{}]: accepted is a number from 0 to {}", path,
					section.line, section.name, UINT32_MAX);
			section.name.resize(space);
		}
		for (int e = 0; e < count; e++)
			section.entries.push_back({entries[e].name, entries[e].value,
				lines[i][static_cast<size_t>(e) + 1]});
		sections.push_back(std::move(section));
	}
	return sections;
}

const cfg_entry *
cfg_section::find(const std::string &key) const
{
	for (const cfg_entry &e : entries)
		if (e.key == key)
			return &e;
	return nullptr;
}

const cfg_entry &
cfg_section::need(const std::string &key, const std::string &accepted) const
{
	const cfg_entry *e = find(key);
	if (e == nullptr)
		refuse("{}: {} is missing; accepted is {}", where(), key, accepted);
	return *e;
}

void
cfg_section::check_keys(std::initializer_list<const char *> keys) const
{
	std::set<std::string> seen;
	std::string accepted;
	for (const char *key : keys)
		accepted += (accepted.empty() ? "" : ", ") + std::string(key);
	for (const cfg_entry &e : entries) {
		bool known = false;
		for (const char *key : keys)
			known |= e.key == key;
		if (!known)
			refuse("{}:{}: {}: \"{}\": unknown key; accepted are {}", file, e.line,
				e.key, e.value, accepted);
		if (!seen.insert(e.key).second)
			refuse("{}:{}: {}: \"{}\": given twice in this section; accepted is each key once",
				file, e.line, e.key, e.value);
	}
}

std::string
cfg_section::where() const
{
	return id ? fmt::format("{}:{}: [{} {}]", file, line, name, *id)
		  : fmt::format("{}:{}: [{}]", file, line, name);
}

void
cfg_section::refuse_entry(const cfg_entry &entry, const std::string &what) const
{
	refuse("{}:{}: {}: \"{}\": {}", file, entry.line, entry.key, entry.value, what);
}

uint32_t
cfg_section::number(const cfg_entry &entry, uint32_t min, uint32_t max) const
{
	const std::optional<uint32_t> value = u32_of(entry.value);
	if (!value || *value < min || *value > max)
		refuse_entry(entry, fmt::format("accepted is a number from {} to {}", min, max));
	return *value;
}

bool
cfg_section::yes(const char *key, bool otherwise) const
{
	const cfg_entry *e = find(key);
	return e == nullptr ? otherwise : choice(*e, {"no", "yes"}) == 1;
}

quantity
cfg_section::amount(const cfg_entry &entry) const
{
	try {
		return quantity_parse(entry.value);
	} catch (const vask_meter_error &e) {
		refuse("{}:{}: {}: {}", file, entry.line, entry.key, e.what());
	}
}

size_t
cfg_section::choice(const cfg_entry &entry, std::initializer_list<const char *> accepted) const
{
	std::string words;
	size_t index = 0;
	for (const char *word : accepted) {
		if (entry.value == word)
			return index;
		words += (index++ == 0 ? "" : ", ") + std::string(word);
	}
	refuse_entry(entry, "accepted are " + words);
}
