/* SPDX-License-Identifier: BSD-3-Clause */
/* Rules through rte_flow on a real port, and the card's records behind their meters. */
#include "flow_support.h"

#include <algorithm>
#include <cstdlib>
#include <string>

#include <rte_bus_vdev.h>
#include <rte_errno.h>
#include <rte_mtr.h>

#include "rte_pmd_net_vask1.h"
#include "softcard_view.h"
#include "vask_p4_meter.h"

using namespace vask_test;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace
{

constexpr int RX = VASK_P4_MEP_INGRESS;
constexpr int TX = VASK_P4_MEP_EGRESS;
constexpr uint64_t RECEIVE = UINT64_C(1) << 63;
constexpr uint64_t TRANSMIT = UINT64_C(1) << 62;
constexpr uint16_t QUEUES = 4;

/* A port over net_null, with profile 5, profile 6 of another rate, and policy 7. */
class FlowPort : public ::testing::Test
{
      protected:
	void SetUp() override
	{
		port_id = Probe("net_vask1_0", "net_null0");
		other_id = Probe("net_vask1_1", "net_null1");
		AddProfile(5, 1000000);
		AddProfile(6, 2000000);
		AddPolicy(7);
	}

	void TearDown() override
	{
		for (const char *name : {"net_vask1_0", "net_vask1_1", "net_null0", "net_null1"})
			EXPECT_EQ(rte_vdev_uninit(name), 0) << name;
	}

	static uint16_t Probe(const std::string &name, const std::string &uplink)
	{
		rte_eth_conf conf = {};
		uint16_t id;

		EXPECT_EQ(rte_vdev_init(uplink.c_str(), ""), 0);
		EXPECT_EQ(rte_vdev_init(name.c_str(), ("uplink=" + uplink).c_str()), 0);
		EXPECT_EQ(rte_eth_dev_get_port_by_name(name.c_str(), &id), 0);
		EXPECT_EQ(rte_eth_dev_configure(id, QUEUES, QUEUES, &conf), 0);
		return id;
	}

	void AddProfile(uint32_t id, uint64_t rate)
	{
		rte_mtr_meter_profile profile = {};
		rte_mtr_error mtr_error;

		profile.alg = RTE_MTR_SRTCM_RFC2697;
		profile.srtcm_rfc2697.cir = rate;
		profile.srtcm_rfc2697.cbs = 20480;
		ASSERT_EQ(rte_mtr_meter_profile_add(port_id, id, &profile, &mtr_error), 0);
	}

	void AddPolicy(uint32_t id)
	{
		const rte_flow_action end = {RTE_FLOW_ACTION_TYPE_END, nullptr};
		const rte_flow_action drop[] = {{RTE_FLOW_ACTION_TYPE_DROP, nullptr}, end};
		rte_mtr_meter_policy_params policy = {};
		rte_mtr_error mtr_error;

		policy.actions[RTE_COLOR_GREEN] = policy.actions[RTE_COLOR_YELLOW] = &end;
		policy.actions[RTE_COLOR_RED] = drop;
		ASSERT_EQ(rte_mtr_meter_policy_add(port_id, id, &policy, &mtr_error), 0);
	}

	void CreateMeter(uint32_t id, uint64_t side, uint32_t profile = 5)
	{
		rte_mtr_params params = {};
		rte_mtr_error mtr_error;

		params.meter_profile_id = profile;
		params.meter_policy_id = 7;
		params.meter_enable = 1;
		params.stats_mask = side;
		ASSERT_EQ(rte_mtr_create(port_id, id, &params, 0, &mtr_error), 0);
	}

	void DestroyMeter(uint32_t id)
	{
		rte_mtr_error mtr_error;

		ASSERT_EQ(rte_mtr_destroy(port_id, id, &mtr_error), 0);
	}

	rte_flow *Create(const Rule &rule)
	{
		return Create(port_id, rule);
	}
	rte_flow *Create(uint16_t port, const Rule &rule)
	{
		memset(&error, 0, sizeof(error));
		return rte_flow_create(port, &rule.attr, rule.pattern(), rule.actions(), &error);
	}
	void Destroy(rte_flow *flow)
	{
		ASSERT_EQ(rte_flow_destroy(port_id, flow, &error), 0);
	}

	void ExpectRefused(int code, rte_flow_error_type type, const void *cause, const char *text)
	{
		EXPECT_EQ(rte_errno, code);
		EXPECT_EQ(error.type, type);
		EXPECT_EQ(error.cause, cause);
		EXPECT_STREQ(error.message, text);
	}

	/* The hardware meter that a frame gets, 0 if none. */
	uint32_t MeterOf(const Bytes &frame, int dir = RX)
	{
		const Mbuf mbuf = MakeMbuf(frame);

		return Classify(*vask_port_of(&rte_eth_devices[port_id]), {mbuf.get()}, 0, dir)
			.hw_meter_id[0];
	}

	static vask_p4_mep_meter_inst_table Record(int dir, uint32_t hw_meter_id)
	{
		softcard_meter_view view = {};

		EXPECT_EQ(softcard_view_meter(dir, hw_meter_id, &view), 0);
		return view.inst;
	}

	static uint32_t HwProfile(uint32_t id)
	{
		const vask_p4_meter_profile_node *node;

		TAILQ_FOREACH (node, &vask_p4_meter_profile_list, next)
			if (node->data.profile_id == id)
				return node->data.hw_profile_id;
		return 0;
	}

	std::string Dump(rte_flow *flow)
	{
		char *text = nullptr;
		size_t size;
		FILE *file = open_memstream(&text, &size);

		EXPECT_EQ(rte_flow_dev_dump(port_id, flow, file, &error), 0);
		fclose(file);
		std::string dump(text);
		free(text);
		return dump;
	}

	uint16_t port_id, other_id;
	rte_flow_error error;
	const Bytes udp = Eth(vask_test::Ipv4({.src = 0x0a000001}, vask_test::Udp(1000, 80)));
	const Bytes tcp = Eth(vask_test::Ipv4({}, vask_test::Tcp(1, 2)));
};

Rule
UdpRule()
{
	return Rule().Eth().Ipv4().Udp();
}

TEST_F(FlowPort, ARuleMetersWithTheIndexOfItsMeterAndWritesTheEnginesRecord)
{
	CreateMeter(9, TRANSMIT);
	const uint32_t hw = vask_p4_find_hw_meterid_by_upid(9);

	EXPECT_EQ(Record(RX, hw).valid, 0u);
	EXPECT_EQ(Record(TX, hw).valid, 0u);
	ASSERT_NE(Create(UdpRule().Meter(9)), nullptr);
	EXPECT_EQ(MeterOf(udp), hw);
	EXPECT_EQ(MeterOf(tcp), 0u);
	EXPECT_EQ(Record(RX, hw).valid, 1u);
	EXPECT_EQ(Record(RX, hw).profile_id, HwProfile(5));
	EXPECT_EQ(Record(TX, hw).valid, 0u);
	ASSERT_NE(Create(UdpRule().Egress().Meter(9)), nullptr);
	EXPECT_EQ(MeterOf(udp, TX), hw);
	EXPECT_EQ(Record(TX, hw).valid, 1u);
}

TEST_F(FlowPort, AMeterThatLostItsPortIsEnabledWithoutARecord)
{
	rte_mtr_error mtr_error;

	CreateMeter(9, RECEIVE);
	const uint32_t hw = vask_p4_find_hw_meterid_by_upid(9);
	EXPECT_EQ(Record(RX, hw).valid, 1u) << "creating it bound the port";
	ASSERT_EQ(rte_mtr_meter_disable(port_id, 9, &mtr_error), 0);
	EXPECT_EQ(Record(RX, hw).valid, 0u);

	/* enabling binds no port, and no rule names the meter */
	ASSERT_EQ(rte_mtr_meter_enable(port_id, 9, &mtr_error), 0);
	EXPECT_EQ(Record(RX, hw).valid, 0u);
	ASSERT_NE(Create(UdpRule().Meter(9)), nullptr);
	EXPECT_EQ(Record(RX, hw).valid, 1u);
}

TEST_F(FlowPort, AMeterThatIsMissingIsRefusedWithItsAction)
{
	const Rule rule = UdpRule().Count().Meter(9);

	EXPECT_EQ(Create(rule), nullptr);
	ExpectRefused(ENOENT, RTE_FLOW_ERROR_TYPE_ACTION_CONF, &rule.actions()[1],
		"there is no such meter");
	EXPECT_EQ(rte_flow_validate(port_id, &rule.attr, rule.pattern(), rule.actions(), &error),
		-ENOENT);
	ExpectRefused(ENOENT, RTE_FLOW_ERROR_TYPE_ACTION_CONF, &rule.actions()[1],
		"there is no such meter");
}

TEST_F(FlowPort, FourRulesOnAllPortsMayUseAMeter)
{
	CreateMeter(9, RECEIVE);
	const Rule rule = UdpRule().Meter(9);
	rte_flow *first = Create(rule);

	EXPECT_NE(first, nullptr);
	EXPECT_NE(Create(rule), nullptr);
	EXPECT_NE(Create(other_id, rule), nullptr);
	EXPECT_NE(Create(other_id, UdpRule().Egress().Meter(9)), nullptr);
	EXPECT_EQ(Create(rule), nullptr);
	ExpectRefused(ENOSPC, RTE_FLOW_ERROR_TYPE_ACTION_CONF, &rule.actions()[0],
		"four rules use this meter already");
	Destroy(first);
	EXPECT_NE(Create(rule), nullptr);
}

TEST_F(FlowPort, ValidationCreatesNothing)
{
	const Rule rule = UdpRule().Count();

	EXPECT_EQ(
		rte_flow_validate(port_id, &rule.attr, rule.pattern(), rule.actions(), &error), 0);
	EXPECT_EQ(Dump(nullptr), "");
}

TEST_F(FlowPort, QueuesAreThoseThatThePortHas)
{
	const Rule rule = UdpRule().Queue(QUEUES);

	EXPECT_NE(Create(UdpRule().Queue(QUEUES - 1)), nullptr);
	EXPECT_EQ(Create(rule), nullptr);
	ExpectRefused(EINVAL, RTE_FLOW_ERROR_TYPE_ACTION_CONF, &rule.actions()[0],
		"the port has no such receive queue");
}

TEST_F(FlowPort, ADisabledMeterMetersNothingUntilItIsEnabled)
{
	CreateMeter(9, RECEIVE);
	const uint32_t hw = vask_p4_find_hw_meterid_by_upid(9);
	rte_mtr_error mtr_error;

	ASSERT_NE(Create(UdpRule().Meter(9)), nullptr);
	ASSERT_EQ(rte_mtr_meter_disable(port_id, 9, &mtr_error), 0);
	EXPECT_EQ(MeterOf(udp), 0u);
	EXPECT_EQ(Record(RX, hw).valid, 0u);
	ASSERT_EQ(rte_mtr_meter_enable(port_id, 9, &mtr_error), 0);
	EXPECT_EQ(MeterOf(udp), hw);
	EXPECT_EQ(Record(RX, hw).valid, 1u);
}

TEST_F(FlowPort, ARuleOutlivesItsMeterAndMetersAgainWithItsSuccessor)
{
	CreateMeter(9, RECEIVE);
	const uint32_t hw = vask_p4_find_hw_meterid_by_upid(9);

	ASSERT_NE(Create(UdpRule().Meter(9)), nullptr);
	ASSERT_NE(Create(UdpRule().Egress().Meter(9)), nullptr);
	DestroyMeter(9);
	EXPECT_EQ(MeterOf(udp), 0u);
	EXPECT_EQ(MeterOf(udp, TX), 0u);
	EXPECT_EQ(Record(RX, hw).valid, 0u);
	EXPECT_EQ(Record(TX, hw).valid, 0u);

	CreateMeter(10, RECEIVE); /* so that the index is another */
	CreateMeter(9, RECEIVE, 6);
	const uint32_t now = vask_p4_find_hw_meterid_by_upid(9);
	EXPECT_EQ(MeterOf(udp), now);
	EXPECT_EQ(MeterOf(udp, TX), now);
	EXPECT_EQ(Record(RX, now).profile_id, HwProfile(6));
	EXPECT_EQ(Record(TX, now).profile_id, HwProfile(6));
}

TEST_F(FlowPort, AMeterThatTheP4TableTookAwayStaysAwayWhateverIsRefusedAfterwards)
{
	rte_mtr_error mtr_error;

	CreateMeter(9, RECEIVE);
	ASSERT_NE(Create(UdpRule().Meter(9)), nullptr);
	ASSERT_NE(MeterOf(udp), 0u);
	ASSERT_EQ(rte_pmd_net_vask1_instance_del(9), 0);
	EXPECT_EQ(MeterOf(udp), 0u);
	EXPECT_NE(rte_mtr_meter_profile_update(port_id, 9, 6, &mtr_error), 0);
	EXPECT_EQ(MeterOf(udp), 0u);
	EXPECT_NE(rte_mtr_meter_enable(port_id, 9, &mtr_error), 0);
	EXPECT_EQ(MeterOf(udp), 0u);
	CreateMeter(9, RECEIVE);
	EXPECT_EQ(MeterOf(udp), vask_p4_find_hw_meterid_by_upid(9));
}

TEST_F(FlowPort, AChangedProfileReachesTheRecord)
{
	CreateMeter(9, RECEIVE);
	const uint32_t hw = vask_p4_find_hw_meterid_by_upid(9);
	rte_mtr_error mtr_error;

	ASSERT_NE(Create(UdpRule().Meter(9)), nullptr);
	ASSERT_EQ(rte_mtr_meter_profile_update(port_id, 9, 6, &mtr_error), 0);
	EXPECT_EQ(Record(RX, hw).profile_id, HwProfile(6));
	EXPECT_EQ(MeterOf(udp), hw);
}

TEST_F(FlowPort, WithoutMeterRulesThePortsMeterTakesAllPackets)
{
	CreateMeter(9, RECEIVE);
	CreateMeter(10, TRANSMIT);
	const uint32_t port_meter = vask_p4_find_hw_meterid_by_upid(9);
	const uint32_t rule_meter = vask_p4_find_hw_meterid_by_upid(10);

	EXPECT_EQ(Record(RX, port_meter).valid, 1u);
	EXPECT_EQ(MeterOf(udp), port_meter);
	EXPECT_EQ(MeterOf(udp, TX), 0u);
	/* a rule that does not meter leaves it so, for its own packets too */
	ASSERT_NE(Create(UdpRule().Count()), nullptr);
	EXPECT_EQ(MeterOf(udp), port_meter);
	EXPECT_EQ(MeterOf(tcp), port_meter);
	/* with a rule that meters, only what matches it is metered */
	rte_flow *flow = Create(Rule().Eth().Ipv4().Tcp().Meter(10));
	EXPECT_EQ(MeterOf(tcp), rule_meter);
	EXPECT_EQ(MeterOf(udp), 0u);
	Destroy(flow);
	EXPECT_EQ(MeterOf(tcp), port_meter);
}

TEST_F(FlowPort, MetersThatShareAnIndexShareItsRecord)
{
	CreateMeter(9, RECEIVE);
	const uint32_t hw = vask_p4_find_hw_meterid_by_upid(9);
	rte_mtr_error mtr_error;
	uint32_t sharer = 0;

	ASSERT_NE(Create(UdpRule().Meter(9)), nullptr);
	/* a disabled meter gives its index back, and keeps the number */
	ASSERT_EQ(rte_mtr_meter_disable(port_id, 9, &mtr_error), 0);
	for (uint32_t id = 100; sharer == 0 && id < 4300; id++) {
		CreateMeter(id, RECEIVE, 6);
		if (vask_p4_find_hw_meterid_by_upid(id) == hw)
			sharer = id;
	}
	ASSERT_NE(sharer, 0u);
	ASSERT_NE(Create(Rule().Eth().Ipv4().Tcp().Meter(sharer)), nullptr);
	EXPECT_EQ(MeterOf(udp), 0u);
	EXPECT_EQ(MeterOf(tcp), hw);
	EXPECT_EQ(Record(RX, hw).profile_id, HwProfile(6));

	ASSERT_EQ(rte_mtr_meter_enable(port_id, 9, &mtr_error), 0);
	EXPECT_EQ(MeterOf(udp), hw);
	EXPECT_EQ(MeterOf(tcp), hw);
	EXPECT_EQ(Record(RX, hw).profile_id, HwProfile(5));

	DestroyMeter(9);
	EXPECT_EQ(MeterOf(udp), 0u);
	EXPECT_EQ(MeterOf(tcp), hw);
	EXPECT_EQ(Record(RX, hw).valid, 1u);
	EXPECT_EQ(Record(RX, hw).profile_id, HwProfile(6));
	DestroyMeter(sharer);
	EXPECT_EQ(Record(RX, hw).valid, 0u);
}

TEST_F(FlowPort, TheRecordAndItsCountersOutliveTheRule)
{
	CreateMeter(9, TRANSMIT);
	const uint32_t hw = vask_p4_find_hw_meterid_by_upid(9);

	Destroy(Create(UdpRule().Meter(9)));
	EXPECT_EQ(Record(RX, hw).valid, 1u);
	DestroyMeter(9);
	EXPECT_EQ(Record(RX, hw).valid, 0u);
}

TEST_F(FlowPort, DestroyingARuleTwiceIsRefused)
{
	rte_flow *flow = Create(UdpRule());

	ASSERT_EQ(rte_flow_destroy(port_id, flow, &error), 0);
	EXPECT_EQ(rte_flow_destroy(port_id, flow, &error), -ENOENT);
	ExpectRefused(ENOENT, RTE_FLOW_ERROR_TYPE_HANDLE, flow, "the port has no such rule");
	EXPECT_EQ(rte_flow_destroy(port_id, nullptr, &error), -ENOENT);
}

TEST_F(FlowPort, ARuleOfAnotherPortIsNotTouched)
{
	rte_flow *flow = Create(other_id, UdpRule());

	EXPECT_EQ(rte_flow_destroy(port_id, flow, &error), -ENOENT);
	EXPECT_EQ(rte_flow_destroy(other_id, flow, &error), 0);
}

TEST_F(FlowPort, FlushTakesTheRulesOfBothDirections)
{
	CreateMeter(9, TRANSMIT);
	Create(UdpRule().Meter(9));
	Create(UdpRule().Egress().Meter(9));
	Create(Rule());
	EXPECT_EQ(rte_flow_flush(port_id, &error), 0);
	EXPECT_EQ(Dump(nullptr), "");
	EXPECT_EQ(MeterOf(udp), 0u);
	EXPECT_EQ(rte_flow_flush(port_id, &error), 0);
}

TEST_F(FlowPort, CountIsQueriedAndReset)
{
	rte_flow *flow = Create(UdpRule().Count());
	const rte_flow_action count = {RTE_FLOW_ACTION_TYPE_COUNT, nullptr};
	rte_flow_query_count query = {};

	MeterOf(udp);
	MeterOf(udp);
	MeterOf(tcp);
	query.reset = 1;
	ASSERT_EQ(rte_flow_query(port_id, flow, &count, &query, &error), 0);
	EXPECT_EQ(query.hits_set, 1u);
	EXPECT_EQ(query.bytes_set, 1u);
	EXPECT_EQ(query.hits, 2u);
	EXPECT_EQ(query.bytes, 2 * udp.size());
	ASSERT_EQ(rte_flow_query(port_id, flow, &count, &query, &error), 0);
	EXPECT_EQ(query.hits, 0u);
	EXPECT_EQ(query.bytes, 0u);
}

TEST_F(FlowPort, QueriesOfAnythingElseAreRefused)
{
	rte_flow *plain = Create(UdpRule());
	const rte_flow_action count = {RTE_FLOW_ACTION_TYPE_COUNT, nullptr};
	const rte_flow_action drop = {RTE_FLOW_ACTION_TYPE_DROP, nullptr};
	rte_flow_query_count query = {};

	EXPECT_EQ(rte_flow_query(port_id, plain, &count, &query, &error), -EINVAL);
	ExpectRefused(EINVAL, RTE_FLOW_ERROR_TYPE_ACTION, &count, "the rule has no count action");
	EXPECT_EQ(rte_flow_query(port_id, plain, &drop, &query, &error), -ENOTSUP);
	ExpectRefused(ENOTSUP, RTE_FLOW_ERROR_TYPE_ACTION, &drop, "only count can be queried");

	/* a driver's own type, as DPDK has them */
	rte_flow_action other = {};
	memset(&other.type, UINT8_MAX, sizeof(other.type));
	EXPECT_EQ(rte_flow_query(port_id, plain, &other, &query, &error), -ENOTSUP);
	ExpectRefused(ENOTSUP, RTE_FLOW_ERROR_TYPE_ACTION, &other, "only count can be queried");
}

TEST_F(FlowPort, IsolatedModeIsRefusedAndLeavingItIsNot)
{
	EXPECT_EQ(rte_flow_isolate(port_id, 1, &error), -ENOTSUP);
	ExpectRefused(ENOTSUP, RTE_FLOW_ERROR_TYPE_UNSPECIFIED, nullptr,
		"isolated mode is not supported: packets that match no rule are always received");
	EXPECT_EQ(rte_flow_isolate(port_id, 0, &error), 0);
}

TEST_F(FlowPort, TheDumpIsOneLineARuleInTheWordsOfTestpmd)
{
	CreateMeter(9, TRANSMIT);
	rte_flow *flow = Create(Rule().Priority(3)
					.Eth()
					.VlanId(5)
					.Ipv4Src(0x0a000000, 0xff000000)
					.UdpDst(53)
					.Meter(9)
					.Count()
					.Queue(2));
	Create(Rule().Egress().Ipv6().Tcp().Drop());

	EXPECT_THAT(Dump(flow),
		HasSubstr(": ingress priority 3 pattern eth / vlan tci spec 0x5 tci mask 0xfff / "
			  "ipv4 src spec 10.0.0.0 src mask 255.0.0.0 / udp dst is 53 / end "
			  "actions meter mtr_id 9 (hw " +
			std::to_string(vask_p4_find_hw_meterid_by_upid(9)) +
			") / count (0 packets, 0 bytes) / queue index 2 / end\n"));
	const std::string all = Dump(nullptr);
	EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 2);
	EXPECT_THAT(all, StartsWith(Dump(flow)));
	EXPECT_THAT(all,
		HasSubstr(": egress priority 0 pattern ipv6 / tcp / end actions drop / end\n"));
}

TEST_F(FlowPort, APortMayBeClosedWithRulesAndMetersLeftBehind)
{
	CreateMeter(9, RECEIVE);
	Create(UdpRule().Meter(9));
	/* the other port's rule names a meter that goes with this port */
	rte_flow *survivor = Create(other_id, UdpRule().Count().Meter(9));

	ASSERT_EQ(rte_vdev_uninit("net_vask1_0"), 0);
	EXPECT_EQ(vask_flow_rule_meter(survivor), 0u);
	EXPECT_EQ(rte_flow_destroy(other_id, survivor, &error), 0);
	ASSERT_EQ(rte_vdev_init("net_vask1_0", "uplink=net_null0"), 0);
}

TEST_F(FlowPort, FourThousandMetersAndRulesComeAndGoOneByOne)
{
	std::vector<rte_flow *> flows;

	for (uint32_t id = 1; id <= 4095; id++)
		CreateMeter(id, TRANSMIT);
	for (uint32_t id = 1; id <= 4095; id++) {
		flows.push_back(Create(Rule().Eth().Ipv4Src(id).Meter(id)));
		ASSERT_NE(flows.back(), nullptr) << error.message;
	}
	for (uint32_t id : {1u, 2000u, 4095u})
		EXPECT_EQ(MeterOf(Eth(vask_test::Ipv4({.src = id}, vask_test::Udp(1, 2)))),
			vask_p4_find_hw_meterid_by_upid(id));
	for (rte_flow *flow : flows)
		Destroy(flow);
	for (uint32_t id = 1; id <= 4095; id++)
		DestroyMeter(id);
}

} // namespace
