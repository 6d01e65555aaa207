/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Frames of any make through whole ports, one that observes shapers and one that enforces them, on the capture's
 * clock: meters, an MTU, VLAN tags taken off, and a rule that sends packets to another queue. Each packet comes out
 * once or is counted as dropped, and differs only as it was asked for.
 */
#include <map>
#include <string>

#include <rte_ethdev.h>
#include <rte_flow.h>
#include <rte_mbuf_dyn.h>
#include <rte_mtr.h>

#include "check.h"
#include "eal.h"
#include "frames.h"
#include "objects.h"

namespace
{

constexpr unsigned STEPS_MAX = 30;
constexpr uint16_t BURST = 32;
constexpr uint16_t MTU_MAX = 16384;
constexpr uint32_t RX_METER = 1, TX_METER = 2;

struct Port {
	uint16_t id;
	FuzzWire wire;
};

Port ports[2];
struct rte_mempool *pool, *clones;
int time_offset;
uint64_t time_flag;

/* What was put in, by the number that a packet carries. */
struct Known {
	FrameBytes bytes;
	bool one_segment;
	uint16_t queue;
};

struct World {
	const Port *port;
	bool strip = false;
	bool rewrites = false; /* the policy may change a DSCP */
	bool diverts = false;
	uint64_t now_ns = 0;
	uint32_t next = 1;
	std::map<uint32_t, Known> received, sent; /* what is under way */
	uint32_t last[FUZZ_QUEUES] = {};          /* the latest packet out of each queue */
	uint64_t in[2] = {}, out[2] = {}, out_bytes[2] = {};
};

uint64_t
Xstat(uint16_t port, const std::string &name)
{
	uint64_t id = 0, value = 0;

	FUZZ_CHECK(rte_eth_xstats_get_id_by_name(port, name.c_str(), &id) == 0);
	FUZZ_CHECK(rte_eth_xstats_get_by_id(port, &id, &value, 1) == 1);
	return value;
}

uint64_t
Dropped(uint16_t port, const std::string &side)
{
	uint64_t n = 0;

	for (const char *why : {"meter", "flow", "mtu", "shaper"})
		n += Xstat(port, side + "_" + why + "_dropped_packets");
	return n + (side == "rx" ? Xstat(port, "rx_queue_dropped_packets") : 0);
}

struct rte_mbuf *
NextFrame(Input &in, World *world, FrameMaker *maker, std::map<uint32_t, Known> *known,
	uint16_t queue)
{
	struct rte_mbuf *frame = maker->Make(in);
	const uint8_t step = in.Byte();

	if (frame == nullptr)
		return nullptr;
	/* no jumps past what a shaper works off */
	world->now_ns += step == 255 ? in.Raw(5) : step * UINT64_C(10000);
	if (step != 254) {
		*RTE_MBUF_DYNFIELD(frame, time_offset, rte_mbuf_timestamp_t *) = world->now_ns;
		frame->ol_flags |= time_flag;
	}
	frame->hash.sched.queue_id = world->next;
	(*known)[world->next++] = {fuzz_bytes_of(frame), frame->nb_segs == 1, queue};
	return frame;
}

/* A packet that came out is one that went in, and its bytes are what they should be. */
void
CheckOut(const World &world, std::map<uint32_t, Known> *known, const struct rte_mbuf *frame,
	bool may_be_stripped)
{
	const auto it = known->find(frame->hash.sched.queue_id);
	const bool stripped = (frame->ol_flags & RTE_MBUF_F_RX_VLAN_STRIPPED) != 0;
	FrameBytes after = fuzz_bytes_of(frame);
	const char *why;

	FUZZ_CHECK(it != known->end());
	FUZZ_CHECK(rte_mbuf_check(frame, 1, &why) == 0);
	FrameBytes before = it->second.bytes;
	const bool tagged = before.size() >= 18 && before[12] == 0x81 && before[13] == 0x00;
	FUZZ_CHECK(!stripped || (may_be_stripped && world.strip && tagged));
	FUZZ_CHECK(
		stripped || !may_be_stripped || !world.strip || !tagged || !it->second.one_segment);
	if (stripped) {
		FUZZ_CHECK(frame->vlan_tci == (before[14] << 8 | before[15]));
		before.erase(before.begin() + 12, before.begin() + 16);
	}
	FUZZ_CHECK(after.size() == before.size());
	if (const size_t at = fuzz_ipv4_at(before); world.rewrites && at != 0) {
		FUZZ_CHECK(fuzz_header_sum(after, at) == fuzz_header_sum(before, at));
		FUZZ_CHECK((after[at + 1] & 3) == (before[at + 1] & 3));
		for (size_t changed : {at + 1, at + 10, at + 11})
			after[changed] = before[changed];
	}
	FUZZ_CHECK(after == before);
	known->erase(it);
}

size_t
Receive(World *world, uint16_t queue)
{
	struct rte_mbuf *pkts[BURST];
	const uint16_t n = rte_eth_rx_burst(world->port->id, queue, pkts, BURST);

	for (uint16_t i = 0; i < n; i++) {
		const uint32_t number = pkts[i]->hash.sched.queue_id;

		FUZZ_CHECK(pkts[i]->port == world->port->id);
		/* in order, but that packets of other queues come in between */
		FUZZ_CHECK(world->diverts || number > world->last[queue]);
		world->last[queue] = number;
		world->out_bytes[0] += pkts[i]->pkt_len;
		CheckOut(*world, &world->received, pkts[i], true);
		rte_pktmbuf_free(pkts[i]);
	}
	world->out[0] += n;
	return n;
}

void
TakeSent(World *world)
{
	void *m;

	for (struct rte_ring *ring : world->port->wire.tx)
		while (rte_ring_dequeue(ring, &m) == 0) {
			world->out_bytes[1] += static_cast<struct rte_mbuf *>(m)->pkt_len;
			CheckOut(*world, &world->sent, static_cast<struct rte_mbuf *>(m), false);
			rte_pktmbuf_free(static_cast<struct rte_mbuf *>(m));
			world->out[1]++;
		}
}

void
Send(Input &in, World *world, FrameMaker *maker)
{
	const auto queue = static_cast<uint16_t>(in.Below(FUZZ_QUEUES));
	struct rte_mbuf *pkts[8];
	uint16_t n = 0;

	for (unsigned want = in.Below(8); want > 0; want--) {
		pkts[n] = NextFrame(in, world, maker, &world->sent, queue);
		if (pkts[n] != nullptr)
			n++;
	}
	uint32_t numbers[8];
	for (uint16_t i = 0; i < n; i++)
		numbers[i] = pkts[i]->hash.sched.queue_id;
	const uint16_t taken = rte_eth_tx_burst(world->port->id, queue, pkts, n);
	FUZZ_CHECK(taken <= n);
	for (uint16_t i = taken; i < n; i++) {
		rte_pktmbuf_free(pkts[i]);
		world->sent.erase(numbers[i]);
	}
	world->in[1] += taken;
	TakeSent(world);
}

void
Arrive(Input &in, World *world, FrameMaker *maker)
{
	const auto queue = static_cast<uint16_t>(in.Below(FUZZ_QUEUES));

	for (unsigned want = in.Below(8); want > 0; want--) {
		struct rte_mbuf *frame = NextFrame(in, world, maker, &world->received, queue);

		if (frame == nullptr)
			continue;
		const uint32_t number = frame->hash.sched.queue_id;
		if (rte_ring_enqueue(world->port->wire.rx[queue], frame) == 0) {
			world->in[0]++;
			continue;
		}
		rte_pktmbuf_free(frame);
		world->received.erase(number);
	}
}

/* IPv4 packets to a queue, to the receive meter, away, or through. */
void
AddRule(Input &in, World *world)
{
	const rte_flow_item pattern[] = {{RTE_FLOW_ITEM_TYPE_ETH, nullptr, nullptr, nullptr},
		{RTE_FLOW_ITEM_TYPE_IPV4, nullptr, nullptr, nullptr},
		{RTE_FLOW_ITEM_TYPE_END, nullptr, nullptr, nullptr}};
	const rte_flow_action_queue queue = {static_cast<uint16_t>(in.Below(FUZZ_QUEUES))};
	const rte_flow_action_meter meter = {in.Bit() ? RX_METER : TX_METER};
	const unsigned what = in.Below(4);
	rte_flow_action actions[] = {
		{RTE_FLOW_ACTION_TYPE_PASSTHRU, nullptr}, {RTE_FLOW_ACTION_TYPE_END, nullptr}};
	rte_flow_attr attr = {};
	rte_flow_error error;

	attr.egress = in.Bit();
	attr.ingress = !attr.egress;
	if (what == 0)
		actions[0] = {RTE_FLOW_ACTION_TYPE_QUEUE, &queue};
	else if (what == 1)
		actions[0] = {RTE_FLOW_ACTION_TYPE_METER, &meter};
	else if (what == 2)
		actions[0].type = RTE_FLOW_ACTION_TYPE_DROP;
	rte_flow_create(world->port->id, &attr, pattern, actions, &error);
	world->diverts |= what == 0;
}

void
CheckAccounts(World *world)
{
	const uint16_t id = world->port->id;
	struct rte_eth_stats stats;

	FUZZ_CHECK(rte_eth_stats_get(id, &stats) == 0);
	FUZZ_CHECK(stats.ipackets == world->out[0] && stats.opackets == world->out[1]);
	FUZZ_CHECK(stats.ibytes == world->out_bytes[0] && stats.obytes == world->out_bytes[1]);
	FUZZ_CHECK(world->in[0] == world->out[0] + Dropped(id, "rx"));
	FUZZ_CHECK(world->in[1] == world->out[1] + Dropped(id, "tx"));
	FUZZ_CHECK(rte_mempool_in_use_count(pool) == 0);
	FUZZ_CHECK(rte_mempool_in_use_count(clones) == 0);
}

} // namespace

extern "C" int
LLVMFuzzerInitialize(int *, char ***)
{
	fuzz_eal_init();
	pool = rte_pktmbuf_pool_create(
		"frames", 4095, 0, 0, RTE_MBUF_DEFAULT_BUF_SIZE, SOCKET_ID_ANY);
	clones = rte_pktmbuf_pool_create("clones", 1023, 0, 0, 0, SOCKET_ID_ANY);
	FUZZ_CHECK(pool != nullptr && clones != nullptr);
	FUZZ_CHECK(rte_mbuf_dyn_rx_timestamp_register(&time_offset, &time_flag) == 0);
	for (unsigned i : {0, 1}) {
		ports[i].id = fuzz_port_probe(i,
			std::string(",clock=capture,tick=ns,shapers=") +
				(i == 0 ? "observe" : "enforce"),
			&ports[i].wire);
		fuzz_port_start(ports[i].id, 0, pool);
	}
	return 0;
}

extern "C" int
LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	static uint64_t now_ns; /* a port's time does not run back */
	Input in(data, size);
	rte_flow_error error;
	World world;

	world.port = &ports[in.Bit()];
	world.now_ns = now_ns;
	const uint16_t id = world.port->id;
	world.strip = in.Bit();
	FUZZ_CHECK(rte_eth_dev_set_vlan_offload(id, world.strip ? RTE_ETH_VLAN_STRIP_OFFLOAD : 0) ==
		0);
	const bool metered = fuzz_profile_add(in, id, 1);
	world.rewrites = in.Bit();
	fuzz_policy_add(in, id, 1, !world.rewrites);
	if (const unsigned sides = in.Below(4); metered) {
		if (sides & 1)
			FUZZ_CHECK(fuzz_meter_create(id, RX_METER, FUZZ_RX, in.Bit()));
		if (sides & 2)
			FUZZ_CHECK(fuzz_meter_create(id, TX_METER, FUZZ_TX, in.Bit()));
	}
	FUZZ_CHECK(rte_eth_dev_set_mtu(id, static_cast<uint16_t>(68 + in.Raw(2) % 2000)) == 0);
	FUZZ_CHECK(rte_eth_stats_reset(id) == 0 && rte_eth_xstats_reset(id) == 0);
	{
		FrameMaker maker(pool, clones);

		for (unsigned n = 0; n < STEPS_MAX && !in.empty(); n++) {
			switch (in.Below(4)) {
			case 0:
				Arrive(in, &world, &maker);
				break;
			case 1:
				Send(in, &world, &maker);
				break;
			case 2:
				Receive(&world, static_cast<uint16_t>(in.Below(FUZZ_QUEUES)));
				break;
			default:
				AddRule(in, &world);
			}
		}
		/* until nothing comes any more: what waits for a shaper leaves when the wire is empty */
		for (unsigned idle = 0; idle < 3;) {
			size_t got = 0;

			for (uint16_t q = 0; q < FUZZ_QUEUES; q++) {
				got += rte_ring_count(world.port->wire.rx[q]);
				got += Receive(&world, q);
				rte_eth_tx_burst(id, q, nullptr, 0);
			}
			const uint64_t before = world.out[1];
			TakeSent(&world);
			got += world.out[1] - before;
			idle = got == 0 ? idle + 1 : 0;
		}
		maker.CheckShared();
	}
	CheckAccounts(&world);

	FUZZ_CHECK(rte_flow_flush(id, &error) == 0);
	fuzz_objects_clear(id);
	FUZZ_CHECK(rte_eth_dev_set_mtu(id, MTU_MAX) == 0);
	now_ns = world.now_ns;
	return 0;
}
