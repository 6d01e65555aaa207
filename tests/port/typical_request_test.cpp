/* SPDX-License-Identifier: BSD-3-Clause */
/* The life of profile 5, policy 7 and receive meter 9 through rte_mtr, on packets. */
#include "port_test.h"

namespace vask_test
{

class TypicalRequest : public PortTest
{
      protected:
	void SetUp() override
	{
		PortTest::SetUp();
		wire_ = make_wire("wire");
		ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire,clock=capture,tick=ns"), 0);
		port_ = port_of("net_vask1_0");
		/* 10 and 20 of the card's units: nothing is rounded */
		ASSERT_EQ(add_profile(port_, 5, 80000, 20480, 20480), 0);
		ASSERT_EQ(add_policy(port_, 7), 0);
		ASSERT_EQ(create_meter(port_, 9, 5, 7, RECEIVE), 0);
	}

	void destroy_everything()
	{
		EXPECT_EQ(rte_mtr_destroy(port_, 9, &error), 0);
		EXPECT_EQ(rte_mtr_meter_policy_delete(port_, 7, &error), 0);
		EXPECT_EQ(rte_mtr_meter_profile_delete(port_, 5, &error), 0);
	}

	Wire wire_;
	uint16_t port_ = 0;
};

TEST_F(TypicalRequest, WithoutARuleAllPacketsAreMeteredAndDropsAreCountedAndRead)
{
	ASSERT_EQ(start(port_), 0);
	for (int i = 0; i < 100; i++)
		put(wire_, {.length = 1000, .protocol = i % 2 ? IPPROTO_UDP : IPPROTO_TCP});

	/* both buckets hold 20480 bytes: 20 packets green, 20 yellow, 60 red */
	EXPECT_EQ(receive(port_).size(), 40u);
	EXPECT_EQ(stats(port_, 9).n_pkts_dropped, 60u);
	EXPECT_EQ(stats(port_, 9).n_bytes_dropped, 60000u);
	EXPECT_EQ(xstat(port_, "rx_meter_dropped_packets"), 60u);
	EXPECT_EQ(xstat(port_, "rx_meter_dropped_bytes"), 60000u);

	EXPECT_EQ(rte_mtr_meter_profile_delete(port_, 5, &error), -EBUSY);
	EXPECT_STREQ(error.message, "meter profile reference not 0!");
	destroy_everything();
}

TEST_F(TypicalRequest, TokensGrowWithTheTimeOfTheCapture)
{
	ASSERT_EQ(start(port_), 0);
	for (int i = 0; i < 50; i++)
		put(wire_, {.length = 1000, .time_ns = 1000000000});
	EXPECT_EQ(receive(port_).size(), 40u);

	/* 480 bytes were left in each; 80000 bytes/s for 24 ms are 1920 more in the first: 2400 */
	for (int i = 0; i < 5; i++)
		put(wire_, {.length = 1000, .time_ns = 1024000000});
	EXPECT_EQ(receive(port_).size(), 2u);
	EXPECT_EQ(stats(port_, 9).n_pkts_dropped, 13u);
	destroy_everything();
}

TEST_F(TypicalRequest, WithARuleOnUdpOnlyUdpCounts)
{
	struct rte_flow *rule = add_meter_rule(port_, IPPROTO_UDP, 9);

	ASSERT_NE(rule, nullptr) << flow_error.message;
	ASSERT_EQ(start(port_), 0);
	for (int i = 0; i < 100; i++)
		put(wire_, {.length = 1000, .protocol = i % 2 ? IPPROTO_UDP : IPPROTO_TCP});

	/* of the 50 UDP packets 40 pass, and none of the TCP packets is lost */
	EXPECT_EQ(receive(port_).size(), 90u);
	EXPECT_EQ(stats(port_, 9).n_pkts_dropped, 10u);
	EXPECT_EQ(stats(port_, 9).n_bytes_dropped, 10000u);
	EXPECT_EQ(rte_flow_destroy(port_, rule, &flow_error), 0);
	destroy_everything();
}

TEST_F(TypicalRequest, AfterDestructionPacketsPassUnmetered)
{
	ASSERT_EQ(start(port_), 0);
	destroy_everything();
	for (int i = 0; i < 100; i++)
		put(wire_, {.length = 1000});
	EXPECT_EQ(receive(port_).size(), 100u);
	EXPECT_EQ(xstat(port_, "rx_meter_dropped_packets"), 0u);
}

TEST_F(TypicalRequest, DisabledMeterMetersNothingAndAnEnabledOneOnlyByItsRule)
{
	struct rte_flow *rule = add_meter_rule(port_, IPPROTO_UDP, 9);

	ASSERT_NE(rule, nullptr);
	ASSERT_EQ(start(port_), 0);
	ASSERT_EQ(rte_mtr_meter_disable(port_, 9, &error), 0);
	for (int i = 0; i < 50; i++)
		put(wire_, {.length = 1000});
	EXPECT_EQ(receive(port_).size(), 50u);

	ASSERT_EQ(rte_mtr_meter_enable(port_, 9, &error), 0);
	for (int i = 0; i < 50; i++)
		put(wire_, {.length = 1000});
	EXPECT_EQ(receive(port_).size(), 40u);

	/* without the rule nothing leads to it: the binding went when it was disabled */
	ASSERT_EQ(rte_flow_destroy(port_, rule, &flow_error), 0);
	for (int i = 0; i < 50; i++)
		put(wire_, {.length = 1000});
	EXPECT_EQ(receive(port_).size(), 50u);
	destroy_everything();
}

} // namespace vask_test
