/* SPDX-License-Identifier: BSD-3-Clause */
#include "runner_fake.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "vask_dev_cmds.h"
#include "vask_p4_common.h"
#include "vask_p4_log.h"

extern "C" {
#include <ethdev_driver.h>

void *__real_calloc(size_t count, size_t size);
void __real_free(void *address);
void *__wrap_calloc(size_t count, size_t size);
void __wrap_free(void *address);

struct vask_p4_meter_profile_list_head vask_p4_meter_profile_list;
struct vask_p4_meter_policy_list_head vask_p4_meter_policy_list;
struct vask_p4_meter_list_head vask_p4_meter_list;
int vask_p4_logtype = 77;
}

struct runner_fake fake;

static std::array<struct vask_cmd_channel, 16> channels;

/* Events */

static bool
locked(const runner_block &block)
{
	switch (block.kind) {
	case 'P':
		return static_cast<vask_p4_meter_profile_node *>(block.address)->data.sl.locked;
	case 'Q':
		return static_cast<vask_p4_meter_policy_node *>(block.address)->data.sl.locked;
	case 'M':
		return static_cast<vask_p4_meter_cfg_node *>(block.address)->data.sl.locked;
	default:
		return false;
	}
}

static std::string
locks()
{
	std::string letters;
	for (char kind : {'P', 'Q', 'M'}) {
		for (const runner_block &block : fake.live) {
			if (block.kind == kind && locked(block)) {
				letters += kind;
			}
		}
	}
	return letters.empty() ? letters : "@" + letters;
}

static void
record(const std::string &event)
{
	if (!fake.events.empty()) {
		fake.events += ',';
	}
	fake.events += runner_quoted(event);
}

__attribute__((format(printf, 1, 2))) static std::string
format(const char *text, ...)
{
	char buffer[512];
	va_list arguments;
	va_start(arguments, text);
	vsnprintf(buffer, sizeof(buffer), text, arguments);
	va_end(arguments);
	return buffer;
}

static bool
planned(const char *operation, int *code)
{
	auto found = fake.faults.find({operation, ++fake.calls[operation]});
	if (found == fake.faults.end()) {
		return false;
	}
	*code = found->second;
	return true;
}

/* An operation that only answers a status. */
static int
answer(const char *operation, const std::string &arguments)
{
	int code = 0;
	planned(operation, &code);
	record(operation + ("(" + arguments + ")=") + std::to_string(code) + locks());
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

static std::string
manager_name(const VASK_P4_INDEXSTACK_MANAGER *manager)
{
	const runner_pool *pool = runner_pool_of(manager);
	return pool != nullptr ? std::to_string(pool->number) : manager == nullptr ? "0" : "?";
}

/* DPDK's log and the C library's allocations */

extern "C" {

int
rte_log(uint32_t level, uint32_t logtype, const char *text, ...)
{
	if (!fake.recording) {
		return 0;
	}
	char buffer[1024];
	va_list arguments;
	va_start(arguments, text);
	vsnprintf(buffer, sizeof(buffer), text, arguments);
	va_end(arguments);
	std::string line = buffer;
	size_t at = line.find("priv: 0x");
	if (at != std::string::npos) {
		size_t end = line.find_first_not_of("0123456789abcdef", at + 8);
		line.replace(at + 6, end - at - 6, "*");
	}
	if (logtype != static_cast<uint32_t>(vask_p4_logtype)) {
		level += 100;
	}
	record("L" + std::to_string(level) + locks() + "|" + line);
	return 0;
}

void *
__wrap_calloc(size_t count, size_t size)
{
	if (!fake.recording) {
		return __real_calloc(count, size);
	}
	size_t bytes = count * size;
	char kind = bytes == sizeof(vask_p4_meter_profile_node) ? 'P'
		: bytes == sizeof(vask_p4_meter_policy_node)    ? 'Q'
		: bytes == sizeof(vask_p4_meter_cfg_node)       ? 'M'
								: '?';
	int code = 0;
	void *address = planned("calloc", &code) ? nullptr : __real_calloc(count, size);
	record(format("calloc(%c)=%d", kind, address != nullptr) + locks());
	if (address != nullptr) {
		fake.live.push_back({address, kind});
	}
	return address;
}

void
__wrap_free(void *address)
{
	if (fake.recording && address != nullptr) {
		for (size_t n = 0; n < fake.live.size(); n++) {
			if (fake.live[n].address == address) {
				fake.live.erase(fake.live.begin() + static_cast<long>(n));
				__real_free(address);
				return;
			}
		}
		fake.bad_frees++;
		return;
	}
	__real_free(address);
}

/* The pools */

int
vask_p4_indexstack_create(uint32_t capacity, VASK_P4_INDEXSTACK_MANAGER **manager)
{
	int code = 0;
	if (planned("vask_p4_indexstack_create", &code)) {
		*manager = nullptr;
	} else {
		unsigned int number = static_cast<unsigned int>(fake.pools.size()) + 1;
		fake.pools.push_back({{}, std::vector<uint8_t>(capacity), false, number});
		*manager = &fake.pools.back().manager;
	}
	record(format("vask_p4_indexstack_create(%u)=%d:%s", capacity, code,
		       manager_name(*manager).c_str()) +
		locks());
	return code;
}

int
vask_p4_indexstack_alloc(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t *pindex, uint32_t count)
{
	int code = 0;
	std::string shown = "-";
	if (!planned("vask_p4_indexstack_alloc", &code)) {
		runner_pool *pool = runner_pool_of(manager);
		code = pool == nullptr || pool->dead ? -77 : -28;
		for (uint32_t index = 0; code == -28 && index < pool->used.size(); index++) {
			if (pool->used[index] == 0) {
				pool->used[index] = 1;
				*pindex = index;
				shown = std::to_string(index);
				code = 0;
			}
		}
	}
	record(format("vask_p4_indexstack_alloc(%s,%u)=%d:", manager_name(manager).c_str(), count,
		       code) +
		shown + locks());
	return code;
}

int
vask_p4_indexstack_free(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t index, uint32_t count)
{
	int code = 0;
	if (!planned("vask_p4_indexstack_free", &code)) {
		runner_pool *pool = runner_pool_of(manager);
		if (pool == nullptr || pool->dead) {
			code = -77;
		} else if (index >= pool->used.size() || pool->used[index] == 0) {
			code = -22;
		} else {
			pool->used[index] = 0;
		}
	}
	record(format("vask_p4_indexstack_free(%s,%u,%u)=%d", manager_name(manager).c_str(), index,
		       count, code) +
		locks());
	return code;
}

int
vask_p4_indexstack_set(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t index, uint32_t count)
{
	record(format("vask_p4_indexstack_set(%s,%u,%u)=", manager_name(manager).c_str(), index,
		       count) +
		locks());
	runner_pool *pool = runner_pool_of(manager);
	if (pool != nullptr && !pool->dead && index < pool->used.size()) {
		pool->used[index] = 1;
	}
	return 0;
}

void
vask_p4_indexstack_destroy(VASK_P4_INDEXSTACK_MANAGER *manager)
{
	record("vask_p4_indexstack_destroy(" + manager_name(manager) + ")=" + locks());
	runner_pool *pool = runner_pool_of(manager);
	if (pool != nullptr) {
		pool->dead = true;
	}
}

/* The driver and the card */

struct vask_cmd_channel *
vask_p4_get_global_cmd_channel(void)
{
	int code = 0;
	struct vask_cmd_channel *channel = &channels[fake.channels++ % channels.size()];
	if (planned("vask_p4_get_global_cmd_channel", &code)) {
		channel = nullptr;
	}
	record("vask_p4_get_global_cmd_channel()=" + channel_name(channel) + locks());
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
	if (planned("vask_p4_priv_data_get", &code)) {
		given = false;
	}
	record("vask_p4_priv_data_get(" + std::to_string(port) +
		")=" + (given ? std::to_string(found->second) : "-") + locks());
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
		format("%d,%u,", dir, hw_profile_id) + runner_hex(profile, sizeof(*profile)));
}

int
vask_p4_mep_del_meter_profile(int dir, uint32_t hw_profile_id)
{
	return answer("vask_p4_mep_del_meter_profile", format("%d,%u", dir, hw_profile_id));
}

int
vask_p4_mep_add_meter_policy(
	int dir, uint32_t hw_policy_id, const struct vask_p4_mep_meter_policy_table *policy)
{
	return answer("vask_p4_mep_add_meter_policy",
		format("%d,%u,", dir, hw_policy_id) + runner_hex(policy, sizeof(*policy)));
}

int
vask_p4_mep_del_meter_policy(int dir, uint32_t hw_policy_id)
{
	return answer("vask_p4_mep_del_meter_policy", format("%d,%u", dir, hw_policy_id));
}

int
vask_p4_mep_read_meter_inst(
	int dir, uint32_t hw_meter_id, struct vask_p4_mep_meter_inst_table *inst)
{
	int code = answer("vask_p4_mep_read_meter_inst",
		format("%d,%u,%c", dir, hw_meter_id, zero_or_not(inst, sizeof(*inst))));
	if (code == 0) {
		memcpy(inst, fake.instances[dir != 0].data(), sizeof(*inst));
	}
	return code;
}

int
vask_p4_mep_update_meter_output_by_meterid(int dir, uint32_t port_sfi, uint32_t hw_meter_id)
{
	return answer("vask_p4_mep_update_meter_output_by_meterid",
		format("%d,%u,%u", dir, port_sfi, hw_meter_id));
}

int
vask_p4_mep_del_meter_output_by_meterid(int dir, uint32_t port_sfi)
{
	return answer("vask_p4_mep_del_meter_output_by_meterid", format("%d,%u", dir, port_sfi));
}

int
vask_p4_mep_update_meter_output_by_mtu(uint16_t port, uint16_t mtu)
{
	return answer("vask_p4_mep_update_meter_output_by_mtu", format("%u,%u", port, mtu));
}

int
qorn_meter_profile_update(struct vask_cmd_channel *channel, const uint32_t *index,
	const struct qorn_meter_profile_table *entry)
{
	return answer("qorn_meter_profile_update",
		channel_name(channel) + format(",%u,", *index) + runner_hex(entry, sizeof(*entry)));
}

int
qorn_meter_profile_delete(struct vask_cmd_channel *channel, uint32_t index)
{
	return answer("qorn_meter_profile_delete", channel_name(channel) + format(",%u", index));
}

int
qorn_meter_table_update(struct vask_cmd_channel *channel, const uint32_t *index,
	const struct qorn_meter_table *entry)
{
	return answer("qorn_meter_table_update",
		channel_name(channel) + format(",%u,", *index) + runner_hex(entry, sizeof(*entry)));
}

int
qorn_meter_table_delete(struct vask_cmd_channel *channel, uint32_t index)
{
	return answer("qorn_meter_table_delete", channel_name(channel) + format(",%u", index));
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
