/* SPDX-License-Identifier: BSD-3-Clause */
#include "tune.h"

#include <algorithm>

#include <pcap/pcap.h>

#include "capture.h"
#include "error.h"
#include "interrupt.h"
#include "quantity.h"
#include "softcard_bucket.h"

namespace
{
constexpr uint32_t RATE_MAX = (1 << 26) - 1;
constexpr uint32_t BURST_MAX = (1 << 20) - 1;
constexpr uint64_t RATE_UNIT = 8000;  /* bytes/s */
constexpr uint64_t BURST_UNIT = 1024; /* bytes */

/* Bursts that are tried: 2 KiB to 1 MiB, or 1 to 512 packets. */
constexpr uint32_t BURSTS_BYTES[] = {2, 4, 8, 16, 32, 64, 128, 256, 512, 1024};
constexpr uint32_t BURSTS_PACKETS[] = {1, 2, 4, 8, 16, 32, 64, 128, 256, 512};
/* Rates that are tried, in percent of the traffic's mean. */
constexpr uint32_t RATES_PERCENT[] = {50, 75, 90, 100, 110, 125, 150, 200, 300, 400};

/* A filter that runs on frames from anywhere. */
class frame_filter
{
      public:
	explicit frame_filter(const std::string &text)
	{
		pcap_t *dead = pcap_open_dead(DLT_EN10MB, 262144);
		const bool compiled =
			pcap_compile(dead, &program_, text.c_str(), 1, PCAP_NETMASK_UNKNOWN) == 0;
		const std::string why = pcap_geterr(dead);
		pcap_close(dead);
		if (!compiled)
			refuse("--filter \"{}\": {}; accepted is an expression of pcap-filter(7)",
				text, why);
	}
	~frame_filter()
	{
		pcap_freecode(&program_);
	}
	frame_filter(const frame_filter &) = delete;
	frame_filter &operator=(const frame_filter &) = delete;

	bool passes(const captured_frame &frame) const
	{
		pcap_pkthdr header = {};
		header.caplen = header.len = frame.length;
		return pcap_offline_filter(&program_, &header, frame.data) != 0;
	}

      private:
	bpf_program program_ = {};
};

uint32_t
part(uint32_t value, uint32_t percent, uint32_t max)
{
	return static_cast<uint32_t>(std::min<uint64_t>(uint64_t{value} * percent / 100, max));
}

softcard_bucket_params
params_of(const tune_options &options, uint32_t rate, uint32_t burst)
{
	const uint32_t excess = options.excess_percent;

	switch (options.algorithm) {
	case RTE_MTR_TRTCM_RFC2698:
		return softcard_bucket_params_make(rate, burst, part(rate, 100 + excess, RATE_MAX),
			part(burst, 100 + excess, BURST_MAX), options.packet_mode, true);
	case RTE_MTR_TRTCM_RFC4115:
		return softcard_bucket_params_make(rate, burst, part(rate, excess, RATE_MAX),
			part(burst, excess, BURST_MAX), options.packet_mode, false);
	default:
		return softcard_bucket_params_make(
			rate, burst, 0, part(burst, excess, BURST_MAX), options.packet_mode, false);
	}
}

bool
within(const std::vector<tune_packet> &packets, const tune_options &options, uint32_t rate,
	uint32_t burst)
{
	const uint64_t red = tune_color_counts(packets, options, rate, burst)[RTE_COLOR_RED];
	return static_cast<double>(red) <= options.loss * static_cast<double>(packets.size());
}
} // namespace

uint64_t
tune_rate_value(const tune_options &options, uint32_t rate)
{
	return options.packet_mode ? rate : rate * RATE_UNIT;
}

std::string
tune_rate_text(const tune_options &options, uint32_t rate)
{
	return format_quantity(
		options.packet_mode ? quantity_kind::PACKET_RATE : quantity_kind::RATE,
		tune_rate_value(options, rate));
}

uint64_t
tune_burst_value(const tune_options &options, uint32_t burst)
{
	return options.packet_mode ? burst : burst * BURST_UNIT;
}

std::string
tune_burst_text(const tune_options &options, uint32_t burst)
{
	return format_quantity(options.packet_mode ? quantity_kind::PACKETS : quantity_kind::BURST,
		tune_burst_value(options, burst));
}

std::vector<tune_packet>
tune_read(const tune_options &options)
{
	capture_reader reader(options.capture);
	const frame_filter filter(options.filter);
	std::vector<tune_packet> packets;
	captured_frame frame;

	while (reader.next(frame))
		if (filter.passes(frame))
			packets.push_back({frame.time_ns, frame.length});
	if (packets.empty())
		refuse("{}: no frames{}; accepted are captures with at least one", options.capture,
			options.filter.empty()
				? ""
				: fmt::format(" that pass --filter \"{}\"", options.filter));
	return packets;
}

std::array<uint64_t, RTE_COLORS>
tune_color_counts(const std::vector<tune_packet> &packets, const tune_options &options,
	uint32_t rate, uint32_t burst)
{
	const softcard_bucket_params params = params_of(options, rate, burst);
	softcard_bucket_state state = {softcard_bucket_full_c(params),
		softcard_bucket_full_e(params), packets.front().time_ns};
	std::array<uint64_t, RTE_COLORS> counts = {};

	stop_if_interrupted();
	for (const tune_packet &p : packets)
		counts[softcard_bucket_check(params, state, p.time_ns, RTE_COLOR_GREEN,
			softcard_bucket_cost(params, p.length))]++;
	return counts;
}

uint32_t
tune_rate(const std::vector<tune_packet> &packets, const tune_options &options, uint32_t burst)
{
	uint32_t high = 1;

	while (!within(packets, options, high, burst)) {
		if (high == RATE_MAX)
			return 0;
		high = std::min(high * 2, RATE_MAX);
	}
	/* below `low` loses too much, `high` does not */
	for (uint32_t low = high / 2 + 1; low < high;) {
		const uint32_t middle = low + (high - low) / 2;
		if (within(packets, options, middle, burst))
			high = middle;
		else
			low = middle + 1;
	}
	return high;
}

uint32_t
tune_mean_rate(const std::vector<tune_packet> &packets, bool packet_mode)
{
	const uint64_t span = packets.back().time_ns > packets.front().time_ns
		? packets.back().time_ns - packets.front().time_ns
		: 1;
	unsigned __int128 amount = 0;
	for (const tune_packet &p : packets)
		amount += packet_mode ? 1 : p.length;
	const unsigned __int128 rate = amount * 1000000000 / span / (packet_mode ? 1 : RATE_UNIT);
	return static_cast<uint32_t>(std::clamp<unsigned __int128>(rate, 1, RATE_MAX));
}

tune_result
tune_run(const std::vector<tune_packet> &packets, const tune_options &options)
{
	tune_result result = {};
	const auto point = [&](uint32_t rate, uint32_t burst) {
		return tune_point{rate, burst, tune_color_counts(packets, options, rate, burst)};
	};

	result.packets = packets.size();
	result.mean = tune_mean_rate(packets, options.packet_mode);
	if (options.packet_mode)
		result.bursts.assign(std::begin(BURSTS_PACKETS), std::end(BURSTS_PACKETS));
	else
		result.bursts.assign(std::begin(BURSTS_BYTES), std::end(BURSTS_BYTES));
	for (const uint32_t percent : RATES_PERCENT)
		result.rates.push_back(static_cast<uint32_t>(
			std::clamp<uint64_t>(uint64_t{result.mean} * percent / 100, 1, RATE_MAX)));
	/* slow traffic gives the same rate more than once */
	result.rates.erase(
		std::unique(result.rates.begin(), result.rates.end()), result.rates.end());

	for (const uint32_t rate : result.rates)
		for (const uint32_t burst : result.bursts)
			result.sweep.push_back(point(rate, burst));
	for (const uint32_t burst : result.bursts)
		result.smallest.push_back(point(tune_rate(packets, options, burst), burst));
	return result;
}
