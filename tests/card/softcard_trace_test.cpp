/* SPDX-License-Identifier: BSD-3-Clause */

/* The trace of the operations. */

#include <cerrno>
#include <fstream>

#include <unistd.h>

#include "operations.h"
#include "softcard_fault.h"
#include "softcard_trace.h"

namespace
{

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

class Trace : public CardTest
{
      protected:
	void SetUp() override
	{
		CardTest::SetUp();
		Operations(); /* fetches the channel, once, which would be a line */
		path = "card_trace_" + std::to_string(getpid());
		ASSERT_EQ(softcard_trace_open(path.c_str()), 0);
	}

	void TearDown() override
	{
		softcard_trace_close();
		unlink(path.c_str());
		CardTest::TearDown();
	}

	/* Lines without their time. */
	std::vector<std::string> Lines()
	{
		std::vector<std::string> lines;
		std::ifstream file(path);
		for (std::string line; std::getline(file, line);)
			lines.push_back(line.substr(line.find(' ') + 1));
		return lines;
	}

	std::string path;
};

TEST_F(Trace, EveryCallIsOneLineOfTimeOperationFieldsHexAndResult)
{
	const auto is_line = MatchesRegex(
		"[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}Z [a-z0-9_]+"
		"( [a-z0-9_]+=[-a-z0-9]+)+ hex=(-|([0-9a-f]{2})+) rc=-?[0-9]+");
	for (const Operation &operation : Operations())
		operation.call();

	std::ifstream file(path);
	std::string text;
	for (const Operation &operation : Operations()) {
		ASSERT_TRUE(std::getline(file, text));
		EXPECT_THAT(text, is_line);
		EXPECT_THAT(text, HasSubstr(" " + operation.name + " "));
	}
	EXPECT_FALSE(std::getline(file, text));
}

TEST_F(Trace, FieldsAreDecodedBesideTheRecordsBytes)
{
	const auto profile = ProfileRecord({125, 1, 250, 2, false, true});
	const auto policy = PolicyRecord({1, 0, 2}, {10, 20, 30});
	vask_p4_isch_shaper value = {};
	value.rate = 1;

	vask_p4_mep_add_meter_profile(RX, 5, &profile);
	vask_p4_mep_add_meter_policy(RX, 6, &policy);
	vask_p4_mep_update_meter_output_by_meterid(RX, 16384, 9);
	vask_p4_isch_shaper_csr_write(value);
	/* ebs 2, cbs 1 << 20 = 0x100002, eir 250 << 41, cir 125 << 67, rfc2698 bit 94, valid bit 95 */
	EXPECT_THAT(Lines(),
		ElementsAre(
			"vask_p4_mep_add_meter_profile dir=0 index=5 cir=125 cbs=1 eir=250 ebs=2 "
			"pm=0 rfc2698=1 cf=0 valid=1 hex=0200100000f40100"
			"e80300c0 rc=0",
			"vask_p4_mep_add_meter_policy dir=0 index=6 green_action=1 green_dscp=10 "
			"yellow_action=0 yellow_dscp=20 red_action=2 red_dscp=30 valid=1 "
			"hex=92472980 rc=0",
			"vask_p4_mep_update_meter_output_by_meterid dir=0 sfi=16384 index=9 hex=- "
			"rc=-34",
			"vask_p4_isch_shaper_csr_write enable=0 alway_closed=0 mode=0 pbs=0 "
			"rate_level=0 rate=1 hex=00080000 rc=0"));
}

TEST_F(Trace, WholeFieldsOfSplitRecordsAreShown)
{
	vask_cmd_channel *channel = vask_p4_get_global_cmd_channel();
	qorn_meter_profile_table profile = {};
	profile.cbs_l1 = 1;
	profile.cbs_h19 = 0x7ffff;
	profile.ebs_h7 = 1;
	profile.cir_h3 = 7;
	qorn_meter_table meter = {};
	meter.byte_cnt_h20 = 1;
	meter.pkt_cnt_h20 = 1;
	const uint32_t index = 3;

	qorn_meter_profile_update(channel, &index, &profile);
	qorn_meter_table_update(channel, &index, &meter);
	const auto lines = Lines();
	ASSERT_EQ(lines.size(), 3u);
	EXPECT_THAT(lines[1], HasSubstr(" cbs=1048575 ebs=8192 cir=234881024 "));
	EXPECT_THAT(lines[2], HasSubstr(" byte_cnt=268435456 pkt_cnt=4096 "));
}

TEST_F(Trace, PoolsAreToldApartByTheirNumbers)
{
	VASK_P4_INDEXSTACK_MANAGER *first, *second;
	uint32_t index;

	vask_p4_indexstack_create(4096, &first);
	vask_p4_indexstack_create(2, &second);
	vask_p4_indexstack_set(second, 0, 1);
	vask_p4_indexstack_alloc(first, &index, 1);
	vask_p4_indexstack_alloc(second, &index, 1);
	vask_p4_indexstack_alloc(second, &index, 1);
	vask_p4_indexstack_free(second, 1, 1);
	vask_p4_indexstack_free(second, 1, 1);
	vask_p4_indexstack_destroy(first);
	ASSERT_EQ(softcard_fault_set("vask_p4_indexstack_create", 1, -12, 0), 0);
	vask_p4_indexstack_create(256, &first);
	vask_p4_indexstack_create(256, &first);
	softcard_fault_clear();
	vask_p4_indexstack_destroy(first);
	vask_p4_indexstack_destroy(second);
	vask_p4_indexstack_destroy(nullptr);
	EXPECT_THAT(Lines(),
		ElementsAre("vask_p4_indexstack_create pool=1 capacity=4096 hex=- rc=0",
			"vask_p4_indexstack_create pool=2 capacity=2 hex=- rc=0",
			"vask_p4_indexstack_set pool=2 count=1 index=0 hex=- rc=0",
			"vask_p4_indexstack_alloc pool=1 count=1 index=0 hex=- rc=0",
			"vask_p4_indexstack_alloc pool=2 count=1 index=1 hex=- rc=0",
			"vask_p4_indexstack_alloc pool=2 count=1 index=-1 hex=- rc=-28",
			"vask_p4_indexstack_free pool=2 count=1 index=1 hex=- rc=0",
			"vask_p4_indexstack_free pool=2 count=1 index=1 hex=- rc=-114",
			"vask_p4_indexstack_destroy pool=1 hex=- rc=0",
			"vask_p4_indexstack_create pool=0 capacity=256 hex=- rc=-12 fault",
			"vask_p4_indexstack_create pool=1 capacity=256 hex=- rc=0",
			"vask_p4_indexstack_destroy pool=1 hex=- rc=0",
			"vask_p4_indexstack_destroy pool=2 hex=- rc=0",
			"vask_p4_indexstack_destroy pool=0 hex=- rc=0"));
}

TEST_F(Trace, AFaultIsMarkedAndNullRecordsAreShown)
{
	ASSERT_EQ(softcard_fault_set("vask_p4_mep_del_meter_profile", 1, -5, 0), 0);
	vask_p4_mep_del_meter_profile(TX, 1);
	vask_p4_mep_add_meter_profile(RX, 1, nullptr);
	qorn_meter_table_update(vask_p4_get_global_cmd_channel(), nullptr, nullptr);

	const auto lines = Lines();
	ASSERT_EQ(lines.size(), 4u);
	EXPECT_EQ(lines[0], "vask_p4_mep_del_meter_profile dir=1 index=1 hex=- rc=-5 fault");
	EXPECT_THAT(lines[1], HasSubstr(" hex=- rc=-22"));
	EXPECT_THAT(lines[3], StartsWith("qorn_meter_table_update index=-1 "));
	EXPECT_THAT(lines[3], HasSubstr(" hex=- rc=-5"));
}

TEST_F(Trace, TheSamePathIsCountedAndAnotherRefused)
{
	EXPECT_EQ(softcard_trace_open("another"), -EBUSY);
	EXPECT_EQ(softcard_trace_open(path.c_str()), 0);
	softcard_trace_close();
	vask_p4_mep_del_meter_policy(RX, 1);
	EXPECT_EQ(Lines().size(), 1u);
	softcard_trace_close();
	vask_p4_mep_del_meter_policy(RX, 1);
	EXPECT_EQ(Lines().size(), 1u);
	softcard_trace_close();
	EXPECT_EQ(softcard_trace_open(path.c_str()), 0);
	vask_p4_mep_del_meter_policy(RX, 1);
	EXPECT_EQ(Lines().size(), 2u); /* appended */
}

TEST_F(Trace, AFileThatCannotBeOpenedIsRefused)
{
	softcard_trace_close();
	EXPECT_EQ(softcard_trace_open("no/such/folder"), -ENOENT);
	EXPECT_EQ(softcard_trace_open(path.c_str()), 0);
}

} // namespace
