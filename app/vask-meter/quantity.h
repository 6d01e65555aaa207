/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_QUANTITY_H
#define VASK_METER_QUANTITY_H

/**
 * @file
 * Rates, bursts and packet rates as people write them.
 */

#include <cstdint>
#include <string>

enum class quantity_kind {
	RATE,        /* bytes/s */
	BURST,       /* bytes */
	PACKET_RATE, /* packets/s */
	PACKETS,     /* packets */
};

struct quantity {
	quantity_kind kind;
	uint64_t value; /* in the kind's unit */
	bool cut;       /* the text named a fraction of the unit, which was cut off */
};

/**
 * Reads a number with its unit: 10Mbit/s, 1.25MB/s, 64KiB, 5000pps, 32packets; a space may stand between.
 * The arithmetic is exact: a fraction below the kind's unit is cut off, never rounded up.
 *
 * @throws vask_meter_error that names the text and what is accepted: no number, an unknown unit, or a value
 *   above 2^64 - 1.
 */
quantity quantity_parse(const std::string &text);

/** The units that quantity_parse() knows, for help and messages. */
extern const char *const QUANTITY_UNITS;

/** "10 Mbit/s", "9.984 Mbit/s": bytes/s in bits, four significant decimals at most. */
std::string format_rate(double bytes_per_second);

/** "64 KiB", "1500 B": exact, in the largest binary unit that divides it. */
std::string format_bytes(uint64_t bytes);

/** A rate, a burst or packets in its own unit. */
std::string format_quantity(quantity_kind kind, uint64_t value);

#endif /* VASK_METER_QUANTITY_H */
