/* SPDX-License-Identifier: BSD-3-Clause */

/* The pipeline's tables. */

#include "softcard_internal.h"

/* Whether a table has an entry of that index and there is a record for it. */
static int
pipeline_check(const void *record, uint32_t index, uint32_t entries)
{
	if (softcard == nullptr)
		return QORN_ERR_NOT_READY;
	if (record == nullptr)
		return QORN_ERR_BAD_PTR;
	return index < entries ? QORN_OK : QORN_ERR_OUT_OF_RANGE;
}

int
softcard_pipeline_profile_write(uint32_t index, const struct qorn_meter_profile_table *entry)
{
	const int rc = pipeline_check(entry, index, SOFTCARD_PIPELINE_ENTRIES);
	if (rc != QORN_OK)
		return rc;

	softcard->pipeline.profiles[index] = *entry;
	return QORN_OK;
}

int
softcard_pipeline_meter_write(uint32_t index, const struct qorn_meter_table *entry)
{
	const int rc = pipeline_check(entry, index, SOFTCARD_PIPELINE_ENTRIES);
	if (rc != QORN_OK)
		return rc;

	softcard->pipeline.meters[index] = *entry;
	return QORN_OK;
}

int
softcard_tx_port_read(uint32_t source_port, struct qorn_input_port_table_result_tx *result)
{
	const int rc = pipeline_check(result, source_port, SOFTCARD_PORTS);
	if (rc != QORN_OK)
		return rc;

	*result = softcard->pipeline.tx_ports[source_port];
	return QORN_OK;
}

int
softcard_tx_port_write(uint32_t source_port, const struct qorn_input_port_table_result_tx *result)
{
	const int rc = pipeline_check(result, source_port, SOFTCARD_PORTS);
	if (rc != QORN_OK)
		return rc;

	softcard->pipeline.tx_ports[source_port] = *result;
	/* it has 16 bits, and may name no meter */
	softcard->ports[source_port].meter[VASK_P4_MEP_EGRESS].store(
		result->metering_info0 < SOFTCARD_METERS ? result->metering_info0 : 0,
		std::memory_order_relaxed);
	return QORN_OK;
}
