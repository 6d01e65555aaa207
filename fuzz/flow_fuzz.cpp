/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Flow rules of any items, masks and actions on a port whose meters come and go, and what they say about frames
 * of any bytes, beside a reference that looks at every rule byte by byte.
 */
#include <map>

#include <rte_ethdev.h>
#include <rte_flow.h>
#include <rte_mtr.h>

#include "check.h"
#include "eal.h"
#include "flow_reference.h"
#include "objects.h"
#include "rules.h"
#include "vask_p4_enum.h"
#include "vask_p4_info.h"

using namespace vask_test;

namespace
{

constexpr unsigned STEPS_MAX = 40;
constexpr unsigned FRAMES = 3;
constexpr uint32_t METERS = 5; /* ids 1 to 4, mostly */

uint16_t port_id;
vask_port *port;

struct KnownRule {
	rte_flow *flow;
	int dir;
	bool meters;
	bool counts;
	uint64_t hits, bytes;
};

/* What an input has built so far. */
struct World {
	std::vector<Bytes> frames;
	std::vector<std::vector<size_t>> cuts;
	std::map<int, KnownRule> rules;
	FlowReference reference[2];
	int next_name = 1;
};

bool
Has(const Rule &rule, rte_flow_action_type type)
{
	const rte_flow_action *action = rule.actions();

	while (vask_p4_enum_number(&action->type) != RTE_FLOW_ACTION_TYPE_END &&
		vask_p4_enum_number(&action->type) != type)
		action++;
	return vask_p4_enum_number(&action->type) == type;
}

size_t
RulesOf(int dir)
{
	const rte_flow *rule;
	size_t n = 0;

	TAILQ_FOREACH (rule, &port->flow[dir]->rules, in_state)
		n++;
	return n;
}

/* A refusal names what it refuses: the attributes, an item, an action, or nothing. */
void
CheckRefusal(const Rule &rule, const rte_flow_error &error)
{
	bool known = error.cause == nullptr || error.cause == &rule.attr;

	FUZZ_CHECK(error.type != RTE_FLOW_ERROR_TYPE_NONE);
	FUZZ_CHECK(error.message != nullptr && error.message[0] != '\0');
	for (const rte_flow_item *i = rule.pattern();
		vask_p4_enum_number(&i->type) != RTE_FLOW_ITEM_TYPE_END; i++)
		known |= error.cause == i;
	for (const rte_flow_action *a = rule.actions();
		vask_p4_enum_number(&a->type) != RTE_FLOW_ACTION_TYPE_END; a++)
		known |= error.cause == a;
	FUZZ_CHECK(known);
}

void
Create(Input &in, World *world)
{
	rte_flow_error error = {};
	const uint8_t attr = in.Byte();
	Rule rule;

	rule.attr.ingress = (attr & 1) == 0;
	rule.attr.egress = (attr & 3) == 1 || (attr & 16) != 0;
	rule.attr.priority = attr >> 2 & 3;
	rule.attr.transfer = (attr & 32) != 0;
	rule.attr.group = attr >> 6;
	for (unsigned n = in.Below(6); n > 0; n--)
		fuzz_item_add(in, world->frames[0], &rule);
	for (unsigned n = in.Below(5); n > 0; n--)
		fuzz_action_add(in, &rule);

	const size_t before = RulesOf(0) + RulesOf(1);
	const int rc =
		rte_flow_validate(port_id, &rule.attr, rule.pattern(), rule.actions(), &error);
	FUZZ_CHECK(RulesOf(0) + RulesOf(1) == before);
	rte_flow *flow =
		rte_flow_create(port_id, &rule.attr, rule.pattern(), rule.actions(), &error);
	FUZZ_CHECK((flow != nullptr) == (rc == 0));
	FUZZ_CHECK(RulesOf(0) + RulesOf(1) == before + (flow != nullptr));
	if (flow == nullptr)
		return CheckRefusal(rule, error);

	const int dir = rule.attr.egress;
	world->reference[dir].Add(world->next_name, rule);
	world->rules[world->next_name++] = {flow, dir, Has(rule, RTE_FLOW_ACTION_TYPE_METER),
		Has(rule, RTE_FLOW_ACTION_TYPE_COUNT), 0, 0};
}

void
Destroy(Input &in, World *world)
{
	rte_flow_error error = {};

	if (world->rules.empty())
		return;
	const auto it = std::next(
		world->rules.begin(), static_cast<ptrdiff_t>(in.Byte() % world->rules.size()));
	const rte_flow *const gone = it->second.flow;
	const size_t before = RulesOf(0) + RulesOf(1);
	FUZZ_CHECK(rte_flow_destroy(port_id, it->second.flow, &error) == 0);
	/* a second time it is no rule */
	FUZZ_CHECK(rte_flow_destroy(port_id, it->second.flow, &error) == -ENOENT);
	FUZZ_CHECK(error.cause == gone && RulesOf(0) + RulesOf(1) == before - 1);
	world->reference[it->second.dir].Remove(it->first);
	world->rules.erase(it);
}

/* The card's number of a meter while it is there and enabled. */
uint32_t
HardwareMeter(uint32_t id)
{
	const vask_p4_meter_cfg_node *node;

	TAILQ_FOREACH (node, &vask_p4_meter_list, next)
		if (node->data.meter_id == id)
			return node->data.enable ? node->data.hw_meter_id : 0;
	return 0;
}

void
Compare(Input &in, World *world)
{
	const int dir = in.Bit();
	const auto queue = static_cast<uint16_t>(in.Below(FUZZ_QUEUES));
	std::vector<Mbuf> mbufs;
	std::vector<rte_mbuf *> pkts;
	bool metering = false;

	for (size_t i = 0; i < world->frames.size(); i++) {
		mbufs.push_back(MakeMbuf(world->frames[i], world->cuts[i]));
		pkts.push_back(mbufs.back().get());
	}
	for (const auto &[name, rule] : world->rules)
		metering |= rule.dir == dir && rule.meters;
	const uint32_t port_meter = metering ? 0 : softcard_port_meter(dir, vask_port_sfi(port));

	const Verdict verdict = Classify(*port, pkts, queue, dir);
	for (size_t i = 0; i < pkts.size(); i++) {
		const auto want = world->reference[dir].Classify(world->frames[i]);

		FUZZ_CHECK((verdict.drop_mask >> i & 1) == want.drop);
		if (!want.drop)
			FUZZ_CHECK(verdict.hw_meter_id[i] ==
				(want.meter != 0 ? HardwareMeter(want.meter) : port_meter));
		FUZZ_CHECK(verdict.queue[i] == want.queue.value_or(queue));
		for (int name : want.counted) {
			world->rules.at(name).hits++;
			world->rules.at(name).bytes += world->frames[i].size();
		}
	}
}

void
Query(Input &in, World *world)
{
	const bool reset = in.Bit();
	const rte_flow_action count[] = {
		{RTE_FLOW_ACTION_TYPE_COUNT, nullptr}, {RTE_FLOW_ACTION_TYPE_END, nullptr}};

	for (auto &[name, rule] : world->rules) {
		rte_flow_query_count said = {};
		rte_flow_error error;

		said.reset = reset;
		const int rc = rte_flow_query(port_id, rule.flow, count, &said, &error);
		FUZZ_CHECK((rc == 0) == rule.counts);
		if (rc != 0)
			continue;
		FUZZ_CHECK(said.hits_set && said.hits == rule.hits);
		FUZZ_CHECK(said.bytes_set && said.bytes == rule.bytes);
		if (reset)
			rule.hits = rule.bytes = 0;
	}
}

/* A meter comes or goes, or is enabled or disabled, whoever uses it. */
void
ChangeMeter(Input &in)
{
	const uint32_t id = 1 + in.Below(METERS - 1);
	rte_mtr_error error;

	switch (in.Below(4)) {
	case 0:
		fuzz_meter_create(port_id, id, in.Of({FUZZ_RX, FUZZ_TX, FUZZ_BOTH}), false);
		return;
	case 1:
		rte_mtr_destroy(port_id, id, &error);
		return;
	case 2:
		rte_mtr_meter_enable(port_id, id, &error);
		return;
	default:
		rte_mtr_meter_disable(port_id, id, &error);
	}
}

void
CheckDump()
{
	rte_flow_error error;
	char *text = nullptr;
	size_t size = 0;
	FILE *file = open_memstream(&text, &size);

	FUZZ_CHECK(rte_flow_dev_dump(port_id, nullptr, file, &error) == 0);
	fclose(file);
	FUZZ_CHECK((size != 0) == (RulesOf(0) + RulesOf(1) != 0));
	FUZZ_CHECK(strlen(text) == size);
	free(text);
}

} // namespace

extern "C" int
LLVMFuzzerInitialize(int *, char ***)
{
	static FuzzWire wire;

	fuzz_eal_init();
	port_id = fuzz_port_probe(0, "", &wire);
	fuzz_port_start(port_id, 0, Pool());
	port = vask_port_of(&rte_eth_devices[port_id]);
	return 0;
}

extern "C" int
LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	static const uint8_t profile[] = {0, 0, 2, 0, 1};
	Input in(data, size), profile_in(profile, sizeof(profile));
	rte_flow_error error;
	World world;

	FUZZ_CHECK(fuzz_profile_add(profile_in, port_id, 1));
	fuzz_policy_add(profile_in, port_id, 1, true);
	for (uint32_t id = 1; id < METERS; id++)
		FUZZ_CHECK(fuzz_meter_create(port_id, id, id == 2 ? FUZZ_TX : FUZZ_RX, false));

	for (unsigned i = 0; i < FRAMES; i++) {
		world.frames.push_back(in.Bytes(in.Byte()));
		world.cuts.emplace_back();
		for (unsigned n = in.Below(4), at = 0; n > 0; n--) {
			at += in.Byte();
			if (at < world.frames[i].size())
				world.cuts[i].push_back(at);
		}
	}
	for (unsigned n = 0; n < STEPS_MAX && !in.empty(); n++) {
		switch (in.Below(8)) {
		default:
			Create(in, &world);
			break;
		case 4:
			Destroy(in, &world);
			break;
		case 5:
			Compare(in, &world);
			break;
		case 6:
			Query(in, &world);
			break;
		case 7:
			ChangeMeter(in);
		}
	}
	Compare(in, &world);
	Query(in, &world);
	CheckDump();
	FUZZ_CHECK(rte_mempool_in_use_count(Pool()) == 0);

	FUZZ_CHECK(rte_flow_flush(port_id, &error) == 0);
	FUZZ_CHECK(RulesOf(0) + RulesOf(1) == 0);
	fuzz_objects_clear(port_id);
	return 0;
}
