/* SPDX-License-Identifier: BSD-3-Clause */
#include "sampler.h"

#include <gmock/gmock.h>

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Le;

static constexpr uint64_t MS = 1000000;

/* One meter whose counter tells which sample saw it. */
static std::vector<metered>
Counting(uint64_t packets)
{
	metered m = {};
	m.stats.n_pkts[0] = packets;
	return {m};
}

static std::vector<uint64_t>
Times(const std::vector<replay_sample> &samples)
{
	std::vector<uint64_t> times;
	for (const replay_sample &s : samples)
		times.push_back(s.time_ns);
	return times;
}

TEST(Sampler, TimeStartsWithTheFirstPacketAndSamplesFallOnWholeMilliseconds)
{
	sampler s;
	EXPECT_FALSE(s.due(5000));
	EXPECT_FALSE(s.due(5000 + MS - 1));
	EXPECT_TRUE(s.due(5000 + MS));
	s.take(5000 + MS, Counting(2));
	EXPECT_FALSE(s.due(5000 + MS));
	EXPECT_THAT(
		Times(s.finish(5000 + MS + 7, Counting(3))), ElementsAre(5000 + MS, 5000 + MS + 7));
}

TEST(Sampler, AGapIsFilledWithWhatStoodBeforeIt)
{
	sampler s;
	s.due(0);
	ASSERT_TRUE(s.due(3 * MS));
	s.take(3 * MS, Counting(9));
	const std::vector<replay_sample> samples = s.finish(3 * MS, Counting(10));
	EXPECT_THAT(Times(samples), ElementsAre(MS, 2 * MS, 3 * MS));
	EXPECT_EQ(samples[1].meters[0].n_pkts[0], 9U);
}

TEST(Sampler, TheIntervalDoublesBeforeThereAreTooMany)
{
	sampler s;
	uint64_t packets = 0;
	for (uint64_t ms = 0; ms <= 1000; ms++, packets++)
		if (s.due(ms * MS))
			s.take(ms * MS, Counting(packets));
	const std::vector<replay_sample> samples = s.finish(1000 * MS, Counting(packets));
	/* 1 ms up to 400 samples, then 2 ms up to 800 ms, then 4 ms: 250 samples */
	ASSERT_EQ(samples.size(), 250U);
	for (size_t i = 0; i < samples.size(); i++) {
		EXPECT_EQ(samples[i].time_ns, (i + 1) * 4 * MS);
		EXPECT_EQ(samples[i].meters[0].n_pkts[0], (i + 1) * 4)
			<< "as it stood at that moment";
	}
}

TEST(Sampler, AGapOfYearsStaysBounded)
{
	sampler s;
	s.due(0);
	constexpr uint64_t years = 100000000000000000;
	s.take(years, Counting(1));
	const std::vector<uint64_t> times = Times(s.finish(years + 1, Counting(1)));
	EXPECT_LE(times.size(), sampler::SAMPLES_MAX + 1);
	EXPECT_THAT(times, Each(Le(years + 1)));
	EXPECT_EQ(times.back(), years + 1);
}

TEST(Sampler, ACaptureOfOneInstantHasOneSample)
{
	sampler s;
	EXPECT_FALSE(s.due(7));
	EXPECT_THAT(Times(s.finish(7, Counting(1))), ElementsAre(7));
}
