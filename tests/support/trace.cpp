/* SPDX-License-Identifier: BSD-3-Clause */
#include "trace.h"

#include <array>
#include <iomanip>
#include <ostream>

#include <rte_log.h>

#include "vask_p4_log.h"

namespace vask_test
{

std::vector<Event> trace;

namespace
{

constexpr std::array OP_NAMES = {
	"vask_p4_mep_add_meter_profile",
	"vask_p4_mep_del_meter_profile",
	"vask_p4_mep_add_meter_policy",
	"vask_p4_mep_del_meter_policy",
	"vask_p4_mep_read_meter_inst",
	"vask_p4_mep_update_meter_output_by_meterid",
	"vask_p4_mep_del_meter_output_by_meterid",
	"vask_p4_mep_update_meter_output_by_mtu",
	"qorn_meter_profile_update",
	"qorn_meter_profile_delete",
	"qorn_meter_table_update",
	"qorn_meter_table_delete",
	"qorn_input_port_tx_table_get",
	"qorn_input_port_tx_table_add",
	"vask_cmd_set_shaper",
	"vask_p4_isch_shaper_csr_write",
	"vask_p4_get_global_cmd_channel",
	"vask_p4_priv_data_get",
	"vask_p4_indexstack_create",
	"vask_p4_indexstack_alloc",
	"vask_p4_indexstack_free",
	"vask_p4_indexstack_set",
	"vask_p4_indexstack_destroy",
};

static_assert(OP_NAMES.size() == static_cast<size_t>(Op::PoolDestroy) + 1);

uint64_t
Address(const void *pointer)
{
	return reinterpret_cast<uintptr_t>(pointer);
}

const char *
LevelName(uint32_t level)
{
	constexpr std::array names = {
		"0", "EMERG", "ALERT", "CRIT", "ERR", "WARNING", "NOTICE", "INFO", "DEBUG"};
	return level < names.size() ? names[level] : "?";
}

} // namespace

const char *
OpName(Op op)
{
	return OP_NAMES.at(static_cast<size_t>(op));
}

void
PrintTo(const Call &call, std::ostream *os)
{
	*os << OpName(call.op) << '(' << std::hex << std::showbase;
	const char *separator = "";
	for (uint64_t arg : call.args) {
		*os << separator << arg;
		separator = ", ";
	}
	*os << ')' << std::noshowbase;
	if (!call.record.empty()) {
		*os << " record";
		for (uint8_t byte : call.record)
			*os << ' ' << std::setw(2) << std::setfill('0')
			    << static_cast<unsigned>(byte);
	}
	*os << std::dec;
}

void
PrintTo(const LogLine &line, std::ostream *os)
{
	*os << LevelName(line.level);
	if (line.type != vask_p4_logtype)
		*os << " of log type " << line.type;
	*os << " \"";
	for (char c : line.text)
		*os << (c == '\n' ? "\\n" : c == '\t' ? "\\t" : std::string(1, c));
	*os << '"';
}

bool
operator==(const Event &event, const Call &call)
{
	const auto *held = std::get_if<Call>(&event);
	return held != nullptr && *held == call;
}

bool
operator==(const Event &event, const LogLine &line)
{
	const auto *held = std::get_if<LogLine>(&event);
	return held != nullptr && *held == line;
}

Call
MepAddProfile(int dir, uint32_t hw_profile_id, const vask_p4_mep_meter_profile_table &profile)
{
	return {Op::MepAddProfile, {static_cast<uint64_t>(dir), hw_profile_id}, Bytes(profile)};
}

Call
MepDelProfile(int dir, uint32_t hw_profile_id)
{
	return {Op::MepDelProfile, {static_cast<uint64_t>(dir), hw_profile_id}, {}};
}

Call
MepAddPolicy(int dir, uint32_t hw_policy_id, const vask_p4_mep_meter_policy_table &policy)
{
	return {Op::MepAddPolicy, {static_cast<uint64_t>(dir), hw_policy_id}, Bytes(policy)};
}

Call
MepDelPolicy(int dir, uint32_t hw_policy_id)
{
	return {Op::MepDelPolicy, {static_cast<uint64_t>(dir), hw_policy_id}, {}};
}

Call
MepReadInst(int dir, uint32_t hw_meter_id)
{
	return {Op::MepReadInst, {static_cast<uint64_t>(dir), hw_meter_id}, {}};
}

Call
MepBindOutput(int dir, uint32_t port_sfi, uint32_t hw_meter_id)
{
	return {Op::MepBindOutput, {static_cast<uint64_t>(dir), port_sfi, hw_meter_id}, {}};
}

Call
MepUnbindOutput(int dir, uint32_t port_sfi)
{
	return {Op::MepUnbindOutput, {static_cast<uint64_t>(dir), port_sfi}, {}};
}

Call
MepSetMtu(uint16_t port, uint16_t mtu)
{
	return {Op::MepSetMtu, {port, mtu}, {}};
}

Call
PipeProfileUpdate(uint32_t index, const qorn_meter_profile_table &entry)
{
	return {Op::PipeProfileUpdate, {index}, Bytes(entry)};
}

Call
PipeProfileDelete(uint32_t index)
{
	return {Op::PipeProfileDelete, {index}, {}};
}

Call
PipeMeterUpdate(uint32_t index, const qorn_meter_table &entry)
{
	return {Op::PipeMeterUpdate, {index}, Bytes(entry)};
}

Call
PipeMeterDelete(uint32_t index)
{
	return {Op::PipeMeterDelete, {index}, {}};
}

/* Keys are given whole: a test that asks for a source port also asserts that the reserved bits are 0. */
Call
TxPortGet(uint32_t source_port)
{
	return {Op::TxPortGet, {source_port}, {}};
}

Call
TxPortAdd(uint32_t source_port, const qorn_input_port_table_result_tx &result)
{
	return {Op::TxPortAdd, {source_port}, Bytes(result)};
}

Call
SetShaper(const vask_shaper_set_info &info)
{
	return {Op::SetShaper, {}, Bytes(info)};
}

Call
IschWrite(const vask_p4_isch_shaper &value)
{
	return {Op::IschWrite, {}, Bytes(value)};
}

Call
CmdChannel()
{
	return {Op::CmdChannel, {}, {}};
}

Call
PrivDataGet(const rte_eth_dev *dev)
{
	return {Op::PrivDataGet, {Address(dev)}, {}};
}

Call
PoolCreate(uint32_t capacity)
{
	return {Op::PoolCreate, {capacity}, {}};
}

Call
PoolAlloc(const VASK_P4_INDEXSTACK_MANAGER *pool, uint32_t index)
{
	return {Op::PoolAlloc, {Address(pool), 1, index}, {}};
}

Call
PoolFree(const VASK_P4_INDEXSTACK_MANAGER *pool, uint32_t index)
{
	return {Op::PoolFree, {Address(pool), index, 1}, {}};
}

Call
PoolSet(const VASK_P4_INDEXSTACK_MANAGER *pool, uint32_t index)
{
	return {Op::PoolSet, {Address(pool), index, 1}, {}};
}

Call
PoolDestroy(const VASK_P4_INDEXSTACK_MANAGER *pool)
{
	return {Op::PoolDestroy, {Address(pool)}, {}};
}

LogLine
Line(uint32_t level, std::string text)
{
	return {level, vask_p4_logtype, std::move(text)};
}

} // namespace vask_test
