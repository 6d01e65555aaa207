/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef OPERATIONS_H
#define OPERATIONS_H

/* One sound call of each lower-layer operation, by its name. */

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "card_test.h"
#include "qorn_hal_user_api.h"
#include "vask_dev_cmds.h"
#include "vask_p4_driver.h"
#include "vask_p4_meter.h"

struct Operation {
	std::string name;
	std::function<int()> call;
	bool can_fail = true; /* has a result */
};

/* In the order of softcard_operation_name(). */
inline std::vector<Operation>
Operations()
{
	static vask_p4_mep_meter_profile_table profile;
	static vask_p4_mep_meter_policy_table policy;
	static vask_p4_mep_meter_inst_table inst;
	static qorn_meter_profile_table pipeline_profile;
	static qorn_meter_table pipeline_meter;
	static qorn_input_port_table_key_tx key;
	static qorn_input_port_table_result_tx result;
	static vask_shaper_set_info shaper;
	static uint32_t index = 7;
	/* fetched once, so that the calls below are calls of one operation */
	static vask_cmd_channel *channel = vask_p4_get_global_cmd_channel();
	static VASK_P4_INDEXSTACK_MANAGER *pool, *created;

	profile = ProfileRecord({1, 2, 3, 4});
	policy = PolicyRecord({0, 1, 2}, {10, 20, 30});
	pipeline_profile = {};
	pipeline_profile.valid = 1;
	pipeline_meter = {};
	pipeline_meter.valid = 1;
	key.source_port = 5;
	result = {};
	result.metering_info0 = 9;
	shaper = {};
	shaper.sfi = 5;
	shaper.max_rate = 1000;

	if (pool == nullptr)
		vask_p4_idx_create(256, &pool);

	return {
		{"vask_p4_mep_add_meter_profile",
			[] {
				return vask_p4_mep_add_meter_profile(RX, 7, &profile);
			}},
		{"vask_p4_mep_del_meter_profile",
			[] {
				return vask_p4_mep_del_meter_profile(TX, 7);
			}},
		{"vask_p4_mep_add_meter_policy",
			[] {
				return vask_p4_mep_add_meter_policy(RX, 7, &policy);
			}},
		{"vask_p4_mep_del_meter_policy",
			[] {
				return vask_p4_mep_del_meter_policy(TX, 7);
			}},
		{"vask_p4_mep_read_meter_inst",
			[] {
				return vask_p4_mep_read_meter_inst(RX, 7, &inst);
			}},
		{"vask_p4_mep_update_meter_output_by_meterid",
			[] {
				return vask_p4_mep_update_meter_output_by_meterid(RX, 5, 7);
			}},
		{"vask_p4_mep_del_meter_output_by_meterid",
			[] {
				return vask_p4_mep_del_meter_output_by_meterid(RX, 6);
			}},
		{"vask_p4_mep_update_meter_output_by_mtu",
			[] {
				return vask_p4_mep_update_meter_output_by_mtu(5, 1500);
			}},
		{"qorn_meter_profile_update",
			[] {
				return qorn_meter_profile_update(
					channel, &index, &pipeline_profile);
			}},
		{"qorn_meter_profile_delete",
			[] {
				return qorn_meter_profile_delete(channel, index + 1);
			}},
		{"qorn_meter_table_update",
			[] {
				return qorn_meter_table_update(channel, &index, &pipeline_meter);
			}},
		{"qorn_meter_table_delete",
			[] {
				return qorn_meter_table_delete(channel, index + 1);
			}},
		{"qorn_input_port_tx_table_get",
			[] {
				return qorn_input_port_tx_table_get(channel, &key, &result);
			}},
		{"qorn_input_port_tx_table_add",
			[] {
				return qorn_input_port_tx_table_add(channel, &key, &result);
			}},
		{"vask_cmd_set_shaper",
			[] {
				return vask_cmd_set_shaper(channel, &shaper);
			}},
		{"vask_p4_isch_shaper_csr_write",
			[] {
				vask_p4_isch_shaper value = {};
				value.enable = 1;
				value.pbs = 1;
				value.rate = 108;
				return vask_p4_isch_shaper_csr_write(value);
			}},
		{"vask_p4_get_global_cmd_channel",
			[] {
				return vask_p4_get_global_cmd_channel() == nullptr ? -99 : 0;
			}},
		{"vask_p4_indexstack_create",
			[] {
				vask_p4_idx_destroy(std::exchange(created, nullptr));
				return vask_p4_indexstack_create(256, &created);
			}},
		{"vask_p4_indexstack_alloc",
			[] {
				uint32_t taken = 0;
				const int rc = vask_p4_indexstack_alloc(pool, &taken, 1);
				if (rc == 0)
					vask_p4_idx_free(pool, taken, 1);
				return rc;
			}},
		{"vask_p4_indexstack_free",
			[] {
				uint32_t taken = 0;
				vask_p4_idx_alloc(pool, &taken, 1);
				return vask_p4_indexstack_free(pool, taken, 1);
			}},
		{"vask_p4_indexstack_set",
			[] {
				return vask_p4_indexstack_set(pool, 0, 1);
			}},
		{"vask_p4_indexstack_destroy",
			[] {
				vask_p4_indexstack_destroy(std::exchange(created, nullptr));
				return 0;
			},
			false},
	};
}

#endif /* OPERATIONS_H */
