/* SPDX-License-Identifier: BSD-3-Clause */
/* The P4 profile table. */
#include "meters.h"
#include "vask_p4_meter_internal.h"

using namespace vask_test;
using ::testing::ElementsAre;

namespace
{

class ProfileEntry : public ::testing::Test
{
      protected:
	ProfileEntry()
	{
		entry.cir = 1;
		entry.eir = 2;
		entry.cbs = 3;
		entry.ebs = 4;
		entry.packet_mode = 3;
		entry.rsv = 0xF;
	}

	int Convert(unsigned meter_rfc)
	{
		entry.meter_rfc = meter_rfc;
		profile = {};
		return talvora_p4_offload_meter_profile_convert_from_std_2_nstd(&profile, &entry);
	}

	p4_meter_profile_t entry = {};
	rte_mtr_meter_profile profile = {};
};

TEST_F(ProfileEntry, Rfc2697TakesNoSecondRate)
{
	EXPECT_EQ(Convert(0), 0);

	EXPECT_EQ(profile.alg, RTE_MTR_SRTCM_RFC2697);
	EXPECT_EQ(profile.srtcm_rfc2697.cir, 1u);
	EXPECT_EQ(profile.srtcm_rfc2697.cbs, 3u);
	EXPECT_EQ(profile.srtcm_rfc2697.ebs, 4u);
	EXPECT_EQ(profile.trtcm_rfc4115.ebs, 0u) << "the fourth word is unused";
	EXPECT_EQ(profile.packet_mode, 3);
}

TEST_F(ProfileEntry, Rfc2698TakesTheExcessFieldsAsThePeak)
{
	EXPECT_EQ(Convert(1), 0);

	EXPECT_EQ(profile.alg, RTE_MTR_TRTCM_RFC2698);
	EXPECT_EQ(profile.trtcm_rfc2698.cir, 1u);
	EXPECT_EQ(profile.trtcm_rfc2698.pir, 2u);
	EXPECT_EQ(profile.trtcm_rfc2698.cbs, 3u);
	EXPECT_EQ(profile.trtcm_rfc2698.pbs, 4u);
	EXPECT_EQ(profile.packet_mode, 3);
}

TEST_F(ProfileEntry, Rfc4115TakesAllFour)
{
	EXPECT_EQ(Convert(2), 0);

	EXPECT_EQ(profile.alg, RTE_MTR_TRTCM_RFC4115);
	EXPECT_EQ(profile.trtcm_rfc4115.cir, 1u);
	EXPECT_EQ(profile.trtcm_rfc4115.eir, 2u);
	EXPECT_EQ(profile.trtcm_rfc4115.cbs, 3u);
	EXPECT_EQ(profile.trtcm_rfc4115.ebs, 4u);
	EXPECT_EQ(profile.packet_mode, 3);
}

TEST_F(ProfileEntry, Rfc3IsRefusedAfterAlgorithmAndModeWereWritten)
{
	EXPECT_EQ(Convert(3), -1);

	EXPECT_EQ(vask_p4_enum_number(&profile.alg), 4u);
	EXPECT_EQ(profile.packet_mode, 3);
	EXPECT_EQ(profile.trtcm_rfc4115.cir, 0u);
}

TEST_F(ProfileEntry, NullPointersAreRefused)
{
	EXPECT_EQ(talvora_p4_offload_meter_profile_convert_from_std_2_nstd(nullptr, &entry), -1);
	EXPECT_EQ(talvora_p4_offload_meter_profile_convert_from_std_2_nstd(&profile, nullptr), -1);
}

class ProfileTable : public MeterTest
{
      protected:
	ProfileTable()
	{
		entry.cir = 8000000; /* 1000 units of the engine */
		entry.eir = 16000000;
		entry.cbs = 65536; /* 64 units */
		entry.ebs = 131072;
		card.HandOut(profile_index_mgr, {40});
	}

	/* What the engine gets for that entry. */
	static vask_p4_mep_meter_profile_table Engine(uint32_t eir, uint32_t rfc2698)
	{
		vask_p4_mep_meter_profile_table record = {};
		record.cir = 1000;
		record.eir = eir;
		record.cbs = 64;
		record.ebs = 128;
		record.rfc2698 = rfc2698;
		record.valid = 1;
		return record;
	}

	static LogLine Converted()
	{
		return Says(RTE_LOG_DEBUG, "vask_p4_meter_convert_profile",
			"meter profile convert fwd policy input cir 8000000, convert cir 1000");
	}

	static LogLine ModSays(uint32_t level, const std::string &text)
	{
		return Says(level, "talvora_p4_offload_meter_table_profile_mod", text);
	}

	static std::vector<LogLine> WriteRefused()
	{
		return {Says(RTE_LOG_ERR, "vask_p4_meter_convert_profile",
				"meter add fwd profile lmem failed, rc = 2"),
			Says(RTE_LOG_ERR, "vask_p4_meter_add_profile_2_hw",
				"imep meter add profile mep failed, rc = -1")};
	}

	p4_meter_profile_t entry = {};
};

TEST_F(ProfileTable, AddIsTheAddOfAnyProfile)
{
	entry.meter_rfc = 1;

	EXPECT_EQ(talvora_p4_offload_meter_table_profile_add(6, &entry), 0);

	EXPECT_THAT(profile_ids(), ElementsAre(PROFILE, 6u));
	const vask_p4_meter_profile &added = TAILQ_NEXT(profile, next)->data;
	EXPECT_EQ(added.cir, 8000000u);
	EXPECT_EQ(added.eir, 16000000u);
	EXPECT_EQ(added.rfc2698_mode, 1u);
	EXPECT_EQ(added.off_hw_state, 2u);
	EXPECT_THAT(card.calls(),
		ElementsAre(
			PoolAlloc(profile_index_mgr, 40), MepAddProfile(0, 40, Engine(2000, 1))));
	EXPECT_THAT(log.lines(RTE_LOG_INFO),
		ElementsAre(Says(RTE_LOG_WARNING, "vask_p4_meter_profile_add",
			"[profile]: add meter profile 6 to hw profile 40, cir 8000000 cbs "
			"65536")));
}

TEST_F(ProfileTable, NullEntryIsRefusedBeforeAnythingIsAllocatedOrLogged)
{
	EXPECT_EQ(talvora_p4_offload_meter_table_profile_add(6, nullptr), -1);
	EXPECT_EQ(talvora_p4_offload_meter_table_profile_mod(PROFILE, nullptr), -1);

	ExpectTrace();
	EXPECT_EQ(memory.count(), 0u);
	EXPECT_EQ(profile->data.off_hw_state, 2u);
}

TEST_F(ProfileTable, EntryWithMeterRfc3IsRefusedBeforeAnythingIsAllocated)
{
	entry.meter_rfc = 3;

	EXPECT_EQ(talvora_p4_offload_meter_table_profile_add(6, &entry), -1);

	ExpectTrace();
	EXPECT_EQ(memory.count(), 0u);
}

TEST_F(ProfileTable, RefusalsOfTheProfilePathComeBackUnchanged)
{
	EXPECT_EQ(talvora_p4_offload_meter_table_profile_add(PROFILE, &entry), -16);
	EXPECT_THAT(log.lines(RTE_LOG_INFO),
		ElementsAre(Says(RTE_LOG_ERR, "vask_p4_meter_profile_add",
			"input meter profile id is exist, id is 5")));

	memory.Fail();
	EXPECT_EQ(talvora_p4_offload_meter_table_profile_add(6, &entry), -16);

	entry.meter_rfc = 1; /* peak below committed */
	entry.eir = entry.cir - 1;
	EXPECT_EQ(talvora_p4_offload_meter_table_profile_add(6, &entry), -16);

	entry.eir = entry.cir;
	card.Fail(Op::MepAddProfile, 2);
	LeavesIndexTaken(profile_index_mgr, 40);
	EXPECT_EQ(talvora_p4_offload_meter_table_profile_add(6, &entry), -16);

	EXPECT_THAT(profile_ids(), ElementsAre(PROFILE));
}

TEST_F(ProfileTable, Rfc0WithANonZeroEirAddsEir0AndModifyingWithTheSameEntryStoresIt)
{
	ASSERT_EQ(talvora_p4_offload_meter_table_profile_add(6, &entry), 0);
	vask_p4_meter_profile &added = TAILQ_NEXT(profile, next)->data;
	EXPECT_EQ(added.eir, 0u);
	EXPECT_THAT(card.calls(Op::MepAddProfile), ElementsAre(MepAddProfile(0, 40, Engine(0, 0))));
	StartOver();

	EXPECT_EQ(talvora_p4_offload_meter_table_profile_mod(6, &entry), 0);

	EXPECT_EQ(added.eir, 16000000u);
	ExpectTrace(Converted(), MepAddProfile(0, 40, Engine(2000, 0)),
		ModSays(RTE_LOG_WARNING,
			"[profile]: add meter profile 6 to hw profile 40, cir 8000000 cbs 65536"));
}

TEST_F(ProfileTable, ModifyRewritesTheRecordUnderItsHardwareIndex)
{
	profile->data.ref_cnt = 3;
	entry.packet_mode = 2;
	entry.cir = 7;

	EXPECT_EQ(talvora_p4_offload_meter_table_profile_mod(PROFILE, &entry), 0);

	vask_p4_mep_meter_profile_table record = {};
	record.cir = 7;
	record.eir = 16000000;
	record.cbs = 65536;
	record.ebs = 131072;
	record.pm = 0; /* the lowest bit of 2 */
	record.valid = 1;
	ExpectTrace(Says(RTE_LOG_DEBUG, "vask_p4_meter_convert_profile",
			    "meter profile convert fwd policy input cir 7, convert cir 7"),
		MepAddProfile(0, HW_PROFILE, record),
		ModSays(RTE_LOG_WARNING,
			"[profile]: add meter profile 5 to hw profile 11, cir 7 cbs 65536"));
	EXPECT_EQ(profile->data.cir, 7u);
	EXPECT_EQ(profile->data.eir, 16000000u);
	EXPECT_EQ(profile->data.cbs, 65536u);
	EXPECT_EQ(profile->data.ebs, 131072u);
	EXPECT_EQ(profile->data.packet_mode, 2);
	EXPECT_EQ(profile->data.rfc2698_mode, 0u);
	EXPECT_EQ(profile->data.profile_id, PROFILE);
	EXPECT_EQ(profile->data.hw_profile_id, HW_PROFILE);
	EXPECT_EQ(profile->data.off_hw_state, 2u);
	EXPECT_EQ(profile->data.ref_cnt, 3u) << "used or not";
	EXPECT_EQ(Bytes(profile->data.profile), Bytes(record));
}

TEST_F(ProfileTable, ModifyAcceptsRfc2698WithEirBelowCirAndRfc3)
{
	entry.meter_rfc = 1;
	entry.eir = 1;
	EXPECT_EQ(talvora_p4_offload_meter_table_profile_mod(PROFILE, &entry), 0);
	EXPECT_EQ(profile->data.eir, 1u);
	EXPECT_EQ(profile->data.rfc2698_mode, 1u);

	entry.meter_rfc = 3;
	entry.eir = 2;
	EXPECT_EQ(talvora_p4_offload_meter_table_profile_mod(PROFILE, &entry), 0);
	EXPECT_EQ(profile->data.eir, 2u);
}

TEST_F(ProfileTable, ModifyNeverClearsRfc2698Mode)
{
	for (uint32_t before : {1u, 5u}) {
		profile->data.rfc2698_mode = before;
		for (unsigned rfc : {0u, 2u, 3u}) {
			entry.meter_rfc = rfc;
			EXPECT_EQ(talvora_p4_offload_meter_table_profile_mod(PROFILE, &entry), 0);
			EXPECT_EQ(profile->data.rfc2698_mode, before);
		}
	}
}

TEST_F(ProfileTable, ModifyLeavesTheCopiesOfMetersAlone)
{
	auto *meter = AddMeter(BOTH);

	EXPECT_EQ(talvora_p4_offload_meter_table_profile_mod(PROFILE, &entry), 0);

	EXPECT_EQ(meter->data.profile.cir, CIR);
	EXPECT_TRUE(card.calls(Op::IschWrite).empty());
	EXPECT_TRUE(card.calls(Op::SetShaper).empty());
}

TEST_F(ProfileTable, ModifyingAnUnknownProfileReturnsMinusOneAndChangesNothing)
{
	const std::vector<uint8_t> before = Bytes(profile->data);

	EXPECT_EQ(talvora_p4_offload_meter_table_profile_mod(6, &entry), -1);

	/* The text names a policy: it is shared with the policers. */
	ExpectTrace(ModSays(RTE_LOG_ERR, "input meter policy id 6 not found"));
	EXPECT_EQ(Bytes(profile->data), before);
	EXPECT_THAT(profile_ids(), ElementsAre(PROFILE));
}

TEST_F(ProfileTable, FailedModifyKeepsTheNewValuesAndState1)
{
	entry.meter_rfc = 1;
	card.Fail(Op::MepAddProfile, 2);

	EXPECT_EQ(talvora_p4_offload_meter_table_profile_mod(PROFILE, &entry), -1);

	ExpectTrace(Converted(), MepAddProfile(0, HW_PROFILE, Engine(2000, 1)), WriteRefused()[0],
		WriteRefused()[1]);
	EXPECT_EQ(profile->data.cir, 8000000u);
	EXPECT_EQ(profile->data.eir, 16000000u);
	EXPECT_EQ(profile->data.cbs, 65536u);
	EXPECT_EQ(profile->data.ebs, 131072u);
	EXPECT_EQ(profile->data.rfc2698_mode, 1u);
	EXPECT_EQ(profile->data.off_hw_state, 1u);
	EXPECT_EQ(profile->data.profile.cir, 0u)
		<< "the copy of what the engine holds is the old one";
}

TEST_F(ProfileTable, Cir1000WrittenByTheHostIsReadAs1000)
{
	const uint8_t image[33] = {0xE8, 0x03}; /* 1000, lowest byte first */
	memcpy(&entry, image, sizeof(entry));

	EXPECT_EQ(talvora_p4_offload_meter_table_profile_add(6, &entry), 0);

	EXPECT_EQ(TAILQ_NEXT(profile, next)->data.cir, 1000u);
}

TEST_F(ProfileTable, DeletingAProfileStillUsedByAMeterReturnsMinusEbusy)
{
	AddMeter(BOTH);

	EXPECT_EQ(talvora_p4_offload_meter_table_profile_del(PROFILE), -16);

	EXPECT_THAT(log.lines(RTE_LOG_INFO),
		ElementsAre(Says(RTE_LOG_ERR, "vask_p4_meter_profile_delete",
			"del meter profile ref cnt: 1 not 0")));
	EXPECT_THAT(profile_ids(), ElementsAre(PROFILE));
}

TEST_F(ProfileTable, DeleteTakesTheProfileFromBothEnginesAndAnUnknownOneIsNoError)
{
	EXPECT_EQ(talvora_p4_offload_meter_table_profile_del(PROFILE), 0);
	EXPECT_EQ(talvora_p4_offload_meter_table_profile_del(PROFILE), 0);

	EXPECT_THAT(card.calls(),
		ElementsAre(MepDelProfile(0, HW_PROFILE), MepDelProfile(1, HW_PROFILE),
			PoolFree(profile_index_mgr, HW_PROFILE)));
}

TEST_F(ProfileTable, DeleteThatAnEngineRefusesReturnsMinusEbusy)
{
	for (unsigned nth : {1u, 2u}) {
		card.ClearFaults();
		card.Fail(Op::MepDelProfile, 9, nth);
		EXPECT_EQ(talvora_p4_offload_meter_table_profile_del(PROFILE), -16);
		EXPECT_THAT(profile_ids(), ElementsAre(PROFILE));
	}
}

} // namespace
