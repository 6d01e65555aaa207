/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef SOFTCARD_BUCKET_TRACE_H
#define SOFTCARD_BUCKET_TRACE_H

/* Traces of packets through the buckets of one profile, with what is expected after each. */

#include <cmath>
#include <iterator>

#include <gtest/gtest.h>

#include "profile.h"
#include "softcard_bucket.h"

constexpr uint64_t US = 1000;
constexpr uint64_t S = 1000000000;

constexpr auto G = RTE_COLOR_GREEN;
constexpr auto Y = RTE_COLOR_YELLOW;
constexpr auto R = RTE_COLOR_RED;

struct Step {
	uint64_t ns;
	uint32_t length; /* 0: no more steps */
	enum rte_color in, out;
	double level_c, level_e; /* bytes or packets, exact to the bucket's unit */
};

struct Trace {
	const char *name;
	Profile profile;
	Step steps[8];
};

inline std::string
TraceName(const ::testing::TestParamInfo<Trace> &info)
{
	return info.param.name;
}

inline void
PrintTo(const Trace &trace, std::ostream *out)
{
	*out << trace.name;
}

class BucketTrace : public ::testing::TestWithParam<Trace>
{
};

TEST_P(BucketTrace, GivesTheColoursAndLevelsWorkedOutByHand)
{
	const Profile &p = GetParam().profile;
	const softcard_bucket_params params =
		softcard_bucket_params_make(p.cir, p.cbs, p.eir, p.ebs, p.packet_mode, p.rfc2698);
	const double unit = p.packet_mode ? 1e9 : 125000;
	softcard_bucket_state state = {
		softcard_bucket_full_c(params), softcard_bucket_full_e(params), 0};

	for (size_t i = 0; i < std::size(GetParam().steps) && GetParam().steps[i].length != 0;
		i++) {
		const Step &step = GetParam().steps[i];
		SCOPED_TRACE("step " + std::to_string(i));

		EXPECT_EQ(softcard_bucket_check(params, state, step.ns, step.in,
				  softcard_bucket_cost(params, step.length)),
			step.out);
		EXPECT_EQ(state.level_c, static_cast<uint64_t>(std::llround(step.level_c * unit)));
		EXPECT_EQ(state.level_e, static_cast<uint64_t>(std::llround(step.level_e * unit)));
	}
}

#endif /* SOFTCARD_BUCKET_TRACE_H */
