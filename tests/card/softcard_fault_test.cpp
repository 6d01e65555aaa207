/* SPDX-License-Identifier: BSD-3-Clause */

/* Faults on demand. */

#include <cerrno>
#include <chrono>

#include "operations.h"
#include "softcard_fault.h"

namespace
{

using ::testing::HasSubstr;
using ::testing::StartsWith;

class Fault : public CardTest
{
      protected:
	void TearDown() override
	{
		softcard_fault_clear();
		CardTest::TearDown();
	}

	int Parse(const char *text)
	{
		char line[2048] = "";
		const int rc = softcard_fault_parse(text, line, sizeof(line));
		why = line;
		return rc;
	}

	std::string why;
};

TEST_F(Fault, EveryOperationHasItsName)
{
	const auto operations = Operations();
	for (uint32_t i = 0; i < operations.size(); i++)
		EXPECT_EQ(softcard_operation_name(i), operations[i].name);
	EXPECT_EQ(softcard_operation_name(operations.size()), nullptr);
}

TEST_F(Fault, EveryOperationFailsItsSecondCallOnly)
{
	for (const Operation &operation : Operations()) {
		SCOPED_TRACE(operation.name);
		if (!operation.can_fail)
			continue;
		ASSERT_EQ(softcard_fault_set(operation.name.c_str(), 2, -99, 0), 0);
		EXPECT_EQ(operation.call(), 0);
		EXPECT_EQ(operation.call(), -99);
		EXPECT_EQ(operation.call(), 0);
		softcard_fault_clear();
	}
}

TEST_F(Fault, EveryOperationFailsEveryCallUntilTheFaultIsLifted)
{
	for (const Operation &operation : Operations()) {
		SCOPED_TRACE(operation.name);
		if (!operation.can_fail)
			continue;
		ASSERT_EQ(softcard_fault_set(operation.name.c_str(), SOFTCARD_FAULT_EVERY, -99, 0),
			0);
		for (const Operation &other : Operations())
			EXPECT_EQ(other.call(), other.name == operation.name ? -99 : 0)
				<< other.name;
		EXPECT_EQ(operation.call(), -99);
		softcard_fault_clear();
		EXPECT_EQ(operation.call(), 0);
	}
}

TEST_F(Fault, ACallThatFailsChangesNothing)
{
	const auto profile = ProfileRecord({1, 2, 3, 4});
	vask_p4_mep_meter_profile_table read;
	qorn_input_port_table_result_tx entry = {};
	const qorn_input_port_table_key_tx key = {.source_port = 5, .resv = 0};
	vask_cmd_channel *channel = vask_p4_get_global_cmd_channel();

	ASSERT_EQ(Parse("vask_p4_mep_add_meter_profile:every:-5"), 0);
	EXPECT_EQ(vask_p4_mep_add_meter_profile(RX, 7, &profile), -5);
	ASSERT_EQ(softcard_view_profile(RX, 7, &read), 0);
	EXPECT_FALSE(read.valid);

	entry.metering_info0 = 3;
	ASSERT_EQ(qorn_input_port_tx_table_add(channel, &key, &entry), 0);
	ASSERT_EQ(Parse("qorn_input_port_tx_table_get:every:-13"), 0);
	entry = {};
	EXPECT_EQ(qorn_input_port_tx_table_get(channel, &key, &entry), -13);
	EXPECT_EQ(entry.metering_info0, 0u);
}

TEST_F(Fault, APoolThatCannotBeCreatedIsNull)
{
	VASK_P4_INDEXSTACK_MANAGER *pool = reinterpret_cast<VASK_P4_INDEXSTACK_MANAGER *>(&pool);

	ASSERT_EQ(Parse("vask_p4_indexstack_create:1:-12"), 0);
	EXPECT_EQ(vask_p4_indexstack_create(256, &pool), -12);
	EXPECT_EQ(pool, nullptr);
}

TEST_F(Fault, ACallThatFailsLeavesAPoolAsItIs)
{
	VASK_P4_INDEXSTACK_MANAGER *pool = nullptr;
	uint32_t index = 77;

	ASSERT_EQ(vask_p4_indexstack_create(8, &pool), 0);
	ASSERT_EQ(vask_p4_indexstack_alloc(pool, &index, 1), 0);
	ASSERT_EQ(Parse("vask_p4_indexstack_alloc:every:-28"), 0);
	ASSERT_EQ(Parse("vask_p4_indexstack_free:every:-5"), 0);
	ASSERT_EQ(Parse("vask_p4_indexstack_set:every:-5"), 0);
	index = 77;
	EXPECT_EQ(vask_p4_indexstack_alloc(pool, &index, 1), -28);
	EXPECT_EQ(index, 77u);
	EXPECT_EQ(vask_p4_indexstack_free(pool, 0, 1), -5);
	EXPECT_EQ(vask_p4_indexstack_set(pool, 7, 1), -5);
	EXPECT_EQ(vask_p4_idx_free_num(pool), 7u);
	vask_p4_indexstack_destroy(pool);
}

TEST_F(Fault, AnOperationWithoutAResultIsDelayedAndCannotFail)
{
	VASK_P4_INDEXSTACK_MANAGER *pool = nullptr;

	EXPECT_EQ(Parse("vask_p4_indexstack_destroy:1:-5:20000"), -ENOTSUP);
	EXPECT_EQ(why,
		"vask_p4_indexstack_destroy returns nothing and cannot fail; code 0 delays it");
	EXPECT_EQ(softcard_fault_list(nullptr, 0), 0u);

	ASSERT_EQ(Parse("vask_p4_indexstack_destroy:1:0:20000"), 0);
	ASSERT_EQ(vask_p4_indexstack_create(8, &pool), 0);
	const auto begin = std::chrono::steady_clock::now();
	vask_p4_indexstack_destroy(pool);
	EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(20));
}

TEST_F(Fault, WithoutAChannelCommandsAreRefused)
{
	const vask_shaper_set_info info = {};

	ASSERT_EQ(Parse("vask_p4_get_global_cmd_channel:1:-1"), 0);
	EXPECT_EQ(vask_cmd_set_shaper(vask_p4_get_global_cmd_channel(), &info), -EINVAL);
	EXPECT_EQ(vask_cmd_set_shaper(vask_p4_get_global_cmd_channel(), &info), 0);
}

TEST_F(Fault, SeveralOnOneOperationAreCountedEachFromItsOwnStart)
{
	ASSERT_EQ(Parse("vask_p4_mep_del_meter_policy:1:-1"), 0);
	ASSERT_EQ(Parse("vask_p4_mep_del_meter_policy:3:7"), 0);
	EXPECT_EQ(vask_p4_mep_del_meter_policy(RX, 1), -1);
	EXPECT_EQ(vask_p4_mep_del_meter_policy(RX, 1), 0);
	ASSERT_EQ(Parse("vask_p4_mep_del_meter_policy:2:9"), 0);
	EXPECT_EQ(vask_p4_mep_del_meter_policy(RX, 1), 7);
	EXPECT_EQ(vask_p4_mep_del_meter_policy(RX, 1), 9);
	EXPECT_EQ(vask_p4_mep_del_meter_policy(RX, 1), 0);

	softcard_fault list[4];
	ASSERT_EQ(softcard_fault_list(list, 4), 3u);
	EXPECT_STREQ(list[1].operation, "vask_p4_mep_del_meter_policy");
	EXPECT_EQ(list[1].nth, 3u);
	EXPECT_EQ(list[1].code, 7);
	EXPECT_EQ(list[1].calls, 5u);
	EXPECT_EQ(list[1].hits, 1u);
	EXPECT_EQ(list[2].calls, 3u);
	EXPECT_EQ(softcard_fault_list(nullptr, 0), 3u);
}

TEST_F(Fault, ADelayedCallIsDone)
{
	ASSERT_EQ(Parse("vask_p4_mep_update_meter_output_by_mtu:1:0:20000"), 0);
	const auto begin = std::chrono::steady_clock::now();
	EXPECT_EQ(vask_p4_mep_update_meter_output_by_mtu(5, 1500), 0);
	EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(20));
	softcard_port_view port;
	ASSERT_EQ(softcard_view_port(5, &port), 0);
	EXPECT_EQ(port.mtu, 1500);
}

TEST_F(Fault, AMisspeltOperationIsRefusedWithTheListOfThoseThatExist)
{
	EXPECT_EQ(Parse("vask_p4_mep_add_meter_profil:1:-1"), -ENOENT);
	EXPECT_THAT(why, StartsWith("no operation 'vask_p4_mep_add_meter_profil'; there are "));
	for (const Operation &operation : Operations())
		EXPECT_THAT(why, HasSubstr(" " + operation.name));
	EXPECT_EQ(softcard_fault_list(nullptr, 0), 0u);
	EXPECT_EQ(softcard_fault_set("nothing", 1, -1, 0), -ENOENT);
	EXPECT_EQ(softcard_fault_set(nullptr, 1, -1, 0), -ENOENT);
	EXPECT_EQ(Parse(""), -ENOENT);
	EXPECT_EQ(Parse(nullptr), -ENOENT);
}

TEST_F(Fault, TextThatDoesNotReadIsRefusedWithWhatIsWrong)
{
	EXPECT_EQ(Parse("vask_cmd_set_shaper"), -EINVAL);
	EXPECT_EQ(why, "'' is neither 'every' nor a call, counted from 1");
	EXPECT_EQ(Parse("vask_cmd_set_shaper:0:-1"), -EINVAL);
	EXPECT_EQ(why, "'0' is neither 'every' nor a call, counted from 1");
	EXPECT_EQ(Parse("vask_cmd_set_shaper:-1:-1"), -EINVAL);
	EXPECT_EQ(Parse("vask_cmd_set_shaper:2x:-1"), -EINVAL);
	EXPECT_EQ(Parse("vask_cmd_set_shaper:1"), -EINVAL);
	EXPECT_EQ(why, "'' is no code; one is a number, as in -5");
	EXPECT_EQ(Parse("vask_cmd_set_shaper:1:EIO"), -EINVAL);
	EXPECT_EQ(why, "'EIO' is no code; one is a number, as in -5");
	EXPECT_EQ(Parse("vask_cmd_set_shaper:1:99999999999"), -EINVAL);
	EXPECT_EQ(Parse("vask_cmd_set_shaper:1:-1:soon"), -EINVAL);
	EXPECT_EQ(why, "'soon' is no delay in microseconds");
	EXPECT_EQ(Parse("vask_cmd_set_shaper:1:-1:5:6"), -EINVAL);
	EXPECT_EQ(Parse("vask_cmd_set_shaper:1:0"), -EINVAL);
	EXPECT_EQ(why, "code 0 without a delay is no fault");
	EXPECT_EQ(softcard_fault_list(nullptr, 0), 0u);
}

TEST_F(Fault, AShortLineForTheReasonIsNotOverrun)
{
	char line[8] = "1234567";
	EXPECT_EQ(softcard_fault_parse("nothing:1:-1", line, 4), -ENOENT);
	EXPECT_STREQ(line, "no ");
	EXPECT_EQ(line[4], '5');
}

TEST_F(Fault, MoreThanTheRoomAreRefused)
{
	for (uint32_t i = 0; i < SOFTCARD_FAULTS; i++)
		ASSERT_EQ(softcard_fault_set("vask_cmd_set_shaper", 1000, -1, 0), 0);
	EXPECT_EQ(Parse("vask_cmd_set_shaper:1:-1"), -ENOSPC);
	EXPECT_EQ(why, "64 faults are set already");
}

TEST_F(Fault, AStopLiftsAll)
{
	ASSERT_EQ(Parse("vask_cmd_set_shaper:every:-1"), 0);
	softcard_stop();
	EXPECT_EQ(softcard_fault_list(nullptr, 0), 0u);
}

} // namespace
