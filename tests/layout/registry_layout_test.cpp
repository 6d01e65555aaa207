/* SPDX-License-Identifier: BSD-3-Clause */
#include "layout.h"

#include <algorithm>
#include <functional>

#include <rte_mtr.h>

#include "vask_cmd_api.h"
#include "vask_p4_common.h"
#include "vask_p4_idx.h"
#include "vask_p4_info.h"

namespace
{

void
ExpectRising(const std::vector<size_t> &offsets)
{
	EXPECT_THAT(std::adjacent_find(offsets.begin(), offsets.end(), std::greater_equal<>()),
		offsets.end());
}

#define AT(member) offsetof(Record, member)

TEST(ProfileRecord, KeepsItsFieldsInOrderAndEachHasItsBits)
{
	EXPECT_EQ(sizeof(vask_p4_meter_profile), 72u);
	ExpectFieldsAt<vask_p4_meter_profile>({
		FIELD(cir, 0, 64),
		FIELD(cbs, 64, 64),
		FIELD(eir, 128, 64),
		FIELD(ebs, 192, 64),
		FIELD(packet_mode, 256, 32),
		FIELD(rfc2698_mode, 288, 32),
		FIELD(profile_id, 320, 32),
		FIELD(ref_cnt, 352, 32),
		FIELD(off_hw_state, 384, 32),
		FIELD(sl.locked, 416, 32),
		FIELD(hw_profile_id, 448, 32),
		FIELD(profile.ebs, 480, 20),
		FIELD(profile.valid, 575, 1),
	});
}

TEST(PolicyRecord, KeepsItsFieldsInOrderAndEachHasItsBits)
{
	EXPECT_EQ(sizeof(vask_p4_meter_policy), 48u);
	ExpectFieldsAt<vask_p4_meter_policy>({
		FIELD(red_dscp, 0, 32),
		FIELD(yellow_dscp, 32, 32),
		FIELD(green_dscp, 64, 32),
		FIELD(red_action, 96, 32),
		FIELD(yellow_action, 128, 32),
		FIELD(green_action, 160, 32),
		FIELD(policy_id, 192, 32),
		FIELD(ref_cnt, 224, 32),
		FIELD(off_hw_state, 256, 32),
		FIELD(sl.locked, 288, 32),
		FIELD(hw_policy_id, 320, 32),
		FIELD(policy.red_action, 352, 2),
		FIELD(policy.valid, 383, 1),
	});
}

TEST(PolicyRecord, HasNoPaddingBecauseItIsComparedByteForByte)
{
	EXPECT_TRUE(std::has_unique_object_representations_v<vask_p4_meter_policy>);
}

TEST(MeterRecord, KeepsItsFieldsInOrderAndEachHasItsBits)
{
	ExpectFieldsAt<vask_p4_meter_cfg_entry>({
		FIELD(meter_id, 0, 32),
		FIELD(hw_meter_id, 32, 32),
		FIELD(port_sfi, 64, 32),
		FIELD(dir, 96, 32),
		FIELD(enable, 128, 1),
		FIELD(type, 129, 1),
		FIELD(is_color_aware, 130, 1),
		FIELD(is_ori_pktlen, 131, 1),
		FIELD(resv, 132, 28),
		FIELD(stats_mask, 160, 32),
		FIELD(off_hw_state, 192, 32),
		FIELD(sl.locked, 224, 32),
		FIELD(profile.cir, 256, 64),
		FIELD(policy.red_dscp, 256 + 8 * 72, 32),
		FIELD(table.r_dscp, 256 + 8 * (72 + 48), 6),
		FIELD(table_inst.last_ts, 256 + 8 * (72 + 48 + 16), 4),
		/* the instance record holds a 64-bit counter and is aligned so */
		FIELD(mep_inst.valid, 256 + 8 * (72 + 48 + 16 + 20 + 4), 1),
	});
}

TEST(RegistryNodes, BeginWithTheirLinkAndThenHoldTheRecord)
{
	EXPECT_EQ(offsetof(vask_p4_meter_profile_node, next), 0u);
	EXPECT_EQ(offsetof(vask_p4_meter_profile_node, data), 2 * sizeof(void *));
	EXPECT_EQ(offsetof(vask_p4_meter_policy_node, next), 0u);
	EXPECT_EQ(offsetof(vask_p4_meter_policy_node, data), 2 * sizeof(void *));
	EXPECT_EQ(offsetof(vask_p4_meter_cfg_node, next), 0u);
	EXPECT_EQ(offsetof(vask_p4_meter_cfg_node, data), 2 * sizeof(void *));
}

TEST(RegistryRecords, CountTheHardwareStateZeroOneTwo)
{
	EXPECT_EQ(VASK_P4_OFF_HW_NONE, 0);
	EXPECT_EQ(VASK_P4_OFF_HW_PENDING, 1);
	EXPECT_EQ(VASK_P4_OFF_HW_DONE, 2);
}

TEST(PortPrivateData, BeginsWithTheRepresentorRecordInItsOrder)
{
	EXPECT_EQ(offsetof(vask_p4_priv_port, rep), 0u);
	EXPECT_EQ(offsetof(vask_p4_representor_info, rep_flag), 8u);
	ExpectFieldsAt<vask_p4_representor_info>({
		FIELD(dev_port, 0, 16),
		FIELD(priv_port, 16, 16),
		FIELD(port_id, 32, 16),
		FIELD(port_type, 48, 16),
	});
}

TEST(IndexPoolRecord, KeepsItsFieldsInOrder)
{
	using Record = VASK_P4_INDEXSTACK_MANAGER;
	const std::vector<size_t> offsets = {AT(hb), AT(h_mem_size), AT(h_serialize_size),
		AT(total_serialize_size), AT(bits), AT(s_mem_size), AT(capacity), AT(old_size),
		AT(granularity), AT(phead), AT(ptail), AT(freenum), AT(usednum), AT(lock)};

	EXPECT_EQ(offsets.front(), 0u);
	ExpectRising(offsets);
}

TEST(CommandChannelRecord, KeepsItsFieldsInOrderAndANameOf32Characters)
{
	using Record = vask_cmd_channel;

	EXPECT_EQ(sizeof(Record::name), 32u);
	EXPECT_EQ(AT(name), 0u);
	ExpectRising({AT(name), AT(entry_base), AT(entry_phy_base), AT(entry_input_memzones),
		AT(entry_output_memzones), AT(entry_num), AT(doorbell_type), AT(doorbell_data),
		AT(notify_type), AT(notify_data), AT(mhu_id), AT(lock), AT(channel_ops),
		AT(free_entry_head), AT(busy_entry_head)});
}

TEST(MeterParameters, CarryTheDirectionAsTheirLastField)
{
	using Record = rte_mtr_params;

	ExpectRising({AT(meter_profile_id), AT(use_prev_mtr_color), AT(dscp_table),
		AT(meter_enable), AT(stats_mask), AT(meter_policy_id), AT(direction)});
	EXPECT_EQ(sizeof(Record::direction), 4u);
	EXPECT_LE(sizeof(Record) - (AT(direction) + sizeof(Record::direction)), 4u);
}

} // namespace
