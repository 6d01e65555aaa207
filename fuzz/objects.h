/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef FUZZ_OBJECTS_H
#define FUZZ_OBJECTS_H

/**
 * @file
 * Profiles, policies and meters through rte_mtr, as an application makes them.
 */

#include <cstdint>

#include "input.h"

/** Statistics masks that say which side of the port a meter is for. */
constexpr uint64_t FUZZ_RX = UINT64_C(1) << 63;
constexpr uint64_t FUZZ_TX = UINT64_C(1) << 62;
constexpr uint64_t FUZZ_BOTH = 0;

/** Adds a profile of any parameters; false when it is refused. */
bool fuzz_profile_add(Input &input, uint16_t port, uint32_t id);

/** Adds a policy that passes, rewrites or drops each colour; `passes` for one that passes all. */
void fuzz_policy_add(Input &input, uint16_t port, uint32_t id, bool passes);

/** Creates a meter on profile 1 and policy 1; false when it is refused. */
bool fuzz_meter_create(uint16_t port, uint32_t id, uint64_t side, bool color_aware);

/** Destroys every meter, profile and policy (but the default one) of the card and checks the pools. */
void fuzz_objects_clear(uint16_t port);

#endif /* FUZZ_OBJECTS_H */
