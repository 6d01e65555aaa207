/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef SOFTCARD_CALL_H
#define SOFTCARD_CALL_H

/**
 * @file
 * What surrounds each lower-layer operation: the faults that may hit it and its line in the trace.
 */

#include <cstddef>
#include <cstdint>

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

/** Begins a call: counts it for the faults that are set on it and takes their delay. */
struct softcard_call softcard_call_begin(enum softcard_operation op);

/** Whether calls are traced: to be asked before fields are decoded. */
bool softcard_trace_on();

/**
 * Writes a call's line into the trace.
 *
 * @param record  the record that was handed in or filled, size bytes; null for none.
 * @param fields  format of the decoded fields, blank separated.
 */
void softcard_trace_call(const struct softcard_call &call, const void *record, size_t size,
	const char *fields, ...) __attribute__((format(printf, 4, 5)));

#endif /* SOFTCARD_CALL_H */
