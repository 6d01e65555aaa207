/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_REPLAY_H
#define VASK_METER_REPLAY_H

/**
 * @file
 * A capture sent through metered ports.
 */

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "capture.h"
#include "config.h"
#include "rte_pmd_net_vask1.h"

using meter_stats = struct rte_pmd_net_vask1_meter_stats;

/** A meter in one of the two engines. */
struct metered {
	meter_config meter;
	bool egress;
	uint32_t hw_meter_id;
	meter_stats stats;

	uint64_t offered_packets() const
	{
		return stats.n_pkts[0] + stats.n_pkts[1] + stats.n_pkts[2];
	}
	uint64_t offered_bytes() const
	{
		return stats.n_bytes[0] + stats.n_bytes[1] + stats.n_bytes[2];
	}
	uint64_t passed_packets() const
	{
		return offered_packets() - stats.n_pkts_dropped;
	}
	uint64_t passed_bytes() const
	{
		return offered_bytes() - stats.n_bytes_dropped;
	}
};

/** Where all meters stood at a moment: their counters since the start, and their levels. */
struct replay_sample {
	uint64_t time_ns;
	std::vector<meter_stats> meters; /* as replay_result::meters */
};

struct replay_result {
	uint64_t packets, bytes, first_ns, last_ns; /* of the capture */
	uint64_t left_packets, left_bytes;
	uint64_t delayed_packets, longest_delay_ns;
	std::vector<std::pair<std::string, uint64_t>>
		drops; /* what the ports dropped, by cause; no zeros */
	std::vector<metered> meters;
	std::vector<replay_sample>
		samples; /* at even intervals; empty unless they were asked for */

	double seconds() const
	{
		return static_cast<double>(last_ns - first_ns) / 1e9;
	}
};

struct replay_options {
	std::string capture;
	capture_writer *out = nullptr;  /* what leaves; null: not wanted */
	output_file *packets = nullptr; /* a line for each packet; null: not wanted */
	bool verbose = false;
	bool samples = false;
	/** Told now and then how far the capture has been read, of how much. */
	std::function<void(uint64_t, uint64_t)> progress;
};

/**
 * Starts EAL and the ports, programs them, replays the capture and takes everything down again.
 *
 * Neither output is finished: that is left to the caller.
 *
 * @throws vask_meter_error
 */
replay_result replay(const meters_config &config, const replay_options &options);

#endif /* VASK_METER_REPLAY_H */
