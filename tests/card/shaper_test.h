/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef SHAPER_TEST_H
#define SHAPER_TEST_H

#include "card_test.h"
#include "softcard_shaper.h"
#include "vask_dev_cmds.h"
#include "vask_p4_meter.h"

constexpr uint64_t US = 1000;
constexpr uint64_t MS = 1000 * US;
constexpr uint64_t S = 1000 * MS;

/* A card with one queue. */
class Shaper : public CardTest
{
      protected:
	void Make(int dir, uint16_t sfi = 3, uint32_t capacity = 64)
	{
		softcard_queue_free(queue);
		queue = softcard_queue_create(dir, sfi, capacity, SOCKET_ID_ANY);
		ASSERT_NE(queue, nullptr);
	}

	/* Puts frames of those lengths in at one time. */
	uint16_t Put(uint64_t now_ns, const std::vector<uint32_t> &lengths)
	{
		std::vector<rte_mbuf *> pkts;
		for (uint32_t length : lengths)
			pkts.push_back(MakeIpv4(length));
		const std::vector<uint64_t> times(pkts.size(), now_ns);
		return softcard_queue_put(queue, pkts.data(), times.data(), pkts.size());
	}

	/* Takes out all that may leave by then and gives their times of departure. */
	std::vector<uint64_t> Get(uint64_t now_ns)
	{
		std::vector<uint64_t> releases;
		rte_mbuf *pkt;
		uint64_t release_ns;
		while (softcard_queue_get(queue, now_ns, &pkt, &release_ns, 1) == 1) {
			releases.push_back(release_ns);
			rte_pktmbuf_free(pkt);
		}
		return releases;
	}

	softcard_queue_counters Counters()
	{
		softcard_queue_counters counters;
		softcard_queue_read(queue, &counters);
		return counters;
	}

	void TearDown() override
	{
		softcard_queue_free(queue);
		CardTest::TearDown();
	}

	softcard_queue *queue = nullptr;
};

inline int
SetPortShaper(uint16_t sfi, uint32_t max_rate, uint16_t mode = 0)
{
	vask_shaper_set_info info = {};
	info.sfi = sfi;
	info.direction = 1;
	info.mode = mode;
	info.max_rate = max_rate;
	return vask_cmd_set_shaper(vask_p4_get_global_cmd_channel(), &info);
}

inline vask_p4_isch_shaper
Isch(uint32_t rate, uint32_t pbs, uint32_t mode = 0, uint32_t rate_level = 0)
{
	vask_p4_isch_shaper value = {};
	value.enable = 1;
	value.rate = rate;
	value.pbs = pbs;
	value.mode = mode;
	value.rate_level = rate_level;
	return value;
}

inline softcard_shaper_view
ViewShaper(int dir, uint16_t sfi = 3)
{
	softcard_shaper_view view;
	EXPECT_EQ(softcard_view_shaper(dir, sfi, &view), 0);
	return view;
}

#endif /* SHAPER_TEST_H */
