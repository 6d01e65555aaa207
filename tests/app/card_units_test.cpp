/* SPDX-License-Identifier: BSD-3-Clause */
/* The units that the program shows are those that the module programs. */
#include "card_units.h"

#include <random>

#include <gtest/gtest.h>

#include "module_test.h"
#include "vask_dev_cmds.h"
#include "vask_p4_meter_internal.h"

using CardUnits = vask_test::ModuleTest;
using enum quantity_kind;

/* Rates and bursts of every size: the edges of each field, and random ones. */
static std::vector<uint64_t>
Values()
{
	std::vector<uint64_t> values = {0, 1, 999, 1000, 1023, 1024, 7999, 8000, 11574, 11575,
		12500, 1250000, 125000000, 1250000000, 6068148148, 6068148149, 65536, 0x4000001,
		0x3ffffff, 0xfffff, 0x100000, 0xfffffff, 0x10000000, 8000ULL * 0x3ffffff,
		8000ULL * 0x4000000, 1024ULL * 0xfffff, 1024ULL * 0x100000, 536870912000 - 1,
		536870912000, UINT64_MAX};
	std::mt19937_64 random(20);
	for (int i = 0; i < 5000; i++)
		values.push_back(random() >> random() % 64);
	return values;
}

static const card_field &
Field(const std::vector<card_field> &fields, const std::string &table)
{
	for (const card_field &f : fields)
		if (table == f.table)
			return f;
	throw std::out_of_range(table);
}

TEST_F(CardUnits, EngineFieldsAreThoseThatTheModuleWrites)
{
	vask_p4_meter_profile_node node = {};
	for (const uint64_t value : Values())
		for (const bool packets : {false, true}) {
			SCOPED_TRACE(
				::testing::Message() << value << (packets ? " packets" : " bytes"));
			node.data.cir = node.data.eir = node.data.cbs = node.data.ebs = value;
			node.data.packet_mode = packets;
			ASSERT_EQ(vask_p4_meter_convert_profile(0, 1, &node), 0);
			const card_field rate =
				Field(card_fields(packets ? PACKET_RATE : RATE, value),
					"meter engine profile");
			const card_field burst =
				Field(card_fields(packets ? PACKETS : BURST, value),
					"meter engine profile");
			EXPECT_EQ(rate.holds, node.data.profile.cir);
			EXPECT_EQ(rate.holds, node.data.profile.eir);
			EXPECT_EQ(burst.holds, node.data.profile.cbs);
			EXPECT_EQ(burst.holds, node.data.profile.ebs);
			EXPECT_EQ(rate.effective, rate.holds * (packets ? 1 : 8000));
			EXPECT_EQ(burst.effective, burst.holds * (packets ? 1 : 1024));
		}
}

TEST_F(CardUnits, PipelineFieldsAreThoseThatTheModuleWrites)
{
	vask_p4_meter_profile_node node = {};
	vask_p4_meter_cfg_node meter = {};
	for (const uint64_t value : Values()) {
		SCOPED_TRACE(value);
		node.data.cir = node.data.eir = node.data.cbs = node.data.ebs = value;
		ASSERT_EQ(vask_p4_update_meter_cfg_2_pol(&node, &meter, 1), 0);
		const qorn_meter_profile_table &t = meter.data.table;
		const uint64_t rate =
			Field(card_fields(RATE, value), "pipeline meter profile").holds;
		const uint64_t burst =
			Field(card_fields(BURST, value), "pipeline meter profile").holds;
		EXPECT_EQ(rate, t.cir_l25 | uint64_t{t.cir_h3} << 25);
		EXPECT_EQ(rate, t.eir);
		EXPECT_EQ(burst, t.cbs_l1 | uint64_t{t.cbs_h19} << 1);
		EXPECT_EQ(burst, t.ebs_l13 | uint64_t{t.ebs_h7} << 13);
	}
	card.violations.clear(); /* how often the channel is fetched is another test's business */
}

TEST_F(CardUnits, ShaperFieldsAreThoseThatTheModuleWrites)
{
	for (const uint64_t value : Values())
		for (const bool packets : {false, true}) {
			SCOPED_TRACE(
				::testing::Message() << value << (packets ? " packets" : " bytes"));
			vask_shaper_set_info port = {};
			vask_p4_isch_shaper scheduler = {};
			vask_p4_meter_add_convert_shaper(1, value, packets, &port);
			vask_p4_meter_add_convert_isch_shaper(value, packets, &scheduler);
			const auto fields = card_fields(packets ? PACKET_RATE : RATE, value);
			EXPECT_EQ(Field(fields, "port shaper").holds, port.max_rate);
			EXPECT_EQ(Field(fields, "ingress-scheduler shaper").holds, scheduler.rate);
		}
}

TEST(CardUnitsOfABurst, ShapersHaveNone)
{
	EXPECT_EQ(card_fields(BURST, 65536).size(), 2U);
	EXPECT_EQ(card_fields(PACKETS, 32).size(), 2U);
	EXPECT_EQ(card_fields(RATE, 1250000).size(), 4U);
}

TEST(CardUnitsWarning, SaysWhatWrapsAndWhatIsTooSmall)
{
	const auto warning = [](quantity_kind kind, uint64_t value, const char *table) {
		return card_field_warning(Field(card_fields(kind, value), table));
	};
	EXPECT_EQ(warning(RATE, 8000, "meter engine profile"), "");
	EXPECT_EQ(warning(RATE, 7999, "meter engine profile"),
		"below the resolution: the engine holds 0");
	EXPECT_EQ(warning(RATE, 11574, "ingress-scheduler shaper"),
		"below the resolution: the shaper does not limit");
	EXPECT_EQ(warning(RATE, 11575, "ingress-scheduler shaper"), "");
	EXPECT_EQ(warning(RATE, 6068148149, "ingress-scheduler shaper"),
		"wraps: 524288 does not fit and is cut to 0");
	EXPECT_EQ(warning(RATE, 124, "port shaper"),
		"below the resolution: the shaper does not limit");
	/* 2^64 / 8: the product is 0 in 64 bits */
	EXPECT_EQ(warning(RATE, 1ULL << 61, "port shaper"),
		"wraps: 18446744073709551 does not fit and is cut to 0");
	EXPECT_EQ(warning(PACKET_RATE, 0x4000001, "meter engine profile"),
		"wraps: 67108865 does not fit and is cut to 1");
}
