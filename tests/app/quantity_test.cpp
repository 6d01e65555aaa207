/* SPDX-License-Identifier: BSD-3-Clause */
#include "quantity.h"

#include <gmock/gmock.h>

#include "error.h"

using enum quantity_kind;
using ::testing::HasSubstr;

static void
ExpectQuantity(const std::string &text, quantity_kind kind, uint64_t value, bool cut)
{
	SCOPED_TRACE(text);
	const quantity q = quantity_parse(text);
	EXPECT_EQ(q.kind, kind);
	EXPECT_EQ(q.value, value);
	EXPECT_EQ(q.cut, cut);
}

static std::string
Refusal(const std::string &text)
{
	try {
		quantity_parse(text);
	} catch (const vask_meter_error &e) {
		EXPECT_EQ(e.exit_code, VASK_METER_REFUSED);
		return e.what();
	}
	return "not refused";
}

TEST(QuantityParse, RatesAreBytesPerSecondWhateverUnitNamesThem)
{
	ExpectQuantity("10Mbit/s", RATE, 10'000'000 / 8, false);
	ExpectQuantity("1.25MB/s", RATE, 1'250'000, false);
	ExpectQuantity("1Gbit/s", RATE, 125'000'000, false);
	ExpectQuantity("64 kbit/s", RATE, 8000, false);
	ExpectQuantity("8bit/s", RATE, 1, false);
	ExpectQuantity("7B/s", RATE, 7, false);
	ExpectQuantity("3kB/s", RATE, 3000, false);
	ExpectQuantity("2GB/s", RATE, 2'000'000'000, false);
	ExpectQuantity("1KiB/s", RATE, 1024, false);
	ExpectQuantity("1MiB/s", RATE, 1'048'576, false);
	ExpectQuantity("1GiB/s", RATE, 1'073'741'824, false);
}

TEST(QuantityParse, BurstsAreBytes)
{
	ExpectQuantity("1500B", BURST, 1500, false);
	ExpectQuantity("64KiB", BURST, 65536, false);
	ExpectQuantity("64kB", BURST, 64000, false);
	ExpectQuantity("1.5MiB", BURST, 1'572'864, false);
	ExpectQuantity("2MB", BURST, 2'000'000, false);
	ExpectQuantity("1GB", BURST, 1'000'000'000, false);
	ExpectQuantity("1GiB", BURST, 1'073'741'824, false);
}

TEST(QuantityParse, PacketsAndPacketRatesAreTheirOwnKinds)
{
	ExpectQuantity("5000pps", PACKET_RATE, 5000, false);
	ExpectQuantity("1.5kpps", PACKET_RATE, 1500, false);
	ExpectQuantity("14.88Mpps", PACKET_RATE, 14'880'000, false);
	ExpectQuantity("32packets", PACKETS, 32, false);
	ExpectQuantity("1 packet", PACKETS, 1, false);
}

TEST(QuantityParse, AFractionBelowTheUnitIsCutOffAndReported)
{
	ExpectQuantity("100bit/s", RATE, 12, true); /* 12.5 */
	ExpectQuantity("1.0005kB", BURST, 1000, true);
	ExpectQuantity("0.9packets", PACKETS, 0, true);
	ExpectQuantity("1.000B", BURST, 1, false);
}

TEST(QuantityParse, TheLargestValueIsTakenAndOneMoreIsRefused)
{
	ExpectQuantity("18446744073709551615B", BURST, UINT64_MAX, false);
	EXPECT_THAT(Refusal("18446744073709551616B"),
		HasSubstr("too large; accepted is at most 2^64 - 1 bytes"));
	EXPECT_THAT(Refusal("17179869184GiB"),
		HasSubstr("too large; accepted is at most 2^64 - 1 bytes")); /* 2^34 * 2^30 */
	ExpectQuantity("17179869183GiB", BURST, 17179869183ULL << 30, false);
	EXPECT_THAT(Refusal("100000000000000000000pps"),
		HasSubstr("too many digits; accepted are at most 20"));
}

TEST(QuantityParse, ARefusalNamesTheTextAndWhatIsAccepted)
{
	EXPECT_THAT(Refusal("10"), HasSubstr("\"10\" has no unit; accepted are bit/s"));
	EXPECT_THAT(Refusal("10Mbits"), HasSubstr("unknown unit \"Mbits\"; accepted are bit/s"));
	EXPECT_THAT(Refusal("10mbit/s"), HasSubstr("unknown unit \"mbit/s\""));
	EXPECT_THAT(Refusal("Mbit/s"), HasSubstr("does not start with a number"));
	EXPECT_THAT(Refusal(""), HasSubstr("does not start with a number"));
	EXPECT_THAT(Refusal("-1B"), HasSubstr("does not start with a number"));
	EXPECT_THAT(Refusal("1.B"), HasSubstr("does not start with a number"));
	EXPECT_THAT(Refusal(".B"), HasSubstr("does not start with a number"));
	EXPECT_THAT(Refusal("1.2.3B"), HasSubstr("unknown unit \".3B\""));
}

TEST(QuantityFormat, RatesAreShownInBits)
{
	EXPECT_EQ(format_rate(1'250'000), "10 Mbit/s");
	EXPECT_EQ(format_rate(1'248'000), "9.984 Mbit/s");
	EXPECT_EQ(format_rate(0), "0 bit/s");
	EXPECT_EQ(format_rate(8000), "64 kbit/s");
	EXPECT_EQ(format_rate(125'000'000), "1 Gbit/s");
}

TEST(QuantityFormat, BytesAreShownExactly)
{
	EXPECT_EQ(format_bytes(65536), "64 KiB");
	EXPECT_EQ(format_bytes(1500), "1500 B");
	EXPECT_EQ(format_bytes(0), "0 B");
	EXPECT_EQ(format_bytes(3 << 20), "3 MiB");
	EXPECT_EQ(format_bytes(1ULL << 30), "1 GiB");
}
