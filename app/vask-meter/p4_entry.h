/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_P4_ENTRY_H
#define VASK_METER_P4_ENTRY_H

/**
 * @file
 * The packed entries of the P4 tables, from named fields to bytes and back.
 *
 * Bit n of an entry is bit n % 8, counted from the least significant, of byte n / 8; numbers are in the byte
 * order of the host.
 */

#include <cstdint>
#include <span>
#include <string>
#include <vector>

/** One field of an entry. */
struct p4_field {
	const char *name;
	unsigned int first_bit;
	unsigned int width;
	const char *meaning;
};

/** One kind of entry. The fields cover every bit of it, in order. */
struct p4_layout {
	const char *name; /* profile, policer, instance */
	size_t size;      /* bytes */
	std::span<const p4_field> fields;
};

/** The layouts: profile (33 bytes), policer (3) and instance (6). */
std::span<const p4_layout> p4_layouts();

/** @throws vask_meter_error when there is no layout of that name. */
const p4_layout &p4_layout_by_name(const std::string &name);

/** The bytes of an entry. @throws vask_meter_error when a value does not fit its field. */
std::vector<uint8_t> p4_encode(const p4_layout &layout, std::span<const uint64_t> values);

/** The fields of an entry, one value for each of layout.fields. @throws vask_meter_error on another size. */
std::vector<uint64_t> p4_decode(const p4_layout &layout, std::span<const uint8_t> bytes);

/** What the tables do with a field's value, in words; empty where the number says it all. */
std::string p4_field_words(const p4_field &field, uint64_t value);

/** What the tables refuse or read otherwise than its author may think; a line each. */
std::vector<std::string> p4_remarks(const p4_layout &layout, std::span<const uint64_t> values);

/** The entry drawn: a table of its fields, then its bytes bit by bit. */
std::string p4_draw(const p4_layout &layout, std::span<const uint64_t> values);

std::string hex_of(std::span<const uint8_t> bytes);

/** Bytes of a text of hexadecimal digits; spaces, colons and a leading 0x are passed over. */
std::vector<uint8_t> bytes_of_hex(const std::string &text);

#endif /* VASK_METER_P4_ENTRY_H */
