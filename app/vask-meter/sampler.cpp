/* SPDX-License-Identifier: BSD-3-Clause */
#include "sampler.h"

#include <utility>

bool
sampler::due(uint64_t time_ns)
{
	if (!started_) {
		started_ = true;
		first_ns_ = time_ns;
		next_ns_ = time_ns + interval_ns_;
	}
	return time_ns >= next_ns_;
}

void
sampler::take(uint64_t time_ns, const std::vector<metered> &meters)
{
	for (; next_ns_ <= time_ns; next_ns_ += interval_ns_) {
		push(next_ns_, meters);
		if (samples_.size() < SAMPLES_MAX)
			continue;
		/* those at even intervals stay: the 2nd, the 4th, ... */
		for (size_t i = 0; i < SAMPLES_MAX / 2; i++)
			std::swap(samples_[i], samples_[2 * i + 1]);
		samples_.resize(SAMPLES_MAX / 2);
		interval_ns_ *= 2;
		next_ns_ = samples_.back().time_ns;
	}
}

std::vector<replay_sample>
sampler::finish(uint64_t last_ns, const std::vector<metered> &meters)
{
	take(last_ns, meters);
	if (samples_.empty() || samples_.back().time_ns < last_ns)
		push(last_ns, meters);
	return std::move(samples_);
}

void
sampler::push(uint64_t time_ns, const std::vector<metered> &meters)
{
	replay_sample sample = {time_ns, {}};
	for (const metered &m : meters)
		sample.meters.push_back(m.stats);
	samples_.push_back(std::move(sample));
}
