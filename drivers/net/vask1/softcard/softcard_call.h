/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef SOFTCARD_CALL_H
#define SOFTCARD_CALL_H

/**
 * @file
 * What surrounds each lower-layer operation: the faults that may hit it and its line in the trace.
 */

#include <atomic>
#include <cstddef>
#include <cstdint>

#include <rte_branch_prediction.h>
#include <rte_common.h>

/** The operations, in the order of their names in softcard_operation_name(). */
enum softcard_operation {
	SOFTCARD_OP_ADD_METER_PROFILE,
	SOFTCARD_OP_DEL_METER_PROFILE,
	SOFTCARD_OP_ADD_METER_POLICY,
	SOFTCARD_OP_DEL_METER_POLICY,
	SOFTCARD_OP_READ_METER_INST,
	SOFTCARD_OP_UPDATE_OUTPUT_BY_METERID,
	SOFTCARD_OP_DEL_OUTPUT_BY_METERID,
	SOFTCARD_OP_UPDATE_OUTPUT_BY_MTU,
	SOFTCARD_OP_PIPELINE_PROFILE_UPDATE,
	SOFTCARD_OP_PIPELINE_PROFILE_DELETE,
	SOFTCARD_OP_PIPELINE_METER_UPDATE,
	SOFTCARD_OP_PIPELINE_METER_DELETE,
	SOFTCARD_OP_TX_PORT_GET,
	SOFTCARD_OP_TX_PORT_ADD,
	SOFTCARD_OP_SET_SHAPER,
	SOFTCARD_OP_ISCH_WRITE,
	SOFTCARD_OP_GET_CHANNEL,
	SOFTCARD_OP_INDEX_CREATE,
	SOFTCARD_OP_INDEX_ALLOC,
	SOFTCARD_OP_INDEX_FREE,
	SOFTCARD_OP_INDEX_SET,
	SOFTCARD_OP_INDEX_DESTROY, /* returns nothing: it can be delayed, and not fail */
	SOFTCARD_OPERATIONS
};

/** One call of an operation. */
struct softcard_call {
	enum softcard_operation op;
	bool fault; /* it fails, with rc, and must not be done */
	int rc;     /* its result */
};

/** How many faults are set, on whatever operation. */
extern std::atomic<uint32_t> softcard_faults_set;

/** Counts a call for the faults that are set on its operation and takes their delay. */
struct softcard_call softcard_fault_take(enum softcard_operation op);

/** Whether calls are traced. */
extern std::atomic<bool> softcard_trace_is_on;

/**
 * Writes a call's line into the trace.
 *
 * @param record  the record that was handed in or filled, size bytes; null for none.
 * @param fields  format of the decoded fields, blank separated.
 */
void softcard_trace_call(const struct softcard_call &call, const void *record, size_t size,
	const char *fields, ...) __attribute__((format(printf, 4, 5)));

/** softcard_call_do() where faults are set or calls traced; out of line, so that the other way stays short. */
template <typename Operate, typename Trace>
static __rte_noinline int
softcard_call_watched(enum softcard_operation op, Operate operate, Trace trace)
{
	struct softcard_call call = softcard_fault_take(op);

	if (!call.fault)
		call.rc = operate();
	if (softcard_trace_is_on.load(std::memory_order_relaxed))
		trace(call);
	return call.rc;
}

/**
 * Does a call: its operation, unless a fault hits it, and its trace.
 *
 * @param operate  does the operation and returns its result.
 * @param trace  writes the call's line by softcard_trace_call().
 * @return the operation's result, or the fault's.
 */
template <typename Operate, typename Trace>
static inline int
softcard_call_do(enum softcard_operation op, Operate operate, Trace trace)
{
	if (likely(softcard_faults_set.load(std::memory_order_acquire) == 0 &&
		    !softcard_trace_is_on.load(std::memory_order_relaxed)))
		return operate();
	return softcard_call_watched(op, operate, trace);
}

#endif /* SOFTCARD_CALL_H */
