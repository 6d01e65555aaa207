/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Every lower-layer operation fails at its first, second and last call, and at every call, in each control
 * call: the result tells, later calls go on, and a close leaves full pools behind. The trace tells which
 * operations a control call makes, and that the fault has hit.
 */
#include "port_test.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>
#include <unistd.h>

#include "rte_pmd_net_vask1.h"

/* The one record whose loss is meant: the module lets go of it when no index is to be had. */
extern "C" const char *
__lsan_default_suppressions()
{
	return "leak:vask_p4_meter_inst_create\n";
}

namespace vask_test
{

constexpr const char *CHANNEL = "vask_p4_get_global_cmd_channel";
/* whose result nobody looks at: an index that cannot be given back is lost until the last port closes */
constexpr const char *INDEX_FREE = "vask_p4_indexstack_free";

struct Step {
	const char *name;
	std::function<int()> run;
	bool ignores_status = false; /* by design the call succeeds whatever the card says */
};

class FaultTable : public PortTest
{
      protected:
	void SetUp() override
	{
		PortTest::SetUp();
		path_ = testing::TempDir() + "vask_trace_" + std::to_string(getpid());
		unlink(path_.c_str());
		instance_.type = 1;
		instance_.profile_id = 20;
		instance_.policer_id = 21;
		policer_.red_action = 2;
		p4_profile_ = {80000, 0, 20480, 20480, 0, 0, 0};
	}

	void TearDown() override
	{
		PortTest::TearDown();
		unlink(path_.c_str());
	}

	void up()
	{
		wire_ = make_wire("wire", 1, 64);
		ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire,trace=" + path_), 0);
		port_ = port_of("net_vask1_0");
		instance_.dpdk_port_id = port_;
		ASSERT_EQ(start(port_), 0) << log();
		calls();
	}

	void down()
	{
		ASSERT_EQ(remove("net_vask1_0"), 0);
		remove_wire(wire_);
	}

	/* The operations in the trace since the last call, in order; those that a fault hit end in '!'. */
	std::vector<std::string> calls()
	{
		std::vector<std::string> found;
		std::ifstream trace(path_);
		std::string line, time, operation, word;

		trace.seekg(read_);
		while (std::getline(trace, line)) {
			read_ += static_cast<std::streamoff>(line.size() + 1);
			std::istringstream words(line);
			words >> time >> operation;
			while (words >> word)
				;
			found.push_back(operation + (word == "fault" ? "!" : ""));
		}
		return found;
	}

	std::vector<Step> steps()
	{
		return {
			{"profile add",
				[this] {
					return add_profile(port_, 5, 80000, 20480, 20480);
				}},
			{"profile add",
				[this] {
					return add_profile(port_, 6, 160000, 20480, 20480);
				}},
			{"policy add",
				[this] {
					return add_policy(port_, 7);
				}},
			{"create receive",
				[this] {
					return create_meter(port_, 9, 5, 7, RECEIVE);
				}},
			{"create transmit",
				[this] {
					return create_meter(port_, 10, 5, 7, TRANSMIT);
				}},
			{"create both",
				[this] {
					return create_meter(port_, 11, 5, 7, 0);
				}},
			{"statistics", [this] { return read(9); }, true},
			{"statistics of both", [this] { return read(11); }, true},
			{"profile update",
				[this] {
					return rte_mtr_meter_profile_update(port_, 9, 6, &error);
				}},
			{"disable",
				[this] {
					return rte_mtr_meter_disable(port_, 9, &error);
				}},
			{"enable",
				[this] {
					return rte_mtr_meter_enable(port_, 9, &error);
				}},
			{"disable both",
				[this] {
					return rte_mtr_meter_disable(port_, 11, &error);
				}},
			{"enable both",
				[this] {
					return rte_mtr_meter_enable(port_, 11, &error);
				}},
			{"MTU",
				[this] {
					return rte_eth_dev_set_mtu(port_, 1500);
				}},
			{"destroy",
				[this] {
					return rte_mtr_destroy(port_, 9, &error);
				}},
			{"destroy transmit",
				[this] {
					return rte_mtr_destroy(port_, 10, &error);
				}},
			{"destroy both",
				[this] {
					return rte_mtr_destroy(port_, 11, &error);
				}},
			{"policy delete",
				[this] {
					return rte_mtr_meter_policy_delete(port_, 7, &error);
				}},
			{"profile delete",
				[this] {
					return rte_mtr_meter_profile_delete(port_, 5, &error);
				}},
			{"P4 profile add",
				[this] {
					return rte_pmd_net_vask1_profile_add(20, &p4_profile_);
				}},
			{"P4 profile mod",
				[this] {
					return rte_pmd_net_vask1_profile_mod(20, &p4_profile_);
				}},
			{"P4 policer add",
				[this] {
					return rte_pmd_net_vask1_policer_add(21, &policer_);
				}},
			{"P4 policer mod",
				[this] {
					return rte_pmd_net_vask1_policer_mod(21, &policer_);
				}},
			{"P4 instance add",
				[this] { return rte_pmd_net_vask1_instance_add(22, &instance_); },
				true},
			{"P4 instance mod",
				[this] {
					return rte_pmd_net_vask1_instance_mod(22, &instance_);
				}},
			{"P4 instance del",
				[] {
					return rte_pmd_net_vask1_instance_del(22);
				}},
			{"P4 policer del",
				[] {
					return rte_pmd_net_vask1_policer_del(21);
				}},
			{"P4 profile del",
				[] {
					return rte_pmd_net_vask1_profile_del(20);
				}},
		};
	}

	int read(uint32_t meter)
	{
		struct rte_mtr_stats stats = {};
		uint64_t mask = 0;

		return rte_mtr_stats_read(port_, meter, &stats, &mask, 0, &error);
	}

	/*
	 * Whether a lost channel is noticed: the module fetches it before it knows whether it needs it, so only a
	 * command right after the fetch does.
	 */
	static bool channel_is_used(const std::vector<std::string> &made, unsigned nth)
	{
		for (size_t i = 0; i + 1 < made.size(); i++)
			if (made[i] == CHANNEL && --nth == 0)
				return made[i + 1].starts_with("qorn_") ||
					made[i + 1] == "vask_cmd_set_shaper";
		return false;
	}

	/* Runs all steps with one fault in one of them, which is to be refused or not. */
	void run_with_fault(const std::vector<Step> &all, size_t at, const std::string &operation,
		const std::string &nth, bool refused)
	{
		SCOPED_TRACE(
			std::string(all[at].name) + ": " + operation + " fails at call " + nth);
		up();
		for (size_t i = 0; i < at; i++)
			ASSERT_EQ(all[i].run(), 0) << all[i].name;

		calls();
		ASSERT_EQ(rte_pmd_net_vask1_fault_set((operation + ":" + nth + ":-5").c_str()), 0);
		const int rc = all[at].run();
		const auto made = calls();
		EXPECT_NE(std::count(made.begin(), made.end(), operation + "!"), 0) << "no hit";
		EXPECT_EQ(rc != 0, refused) << rc;
		rte_pmd_net_vask1_fault_clear();

		for (size_t i = at + 1; i < all.size(); i++)
			all[i].run();
		down();
		n_++;
	}

	/* The first start after it finds nothing of it. */
	void expect_full_pools()
	{
		up();
		for (uint32_t id = 1; id <= 255; id++)
			ASSERT_EQ(add_profile(port_, id, 80000, 20480, 20480), 0) << id;
		for (uint32_t id = 1; id <= 254; id++)
			ASSERT_EQ(add_policy(port_, id), 0) << id;
		down();
	}

	unsigned n_ = 0;

      private:
	Wire wire_;
	uint16_t port_ = 0;
	std::string path_;
	std::streamoff read_ = 0;
	p4_meter_profile_t p4_profile_ = {};
	p4_meter_policer_t policer_ = {};
	p4_meter_instance_t instance_ = {};
};

TEST_F(FaultTable, EachOperationFailsInEachControlCallAndTheCardGoesOn)
{
	const std::vector<Step> all = steps();
	std::vector<std::vector<std::string>> made(all.size());
	std::set<std::string> seen;

	up();
	for (size_t i = 0; i < all.size(); i++) {
		ASSERT_EQ(all[i].run(), 0) << all[i].name;
		made[i] = calls();
	}
	down();

	for (size_t i = 0; i < all.size(); i++) {
		for (const std::string &operation : std::set(made[i].begin(), made[i].end())) {
			const auto n = static_cast<unsigned>(
				std::count(made[i].begin(), made[i].end(), operation));
			bool refused_once = false;

			seen.insert(operation);
			for (unsigned nth : std::set<unsigned>{1, std::min(2u, n), n}) {
				const bool refused = !all[i].ignores_status &&
					operation != INDEX_FREE &&
					(operation != CHANNEL || channel_is_used(made[i], nth));

				refused_once |= refused;
				run_with_fault(all, i, operation, std::to_string(nth), refused);
			}
			run_with_fault(all, i, operation, "every", refused_once);
			if (HasFatalFailure())
				return;
		}
	}
	expect_full_pools();
	/* what the module never calls through these calls stands in its own tests */
	EXPECT_GE(seen.size(), 13u);
	RecordProperty("runs", static_cast<int>(n_));
}

} // namespace vask_test
