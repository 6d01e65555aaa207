/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * The card alone: frames of any make through meters of any records, beside a reference that keeps its tokens in
 * 128 bits; then the MTU and a shaper's queue.
 */
#include <array>

#include <rte_ethdev.h>

#include "check.h"
#include "eal.h"
#include "engine_reference.h"
#include "frames.h"
#include "softcard.h"
#include "softcard_frame.h"
#include "softcard_shaper.h"
#include "softcard_view.h"
#include "vask_cmd_api.h"
#include "vask_dev_cmds.h"
#include "vask_p4_meter.h"

namespace
{

constexpr uint16_t SFI = 77;
constexpr unsigned STEPS_MAX = 24;
constexpr unsigned BURST_MAX = 6;

struct rte_mempool *pool, *clones;

struct World {
	std::array<Engine, 2> engines;
	uint64_t now_ns = 0;
	uint16_t mtu = 0;
};

template <typename Record>
Record
RecordOf(Input &in)
{
	Record record = {};
	const std::vector<uint8_t> bytes = in.Bytes(sizeof(record));

	if (!bytes.empty())
		memcpy(&record, bytes.data(), bytes.size());
	return record;
}

/* One control write; what the ingress selector writes reaches both engines. */
void
Write(Input &in, World *world)
{
	const int dir = in.Bit();
	const unsigned id = 1 + in.Below(IDS - 1);
	Engine &engine = world->engines[dir];

	switch (in.Below(8)) {
	case 0: {
		const auto record = RecordOf<vask_p4_mep_meter_profile_table>(in);
		FUZZ_CHECK(vask_p4_mep_add_meter_profile(dir, id, &record) == 0);
		for (int copy = dir; copy < 2; copy++)
			world->engines[copy].profiles[id] = record;
		break;
	}
	case 1: {
		const auto record = RecordOf<vask_p4_mep_meter_policy_table>(in);
		FUZZ_CHECK(vask_p4_mep_add_meter_policy(dir, id, &record) == 0);
		for (int copy = dir; copy < 2; copy++)
			world->engines[copy].policies[id] = record;
		break;
	}
	case 2: {
		auto record = RecordOf<vask_p4_mep_meter_inst_table>(in);
		record.profile_id %= IDS;
		record.policy_id %= IDS;
		FUZZ_CHECK(softcard_meter_inst_write(dir, id, &record) == 0);
		if (record.valid && !engine.insts[id].valid)
			engine.meters[id] = {};
		engine.insts[id] = record;
		break;
	}
	case 3:
		FUZZ_CHECK(softcard_meter_inst_clear(dir, id) == 0);
		engine.insts[id] = {};
		engine.meters[id] = {};
		break;
	case 4:
		FUZZ_CHECK(vask_p4_mep_del_meter_profile(dir, id) == 0);
		engine.profiles[id] = {};
		break;
	case 5:
		FUZZ_CHECK(vask_p4_mep_del_meter_policy(dir, id) == 0);
		engine.policies[id] = {};
		break;
	case 6:
		world->mtu = static_cast<uint16_t>(in.Raw(2));
		FUZZ_CHECK(vask_p4_mep_update_meter_output_by_mtu(SFI, world->mtu) == 0);
		break;
	default: {
		/* shapers: any register, any command */
		const auto isch = RecordOf<vask_p4_isch_shaper>(in);
		auto shaper = RecordOf<vask_shaper_set_info>(in);
		shaper.sfi = SFI;
		FUZZ_CHECK(vask_p4_isch_shaper_csr_write(isch) == 0);
		FUZZ_CHECK(vask_cmd_set_shaper(vask_p4_get_global_cmd_channel(), &shaper) == 0);
	}
	}
	for (Engine &either : world->engines)
		either.Refresh();
}

rte_color
ColorOf(const FrameBytes &frame)
{
	const size_t at = fuzz_ipv4_at(frame);

	if (at == 0)
		return RTE_COLOR_GREEN;
	switch (frame[at + 1] >> 2) {
	case 12: /* AF12, AF22, AF32, AF42 */
	case 20:
	case 28:
	case 36:
		return RTE_COLOR_YELLOW;
	case 14: /* AF13 and so on */
	case 22:
	case 30:
	case 38:
		return RTE_COLOR_RED;
	default:
		return RTE_COLOR_GREEN;
	}
}

/* A frame whose DSCP was to be rewritten, before and after: nothing else changed, the checksum as right as before. */
void
CheckRewrite(const FrameBytes &before, const FrameBytes &after, unsigned dscp, bool offload)
{
	const size_t at = fuzz_ipv4_at(before);
	FrameBytes expected = before;

	FUZZ_CHECK(after.size() == before.size());
	if (at != 0) {
		expected[at + 1] = static_cast<uint8_t>(dscp << 2 | (before[at + 1] & 3));
		if (!offload) {
			FUZZ_CHECK(fuzz_header_sum(after, at) == fuzz_header_sum(before, at));
			expected[at + 10] = after[at + 10];
			expected[at + 11] = after[at + 11];
		}
	}
	FUZZ_CHECK(after == expected);
}

void
CheckMeter(int dir, unsigned id, const World &world)
{
	const Reference &want = world.engines[dir].meters[id];
	softcard_meter_view view = {};
	vask_p4_mep_meter_inst_table inst = {};

	FUZZ_CHECK(softcard_view_meter(dir, id, &view) == 0);
	FUZZ_CHECK(view.metering == world.engines[dir].Metering(id));
	FUZZ_CHECK(view.level_c <= view.burst_c && view.level_e <= view.burst_e);
	for (int colour = 0; colour < 3; colour++) {
		FUZZ_CHECK(view.packets[colour] == want.packets[colour]);
		FUZZ_CHECK(view.bytes[colour] == want.bytes[colour]);
	}
	FUZZ_CHECK(view.dropped_packets == want.dropped_packets);
	FUZZ_CHECK(view.dropped_bytes == want.dropped_bytes);
	FUZZ_CHECK(view.rewritten == want.rewritten);
	if (view.metering) {
		FUZZ_CHECK(
			view.level_c == static_cast<uint64_t>(want.c / (NANO / view.level_unit)));
		FUZZ_CHECK(
			view.level_e == static_cast<uint64_t>(want.e / (NANO / view.level_unit)));
	}
	FUZZ_CHECK(vask_p4_mep_read_meter_inst(dir, id, &inst) == 0);
	FUZZ_CHECK(inst.drop_pkt_cnt == static_cast<uint32_t>(want.dropped_packets));
	FUZZ_CHECK(inst.drop_pkt_len_cnt == want.dropped_bytes);
	FUZZ_CHECK(inst.rsv1 == 0 && inst.rsv2 == 0 && inst.rsv3 == 0);
}

/* What is left of a burst waits for its shaper and leaves in order, none before it came, none lost. */
void
Shape(Input &in, int dir, softcard_burst *burst)
{
	const uint32_t capacity = 1 + in.Below(8);
	softcard_queue *queue = softcard_queue_create(dir, SFI, capacity, SOCKET_ID_ANY);
	softcard_queue_counters counters;
	struct rte_mbuf *out[BURST_MAX];
	uint64_t release_ns[BURST_MAX];
	uint64_t arrival_ns[BURST_MAX], latest = 0, now = in.Number();
	uint16_t seen = 0;

	FUZZ_CHECK(queue != nullptr);
	for (uint16_t i = 0; i < burst->n; i++)
		arrival_ns[i] = latest = std::max(latest, burst->now_ns[i]);
	const uint16_t taken = softcard_queue_put(queue, burst->pkts, burst->now_ns, burst->n);
	FUZZ_CHECK(taken == std::min<uint32_t>(burst->n, capacity));
	for (bool flush : {false, true}) {
		const uint16_t n = flush
			? softcard_queue_flush(queue, out, release_ns, BURST_MAX)
			: softcard_queue_get(queue, now, out, release_ns, BURST_MAX);
		for (uint16_t i = 0; i < n; i++, seen++) {
			FUZZ_CHECK(out[i] == burst->pkts[seen]);
			FUZZ_CHECK(release_ns[i] >= arrival_ns[seen]);
			FUZZ_CHECK(flush || release_ns[i] <= now);
			FUZZ_CHECK(i == 0 || release_ns[i] >= release_ns[i - 1]);
		}
		rte_pktmbuf_free_bulk(out, n);
		softcard_queue_read(queue, &counters);
		FUZZ_CHECK(counters.packets == seen &&
			counters.waiting == static_cast<uint32_t>(taken - seen));
		FUZZ_CHECK(counters.dropped == static_cast<uint64_t>(burst->n - taken));
	}
	softcard_shaper_view view;
	FUZZ_CHECK(softcard_view_shaper(dir, SFI, &view) == 0);
	FUZZ_CHECK(seen == taken || view.closed);
	softcard_queue_free(queue);
	burst->n = 0;
}

void
SendBurst(Input &in, World *world)
{
	const int dir = in.Bit();
	Engine &engine = world->engines[dir];
	FrameMaker maker(pool, clones);
	std::vector<FrameBytes> before;
	std::vector<bool> offload;
	softcard_burst burst = {};
	uint64_t want_drop = 0;

	for (unsigned n = in.Below(BURST_MAX + 1); n > 0; n--) {
		struct rte_mbuf *frame = maker.Make(in);
		const uint16_t i = burst.n;

		if (frame == nullptr)
			break;
		/* time goes on, stands still, or jumps anywhere */
		const uint8_t step = in.Byte();
		world->now_ns = step == 255 ? in.Number() : world->now_ns + step * UINT64_C(10000);
		burst.pkts[i] = frame;
		burst.now_ns[i] = world->now_ns;
		burst.hw_meter_id[i] = in.Id(IDS);
		burst.taken_off[i] = in.Of<uint16_t>({0, 4});
		burst.tag[i] = i;
		offload.push_back(in.Bit());
		if (offload[i])
			frame->ol_flags |= RTE_MBUF_F_TX_IP_CKSUM | RTE_MBUF_F_TX_IPV4;
		before.push_back(fuzz_bytes_of(frame));
		burst.n++;
	}

	/* the reference first: the engine may replace what is to be rewritten */
	std::array<int, BURST_MAX> colour;
	for (uint16_t i = 0; i < burst.n; i++) {
		const uint32_t id = burst.hw_meter_id[i];
		FUZZ_CHECK(softcard_frame_dscp(burst.pkts[i]) ==
			(fuzz_ipv4_at(before[i]) ? before[i][fuzz_ipv4_at(before[i]) + 1] >> 2
						 : -1));
		FUZZ_CHECK(softcard_frame_tags(burst.pkts[i]) == fuzz_tags(before[i]));
		colour[i] = -1;
		if (id == 0 || id >= IDS || !engine.Metering(id))
			continue;
		const auto &inst = engine.insts[id];
		const auto &policy = engine.policies[inst.policy_id];
		const unsigned actions[] = {
			policy.green_action, policy.yellow_action, policy.red_action};
		const uint32_t length = static_cast<uint32_t>(before[i].size()) +
			(inst.use_original_packet_length ? burst.taken_off[i] : 0);
		Reference &meter = engine.meters[id];

		colour[i] = engine.Check(id, burst.now_ns[i], length,
			inst.is_color_aware ? ColorOf(before[i]) : RTE_COLOR_GREEN);
		meter.packets[colour[i]]++;
		meter.bytes[colour[i]] += length;
		if (actions[colour[i]] == 2) {
			want_drop |= UINT64_C(1) << i;
			meter.dropped_packets++;
			meter.dropped_bytes += length;
		}
		meter.rewritten += actions[colour[i]] == 1 && fuzz_ipv4_at(before[i]) != 0;
	}

	const uint64_t drop = softcard_meter_burst(dir, &burst);
	FUZZ_CHECK(drop == want_drop);
	for (uint16_t i = 0; i < burst.n; i++) {
		const FrameBytes after = fuzz_bytes_of(burst.pkts[i]);
		const char *why;

		FUZZ_CHECK(rte_mbuf_check(burst.pkts[i], 1, &why) == 0);
		if (colour[i] < 0) {
			FUZZ_CHECK(after == before[i]);
			continue;
		}
		const auto &policy = engine.policies[engine.insts[burst.hw_meter_id[i]].policy_id];
		const unsigned actions[] = {
			policy.green_action, policy.yellow_action, policy.red_action};
		const unsigned dscp[] = {policy.green_dscp, policy.yellow_dscp, policy.red_dscp};

		FUZZ_CHECK(rte_mbuf_sched_color_get(burst.pkts[i]) == colour[i]);
		if (actions[colour[i]] == 1)
			CheckRewrite(before[i], after, dscp[colour[i]], offload[i]);
		else
			FUZZ_CHECK(after == before[i]);
	}
	maker.CheckShared();

	uint64_t want_mtu = 0;
	for (uint16_t i = 0; i < burst.n; i++)
		want_mtu |= uint64_t{world->mtu != 0 &&
				    before[i].size() > world->mtu + 14u + 4u * fuzz_tags(before[i])}
			<< i;
	FUZZ_CHECK(softcard_mtu_burst(softcard_port_of(SFI), &burst) == want_mtu);
	const uint16_t n = burst.n;
	FUZZ_CHECK(softcard_burst_drop(&burst, drop | want_mtu) ==
		__builtin_popcountll(drop | want_mtu));
	FUZZ_CHECK(burst.n == n - __builtin_popcountll(drop | want_mtu));
	for (uint16_t i = 1; i < burst.n; i++)
		FUZZ_CHECK(burst.tag[i] > burst.tag[i - 1]);
	Shape(in, dir, &burst);
}

} // namespace

extern "C" int
LLVMFuzzerInitialize(int *, char ***)
{
	fuzz_eal_init();
	pool = rte_pktmbuf_pool_create(
		"frames", 1023, 0, 0, RTE_MBUF_DEFAULT_BUF_SIZE, SOCKET_ID_ANY);
	clones = rte_pktmbuf_pool_create("clones", 1023, 0, 0, 0, SOCKET_ID_ANY);
	FUZZ_CHECK(pool != nullptr && clones != nullptr);
	FUZZ_CHECK(softcard_start() == 0);
	return 0;
}

extern "C" int
LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	Input in(data, size);
	World world;

	for (unsigned n = 0; n < STEPS_MAX && !in.empty(); n++) {
		if (in.Below(3) == 2)
			SendBurst(in, &world);
		else
			Write(in, &world);
		for (int dir : {0, 1})
			for (unsigned id = 1; id < IDS; id++)
				CheckMeter(dir, id, world);
	}
	for (int dir : {0, 1})
		for (unsigned id = 1; id < IDS; id++) {
			softcard_meter_inst_clear(dir, id);
			vask_p4_mep_del_meter_profile(dir, id);
			vask_p4_mep_del_meter_policy(dir, id);
		}
	softcard_port_clear(SFI);
	vask_p4_isch_shaper_csr_write({});
	FUZZ_CHECK(rte_mempool_in_use_count(pool) == 0);
	FUZZ_CHECK(rte_mempool_in_use_count(clones) == 0);
	return 0;
}
