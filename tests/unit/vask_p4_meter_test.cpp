/* SPDX-License-Identifier: BSD-3-Clause */

/* The operation table, the capabilities, and what every refusal has in common. */

#include <cstring>

#include "module_test.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;
using ::testing::IsEmpty;

namespace
{

using OperationTable = SeamTest;
using Capabilities = SeamTest;
using Refusal = ModuleTest;

const rte_mtr_ops *
Table(rte_eth_dev *dev)
{
	const rte_mtr_ops *ops = nullptr;
	EXPECT_EQ(vask_p4_dev_mtr_ops_get(dev, &ops), 0);
	return ops;
}

TEST_F(OperationTable, NullDeviceIsRefusedSilentlyAndOpsIsUntouched)
{
	char marker;
	void *ops = &marker;

	EXPECT_EQ(vask_p4_dev_mtr_ops_get(nullptr, &ops), -EINVAL);
	EXPECT_EQ(ops, &marker);
	EXPECT_THAT(trace, IsEmpty());
}

TEST_F(OperationTable, AskingTwiceForTwoDifferentPortsYieldsTheSameTableAddressBothTimes)
{
	const rte_mtr_ops *first = Table(dev);

	EXPECT_NE(first, nullptr);
	EXPECT_EQ(Table(foreign_dev), first);
	EXPECT_EQ(Table(dev), first);
	EXPECT_THAT(trace, IsEmpty());
}

TEST_F(OperationTable, EachFilledSlotHoldsItsOperation)
{
	const rte_mtr_ops *ops = Table(dev);

	EXPECT_EQ(ops->capabilities_get, vask_p4_meter_cap_get);
	EXPECT_EQ(ops->meter_profile_add, vask_p4_meter_profile_add);
	EXPECT_EQ(ops->meter_profile_delete, vask_p4_meter_profile_delete);
	EXPECT_EQ(ops->create, vask_p4_meter_create);
	EXPECT_EQ(ops->destroy, vask_p4_meter_destroy);
	EXPECT_EQ(ops->meter_enable, vask_p4_meter_enable);
	EXPECT_EQ(ops->meter_disable, vask_p4_meter_disable);
	EXPECT_EQ(ops->meter_profile_update, vask_p4_meter_profile_update);
	EXPECT_EQ(ops->stats_read, vask_p4_meter_stats_read);
	EXPECT_EQ(ops->meter_policy_validate, vask_p4_meter_policy_validate);
	EXPECT_EQ(ops->meter_policy_add, vask_p4_meter_policy_add);
	EXPECT_EQ(ops->meter_policy_delete, vask_p4_meter_policy_delete);
}

TEST_F(OperationTable, DscpTablesStatisticsMasksAndPolicyChangesAreNotOffered)
{
	const rte_mtr_ops *ops = Table(dev);

	EXPECT_EQ(ops->meter_dscp_table_update, nullptr);
	EXPECT_EQ(ops->stats_update, nullptr);
	EXPECT_EQ(ops->meter_policy_update, nullptr);
}

TEST_F(OperationTable, NoOtherSlotIsFilled)
{
	rte_mtr_ops rest = *Table(dev);
	const rte_mtr_ops none = {};

	rest.capabilities_get = nullptr;
	rest.meter_profile_add = nullptr;
	rest.meter_profile_delete = nullptr;
	rest.create = nullptr;
	rest.destroy = nullptr;
	rest.meter_enable = nullptr;
	rest.meter_disable = nullptr;
	rest.meter_profile_update = nullptr;
	rest.stats_read = nullptr;
	rest.meter_policy_validate = nullptr;
	rest.meter_policy_add = nullptr;
	rest.meter_policy_delete = nullptr;
	EXPECT_EQ(memcmp(&rest, &none, sizeof(none)), 0);
}

TEST_F(Capabilities, RecordFilledWithGarbageComesBackWithExactlyTheListedFields)
{
	rte_mtr_capabilities cap;
	memset(&cap, 0xA5, sizeof(cap));
	EXPECT_EQ(vask_p4_meter_cap_get(dev, &cap, &error), 0);

	rte_mtr_capabilities expected;
	memset(&expected, 0, sizeof(expected));
	expected.n_max = 4095;
	expected.n_shared_max = 4095;
	expected.shared_n_flows_per_mtr_max = 4;
	expected.chaining_n_mtrs_per_flow_max = 1;
	expected.meter_srtcm_rfc2697_n_max = 4095;
	expected.meter_trtcm_rfc2698_n_max = 4095;
	expected.meter_rate_max = 1099511627775;
	expected.meter_policy_n_max = 256;
	expected.srtcm_rfc2697_byte_mode_supported = 1;
	expected.srtcm_rfc2697_packet_mode_supported = 1;
	expected.trtcm_rfc2698_byte_mode_supported = 1;
	expected.trtcm_rfc2698_packet_mode_supported = 1;
	expected.trtcm_rfc4115_byte_mode_supported = 1;
	expected.trtcm_rfc4115_packet_mode_supported = 1;
	expected.stats_mask = 0x88;
	EXPECT_EQ(Bytes(cap), Bytes(expected));
	ExpectErrorUntouched(error);
	EXPECT_THAT(trace, IsEmpty());
}

TEST_F(Capabilities, Rfc4115IsReportedAsSupportedWithACountOfZero)
{
	rte_mtr_capabilities cap;
	memset(&cap, 0xFF, sizeof(cap));
	EXPECT_EQ(vask_p4_meter_cap_get(dev, &cap, &error), 0);

	EXPECT_EQ(cap.meter_trtcm_rfc4115_n_max, 0u);
	EXPECT_EQ(cap.trtcm_rfc4115_byte_mode_supported, 1);
	EXPECT_EQ(cap.trtcm_rfc4115_packet_mode_supported, 1);
}

TEST_F(Capabilities, StatisticsAreExactlyTheTwoDropCounters)
{
	rte_mtr_capabilities cap;
	memset(&cap, 0xFF, sizeof(cap));
	EXPECT_EQ(vask_p4_meter_cap_get(dev, &cap, &error), 0);

	EXPECT_EQ(cap.stats_mask, 0x88u);
	EXPECT_EQ(cap.stats_mask,
		uint64_t{RTE_MTR_STATS_N_PKTS_DROPPED} | uint64_t{RTE_MTR_STATS_N_BYTES_DROPPED});
}

TEST_F(Capabilities, NeitherDeviceNorErrorRecordIsNeeded)
{
	rte_mtr_capabilities cap;

	EXPECT_EQ(vask_p4_meter_cap_get(nullptr, &cap, nullptr), 0);
	EXPECT_EQ(cap.n_max, 4095u);
}

/* One operation a row, each with an argument that it must refuse. */
TEST_F(Refusal, FailingOperationCalledWithNullErrorReturnsMinus16AndLeavesRteErrnoAt16)
{
	const rte_mtr_ops *ops = Table(dev);
	rte_mtr_meter_profile profile = {};
	profile.alg = RTE_MTR_NONE;
	const rte_flow_action unknown[] = {
		{RTE_FLOW_ACTION_TYPE_VOID, nullptr}, {RTE_FLOW_ACTION_TYPE_END, nullptr}};
	rte_mtr_meter_policy_params policy = {};
	policy.actions[RTE_COLOR_RED] = unknown;
	ListProfile(1)->data.ref_cnt = 1;
	ListPolicy(1)->data.ref_cnt = 1;
	rte_mtr_params params = {};
	params.meter_profile_id = 77;
	rte_mtr_stats stats;
	uint64_t green_packets = 1;
	ListMeter(3); /* a receive meter, whose scheduler shaper cannot be taken off */
	card.FailEvery(Op::IschWrite, -1);

	const std::vector<std::pair<const char *, std::function<int()>>> calls = {
		{"profile add",
			[&] {
				return ops->meter_profile_add(dev, 5, &profile, nullptr);
			}},
		{"profile delete",
			[&] {
				return ops->meter_profile_delete(dev, 1, nullptr);
			}},
		{"create",
			[&] {
				return ops->create(dev, 9, &params, 0, nullptr);
			}},
		{"profile update",
			[&] {
				return ops->meter_profile_update(dev, 9, 77, nullptr);
			}},
		{"destroy",
			[&] {
				return ops->destroy(dev, 3, nullptr);
			}},
		{"enable",
			[&] {
				return ops->meter_enable(dev, 9, nullptr);
			}},
		{"disable",
			[&] {
				return ops->meter_disable(dev, 9, nullptr);
			}},
		{"statistics",
			[&] {
				return ops->stats_read(dev, 3, &stats, &green_packets, 0, nullptr);
			}},
		{"policy validate",
			[&] {
				return ops->meter_policy_validate(dev, &policy, nullptr);
			}},
		{"policy add",
			[&] {
				return ops->meter_policy_add(dev, 7, &policy, nullptr);
			}},
		{"policy delete",
			[&] {
				return ops->meter_policy_delete(dev, 1, nullptr);
			}},
	};
	for (const auto &[name, call] : calls) {
		rte_errno = 0;
		EXPECT_EQ(call(), -16) << name;
		EXPECT_EQ(rte_errno, 16) << name;
	}
}

} // namespace
