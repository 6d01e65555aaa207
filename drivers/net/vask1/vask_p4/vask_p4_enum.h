/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_P4_ENUM_H
#define VASK_P4_ENUM_H

/**
 * @file
 * Enumerations that come from callers.
 */

#include <cstring>

/**
 * The number in an enumeration that the caller filled. Callers are C programs, where it may be any; to read
 * it as an enumeration is undefined in C++ when it is past the enumerators.
 */
template <typename Enum>
unsigned int
vask_p4_enum_number(const Enum *value)
{
	unsigned int number;

	static_assert(sizeof(number) == sizeof(*value));
	memcpy(&number, value, sizeof(number));
	return number;
}

#endif /* VASK_P4_ENUM_H */
