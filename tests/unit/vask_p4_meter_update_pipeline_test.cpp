/* SPDX-License-Identifier: BSD-3-Clause */
/* A profile and a meter into the pipeline's meter tables. */
#include "meters.h"

using namespace vask_test;

namespace
{

class PipelineTables : public SeamTest
{
      protected:
	PipelineTables()
	{
		profile.data.profile_id = 5;
		memset(&meter.data.table, 0xAA, sizeof(meter.data.table));
		memset(&meter.data.table_inst, 0xAA, sizeof(meter.data.table_inst));
	}

	/* What a profile of all zeros gives. */
	static qorn_meter_profile_table Entry()
	{
		qorn_meter_profile_table entry = {};
		entry.cbsm = 1;
		entry.valid = 1;
		return entry;
	}

	static qorn_meter_table Instance(uint32_t meter_profile_id)
	{
		qorn_meter_table instance = {};
		instance.valid = 1;
		instance.meter_profile_id = meter_profile_id;
		return instance;
	}

	/* Writes the profile and gives the entry that reached the card. */
	std::vector<uint8_t> Written()
	{
		StartOver();
		EXPECT_EQ(vask_p4_update_meter_cfg_2_pol(&profile, &meter, 9), 0);
		return card.calls(Op::PipeProfileUpdate).at(0).record;
	}

	vask_p4_meter_profile_node profile = {};
	vask_p4_meter_cfg_node meter = {};
};

TEST_F(PipelineTables, ProfileGoesByItsOwnIdAndTheMeterByTheArgument)
{
	profile.data.hw_profile_id = 77;
	meter.data.meter_id = 66;

	EXPECT_EQ(vask_p4_update_meter_cfg_2_pol(&profile, &meter, 0x12345678), 0);

	ExpectTrace(CmdChannel(), PipeProfileUpdate(5, Entry()),
		PipeMeterUpdate(0x12345678, Instance(5)));
	EXPECT_EQ(Bytes(meter.data.table), Bytes(Entry()));
	EXPECT_EQ(Bytes(meter.data.table_inst), Bytes(Instance(5)));
}

TEST_F(PipelineTables, EntryOfAZeroProfileHasOnlyCbsmAndValidSet)
{
	/* cbsm is bit 27, valid bit 127. */
	std::vector<uint8_t> expected(16);
	expected[3] = 0x08;
	expected[15] = 0x80;
	EXPECT_EQ(Written(), expected);
}

TEST_F(PipelineTables, Cbs3GivesCbsL1OneAndCbsH19One)
{
	profile.data.cbs = 3;
	auto entry = Entry();
	entry.cbs_l1 = 1;
	entry.cbs_h19 = 1;
	EXPECT_EQ(Written(), Bytes(entry));
}

TEST_F(PipelineTables, Cir0x2000001GivesCirL25OneAndCirH3One)
{
	profile.data.cir = 0x2000001;
	auto entry = Entry();
	entry.cir_l25 = 1;
	entry.cir_h3 = 1;
	EXPECT_EQ(Written(), Bytes(entry));
}

TEST_F(PipelineTables, Ebs0x2001GivesEbsL13OneAndEbsH7One)
{
	profile.data.ebs = 0x2001;
	auto entry = Entry();
	entry.ebs_l13 = 1;
	entry.ebs_h7 = 1;
	EXPECT_EQ(Written(), Bytes(entry));
}

TEST_F(PipelineTables, NumbersAreRawAndCutToTheirFields)
{
	struct {
		uint64_t vask_p4_meter_profile::*field;
		unsigned first, width;
	} const rows[] = {{&vask_p4_meter_profile::cbs, 31, 20},
		{&vask_p4_meter_profile::ebs, 51, 20}, {&vask_p4_meter_profile::cir, 71, 28},
		{&vask_p4_meter_profile::eir, 99, 28}};

	for (const auto &row : rows) {
		std::vector<uint8_t> expected = Bytes(Entry());
		for (unsigned bit = row.first; bit < row.first + row.width; bit++)
			expected[bit / 8] |= 1u << (bit % 8);
		profile.data.*row.field = ~UINT64_C(0);
		EXPECT_EQ(Written(), expected) << row.first;

		profile.data.*row.field = ~UINT64_C(0) << row.width;
		EXPECT_EQ(Written(), Bytes(Entry())) << row.first;
		profile.data.*row.field = 0;
	}
}

TEST_F(PipelineTables, PacketModeAndRfc2698AreTheirLowestBits)
{
	auto entry = Entry();
	entry.pm = 1;
	profile.data.packet_mode = 3;
	profile.data.rfc2698_mode = 2;
	EXPECT_EQ(Written(), Bytes(entry));

	entry.pm = 0;
	entry.rfc = 1;
	profile.data.packet_mode = 2;
	profile.data.rfc2698_mode = 3;
	EXPECT_EQ(Written(), Bytes(entry));
}

TEST_F(PipelineTables, ProfileIdAbove255ReachesTheMeterTableCutToItsLow8Bits)
{
	profile.data.profile_id = 0x1FE;

	EXPECT_EQ(vask_p4_update_meter_cfg_2_pol(&profile, &meter, 9), 0);

	ExpectTrace(CmdChannel(), PipeProfileUpdate(0x1FE, Entry()),
		PipeMeterUpdate(9, Instance(0xFE)));
}

TEST_F(PipelineTables, FailedProfileWriteLeavesBothCopiesAsTheyWere)
{
	card.Fail(Op::PipeProfileUpdate, -12);

	EXPECT_EQ(vask_p4_update_meter_cfg_2_pol(&profile, &meter, 9), -1);

	ExpectTrace(CmdChannel(), PipeProfileUpdate(5, Entry()),
		Says(RTE_LOG_ERR, "vask_p4_update_meter_cfg_2_pol",
			"update meter cfg qorn failed, rc = -12"));
	EXPECT_EQ(Bytes(meter.data.table), std::vector<uint8_t>(16, 0xAA));
	EXPECT_EQ(Bytes(meter.data.table_inst), std::vector<uint8_t>(20, 0xAA));
}

TEST_F(PipelineTables, FailedMeterWriteKeepsTheNewProfileCopy)
{
	card.Fail(Op::PipeMeterUpdate, -4);

	EXPECT_EQ(vask_p4_update_meter_cfg_2_pol(&profile, &meter, 9), -1);

	ExpectTrace(CmdChannel(), PipeProfileUpdate(5, Entry()), PipeMeterUpdate(9, Instance(5)),
		Says(RTE_LOG_ERR, "vask_p4_update_meter_cfg_2_pol",
			"update meter instance qorn failed, rc = -4"));
	EXPECT_EQ(Bytes(meter.data.table), Bytes(Entry()));
	EXPECT_EQ(Bytes(meter.data.table_inst), std::vector<uint8_t>(20, 0xAA));
}

TEST_F(PipelineTables, NothingElseOfTheRecordsChanges)
{
	profile.data.ref_cnt = 4;
	meter.data.off_hw_state = 1;
	const std::vector<uint8_t> profile_before = Bytes(profile.data);
	vask_p4_meter_cfg_entry expected = meter.data;

	EXPECT_EQ(vask_p4_update_meter_cfg_2_pol(&profile, &meter, 9), 0);

	EXPECT_EQ(Bytes(profile.data), profile_before);
	expected.table = Entry();
	expected.table_inst = Instance(5);
	EXPECT_EQ(Bytes(meter.data), Bytes(expected));
}

} // namespace
