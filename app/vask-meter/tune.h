/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_TUNE_H
#define VASK_METER_TUNE_H

/**
 * @file
 * Which committed rate and burst does this traffic need? The buckets are the card's own, so rates and bursts
 * are the ones that it can hold: units of 8000 bytes/s and 1024 bytes, or packets.
 */

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <rte_meter.h>
#include <rte_mtr.h>

struct tune_packet {
	uint64_t time_ns;
	uint32_t length;
};

struct tune_options {
	std::string capture;
	std::string filter; /* of libpcap; empty: every packet */
	enum rte_mtr_algorithm algorithm;
	bool packet_mode;
	uint32_t excess_percent; /* the second rate and burst, see tune_color_counts() */
	double loss;             /* the share of packets that may be red */
};

/** What a committed rate and burst, in the card's units, make of the traffic; rate 0: none is large enough. */
struct tune_point {
	uint32_t rate, burst;
	std::array<uint64_t, RTE_COLORS> counts; /* packets */
};

struct tune_result {
	uint64_t packets;
	uint32_t mean; /* rate, in the card's units */
	std::vector<uint32_t> rates, bursts;
	std::vector<tune_point>
		sweep; /* every rate with every burst: bursts of the first rate first */
	std::vector<tune_point> smallest; /* for each burst, by tune_rate() */
};

/** Bytes/s or packets/s, and as people write them. */
uint64_t tune_rate_value(const tune_options &options, uint32_t rate);
std::string tune_rate_text(const tune_options &options, uint32_t rate);
/** Bytes or packets, and as people write them. */
uint64_t tune_burst_value(const tune_options &options, uint32_t burst);
std::string tune_burst_text(const tune_options &options, uint32_t burst);

/** Tries rates around the traffic's mean, and bursts from small to large. */
tune_result tune_run(const std::vector<tune_packet> &packets, const tune_options &options);

/** Reads the packets that pass the filter. @throws vask_meter_error, also when there are none. */
std::vector<tune_packet> tune_read(const tune_options &options);

/**
 * The packets of each colour under a committed rate and burst in the card's units. The excess burst of
 * RFC 2697 and 4115 and the excess rate of RFC 4115 are excess_percent of the committed ones; peak rate and
 * peak burst of RFC 2698 are that much above them.
 */
std::array<uint64_t, RTE_COLORS> tune_color_counts(const std::vector<tune_packet> &packets,
	const tune_options &options, uint32_t rate, uint32_t burst);

/**
 * A rate that keeps the loss within the bound with that burst, while one unit less does not; 0 when not even
 * the largest rate does.
 */
uint32_t
tune_rate(const std::vector<tune_packet> &packets, const tune_options &options, uint32_t burst);

/** Traffic's mean rate in the card's units, at least 1. */
uint32_t tune_mean_rate(const std::vector<tune_packet> &packets, bool packet_mode);

#endif /* VASK_METER_TUNE_H */
