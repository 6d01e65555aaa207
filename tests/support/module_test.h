/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef TESTS_SUPPORT_MODULE_TEST_H
#define TESTS_SUPPORT_MODULE_TEST_H

/**
 * @file
 * Fixtures for tests of the meter module on the fake card.
 *
 *     using ProfileAdd = vask_test::ModuleTest;
 *     TEST_F(ProfileAdd, NewIdIsWrittenToTheIngressEngineAndListed)
 *     {
 *             EXPECT_EQ(vask_p4_meter_profile_add(dev, 5, &params, &error), 0);
 *             EXPECT_THAT(card.calls(), ElementsAre(PoolAlloc(profile_index_mgr, 1), MepAddProfile(0, 1, record)));
 *             EXPECT_THAT(log.lines(RTE_LOG_ERR), IsEmpty());
 *     }
 */

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <rte_errno.h>
#include <rte_log.h>
#include <rte_mtr.h>

#include "allocations.h"
#include "fake_card.h"
#include "log_capture.h"
#include "trace.h"
#include "vask_p4_info.h"
#include "vask_p4_meter.h"

namespace vask_test
{

/**
 * Empty lists, no pools, a card that refuses nothing.
 *
 * At the end of each test: no lock is held, no call broke a rule of the layers below, every block that
 * still lives is a listed record, and every index taken is held by a listed record; what a test leaves
 * behind on purpose it declares. Then all records are freed.
 */
class SeamTest : public ::testing::Test
{
      protected:
	SeamTest();
	~SeamTest() override;

	void TearDown() override;

	/** Forgets trace, allocation count, rte_errno and error: what follows is what is asserted. */
	void StartOver();

	/** This test leaves that index taken and in no record. */
	void LeavesIndexTaken(const VASK_P4_INDEXSTACK_MANAGER *pool, uint32_t index);

	/** This test leaves one record that no list holds. */
	void LeavesRecordBehind();

	/** @name Records put into the lists by hand, the caller's id set and all else zero. @{ */
	vask_p4_meter_profile_node *ListProfile(uint32_t profile_id);
	vask_p4_meter_policy_node *ListPolicy(uint32_t policy_id);
	vask_p4_meter_cfg_node *ListMeter(uint32_t meter_id);
	/** @} */

	/** @name The ids in a list, in order. @{ */
	std::vector<uint32_t> profile_ids() const;
	std::vector<uint32_t> policy_ids() const;
	std::vector<uint32_t> meter_ids() const;
	/** @} */

	/** A device with private data, source-port number SFI; and one that is none of the driver's. */
	static constexpr uint16_t SFI = 42;
	rte_eth_dev *const dev;
	rte_eth_dev *const foreign_dev;

	FakeCard &card;
	Allocations &memory;
	LogCapture log;
	rte_mtr_error error;

      private:
	std::map<const VASK_P4_INDEXSTACK_MANAGER *, std::set<uint32_t>> stranded_;
	unsigned left_behind_ = 0;
};

/** The same with the three pools full, but for the indexes reserved at start; no default policy. */
class ModuleTest : public SeamTest
{
      protected:
	ModuleTest();
};

/**
 * A refusal as DPDK sees it: -EBUSY, rte_errno EBUSY, that type and message, and a null cause.
 * StartOver() or the fixture has set rte_errno to 0 and filled the error record with other values before.
 */
void
ExpectRefused(int rc, const rte_mtr_error &error, rte_mtr_error_type type, const char *message);

/** The same for a null argument: type UNSPECIFIED, and any message that says something. */
void ExpectRefusedAsNull(int rc, const rte_mtr_error &error);

/** rte_errno and the error record stand as before the call. */
void ExpectErrorUntouched(const rte_mtr_error &error);

} // namespace vask_test

#endif /* TESTS_SUPPORT_MODULE_TEST_H */
