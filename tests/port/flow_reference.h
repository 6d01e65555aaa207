/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef FLOW_REFERENCE_H
#define FLOW_REFERENCE_H

/*
 * What rules say about a frame, found the slow way: every rule in order of rank, every item byte by byte.
 * Shares no code with the port's classification.
 */

#include <cstdint>
#include <optional>
#include <vector>

#include "flow_support.h"

namespace vask_test
{

class FlowReference
{
      public:
	/* What becomes of a frame. */
	struct Answer {
		uint32_t meter = 0;
		bool drop = false;
		std::optional<uint16_t> queue;
		std::vector<int> counted; /* names of the COUNT rules that it met */
	};

	/* Adds a rule, younger than all others, under a name. */
	void Add(int name, const Rule &rule);
	void Remove(int name);
	Answer Classify(const Bytes &frame) const;

      private:
	struct Entry {
		int name;
		Rule rule;
	};

	std::vector<Entry> entries_; /* by priority, then age */
};

} // namespace vask_test

#endif /* FLOW_REFERENCE_H */
