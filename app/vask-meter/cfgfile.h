/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_CFGFILE_H
#define VASK_METER_CFGFILE_H

/**
 * @file
 * A file in the format of librte_cfgfile, with the line of each key, and readers of values that refuse
 * with file, line, key and value.
 */

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "quantity.h"

struct cfg_entry {
	std::string key, value;
	unsigned int line;
};

/** "[name id]": sections of one kind carry a number, and some have none. */
struct cfg_section {
	std::string file, name;
	std::optional<uint32_t> id;
	unsigned int line;
	std::vector<cfg_entry> entries;

	/** The entry of that key, or null. */
	const cfg_entry *find(const std::string &key) const;
	/** The entry of that key. @throws vask_meter_error when there is none; `accepted` ends the line. */
	const cfg_entry &need(const std::string &key, const std::string &accepted) const;
	/** @throws vask_meter_error for a key that is none of these, or that is given twice. */
	void check_keys(std::initializer_list<const char *> keys) const;
	/** "file:12: [meter 9]" */
	std::string where() const;
	/** Refuses an entry: "file:12: cir: "10": what". */
	[[noreturn]] void refuse_entry(const cfg_entry &entry, const std::string &what) const;

	uint32_t number(const cfg_entry &entry, uint32_t min, uint32_t max) const;
	bool yes(const char *key, bool otherwise) const;
	quantity amount(const cfg_entry &entry) const;
	/** One of the words, as its index. */
	size_t choice(const cfg_entry &entry, std::initializer_list<const char *> accepted) const;
};

/** Reads a file. @throws vask_meter_error: no file, or lines that are neither section, key nor comment. */
std::vector<cfg_section> cfgfile_read(const std::string &path);

#endif /* VASK_METER_CFGFILE_H */
