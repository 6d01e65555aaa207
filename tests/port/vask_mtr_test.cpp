/* SPDX-License-Identifier: BSD-3-Clause */
/* The guard around the module's meter operations. */
#include "port_test.h"

#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

#include <rte_errno.h>
#include <rte_version.h>

#include "rte_pmd_net_vask1.h"
#include "vask_p4_meter.h"

/* The one record whose loss is meant: the module lets go of it when the pool of indexes is empty. */
extern "C" const char *
__lsan_default_suppressions()
{
	return "leak:vask_p4_meter_inst_create\n";
}

namespace vask_test
{

class Guard : public PortTest
{
      protected:
	void SetUp() override
	{
		PortTest::SetUp();
		ASSERT_EQ(probe("net_vask1_0", ""), 0);
		port_ = port_of("net_vask1_0");
		ASSERT_EQ(add_profile(port_, 5, 80000, 20480, 20480), 0);
	}

	/* An error record that somebody forgot to clear. */
	void soil()
	{
		error.type = RTE_MTR_ERROR_TYPE_SHARED;
		error.cause = this;
		error.message = "left over";
	}

	uint16_t port_ = 0;
};

TEST_F(Guard, ErrorRecordIsClearedBeforeACallThatSucceeds)
{
	soil();
	ASSERT_EQ(create_meter(port_, 9, 5, 0, RECEIVE), 0);
	EXPECT_EQ(error.type, RTE_MTR_ERROR_TYPE_NONE);
	EXPECT_EQ(error.cause, nullptr);
	EXPECT_EQ(error.message, nullptr);
}

TEST_F(Guard, RefusalThatLeavesTheRecordUnsetIsNamed)
{
	for (uint32_t id = 1; id <= 4095; id++)
		ASSERT_EQ(create_meter(port_, id, 5, 0, TRANSMIT), 0) << id;
	soil();
	EXPECT_EQ(create_meter(port_, 4096, 5, 0, TRANSMIT), -1);
	EXPECT_EQ(error.type, RTE_MTR_ERROR_TYPE_UNSPECIFIED);
	EXPECT_EQ(error.cause, nullptr);
	EXPECT_STREQ(error.message, "meter: no free hardware meter index");
}

TEST_F(Guard, StatusOfTheCardIsReturnedAndNamed)
{
	ASSERT_EQ(create_meter(port_, 9, 5, 0, RECEIVE), 0);
	ASSERT_EQ(rte_pmd_net_vask1_fault_set("vask_p4_isch_shaper_csr_write:every:7"), 0);
	soil();
	EXPECT_EQ(rte_mtr_meter_disable(port_, 9, &error), 7);
	EXPECT_EQ(error.type, RTE_MTR_ERROR_TYPE_UNSPECIFIED);
	EXPECT_STREQ(error.message,
		"meter disable: the card refused to remove the meter's shapers or binding");
}

TEST_F(Guard, RefusalThatTheModuleExplainsKeepsItsExplanation)
{
	soil();
	EXPECT_EQ(create_meter(port_, 9, 77, 0, RECEIVE), -EBUSY);
	EXPECT_EQ(error.type, RTE_MTR_ERROR_TYPE_METER_PROFILE_ID);
	EXPECT_STREQ(error.message, "add meter but not find profile");
}

TEST_F(Guard, NullErrorRecordIsAccepted)
{
	EXPECT_EQ(rte_mtr_meter_enable(port_, 77, nullptr), -EBUSY);
	EXPECT_EQ(rte_errno, EBUSY);
}

TEST_F(Guard, StatisticsMaskOfZeroAsksForBothDropCountersAndTellsThem)
{
	struct rte_mtr_stats stats = {};
	uint64_t mask = 0;

	ASSERT_EQ(create_meter(port_, 9, 5, 0, RECEIVE), 0);
	stats.n_pkts_dropped = stats.n_bytes_dropped = 77;
	EXPECT_EQ(rte_mtr_stats_read(port_, 9, &stats, &mask, 0, &error), 0);
	EXPECT_EQ(mask, 0x88u);
	EXPECT_EQ(stats.n_pkts_dropped, 0u);
	EXPECT_EQ(stats.n_bytes_dropped, 0u);
}

TEST_F(Guard, StatisticsMaskOfAnUnknownMeterIsWrittenBackAsZero)
{
	struct rte_mtr_stats stats = {};
	uint64_t mask = 0;

	stats.n_pkts_dropped = 77;
	EXPECT_EQ(rte_mtr_stats_read(port_, 9, &stats, &mask, 0, &error), 0);
	EXPECT_EQ(mask, 0u);
	EXPECT_EQ(stats.n_pkts_dropped, 77u);
}

TEST_F(Guard, NullStatisticsMaskReadsTheDropCounters)
{
	struct rte_mtr_stats stats = {};

	ASSERT_EQ(create_meter(port_, 9, 5, 0, RECEIVE), 0);
	stats.n_pkts_dropped = 77;
	EXPECT_EQ(rte_mtr_stats_read(port_, 9, &stats, nullptr, 0, &error), 0);
	EXPECT_EQ(stats.n_pkts_dropped, 0u);
}

TEST_F(Guard, AnyOtherStatisticsMaskGoesToTheModuleAsItIs)
{
	struct rte_mtr_stats stats = {};
	uint64_t mask = RTE_MTR_STATS_N_PKTS_GREEN;

	ASSERT_EQ(create_meter(port_, 9, 5, 0, RECEIVE), 0);
	EXPECT_EQ(rte_mtr_stats_read(port_, 9, &stats, &mask, 0, &error), -EBUSY);
	EXPECT_STREQ(error.message, "stats mask only support drop pkts or bytes");
	mask = RTE_MTR_STATS_N_BYTES_DROPPED | RTE_MTR_STATS_N_PKTS_RED;
	EXPECT_EQ(rte_mtr_stats_read(port_, 9, &stats, &mask, 0, &error), 0);
	EXPECT_EQ(mask, RTE_MTR_STATS_N_BYTES_DROPPED | RTE_MTR_STATS_N_PKTS_RED);
}

TEST_F(Guard, EmptySlotsStayEmpty)
{
	enum rte_color table[64] = {};

	EXPECT_EQ(rte_mtr_stats_update(port_, 9, DROP_COUNTERS, &error), -ENOSYS);
	EXPECT_EQ(rte_mtr_meter_policy_update(port_, 9, 7, &error), -ENOSYS);
#if RTE_VERSION >= RTE_VERSION_NUM(22, 11, 0, 0)
	EXPECT_EQ(rte_mtr_meter_dscp_table_update(
			  port_, 9, RTE_MTR_COLOR_IN_PROTO_OUTER_IP, table, &error),
		-ENOSYS);
	EXPECT_EQ(rte_mtr_meter_profile_get(port_, 5, &error), nullptr);
#else
	EXPECT_EQ(rte_mtr_meter_dscp_table_update(port_, 9, table, &error), -ENOSYS);
#endif
}

TEST_F(Guard, ShorterParametersOfAnApplicationWithoutTheTrailingFieldAreEnough)
{
	/* the record's public part ends where the readable page ends */
	struct rte_mtr_params whole = {};
	const size_t size = offsetof(struct rte_mtr_params, direction);
	const auto page = static_cast<size_t>(getpagesize());
	void *map =
		mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
	ASSERT_NE(map, MAP_FAILED);
	ASSERT_EQ(mprotect(static_cast<char *>(map) + page, page, PROT_NONE), 0);
	auto *params =
		reinterpret_cast<struct rte_mtr_params *>(static_cast<char *>(map) + page - size);

	whole.meter_profile_id = 5;
	whole.stats_mask = RECEIVE;
	memcpy(static_cast<void *>(params), &whole, size);
	EXPECT_EQ(rte_mtr_create(port_, 9, params, 0, &error), 0);
	munmap(map, 2 * page);
}

TEST_F(Guard, P4TablesAndMeterOperationsSeeTheSameObjects)
{
	p4_meter_profile_t profile = {};
	p4_meter_policer_t policer = {};
	p4_meter_instance_t instance = {};

	profile.cir = 80000;
	profile.cbs = 20480;
	profile.ebs = 20480;
	policer.red_action = 2;
	instance.type = 1;
	instance.dpdk_port_id = port_;
	instance.profile_id = 6;
	instance.policer_id = 8;
	ASSERT_EQ(rte_pmd_net_vask1_profile_add(6, &profile), 0);
	ASSERT_EQ(rte_pmd_net_vask1_policer_add(8, &policer), 0);
	ASSERT_EQ(rte_pmd_net_vask1_instance_add(9, &instance), 0);
	EXPECT_EQ(stats(port_, 9).n_pkts_dropped, 0u);
	EXPECT_EQ(rte_mtr_meter_profile_delete(port_, 6, &error), -EBUSY);
	EXPECT_EQ(rte_pmd_net_vask1_instance_del(9), 0);
	EXPECT_EQ(rte_mtr_meter_profile_delete(port_, 6, &error), 0);
	EXPECT_EQ(rte_mtr_meter_policy_delete(port_, 8, &error), 0);
	EXPECT_EQ(rte_pmd_net_vask1_profile_add(6, nullptr), -1);
}

TEST_F(Guard, ARowThatNamesThePortOfAnotherDriverMakesNoMeter)
{
	const Wire wire = make_wire("other");
	p4_meter_instance_t instance = {};

	instance.type = 1;
	instance.profile_id = 5;
	instance.dpdk_port_id = port_of(wire.name);
	log();
	rte_pmd_net_vask1_instance_add(9, &instance);
	EXPECT_EQ(vask_p4_find_hw_meterid_by_upid(9), 0u);
	EXPECT_NE(log().find("add meter but port sfi is err, priv: "), std::string::npos);

	instance.dpdk_port_id = port_;
	EXPECT_EQ(rte_pmd_net_vask1_instance_add(9, &instance), 0);
	EXPECT_NE(vask_p4_find_hw_meterid_by_upid(9), 0u);
}

} // namespace vask_test
