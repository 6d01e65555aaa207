/* SPDX-License-Identifier: BSD-3-Clause */
/* The P4 meter instance table. */
#include "meters.h"

extern "C" {
#include <ethdev_driver.h>
}

#include "vask_p4_meter_internal.h"

using namespace vask_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

class InstanceTable : public MeterTest
{
      protected:
	static constexpr uint16_t PORT = 3;

	InstanceTable()
	{
		entry.type = 1;
		entry.stats_mask = 0x88;
		entry.dpdk_port_id = PORT;
		entry.profile_id = PROFILE;
		entry.policer_id = POLICY;
		card.AddPort(&rte_eth_devices[PORT], SFI);
		card.HandOut(meter_index_mgr, {HW_METER});
	}

	int Add(uint32_t id = METER)
	{
		return talvora_p4_offload_meter_table_instance_add(id, &entry);
	}

	const vask_p4_meter_cfg_entry &first() const
	{
		return TAILQ_FIRST(&vask_p4_meter_list)->data;
	}

	p4_meter_instance_t entry = {};
};

TEST_F(InstanceTable, ReceiveEntryBecomesAReceiveMeterOfItsPort)
{
	EXPECT_EQ(Add(), 0);

	EXPECT_THAT(card.calls(),
		ElementsAre(PrivDataGet(&rte_eth_devices[PORT]),
			PoolAlloc(meter_index_mgr, HW_METER), IschWrite(IschRecord(ISCH_RATE)),
			CmdChannel(), MepBindOutput(0, SFI, HW_METER)));
	EXPECT_THAT(meter_ids(), ElementsAre(METER));
	EXPECT_EQ(first().dir, RX);
	EXPECT_EQ(first().type, 1u);
	EXPECT_EQ(first().stats_mask, 0x88u);
	EXPECT_EQ(first().is_ori_pktlen, 0u);
	EXPECT_EQ(first().is_color_aware, 0u);
	EXPECT_EQ(first().port_sfi, SFI);
	EXPECT_EQ(first().profile.profile_id, PROFILE);
	EXPECT_EQ(first().policy.policy_id, POLICY);
	EXPECT_EQ(first().off_hw_state, 2u);
	EXPECT_EQ(profile->data.ref_cnt, 1u);
	EXPECT_EQ(policy->data.ref_cnt, 1u);
	ExpectErrorUntouched(error);
}

TEST_F(InstanceTable, TransmitEntryBecomesATransmitMeterAndBindsNothing)
{
	entry.dir = 1;

	EXPECT_EQ(Add(), 0);

	EXPECT_THAT(card.calls(),
		ElementsAre(PrivDataGet(&rte_eth_devices[PORT]),
			PoolAlloc(meter_index_mgr, HW_METER), CmdChannel(),
			SetShaper(ShaperRecord(SFI, KBPS))));
	EXPECT_EQ(first().dir, TX);
}

TEST_F(InstanceTable, EveryFlagReachesItsOwnField)
{
	entry.color_mode = 1;
	EXPECT_EQ(Add(0), 0);
	EXPECT_EQ(first().is_color_aware, 1u);
	EXPECT_EQ(first().is_ori_pktlen, 0u);

	card.HandOut(meter_index_mgr, {HW_METER + 1});
	entry.color_mode = 0;
	entry.origin_pkt = 1;
	entry.meter_enable = 1;
	entry.stats_mask = 0xFF;
	EXPECT_EQ(Add(1), 0);
	const vask_p4_meter_cfg_entry &second = vask_p4_find_meter_byid(1)->data;
	EXPECT_EQ(second.is_color_aware, 0u);
	EXPECT_EQ(second.is_ori_pktlen, 1u);
	EXPECT_EQ(second.stats_mask, 0xFFu);
	EXPECT_EQ(log.lines().at(0).text,
		"[offload_smartnic] vask_p4_meter_inst_create \n* meter input params dump :\n")
		<< "creation is entered below the rte_mtr operation";
}

TEST_F(InstanceTable, MeterThatWasNotAskedToBeEnabledEndsEnabled)
{
	entry.meter_enable = 0;
	EXPECT_EQ(Add(), 0);
	EXPECT_EQ(log.lines().at(2).text, "[offload_smartnic]*      enable\t\t\t\t: 0\n");
	EXPECT_EQ(first().enable, 1u);
}

TEST_F(InstanceTable, EntryWithType0IsCreatedWithANullDeviceAndAddReturns0EitherWay)
{
	entry.type = 0;

	EXPECT_EQ(Add(), 0);
	EXPECT_THAT(card.calls(), ElementsAre(PrivDataGet(nullptr)));
	EXPECT_THAT(meter_ids(), IsEmpty());
	EXPECT_EQ(rte_errno, 16);

	card.AddPort(nullptr, SFI);
	StartOver();
	EXPECT_EQ(Add(), 0);
	EXPECT_THAT(card.calls(),
		ElementsAre(PrivDataGet(nullptr), PoolAlloc(meter_index_mgr, HW_METER),
			IschWrite(IschRecord(ISCH_RATE))));
	EXPECT_EQ(first().type, 0u);
}

TEST_F(InstanceTable, NullEntryReturnsMinusOne)
{
	EXPECT_EQ(talvora_p4_offload_meter_table_instance_add(METER, nullptr), -1);

	ExpectTrace();
	EXPECT_EQ(memory.count(), 0u);
}

TEST_F(InstanceTable, PortNumber561IsAccepted)
{
	entry.dpdk_port_id = 561;
	card.AddPort(&rte_eth_devices[561], 77);

	EXPECT_EQ(Add(), 0);

	EXPECT_EQ(first().port_sfi, 77u);
}

/* The limit is 562 although the text says 32: on purpose. */
TEST_F(InstanceTable, PortNumber562IsRefusedWithMinusEinval)
{
	for (uint32_t type : {0u, 1u}) {
		entry.type = type;
		for (uint32_t port : {562u, 65535u}) {
			StartOver();
			entry.dpdk_port_id = port;
			EXPECT_EQ(Add(), -22);
			ExpectTrace(Says(RTE_LOG_ERR, "talvora_p4_offload_meter_table_instance_add",
				"dpdk_port should less 32 , port:" + std::to_string(port)));
			EXPECT_EQ(rte_errno, 0);
		}
	}
}

TEST_F(InstanceTable, AddingAnExistingNonZeroIdReturns0AlthoughCreationRefusedIt)
{
	ASSERT_EQ(Add(5), 0);
	StartOver();

	EXPECT_EQ(Add(5), 0);

	EXPECT_THAT(log.lines(RTE_LOG_INFO),
		ElementsAre(Says(
			RTE_LOG_ERR, "vask_p4_meter_inst_create", "add meter has exist, id is 5")));
	EXPECT_EQ(rte_errno, 16);
	EXPECT_THAT(meter_ids(), ElementsAre(5u));
}

TEST_F(InstanceTable, EveryOtherRefusalOfCreationReturns0Too)
{
	entry.profile_id = 6;
	EXPECT_EQ(Add(), 0);
	entry.profile_id = PROFILE;
	entry.policer_id = 6;
	EXPECT_EQ(Add(), 0);
	entry.policer_id = POLICY;
	memory.Fail();
	EXPECT_EQ(Add(), 0);
	card.Fail(Op::IschWrite, 1);
	LeavesIndexTaken(meter_index_mgr, HW_METER);
	EXPECT_EQ(Add(), 0);
	card.Fail(Op::PoolAlloc, 1);
	LeavesRecordBehind();
	EXPECT_EQ(Add(), 0);

	EXPECT_THAT(meter_ids(), IsEmpty());
	EXPECT_EQ(profile->data.ref_cnt, 0u);
	EXPECT_EQ(policy->data.ref_cnt, 0u);
}

TEST_F(InstanceTable, HighestProfileAndPolicerIdsAreFound)
{
	AddProfile(255, 200, 1250000);
	AddPolicy(255, 201);
	entry.profile_id = 255;
	entry.policer_id = 255;

	EXPECT_EQ(Add(0xFFFFFFFF), 0);

	EXPECT_EQ(first().meter_id, 0xFFFFFFFFu);
	EXPECT_EQ(first().profile.profile_id, 255u);
	EXPECT_EQ(first().policy.policy_id, 255u);
}

TEST_F(InstanceTable, DeleteIsTheDestroyOfAnyMeter)
{
	ASSERT_EQ(Add(), 0);

	EXPECT_EQ(talvora_p4_offload_meter_table_instance_del(METER), 0);

	EXPECT_THAT(meter_ids(), IsEmpty());
	EXPECT_EQ(log.lines().back(),
		Says(RTE_LOG_INFO, "vask_p4_meter_destroy",
			"del meter suc, meter is 9 profile_id 5 policy_id 7"));
}

TEST_F(InstanceTable, DeleteOfAnUnknownMeterReturns0)
{
	EXPECT_EQ(talvora_p4_offload_meter_table_instance_del(METER), 0);

	ExpectTrace(Says(RTE_LOG_INFO, "vask_p4_meter_destroy", "del meter id not found, id is 9"));
}

TEST_F(InstanceTable, DeleteThatTheCardRefusesReturnsTheTeardownsResult)
{
	ASSERT_EQ(Add(), 0);
	card.Fail(Op::IschWrite, 1);

	EXPECT_EQ(talvora_p4_offload_meter_table_instance_del(METER), -16);

	EXPECT_THAT(meter_ids(), ElementsAre(METER));
	EXPECT_EQ(profile->data.ref_cnt, 0u);
}

} // namespace
