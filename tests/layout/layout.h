/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef TESTS_LAYOUT_LAYOUT_H
#define TESTS_LAYOUT_LAYOUT_H

/**
 * @file
 * Checks a record against a table of its fields: `{field, first bit, width}`, bit 0 being the lowest bit of
 * the record's first byte.
 */

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

template <typename Record> struct FieldRow {
	const char *name;
	unsigned first;
	unsigned width;
	void (*fill)(Record &);
};

/* One below 0 is all ones, in a field of any width. */
#define FIELD(field, first, width) \
	{ \
#field, first, width, [](auto &record) { \
			record.field = record.field - 1; \
		} \
	}

template <typename Record> using FieldTable = std::initializer_list<FieldRow<Record>>;

/** Fills each field alone and compares the whole image in memory. */
template <typename Record>
void
ExpectFieldsAt(FieldTable<Record> table)
{
	for (const FieldRow<Record> &row : table) {
		std::vector<uint8_t> expected(sizeof(Record));
		for (unsigned bit = row.first; bit < row.first + row.width; bit++)
			expected.at(bit / 8) |= 1u << (bit % 8);

		Record record;
		memset(static_cast<void *>(&record), 0, sizeof(record));
		row.fill(record);
		std::vector<uint8_t> image(sizeof(Record));
		memcpy(image.data(), &record, sizeof(record));
		EXPECT_THAT(image, ::testing::ElementsAreArray(expected)) << row.name;
	}
}

/** The same, and the table leaves no bit of the record out: its rows follow one another to the end. */
template <typename Record>
void
ExpectWholeRecord(FieldTable<Record> table)
{
	static_assert(std::has_unique_object_representations_v<Record>);
	unsigned next = 0;
	for (const FieldRow<Record> &row : table) {
		EXPECT_EQ(row.first, next) << row.name;
		next = row.first + row.width;
	}
	EXPECT_EQ(next, 8 * sizeof(Record));
	ExpectFieldsAt<Record>(table);
}

#endif /* TESTS_LAYOUT_LAYOUT_H */
