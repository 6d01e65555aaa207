/* SPDX-License-Identifier: BSD-3-Clause */

/* From a DPDK profile to the driver's record, and from the record to the engine's. */

#include <cstring>

#include "module_test.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

using ProfileConvert = SeamTest;
using ProfileType = SeamTest;
using ProfileCompare = SeamTest;

rte_mtr_meter_profile
Rfc2697(uint64_t cir, uint64_t cbs, uint64_t ebs, int packet_mode = 0)
{
	rte_mtr_meter_profile profile = {};
	profile.alg = RTE_MTR_SRTCM_RFC2697;
	profile.srtcm_rfc2697 = {cir, cbs, ebs};
	profile.packet_mode = packet_mode;
	return profile;
}

rte_mtr_meter_profile
Rfc2698(uint64_t cir, uint64_t pir, uint64_t cbs, uint64_t pbs, int packet_mode = 0)
{
	rte_mtr_meter_profile profile = {};
	profile.alg = RTE_MTR_TRTCM_RFC2698;
	profile.trtcm_rfc2698 = {cir, pir, cbs, pbs};
	profile.packet_mode = packet_mode;
	return profile;
}

rte_mtr_meter_profile
Rfc4115(uint64_t cir, uint64_t eir, uint64_t cbs, uint64_t ebs, int packet_mode = 0)
{
	rte_mtr_meter_profile profile = {};
	profile.alg = RTE_MTR_TRTCM_RFC4115;
	profile.trtcm_rfc4115 = {cir, eir, cbs, ebs};
	profile.packet_mode = packet_mode;
	return profile;
}

/* A record in which every field holds something. */
vask_p4_meter_profile
UsedRecord()
{
	vask_p4_meter_profile record;
	memset(&record, 0x5A, sizeof(record));
	return record;
}

TEST_F(ProfileConvert, Rfc2697FillsItsThreeValuesAndTheMode)
{
	const rte_mtr_meter_profile profile = Rfc2697(1000, 2000, 3000, 1);
	vask_p4_meter_profile record = {};
	EXPECT_EQ(vask_p4_profile_convert(&record, &profile), 0);

	vask_p4_meter_profile expected = {};
	expected.cir = 1000;
	expected.cbs = 2000;
	expected.ebs = 3000;
	expected.eir = 0;
	expected.packet_mode = 1;
	expected.rfc2698_mode = 0;
	EXPECT_EQ(Bytes(record), Bytes(expected));
}

TEST_F(ProfileConvert, Rfc2697KeepsTheEirLeftOverFromAnEarlierConversionOfTheSameRecord)
{
	const rte_mtr_meter_profile before = Rfc4115(1, 777, 2, 3);
	const rte_mtr_meter_profile after = Rfc2697(1000, 2000, 3000);
	vask_p4_meter_profile record = {};

	ASSERT_EQ(vask_p4_profile_convert(&record, &before), 0);
	EXPECT_EQ(vask_p4_profile_convert(&record, &after), 0);
	EXPECT_EQ(record.eir, 777u);

	vask_p4_meter_profile fresh = {};
	EXPECT_EQ(vask_p4_profile_convert(&fresh, &after), 0);
	EXPECT_EQ(fresh.eir, 0u);
}

TEST_F(ProfileConvert, Rfc2698TakesPeakRateAndPeakBurstAsTheSecondPair)
{
	const rte_mtr_meter_profile profile = Rfc2698(1000, 4000, 2000, 8000, 2);
	vask_p4_meter_profile record = {};
	EXPECT_EQ(vask_p4_profile_convert(&record, &profile), 0);

	vask_p4_meter_profile expected = {};
	expected.cir = 1000;
	expected.cbs = 2000;
	expected.eir = 4000;
	expected.ebs = 8000;
	expected.packet_mode = 2;
	expected.rfc2698_mode = 1;
	EXPECT_EQ(Bytes(record), Bytes(expected));
}

TEST_F(ProfileConvert, Rfc2698WithPeakEqualToCommittedIsAcceptedAndOneBelowIsRefused)
{
	vask_p4_meter_profile record = {};
	const rte_mtr_meter_profile equal = Rfc2698(5000, 5000, 1, 1);
	const rte_mtr_meter_profile below = Rfc2698(5000, 4999, 1, 1);

	EXPECT_EQ(vask_p4_profile_convert(&record, &equal), 0);
	EXPECT_EQ(vask_p4_profile_convert(&record, &below), -1);
}

TEST_F(ProfileConvert, Rfc2698RatesAreComparedUnsigned)
{
	const uint64_t high = uint64_t{1} << 63;
	vask_p4_meter_profile record = {};
	const rte_mtr_meter_profile good = Rfc2698(high - 1, high, 1, 1);
	const rte_mtr_meter_profile bad = Rfc2698(high, 1, 1, 1);

	EXPECT_EQ(vask_p4_profile_convert(&record, &good), 0);
	EXPECT_EQ(vask_p4_profile_convert(&record, &bad), -1);
}

TEST_F(ProfileConvert, RefusedRfc2698LeavesItsFieldsWritten)
{
	const rte_mtr_meter_profile profile = Rfc2698(1000, 999, 2000, 8000, 1);
	vask_p4_meter_profile record = {};
	EXPECT_EQ(vask_p4_profile_convert(&record, &profile), -1);

	vask_p4_meter_profile expected = {};
	expected.cir = 1000;
	expected.cbs = 2000;
	expected.eir = 999;
	expected.ebs = 8000;
	expected.packet_mode = 1;
	expected.rfc2698_mode = 1;
	EXPECT_EQ(Bytes(record), Bytes(expected));
}

TEST_F(ProfileConvert, Rfc4115IsTakenWithoutComparingItsRates)
{
	const rte_mtr_meter_profile profile = Rfc4115(4000, 1, 2000, 3000, 1);
	vask_p4_meter_profile record = {};
	EXPECT_EQ(vask_p4_profile_convert(&record, &profile), 0);

	vask_p4_meter_profile expected = {};
	expected.cir = 4000;
	expected.cbs = 2000;
	expected.eir = 1;
	expected.ebs = 3000;
	expected.packet_mode = 1;
	expected.rfc2698_mode = 0;
	EXPECT_EQ(Bytes(record), Bytes(expected));
}

TEST_F(ProfileConvert, Alg0And4AreRefusedAndOnlyThePacketModeIsWritten)
{
	for (int alg : {0, 4, -1}) {
		rte_mtr_meter_profile profile = Rfc4115(1, 2, 3, 4, 1);
		profile.alg = static_cast<rte_mtr_algorithm>(alg);
		vask_p4_meter_profile record = UsedRecord();
		vask_p4_meter_profile expected = UsedRecord();
		expected.packet_mode = 1;

		EXPECT_EQ(vask_p4_profile_convert(&record, &profile), -1) << alg;
		EXPECT_EQ(Bytes(record), Bytes(expected)) << alg;
	}
}

TEST_F(ProfileConvert, FieldsOfTheLifecycleAreNotTouched)
{
	for (const rte_mtr_meter_profile &profile :
		{Rfc2697(1, 2, 3), Rfc2698(1, 2, 3, 4), Rfc4115(1, 2, 3, 4)}) {
		vask_p4_meter_profile record = UsedRecord();
		vask_p4_meter_profile expected = UsedRecord();

		ASSERT_EQ(vask_p4_profile_convert(&record, &profile), 0);
		expected.cir = record.cir;
		expected.cbs = record.cbs;
		expected.eir = record.eir;
		expected.ebs = record.ebs;
		expected.packet_mode = record.packet_mode;
		expected.rfc2698_mode = record.rfc2698_mode;
		EXPECT_EQ(Bytes(record), Bytes(expected)) << profile.alg;
	}
	EXPECT_THAT(trace, IsEmpty());
}

rte_mtr_algorithm
TypeOf(uint64_t eir, uint32_t rfc2698_mode)
{
	vask_p4_meter_profile record = {};
	record.eir = eir;
	record.rfc2698_mode = rfc2698_mode;
	return vask_p4_meter_get_profile_type(&record);
}

TEST_F(ProfileType, FollowsFromTheSecondRateAndTheMode)
{
	EXPECT_EQ(TypeOf(0, 0), RTE_MTR_SRTCM_RFC2697);
	EXPECT_EQ(TypeOf(1, 1), RTE_MTR_TRTCM_RFC2698);
	EXPECT_EQ(TypeOf(1, 2), RTE_MTR_TRTCM_RFC4115);
	EXPECT_EQ(TypeOf(1, 0xFFFFFFFF), RTE_MTR_TRTCM_RFC4115);
	EXPECT_EQ(TypeOf(0, 1), RTE_MTR_NONE);
	EXPECT_EQ(TypeOf(0, 2), RTE_MTR_NONE);
	EXPECT_EQ(TypeOf(1, 0), RTE_MTR_NONE);
	EXPECT_EQ(TypeOf(uint64_t{1} << 32, 1), RTE_MTR_TRTCM_RFC2698);
}

TEST_F(ProfileType, OfANullRecordIsMinusOne)
{
	EXPECT_EQ(static_cast<int>(vask_p4_meter_get_profile_type(nullptr)), -1);
}

TEST_F(ProfileType, OfARfc4115RecordIsNone)
{
	const rte_mtr_meter_profile profile = Rfc4115(1, 2, 3, 4);
	vask_p4_meter_profile record = {};

	ASSERT_EQ(vask_p4_profile_convert(&record, &profile), 0);
	EXPECT_EQ(vask_p4_meter_get_profile_type(&record), RTE_MTR_NONE);
}

TEST_F(ProfileType, OfARfc2698RecordWithAPeakOfZeroIsNone)
{
	const rte_mtr_meter_profile profile = Rfc2698(0, 0, 3, 4);
	vask_p4_meter_profile record = {};

	ASSERT_EQ(vask_p4_profile_convert(&record, &profile), 0);
	EXPECT_EQ(vask_p4_meter_get_profile_type(&record), RTE_MTR_NONE);
}

vask_p4_meter_profile
RecordOf(const rte_mtr_meter_profile &profile)
{
	vask_p4_meter_profile record = {};
	EXPECT_EQ(vask_p4_profile_convert(&record, &profile), 0);
	return record;
}

TEST_F(ProfileCompare, Rfc2697EqualsItselfAndDiffersInEachOfItsValues)
{
	const vask_p4_meter_profile record = RecordOf(Rfc2697(1, 2, 3));
	auto equals = [&record](rte_mtr_meter_profile profile) {
		return vask_p4_meter_profile_cmp(&record, &profile);
	};

	EXPECT_EQ(equals(Rfc2697(1, 2, 3)), 1);
	EXPECT_EQ(equals(Rfc2697(9, 2, 3)), 0);
	EXPECT_EQ(equals(Rfc2697(1, 9, 3)), 0);
	EXPECT_EQ(equals(Rfc2697(1, 2, 9)), 0);
	EXPECT_EQ(equals(Rfc2697(1, 2, 3, 1)), 0);
	EXPECT_EQ(equals(Rfc2698(1, 2, 3, 4)), 0);
	EXPECT_EQ(equals(Rfc2697(1 + (uint64_t{1} << 32), 2, 3)), 0);
}

TEST_F(ProfileCompare, Rfc2698EqualsItselfAndDiffersInEachOfItsValues)
{
	const vask_p4_meter_profile record = RecordOf(Rfc2698(1, 2, 3, 4));
	auto equals = [&record](rte_mtr_meter_profile profile) {
		return vask_p4_meter_profile_cmp(&record, &profile);
	};

	EXPECT_EQ(equals(Rfc2698(1, 2, 3, 4)), 1);
	EXPECT_EQ(equals(Rfc2698(9, 2, 3, 4)), 0);
	EXPECT_EQ(equals(Rfc2698(1, 9, 3, 4)), 0);
	EXPECT_EQ(equals(Rfc2698(1, 2, 9, 4)), 0);
	EXPECT_EQ(equals(Rfc2698(1, 2, 3, 9)), 0);
	EXPECT_EQ(equals(Rfc2698(1, 2, 3, 4, 1)), 0);
	EXPECT_EQ(equals(Rfc4115(1, 2, 3, 4)), 0);
}

TEST_F(ProfileCompare, RecordClassifiedAsRfc4115IsComparedInAllFourValues)
{
	vask_p4_meter_profile record = RecordOf(Rfc4115(1, 2, 3, 4));
	record.rfc2698_mode = 2;
	auto equals = [&record](rte_mtr_meter_profile profile) {
		return vask_p4_meter_profile_cmp(&record, &profile);
	};

	EXPECT_EQ(equals(Rfc4115(1, 2, 3, 4)), 1);
	EXPECT_EQ(equals(Rfc4115(9, 2, 3, 4)), 0);
	EXPECT_EQ(equals(Rfc4115(1, 9, 3, 4)), 0);
	EXPECT_EQ(equals(Rfc4115(1, 2, 9, 4)), 0);
	EXPECT_EQ(equals(Rfc4115(1, 2, 3, 9)), 0);
	EXPECT_EQ(equals(Rfc2698(1, 2, 3, 4)), 0);
}

TEST_F(ProfileCompare, Rfc4115NeverEqualsItsOwnProfile)
{
	const rte_mtr_meter_profile profile = Rfc4115(1, 2, 3, 4);
	const vask_p4_meter_profile record = RecordOf(profile);

	EXPECT_EQ(vask_p4_meter_profile_cmp(&record, &profile), 0);
}

TEST_F(ProfileCompare, RecordOfNoTypeEqualsNoProfileEvenOneOfNoAlgorithm)
{
	const vask_p4_meter_profile record = RecordOf(Rfc4115(1, 2, 3, 4));
	rte_mtr_meter_profile profile = Rfc4115(1, 2, 3, 4);
	profile.alg = RTE_MTR_NONE;

	EXPECT_EQ(vask_p4_meter_profile_cmp(&record, &profile), 0);
}

TEST_F(ProfileCompare, NullRecordEqualsNothing)
{
	const rte_mtr_meter_profile profile = Rfc2697(0, 0, 0);

	EXPECT_EQ(vask_p4_meter_profile_cmp(nullptr, &profile), 0);
}

/* The engine's record, as vask_p4_meter_convert_profile() writes it. */
class EngineProfile : public SeamTest
{
      protected:
	vask_p4_mep_meter_profile_table
	Written(uint64_t cir, uint64_t eir, uint64_t cbs, uint64_t ebs, int packet_mode = 0)
	{
		vask_p4_meter_profile_node node = {};
		node.data.cir = cir;
		node.data.eir = eir;
		node.data.cbs = cbs;
		node.data.ebs = ebs;
		node.data.packet_mode = packet_mode;
		EXPECT_EQ(vask_p4_meter_convert_profile(0, 3, &node), 0);
		return node.data.profile;
	}
};

TEST_F(EngineProfile, IsWrittenToTheEngineAndKeptInTheRecord)
{
	for (int dir : {0, 1}) {
		StartOver();
		vask_p4_meter_profile_node node = {};
		node.data.cir = 125000000;
		node.data.cbs = 65536;
		node.data.eir = 250000000;
		node.data.ebs = 131072;
		node.data.rfc2698_mode = 1;
		vask_p4_meter_profile_node before = node;

		EXPECT_EQ(vask_p4_meter_convert_profile(dir, 200, &node), 0);

		vask_p4_mep_meter_profile_table expected = {};
		expected.cir = 15625;
		expected.cbs = 64;
		expected.eir = 31250;
		expected.ebs = 128;
		expected.rfc2698 = 1;
		expected.valid = 1;
		EXPECT_THAT(trace,
			ElementsAre(
				Line(DEBUG,
					"[offload_smartnic] vask_p4_meter_convert_profile meter "
					"profile convert fwd policy input cir 125000000, convert "
					"cir 15625\n"),
				MepAddProfile(dir, 200, expected)));
		before.data.profile = expected;
		EXPECT_EQ(Bytes(node.data), Bytes(before.data));
	}
}

TEST_F(EngineProfile, WorkedValuesInByteMode)
{
	EXPECT_EQ(Written(125000000, 0, 0, 0).cir, 15625u);
	EXPECT_EQ(Written(1250000, 0, 0, 0).cir, 156u);
	EXPECT_EQ(Written(0, 0, 65536, 0).cbs, 64u);
	EXPECT_EQ(Written(0, 0, 1000, 0).cbs, 0u);
}

TEST_F(EngineProfile, RatesOf7999BytesASecondConvertToZeroAndOf8000ToOne)
{
	EXPECT_EQ(Written(7999, 7999, 0, 0).cir, 0u);
	EXPECT_EQ(Written(8000, 7999, 0, 0).cir, 1u);
	EXPECT_EQ(Written(7999, 8000, 0, 0).eir, 1u);
	EXPECT_EQ(Written(7999, 7999, 0, 0).eir, 0u);
}

TEST_F(EngineProfile, BurstsOf1023BytesConvertToZeroAndOf1024ToOne)
{
	EXPECT_EQ(Written(0, 0, 1023, 1023).cbs, 0u);
	EXPECT_EQ(Written(0, 0, 1024, 1023).cbs, 1u);
	EXPECT_EQ(Written(0, 0, 1023, 1024).ebs, 1u);
	EXPECT_EQ(Written(0, 0, 1023, 1023).ebs, 0u);
}

TEST_F(EngineProfile, LargestRatesAndBurstsInByteModeAndWhatIsHigherIsDropped)
{
	const uint64_t largest_rate = uint64_t{67108863} * 8000 + 7999;
	const uint64_t largest_burst = uint64_t{1048575} * 1024 + 1023;
	vask_p4_mep_meter_profile_table written =
		Written(largest_rate, largest_rate, largest_burst, largest_burst);
	EXPECT_EQ(written.cir, 67108863u);
	EXPECT_EQ(written.eir, 67108863u);
	EXPECT_EQ(written.cbs, 1048575u);
	EXPECT_EQ(written.ebs, 1048575u);

	written = Written(
		largest_rate + 1, largest_rate + 8001, largest_burst + 1, largest_burst + 1025);
	EXPECT_EQ(written.cir, 0u);
	EXPECT_EQ(written.eir, 1u);
	EXPECT_EQ(written.cbs, 0u);
	EXPECT_EQ(written.ebs, 1u);
}

TEST_F(EngineProfile, PacketModeTakesValuesAsTheyAre)
{
	const vask_p4_mep_meter_profile_table written = Written(7999, 100, 1023, 5, 1);

	EXPECT_EQ(written.pm, 1u);
	EXPECT_EQ(written.cir, 7999u);
	EXPECT_EQ(written.eir, 100u);
	EXPECT_EQ(written.cbs, 1023u);
	EXPECT_EQ(written.ebs, 5u);
}

TEST_F(EngineProfile, PacketModeCirOf0x4000001ConvertsToOne)
{
	const vask_p4_mep_meter_profile_table written =
		Written(0x4000001, 0x4000002, 0x100003, 0x100004, 1);

	EXPECT_EQ(written.cir, 1u);
	EXPECT_EQ(written.eir, 2u);
	EXPECT_EQ(written.cbs, 3u);
	EXPECT_EQ(written.ebs, 4u);
}

TEST_F(EngineProfile, EvenPacketModeCountsPacketsButClearsTheModeBit)
{
	const vask_p4_mep_meter_profile_table written = Written(7999, 0, 1023, 0, 2);

	EXPECT_EQ(written.pm, 0u);
	EXPECT_EQ(written.cir, 7999u);
	EXPECT_EQ(written.cbs, 1023u);
}

TEST_F(EngineProfile, Rfc2698BitIsTheLowestBitOfTheMode)
{
	for (uint32_t mode : {0u, 1u, 2u, 3u}) {
		vask_p4_meter_profile_node node = {};
		node.data.rfc2698_mode = mode;
		EXPECT_EQ(vask_p4_meter_convert_profile(0, 3, &node), 0);
		EXPECT_EQ(node.data.profile.rfc2698, mode & 1) << mode;
	}
}

TEST_F(EngineProfile, ValidIsAlwaysOneAndCfAlwaysZero)
{
	const uint64_t ones = ~uint64_t{0};
	for (int packet_mode : {0, 1}) {
		EXPECT_EQ(Written(0, 0, 0, 0, packet_mode).valid, 1u);
		EXPECT_EQ(Written(0, 0, 0, 0, packet_mode).cf, 0u);
		EXPECT_EQ(Written(ones, ones, ones, ones, packet_mode).valid, 1u);
		EXPECT_EQ(Written(ones, ones, ones, ones, packet_mode).cf, 0u);
	}
}

TEST_F(EngineProfile, RefusedWriteIsLoggedAndLeavesTheRecordAsItWas)
{
	vask_p4_meter_profile_node node = {};
	node.data.cir = 8000;
	node.data.profile.ebs = 5;
	const vask_p4_meter_profile_node before = node;
	vask_p4_mep_meter_profile_table written = {};
	written.cir = 1;
	written.valid = 1;
	card.Fail(Op::MepAddProfile, 37);

	EXPECT_EQ(vask_p4_meter_convert_profile(1, 9, &node), -1);

	EXPECT_THAT(trace,
		ElementsAre(Line(DEBUG,
				    "[offload_smartnic] vask_p4_meter_convert_profile meter "
				    "profile convert fwd policy input cir 8000, convert cir 1\n"),
			MepAddProfile(1, 9, written),
			Line(ERR,
				"[offload_smartnic] vask_p4_meter_convert_profile meter add fwd "
				"profile lmem failed, rc = 37\n")));
	EXPECT_EQ(Bytes(node.data), Bytes(before.data));
}

} // namespace
