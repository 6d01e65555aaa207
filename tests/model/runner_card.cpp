/* SPDX-License-Identifier: BSD-3-Clause */
#include "runner_fake.h"

#include <cstring>

#include "vask_dev_cmds.h"
#include "vask_p4_common.h"

extern "C" {
#include <ethdev_driver.h>
}

static std::array<struct vask_cmd_channel, 16> channels;

/* An operation that only answers a status. */
static int
answer(const char *operation, const std::string &arguments)
{
	int code = 0;
	runner_planned(operation, &code);
	runner_record(operation + ("(" + arguments + ")=") + std::to_string(code) + runner_locks());
	return code;
}

static char
zero_or_not(const void *bytes, size_t size)
{
	const auto *at = static_cast<const uint8_t *>(bytes);
	for (size_t n = 0; n < size; n++) {
		if (at[n] != 0) {
			return 'n';
		}
	}
	return 'z';
}

static std::string
channel_name(const struct vask_cmd_channel *channel)
{
	if (channel == nullptr) {
		return "c0";
	}
	for (size_t n = 0; n < channels.size(); n++) {
		if (channel == &channels[n]) {
			return "c" + std::to_string(n + 1);
		}
	}
	return "c?";
}

extern "C" {

/* The driver and the card */

struct vask_cmd_channel *
vask_p4_get_global_cmd_channel(void)
{
	int code = 0;
	struct vask_cmd_channel *channel = &channels[fake.channels++ % channels.size()];
	if (runner_planned("vask_p4_get_global_cmd_channel", &code)) {
		channel = nullptr;
	}
	runner_record("vask_p4_get_global_cmd_channel()=" + channel_name(channel) + runner_locks());
	return channel;
}

struct vask_p4_priv_port *
vask_p4_priv_data_get(struct rte_eth_dev *dev)
{
	static struct vask_p4_priv_port priv;
	int64_t port = -1;
	if (dev != nullptr) {
		port = static_cast<int64_t>(reinterpret_cast<uintptr_t>(dev) -
			       reinterpret_cast<uintptr_t>(rte_eth_devices)) /
			static_cast<int64_t>(sizeof(struct rte_eth_dev));
	}
	int code = 0;
	auto found = fake.ports.find(port);
	bool given = found != fake.ports.end();
	if (runner_planned("vask_p4_priv_data_get", &code)) {
		given = false;
	}
	runner_record("vask_p4_priv_data_get(" + std::to_string(port) +
		")=" + (given ? std::to_string(found->second) : "-") + runner_locks());
	if (!given) {
		return nullptr;
	}
	/* every other number differs from the port's, so that reading a wrong one shows */
	priv.rep = {60001, found->second, 60002, 60003, true};
	return &priv;
}

int
vask_p4_mep_add_meter_profile(
	int dir, uint32_t hw_profile_id, const struct vask_p4_mep_meter_profile_table *profile)
{
	return answer("vask_p4_mep_add_meter_profile",
		runner_format("%d,%u,", dir, hw_profile_id) +
			runner_hex(profile, sizeof(*profile)));
}

int
vask_p4_mep_del_meter_profile(int dir, uint32_t hw_profile_id)
{
	return answer("vask_p4_mep_del_meter_profile", runner_format("%d,%u", dir, hw_profile_id));
}

int
vask_p4_mep_add_meter_policy(
	int dir, uint32_t hw_policy_id, const struct vask_p4_mep_meter_policy_table *policy)
{
	return answer("vask_p4_mep_add_meter_policy",
		runner_format("%d,%u,", dir, hw_policy_id) + runner_hex(policy, sizeof(*policy)));
}

int
vask_p4_mep_del_meter_policy(int dir, uint32_t hw_policy_id)
{
	return answer("vask_p4_mep_del_meter_policy", runner_format("%d,%u", dir, hw_policy_id));
}

int
vask_p4_mep_read_meter_inst(
	int dir, uint32_t hw_meter_id, struct vask_p4_mep_meter_inst_table *inst)
{
	int code = answer("vask_p4_mep_read_meter_inst",
		runner_format("%d,%u,%c", dir, hw_meter_id, zero_or_not(inst, sizeof(*inst))));
	if (code == 0) {
		memcpy(inst, fake.instances[dir != 0].data(), sizeof(*inst));
	}
	return code;
}

int
vask_p4_mep_update_meter_output_by_meterid(int dir, uint32_t port_sfi, uint32_t hw_meter_id)
{
	return answer("vask_p4_mep_update_meter_output_by_meterid",
		runner_format("%d,%u,%u", dir, port_sfi, hw_meter_id));
}

int
vask_p4_mep_del_meter_output_by_meterid(int dir, uint32_t port_sfi)
{
	return answer(
		"vask_p4_mep_del_meter_output_by_meterid", runner_format("%d,%u", dir, port_sfi));
}

int
vask_p4_mep_update_meter_output_by_mtu(uint16_t port, uint16_t mtu)
{
	return answer("vask_p4_mep_update_meter_output_by_mtu", runner_format("%u,%u", port, mtu));
}

int
qorn_meter_profile_update(struct vask_cmd_channel *channel, const uint32_t *index,
	const struct qorn_meter_profile_table *entry)
{
	return answer("qorn_meter_profile_update",
		channel_name(channel) + runner_format(",%u,", *index) +
			runner_hex(entry, sizeof(*entry)));
}

int
qorn_meter_profile_delete(struct vask_cmd_channel *channel, uint32_t index)
{
	return answer(
		"qorn_meter_profile_delete", channel_name(channel) + runner_format(",%u", index));
}

int
qorn_meter_table_update(struct vask_cmd_channel *channel, const uint32_t *index,
	const struct qorn_meter_table *entry)
{
	return answer("qorn_meter_table_update",
		channel_name(channel) + runner_format(",%u,", *index) +
			runner_hex(entry, sizeof(*entry)));
}

int
qorn_meter_table_delete(struct vask_cmd_channel *channel, uint32_t index)
{
	return answer(
		"qorn_meter_table_delete", channel_name(channel) + runner_format(",%u", index));
}

int
qorn_input_port_tx_table_get(struct vask_cmd_channel *channel,
	const struct qorn_input_port_table_key_tx *key,
	struct qorn_input_port_table_result_tx *result)
{
	int code = answer("qorn_input_port_tx_table_get",
		channel_name(channel) + "," + runner_hex(key, sizeof(*key)) + "," +
			zero_or_not(result, sizeof(*result)));
	if (code == 0) {
		auto found = fake.tx.find(key->source_port);
		memcpy(result,
			found != fake.tx.end() ? found->second.data() : fake.tx_default.data(),
			sizeof(*result));
	}
	return code;
}

int
qorn_input_port_tx_table_add(struct vask_cmd_channel *channel,
	const struct qorn_input_port_table_key_tx *key,
	const struct qorn_input_port_table_result_tx *result)
{
	int code = answer("qorn_input_port_tx_table_add",
		channel_name(channel) + "," + runner_hex(key, sizeof(*key)) + "," +
			runner_hex(result, sizeof(*result)));
	if (code == 0) {
		memcpy(fake.tx[key->source_port].data(), result, sizeof(*result));
	}
	return code;
}

int
vask_cmd_set_shaper(struct vask_cmd_channel *channel, const struct vask_shaper_set_info *info)
{
	return answer("vask_cmd_set_shaper",
		channel_name(channel) + "," + runner_hex(info, sizeof(*info)));
}

int
vask_p4_isch_shaper_csr_write(struct vask_p4_isch_shaper value)
{
	return answer("vask_p4_isch_shaper_csr_write", runner_hex(&value, sizeof(value)));
}
}
