/* SPDX-License-Identifier: BSD-3-Clause */

/*
 * The symbols that the module links against, each a thin door to the fake card.
 */

#include <algorithm>
#include <cstring>

#include <rte_log.h>

#include "fake_card.h"
#include "qorn_hal_user_api.h"
#include "vask_p4_log.h"

using namespace vask_test;

namespace
{

template <typename Record>
void
CheckZeroed(const Record *record, Op op)
{
	const std::vector<uint8_t> bytes = Bytes(*record);

	if (std::any_of(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte != 0; }))
		TheCard().violations.push_back(
			std::string(OpName(op)) + " into a record that is not zeroed");
}

int
OnChannel(const vask_cmd_channel *channel, Call call)
{
	const int rc = TheCard().Record(std::move(call));
	TheCard().CheckChannel(channel);
	return rc;
}

uint32_t
KeyOf(const qorn_input_port_table_key_tx *key)
{
	uint32_t word;
	memcpy(&word, key, sizeof(word));
	return word;
}

bool
IsUsed(const FakeCard::Pool &pool, uint32_t index)
{
	return pool.used.contains(index);
}

/* The index that the pool gives next, or its capacity when none is left. */
uint32_t
NextIndex(FakeCard::Pool &pool)
{
	if (!pool.next.empty()) {
		const uint32_t index = pool.next.front();
		pool.next.pop_front();
		if (index >= pool.capacity || IsUsed(pool, index))
			TheCard().violations.push_back("a test hands out an index that is in use");
		return index;
	}
	uint32_t index = 0;
	for (uint32_t used : pool.used) /* in rising order */
		if (used == index)
			index++;
	return index;
}

FakeCard::Pool &
LivePool(const VASK_P4_INDEXSTACK_MANAGER *manager)
{
	FakeCard::Pool &pool = TheCard().pool(manager);
	if (pool.destroyed)
		TheCard().violations.push_back("use of a pool after its end");
	return pool;
}

} // namespace

extern "C" {

RTE_LOG_REGISTER(vask_p4_logtype, pmd.net.vask1, DEBUG);

int
vask_p4_mep_add_meter_profile(
	int dir, uint32_t hw_profile_id, const struct vask_p4_mep_meter_profile_table *profile)
{
	return TheCard().Record(MepAddProfile(dir, hw_profile_id, *profile));
}

int
vask_p4_mep_del_meter_profile(int dir, uint32_t hw_profile_id)
{
	return TheCard().Record(MepDelProfile(dir, hw_profile_id));
}

int
vask_p4_mep_add_meter_policy(
	int dir, uint32_t hw_policy_id, const struct vask_p4_mep_meter_policy_table *policy)
{
	return TheCard().Record(MepAddPolicy(dir, hw_policy_id, *policy));
}

int
vask_p4_mep_del_meter_policy(int dir, uint32_t hw_policy_id)
{
	return TheCard().Record(MepDelPolicy(dir, hw_policy_id));
}

int
vask_p4_mep_read_meter_inst(
	int dir, uint32_t hw_meter_id, struct vask_p4_mep_meter_inst_table *inst)
{
	const int rc = TheCard().Record(MepReadInst(dir, hw_meter_id));

	CheckZeroed(inst, Op::MepReadInst);
	const auto entry = TheCard().instances.find({dir, hw_meter_id});
	if (rc == 0 && entry != TheCard().instances.end())
		*inst = entry->second;
	return rc;
}

int
vask_p4_mep_update_meter_output_by_meterid(int dir, uint32_t port_sfi, uint32_t hw_meter_id)
{
	return TheCard().Record(MepBindOutput(dir, port_sfi, hw_meter_id));
}

int
vask_p4_mep_del_meter_output_by_meterid(int dir, uint32_t port_sfi)
{
	return TheCard().Record(MepUnbindOutput(dir, port_sfi));
}

int
vask_p4_mep_update_meter_output_by_mtu(uint16_t port, uint16_t mtu)
{
	return TheCard().Record(MepSetMtu(port, mtu));
}

int
qorn_meter_profile_update(struct vask_cmd_channel *channel, const uint32_t *index,
	const struct qorn_meter_profile_table *entry)
{
	return OnChannel(channel, PipeProfileUpdate(*index, *entry));
}

int
qorn_meter_profile_delete(struct vask_cmd_channel *channel, uint32_t index)
{
	return OnChannel(channel, PipeProfileDelete(index));
}

int
qorn_meter_table_update(struct vask_cmd_channel *channel, const uint32_t *index,
	const struct qorn_meter_table *entry)
{
	return OnChannel(channel, PipeMeterUpdate(*index, *entry));
}

int
qorn_meter_table_delete(struct vask_cmd_channel *channel, uint32_t index)
{
	return OnChannel(channel, PipeMeterDelete(index));
}

int
qorn_input_port_tx_table_get(struct vask_cmd_channel *channel,
	const struct qorn_input_port_table_key_tx *key,
	struct qorn_input_port_table_result_tx *result)
{
	const int rc = OnChannel(channel, TxPortGet(KeyOf(key)));

	CheckZeroed(result, Op::TxPortGet);
	const auto entry = TheCard().tx_ports.find(KeyOf(key));
	if (rc == 0 && entry != TheCard().tx_ports.end())
		*result = entry->second;
	return rc;
}

int
qorn_input_port_tx_table_add(struct vask_cmd_channel *channel,
	const struct qorn_input_port_table_key_tx *key,
	const struct qorn_input_port_table_result_tx *result)
{
	const int rc = OnChannel(channel, TxPortAdd(KeyOf(key), *result));

	if (rc == 0)
		TheCard().tx_ports[KeyOf(key)] = *result;
	return rc;
}

int
vask_cmd_set_shaper(struct vask_cmd_channel *channel, const struct vask_shaper_set_info *info)
{
	return OnChannel(channel, SetShaper(*info));
}

int
vask_p4_isch_shaper_csr_write(struct vask_p4_isch_shaper value)
{
	return TheCard().Record(IschWrite(value));
}

struct vask_cmd_channel *
vask_p4_get_global_cmd_channel(void)
{
	return TheCard().FetchChannel();
}

struct vask_p4_priv_port *
vask_p4_priv_data_get(struct rte_eth_dev *dev)
{
	return TheCard().PortOf(dev);
}

int
vask_p4_indexstack_create(uint32_t capacity, VASK_P4_INDEXSTACK_MANAGER **manager)
{
	const int rc = TheCard().Record(PoolCreate(capacity));

	*manager = rc == 0 ? &TheCard().NewPool(capacity).manager : nullptr;
	return rc;
}

int
vask_p4_indexstack_alloc(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t *pindex, uint32_t count)
{
	FakeCard::Pool &pool = LivePool(manager);
	Call call = PoolAlloc(manager, 0);

	call.args[1] = count;
	int rc = TheCard().Record(call);
	if (rc != 0)
		return rc;
	const uint32_t index = NextIndex(pool);
	if (index == pool.capacity)
		return -1;
	pool.used.insert(index);
	*pindex = index;
	std::get<Call>(trace.back()).args[2] = index;
	return 0;
}

int
vask_p4_indexstack_free(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t index, uint32_t count)
{
	FakeCard::Pool &pool = LivePool(manager);
	Call call = PoolFree(manager, index);

	call.args[2] = count;
	const int rc = TheCard().Record(call);
	if (rc != 0)
		return rc;
	pool.reserved.erase(index);
	return pool.used.erase(index) == 1 ? 0 : -1;
}

int
vask_p4_indexstack_set(VASK_P4_INDEXSTACK_MANAGER *manager, uint32_t index, uint32_t count)
{
	FakeCard::Pool &pool = LivePool(manager);
	Call call = PoolSet(manager, index);

	call.args[2] = count;
	TheCard().RecordPlain(call);
	pool.used.insert(index);
	pool.reserved.insert(index);
	return 0;
}

void
vask_p4_indexstack_destroy(VASK_P4_INDEXSTACK_MANAGER *manager)
{
	TheCard().RecordPlain(PoolDestroy(manager));
	LivePool(manager).destroyed = true;
}

} /* extern "C" */
