/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef TESTS_PORT_TWO_INTERFACES_H
#define TESTS_PORT_TWO_INTERFACES_H

/**
 * @file
 * One profile, policy and meter programmed through rte_mtr or through the P4 tables, and what becomes of the
 * card and of packets.
 */

#include "port_test.h"

#include <ostream>

#include <rte_ip.h>
#include <rte_mbuf.h>

#include "rte_pmd_net_vask1.h"

namespace vask_test
{

constexpr uint32_t PROFILE = 5, POLICY = 7, METER = 9;

enum Action : uint8_t { PASS, REWRITE, DROP };

/** What both interfaces are asked for. */
struct Wanted {
	rte_mtr_algorithm alg = RTE_MTR_SRTCM_RFC2697;
	bool packet_mode = false;
	uint64_t cir = 80000, eir = 160000, cbs = 4096, ebs = 8192;
	Action green = PASS, yellow = PASS, red = DROP;
	uint8_t green_dscp = 0, yellow_dscp = 0, red_dscp = 0;
	bool transmit = false, colour_aware = false, original_length = false;
};

/** A frame that came through. */
struct Passed {
	uint32_t length; /* tells the frames of a round apart */
	uint8_t colour;
	uint8_t dscp;

	bool operator==(const Passed &) const = default;
};

inline void
PrintTo(const Passed &passed, std::ostream *os)
{
	*os << passed.length << " colour " << int{passed.colour} << " dscp " << int{passed.dscp};
}

struct Outcome {
	std::string tables; /* all of the card and of the registry, as the port dumps them */
	std::vector<Passed> frames;
};

class TwoInterfaces : public PortTest
{
      protected:
	/* A fresh card with one port. */
	void Open()
	{
		wire_ = make_wire("wire");
		ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire,clock=capture,tick=ns,sfi=7"),
			0);
		port_ = port_of("net_vask1_0");
		ASSERT_EQ(start(port_), 0);
	}

	void Close()
	{
		ASSERT_EQ(remove("net_vask1_0"), 0);
		remove_wire(wire_);
	}

	std::string Dump()
	{
		char *text = nullptr;
		size_t size = 0;
		FILE *file = open_memstream(&text, &size);

		EXPECT_EQ(rte_eth_dev_priv_dump(port_, file), 0);
		fclose(file);
		std::string dumped(text, size);
		free(text);
		return dumped;
	}

	static rte_mtr_meter_profile Profile(const Wanted &wanted)
	{
		rte_mtr_meter_profile profile = {};

		profile.alg = wanted.alg;
		profile.packet_mode = wanted.packet_mode;
		if (wanted.alg == RTE_MTR_SRTCM_RFC2697) {
			profile.srtcm_rfc2697.cir = wanted.cir;
			profile.srtcm_rfc2697.cbs = wanted.cbs;
			profile.srtcm_rfc2697.ebs = wanted.ebs;
		} else if (wanted.alg == RTE_MTR_TRTCM_RFC2698) {
			profile.trtcm_rfc2698.cir = wanted.cir;
			profile.trtcm_rfc2698.pir = wanted.eir;
			profile.trtcm_rfc2698.cbs = wanted.cbs;
			profile.trtcm_rfc2698.pbs = wanted.ebs;
		} else {
			profile.trtcm_rfc4115.cir = wanted.cir;
			profile.trtcm_rfc4115.eir = wanted.eir;
			profile.trtcm_rfc4115.cbs = wanted.cbs;
			profile.trtcm_rfc4115.ebs = wanted.ebs;
		}
		return profile;
	}

	static p4_meter_profile_t ProfileRow(const Wanted &wanted)
	{
		p4_meter_profile_t row = {};

		row.cir = wanted.cir;
		row.eir = wanted.eir;
		row.cbs = wanted.cbs;
		row.ebs = wanted.ebs;
		row.packet_mode = wanted.packet_mode;
		row.meter_rfc = wanted.alg - RTE_MTR_SRTCM_RFC2697;
		return row;
	}

	int AddPolicy(uint32_t id, const Wanted &wanted)
	{
		const Action codes[] = {wanted.green, wanted.yellow, wanted.red};
		const rte_flow_action_set_dscp dscps[] = {
			{wanted.green_dscp}, {wanted.yellow_dscp}, {wanted.red_dscp}};
		rte_flow_action actions[RTE_COLORS][2] = {};
		rte_mtr_meter_policy_params policy = {};

		for (int colour = 0; colour < RTE_COLORS; colour++) {
			if (codes[colour] == DROP)
				actions[colour][0].type = RTE_FLOW_ACTION_TYPE_DROP;
			if (codes[colour] == REWRITE)
				actions[colour][0] = {
					RTE_FLOW_ACTION_TYPE_SET_IPV4_DSCP, &dscps[colour]};
			policy.actions[colour] = actions[colour];
		}
		return rte_mtr_meter_policy_add(port_, id, &policy, &error);
	}

	static p4_meter_policer_t PolicerRow(const Wanted &wanted)
	{
		p4_meter_policer_t row = {};

		row.green_action = wanted.green;
		row.green_dscp = wanted.green_dscp;
		row.yellow_action = wanted.yellow;
		row.yellow_dscp = wanted.yellow_dscp;
		row.red_action = wanted.red;
		row.red_dscp = wanted.red_dscp;
		return row;
	}

	int CreateMeter(const Wanted &wanted)
	{
		rte_mtr_params params = {};

		params.meter_profile_id = PROFILE;
		params.meter_policy_id = POLICY;
		params.meter_enable = 1;
		params.use_prev_mtr_color = wanted.colour_aware;
		params.stats_mask = DROP_COUNTERS | (wanted.transmit ? TRANSMIT : RECEIVE) |
			(wanted.original_length ? ORIGINAL_LENGTH : 0);
		return rte_mtr_create(port_, METER, &params, 0, &error);
	}

	p4_meter_instance_t InstanceRow(const Wanted &wanted)
	{
		p4_meter_instance_t row = {};

		row.type = 1;
		row.dir = wanted.transmit;
		row.meter_enable = 1;
		row.color_mode = wanted.colour_aware;
		row.origin_pkt = wanted.original_length;
		row.stats_mask = DROP_COUNTERS;
		row.dpdk_port_id = port_;
		row.profile_id = PROFILE;
		row.policer_id = POLICY;
		return row;
	}

	void ProgramThroughMtr(const Wanted &wanted)
	{
		rte_mtr_meter_profile profile = Profile(wanted);

		ASSERT_EQ(rte_mtr_meter_profile_add(port_, PROFILE, &profile, &error), 0);
		ASSERT_EQ(AddPolicy(POLICY, wanted), 0);
		ASSERT_EQ(CreateMeter(wanted), 0);
	}

	void ProgramThroughTables(const Wanted &wanted)
	{
		const p4_meter_profile_t profile = ProfileRow(wanted);
		const p4_meter_policer_t policer = PolicerRow(wanted);
		const p4_meter_instance_t instance = InstanceRow(wanted);

		ASSERT_EQ(rte_pmd_net_vask1_profile_add(PROFILE, &profile), 0);
		ASSERT_EQ(rte_pmd_net_vask1_policer_add(POLICY, &policer), 0);
		ASSERT_EQ(rte_pmd_net_vask1_instance_add(METER, &instance), 0);
	}

	static std::vector<Passed> Seen(const std::vector<rte_mbuf *> &mbufs)
	{
		std::vector<Passed> frames;

		for (rte_mbuf *m : mbufs) {
			const auto *ip =
				rte_pktmbuf_mtod_offset(m, const rte_ipv4_hdr *, RTE_ETHER_HDR_LEN);
			frames.push_back(
				{m->pkt_len, static_cast<uint8_t>(rte_mbuf_sched_color_get(m)),
					static_cast<uint8_t>(ip->type_of_service >> 2)});
		}
		return frames;
	}

	/* 60 frames, 20 ms between each ten, of three drop precedences. */
	std::vector<Passed> Offer(bool transmit)
	{
		std::vector<Frame> frames;

		for (uint16_t n = 0; n < 60; n++)
			frames.push_back({.length = static_cast<uint16_t>(700 + n),
				.time_ns = UINT64_C(1000000000) + n / 10 * UINT64_C(20000000),
				.dscp = static_cast<uint8_t>(10 + n % 3 * 2)});
		if (!transmit) {
			for (const Frame &frame : frames)
				put(wire_, frame);
			return Seen(receive(port_));
		}
		rte_flow *rule = add_meter_rule(port_, IPPROTO_UDP, METER, true);
		EXPECT_NE(rule, nullptr) << flow_error.message;
		EXPECT_EQ(send(port_, frames), frames.size());
		return Seen(sent(wire_));
	}

	Outcome Round(const Wanted &wanted, bool through_tables)
	{
		Outcome outcome;

		Open();
		if (through_tables)
			ProgramThroughTables(wanted);
		else
			ProgramThroughMtr(wanted);
		outcome.frames = Offer(wanted.transmit);
		outcome.tables = Dump();
		Close();
		return outcome;
	}

	/* Both interfaces give this; how many frames came through. */
	size_t ExpectTheSame(const Wanted &wanted)
	{
		const Outcome mtr = Round(wanted, false), tables = Round(wanted, true);

		EXPECT_EQ(mtr.tables, tables.tables);
		EXPECT_EQ(mtr.frames, tables.frames);
		EXPECT_NE(mtr.tables.find("meter 9: "), std::string::npos);
		return mtr.frames.size();
	}

	Wire wire_;
	uint16_t port_ = 0;
};

} // namespace vask_test

#endif /* TESTS_PORT_TWO_INTERFACES_H */
