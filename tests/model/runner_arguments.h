/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef RUNNER_ARGUMENTS_H
#define RUNNER_ARGUMENTS_H

/**
 * @file
 * The arguments of steps as the module's own types, and what a step gives.
 */

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "runner_fake.h"

extern "C" {
#include <ethdev_driver.h>
#include <rte_mtr_driver.h>
}

using json = nlohmann::json;

/** What a step gives besides its events. */
struct outcome {
	std::optional<int> result;
	std::string extra = "null"; /* JSON */
	bool skipped = false;
	struct rte_mtr_error error;
};

inline uint64_t
number(const json &value)
{
	return value.is_number_unsigned() ? value.get<uint64_t>()
					  : static_cast<uint64_t>(value.get<int64_t>());
}

inline uint32_t
u32(const json &value)
{
	return static_cast<uint32_t>(number(value));
}

inline int
integer(const json &value)
{
	return static_cast<int>(static_cast<int64_t>(number(value)));
}

inline struct rte_eth_dev *
device(const json &port)
{
	int64_t id = port.get<int64_t>();
	if (id < 0) {
		return nullptr;
	}
	return reinterpret_cast<struct rte_eth_dev *>(reinterpret_cast<uintptr_t>(rte_eth_devices) +
		static_cast<uintptr_t>(id) * sizeof(struct rte_eth_dev));
}

template <typename Record>
Record
from_hex(const json &text)
{
	Record record = {};
	const auto &digits = text.get_ref<const std::string &>();
	auto *bytes = reinterpret_cast<uint8_t *>(&record);
	for (size_t n = 0; n < sizeof(record); n++) {
		bytes[n] = static_cast<uint8_t>(std::stoi(digits.substr(2 * n, 2), nullptr, 16));
	}
	return record;
}

/** A P4 row, or a null pointer. */
template <typename Record> struct row {
	explicit row(const json &text) : given(!text.is_null())
	{
		if (given) {
			record = from_hex<Record>(text);
		}
	}
	Record *get()
	{
		return given ? &record : nullptr;
	}
	bool given;
	Record record = {};
};

struct profile_argument {
	explicit profile_argument(const json &value) : given(!value.is_null())
	{
		if (given) {
			int alg = integer(value[0]);
			memcpy(&profile.alg, &alg, sizeof(alg));
			profile.packet_mode = integer(value[1]);
			uint64_t words[4];
			for (size_t n = 0; n < 4; n++) {
				words[n] = number(value[2 + n]);
			}
			memcpy(&profile.trtcm_rfc4115, words, sizeof(words));
		}
	}
	struct rte_mtr_meter_profile *get()
	{
		return given ? &profile : nullptr;
	}
	bool given;
	struct rte_mtr_meter_profile profile = {};
};

struct policy_argument {
	explicit policy_argument(const json &value) : given(!value.is_null())
	{
		for (size_t colour = 0; given && colour < RTE_COLORS; colour++) {
			if (value[colour].is_null()) {
				continue;
			}
			dscp[colour].reserve(value[colour].size());
			for (const json &action : value[colour]) {
				add(colour, action);
			}
			actions[colour].push_back({RTE_FLOW_ACTION_TYPE_END, nullptr});
			params.actions[colour] = actions[colour].data();
		}
	}
	void add(size_t colour, const json &action)
	{
		struct rte_flow_action out = {RTE_FLOW_ACTION_TYPE_VOID, nullptr};
		char kind = action[0].get_ref<const std::string &>()[0];
		if (kind == 'S' || kind == '6') {
			dscp[colour].push_back({static_cast<uint8_t>(number(action[1]))});
			out.conf = &dscp[colour].back();
		}
		if (kind == 'T') {
			int type = integer(action[1]);
			memcpy(&out.type, &type, sizeof(type));
		} else {
			out.type = kind == 'D'               ? RTE_FLOW_ACTION_TYPE_DROP
				: kind == 'S' || kind == 'N' ? RTE_FLOW_ACTION_TYPE_SET_IPV4_DSCP
				: kind == '6'                ? RTE_FLOW_ACTION_TYPE_SET_IPV6_DSCP
				: kind == 'Q'                ? RTE_FLOW_ACTION_TYPE_QUEUE
							     : RTE_FLOW_ACTION_TYPE_VOID;
		}
		actions[colour].push_back(out);
	}
	struct rte_mtr_meter_policy_params *get()
	{
		return given ? &params : nullptr;
	}
	bool given;
	std::vector<struct rte_flow_action> actions[RTE_COLORS];
	std::vector<struct rte_flow_action_set_dscp> dscp[RTE_COLORS];
	struct rte_mtr_meter_policy_params params = {};
};

struct params_argument {
	explicit params_argument(const json &value) : given(!value.is_null())
	{
		if (given) {
			params.meter_profile_id = u32(value[0]);
			params.use_prev_mtr_color = integer(value[1]);
			params.meter_enable = integer(value[2]);
			params.stats_mask = number(value[3]);
			params.meter_policy_id = u32(value[4]);
			params.direction = u32(value[5]);
		}
	}
	struct rte_mtr_params *get()
	{
		return given ? &params : nullptr;
	}
	bool given;
	struct rte_mtr_params params = {};
};

/* The node at a place of a list, modulo its length; null for an empty list. */
template <typename Head>
auto
node_at(const Head &list, const json &place)
{
	size_t length = 0;
	auto *node = list.tqh_first;
	for (; node != nullptr; node = node->next.tqe_next) {
		length++;
	}
	node = list.tqh_first;
	for (size_t n = length != 0 ? number(place) % length : 0; n > 0; n--) {
		node = node->next.tqe_next;
	}
	return node;
}

template <typename Head, typename Node>
std::string
place_of(const Head &list, const Node *wanted)
{
	int place = 0;
	for (auto *node = list.tqh_first; node != nullptr; node = node->next.tqe_next, place++) {
		if (node == wanted) {
			return std::to_string(place);
		}
	}
	return "-1";
}

/** Executes a step; the error record of `out` is prepared by the caller. */
using runner_step = void (*)(const json &a, struct outcome &out);

/** The function of a step's name; null for an unknown one. */
runner_step runner_find_step(const std::string &name);

#endif /* RUNNER_ARGUMENTS_H */
