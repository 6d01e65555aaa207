/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef TESTS_UNIT_METER_CREATE_H
#define TESTS_UNIT_METER_CREATE_H

/**
 * @file
 * Meter 9 about to be created on profile 5 and policy 7 as hardware meter 21, and the events of its
 * creation step by step, for the statistics mask 0x88.
 */

#include "meters.h"
#include "vask_p4_meter_internal.h"

namespace vask_test
{

class MeterCreate : public MeterTest
{
      protected:
	/* The driver's own flags in a statistics mask. */
	static constexpr uint64_t RECEIVE = UINT64_C(1) << 63;
	static constexpr uint64_t TRANSMIT = UINT64_C(1) << 62;
	static constexpr uint64_t ORIGINAL_LENGTH = UINT64_C(1) << 61;

	MeterCreate()
	{
		params.meter_profile_id = PROFILE;
		params.meter_policy_id = POLICY;
		params.meter_enable = 1;
		card.HandOut(meter_index_mgr, {HW_METER});
	}

	int Create(uint64_t stats_mask, uint32_t id = METER)
	{
		params.stats_mask = stats_mask;
		return vask_p4_meter_create(dev, id, &params, 0, &error);
	}

	static LogLine InstSays(uint32_t level, const std::string &text)
	{
		return Says(level, "vask_p4_meter_inst_create", text);
	}

	/** The request code, the port's data and the dump of the parameters. */
	static std::vector<Event> Asked(const std::string &dir, const rte_eth_dev *device)
	{
		return Events(
			Line(RTE_LOG_DEBUG, "[offload_smartnic]create meter, dir: " + dir + "\n"),
			PrivDataGet(device), Dumped("0"));
	}

	static std::vector<Event> Dumped(const std::string &use_ori_pkt)
	{
		const auto field = [](const std::string &name_and_value) {
			return Line(
				RTE_LOG_DEBUG, "[offload_smartnic]*      " + name_and_value + "\n");
		};
		return Events(InstSays(RTE_LOG_DEBUG, "\n* meter input params dump :"),
			field("meter_id\t\t\t: 0x9"), field("enable\t\t\t\t: 0x1"),
			field("profile_id\t\t\t: 0x5"), field("policy_id\t\t\t: 0x7"),
			field("corlor_mode\t\t\t: 0"), field("use_ori_pkt\t\t\t: " + use_ori_pkt),
			field("stats_mask\t\t\t: 0x88"), InstSays(RTE_LOG_DEBUG, "* over......"));
	}

	static std::vector<Event> Found()
	{
		return Events(Says(RTE_LOG_DEBUG, "vask_p4_find_meter_profile_byid",
				      "add meter find profile, id is 5"),
			Says(RTE_LOG_DEBUG, "vask_p4_find_meter_policy_byid",
				"add meter find policy, id is 7"));
	}

	static Call IndexTaken()
	{
		return PoolAlloc(meter_index_mgr, HW_METER);
	}

	static std::vector<Event> IschProgrammed()
	{
		return Events(IschSet(),
			Says(RTE_LOG_ERR, "vask_p4_add_meter_cfg_2_hw",
				"add meter dpe shaper rate(100kbps) suc"));
	}

	static std::vector<Event> ShaperProgrammed()
	{
		return Events(ShaperSet(),
			Says(RTE_LOG_DEBUG, "vask_p4_add_meter_cfg_2_hw", "add meter shaper suc."));
	}

	static LogLine Mapped()
	{
		return InstSays(RTE_LOG_WARNING,
			"[meter]: meter 9, profle 5 --> hw meter: 21, hw profile 11");
	}

	static std::vector<Event> Bound()
	{
		return Events(CmdChannel(), MepBindOutput(0, SFI, HW_METER),
			Says(RTE_LOG_DEBUG, "vask_p4_meter_add_port_to_hw",
				"[meter add port] dir 0 set port sfi 42 success!"));
	}

	static LogLine Created(const std::string &rx_or_tx)
	{
		return InstSays(RTE_LOG_INFO,
			"[meter]: dir " + rx_or_tx + " create meter port 42 meter_id 9");
	}

	void ExpectNoMeterAndNoReference()
	{
		EXPECT_THAT(meter_ids(), ::testing::IsEmpty());
		EXPECT_EQ(profile->data.ref_cnt, 0u);
		EXPECT_EQ(policy->data.ref_cnt, 0u);
	}

	const vask_p4_meter_cfg_entry &first() const
	{
		return TAILQ_FIRST(&vask_p4_meter_list)->data;
	}

	rte_mtr_params params = {};
};

} // namespace vask_test

#endif /* TESTS_UNIT_METER_CREATE_H */
