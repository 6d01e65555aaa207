/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * On the processor's clock a meter lets through what its profile holds. VASK_RATE_SECONDS sets how long each
 * rate is measured.
 */
#include "port_test.h"

namespace vask_test
{

constexpr uint64_t S = 1000000000;

class Rate : public PortTest, public ::testing::WithParamInterface<uint64_t>
{
      protected:
	static uint64_t duration_ns()
	{
		return S * seconds("VASK_RATE_SECONDS", 1);
	}
};

TEST_P(Rate, IsLetThroughWithinOnePercentOfWhatTheCardHolds)
{
	constexpr uint16_t BURST = 64, LENGTH = 1500;
	const uint64_t asked = GetParam() / 8;
	const uint64_t units = asked / 8000;
	const double held = static_cast<double>(units) * 8000;
	struct rte_mbuf *pkts[BURST];
	uint64_t first = 0, now = 0, passed = 0;
	Wire wire = make_wire("wire", 1, 256);

	ASSERT_EQ(probe("net_vask1_0", "uplink=net_ring_wire"), 0);
	const uint16_t port = port_of("net_vask1_0");
	/* a tenth of a second of burst, for the time in which this thread does not run */
	ASSERT_EQ(add_profile(port, 5, asked, asked / 10, 0), 0);
	ASSERT_EQ(add_policy(port, 7), 0);
	ASSERT_EQ(create_meter(port, 9, 5, 7, RECEIVE), 0);
	ASSERT_EQ(start(port), 0);

	/*
	 * From one moment at which the bucket is empty to another. A time in which this thread did not run for
	 * so long that tokens may have been lost, or a moment not known well, begins it anew.
	 */
	for (unsigned begun = 0;;) {
		uint64_t before = 0;

		while (rte_ring_count(wire.rx[0]) < BURST)
			put(wire, {.length = LENGTH});
		ASSERT_EQ(rte_eth_read_clock(port, &before), 0);
		const uint64_t last = now;
		const uint16_t got = rte_eth_rx_burst(port, 0, pkts, BURST);
		ASSERT_EQ(rte_eth_read_clock(port, &now), 0);
		rte_pktmbuf_free_bulk(pkts, got);
		passed += got * uint64_t{LENGTH};
		if (now - last > S / 20)
			first = 0;
		if (got == BURST || now - before > S / 1000)
			continue;
		if (first == 0) {
			ASSERT_LT(begun++, 100u) << "this thread is hardly ever let run";
			first = now;
			passed = 0;
		} else if (now >= first + duration_ns()) {
			break;
		}
	}
	const double rate = static_cast<double>(passed) * S / static_cast<double>(now - first);
	EXPECT_NEAR(rate, held, held / 100);
	RecordProperty("bytes_per_second", static_cast<int>(rate));
}

INSTANTIATE_TEST_SUITE_P(BitsPerSecond, Rate,
	::testing::Values(UINT64_C(10000000), UINT64_C(100000000), UINT64_C(1000000000)),
	[](const auto &info) { return std::to_string(info.param); });

} // namespace vask_test
