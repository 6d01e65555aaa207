/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef SOFTCARD_FAULT_H
#define SOFTCARD_FAULT_H

/**
 * @file
 * Faults on demand: a lower-layer operation fails its n-th call, or every call, with a given code, or is
 * delayed. A call that fails changes nothing on the card. Control path only, but safe from any thread.
 */

#include <cstddef>
#include <cstdint>

constexpr uint32_t SOFTCARD_FAULTS = 64;     /* set at one time */
constexpr uint64_t SOFTCARD_FAULT_EVERY = 0; /* in place of n */
constexpr int SOFTCARD_FAULT_DELAY_ONLY = 0; /* in place of a code: the call is delayed and done */

struct softcard_fault {
	const char *operation; /* its function's name, in the card's own storage */
	uint64_t nth;          /* the call that fails, 1 being the next one; SOFTCARD_FAULT_EVERY */
	int code; /* what it returns (vask_p4_get_global_cmd_channel: null, whatever the code) */
	uint32_t delay_us; /* microseconds that the call takes longer */
	uint64_t calls;    /* calls seen since it was set */
	uint64_t hits;     /* calls that it hit */
};

/**
 * Sets a fault; several may be set on one operation, and calls are counted from here for each.
 *
 * @return 0; -ENOENT for an unknown operation; -EINVAL for neither code nor delay; -ENOTSUP for a code where
 *   the operation returns nothing (vask_p4_indexstack_destroy); -ENOSPC.
 */
int softcard_fault_set(const char *operation, uint64_t nth, int code, uint32_t delay_us);

/**
 * Sets a fault given as text: `<operation>:<n|every>:<code>[:<delay in microseconds>]`.
 *
 * @param why  receives a line that says what was wrong, the operations' names where one was misspelt.
 * @return as softcard_fault_set(); -EINVAL for text that does not read so.
 */
int softcard_fault_parse(const char *text, char *why, size_t why_size);

/** Lifts all faults. */
void softcard_fault_clear();

/** Lifts all faults but the n oldest. */
void softcard_fault_keep(uint32_t n);

/** Copies the faults that are set, the oldest first. Returns how many there are. */
uint32_t softcard_fault_list(struct softcard_fault *list, uint32_t n);

/** The name of the i-th operation, or null past the last one. */
const char *softcard_operation_name(uint32_t i);

#endif /* SOFTCARD_FAULT_H */
