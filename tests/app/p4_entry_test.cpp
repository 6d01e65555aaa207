/* SPDX-License-Identifier: BSD-3-Clause */
#include "p4_entry.h"

#include <cstring>
#include <random>

#include <gmock/gmock.h>

#include "error.h"
#include "vask_p4_meter.h"

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

static constexpr int ENTRIES = 100'000;

template <typename Entry>
static std::vector<uint8_t>
Image(const Entry &entry)
{
	std::vector<uint8_t> bytes(sizeof(entry));
	std::memcpy(bytes.data(), &entry, sizeof(entry));
	return bytes;
}

/* Random bytes: decoded and encoded they are the same, and the record of the driver holds the same fields. */
template <typename Entry, typename Values>
static void
RoundTrip(const char *table, Values values_of)
{
	const p4_layout &layout = p4_layout_by_name(table);
	std::mt19937 random(33);
	std::vector<uint8_t> bytes(sizeof(Entry));

	ASSERT_EQ(layout.size, sizeof(Entry));
	for (int i = 0; i < ENTRIES; i++) {
		for (uint8_t &b : bytes)
			b = static_cast<uint8_t>(random());
		Entry entry;
		std::memcpy(&entry, bytes.data(), sizeof(entry));
		const std::vector<uint64_t> values = p4_decode(layout, bytes);
		ASSERT_EQ(values, values_of(entry)) << table << " " << hex_of(bytes);
		ASSERT_EQ(p4_encode(layout, values), bytes) << table << " " << hex_of(bytes);
		ASSERT_EQ(bytes_of_hex(hex_of(bytes)), bytes);
	}
}

TEST(P4Entry, ProfileIsTheDriversRecordByteForByte)
{
	RoundTrip<p4_meter_profile_t>("profile", [](const p4_meter_profile_t &e) {
		return std::vector<uint64_t>{
			e.cir, e.eir, e.cbs, e.ebs, e.packet_mode, e.meter_rfc, e.rsv};
	});
}

TEST(P4Entry, PolicerIsTheDriversRecordByteForByte)
{
	RoundTrip<p4_meter_policer_t>("policer", [](const p4_meter_policer_t &e) {
		return std::vector<uint64_t>{e.red_action, e.red_dscp, e.yellow_action,
			e.yellow_dscp, e.green_action, e.green_dscp};
	});
}

TEST(P4Entry, InstanceIsTheDriversRecordByteForByte)
{
	RoundTrip<p4_meter_instance_t>("instance", [](const p4_meter_instance_t &e) {
		return std::vector<uint64_t>{e.type, e.dir, e.meter_enable, e.color_mode,
			e.origin_pkt, e.stats_mask, e.dpdk_port_id, e.profile_id, e.policer_id,
			e.rsv};
	});
}

TEST(P4Entry, NamedFieldsBecomeTheBytesOfTheDriversRecord)
{
	p4_meter_instance_t entry = {};
	entry.type = 1;
	entry.stats_mask = P4_METER_STATS_N_PKTS_DROPPED | P4_METER_STATS_N_BYTES_DROPPED;
	entry.profile_id = 0x85;
	entry.policer_id = 7;
	const uint64_t values[] = {1, 0, 0, 0, 0, 0x88, 0, 0x85, 7, 0};
	/* 0x88 << 5 is 0x1100, and type 1 below it; 0x85 is 5 at bits 29..31 and 0x10 at 32..36; 7 << 5 is
	 * 0xe0 beside that */
	EXPECT_THAT(p4_encode(p4_layout_by_name("instance"), values),
		ElementsAre(0x01, 0x11, 0x00, 0xa0, 0xf0, 0x00));
	EXPECT_EQ(p4_encode(p4_layout_by_name("instance"), values), Image(entry));
}

TEST(P4Entry, FieldsCoverEveryBitOnce)
{
	for (const p4_layout &layout : p4_layouts()) {
		unsigned int next = 0;
		for (const p4_field &f : layout.fields) {
			EXPECT_EQ(f.first_bit, next) << layout.name << "." << f.name;
			next = f.first_bit + f.width;
		}
		EXPECT_EQ(next, layout.size * 8) << layout.name;
	}
}

TEST(P4Entry, AValueThatDoesNotFitIsRefusedByName)
{
	const uint64_t values[] = {4, 0, 0, 0, 0, 0};
	try {
		p4_encode(p4_layout_by_name("policer"), values);
		FAIL() << "taken";
	} catch (const vask_meter_error &e) {
		EXPECT_STREQ(
			e.what(), "policer.red_action: 4 does not fit 2 bits; accepted is 0 to 3");
	}
}

TEST(P4Entry, AnEntryOfAnotherSizeIsRefused)
{
	const uint8_t bytes[4] = {};
	try {
		p4_decode(p4_layout_by_name("policer"), bytes);
		FAIL() << "taken";
	} catch (const vask_meter_error &e) {
		EXPECT_STREQ(e.what(),
			"4 bytes are not a policer entry; accepted are 3 bytes, 6 hexadecimal "
			"digits");
	}
}

TEST(P4Entry, HexTakesSpacesColonsAndAPrefix)
{
	EXPECT_THAT(bytes_of_hex("0x02 3A:0f"), ElementsAre(0x02, 0x3a, 0x0f));
	EXPECT_THROW(bytes_of_hex("023"), vask_meter_error);
	EXPECT_THROW(bytes_of_hex("0g"), vask_meter_error);
}

TEST(P4Entry, RemarksTellWhatTheTablesRefuseOrDoNotRead)
{
	const auto remarks = [](const char *table, const std::vector<uint64_t> &values) {
		return p4_remarks(p4_layout_by_name(table), values);
	};
	EXPECT_THAT(remarks("profile", {1000, 2000, 1, 1, 0, 1, 0}), IsEmpty());
	EXPECT_THAT(
		remarks("profile", {1000, 0, 1, 1, 0, 3, 0}), Contains(HasSubstr("add refuses")));
	EXPECT_THAT(remarks("profile", {1000, 1, 1, 1, 0, 0, 0}),
		Contains(HasSubstr("not used by RFC 2697")));
	EXPECT_THAT(remarks("profile", {1000, 999, 1, 1, 0, 1, 0}),
		Contains(HasSubstr("eir below cir")));
	EXPECT_THAT(
		remarks("policer", {2, 0, 3, 0, 0, 0}), ElementsAre(HasSubstr("yellow_action 3")));
	EXPECT_THAT(remarks("instance", {1, 0, 1, 0, 0, 0, 561, 1, 1, 0}), IsEmpty());
	EXPECT_THAT(remarks("instance", {1, 0, 1, 0, 0, 0, 562, 1, 1, 0}),
		ElementsAre(HasSubstr("dpdk_port_id 562")));
	EXPECT_THAT(remarks("instance", {0, 0, 0, 0, 0, 0, 0, 1, 1, 1}).size(), 3U);
}

TEST(P4Entry, ThePictureShowsEachByteWithItsFields)
{
	const uint64_t values[] = {1, 0, 0, 0, 0, 0x88, 0, 0x85, 7, 0};
	const std::string picture = p4_draw(p4_layout_by_name("instance"), values);
	EXPECT_THAT(picture, HasSubstr("profile_id       29..36  133 "));
	EXPECT_THAT(picture, HasSubstr("dropped packets, dropped bytes"));
	EXPECT_THAT(picture,
		HasSubstr("   0   01  0 0 0 0 0 0 0 1  stats_mask[2:0] origin_pkt color_mode "
			  "meter_enable dir type\n"));
	EXPECT_THAT(picture,
		HasSubstr("   4   f0  1 1 1 1 0 0 0 0  policer_id[2:0] profile_id[7:3]\n"));
}
