/* SPDX-License-Identifier: BSD-3-Clause */
#include "replay.h"

#include <optional>

#include <rte_ethdev.h>
#include <rte_mbuf.h>

#include "error.h"
#include "program.h"
#include "sampler.h"

namespace
{
constexpr uint64_t PROGRESS_FRAMES = 65536; /* between two reports */

/* Each meter in each engine that may meet its packets: that of its side, and those of its rules. */
std::vector<metered>
metered_of(const meters_config &config)
{
	std::vector<metered> list;

	for (const meter_config &m : config.meters) {
		bool used[2] = {m.side != meter_side::TX, m.side != meter_side::RX};
		for (const flow_config &f : config.flows)
			if (f.meter == m.id)
				used[f.egress] = true;
		for (const bool egress : {false, true})
			if (used[egress])
				list.push_back(
					{m, egress, vask_p4_find_hw_meterid_by_upid(m.id), {}});
	}
	return list;
}

void
read_stats(std::vector<metered> &meters)
{
	for (metered &m : meters) {
		const int rc = rte_pmd_net_vask1_meter_stats(m.meter.id, m.egress, &m.stats);
		if (rc != 0)
			fail("meter {}: statistics: {}", m.meter.id, rte_strerror(-rc));
	}
}

void
add_drops(uint16_t port, uint16_t ethdev, replay_result &result)
{
	const int n = rte_eth_xstats_get_names(ethdev, nullptr, 0);
	if (n <= 0)
		return;
	std::vector<rte_eth_xstat_name> names(static_cast<size_t>(n));
	std::vector<rte_eth_xstat> values(names.size());
	if (rte_eth_xstats_get_names(ethdev, names.data(), static_cast<unsigned int>(n)) != n ||
		rte_eth_xstats_get(ethdev, values.data(), static_cast<unsigned int>(n)) != n)
		return;
	for (const rte_eth_xstat &x : values)
		if (const std::string name = names[x.id].name;
			x.value != 0 && name.ends_with("_dropped_packets"))
			result.drops.emplace_back(fmt::format("port {} {}", port, name), x.value);
}

/* What became of each packet. Packets go one at a time, so that the counters tell. */
class packet_log
{
      public:
	explicit packet_log(output_file &file) : file_(file)
	{
		file_.write("packet,arrived_ns,length,meters,left_ns\n");
	}

	void arrived(const captured_frame &frame)
	{
		line_ = fmt::format("{},{},{},", frame.number, frame.time_ns, frame.length);
		left_.clear();
	}

	void left(uint64_t left_ns)
	{
		left_ = fmt::format("{}", left_ns);
	}

	void metered_by(const std::vector<metered> &before, const std::vector<metered> &after)
	{
		static const char *const colours[] = {"green", "yellow", "red"};
		std::string words;
		for (size_t i = 0; i < after.size(); i++)
			for (size_t c = 0; c < RTE_COLORS; c++)
				if (after[i].stats.n_pkts[c] != before[i].stats.n_pkts[c])
					words +=
						fmt::format("{}{} {} {}", words.empty() ? "" : "; ",
							after[i].egress ? "tx" : "rx",
							after[i].meter.id, colours[c]);
		file_.write(line_ + words + "," + left_ + "\n");
	}

      private:
	output_file &file_;
	std::string line_, left_;
};

void
count_departure(
	replay_result &result, const rte_mbuf *packet, uint64_t arrived_ns, uint64_t left_ns)
{
	result.left_packets++;
	result.left_bytes += packet->pkt_len;
	if (left_ns > arrived_ns) {
		result.delayed_packets++;
		result.longest_delay_ns = std::max(result.longest_delay_ns, left_ns - arrived_ns);
	}
}

void
count_arrival(replay_result &result, const captured_frame &frame)
{
	if (result.packets++ == 0)
		result.first_ns = frame.time_ns;
	/* time that runs backwards counts as none, as on the card */
	result.last_ns = std::max(result.last_ns, frame.time_ns);
	result.bytes += frame.length;
}
} // namespace

replay_result
replay(const meters_config &config, const replay_options &options)
{
	capture_reader reader(options.capture);
	std::optional<packet_log> log;
	replay_result result = {};

	if (options.packets != nullptr)
		log.emplace(*options.packets);

	const eal_session eal(options.verbose);
	card_ports ports(config.ports, config.enforce);
	if (config.mtu)
		ports.set_mtu(*config.mtu);
	program_ports(config, ports);
	ports.start();
	result.meters = metered_of(config);

	const departure_fn left = [&](const rte_mbuf *packet, uint64_t arrived_ns,
					  uint64_t left_ns) {
		count_departure(result, packet, arrived_ns, left_ns);
		if (options.out != nullptr)
			options.out->write(left_ns, rte_pktmbuf_mtod(packet, const uint8_t *),
				packet->pkt_len);
		if (log)
			log->left(left_ns);
	};
	const uint16_t burst = log ? 1 : card_ports::BURST;
	sampler samples;
	captured_frame frame;
	while (reader.next(frame)) {
		count_arrival(result, frame);
		if (options.samples && samples.due(frame.time_ns)) {
			if (ports.waiting() > 0)
				ports.forward(left);
			read_stats(result.meters);
			samples.take(frame.time_ns, result.meters);
		}
		ports.arrive(frame);
		if (log)
			log->arrived(frame);
		if (ports.waiting() == burst)
			ports.forward(left);
		if (log) {
			const std::vector<metered> before = result.meters;
			read_stats(result.meters);
			log->metered_by(before, result.meters);
		}
		if (options.progress && frame.number % PROGRESS_FRAMES == 0)
			options.progress(reader.position(), reader.size());
	}
	ports.finish(left);
	if (result.packets == 0)
		refuse("{}: no frames; accepted are captures with at least one", options.capture);

	read_stats(result.meters);
	if (options.samples)
		result.samples = samples.finish(result.last_ns, result.meters);
	for (uint16_t port = 0; port < config.ports; port++)
		add_drops(port, ports.ethdev(port), result);
	unprogram_ports(config, ports);
	return result;
}
