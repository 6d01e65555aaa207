/* SPDX-License-Identifier: BSD-3-Clause */
/* A meter out of the card. */
#include "meters.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;

namespace
{

class MeterOutOfCard : public MeterTest
{
      protected:
	static LogLine DelSays(uint32_t level, const std::string &text)
	{
		return Says(level, "vask_p4_del_meter_cfg_2_hw", text);
	}

	static LogLine IschSuc()
	{
		return DelSays(RTE_LOG_DEBUG, "del meter dpe shaper suc.");
	}

	static LogLine ShaperSuc()
	{
		return DelSays(RTE_LOG_DEBUG, "del meter shaper suc.");
	}

	/* A success at error level, on purpose. */
	static LogLine PortSuc()
	{
		return DelSays(RTE_LOG_ERR, "del meter port suc.");
	}

	static std::vector<Event> Unbound()
	{
		return Events(CmdChannel(), MepUnbindOutput(0, SFI));
	}

	static Call IndexGivenBack()
	{
		return PoolFree(meter_index_mgr, HW_METER);
	}
};

TEST_F(MeterOutOfCard, BothSidesClearTheIschRegisterThePortShaperAndTheReceiveBinding)
{
	auto *meter = AddMeter(BOTH);

	EXPECT_EQ(vask_p4_del_meter_cfg_2_hw(meter), 0);

	ExpectTrace(IschCleared(), IschSuc(), ShaperCleared(), ShaperSuc(), Unbound(), PortSuc(),
		IndexGivenBack());
	EXPECT_EQ(meter->data.enable, 0u);
	EXPECT_EQ(meter->data.hw_meter_id, HW_METER) << "the record keeps the number";
	EXPECT_FALSE(IsTaken(meter_index_mgr, HW_METER));
	EXPECT_EQ(meter->data.off_hw_state, 2u);
	EXPECT_EQ(profile->data.ref_cnt, 1u);
	EXPECT_EQ(policy->data.ref_cnt, 1u);
}

TEST_F(MeterOutOfCard, ReceiveClearsTheIschRegisterAndTheBinding)
{
	auto *meter = AddMeter(RX);

	EXPECT_EQ(vask_p4_del_meter_cfg_2_hw(meter), 0);

	ExpectTrace(IschCleared(), IschSuc(), Unbound(), PortSuc(), IndexGivenBack());
	EXPECT_EQ(meter->data.enable, 0u);
}

TEST_F(MeterOutOfCard, TransmitOnlyMeterWithTypeSetRemovesOnlyThePortShaperAndMakesNoPortTableCall)
{
	auto *meter = AddMeter(TX);

	EXPECT_EQ(vask_p4_del_meter_cfg_2_hw(meter), 0);

	ExpectTrace(ShaperCleared(), ShaperSuc(), PortSuc(), IndexGivenBack());
	EXPECT_EQ(meter->data.enable, 0u);
	EXPECT_FALSE(IsTaken(meter_index_mgr, HW_METER));
}

TEST_F(MeterOutOfCard, NoSideAndTypeClearOnlyReturnsItsIndex)
{
	auto *meter = AddMeter(NO_SIDE);
	meter->data.type = 0;

	EXPECT_EQ(vask_p4_del_meter_cfg_2_hw(meter), 0);

	ExpectTrace(IndexGivenBack());
	EXPECT_EQ(meter->data.enable, 1u);
}

TEST_F(MeterOutOfCard, NoSideAndTypeSetIsDisabledWithoutAPortCall)
{
	auto *meter = AddMeter(NO_SIDE);

	EXPECT_EQ(vask_p4_del_meter_cfg_2_hw(meter), 0);

	ExpectTrace(PortSuc(), IndexGivenBack());
	EXPECT_EQ(meter->data.enable, 0u);
}

TEST_F(MeterOutOfCard, TypeClearKeepsTheEnableBitAndTheBinding)
{
	auto *meter = AddMeter(BOTH);
	meter->data.type = 0;

	EXPECT_EQ(vask_p4_del_meter_cfg_2_hw(meter), 0);

	ExpectTrace(IschCleared(), IschSuc(), ShaperCleared(), ShaperSuc(), IndexGivenBack());
	EXPECT_EQ(meter->data.enable, 1u);
}

TEST_F(MeterOutOfCard, PacketModeTravelsInTheClearingCommand)
{
	auto *meter = AddMeter(TX);
	meter->data.profile.packet_mode = 2;

	EXPECT_EQ(vask_p4_del_meter_cfg_2_hw(meter), 0);

	ExpectTrace(ShaperCleared(2), ShaperSuc(), PortSuc(), IndexGivenBack());
}

TEST_F(MeterOutOfCard, FailedIschWriteLeavesAllElseInPlace)
{
	auto *meter = AddMeter(BOTH);
	card.Fail(Op::IschWrite, 9);

	EXPECT_EQ(vask_p4_del_meter_cfg_2_hw(meter), 9);

	ExpectTrace(IschCleared(), DelSays(RTE_LOG_ERR, "del meter dpe shaper failed, rc = 9"));
	EXPECT_EQ(meter->data.enable, 1u);
	EXPECT_TRUE(IsTaken(meter_index_mgr, HW_METER));
}

TEST_F(MeterOutOfCard, FailedShaperCommandLeavesBindingAndIndexInPlace)
{
	auto *meter = AddMeter(BOTH);
	card.Fail(Op::SetShaper, -2);

	EXPECT_EQ(vask_p4_del_meter_cfg_2_hw(meter), -2);

	ExpectTrace(IschCleared(), IschSuc(), ShaperCleared(),
		DelSays(RTE_LOG_ERR, "del meter shaper failed, rc = -2"));
	EXPECT_EQ(meter->data.enable, 1u);
	EXPECT_TRUE(IsTaken(meter_index_mgr, HW_METER));
}

TEST_F(MeterOutOfCard, FailedUnbindingKeepsEnableAndIndexAndReturnsMinusOne)
{
	auto *meter = AddMeter(BOTH);
	card.Fail(Op::MepUnbindOutput, 55);

	EXPECT_EQ(vask_p4_del_meter_cfg_2_hw(meter), -1);

	ExpectTrace(IschCleared(), IschSuc(), ShaperCleared(), ShaperSuc(), Unbound(),
		Says(RTE_LOG_ERR, "vask_p4_meter_del_port_to_hw",
			"del meter bitmap failed, rc = 55"));
	EXPECT_EQ(meter->data.enable, 1u);
	EXPECT_TRUE(IsTaken(meter_index_mgr, HW_METER));
}

TEST_F(MeterOutOfCard, RefusedReturnOfTheIndexIsNotNoticed)
{
	auto *meter = AddMeter(RX);
	card.Fail(Op::PoolFree, -1);

	EXPECT_EQ(vask_p4_del_meter_cfg_2_hw(meter), 0);

	ExpectTrace(IschCleared(), IschSuc(), Unbound(), PortSuc(), IndexGivenBack());
	EXPECT_EQ(meter->data.enable, 0u);
}

class PortUnbinding : public MeterTest
{
      protected:
	static LogLine UnbindSays(uint32_t level, const std::string &text)
	{
		return Says(level, "vask_p4_meter_del_port_to_hw", text);
	}
};

TEST_F(PortUnbinding, TransmitClearsMeteringInfo0OnlyAndSaysMeterAdd)
{
	auto *meter = AddMeter(TX);
	qorn_input_port_table_result_tx entry;
	memset(&entry, 0xFF, sizeof(entry));
	entry.metering_info0 = 21;
	card.tx_ports[SFI] = entry;

	EXPECT_EQ(vask_p4_meter_del_port_to_hw(1, meter), 0);

	entry.metering_info0 = 0;
	ExpectTrace(CmdChannel(), TxPortGet(SFI),
		UnbindSays(RTE_LOG_INFO, "meter add: qorn get tx port meter: 21"),
		TxPortAdd(SFI, entry));
	EXPECT_EQ(Bytes(card.tx_ports[SFI]), Bytes(entry));
}

TEST_F(PortUnbinding, PortSfiAbove16383IsCutToItsLow14BitsInTheKey)
{
	auto *meter = AddMeter(TX);
	meter->data.port_sfi = 0x1C003;

	EXPECT_EQ(vask_p4_meter_del_port_to_hw(1, meter), 0);

	EXPECT_EQ(card.calls(Op::TxPortGet).at(0), TxPortGet(3));
	EXPECT_EQ(card.calls(Op::TxPortAdd).at(0), TxPortAdd(3, {}));
}

TEST_F(PortUnbinding, FailedReadOfTheTransmitEntryWritesNothing)
{
	auto *meter = AddMeter(TX);
	card.Fail(Op::TxPortGet, -8);

	EXPECT_EQ(vask_p4_meter_del_port_to_hw(1, meter), -1);

	ExpectTrace(CmdChannel(), TxPortGet(SFI),
		UnbindSays(RTE_LOG_ERR, "meter add: qorn get input port tx failed!"));
}

TEST_F(PortUnbinding, FailedWriteOfTheTransmitEntryReturnsMinusOne)
{
	auto *meter = AddMeter(TX);
	card.Fail(Op::TxPortAdd, -8);

	EXPECT_EQ(vask_p4_meter_del_port_to_hw(1, meter), -1);

	ExpectTrace(CmdChannel(), TxPortGet(SFI),
		UnbindSays(RTE_LOG_INFO, "meter add: qorn get tx port meter: 0"),
		TxPortAdd(SFI, {}),
		UnbindSays(RTE_LOG_ERR, "meter add: qorn set input port tx failed!"));
}

TEST_F(PortUnbinding, EveryOtherDirectionGoesToTheEngineWithThePortAndNotTheMeter)
{
	auto *meter = AddMeter(BOTH);
	meter->data.port_sfi = 0x4007; /* whole, unlike the key of the transmit table */

	for (int dir : {0, 2, 3, -1}) {
		StartOver();
		EXPECT_EQ(vask_p4_meter_del_port_to_hw(dir, meter), 0);
		ExpectTrace(CmdChannel(), MepUnbindOutput(dir, 0x4007));
	}
}

TEST_F(PortUnbinding, RefusedUnbindingReturnsMinusOneAndLogsTheStatus)
{
	auto *meter = AddMeter(RX);
	card.Fail(Op::MepUnbindOutput, -7);

	EXPECT_EQ(vask_p4_meter_del_port_to_hw(0, meter), -1);

	ExpectTrace(CmdChannel(), MepUnbindOutput(0, SFI),
		UnbindSays(RTE_LOG_ERR, "del meter bitmap failed, rc = -7"));
}

class PipelineEntryRemoval : public SeamTest
{
      protected:
	static LogLine DelSays(const std::string &text)
	{
		return Says(RTE_LOG_ERR, "vask_p4_del_meter_cfg_2_pol", text);
	}
};

TEST_F(PipelineEntryRemoval, ProfileEntryAndMeterEntryGoByTheSameId)
{
	EXPECT_EQ(vask_p4_del_meter_cfg_2_pol(0x12345678), 0);

	ExpectTrace(CmdChannel(), PipeProfileDelete(0x12345678), PipeMeterDelete(0x12345678));
}

TEST_F(PipelineEntryRemoval, FailedProfileDeleteLeavesTheMeterEntry)
{
	card.Fail(Op::PipeProfileDelete, -13);

	EXPECT_EQ(vask_p4_del_meter_cfg_2_pol(4), -1);

	ExpectTrace(
		CmdChannel(), PipeProfileDelete(4), DelSays("del meter cfg qorn failed, rc = -13"));
}

TEST_F(PipelineEntryRemoval, FailedMeterDeleteIsReportedAsAnInstanceFailure)
{
	card.Fail(Op::PipeMeterDelete, -3);

	EXPECT_EQ(vask_p4_del_meter_cfg_2_pol(4), -1);

	ExpectTrace(CmdChannel(), PipeProfileDelete(4), PipeMeterDelete(4),
		DelSays("del meter instance qorn failed, rc = -3"));
}

} // namespace
