/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef FUZZ_RULES_H
#define FUZZ_RULES_H

/**
 * @file
 * Items and actions of any kind and content.
 */

#include "flow_support.h"
#include "input.h"

/** Queues that QUEUE actions name, and one more; meters that METER actions name mostly. */
constexpr unsigned FUZZ_RULE_QUEUES = 5;
constexpr unsigned FUZZ_RULE_METERS = 6;

/** Adds an item, whose spec, mask and last are bytes of the input, of the frame, or all ones. */
void fuzz_item_add(Input &input, const vask_test::Bytes &frame, vask_test::Rule *rule);

/** Adds an action. */
void fuzz_action_add(Input &input, vask_test::Rule *rule);

#endif /* FUZZ_RULES_H */
