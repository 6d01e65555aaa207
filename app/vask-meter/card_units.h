/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_CARD_UNITS_H
#define VASK_METER_CARD_UNITS_H

/**
 * @file
 * What the card's tables and registers hold for a rate or a burst, and what that comes to. The module
 * computes the same when it programs the card, and a test holds the two equal.
 *
 * Every field is cut to its width: higher bits are dropped, not saturated.
 */

#include <cstdint>
#include <string>
#include <vector>

#include "quantity.h"

/** One place in the card where a value comes to stand. */
struct card_field {
	const char *table; /* "meter engine profile" */
	const char *field; /* "cir, eir" */
	uint64_t asked;    /* what the field would need to hold, before it is cut to its width */
	uint64_t holds;
	uint64_t effective; /* in the quantity's own unit (bytes/s, bytes, packets/s, packets) */
	bool limits;        /* false where the value held means "no limit" */
};

/** Every field that a value of this kind reaches. */
std::vector<card_field> card_fields(quantity_kind kind, uint64_t value);

/** What a meter engine does with a rate or burst: the effective value, after rounding and wrapping. */
uint64_t card_engine_effective(quantity_kind kind, uint64_t value);

/** A line about a field whose value is below the resolution or wraps, or nothing. */
std::string card_field_warning(const card_field &field);

#endif /* VASK_METER_CARD_UNITS_H */
