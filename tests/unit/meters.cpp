/* SPDX-License-Identifier: BSD-3-Clause */
#include "meters.h"

namespace vask_test
{

LogLine
Says(uint32_t level, const std::string &function, const std::string &text)
{
	return Line(level, "[offload_smartnic] " + function + " " + text + "\n");
}

vask_p4_isch_shaper
IschRecord(uint32_t rate, uint32_t mode)
{
	vask_p4_isch_shaper record = {};

	record.enable = 1;
	record.mode = mode;
	record.pbs = 1;
	record.rate = rate;
	return record;
}

vask_shaper_set_info
ShaperRecord(uint16_t sfi, uint32_t kbps, uint16_t mode)
{
	vask_shaper_set_info record = {};

	record.sfi = sfi;
	record.mode = mode;
	record.direction = 1;
	record.max_rate = kbps;
	return record;
}

MeterTest::MeterTest()
	: profile(AddProfile(PROFILE, HW_PROFILE, CIR)), policy(AddPolicy(POLICY, HW_POLICY))
{
	StartOver();
}

vask_p4_meter_profile_node *
MeterTest::AddProfile(uint32_t id, uint32_t hw_profile_id, uint64_t cir)
{
	vask_p4_meter_profile_node *node = ListProfile(id);

	node->data.cir = cir;
	node->data.cbs = 65536;
	node->data.off_hw_state = 2;
	node->data.hw_profile_id = hw_profile_id;
	node->data.profile.valid = 1;
	card.pool(profile_index_mgr).used.insert(hw_profile_id);
	return node;
}

vask_p4_meter_policy_node *
MeterTest::AddPolicy(uint32_t id, uint32_t hw_policy_id)
{
	vask_p4_meter_policy_node *node = ListPolicy(id);

	node->data.red_action = 2;
	node->data.hw_policy_id = hw_policy_id;
	node->data.policy.red_action = 2;
	node->data.policy.valid = 1;
	card.pool(policy_index_mgr).used.insert(hw_policy_id);
	return node;
}

vask_p4_meter_cfg_node *
MeterTest::AddMeter(uint32_t dir, uint32_t id, uint32_t hw_meter_id)
{
	vask_p4_meter_cfg_node *node = ListMeter(id);

	node->data.hw_meter_id = hw_meter_id;
	node->data.port_sfi = SFI;
	node->data.dir = dir;
	node->data.enable = 1;
	node->data.type = 1;
	node->data.stats_mask = 0x88;
	node->data.off_hw_state = 2;
	node->data.profile = profile->data;
	node->data.policy = policy->data;
	profile->data.ref_cnt++;
	policy->data.ref_cnt++;
	card.pool(meter_index_mgr).used.insert(hw_meter_id);
	return node;
}

bool
MeterTest::IsTaken(const VASK_P4_INDEXSTACK_MANAGER *pool, uint32_t index) const
{
	return card.pool(pool).used.contains(index);
}

std::vector<Event>
MeterTest::IschSet(uint64_t cir, uint32_t rate, int pm)
{
	return Events(Says(RTE_LOG_DEBUG, "vask_p4_meter_add_convert_isch_shaper",
			      "add convert isch shaper meter pm " + std::to_string(pm) + ", rate " +
				      std::to_string(static_cast<uint32_t>(cir)) + " -> " +
				      std::to_string(rate) + " (100kbps)."),
		IschWrite(IschRecord(rate, pm & 1)));
}

std::vector<Event>
MeterTest::ShaperSet(uint64_t kbps, int pm)
{
	return Events(Says(RTE_LOG_DEBUG, "vask_p4_meter_add_convert_shaper",
			      "add convert shaper meter sfi 42 pm " + std::to_string(pm) +
				      ", rate " + std::to_string(kbps) + " (kbps)."),
		CmdChannel(), SetShaper(ShaperRecord(SFI, kbps, pm)));
}

std::vector<Event>
MeterTest::IschCleared()
{
	return Events(IschWrite(vask_p4_isch_shaper{}));
}

std::vector<Event>
MeterTest::ShaperCleared(int pm)
{
	return Events(Says(RTE_LOG_DEBUG, "vask_p4_meter_del_convert_shaper",
			      "del convert shaper meter sfi 42 pm " + std::to_string(pm) + "."),
		CmdChannel(), SetShaper(ShaperRecord(SFI, 0, pm)));
}

} // namespace vask_test
