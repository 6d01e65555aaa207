/* SPDX-License-Identifier: BSD-3-Clause */
#include <cstdio>

#include "command.h"
#include "config.h"
#include "error.h"
#include "flow_rule.h"
#include "output_file.h"

namespace
{
std::string config_path, out;

/* Flags of the driver in the statistics mask, and the two counters that it reads. */
uint64_t
stats_mask(const meter_config &m)
{
	uint64_t mask = RTE_MTR_STATS_N_PKTS_DROPPED | RTE_MTR_STATS_N_BYTES_DROPPED;
	if (m.side == meter_side::RX)
		mask |= 1ULL << 63;
	if (m.side == meter_side::TX)
		mask |= 1ULL << 62;
	if (m.original_length)
		mask |= 1ULL << 61;
	return mask;
}

std::string
profile_command(const profile_config &p)
{
	const int mode = p.packet_mode;
	switch (p.algorithm) {
	case RTE_MTR_SRTCM_RFC2697:
		return fmt::format("add port meter profile srtcm_rfc2697 0 {} {} {} {} {}", p.id,
			p.cir, p.cbs, p.ebs, mode);
	case RTE_MTR_TRTCM_RFC2698:
		return fmt::format("add port meter profile trtcm_rfc2698 0 {} {} {} {} {} {}", p.id,
			p.cir, p.eir, p.cbs, p.ebs, mode);
	default:
		return fmt::format("add port meter profile trtcm_rfc4115 0 {} {} {} {} {} {}", p.id,
			p.cir, p.eir, p.cbs, p.ebs, mode);
	}
}

std::string
action_words(const colour_config &colour)
{
	switch (colour.action) {
	case colour_config::DSCP:
		return fmt::format("set_ipv4_dscp dscp_value {} / end", colour.dscp);
	case colour_config::DROP:
		return "drop / end";
	default:
		return "end";
	}
}

/* How testpmd is to be started, as comments: its prompt skips them. */
std::string
start_lines(const meters_config &config)
{
	std::string text = fmt::format(
		"# The set-up of {}. Give this file to testpmd with --cmdline-file, after options like these:\n"
		"#   dpdk-testpmd --no-huge --no-pci -m 256 -d librte_net_vask1.so\n",
		config.path);
	for (uint16_t port = 0; port < config.ports; port++)
		text += fmt::format(
			"#     --vdev net_vask1_{0},uplink=net_pcap{0},clock=capture{1}\n", port,
			config.enforce ? ",shapers=enforce" : "");
	for (uint16_t port = 0; port < config.ports; port++)
		text += fmt::format("#     --vdev net_pcap{0},{1}tx_pcap=out{0}.pcap\n", port,
			port == 0 ? "rx_pcap=CAPTURE," : "");
	return text +
		"#     -- -i --no-flush-rx --total-num-mbufs=8192 --cmdline-file FILE\n"
		"# Then: start, stop, show port meter stats 0 ID no\n";
}

std::string
commands(const meters_config &config)
{
	std::string text = start_lines(config);

	if (config.mtu)
		for (uint16_t port = 0; port < config.ports; port++)
			text += fmt::format("port config mtu {} {}\n", port, *config.mtu);
	for (const profile_config &p : config.profiles)
		text += profile_command(p) + "\n";
	for (const policy_config &p : config.policies)
		text += fmt::format(
			"add port meter policy 0 {} g_actions {} y_actions {} r_actions {}\n", p.id,
			action_words(p.colours[RTE_COLOR_GREEN]),
			action_words(p.colours[RTE_COLOR_YELLOW]),
			action_words(p.colours[RTE_COLOR_RED]));
	for (const meter_config &m : config.meters) {
		text += fmt::format("create port meter {} {} {} {} {} {:#x} 0 g {:d}\n", m.port,
			m.id, m.profile, m.policy, m.enable ? "yes" : "no", stats_mask(m),
			m.colour_aware);
		/* creation enables it whatever it was asked */
		if (!m.enable)
			text += fmt::format("disable port meter {} {}\n", m.port, m.id);
	}
	for (const flow_config &f : config.flows)
		text += flow_rule_command(f) + "\n";
	return text;
}
} // namespace

void
add_testpmd_command(CLI::App &app)
{
	CLI::App *testpmd = app.add_subcommand("testpmd", "testpmd's commands for the same set-up");
	testpmd->add_option("CONFIG", config_path, "profiles, policies, meters and flow rules")
		->required();
	add_output(*testpmd, "-o,--out", out, "a file for them; else standard output");
	set_footer(
		*testpmd, "vask-meter testpmd examples/metered-port.cfg -o metered-port.testpmd");
	testpmd->callback([] {
		check_distinct({{"CONFIG", config_path}, {"--out", out}});
		const std::string text = commands(config_read(config_path));
		if (out.empty())
			fmt::print("{}", text);
		else
			write_whole_file(out, text);
	});
}
