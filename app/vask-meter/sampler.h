/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_SAMPLER_H
#define VASK_METER_SAMPLER_H

/**
 * @file
 * Snapshots at even intervals over a time whose length nobody knows beforehand, in bounded memory: when they
 * become too many every other one goes, and the interval doubles.
 */

#include <cstdint>
#include <vector>

#include "replay.h"

class sampler
{
      public:
	static constexpr size_t SAMPLES_MAX = 400; /* even */

	/** True when a sample is due before a packet of that time is metered. The first packet starts time. */
	bool due(uint64_t time_ns);

	/** Where the meters stand, for every interval that ends by time_ns. */
	void take(uint64_t time_ns, const std::vector<metered> &meters);

	/** The last one, at the end of the capture. */
	std::vector<replay_sample> finish(uint64_t last_ns, const std::vector<metered> &meters);

      private:
	void push(uint64_t time_ns, const std::vector<metered> &meters);

	bool started_ = false;
	uint64_t first_ns_ = 0, next_ns_ = 0;
	uint64_t interval_ns_ = 1000000;
	std::vector<replay_sample> samples_;
};

#endif /* VASK_METER_SAMPLER_H */
