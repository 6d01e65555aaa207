/* SPDX-License-Identifier: BSD-3-Clause */

/*
 * The token buckets against librte_meter, which rounds: it gives whole bytes at whole periods of its clock,
 * and its period is cut to whole cycles. From these two a bound follows on how far its buckets may stand
 * from exact ones. Colours may differ only for a packet whose length lies within that bound of a level;
 * after such a packet both start again from the same levels.
 */

#include <cmath>
#include <random>

#include <rte_cycles.h>

#include "card_test.h"
#include "softcard_bucket.h"

namespace
{

/* How far a bucket of librte_meter may stand from an exact one. */
struct Drift {
	double given; /* bytes it gives at one time */
	double error; /* bytes a cycle that its rate is off, at most */
	double bytes; /* the bound now */

	Drift(uint64_t rate, uint64_t period, uint64_t bytes_per_period)
		: given(bytes_per_period), error(std::abs(double(bytes_per_period) / period -
						   double(rate) / rte_get_tsc_hz())),
		  bytes(given)
	{
	}

	void Run(uint64_t cycles)
	{
		bytes += error * cycles;
	}

	/* Both buckets are full, or have just been set to the same level. */
	void Reset()
	{
		bytes = given;
	}
};

/* The three meters of librte_meter behind one face. */
struct SingleRate {
	rte_meter_srtcm_profile profile;
	rte_meter_srtcm meter;

	explicit SingleRate(const Profile &p)
	{
		rte_meter_srtcm_params params = {p.cir * 8000ul, p.cbs * 1024ul, p.ebs * 1024ul};
		EXPECT_EQ(rte_meter_srtcm_profile_config(&profile, &params), 0);
		EXPECT_EQ(rte_meter_srtcm_config(&meter, &profile), 0);
		meter.time = 0;
	}
	Drift DriftC() const
	{
		return {rate_c, profile.cir_period, profile.cir_bytes_per_period};
	}
	Drift DriftE() const
	{
		return DriftC();
	}
	rte_color Check(uint64_t cycles, uint32_t length, rte_color in)
	{
		return rte_meter_srtcm_color_aware_check(&meter, &profile, cycles, length, in);
	}
	void Set(uint64_t cycles, uint64_t c, uint64_t e)
	{
		meter = {cycles, c, e};
	}
	uint64_t rate_c = 0, rate_e = 0;
};

struct TwoRate {
	rte_meter_trtcm_profile profile;
	rte_meter_trtcm meter;

	explicit TwoRate(const Profile &p)
	{
		rte_meter_trtcm_params params = {
			p.cir * 8000ul, p.eir * 8000ul, p.cbs * 1024ul, p.ebs * 1024ul};
		EXPECT_EQ(rte_meter_trtcm_profile_config(&profile, &params), 0);
		EXPECT_EQ(rte_meter_trtcm_config(&meter, &profile), 0);
		meter.time_tc = meter.time_tp = 0;
	}
	Drift DriftC() const
	{
		return {rate_c, profile.cir_period, profile.cir_bytes_per_period};
	}
	Drift DriftE() const
	{
		return {rate_e, profile.pir_period, profile.pir_bytes_per_period};
	}
	rte_color Check(uint64_t cycles, uint32_t length, rte_color in)
	{
		return rte_meter_trtcm_color_aware_check(&meter, &profile, cycles, length, in);
	}
	void Set(uint64_t cycles, uint64_t c, uint64_t e)
	{
		meter = {cycles, cycles, c, e};
	}
	uint64_t rate_c = 0, rate_e = 0;
};

struct DualRate {
	rte_meter_trtcm_rfc4115_profile profile;
	rte_meter_trtcm_rfc4115 meter;

	explicit DualRate(const Profile &p)
	{
		rte_meter_trtcm_rfc4115_params params = {
			p.cir * 8000ul, p.eir * 8000ul, p.cbs * 1024ul, p.ebs * 1024ul};
		EXPECT_EQ(rte_meter_trtcm_rfc4115_profile_config(&profile, &params), 0);
		EXPECT_EQ(rte_meter_trtcm_rfc4115_config(&meter, &profile), 0);
		meter.time_tc = meter.time_te = 0;
	}
	Drift DriftC() const
	{
		return {rate_c, profile.cir_period, profile.cir_bytes_per_period};
	}
	Drift DriftE() const
	{
		return {rate_e, profile.eir_period, profile.eir_bytes_per_period};
	}
	rte_color Check(uint64_t cycles, uint32_t length, rte_color in)
	{
		return rte_meter_trtcm_rfc4115_color_aware_check(
			&meter, &profile, cycles, length, in);
	}
	void Set(uint64_t cycles, uint64_t c, uint64_t e)
	{
		meter = {cycles, cycles, c, e};
	}
	uint64_t rate_c = 0, rate_e = 0;
};

template <typename Meter>
void
Compare(const Profile &profile, bool aware)
{
	constexpr int PACKETS = 1000000;
	const softcard_bucket_params params = softcard_bucket_params_make(
		profile.cir, profile.cbs, profile.eir, profile.ebs, false, profile.rfc2698);
	softcard_bucket_state state = {
		softcard_bucket_full_c(params), softcard_bucket_full_e(params), 0};
	Meter meter(profile);
	meter.rate_c = profile.cir * 8000ul;
	meter.rate_e = profile.eir * 8000ul;
	Drift drift_c = meter.DriftC(), drift_e = meter.DriftE();
	const double cycles_per_ns = rte_get_tsc_hz() / 1e9;
	const double frame_ns = 800 * 125000. / profile.cir;
	std::mt19937_64 random(7);
	std::array<uint64_t, 3> seen = {};
	uint64_t now_ns = 0, cycles = 0;
	int differ = 0, doubtful = 0;

	for (int i = 0; i < PACKETS; i++) {
		/* more than the committed rate, with a rest now and then */
		const uint64_t permille = random() % (random() % 32 == 0 ? 20000 : 1200);
		now_ns += static_cast<uint64_t>(frame_ns * permille / 1000);
		const uint64_t cycles_before = cycles;
		cycles = now_ns * cycles_per_ns;
		const uint32_t length = 64 + random() % 1451;
		const auto in = aware ? static_cast<rte_color>(random() % 3) : RTE_COLOR_GREEN;

		softcard_bucket_refill(params, state, now_ns);
		if (state.level_c == softcard_bucket_full_c(params) &&
			state.level_e == softcard_bucket_full_e(params)) {
			drift_c.Reset();
			drift_e.Reset();
			meter.Set(cycles, state.level_c / 125000, state.level_e / 125000);
		} else {
			drift_c.Run(cycles - cycles_before + 1);
			drift_e.Run(cycles - cycles_before + 1);
		}
		const double margin_c = std::abs(state.level_c / 125000. - length);
		const double margin_e = std::abs(state.level_e / 125000. - length);
		const bool in_doubt =
			margin_c <= drift_c.bytes + 1 || margin_e <= drift_e.bytes + 1;

		const rte_color color = softcard_bucket_check(
			params, state, now_ns, in, softcard_bucket_cost(params, length));
		const rte_color theirs = meter.Check(cycles, length, in);
		seen[color]++;
		doubtful += in_doubt;
		if (color != theirs) {
			ASSERT_TRUE(in_doubt)
				<< "packet " << i << ": " << color << " " << theirs << " margins "
				<< margin_c << " " << margin_e << " bounds " << drift_c.bytes << " "
				<< drift_e.bytes;
			differ++;
			meter.Set(cycles, state.level_c / 125000, state.level_e / 125000);
			drift_c.Reset();
			drift_e.Reset();
		}
	}
	/* a slow clock, as on Arm, lets it round more coarsely */
	const int percent = rte_get_tsc_hz() < 1000000000 ? 2 : 1;
	EXPECT_LT(differ, PACKETS / 100 * percent);
	for (uint64_t n : seen)
		EXPECT_GT(n, static_cast<uint64_t>(PACKETS / 100));
	EXPECT_LT(doubtful, PACKETS / 20 * percent);
}

constexpr bool BLIND = false;
constexpr bool AWARE = true;

TEST(AgreementWithRteMeter, SingleRate)
{
	Compare<SingleRate>({125, 4, 0, 6}, BLIND);   /* 1 MB/s */
	Compare<SingleRate>({12500, 8, 0, 8}, AWARE); /* 100 MB/s */
}

TEST(AgreementWithRteMeter, TwoRate)
{
	Compare<TwoRate>({125, 4, 170, 6, false, true}, BLIND);
	Compare<TwoRate>({12500, 8, 17000, 8, false, true}, AWARE);
}

TEST(AgreementWithRteMeter, DifferentiatedTwoRate)
{
	Compare<DualRate>({125, 4, 40, 6}, BLIND);
	Compare<DualRate>({12500, 8, 4000, 8}, AWARE);
}

} // namespace
