/* SPDX-License-Identifier: BSD-3-Clause */
#include "watch.h"

#include <gmock/gmock.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using namespace std::chrono_literals;

static watch_row
Row(uint32_t meter, const char *side, uint64_t green, uint64_t dropped = 0)
{
	return {meter, 1, 2, "net_vask1_0", side, true, {green, 0, 0}, {}, dropped, 0, 0, 0};
}

static std::vector<uint32_t>
Meters(const std::vector<watch_row> &rows)
{
	std::vector<uint32_t> ids;
	for (const watch_row &row : rows)
		ids.push_back(row.meter);
	return ids;
}

TEST(WatchRows, AMeterHasARowForEachEngineThatKnowsIt)
{
	const auto meter = nlohmann::json::parse(R"({"meter_id": 9, "profile_id": 5, "policy_id": 7,
		"port": "net_vask1_0", "enabled": 1,
		"egress": {"green_bytes": 1, "yellow_bytes": 2, "red_bytes": 3, "dropped_packets": 4,
			"dropped_bytes": 5, "committed_bucket": 6, "excess_bucket": 7}})");
	const std::vector<watch_row> rows = watch_rows(meter);
	ASSERT_THAT(rows, SizeIs(1));
	EXPECT_EQ(rows[0].meter, 9U);
	EXPECT_EQ(rows[0].profile, 5U);
	EXPECT_EQ(rows[0].policy, 7U);
	EXPECT_EQ(rows[0].port, "net_vask1_0");
	EXPECT_EQ(rows[0].side, "tx");
	EXPECT_TRUE(rows[0].enabled);
	EXPECT_THAT(rows[0].bytes, ElementsAre(1, 2, 3));
	EXPECT_EQ(rows[0].dropped_packets, 4U);
	EXPECT_EQ(rows[0].dropped_bytes, 5U);
	EXPECT_EQ(rows[0].committed_bucket, 6U);
	EXPECT_EQ(rows[0].excess_bucket, 7U);
	EXPECT_THAT(watch_rows(nlohmann::json::parse(R"({"error": "there is no meter 9"})")),
		IsEmpty());
}

TEST(WatchRates, AreWhatWasCountedSinceTheLastLook)
{
	const auto start = std::chrono::steady_clock::now();
	watch_rates rates;
	std::vector<watch_row> rows = {Row(1, "rx", 1000), Row(1, "tx", 50)};
	rates.update(rows, start);
	EXPECT_EQ(rows[0].rates[0], 0) << "nothing is known of the time before";
	rows = {Row(1, "rx", 5000), Row(1, "tx", 10), Row(2, "rx", 7)};
	rates.update(rows, start + 2s);
	EXPECT_EQ(rows[0].rates[0], 2000);
	EXPECT_EQ(rows[1].rates[0], 0) << "counts from zero again";
	EXPECT_EQ(rows[2].rates[0], 0) << "new";
	rows = {Row(1, "rx", 5500), Row(1, "tx", 30)};
	rates.update(rows, start + 2500ms);
	EXPECT_EQ(rows[0].rates[0], 1000);
	EXPECT_EQ(rows[1].rates[0], 40);
}

TEST(WatchSelect, OrdersByIdUpwardsAndByAnythingElseDownwards)
{
	std::vector<watch_row> rows = {Row(3, "rx", 0, 5), Row(1, "rx", 0, 9), Row(2, "tx", 0, 0)};
	rows[2].rates[RTE_COLOR_RED] = 10;
	rows[0].rates[RTE_COLOR_RED] = 5;
	EXPECT_THAT(Meters(watch_select(rows, watch_order::METER, watch_filter::ALL)),
		ElementsAre(1, 2, 3));
	EXPECT_THAT(Meters(watch_select(rows, watch_order::DROPPED, watch_filter::ALL)),
		ElementsAre(1, 3, 2));
	EXPECT_THAT(Meters(watch_select(rows, watch_order::RED, watch_filter::ALL)),
		ElementsAre(2, 3, 1));
}

TEST(WatchSelect, FiltersBySideAndByDrops)
{
	const std::vector<watch_row> rows = {
		Row(1, "rx", 0, 5), Row(2, "tx", 0, 0), Row(3, "tx", 0, 1)};
	EXPECT_THAT(
		Meters(watch_select(rows, watch_order::METER, watch_filter::RX)), ElementsAre(1));
	EXPECT_THAT(Meters(watch_select(rows, watch_order::METER, watch_filter::TX)),
		ElementsAre(2, 3));
	EXPECT_THAT(Meters(watch_select(rows, watch_order::METER, watch_filter::DROPPING)),
		ElementsAre(1, 3));
}

TEST(WatchLines, ShowRatesWhenLiveAndTotalsElse)
{
	std::vector<watch_row> rows = {Row(9, "rx", 1234, 5)};
	rows[0].rates[0] = 125000;
	EXPECT_THAT(watch_lines(rows, true),
		ElementsAre(
			"     meter port           side profile policy           green          yellow             "
			"red      dropped    committed       excess",
			"         9 net_vask1_0    rx         1      2        1 Mbit/s         0 bit/s         0 "
			"bit/s            5            0            0"));
	rows[0].enabled = false;
	EXPECT_THAT(watch_lines(rows, false)[1],
		"         9 net_vask1_0    off        1      2          1234 B             0 B             0 "
		"B            5            0            0");
}
