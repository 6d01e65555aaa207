/* SPDX-License-Identifier: BSD-3-Clause */

/*
 * The token buckets against a reference that is exact and built otherwise: it keeps no level at all but the
 * tokens that each bucket has ever been given and has paid, as 128-bit counts of 1/10^9 byte (or packet),
 * and it follows the words of the RFCs one packet at a time.
 */

#include <random>

#include "card_test.h"
#include "softcard_bucket.h"

namespace
{

using Wide = unsigned __int128;

constexpr Wide NANO = 1000000000;

struct ReferenceBucket {
	Wide size, rate; /* 10^-9 units; 10^-9 units a nanosecond, so units a second */
	Wide given, paid, lost;

	Wide Held() const
	{
		return given - paid - lost;
	}

	/* Gives tokens; what the bucket cannot hold is lost and returned. */
	Wide Give(Wide tokens)
	{
		given += tokens;
		const Wide over = Held() > size ? Held() - size : 0;
		lost += over;
		return over;
	}
};

class Reference
{
      public:
	explicit Reference(const Profile &p) : profile(p)
	{
		const Wide burst_unit = p.packet_mode ? 1 : 1024;
		const Wide rate_unit = p.packet_mode ? 1 : 8000;
		c = {p.cbs * burst_unit * NANO, p.cir * rate_unit, 0, 0, 0};
		e = {p.ebs * burst_unit * NANO, p.eir * rate_unit, 0, 0, 0};
		c.given = c.size;
		e.given = e.size;
	}

	rte_color Check(uint64_t now_ns, uint32_t length, rte_color in)
	{
		if (now_ns > latest_ns) {
			const Wide elapsed = now_ns - latest_ns;
			const Wide over = c.Give(c.rate * elapsed);
			if (!profile.rfc2698 && profile.eir == 0)
				e.Give(over);
			else
				e.Give(e.rate * elapsed);
			latest_ns = now_ns;
		}
		const Wide size = (profile.packet_mode ? 1 : length) * NANO;
		return profile.rfc2698 ? TwoRate(size, in) : OneRateOrDual(size, in);
	}

	ReferenceBucket c, e;

      private:
	rte_color TwoRate(Wide size, rte_color in)
	{
		if (in == RTE_COLOR_RED || e.Held() < size)
			return RTE_COLOR_RED;
		e.paid += size;
		if (in == RTE_COLOR_YELLOW || c.Held() < size)
			return RTE_COLOR_YELLOW;
		c.paid += size;
		return RTE_COLOR_GREEN;
	}

	rte_color OneRateOrDual(Wide size, rte_color in)
	{
		if (in == RTE_COLOR_GREEN && c.Held() >= size) {
			c.paid += size;
			return RTE_COLOR_GREEN;
		}
		if ((in == RTE_COLOR_GREEN || in == RTE_COLOR_YELLOW) && e.Held() >= size) {
			e.paid += size;
			return RTE_COLOR_YELLOW;
		}
		return RTE_COLOR_RED;
	}

	Profile profile;
	uint64_t latest_ns = 0;
};

/* A number of 0 to `bits` bits: all sizes are equally likely, and 0 and all ones are not rare. */
uint32_t
Odd(std::mt19937_64 &random, unsigned bits)
{
	const unsigned n = random() % (bits + 1);
	const uint32_t mask = (uint64_t{1} << n) - 1;
	return random() % 8 == 0 ? mask : random() & mask;
}

struct Mode {
	const char *name;
	bool rfc2698, excess_rate, packet_mode, aware;
};

void
PrintTo(const Mode &mode, std::ostream *os)
{
	*os << mode.name;
}

class BucketReference : public ::testing::TestWithParam<Mode>
{
};

TEST_P(BucketReference, GivesTheSameColoursAndLevelsOnLongRandomTraces)
{
	const Mode &mode = GetParam();
	std::mt19937_64 random(20221121);
	std::array<uint64_t, 3> seen = {};

	for (int round = 0; round < 400; round++) {
		Profile profile = {Odd(random, 26), Odd(random, 20), Odd(random, 26),
			Odd(random, 20), mode.packet_mode, mode.rfc2698};
		if (!mode.rfc2698)
			profile.eir = mode.excess_rate ? profile.eir + (profile.eir == 0) : 0;
		const softcard_bucket_params params =
			softcard_bucket_params_make(profile.cir, profile.cbs, profile.eir,
				profile.ebs, profile.packet_mode, profile.rfc2698);
		softcard_bucket_state state = {
			softcard_bucket_full_c(params), softcard_bucket_full_e(params), 0};
		Reference reference(profile);
		/* parts of the buckets, in 10^-9 */
		const Wide part = mode.packet_mode ? 1 : 8000;

		/* gaps about as long as the committed rate needs for a frame, sometimes any length */
		const double frame_ns = mode.packet_mode ? 1e9 / (profile.cir + 1.)
							 : 800 * 125000 / (profile.cir + 1.);
		uint64_t now = random() % 1000;
		for (int i = 0; i < 2000; i++) {
			const auto kind = random() % 64;
			if (kind == 0)
				now += random() >> (random() % 64) >> 12;
			else if (kind == 1)
				now -= random() % (now + 1) / 1000;
			else if (kind > 20)
				now += static_cast<uint64_t>(frame_ns * (random() % 2000) / 1000);
			const uint32_t length = 1 + random() % (kind == 2 ? 2000000000 : 1600);
			const auto in =
				mode.aware ? static_cast<rte_color>(random() % 3) : RTE_COLOR_GREEN;

			const rte_color color = softcard_bucket_check(
				params, state, now, in, softcard_bucket_cost(params, length));
			ASSERT_EQ(color, reference.Check(now, length, in)) << round << " " << i;
			ASSERT_TRUE(state.level_c * part == reference.c.Held())
				<< round << " " << i;
			ASSERT_TRUE(state.level_e * part == reference.e.Held())
				<< round << " " << i;
			seen[color]++;
		}
	}
	for (uint64_t n : seen)
		EXPECT_GT(n, 10000u);
}

INSTANTIATE_TEST_SUITE_P(Modes, BucketReference,
	::testing::Values(Mode{"SingleRateBytesBlind", false, false, false, false},
		Mode{"SingleRateBytesAware", false, false, false, true},
		Mode{"SingleRatePacketsBlind", false, false, true, false},
		Mode{"SingleRatePacketsAware", false, false, true, true},
		Mode{"TwoRateBytesBlind", true, true, false, false},
		Mode{"TwoRateBytesAware", true, true, false, true},
		Mode{"TwoRatePacketsBlind", true, true, true, false},
		Mode{"TwoRatePacketsAware", true, true, true, true},
		Mode{"DifferentiatedBytesBlind", false, true, false, false},
		Mode{"DifferentiatedBytesAware", false, true, false, true},
		Mode{"DifferentiatedPacketsBlind", false, true, true, false},
		Mode{"DifferentiatedPacketsAware", false, true, true, true}),
	[](const auto &info) { return info.param.name; });

} // namespace
