/* SPDX-License-Identifier: BSD-3-Clause */

#include "softcard_view.h"

#include <iterator>

#include "softcard_internal.h"

int
softcard_view_meter(int dir, uint32_t hw_meter_id, struct softcard_meter_view *view)
{
	const int rc = softcard_record_check(dir, hw_meter_id, SOFTCARD_METERS, view);
	if (rc != 0)
		return rc;

	const struct softcard_meter meter = softcard_meter_copy(dir, hw_meter_id);
	const struct softcard_count dropped = softcard_meter_dropped(meter);

	*view = {};
	softcard_meter_inst_fill(dir, hw_meter_id, meter, &view->inst);
	view->metering = (meter.flags & SOFTCARD_METER_ON) != 0;
	view->level_c = meter.state.level_c;
	view->level_e = meter.state.level_e;
	view->burst_c = softcard_bucket_full_c(meter.params);
	view->burst_e = softcard_bucket_full_e(meter.params);
	view->level_unit = SOFTCARD_LEVEL_UNIT[meter.params.packet_mode];
	view->last_ns = meter.state.last_ns;
	for (size_t color = 0; color < std::size(view->packets); color++) {
		view->packets[color] = meter.colors[color].packets;
		view->bytes[color] = meter.colors[color].bytes;
	}
	view->dropped_packets = dropped.packets;
	view->dropped_bytes = dropped.bytes;
	view->rewritten = meter.rewritten;
	view->passed_bytes_s = softcard->engines[dir].insts[hw_meter_id].rate.bytes_s;
	return 0;
}

static void
rate_sample(int dir, uint32_t hw_meter_id)
{
	const struct softcard_meter meter = softcard_meter_copy(dir, hw_meter_id);
	struct softcard_rate &rate = softcard->engines[dir].insts[hw_meter_id].rate;
	const uint64_t passed = meter.colors[RTE_COLOR_GREEN].bytes +
		meter.colors[RTE_COLOR_YELLOW].bytes + meter.colors[RTE_COLOR_RED].bytes -
		softcard_meter_dropped(meter).bytes;
	const uint64_t elapsed = meter.state.last_ns - rate.last_ns;

	/* No packet since the last sample, or the first sample of all: no time to divide by. */
	rate.bytes_s = 0;
	if (elapsed != 0 && rate.last_ns != 0)
		rate.bytes_s = static_cast<unsigned __int128>(passed - rate.passed_bytes) *
			1000000000 / elapsed;
	rate.last_ns = meter.state.last_ns;
	rate.passed_bytes = passed;
}

void
softcard_rate_sample()
{
	if (softcard == nullptr)
		return;

	for (int dir : {VASK_P4_MEP_INGRESS, VASK_P4_MEP_EGRESS})
		for (uint32_t id = 0; id < SOFTCARD_METERS; id++)
			if (softcard->engines[dir].insts[id].valid)
				rate_sample(dir, id);
}

int
softcard_view_profile(
	int dir, uint32_t hw_profile_id, struct vask_p4_mep_meter_profile_table *profile)
{
	const int rc = softcard_record_check(dir, hw_profile_id, SOFTCARD_PROFILES, profile);
	if (rc != 0)
		return rc;

	*profile = softcard->engines[dir].profiles[hw_profile_id].record;
	return 0;
}

int
softcard_view_policy(int dir, uint32_t hw_policy_id, struct vask_p4_mep_meter_policy_table *policy)
{
	const int rc = softcard_record_check(dir, hw_policy_id, SOFTCARD_POLICIES, policy);
	if (rc != 0)
		return rc;

	*policy = softcard->engines[dir].policies[hw_policy_id].record;
	return 0;
}

int
softcard_view_pipeline_profile(uint32_t index, struct qorn_meter_profile_table *profile)
{
	const int rc = softcard_record_check(
		VASK_P4_MEP_INGRESS, index, SOFTCARD_PIPELINE_ENTRIES, profile);
	if (rc != 0)
		return rc;

	*profile = softcard->pipeline.profiles[index];
	return 0;
}

int
softcard_view_pipeline_meter(uint32_t index, struct qorn_meter_table *meter)
{
	const int rc =
		softcard_record_check(VASK_P4_MEP_INGRESS, index, SOFTCARD_PIPELINE_ENTRIES, meter);
	if (rc != 0)
		return rc;

	*meter = softcard->pipeline.meters[index];
	return 0;
}

int
softcard_view_port(uint16_t port_sfi, struct softcard_port_view *view)
{
	const int rc = softcard_record_check(VASK_P4_MEP_INGRESS, port_sfi, SOFTCARD_PORTS, view);
	if (rc != 0)
		return rc;

	view->rx_meter = softcard_port_meter(VASK_P4_MEP_INGRESS, port_sfi);
	view->mtu = softcard->ports[port_sfi].mtu.load(std::memory_order_relaxed);
	view->tx_entry = softcard->pipeline.tx_ports[port_sfi];
	view->tx_meter = view->tx_entry.metering_info0;
	return 0;
}
