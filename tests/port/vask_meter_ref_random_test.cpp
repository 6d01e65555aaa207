/* SPDX-License-Identifier: BSD-3-Clause */
/* Rules, bindings and the card's instance records after any sequence of control calls, refused ones too. */
#include "flow_support.h"

#include <algorithm>
#include <random>

#include <rte_bus_vdev.h>
#include <rte_mtr.h>

#include "rte_pmd_net_vask1.h"
#include "softcard_view.h"
#include "vask_p4_meter.h"
#include "vask_port.h"

using namespace vask_test;

namespace
{

constexpr uint32_t PROFILES[] = {5, 6};
constexpr uint32_t POLICY = 7;
constexpr uint32_t LAST_METER = 4; /* ids 0 to 4 */
constexpr const char *FAULTS[] = {"vask_p4_isch_shaper_csr_write:1:-5", "vask_cmd_set_shaper:1:-5",
	"vask_p4_mep_update_meter_output_by_meterid:1:-5",
	"vask_p4_mep_del_meter_output_by_meterid:1:-5"};

class MeterRecordsRandom : public ::testing::TestWithParam<uint32_t>
{
      protected:
	struct AppRule {
		rte_flow *flow;
		uint16_t port;
		int dir;
		uint32_t meter_id;
	};

	void SetUp() override
	{
		rte_mtr_error error;
		const rte_flow_action end = {RTE_FLOW_ACTION_TYPE_END, nullptr};
		rte_mtr_meter_policy_params policy = {};

		for (int i : {0, 1}) {
			const std::string name = "net_vask1_" + std::to_string(i);

			ASSERT_EQ(rte_vdev_init(name.c_str(), ""), 0);
			ASSERT_EQ(rte_eth_dev_get_port_by_name(name.c_str(), &ports[i]), 0);
		}
		for (uint32_t id : PROFILES) {
			rte_mtr_meter_profile profile = {};

			profile.alg = RTE_MTR_SRTCM_RFC2697;
			profile.srtcm_rfc2697.cir = id * 80000;
			profile.srtcm_rfc2697.cbs = 20480;
			ASSERT_EQ(rte_mtr_meter_profile_add(ports[0], id, &profile, &error), 0);
		}
		for (const rte_flow_action *&actions : policy.actions)
			actions = &end;
		ASSERT_EQ(rte_mtr_meter_policy_add(ports[0], POLICY, &policy, &error), 0);
	}

	void TearDown() override
	{
		for (const char *name : {"net_vask1_0", "net_vask1_1"})
			EXPECT_EQ(rte_vdev_uninit(name), 0);
	}

	uint32_t dice(uint32_t sides)
	{
		return static_cast<uint32_t>(random() % sides);
	}

	/* One control call with any outcome. */
	std::string step()
	{
		const uint16_t port = ports[dice(2)];
		const uint32_t meter_id = dice(LAST_METER + 1), profile_id = PROFILES[dice(2)];
		const uint32_t what = dice(9);
		std::string said =
			"port " + std::to_string(port) + " meter " + std::to_string(meter_id) + " ";
		rte_mtr_error error;

		if (what < 7 && dice(5) == 0) {
			const char *fault = FAULTS[dice(4)];

			rte_pmd_net_vask1_fault_set(fault);
			said = std::string(fault) + " " + said;
		}
		switch (what) {
		case 0:
		case 1: {
			rte_mtr_params params = {};

			params.meter_profile_id = profile_id;
			params.meter_policy_id = POLICY;
			params.stats_mask = static_cast<uint64_t>(dice(3)) << 62;
			rte_mtr_create(port, meter_id, &params, 0, &error);
			said += "create " + std::to_string(params.stats_mask >> 62);
			break;
		}
		case 2:
			rte_mtr_destroy(port, meter_id, &error);
			said += "destroy";
			break;
		case 3:
			rte_mtr_meter_enable(port, meter_id, &error);
			said += "enable";
			break;
		case 4:
			rte_mtr_meter_disable(port, meter_id, &error);
			said += "disable";
			break;
		case 5:
			rte_mtr_meter_profile_update(port, meter_id, profile_id, &error);
			said += "update";
			break;
		case 6: {
			p4_meter_instance_t row = {};

			row.type = dice(2);
			row.dir = dice(2);
			row.meter_enable = dice(2);
			row.color_mode = dice(2);
			row.profile_id = static_cast<uint8_t>(profile_id);
			row.policer_id = POLICY;
			rte_pmd_net_vask1_instance_mod(meter_id, &row);
			said += "modify type " + std::to_string(row.type) + " dir " +
				std::to_string(row.dir) + " enable " +
				std::to_string(row.meter_enable);
			break;
		}
		case 7: {
			const int dir = static_cast<int>(dice(2));
			Rule rule;
			rte_flow_error flow_error;

			rule.Eth().Meter(meter_id);
			if (dir == VASK_P4_MEP_EGRESS)
				rule.Egress();
			rte_flow *flow = rte_flow_create(
				port, &rule.attr, rule.pattern(), rule.actions(), &flow_error);
			if (flow != nullptr)
				rules.push_back({flow, port, dir, meter_id});
			said += "rule, direction " + std::to_string(dir);
			break;
		}
		default:
			if (!rules.empty()) {
				rte_flow_error flow_error;
				const size_t i = dice(static_cast<uint32_t>(rules.size()));

				EXPECT_EQ(
					rte_flow_destroy(rules[i].port, rules[i].flow, &flow_error),
					0);
				rules.erase(rules.begin() + static_cast<ptrdiff_t>(i));
			}
			said += "rule destroyed";
		}
		rte_pmd_net_vask1_fault_clear();
		return said;
	}

	static const vask_p4_meter_cfg_node *first_of(uint32_t meter_id)
	{
		const vask_p4_meter_cfg_node *node;

		TAILQ_FOREACH (node, &vask_p4_meter_list, next)
			if (node->data.meter_id == meter_id)
				return node;
		return nullptr;
	}

	static std::vector<const vask_p4_meter_cfg_node *> holders_of(uint32_t index)
	{
		std::vector<const vask_p4_meter_cfg_node *> holders;
		const vask_p4_meter_cfg_node *node;

		TAILQ_FOREACH (node, &vask_p4_meter_list, next)
			if (node->data.enable && node->data.hw_meter_id == index)
				holders.push_back(node);
		return holders;
	}

	static softcard_meter_view record(int dir, uint32_t index)
	{
		softcard_meter_view view = {};

		vask_control_lock();
		EXPECT_EQ(softcard_view_meter(dir, index, &view), 0);
		vask_control_unlock();
		return view;
	}

	void check_rules()
	{
		for (const AppRule &rule : rules) {
			const auto *node = first_of(rule.meter_id);
			const uint32_t index =
				node != nullptr && node->data.enable ? node->data.hw_meter_id : 0;

			EXPECT_EQ(vask_flow_rule_meter(rule.flow), index);
			if (index != 0) {
				EXPECT_TRUE(record(rule.dir, index).inst.valid);
			}
		}
	}

	void check_bindings()
	{
		const vask_p4_meter_cfg_node *node;

		TAILQ_FOREACH (node, &vask_p4_meter_list, next)
			for (int dir : {VASK_P4_MEP_INGRESS, VASK_P4_MEP_EGRESS})
				if (node->data.enable &&
					softcard_port_meter(
						dir, static_cast<uint16_t>(node->data.port_sfi)) ==
						node->data.hw_meter_id) {
					EXPECT_TRUE(record(dir, node->data.hw_meter_id).inst.valid)
						<< "of meter " << node->data.meter_id;
				}
	}

	/* What no enabled meter holds is clean, and what one alone holds is that one's. */
	void check_records()
	{
		for (uint32_t index = 1; index <= highest_index; index++) {
			const auto holders = holders_of(index);

			for (int dir : {VASK_P4_MEP_INGRESS, VASK_P4_MEP_EGRESS}) {
				const softcard_meter_view view = record(dir, index);
				vask_p4_mep_meter_inst_table expected = {};

				if (holders.empty()) {
					EXPECT_FALSE(view.inst.valid)
						<< "index " << index << " direction " << dir;
				}
				if (holders.size() != 1 || !view.inst.valid)
					continue;
				vask_p4_meter_convert_inst(holders[0], &expected);
				EXPECT_EQ(view.inst.profile_id, expected.profile_id)
					<< "index " << index << " direction " << dir;
				EXPECT_EQ(view.inst.policy_id, expected.policy_id);
				EXPECT_EQ(view.inst.is_color_aware, expected.is_color_aware)
					<< "index " << index << " direction " << dir;
			}
		}
	}

	static constexpr uint32_t highest_index = 400;
	std::mt19937 random{GetParam()};
	uint16_t ports[2];
	std::vector<AppRule> rules;
};

TEST_P(MeterRecordsRandom, RulesBindingsAndRecordsAgreeWithTheMetersAfterEachCall)
{
	std::vector<std::string> said;

	for (int i = 0; i < 300 && !HasFailure(); i++) {
		said.push_back(step());
		check_rules();
		check_bindings();
		check_records();
	}
	for (const std::string &line : said)
		if (HasFailure())
			puts(line.c_str());
}

INSTANTIATE_TEST_SUITE_P(Seeds, MeterRecordsRandom, ::testing::Range(1u, 21u));

} // namespace
