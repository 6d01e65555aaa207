/* SPDX-License-Identifier: BSD-3-Clause */
#include "meters.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;

namespace
{

class MeterStats : public MeterTest
{
      protected:
	static constexpr uint64_t UNTOUCHED = UINT64_C(0xA5A5A5A5A5A5A5A5);

	MeterStats()
	{
		memset(&stats, 0xA5, sizeof(stats));
	}

	void Drop(int engine, uint32_t packets, uint64_t bytes, uint32_t hw_meter_id = HW_METER)
	{
		vask_p4_mep_meter_inst_table inst;
		memset(&inst, 0xFF, sizeof(inst));
		inst.drop_pkt_cnt = packets;
		inst.drop_pkt_len_cnt = bytes;
		card.instances[{engine, hw_meter_id}] = inst;
	}

	int Read(uint64_t mask, uint32_t id = METER, int clear = 0)
	{
		stats_mask = mask;
		const int rc =
			vask_p4_meter_stats_read(dev, id, &stats, &stats_mask, clear, &error);
		EXPECT_EQ(stats_mask, mask) << "the mask is not written back";
		return rc;
	}

	static LogLine StatsSays(uint32_t level, const std::string &text)
	{
		return Says(level, "vask_p4_meter_stats_read", text);
	}

	static LogLine FoundNode()
	{
		return StatsSays(RTE_LOG_INFO, "[meter]: meter stats find meter node!");
	}

	void ExpectDropped(uint64_t packets, uint64_t bytes)
	{
		EXPECT_EQ(stats.n_pkts_dropped, packets);
		EXPECT_EQ(stats.n_bytes_dropped, bytes);
		for (int color = 0; color < 3; color++) {
			EXPECT_EQ(stats.n_pkts[color], UNTOUCHED);
			EXPECT_EQ(stats.n_bytes[color], UNTOUCHED);
		}
	}

	rte_mtr_stats stats;
	uint64_t stats_mask = 0;
};

TEST_F(MeterStats, ReceiveMeterIsReadFromTheIngressEngine)
{
	AddMeter(RX);
	Drop(0, 3, 4500);
	Drop(1, 100, 100);

	EXPECT_EQ(Read(0x88), 0);

	ExpectTrace(FoundNode(), MepReadInst(0, HW_METER),
		StatsSays(RTE_LOG_INFO, "[meter]: meter 21 read rx: cnt = 3, len = 4500!"));
	ExpectDropped(3, 4500);
	ExpectErrorUntouched(error);
}

TEST_F(MeterStats, TransmitMeterIsReadFromTheEgressEngine)
{
	AddMeter(TX);
	Drop(0, 100, 100);
	Drop(1, 0x80000000, UINT64_C(0xFFFFFFFFFFFFFFFF));

	EXPECT_EQ(Read(0x88), 0);

	ExpectTrace(FoundNode(), MepReadInst(1, HW_METER),
		StatsSays(RTE_LOG_INFO,
			"[meter]: meter 21 read tx: cnt = 2147483648, len = 18446744073709551615!"));
	ExpectDropped(0x80000000, UINT64_C(0xFFFFFFFFFFFFFFFF));
}

TEST_F(MeterStats, BothSidesAreReadFirstAndLoggedThenAndAdded)
{
	AddMeter(BOTH);
	Drop(0, 3, 4500);
	Drop(1, 40, UINT64_C(0x100000000));

	EXPECT_EQ(Read(0x88), 0);

	ExpectTrace(FoundNode(), MepReadInst(0, HW_METER), MepReadInst(1, HW_METER),
		StatsSays(RTE_LOG_INFO, "[meter]: meter 21 read rx: cnt = 3, len = 4500!"),
		StatsSays(RTE_LOG_INFO, "[meter]: meter 21 read tx: cnt = 40, len = 4294967296!"));
	ExpectDropped(43, UINT64_C(4294971796));
}

TEST_F(MeterStats, DirectionsOtherThanReceiveAndTransmitReadBothEngines)
{
	auto *meter = AddMeter(NO_SIDE);
	Drop(0, 1, 10);
	Drop(1, 2, 20);

	for (uint32_t dir : {2u, 4u, 0xFFFFFFFFu}) {
		meter->data.dir = dir;
		StartOver();
		EXPECT_EQ(Read(0x88), 0);
		ExpectTrace(FoundNode(), MepReadInst(0, HW_METER), MepReadInst(1, HW_METER),
			StatsSays(RTE_LOG_INFO, "[meter]: meter 21 read rx: cnt = 1, len = 10!"),
			StatsSays(RTE_LOG_INFO, "[meter]: meter 21 read tx: cnt = 2, len = 20!"));
		ExpectDropped(3, 30);
	}
}

TEST_F(MeterStats, PacketCountsOfBothEnginesAreAddedIn32BitsAndBytesIn64)
{
	AddMeter(BOTH);
	Drop(0, 0xFFFFFFFF, 0xFFFFFFFF);
	Drop(1, 1, 1);

	EXPECT_EQ(Read(0x88), 0);

	ExpectDropped(0, UINT64_C(0x100000000));
}

TEST_F(MeterStats, EitherDropBitFillsBothCountersAndOtherBitsAreIgnored)
{
	AddMeter(RX);
	Drop(0, 3, 4500);

	for (uint64_t mask : {UINT64_C(8), UINT64_C(128), UINT64_C(0x88), UINT64_C(0xFF),
		     UINT64_C(0xFFFFFFFFFFFFFF7F), UINT64_C(0xFFFFFFFFFFFFFFF7)}) {
		memset(&stats, 0xA5, sizeof(stats));
		EXPECT_EQ(Read(mask), 0) << mask;
		ExpectDropped(3, 4500);
	}
}

TEST_F(MeterStats, MaskWithNeitherDropBitIsRefusedBeforeTheMeterIsLookedFor)
{
	AddMeter(RX);

	for (uint64_t mask : {UINT64_C(0), UINT64_C(1), UINT64_C(0x77), ~UINT64_C(0x88)}) {
		StartOver();
		ExpectRefused(Read(mask), error, RTE_MTR_ERROR_TYPE_STATS_MASK,
			"stats mask only support drop pkts or bytes");
		ExpectTrace();
		ExpectDropped(UNTOUCHED, UNTOUCHED);
	}
}

TEST_F(MeterStats, UnknownMeterIsNoErrorAndLeavesTheRecordUntouched)
{
	AddMeter(RX);

	EXPECT_EQ(Read(0x88, METER + 1), 0);

	ExpectTrace(StatsSays(RTE_LOG_ERR, "[meter]: meter stats not find meter node!"));
	ExpectErrorUntouched(error);
	ExpectDropped(UNTOUCHED, UNTOUCHED);
}

TEST_F(MeterStats, MeterId0CanBeRead)
{
	AddMeter(RX, 0, 33);
	Drop(0, 7, 70, 33);

	EXPECT_EQ(Read(0x88, 0), 0);

	ExpectDropped(7, 70);
}

TEST_F(MeterStats, ClearIsIgnoredAndTwoReadsReportTheSame)
{
	AddMeter(RX);
	Drop(0, 7, 70);

	EXPECT_EQ(Read(0x88, METER, 1), 0);
	ExpectDropped(7, 70);
	EXPECT_EQ(Read(0x88, METER, 1), 0);
	ExpectDropped(7, 70);
}

TEST_F(MeterStats, RefusedReadCountsAsZeroDrops)
{
	AddMeter(BOTH);
	Drop(0, 7, 70);
	Drop(1, 1, 10);
	card.Fail(Op::MepReadInst, -3);

	EXPECT_EQ(Read(0x88), 0);

	ExpectTrace(FoundNode(), MepReadInst(0, HW_METER), MepReadInst(1, HW_METER),
		StatsSays(RTE_LOG_INFO, "[meter]: meter 21 read rx: cnt = 0, len = 0!"),
		StatsSays(RTE_LOG_INFO, "[meter]: meter 21 read tx: cnt = 1, len = 10!"));
	ExpectDropped(1, 10);
	ExpectErrorUntouched(error);
}

TEST_F(MeterStats, NullRecordOrMaskIsRefusedBeforeAnythingIsLogged)
{
	AddMeter(RX);
	stats_mask = 0x88;

	ExpectRefusedAsNull(
		vask_p4_meter_stats_read(dev, METER, nullptr, &stats_mask, 0, &error), error);
	StartOver();
	ExpectRefusedAsNull(
		vask_p4_meter_stats_read(dev, METER, &stats, nullptr, 0, &error), error);

	ExpectTrace();
	ExpectDropped(UNTOUCHED, UNTOUCHED);
}

TEST_F(MeterStats, RefusalWithoutAnErrorRecordSetsErrnoOnly)
{
	stats_mask = 1;
	EXPECT_EQ(vask_p4_meter_stats_read(dev, METER, &stats, &stats_mask, 0, nullptr), -16);
	EXPECT_EQ(rte_errno, 16);
}

} // namespace
