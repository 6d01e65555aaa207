/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_FLOW_SLOT_H
#define VASK_FLOW_SLOT_H

/**
 * @file
 * A slot of a tuple: the key of a rule beside what most packets ask of it, so that one cache line answers them.
 * The control lock's holder changes it under the eyes of packets.
 */

#include <atomic>
#include <cstdint>

struct rte_flow;

/**
 * A rule in brief, in one word: bits 0..31 are the hardware meter of its packets, 0 for none; the others are the
 * VASK_FLOW_BRIEF_... flags.
 */
using vask_flow_brief = uint64_t;

/** Of a slot: it has a rule; to be read with acquire before anything else of it. Of a rule: it has been a head. */
constexpr vask_flow_brief VASK_FLOW_BRIEF_RULE = UINT64_C(1) << 32;
/** It meters and does nothing else. */
constexpr vask_flow_brief VASK_FLOW_BRIEF_METERS_ONLY = UINT64_C(1) << 33;
/** Of a slot: its rule is gone, but packets may still compare the key. */
constexpr vask_flow_brief VASK_FLOW_BRIEF_GONE = UINT64_C(1) << 34;

struct vask_flow_slot {
	std::atomic<vask_flow_brief> brief; /* 0: the slot is free */
	std::atomic<struct rte_flow *> rule;
	uint64_t key[]; /* masked words, in whole pairs; fixed until the slot is free */
};

#endif /* VASK_FLOW_SLOT_H */
