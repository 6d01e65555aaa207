/* SPDX-License-Identifier: BSD-3-Clause */

/* The pipeline's operations, the command channel and the shapers' registers, as the driver calls them. */

#include <cerrno>

#include "softcard_call.h"
#include "softcard_internal.h"

static struct vask_cmd_channel command_channel = {};

struct vask_cmd_channel *
vask_p4_get_global_cmd_channel()
{
	struct vask_cmd_channel *channel = nullptr; /* as a fault leaves it, whatever its code */

	softcard_call_do(
		SOFTCARD_OP_GET_CHANNEL,
		[&] {
			channel = &command_channel;
			return 0;
		},
		[&](const struct softcard_call &call) {
			softcard_trace_call(
				call, nullptr, 0, "channel=%s", channel == nullptr ? "none" : "0");
		});
	return channel;
}

/* Runs a command on the channel, or refuses one that is not the card's. */
template <typename Command>
static inline int
channel_run(struct vask_cmd_channel *channel, int no_channel, Command command)
{
	if (channel != &command_channel)
		return no_channel;
	rte_spinlock_lock(&channel->lock);
	const int rc = command();
	rte_spinlock_unlock(&channel->lock);
	return rc;
}

static void
trace_pipeline_profile(const struct softcard_call &call, const uint32_t *index,
	const struct qorn_meter_profile_table *entry)
{
	const struct qorn_meter_profile_table p = entry ? *entry : decltype(p){};

	softcard_trace_call(call, entry, sizeof(*entry),
		"index=%lld g_act=%u g_dscp=%u y_act=%u y_dscp=%u r_act=%u r_dscp=%u cf=%u pm=%u "
		"rfc=%u cbsm=%u ebsm=%u cbnd=%u ebnd=%u cbs=%u ebs=%u cir=%u eir=%u valid=%u",
		index ? static_cast<long long>(*index) : -1, p.g_act, p.g_dscp, p.y_act, p.y_dscp,
		p.r_act, p.r_dscp, p.cf, p.pm, p.rfc, p.cbsm, p.ebsm, p.cbnd, p.ebnd,
		p.cbs_l1 | p.cbs_h19 << 1, p.ebs_l13 | p.ebs_h7 << 13, p.cir_l25 | p.cir_h3 << 25,
		p.eir, p.valid);
}

int
qorn_meter_profile_update(struct vask_cmd_channel *channel, const uint32_t *index,
	const struct qorn_meter_profile_table *entry)
{
	return softcard_call_do(
		SOFTCARD_OP_PIPELINE_PROFILE_UPDATE,
		[=] {
			return channel_run(channel, QORN_ERR_BAD_PTR, [=] {
				return index ? softcard_pipeline_profile_write(*index, entry)
					     : int{QORN_ERR_BAD_PTR};
			});
		},
		[=](const struct softcard_call &call) {
			trace_pipeline_profile(call, index, entry);
		});
}

int
qorn_meter_profile_delete(struct vask_cmd_channel *channel, uint32_t index)
{
	const struct qorn_meter_profile_table none = {};

	return softcard_call_do(
		SOFTCARD_OP_PIPELINE_PROFILE_DELETE,
		[=] {
			return channel_run(channel, QORN_ERR_BAD_PTR,
				[=] { return softcard_pipeline_profile_write(index, &none); });
		},
		[=](const struct softcard_call &call) {
			softcard_trace_call(call, nullptr, 0, "index=%u", index);
		});
}

static void
trace_pipeline_meter(const struct softcard_call &call, const uint32_t *index,
	const struct qorn_meter_table *entry)
{
	const struct qorn_meter_table p = entry ? *entry : decltype(p){};

	softcard_trace_call(call, entry, sizeof(*entry),
		"index=%lld last_ts=%u byte_cnt=%llu pkt_cnt=%u bkt_c=%u bkt_e=%u "
		"meter_profile_id=%u valid=%u",
		index ? static_cast<long long>(*index) : -1, p.last_ts,
		p.byte_cnt_l28 | static_cast<unsigned long long>(p.byte_cnt_h20) << 28,
		p.pkt_cnt_l12 | p.pkt_cnt_h20 << 12, p.bkt_c_l12 | p.bkt_c_h20 << 12,
		p.bkt_e_l12 | p.bkt_e_h20 << 12, p.meter_profile_id, p.valid);
}

int
qorn_meter_table_update(struct vask_cmd_channel *channel, const uint32_t *index,
	const struct qorn_meter_table *entry)
{
	return softcard_call_do(
		SOFTCARD_OP_PIPELINE_METER_UPDATE,
		[=] {
			return channel_run(channel, QORN_ERR_BAD_PTR, [=] {
				return index ? softcard_pipeline_meter_write(*index, entry)
					     : int{QORN_ERR_BAD_PTR};
			});
		},
		[=](const struct softcard_call &call) {
			trace_pipeline_meter(call, index, entry);
		});
}

int
qorn_meter_table_delete(struct vask_cmd_channel *channel, uint32_t index)
{
	const struct qorn_meter_table none = {};

	return softcard_call_do(
		SOFTCARD_OP_PIPELINE_METER_DELETE,
		[=] {
			return channel_run(channel, QORN_ERR_BAD_PTR,
				[=] { return softcard_pipeline_meter_write(index, &none); });
		},
		[=](const struct softcard_call &call) {
			softcard_trace_call(call, nullptr, 0, "index=%u", index);
		});
}

static void
trace_tx_port(const struct softcard_call &call, const struct qorn_input_port_table_key_tx *key,
	const struct qorn_input_port_table_result_tx *result)
{
	const struct qorn_input_port_table_result_tx p = result ? *result : decltype(p){};

	softcard_trace_call(call, result, sizeof(*result),
		"source_port=%d metering_info0=%u mep_type=%u mep_dispatch_type=%u action_type=%u "
		"def_action_index=%u def_destination=%u",
		key ? static_cast<int>(key->source_port) : -1, p.metering_info0, p.mep_type,
		p.mep_dispatch_type, p.action_type, p.def_action_index, p.def_destination);
}

int
qorn_input_port_tx_table_get(struct vask_cmd_channel *channel,
	const struct qorn_input_port_table_key_tx *key,
	struct qorn_input_port_table_result_tx *result)
{
	return softcard_call_do(
		SOFTCARD_OP_TX_PORT_GET,
		[=] {
			return channel_run(channel, QORN_ERR_BAD_PTR, [=] {
				return key ? softcard_tx_port_read(key->source_port, result)
					   : int{QORN_ERR_BAD_PTR};
			});
		},
		[=](const struct softcard_call &call) { trace_tx_port(call, key, result); });
}

int
qorn_input_port_tx_table_add(struct vask_cmd_channel *channel,
	const struct qorn_input_port_table_key_tx *key,
	const struct qorn_input_port_table_result_tx *result)
{
	return softcard_call_do(
		SOFTCARD_OP_TX_PORT_ADD,
		[=] {
			return channel_run(channel, QORN_ERR_BAD_PTR, [=] {
				return key ? softcard_tx_port_write(key->source_port, result)
					   : int{QORN_ERR_BAD_PTR};
			});
		},
		[=](const struct softcard_call &call) { trace_tx_port(call, key, result); });
}

int
vask_cmd_set_shaper(struct vask_cmd_channel *channel, const struct vask_shaper_set_info *info)
{
	return softcard_call_do(
		SOFTCARD_OP_SET_SHAPER,
		[=] {
			return channel_run(
				channel, -EINVAL, [=] { return softcard_port_shaper_write(info); });
		},
		[=](const struct softcard_call &call) {
			const struct vask_shaper_set_info p = info ? *info : decltype(p){};

			softcard_trace_call(call, info, sizeof(*info),
				"sfi=%u bdf=%u mode=%u direction=%u max_rate=%u", p.sfi, p.bdf,
				p.mode, p.direction, p.max_rate);
		});
}

int
vask_p4_isch_shaper_csr_write(struct vask_p4_isch_shaper value)
{
	return softcard_call_do(
		SOFTCARD_OP_ISCH_WRITE, [=] { return softcard_isch_write(value); },
		[=](const struct softcard_call &call) {
			softcard_trace_call(call, &value, sizeof(value),
				"enable=%u alway_closed=%u mode=%u pbs=%u rate_level=%u rate=%u",
				value.enable, value.alway_closed, value.mode, value.pbs,
				value.rate_level, value.rate);
		});
}
