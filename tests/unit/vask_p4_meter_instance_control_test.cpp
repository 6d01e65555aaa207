/* SPDX-License-Identifier: BSD-3-Clause */
/* Enable and disable of meters, and the MTU of a port's meter output. */
#include "meters.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;
using ::testing::ElementsAre;

namespace
{

class MeterEnable : public MeterTest
{
      protected:
	static LogLine EnableSays(uint32_t level, const std::string &text)
	{
		return Says(level, "vask_p4_meter_enable", text);
	}

	static std::vector<Event> Programmed()
	{
		return Events(IschSet(),
			Says(RTE_LOG_ERR, "vask_p4_add_meter_cfg_2_hw",
				"add meter dpe shaper rate(100kbps) suc"),
			ShaperSet(),
			Says(RTE_LOG_DEBUG, "vask_p4_add_meter_cfg_2_hw", "add meter shaper suc."));
	}
};

TEST_F(MeterEnable, DisabledMeterHasItsShapersProgrammed)
{
	auto *meter = AddMeter(BOTH);
	meter->data.enable = 0;
	meter->data.off_hw_state = 1;

	EXPECT_EQ(vask_p4_meter_enable(dev, METER, &error), 0);

	ExpectTrace(Programmed());
	ExpectErrorUntouched(error);
	EXPECT_EQ(meter->data.enable, 1u);
	EXPECT_EQ(meter->data.off_hw_state, 1u);
	EXPECT_EQ(profile->data.ref_cnt, 1u);
	EXPECT_EQ(policy->data.ref_cnt, 1u);
}

TEST_F(MeterEnable, EnablingAnEnabledMeterLogsAndReturns0WithNoHardwareAccess)
{
	AddMeter(BOTH);

	EXPECT_EQ(vask_p4_meter_enable(dev, METER, &error), 0);

	ExpectTrace(EnableSays(RTE_LOG_WARNING, "enable meter is open, no need do!"));
	ExpectErrorUntouched(error);
}

TEST_F(MeterEnable, UnknownMeterIsRefused)
{
	ExpectRefused(vask_p4_meter_enable(dev, METER, &error), error, RTE_MTR_ERROR_TYPE_MTR_ID,
		"meter id not found!");

	ExpectTrace(EnableSays(RTE_LOG_ERR, "enable meter id not found, id is 9"));
}

TEST_F(MeterEnable, MeterId0IsNotFoundEvenWhenItExists)
{
	AddMeter(BOTH, 0)->data.enable = 0;

	ExpectRefused(vask_p4_meter_enable(dev, 0, &error), error, RTE_MTR_ERROR_TYPE_MTR_ID,
		"meter id not found!");

	ExpectTrace(EnableSays(RTE_LOG_ERR, "enable meter id not found, id is 0"));
}

TEST_F(MeterEnable, RefusalWithoutAnErrorRecordSetsErrnoOnly)
{
	EXPECT_EQ(vask_p4_meter_enable(dev, METER, nullptr), -16);

	EXPECT_EQ(rte_errno, 16);
}

TEST_F(MeterEnable, HardwareStatusComesBackUnchangedAndTheErrorIsNotSet)
{
	auto *meter = AddMeter(BOTH);
	meter->data.enable = 0;
	card.Fail(Op::IschWrite, 123);

	EXPECT_EQ(vask_p4_meter_enable(dev, METER, &error), 123);
	ExpectErrorUntouched(error);
	EXPECT_EQ(meter->data.enable, 0u);

	card.ClearFaults();
	card.Fail(Op::SetShaper, -9);
	EXPECT_EQ(vask_p4_meter_enable(dev, METER, &error), -9);
	ExpectErrorUntouched(error);
	EXPECT_EQ(meter->data.enable, 0u);
}

class MeterDisable : public MeterEnable
{
      protected:
	static LogLine DisableSays(uint32_t level, const std::string &text)
	{
		return Says(level, "vask_p4_meter_disable", text);
	}

	static LogLine DelSays(uint32_t level, const std::string &text)
	{
		return Says(level, "vask_p4_del_meter_cfg_2_hw", text);
	}

	static std::vector<Event> IschRemoved()
	{
		return Events(IschCleared(), DelSays(RTE_LOG_DEBUG, "del meter dpe shaper suc."));
	}

	static std::vector<Event> PortRemoved()
	{
		return Events(CmdChannel(), MepUnbindOutput(0, SFI),
			DelSays(RTE_LOG_ERR, "del meter port suc."));
	}
};

TEST_F(MeterDisable, ReceiveMeterIsClearedUnboundAndGivesItsIndexBackButKeepsTheNumber)
{
	auto *meter = AddMeter(RX);

	EXPECT_EQ(vask_p4_meter_disable(dev, METER, &error), 0);

	ExpectTrace(IschRemoved(), PortRemoved(), PoolFree(meter_index_mgr, HW_METER));
	ExpectErrorUntouched(error);
	EXPECT_EQ(meter->data.enable, 0u);
	EXPECT_EQ(meter->data.hw_meter_id, HW_METER);
	EXPECT_EQ(meter->data.off_hw_state, 2u);
	EXPECT_EQ(profile->data.ref_cnt, 1u);
	EXPECT_EQ(policy->data.ref_cnt, 1u);
	EXPECT_THAT(meter_ids(), ElementsAre(METER));
}

TEST_F(MeterDisable, DisablingADisabledMeterLogsAndReturns0WithNoHardwareAccess)
{
	AddMeter(BOTH)->data.enable = 0;

	EXPECT_EQ(vask_p4_meter_disable(dev, METER, &error), 0);

	ExpectTrace(DisableSays(RTE_LOG_WARNING, "disable meter is not open, no need do!"));
	ExpectErrorUntouched(error);
}

TEST_F(MeterDisable, UnknownMeterIsRefused)
{
	ExpectRefused(vask_p4_meter_disable(dev, METER, &error), error, RTE_MTR_ERROR_TYPE_MTR_ID,
		"meter id not found!");

	ExpectTrace(DisableSays(RTE_LOG_ERR, "disable meter id not found, id is 9"));
}

TEST_F(MeterDisable, MeterId0IsNotFoundEvenWhenItExists)
{
	AddMeter(BOTH, 0);

	ExpectRefused(vask_p4_meter_disable(dev, 0, &error), error, RTE_MTR_ERROR_TYPE_MTR_ID,
		"meter id not found!");

	ExpectTrace(DisableSays(RTE_LOG_ERR, "disable meter id not found, id is 0"));
}

TEST_F(MeterDisable, RefusalWithoutAnErrorRecordSetsErrnoOnly)
{
	EXPECT_EQ(vask_p4_meter_disable(dev, METER, nullptr), -16);

	EXPECT_EQ(rte_errno, 16);
}

TEST_F(MeterDisable, HardwareStatusComesBackUnchangedAndTheErrorIsNotSet)
{
	auto *meter = AddMeter(BOTH);
	struct {
		Op op;
		int code, result;
	} const rows[] = {
		{Op::IschWrite, 123, 123}, {Op::SetShaper, -9, -9}, {Op::MepUnbindOutput, 5, -1}};

	for (const auto &row : rows) {
		card.ClearFaults();
		card.Fail(row.op, row.code);
		EXPECT_EQ(vask_p4_meter_disable(dev, METER, &error), row.result);
		ExpectErrorUntouched(error);
		EXPECT_EQ(meter->data.enable, 1u);
		EXPECT_TRUE(IsTaken(meter_index_mgr, HW_METER));
	}
}

TEST_F(MeterDisable, DisableThenEnableRestoresTheShapersButNotThePortBinding)
{
	auto *meter = AddMeter(RX);
	ASSERT_EQ(vask_p4_meter_disable(dev, METER, &error), 0);
	EXPECT_FALSE(IsTaken(meter_index_mgr, HW_METER)) << "free meanwhile";
	StartOver();

	EXPECT_EQ(vask_p4_meter_enable(dev, METER, &error), 0);

	ExpectTrace(IschSet(),
		Says(RTE_LOG_ERR, "vask_p4_add_meter_cfg_2_hw",
			"add meter dpe shaper rate(100kbps) suc"));
	EXPECT_EQ(meter->data.enable, 1u);
	EXPECT_EQ(meter->data.hw_meter_id, HW_METER) << "it runs on the index it gave back";
	EXPECT_FALSE(IsTaken(meter_index_mgr, HW_METER));
}

TEST_F(MeterDisable, TypeClearKeepsTheEnableBitSoASecondDisableRepeatsTheRemoval)
{
	auto *meter = AddMeter(RX);
	meter->data.type = 0;

	for (int round = 0; round < 2; round++) {
		StartOver();
		EXPECT_EQ(vask_p4_meter_disable(dev, METER, &error), 0);
		ExpectTrace(IschRemoved(), PoolFree(meter_index_mgr, HW_METER));
		EXPECT_EQ(meter->data.enable, 1u);
	}
}

class MtuSet : public SeamTest
{
      protected:
	static LogLine Refused(const std::string &mtu)
	{
		return Says(RTE_LOG_ERR, "vask_p4_dev_mtu_set",
			"mtu should beteen 68 and 16k , mtu:" + mtu);
	}

	static std::vector<Event> Set(const std::string &mtu, uint16_t value)
	{
		return Events(Says(RTE_LOG_INFO, "vask_p4_dev_mtu_set",
				      "[mep meter output]:port 42 set mtu:" + mtu),
			MepSetMtu(SFI, value));
	}
};

TEST_F(MtuSet, Mtu67And16385AreRefused)
{
	EXPECT_EQ(vask_p4_dev_mtu_set(dev, 67), -22);
	EXPECT_EQ(vask_p4_dev_mtu_set(dev, 16385), -22);

	ExpectTrace(PrivDataGet(dev), Refused("67"), PrivDataGet(dev), Refused("16385"));
	EXPECT_EQ(rte_errno, 0);
}

TEST_F(MtuSet, SmallestAndLargestNumberAreRefused)
{
	EXPECT_EQ(vask_p4_dev_mtu_set(dev, 0), -22);
	EXPECT_EQ(vask_p4_dev_mtu_set(dev, 65535), -22);

	ExpectTrace(PrivDataGet(dev), Refused("0"), PrivDataGet(dev), Refused("65535"));
}

TEST_F(MtuSet, Mtu68And16384ReachTheMeterEngine)
{
	EXPECT_EQ(vask_p4_dev_mtu_set(dev, 68), 0);
	EXPECT_EQ(vask_p4_dev_mtu_set(dev, 16384), 0);

	ExpectTrace(PrivDataGet(dev), Set("68", 68), PrivDataGet(dev), Set("16384", 16384));
}

TEST_F(MtuSet, EnginesStatusComesBackUnchanged)
{
	card.Fail(Op::MepSetMtu, 31);

	EXPECT_EQ(vask_p4_dev_mtu_set(dev, 1500), 31);

	ExpectTrace(PrivDataGet(dev), Set("1500", 1500));
}

TEST_F(MtuSet, DeviceThatIsNotTheDriversIsRefusedWithoutALine)
{
	EXPECT_EQ(vask_p4_dev_mtu_set(foreign_dev, 1500), -22);
	EXPECT_EQ(vask_p4_dev_mtu_set(nullptr, 1500), -22);

	ExpectTrace(PrivDataGet(foreign_dev), PrivDataGet(nullptr));
}

} // namespace
