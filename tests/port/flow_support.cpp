/* SPDX-License-Identifier: BSD-3-Clause */
#include "flow_support.h"

#include "keep_cpus.h"

#include <algorithm>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include <rte_eal.h>
#include <rte_malloc.h>

namespace vask_test
{

namespace
{

class Eal : public ::testing::Environment
{
	void SetUp() override
	{
		std::string prefix = "--file-prefix=flow_test_" + std::to_string(getpid());
		std::vector<std::string> args = {"flow_test", "--no-huge", "--no-pci",
			"--no-telemetry", "-m", "256", "-l", "0", "--log-level=error",
			"--log-level=pmd.net.vask1:critical", prefix};
		std::vector<char *> argv;

		for (std::string &arg : args)
			argv.push_back(arg.data());

		const KeepCpus keep;
		ASSERT_GE(rte_eal_init(argv.size(), argv.data()), 0);
	}
	void TearDown() override
	{
		rte_eal_cleanup();
	}
};

const ::testing::Environment *const eal = ::testing::AddGlobalTestEnvironment(new Eal);

void
Put16(Bytes *to, uint16_t value)
{
	to->push_back(value >> 8);
	to->push_back(value & 0xff);
}

void
Put32(Bytes *to, uint32_t value)
{
	Put16(to, value >> 16);
	Put16(to, value & 0xffff);
}

void
PutAll(Bytes *to, const Bytes &bytes)
{
	to->insert(to->end(), bytes.begin(), bytes.end());
}

} // namespace

Layer
Udp(uint16_t src, uint16_t dst, size_t payload)
{
	Layer udp = {17, {}};

	Put16(&udp.bytes, src);
	Put16(&udp.bytes, dst);
	Put16(&udp.bytes, 8 + payload);
	Put16(&udp.bytes, 0);
	udp.bytes.resize(8 + payload);
	return udp;
}

Layer
Tcp(uint16_t src, uint16_t dst, size_t payload)
{
	Layer tcp = {6, {}};

	Put16(&tcp.bytes, src);
	Put16(&tcp.bytes, dst);
	Put32(&tcp.bytes, 0x01020304);
	Put32(&tcp.bytes, 0x05060708);
	Put16(&tcp.bytes, 0x5010);
	Put16(&tcp.bytes, 1000);
	Put32(&tcp.bytes, 0);
	tcp.bytes.resize(20 + payload);
	return tcp;
}

Layer
Raw(uint16_t type, size_t bytes)
{
	return {type, Bytes(bytes, 0xa5)};
}

Layer
Ipv4(const Ipv4Fields &fields, const Layer &payload)
{
	const size_t header = 20 + fields.option_bytes;
	const size_t total = header + payload.bytes.size();
	Layer ipv4 = {0x0800, {}};

	ipv4.bytes.push_back(0x40 | header / 4);
	ipv4.bytes.push_back(fields.tos);
	Put16(&ipv4.bytes, fields.total_length >= 0 ? fields.total_length : total);
	Put16(&ipv4.bytes, 0x1234);
	Put16(&ipv4.bytes, fields.fragment);
	ipv4.bytes.push_back(64);
	ipv4.bytes.push_back(payload.type);
	Put16(&ipv4.bytes, 0);
	Put32(&ipv4.bytes, fields.src);
	Put32(&ipv4.bytes, fields.dst);
	ipv4.bytes.resize(header, 1);
	PutAll(&ipv4.bytes, payload.bytes);
	return ipv4;
}

Layer
Ipv6(const Layer &payload, uint8_t src_last, uint8_t dst_last)
{
	Layer ipv6 = {0x86dd, {}};

	Put32(&ipv6.bytes, 0x60000000);
	Put16(&ipv6.bytes, payload.bytes.size());
	ipv6.bytes.push_back(payload.type);
	ipv6.bytes.push_back(64);
	for (uint8_t last : {src_last, dst_last}) {
		Put32(&ipv6.bytes, 0x20010db8);
		ipv6.bytes.resize(ipv6.bytes.size() + 11);
		ipv6.bytes.push_back(last);
	}
	PutAll(&ipv6.bytes, payload.bytes);
	return ipv6;
}

Layer
Ext(uint8_t type, const Layer &payload, unsigned units)
{
	Layer ext = {type, {}};

	ext.bytes.push_back(payload.type);
	/* authentication headers count in 4 bytes, and two less; the others in 8, and one less */
	ext.bytes.push_back(type == 51 ? units * 2 - 2 : units - 1);
	ext.bytes.resize(8 * units);
	PutAll(&ext.bytes, payload.bytes);
	return ext;
}

Layer
FragmentExt(uint16_t offset_flags, const Layer &payload)
{
	Layer ext = Ext(44, payload);

	ext.bytes[1] = 0;
	ext.bytes[2] = offset_flags >> 8;
	ext.bytes[3] = offset_flags & 0xff;
	return ext;
}

Layer
Vlan(uint16_t tci, const Layer &payload, uint16_t tpid)
{
	Layer vlan = {tpid, {}};

	Put16(&vlan.bytes, tci);
	Put16(&vlan.bytes, payload.type);
	PutAll(&vlan.bytes, payload.bytes);
	return vlan;
}

Bytes
Eth(const Layer &payload, uint8_t dst_last, uint8_t src_last)
{
	Bytes frame = {2, 0, 0, 0, 0, dst_last, 2, 0, 0, 0, 0, src_last};

	Put16(&frame, payload.type);
	PutAll(&frame, payload.bytes);
	return frame;
}

rte_mempool *
Pool()
{
	static rte_mempool *pool = rte_pktmbuf_pool_create(
		"frames", 8191, 0, 0, RTE_MBUF_DEFAULT_BUF_SIZE, SOCKET_ID_ANY);

	return pool;
}

Mbuf
MakeMbuf(const Bytes &bytes, const std::vector<size_t> &cuts)
{
	rte_mbuf *first = nullptr;
	size_t begin = 0;

	for (size_t i = 0; i <= cuts.size(); i++) {
		const size_t end = i < cuts.size() ? cuts[i] : bytes.size();
		rte_mbuf *segment = rte_pktmbuf_alloc(Pool());

		std::copy(bytes.begin() + begin, bytes.begin() + end,
			reinterpret_cast<uint8_t *>(rte_pktmbuf_append(segment, end - begin)));
		if (first == nullptr)
			first = segment;
		else
			rte_pktmbuf_chain(first, segment);
		begin = end;
	}
	return Mbuf(first);
}

namespace
{

struct Guarded {
	void *map;
	size_t size;
	rte_mbuf_ext_shared_info shared;
};

void
FreeGuarded(void *, void *opaque)
{
	Guarded *guarded = static_cast<Guarded *>(opaque);

	munmap(guarded->map, guarded->size);
	delete guarded;
}

} // namespace

Mbuf
MakeGuardedMbuf(const Bytes &bytes)
{
	const size_t page = sysconf(_SC_PAGESIZE);
	const size_t readable = (bytes.size() + page) / page * page;
	Guarded *guarded = new Guarded{nullptr, readable + page, {}};
	rte_mbuf *mbuf = rte_pktmbuf_alloc(Pool());

	guarded->map = mmap(
		nullptr, guarded->size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
	EXPECT_NE(guarded->map, MAP_FAILED);
	EXPECT_EQ(mprotect(static_cast<uint8_t *>(guarded->map) + readable, page, PROT_NONE), 0);

	uint8_t *data = static_cast<uint8_t *>(guarded->map) + readable - bytes.size();
	std::copy(bytes.begin(), bytes.end(), data);
	guarded->shared.free_cb = FreeGuarded;
	guarded->shared.fcb_opaque = guarded;
	rte_mbuf_ext_refcnt_set(&guarded->shared, 1);
	rte_pktmbuf_attach_extbuf(
		mbuf, data, RTE_BAD_IOVA, static_cast<uint16_t>(bytes.size()), &guarded->shared);
	rte_pktmbuf_append(mbuf, bytes.size());
	return Mbuf(mbuf);
}

Rule::Rule()
{
	attr.ingress = 1;
	items_.push_back({RTE_FLOW_ITEM_TYPE_END, nullptr, nullptr, nullptr});
	actions_.push_back({RTE_FLOW_ACTION_TYPE_END, nullptr});
}

Rule &
Rule::Egress()
{
	attr.ingress = 0;
	attr.egress = 1;
	return *this;
}

Rule &
Rule::Priority(uint32_t priority)
{
	attr.priority = priority;
	return *this;
}

Rule &
Rule::Add(rte_flow_item_type type, const void *spec, const void *mask, const void *last)
{
	items_.insert(items_.end() - 1, {type, spec, last, mask});
	return *this;
}

Rule &
Rule::Item(rte_flow_item_type type)
{
	return Add(type, nullptr, nullptr, nullptr);
}

Rule &
Rule::Eth()
{
	return Item(RTE_FLOW_ITEM_TYPE_ETH);
}

Rule &
Rule::Vlan()
{
	return Item(RTE_FLOW_ITEM_TYPE_VLAN);
}

Rule &
Rule::VlanId(uint16_t id)
{
	rte_flow_item_vlan spec = {};

	spec.hdr.vlan_tci = rte_cpu_to_be_16(id);
	return Item(RTE_FLOW_ITEM_TYPE_VLAN, spec);
}

Rule &
Rule::Ipv4()
{
	return Item(RTE_FLOW_ITEM_TYPE_IPV4);
}

Rule &
Rule::Ipv4Src(uint32_t src, uint32_t mask_bits)
{
	rte_flow_item_ipv4 spec = {}, mask = {};

	spec.hdr.src_addr = rte_cpu_to_be_32(src);
	mask.hdr.src_addr = rte_cpu_to_be_32(mask_bits);
	return Item(RTE_FLOW_ITEM_TYPE_IPV4, spec, mask);
}

Rule &
Rule::Ipv6()
{
	return Item(RTE_FLOW_ITEM_TYPE_IPV6);
}

Rule &
Rule::Udp()
{
	return Item(RTE_FLOW_ITEM_TYPE_UDP);
}

Rule &
Rule::UdpDst(uint16_t dst, uint16_t mask_bits)
{
	rte_flow_item_udp spec = {}, mask = {};

	spec.hdr.dst_port = rte_cpu_to_be_16(dst);
	mask.hdr.dst_port = rte_cpu_to_be_16(mask_bits);
	return Item(RTE_FLOW_ITEM_TYPE_UDP, spec, mask);
}

Rule &
Rule::Tcp()
{
	return Item(RTE_FLOW_ITEM_TYPE_TCP);
}

Rule &
Rule::AddAction(rte_flow_action_type type, const void *conf)
{
	actions_.insert(actions_.end() - 1, {type, conf});
	return *this;
}

Rule &
Rule::ItemNumber(unsigned int number)
{
	Item(RTE_FLOW_ITEM_TYPE_VOID);
	memcpy(&(items_.end() - 2)->type, &number, sizeof(number));
	return *this;
}

Rule &
Rule::ActionNumber(unsigned int number)
{
	Action(RTE_FLOW_ACTION_TYPE_VOID);
	memcpy(&(actions_.end() - 2)->type, &number, sizeof(number));
	return *this;
}

Rule &
Rule::Action(rte_flow_action_type type)
{
	return AddAction(type, nullptr);
}

Rule &
Rule::Meter(uint32_t id)
{
	return Action(RTE_FLOW_ACTION_TYPE_METER, rte_flow_action_meter{id});
}

Rule &
Rule::Queue(uint16_t index)
{
	return Action(RTE_FLOW_ACTION_TYPE_QUEUE, rte_flow_action_queue{index});
}

Rule &
Rule::Drop()
{
	return Action(RTE_FLOW_ACTION_TYPE_DROP);
}

Rule &
Rule::Count()
{
	return Action(RTE_FLOW_ACTION_TYPE_COUNT);
}

Rule &
Rule::Passthru()
{
	return Action(RTE_FLOW_ACTION_TYPE_PASSTHRU);
}

Tables::Tables()
{
	port.rcu = vask_rcu_create(2 * VASK_QUEUES_MAX);
	for (vask_flow_state *&state : port.flow)
		EXPECT_EQ(vask_flow_state_create(port.rcu, &state), 0);
}

Tables::~Tables()
{
	for (vask_flow_state *state : port.flow) {
		while (rte_flow *rule = TAILQ_FIRST(&state->rules))
			vask_flow_remove(rule);
		vask_flow_state_free(state);
	}
	rte_free(port.rcu);
}

rte_flow *
Tables::Add(const Rule &rule)
{
	const rte_flow_action *meter_action;
	vask_flow_spec spec;
	rte_flow_error error = {};

	if (vask_flow_parse(VASK_QUEUES_MAX, &rule.attr, rule.pattern(), rule.actions(), &spec,
		    &meter_action, &error) != 0) {
		ADD_FAILURE() << error.message;
		return nullptr;
	}
	rte_flow *flow = vask_flow_rule_alloc(port.flow[spec.dir], &spec);
	vask_flow_rule_meter_set(flow, spec.meter_id);
	if (vask_flow_insert(flow) != 0) {
		ADD_FAILURE() << "not inserted";
		vask_flow_rule_free(flow);
		return nullptr;
	}
	return flow;
}

void
Tables::Remove(rte_flow *rule)
{
	vask_flow_remove(rule);
}

Verdict
Classify(const vask_port &port, const std::vector<rte_mbuf *> &pkts, uint16_t queue, int dir)
{
	static const softcard_port unbound = {}; /* tables stand without a card, too */
	const softcard_port *card = softcard_port_of(vask_port_sfi(&port));
	const unsigned thread = dir == VASK_P4_MEP_INGRESS ? queue : VASK_QUEUES_MAX + queue;
	softcard_burst burst;
	vask_flow_verdict said;
	Verdict verdict;

	burst.n = pkts.size();
	std::copy(pkts.begin(), pkts.end(), burst.pkts);
	vask_rcu_online(port.rcu, thread);
	vask_flow_classify(&port, card != nullptr ? card : &unbound, queue, dir, &burst, &said);
	rte_rcu_qsbr_thread_offline(port.rcu, thread);
	for (size_t i = 0; i < pkts.size(); i++) {
		verdict.hw_meter_id[i] = said.metered ? burst.hw_meter_id[i] : 0;
		verdict.queue[i] =
			said.diverted && burst.tag[i] != VASK_FLOW_STAY ? burst.tag[i] : queue;
	}
	verdict.drop_mask = said.drop_mask;
	verdict.metered = said.metered;
	verdict.diverted = said.diverted;
	return verdict;
}

uint32_t
Tables::MeterOf(const Bytes &frame, int dir)
{
	const Mbuf mbuf = MakeMbuf(frame);

	return Classify({mbuf.get()}, 0, dir).hw_meter_id[0];
}

uint64_t
Hits(rte_flow *rule)
{
	uint64_t hits, bytes;

	vask_flow_rule_count(rule, false, &hits, &bytes);
	return hits;
}

} // namespace vask_test
