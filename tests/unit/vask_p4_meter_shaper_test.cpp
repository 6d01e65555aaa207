/* SPDX-License-Identifier: BSD-3-Clause */

/* Committed rate to shaper records. */

#include <cstring>

#include "module_test.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;
using ::testing::ElementsAre;

namespace
{

using PortShaper = SeamTest;
using PortShaperOff = SeamTest;
using SchedulerShaper = SeamTest;

struct WorkedValue {
	uint64_t cir;
	uint32_t max_rate;
	uint32_t isch_rate;
};

constexpr WorkedValue WORKED_VALUES[] = {
	{11574, 92, 0},
	{11575, 92, 1},
	{12500, 100, 1},
	{1250000, 10000, 108},
	{125000000, 1000000, 10800},
	{1250000000, 10000000, 108000},
	{6068148149, 48545185, 0},
};

uint32_t
MaxRate(uint64_t cir, int pm = 0)
{
	vask_shaper_set_info info = {};
	vask_p4_meter_add_convert_shaper(1, cir, pm, &info);
	return info.max_rate;
}

vask_p4_isch_shaper
Isch(uint64_t cir, int pm = 0)
{
	vask_p4_isch_shaper word = {};
	vask_p4_meter_add_convert_isch_shaper(cir, pm, &word);
	return word;
}

TEST_F(PortShaper, CarriesPortModeDirectionAndTheRateInKilobits)
{
	vask_shaper_set_info info = {};
	vask_p4_meter_add_convert_shaper(42, 1250000, 0, &info);

	vask_shaper_set_info expected = {};
	expected.sfi = 42;
	expected.mode = 0;
	expected.direction = 1;
	expected.max_rate = 10000; /* 1250000 x 8 / 1000 */
	EXPECT_EQ(Bytes(info), Bytes(expected));
	EXPECT_THAT(trace,
		ElementsAre(Line(DEBUG,
			"[offload_smartnic] vask_p4_meter_add_convert_shaper add convert shaper "
			"meter sfi 42 pm 0, rate 10000 (kbps).\n")));
}

TEST_F(PortShaper, WorkedValues)
{
	for (const WorkedValue &row : WORKED_VALUES)
		EXPECT_EQ(MaxRate(row.cir), row.max_rate) << row.cir;
}

TEST_F(PortShaper, RateIsTruncated)
{
	EXPECT_EQ(MaxRate(124), 0u); /* 0.992 */
	EXPECT_EQ(MaxRate(125), 1u);
	EXPECT_EQ(MaxRate(0), 0u);
}

TEST_F(PortShaper, RateIsCutTo32Bits)
{
	/* 2^32 kbit/s are 536870912000 bytes/s */
	EXPECT_EQ(MaxRate(536870911999), 0xFFFFFFFFu);
	EXPECT_EQ(MaxRate(536870912000), 0u);
	EXPECT_EQ(MaxRate(536870912125), 1u);
}

TEST_F(PortShaper, ProductWrapsAtTwoToThe64)
{
	EXPECT_EQ(MaxRate((uint64_t{1} << 61) + 125), 1u); /* 2^64 + 1000 */
}

TEST_F(PortShaper, SfiOf0x10005IsSentAs5)
{
	vask_shaper_set_info info = {};
	vask_p4_meter_add_convert_shaper(0x10005, 125, 1, &info);

	EXPECT_EQ(info.sfi, 5);
	/* the line tells the number as it came */
	EXPECT_THAT(log.lines(),
		ElementsAre(Line(DEBUG,
			"[offload_smartnic] vask_p4_meter_add_convert_shaper add convert shaper "
			"meter sfi 65541 pm 1, rate 1 (kbps).\n")));
}

TEST_F(PortShaper, ModeIsTheWholePacketModeCutTo16Bits)
{
	vask_shaper_set_info info = {};
	vask_p4_meter_add_convert_shaper(1, 0, 2, &info);
	EXPECT_EQ(info.mode, 2);
	vask_p4_meter_add_convert_shaper(1, 0, 0x30001, &info);
	EXPECT_EQ(info.mode, 1);
	vask_p4_meter_add_convert_shaper(1, 0, -1, &info);
	EXPECT_EQ(info.mode, 0xFFFF);
}

TEST_F(PortShaper, RateIsConvertedWithTheByteFormulaAlsoInPacketMode)
{
	EXPECT_EQ(MaxRate(1000, 1), 8u);
}

TEST_F(PortShaper, LeavesTheOtherBitsOfTheRecordAsTheyWere)
{
	vask_shaper_set_info info;
	memset(&info, 0xFF, sizeof(info));
	info.direction = 0;
	vask_p4_meter_add_convert_shaper(7, 250, 0, &info);

	EXPECT_EQ(info.bdf, 0xFFFF);
	EXPECT_EQ(info.rsvd, 0x7FFF);
	EXPECT_EQ(info.direction, 1);
	EXPECT_EQ(info.sfi, 7);
	EXPECT_EQ(info.mode, 0);
	EXPECT_EQ(info.max_rate, 2u);
}

TEST_F(PortShaperOff, ZeroedRecordKeepsRateZeroAndGetsDirectionOne)
{
	vask_shaper_set_info info = {};
	vask_p4_meter_del_convert_shaper(0x10005, 1, &info);

	vask_shaper_set_info expected = {};
	expected.sfi = 5;
	expected.mode = 1;
	expected.direction = 1;
	expected.max_rate = 0;
	EXPECT_EQ(Bytes(info), Bytes(expected));
	EXPECT_THAT(trace,
		ElementsAre(Line(DEBUG,
			"[offload_smartnic] vask_p4_meter_del_convert_shaper del convert shaper "
			"meter sfi 65541 pm 1.\n")));
}

TEST_F(PortShaperOff, LeavesTheRateAndTheOtherBitsOfTheRecordAsTheyWere)
{
	vask_shaper_set_info info;
	memset(&info, 0xFF, sizeof(info));
	info.direction = 0;
	vask_p4_meter_del_convert_shaper(7, 0x20002, &info);

	EXPECT_EQ(info.max_rate, 0xFFFFFFFFu);
	EXPECT_EQ(info.bdf, 0xFFFF);
	EXPECT_EQ(info.rsvd, 0x7FFF);
	EXPECT_EQ(info.direction, 1);
	EXPECT_EQ(info.sfi, 7);
	EXPECT_EQ(info.mode, 2);
}

TEST_F(SchedulerShaper, CarriesEnableModeBurstAndTheRaisedRate)
{
	const vask_p4_isch_shaper word = Isch(1250000, 1);

	vask_p4_isch_shaper expected = {};
	expected.enable = 1;
	expected.mode = 1;
	expected.pbs = 1;
	expected.rate_level = 0;
	expected.rate = 108; /* 1350000 x 8 / 100000 */
	EXPECT_EQ(Bytes(word), Bytes(expected));
	EXPECT_THAT(trace,
		ElementsAre(Line(DEBUG,
			"[offload_smartnic] vask_p4_meter_add_convert_isch_shaper add convert "
			"isch shaper meter pm 1, rate 1250000 -> 108 (100kbps).\n")));
}

TEST_F(SchedulerShaper, WorkedValues)
{
	for (const WorkedValue &row : WORKED_VALUES)
		EXPECT_EQ(Isch(row.cir).rate, row.isch_rate) << row.cir;
}

TEST_F(SchedulerShaper, RateBelow11575BytesASecondEnablesAShaperOfRateZero)
{
	for (uint64_t cir : {uint64_t{0}, uint64_t{1}, uint64_t{11574}}) {
		EXPECT_EQ(Isch(cir).enable, 1u);
		EXPECT_EQ(Isch(cir).rate, 0u) << cir;
	}
}

TEST_F(SchedulerShaper, RateFieldWrapsAndDoesNotSaturate)
{
	EXPECT_EQ(Isch(6068148148).rate, 524287u);
	EXPECT_EQ(Isch(6068148149).rate, 0u);
}

TEST_F(SchedulerShaper, LineTellsTheLow32BitsOfTheRateAndTheUncutResult)
{
	Isch(6068148149); /* 2^32 + 1773180853 */

	EXPECT_THAT(log.lines(),
		ElementsAre(Line(DEBUG,
			"[offload_smartnic] vask_p4_meter_add_convert_isch_shaper add convert "
			"isch shaper meter pm 0, rate 1773180853 -> 524288 (100kbps).\n")));
}

TEST_F(SchedulerShaper, RaisedRateWrapsAtTwoToThe64)
{
	/* 170803185867681034 x 108 is 2^64 + 56 */
	const uint64_t cir = 0xFFFFFFFFFFFFFFFF / 108 + 1;

	ASSERT_EQ(cir, 170803185867681034u);
	EXPECT_EQ(Isch(cir).rate, 0u);
}

TEST_F(SchedulerShaper, RateIsCutTo32BitsBeforeItIsLogged)
{
	/* x 108 / 100 is 53687091200000, x 8 / 100000 is 2^32 */
	Isch(49710269629630);

	EXPECT_THAT(log.lines(),
		ElementsAre(Line(DEBUG,
			"[offload_smartnic] vask_p4_meter_add_convert_isch_shaper add convert "
			"isch shaper meter pm 0, rate 318145726 -> 0 (100kbps).\n")));
}

TEST_F(SchedulerShaper, ModeIsTheLowestBitOfThePacketMode)
{
	EXPECT_EQ(Isch(0, 2).mode, 0u);
	EXPECT_EQ(Isch(0, 3).mode, 1u);
	EXPECT_EQ(Isch(0, -1).mode, 1u);
}

TEST_F(SchedulerShaper, LeavesGateAndReservedBitsAsTheyWere)
{
	vask_p4_isch_shaper word;
	memset(&word, 0xFF, sizeof(word));
	vask_p4_meter_add_convert_isch_shaper(1250000, 0, &word);

	EXPECT_EQ(word.enable, 1u);
	EXPECT_EQ(word.alway_closed, 1u);
	EXPECT_EQ(word.mode, 0u);
	EXPECT_EQ(word.pbs, 1u);
	EXPECT_EQ(word.rate_level, 0u);
	EXPECT_EQ(word.rate, 108u);
	EXPECT_EQ(word.resvd, 3u);
}

} // namespace
