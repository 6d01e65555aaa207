/* SPDX-License-Identifier: BSD-3-Clause */
#include "meters.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;

namespace
{

using MeterIntoCard = MeterTest;

LogLine
AddSays(uint32_t level, const std::string &text)
{
	return Says(level, "vask_p4_add_meter_cfg_2_hw", text);
}

/* A success at error level, on purpose. */
LogLine
IschSuc()
{
	return AddSays(RTE_LOG_ERR, "add meter dpe shaper rate(100kbps) suc");
}

LogLine
ShaperSuc()
{
	return AddSays(RTE_LOG_DEBUG, "add meter shaper suc.");
}

vask_p4_mep_meter_inst_table
AllOnes()
{
	vask_p4_mep_meter_inst_table inst;
	memset(&inst, 0xFF, sizeof(inst));
	return inst;
}

TEST_F(MeterIntoCard, BothSidesWriteTheIschRegisterFirstAndThenThePortShaper)
{
	auto *meter = AddMeter(BOTH);
	meter->data.enable = 0;

	EXPECT_EQ(vask_p4_add_meter_cfg_2_hw(meter), 0);

	ExpectTrace(IschSet(), IschSuc(), ShaperSet(), ShaperSuc());
	EXPECT_EQ(meter->data.enable, 1u);
	EXPECT_EQ(meter->data.off_hw_state, 2u);
}

TEST_F(MeterIntoCard, ReceiveWritesTheIschRegisterOnly)
{
	auto *meter = AddMeter(RX);
	meter->data.enable = 0;

	EXPECT_EQ(vask_p4_add_meter_cfg_2_hw(meter), 0);

	ExpectTrace(IschSet(), IschSuc());
	EXPECT_EQ(meter->data.enable, 1u);
}

TEST_F(MeterIntoCard, TransmitSendsThePortShaperCommandOnly)
{
	auto *meter = AddMeter(TX);
	meter->data.enable = 0;

	EXPECT_EQ(vask_p4_add_meter_cfg_2_hw(meter), 0);

	ExpectTrace(ShaperSet(), ShaperSuc());
	EXPECT_EQ(meter->data.enable, 1u);
}

TEST_F(MeterIntoCard, AnyOtherDirectionCountsAsProgrammedWithNoCallToTheCardAndIsEnabled)
{
	auto *meter = AddMeter(NO_SIDE);

	for (uint32_t dir : {2u, 4u, 5u, 0x80000000u, 0xFFFFFFFFu}) {
		meter->data.dir = dir;
		meter->data.enable = 0;
		meter->data.mep_inst = AllOnes();
		EXPECT_EQ(vask_p4_add_meter_cfg_2_hw(meter), 0);
		EXPECT_EQ(meter->data.enable, 1u) << dir;
		EXPECT_EQ(Bytes(meter->data.mep_inst), std::vector<uint8_t>(32)) << dir;
	}
	ExpectTrace();
}

TEST_F(MeterIntoCard, FailedIschWriteReturnsItsStatusAndSendsNoShaperCommand)
{
	auto *meter = AddMeter(BOTH);
	meter->data.enable = 0;
	meter->data.mep_inst = AllOnes();
	card.Fail(Op::IschWrite, 77);

	EXPECT_EQ(vask_p4_add_meter_cfg_2_hw(meter), 77);

	ExpectTrace(IschSet(), AddSays(RTE_LOG_ERR, "add meter dpe isch shaper failed, rc = 77"));
	EXPECT_EQ(meter->data.enable, 0u);
	EXPECT_EQ(Bytes(meter->data.mep_inst), std::vector<uint8_t>(32, 0xFF));
	ExpectErrorUntouched(error);
}

TEST_F(MeterIntoCard, FailedIschWriteOfAReceiveMeterReturnsItsStatus)
{
	auto *meter = AddMeter(RX);
	meter->data.enable = 0;
	card.Fail(Op::IschWrite, -13);

	EXPECT_EQ(vask_p4_add_meter_cfg_2_hw(meter), -13);

	ExpectTrace(IschSet(), AddSays(RTE_LOG_ERR, "add meter dpe isch shaper failed, rc = -13"));
	EXPECT_EQ(meter->data.enable, 0u);
}

TEST_F(MeterIntoCard, FailedShaperCommandKeepsTheIschRegisterAndTheEnableBit)
{
	auto *meter = AddMeter(BOTH);
	meter->data.enable = 0;
	meter->data.mep_inst = AllOnes();
	card.Fail(Op::SetShaper, -5);

	EXPECT_EQ(vask_p4_add_meter_cfg_2_hw(meter), -5);

	ExpectTrace(IschSet(), IschSuc(), ShaperSet(),
		AddSays(RTE_LOG_ERR, "add meter shaper failed, rc = -5"));
	EXPECT_EQ(meter->data.enable, 0u);
	EXPECT_EQ(Bytes(meter->data.mep_inst), std::vector<uint8_t>(32, 0xFF));
}

TEST_F(MeterIntoCard, FailedShaperCommandOfATransmitMeterReturnsItsStatus)
{
	auto *meter = AddMeter(TX);
	card.Fail(Op::SetShaper, 1);

	EXPECT_EQ(vask_p4_add_meter_cfg_2_hw(meter), 1);

	ExpectTrace(ShaperSet(), AddSays(RTE_LOG_ERR, "add meter shaper failed, rc = 1"));
	EXPECT_EQ(meter->data.enable, 1u) << "an enabled meter stays enabled";
}

TEST_F(MeterIntoCard, AfterASuccessfulCallTheEngineInstanceCopyIsAllZeroWhateverItHeldBefore)
{
	for (uint32_t dir : {RX, TX, BOTH}) {
		auto *meter = AddMeter(dir, METER + dir, HW_METER + dir);
		meter->data.mep_inst = AllOnes();
		EXPECT_EQ(vask_p4_add_meter_cfg_2_hw(meter), 0);
		EXPECT_EQ(Bytes(meter->data.mep_inst), std::vector<uint8_t>(32)) << dir;
	}
}

TEST_F(MeterIntoCard, RateAndModeComeFromTheMetersOwnCopyOfTheProfile)
{
	auto *meter = AddMeter(BOTH);
	profile->data.cir = 1;
	profile->data.packet_mode = 0;
	meter->data.profile.cir = 1250000; /* 10,000 kbit/s; with 8 % 108 times 100 kbit/s */
	meter->data.profile.packet_mode = 3;

	EXPECT_EQ(vask_p4_add_meter_cfg_2_hw(meter), 0);

	ExpectTrace(IschSet(1250000, 108, 3), IschSuc(), ShaperSet(10000, 3), ShaperSuc());
}

TEST_F(MeterIntoCard, NeitherReferencesNorStateNorHardwareIndexChange)
{
	auto *meter = AddMeter(BOTH);
	meter->data.off_hw_state = 1;

	EXPECT_EQ(vask_p4_add_meter_cfg_2_hw(meter), 0);

	EXPECT_EQ(meter->data.off_hw_state, 1u);
	EXPECT_EQ(meter->data.hw_meter_id, HW_METER);
	EXPECT_EQ(profile->data.ref_cnt, 1u);
	EXPECT_EQ(policy->data.ref_cnt, 1u);
}

class PortBinding : public MeterTest
{
      protected:
	static LogLine BindSays(uint32_t level, const std::string &text)
	{
		return Says(level, "vask_p4_meter_add_port_to_hw", text);
	}

	/* Every bit set but those of the one field that changes. */
	static qorn_input_port_table_result_tx EntryAround(uint16_t metering_info0)
	{
		qorn_input_port_table_result_tx entry;
		memset(&entry, 0xFF, sizeof(entry));
		entry.metering_info0 = metering_info0;
		return entry;
	}
};

TEST_F(PortBinding, ReceiveIsBoundInTheIngressEngine)
{
	auto *meter = AddMeter(RX);

	EXPECT_EQ(vask_p4_meter_add_port_to_hw(0, meter, &error), 0);

	ExpectTrace(CmdChannel(), MepBindOutput(0, SFI, HW_METER),
		BindSays(RTE_LOG_DEBUG, "[meter add port] dir 0 set port sfi 42 success!"));
	ExpectErrorUntouched(error);
}

TEST_F(PortBinding, RefusedReceiveBindingIsAnInternalError)
{
	auto *meter = AddMeter(RX);
	card.Fail(Op::MepBindOutput, 3);

	ExpectRefused(vask_p4_meter_add_port_to_hw(0, meter, &error), error,
		RTE_MTR_ERROR_TYPE_UNSPECIFIED, "internal error");

	ExpectTrace(CmdChannel(), MepBindOutput(0, SFI, HW_METER),
		BindSays(RTE_LOG_ERR, "meter add: qorn set input port rx failed!"));
}

TEST_F(PortBinding, TransmitIsBoundByReadingTheEntryAndWritingItBack)
{
	auto *meter = AddMeter(TX);
	card.tx_ports[SFI] = EntryAround(0x1234);

	EXPECT_EQ(vask_p4_meter_add_port_to_hw(1, meter, &error), 0);

	ExpectTrace(CmdChannel(), TxPortGet(SFI),
		BindSays(RTE_LOG_INFO, "meter add: qorn set tx port meter: 21"),
		TxPortAdd(SFI, EntryAround(21)),
		BindSays(RTE_LOG_DEBUG, "[meter add port] dir 1 set port sfi 42 success!"));
	ExpectErrorUntouched(error);
}

TEST_F(PortBinding, BindingATransmitPortChangesMeteringInfo0Only)
{
	auto *meter = AddMeter(TX);
	qorn_input_port_table_result_tx entry = {};
	entry.def_action_index = 0x1ABCDEF;
	entry.mep_type = 2;
	entry.mep_dispatch_type = 9;
	entry.def_destination = 0x3FEDCB;
	entry.tpid_antispoof_ctl = 1;
	entry.smac_anti_spoof = 2;
	card.tx_ports[SFI] = entry;

	EXPECT_EQ(vask_p4_meter_add_port_to_hw(1, meter, &error), 0);

	entry.metering_info0 = HW_METER;
	EXPECT_EQ(Bytes(card.tx_ports[SFI]), Bytes(entry));
}

TEST_F(PortBinding, HardwareMeterAbove65535IsCutToItsLow16Bits)
{
	auto *meter = AddMeter(TX);
	meter->data.hw_meter_id = 0x12345;

	EXPECT_EQ(vask_p4_meter_add_port_to_hw(1, meter, &error), 0);

	qorn_input_port_table_result_tx entry = {};
	entry.metering_info0 = 0x2345;
	EXPECT_EQ(card.calls(Op::TxPortAdd).at(0), TxPortAdd(SFI, entry));
	EXPECT_EQ(log.lines(RTE_LOG_INFO).at(0),
		BindSays(RTE_LOG_INFO, "meter add: qorn set tx port meter: 9029"));
	meter->data.hw_meter_id = HW_METER;
}

TEST_F(PortBinding, PortSfiAbove16383IsCutToItsLow14BitsInTheKey)
{
	auto *meter = AddMeter(TX);
	meter->data.port_sfi = 0x4007;

	EXPECT_EQ(vask_p4_meter_add_port_to_hw(1, meter, &error), 0);

	EXPECT_EQ(card.calls(Op::TxPortGet).at(0), TxPortGet(7));
	EXPECT_EQ(card.calls(Op::TxPortAdd).at(0).args.at(0), 7u);
	EXPECT_EQ(log.lines().back(),
		BindSays(RTE_LOG_DEBUG, "[meter add port] dir 1 set port sfi 16391 success!"));
}

TEST_F(PortBinding, FailedReadOfTheTransmitEntryWritesNothing)
{
	auto *meter = AddMeter(TX);
	card.Fail(Op::TxPortGet, -1);

	ExpectRefused(vask_p4_meter_add_port_to_hw(1, meter, &error), error,
		RTE_MTR_ERROR_TYPE_UNSPECIFIED, "internal error");

	ExpectTrace(CmdChannel(), TxPortGet(SFI),
		BindSays(RTE_LOG_ERR, "meter add: qorn get input port tx failed!"));
}

TEST_F(PortBinding, FailedWriteOfTheTransmitEntryIsAnInternalError)
{
	auto *meter = AddMeter(TX);
	card.tx_ports[SFI] = EntryAround(7);
	card.Fail(Op::TxPortAdd, -14);

	ExpectRefused(vask_p4_meter_add_port_to_hw(1, meter, &error), error,
		RTE_MTR_ERROR_TYPE_UNSPECIFIED, "internal error");

	ExpectTrace(CmdChannel(), TxPortGet(SFI),
		BindSays(RTE_LOG_INFO, "meter add: qorn set tx port meter: 21"),
		TxPortAdd(SFI, EntryAround(21)),
		BindSays(RTE_LOG_ERR, "meter add: qorn set input port tx failed!"));
	EXPECT_EQ(Bytes(card.tx_ports[SFI]), Bytes(EntryAround(7)));
}

TEST_F(PortBinding, AnyOtherDirectionTouchesNothingAndSucceeds)
{
	auto *meter = AddMeter(BOTH);

	for (int dir : {2, 3, -1}) {
		StartOver();
		EXPECT_EQ(vask_p4_meter_add_port_to_hw(dir, meter, &error), 0);
		ExpectTrace(CmdChannel(),
			BindSays(RTE_LOG_DEBUG,
				"[meter add port] dir " + std::to_string(dir) +
					" set port sfi 42 success!"));
	}
}

TEST_F(PortBinding, RefusalWithoutAnErrorRecordSetsErrnoOnly)
{
	auto *meter = AddMeter(RX);
	card.Fail(Op::MepBindOutput, 3);

	EXPECT_EQ(vask_p4_meter_add_port_to_hw(0, meter, nullptr), -16);

	EXPECT_EQ(rte_errno, 16);
}

} // namespace
