/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef TESTS_SUPPORT_TRACE_H
#define TESTS_SUPPORT_TRACE_H

/**
 * @file
 * What the module did, in order: the calls that it made to the layers below it and the lines that it
 * logged. Calls and lines stand in one sequence, so that a test can assert their order among each other.
 */

#include <cstdint>
#include <iosfwd>
#include <string>
#include <variant>
#include <vector>

#include <rte_log.h>

#include "qorn_hal_raw_struct.h"
#include "vask_dev_cmds.h"
#include "vask_p4_idx.h"
#include "vask_p4_mep_meter.h"
#include "vask_p4_meter.h"

namespace vask_test
{

/** The operations of the layers below the module. */
enum class Op {
	MepAddProfile,
	MepDelProfile,
	MepAddPolicy,
	MepDelPolicy,
	MepReadInst,
	MepBindOutput,
	MepUnbindOutput,
	MepSetMtu,
	PipeProfileUpdate,
	PipeProfileDelete,
	PipeMeterUpdate,
	PipeMeterDelete,
	TxPortGet,
	TxPortAdd,
	SetShaper,
	IschWrite,
	CmdChannel,
	PrivDataGet,
	PoolCreate,
	PoolAlloc,
	PoolFree,
	PoolSet,
	PoolDestroy,
};

/** The symbol behind an operation. */
const char *OpName(Op op);

/** One call: the operation, its plain arguments in order, and the bytes of the record handed in. */
struct Call {
	Op op;
	std::vector<uint64_t> args;
	std::vector<uint8_t> record;

	bool operator==(const Call &) const = default;
};

/** One log line as DPDK's log stream received it. */
struct LogLine {
	uint32_t level;
	int type;
	std::string text;

	bool operator==(const LogLine &) const = default;
};

using Event = std::variant<Call, LogLine>;

void PrintTo(const Call &call, std::ostream *os);
void PrintTo(const LogLine &line, std::ostream *os);

bool operator==(const Event &event, const Call &call);
bool operator==(const Event &event, const LogLine &line);

/** Everything since the last clear, oldest first. */
extern std::vector<Event> trace;

/** The bytes of a record as they lie in memory. */
template <typename Record>
std::vector<uint8_t>
Bytes(const Record &record)
{
	const auto *first = reinterpret_cast<const uint8_t *>(&record);
	return {first, first + sizeof(record)};
}

/**
 * @name Expected events
 * Each equals exactly one call or line: all arguments and all bytes of the record.
 * @{
 */
Call MepAddProfile(int dir, uint32_t hw_profile_id, const vask_p4_mep_meter_profile_table &profile);
Call MepDelProfile(int dir, uint32_t hw_profile_id);
Call MepAddPolicy(int dir, uint32_t hw_policy_id, const vask_p4_mep_meter_policy_table &policy);
Call MepDelPolicy(int dir, uint32_t hw_policy_id);
Call MepReadInst(int dir, uint32_t hw_meter_id);
Call MepBindOutput(int dir, uint32_t port_sfi, uint32_t hw_meter_id);
Call MepUnbindOutput(int dir, uint32_t port_sfi);
Call MepSetMtu(uint16_t port, uint16_t mtu);
Call PipeProfileUpdate(uint32_t index, const qorn_meter_profile_table &entry);
Call PipeProfileDelete(uint32_t index);
Call PipeMeterUpdate(uint32_t index, const qorn_meter_table &entry);
Call PipeMeterDelete(uint32_t index);
Call TxPortGet(uint32_t source_port);
Call TxPortAdd(uint32_t source_port, const qorn_input_port_table_result_tx &result);
Call SetShaper(const vask_shaper_set_info &info);
Call IschWrite(const vask_p4_isch_shaper &value);
Call CmdChannel();
Call PrivDataGet(const rte_eth_dev *dev);
Call PoolCreate(uint32_t capacity);
/** An allocation of one index that hands out `index`; 0 for one that is refused. */
Call PoolAlloc(const VASK_P4_INDEXSTACK_MANAGER *pool, uint32_t index);
Call PoolFree(const VASK_P4_INDEXSTACK_MANAGER *pool, uint32_t index);
Call PoolSet(const VASK_P4_INDEXSTACK_MANAGER *pool, uint32_t index);
Call PoolDestroy(const VASK_P4_INDEXSTACK_MANAGER *pool);

/** @name Levels of a line, by the names that the driver's macros use. @{ */
constexpr uint32_t ERR = RTE_LOG_ERR;
constexpr uint32_t WARNING = RTE_LOG_WARNING;
constexpr uint32_t INFO = RTE_LOG_INFO;
constexpr uint32_t DEBUG = RTE_LOG_DEBUG;
/** @} */

/** A line of the driver's log type. */
LogLine Line(uint32_t level, std::string text);
/** @} */

} // namespace vask_test

#endif /* TESTS_SUPPORT_TRACE_H */
