/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef RUNNER_CALLS_H
#define RUNNER_CALLS_H

/**
 * @file
 * Steps that are more than one call, and what all steps are written with.
 */

#include "runner_arguments.h"
#include "vask_dev_cmds.h"
#include "vask_p4_meter_internal.h"

/** Runs a call of the module with the fake recording. */
template <typename Call>
auto
module(Call call)
{
	fake.recording = true;
	struct stop {
		~stop()
		{
			fake.recording = false;
		}
	} stop;
	return call();
}

/** The module's operation table. */
inline const struct rte_mtr_ops *
table()
{
	const struct rte_mtr_ops *ops = nullptr;
	bool recording = fake.recording;
	fake.recording = false;
	vask_p4_dev_mtr_ops_get(device(0), &ops);
	fake.recording = recording;
	return ops;
}

#define CALL(expression) out.result = module([&] { return expression; })
#define PROFILE(value) node_at(vask_p4_meter_profile_list, value)
#define POLICY(value) node_at(vask_p4_meter_policy_list, value)
#define METER(value) node_at(vask_p4_meter_list, value)
#define NEED(node) \
	if ((node) == nullptr) { \
		out.skipped = true; \
		return; \
	}
#define ERROR_AT(place) (a[place] == 1 ? &out.error : nullptr)

/** One of the module's three pools, by its number in a step. */
inline VASK_P4_INDEXSTACK_MANAGER *
pool(const json &which)
{
	return which == 0 ? meter_index_mgr : which == 1 ? profile_index_mgr : policy_index_mgr;
}

void runner_cap(const json &a, struct outcome &out);
void runner_padd(const json &a, struct outcome &out);
void runner_qadd(const json &a, struct outcome &out);
void runner_qval(const json &a, struct outcome &out);
void runner_create(const json &a, struct outcome &out);
void runner_stats(const json &a, struct outcome &out);
void runner_ops_get(const json &a, struct outcome &out);
void runner_inst_create(const json &a, struct outcome &out);
void runner_conv_inst(const json &a, struct outcome &out);
void runner_cfg_2_pol(const json &a, struct outcome &out);
void runner_upd_2_hw(const json &a, struct outcome &out);
void runner_pconv(const json &a, struct outcome &out);
void runner_ptype(const json &a, struct outcome &out);
void runner_pcmp(const json &a, struct outcome &out);
void runner_shaper(const json &a, struct outcome &out);
void runner_isch(const json &a, struct outcome &out);
void runner_unshaper(const json &a, struct outcome &out);
void runner_idx_get(const json &a, struct outcome &out);
void runner_from_std(const json &a, struct outcome &out);
void runner_mark(const json &a, struct outcome &out, uint8_t value);
void runner_poke(const json &a, struct outcome &out);

#endif /* RUNNER_CALLS_H */
