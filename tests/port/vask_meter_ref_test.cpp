/* SPDX-License-Identifier: BSD-3-Clause */
/* The card's instance records behind the ports' meters. */
#include "port_test.h"

namespace vask_test
{

class MeterRecords : public PortTest
{
      protected:
	void SetUp() override
	{
		PortTest::SetUp();
		wire_ = make_wire("wire");
		ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire,clock=capture,tick=ns"), 0);
		port_ = port_of("net_vask1_0");
		ASSERT_EQ(add_profile(port_, 5, 80000, 20480, 20480), 0);
		ASSERT_EQ(add_policy(port_, 7), 0);
		ASSERT_EQ(start(port_), 0);
	}

	Wire wire_;
	uint16_t port_ = 0;
};

TEST_F(MeterRecords, IndexThatTwoMetersSharedStartsFreshForTheNextOne)
{
	ASSERT_EQ(create_meter(port_, 1, 5, 7, RECEIVE), 0);
	ASSERT_EQ(rte_mtr_meter_disable(port_, 1, &error), 0);
	/* takes the index that meter 1 gave back, and meter 1 goes on using it */
	ASSERT_EQ(create_meter(port_, 2, 5, 7, TRANSMIT), 0);
	ASSERT_EQ(rte_mtr_meter_enable(port_, 1, &error), 0);
	struct rte_flow *rule = add_meter_rule(port_, IPPROTO_UDP, 2, true);
	ASSERT_NE(rule, nullptr);

	/* 40 frames of 1000 bytes fill both bursts of 20480 bytes but for 960 */
	EXPECT_EQ(send(port_, std::vector<Frame>(60)), 60);
	EXPECT_EQ(sent(wire_).size(), 40u);
	EXPECT_EQ(stats(port_, 2).n_pkts_dropped, 20u);

	ASSERT_EQ(rte_flow_destroy(port_, rule, &flow_error), 0);
	ASSERT_EQ(rte_mtr_destroy(port_, 2, &error), 0);
	ASSERT_EQ(rte_mtr_destroy(port_, 1, &error), 0);
	ASSERT_EQ(create_meter(port_, 3, 5, 7, TRANSMIT), 0);
	EXPECT_EQ(stats(port_, 3).n_pkts_dropped, 0u);
	ASSERT_NE(add_meter_rule(port_, IPPROTO_UDP, 3, true), nullptr);
	EXPECT_EQ(send(port_, std::vector<Frame>(60)), 60);
	EXPECT_EQ(sent(wire_).size(), 40u);
	EXPECT_EQ(stats(port_, 3).n_pkts_dropped, 20u);
}

TEST_F(MeterRecords, EachPortsMeterZeroMetersItsPort)
{
	Wire second_wire = make_wire("second");
	ASSERT_EQ(probe("net_vask1_1", "uplink=net_ring_second,clock=capture,tick=ns"), 0);
	const uint16_t second = port_of("net_vask1_1");
	ASSERT_EQ(start(second), 0);

	ASSERT_EQ(create_meter(port_, 0, 5, 7, RECEIVE), 0);
	ASSERT_EQ(create_meter(second, 0, 5, 7, RECEIVE), 0);
	for (int i = 0; i < 60; i++) {
		put(wire_, {});
		put(second_wire, {});
	}
	EXPECT_EQ(receive(port_).size(), 40u);
	EXPECT_EQ(receive(second).size(), 40u);

	/* the older one goes, the other stays as it is */
	ASSERT_EQ(rte_mtr_destroy(port_, 0, &error), 0);
	for (int i = 0; i < 20; i++) {
		put(wire_, {});
		put(second_wire, {});
	}
	EXPECT_EQ(receive(port_).size(), 20u);
	EXPECT_EQ(receive(second).size(), 0u);
	EXPECT_EQ(stats(second, 0).n_pkts_dropped, 40u);
	ASSERT_EQ(rte_mtr_destroy(second, 0, &error), 0);
	put(second_wire, {});
	EXPECT_EQ(receive(second).size(), 1u);
}

} // namespace vask_test
