/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef RUNNER_FAKE_H
#define RUNNER_FAKE_H

/**
 * @file
 * The recording fake under the module and the state text, as FORMAT.md describes them. One thread.
 */

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "vask_cmd_api.h"
#include "vask_p4_meter.h"

/** A pool: the manager that the module sees, and what is in use. */
struct runner_pool {
	VASK_P4_INDEXSTACK_MANAGER manager;
	std::vector<uint8_t> used;
	bool dead;
	unsigned int number;
};

/** A block that the module has obtained and not freed. */
struct runner_block {
	void *address;
	char kind; /* P, Q, M, or ? */
};

/** The fake's memory of one scenario, and of its current step. */
struct runner_fake {
	/* the scenario */
	std::map<int64_t, uint16_t> ports;
	std::array<uint8_t, 28> tx_default;
	std::map<uint32_t, std::array<uint8_t, 28>> tx;
	std::array<std::array<uint8_t, 32>, 2> instances;
	std::deque<runner_pool> pools;
	std::vector<runner_block> live;
	unsigned int bad_frees;

	/* the step */
	bool recording;     /* the module is running */
	std::string events; /* inside of a JSON array */
	std::map<std::pair<std::string, int64_t>, int> faults;
	std::map<std::string, int64_t> calls;
	unsigned int channels;
};

extern struct runner_fake fake;

/** Frees what the module left behind and empties lists and pointers. */
void runner_reset();

/** Forgets the events, faults and counts of the last step. */
void runner_begin_step();

/** The fake's pool behind one of the module's pointers; null for a null or foreign one. */
struct runner_pool *runner_pool_of(const VASK_P4_INDEXSTACK_MANAGER *manager);

/** A record as the state text has it. */
std::string runner_text(const struct vask_p4_meter_profile &profile);

/** The state text. */
std::string runner_state();

/** Bytes as hex digits in memory order. */
std::string runner_hex(const void *bytes, size_t size);

/** As printf() formats. */
std::string runner_format(const char *text, ...) __attribute__((format(printf, 1, 2)));

/** The locked live records as events show them. */
std::string runner_locks();

/** Appends an event. */
void runner_record(const std::string &event);

/** Counts a call; whether it is to fail, and with which code. */
bool runner_planned(const char *operation, int *code);

/** A manager's number as events show it. */
std::string runner_manager_name(const VASK_P4_INDEXSTACK_MANAGER *manager);

/** A JSON string literal. */
std::string runner_quoted(const std::string &text);

#endif /* RUNNER_FAKE_H */
