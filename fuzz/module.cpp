/* SPDX-License-Identifier: BSD-3-Clause */
#include "module.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

extern "C" {
#include <ethdev_driver.h>
}

#include <rte_errno.h>

#include "allocations.h"
#include "check.h"
#include "vask_p4_log.h"
#include "vask_p4_meter.h"

using namespace vask_test;

namespace
{

constexpr int CODES[] = {-5, 7};
constexpr char UNTOUCHED[] = "untouched";

/* Bits first..first+width-1 of a record, lowest bit of the first byte first. */
uint64_t
Bits(const std::vector<uint8_t> &record, unsigned first, unsigned width)
{
	uint64_t bits = 0;

	for (unsigned i = 0; i < width; i++)
		bits |= uint64_t{record.at((first + i) / 8) >> (first + i) % 8 & 1u} << i;
	return bits;
}

template <typename Head>
auto
Nodes(const Head &head)
{
	std::vector<decltype(Head::tqh_first)> nodes;
	auto *const *link = &head.tqh_first;

	for (auto *node = head.tqh_first; node != nullptr; node = node->next.tqe_next) {
		FUZZ_CHECK(node->next.tqe_prev == link);
		link = &node->next.tqe_next;
		nodes.push_back(node);
	}
	FUZZ_CHECK(head.tqh_last == link);
	return nodes;
}

/* All nodes with all that they hold. */
using Image = std::vector<std::pair<const void *, std::vector<uint8_t>>>;

template <typename Head>
void
Add(Image *image, const Head &head)
{
	for (const auto *node : Nodes(head))
		image->emplace_back(node, Bytes(node->data));
}

Image
ListImage()
{
	Image image;

	Add(&image, vask_p4_meter_profile_list);
	Add(&image, vask_p4_meter_policy_list);
	Add(&image, vask_p4_meter_list);
	return image;
}

std::vector<std::set<uint32_t>>
PoolImage(const FakeCard &card)
{
	std::vector<std::set<uint32_t>> image;

	for (const auto &pool : card.pools())
		image.push_back(pool->used);
	return image;
}

template <typename Head, typename Member>
auto
Find(const Head &head, Member id_of, uint32_t id) -> decltype(&TAILQ_FIRST(&head)->data)
{
	for (auto *node : Nodes(head))
		if (node->data.*id_of == id)
			return &node->data;
	return nullptr;
}

template <typename Head>
void
FreeAll(Head &head)
{
	for (auto *node : Nodes(head))
		free(node);
	TAILQ_INIT(&head);
}

} // namespace

Module::Module() : card(TheCard())
{
	card.Reset();
	TheAllocations().Reset();
	card.AddPort(Device(0), 42);
	card.AddPort(Device(1), 0x1eff);
	card.AddPort(Device(2), 0x1f00);
	FUZZ_CHECK(vask_p4_meter_indexstack_init() == 0);
	policy_references[0] = 0;
	Check();
}

Module::~Module()
{
	vask_p4_meter_indexstack_destory();
	FUZZ_CHECK(card.violations.empty());
	FreeAll(vask_p4_meter_profile_list);
	FreeAll(vask_p4_meter_policy_list);
	FreeAll(vask_p4_meter_list);

	const auto lost = TheAllocations().live();
	FUZZ_CHECK(lost.size() == lost_);
	for (const auto &block : lost)
		free(block.first);
	trace.clear();
}

rte_eth_dev *
Module::Device(unsigned n)
{
	return &rte_eth_devices[n];
}

const vask_p4_meter_profile *
Module::Profile(uint32_t id)
{
	return Find(vask_p4_meter_profile_list, &vask_p4_meter_profile::profile_id, id);
}

const vask_p4_meter_policy *
Module::Policy(uint32_t id)
{
	return Find(vask_p4_meter_policy_list, &vask_p4_meter_policy::policy_id, id);
}

const vask_p4_meter_cfg_entry *
Module::Meter(uint32_t id)
{
	return Find(vask_p4_meter_list, &vask_p4_meter_cfg_entry::meter_id, id);
}

size_t
Module::meters() const
{
	return Nodes(vask_p4_meter_list).size();
}

void
Module::Drop(std::map<uint32_t, uint32_t> &references, uint32_t id)
{
	const auto found = references.find(id);

	if (found != references.end() && found->second != 0)
		found->second--;
}

void
Module::Take(std::map<uint32_t, uint32_t> &references, uint32_t id)
{
	const auto found = references.find(id);

	if (found != references.end())
		found->second--;
}

int
Module::Make(Input &input, Leaves leaves, const std::function<int(struct rte_mtr_error *)> &call)
{
	struct rte_mtr_error error = {RTE_MTR_ERROR_TYPE_NONE, &card, UNTOUCHED};
	const Image lists = ListImage();
	const auto pools = PoolImage(card);
	const unsigned calls_before = card.fallible_calls();
	/* low half: the call below that fails, or no memory; high half: a second one */
	const uint8_t plan = input.Byte();
	const bool no_memory = (plan & 15) == 15;

	trace.clear();
	if (no_memory)
		TheAllocations().Fail();
	else if ((plan & 15) != 0)
		card.FailAnyOp(plan & 15, CODES[0]);
	if (plan >> 4 != 0)
		card.FailAnyOp(plan >> 4, CODES[1]);
	TheAllocations().Restart();
	rte_errno = 0;
	const int rc = call(&error);
	const unsigned calls = card.fallible_calls() - calls_before;
	struck_ = (no_memory && TheAllocations().count() != 0) ||
		(!no_memory && (plan & 15) != 0 && calls >= (plan & 15u)) ||
		(plan >> 4 != 0 && calls >= plan >> 4);
	card.ClearFaults();
	TheAllocations().Reset();

	const bool untouched = error.type == RTE_MTR_ERROR_TYPE_NONE && error.cause == &card &&
		error.message == UNTOUCHED;
	if (rc == 0)
		FUZZ_CHECK(untouched);
	if (!untouched) {
		FUZZ_CHECK(rc == -EBUSY && rte_errno == EBUSY);
		FUZZ_CHECK(error.type != RTE_MTR_ERROR_TYPE_NONE && error.cause == nullptr);
		FUZZ_CHECK(error.message != nullptr && error.message[0] != '\0');
	}
	if (rc != 0 && (!struck_ || leaves == Leaves::NOTHING))
		FUZZ_CHECK(ListImage() == lists);
	if (rc != 0 && !struck_)
		FUZZ_CHECK(PoolImage(card) == pools);
	return rc;
}

void
Module::Check()
{
	FUZZ_CHECK(card.violations.empty());
	FUZZ_CHECK(card.LocksHeld() == 0);
	CheckLists();
	CheckPools();
	CheckMemory();
	CheckCalls();
}

void
Module::CheckLists() const
{
	std::set<uint32_t> ids, indexes;
	size_t listed = 0;

	for (const auto *node : Nodes(vask_p4_meter_profile_list)) {
		const vask_p4_meter_profile &p = node->data;

		FUZZ_CHECK(ids.insert(p.profile_id).second);
		FUZZ_CHECK(p.hw_profile_id > 0 && p.hw_profile_id < 256);
		FUZZ_CHECK(indexes.insert(p.hw_profile_id).second);
		FUZZ_CHECK(card.pool(profile_index_mgr).used.count(p.hw_profile_id) == 1);
		FUZZ_CHECK(profile_references.count(p.profile_id) == 1);
		FUZZ_CHECK(p.ref_cnt == profile_references.at(p.profile_id));
		listed++;
	}
	FUZZ_CHECK(listed == profile_references.size());

	ids.clear();
	indexes.clear();
	listed = 0;
	for (const auto *node : Nodes(vask_p4_meter_policy_list)) {
		const vask_p4_meter_policy &p = node->data;

		FUZZ_CHECK(ids.insert(p.policy_id).second);
		FUZZ_CHECK(p.hw_policy_id > 0 && p.hw_policy_id < 256);
		/* index 255 is the default policy's, and after its deletion anybody's */
		FUZZ_CHECK(indexes.insert(p.hw_policy_id).second || p.hw_policy_id == 255);
		FUZZ_CHECK(p.hw_policy_id == 255 ||
			card.pool(policy_index_mgr).used.count(p.hw_policy_id) == 1);
		FUZZ_CHECK(policy_references.count(p.policy_id) == 1);
		FUZZ_CHECK(p.ref_cnt == policy_references.at(p.policy_id));
		listed++;
	}
	FUZZ_CHECK(listed == policy_references.size());

	ids.clear();
	for (const auto *node : Nodes(vask_p4_meter_list)) {
		const vask_p4_meter_cfg_entry &m = node->data;

		/* meter 0 is never a duplicate */
		FUZZ_CHECK(m.meter_id == 0 || ids.insert(m.meter_id).second);
		FUZZ_CHECK(m.hw_meter_id > 0 && m.hw_meter_id < 4096);
		FUZZ_CHECK(m.dir == 0 || m.dir == 1 || m.dir == 3);
		FUZZ_CHECK(m.port_sfi <= 0x1eff && m.resv == 0);
	}
}

/* An index is free, reserved, or some record's, unless a call that failed below left it behind. */
void
Module::CheckPools()
{
	for (const auto &pool : card.pools()) {
		const VASK_P4_INDEXSTACK_MANAGER *manager = &pool->manager;
		std::set<uint32_t> stranded = pool->used;

		for (uint32_t index : pool->used)
			FUZZ_CHECK(index < pool->capacity);
		for (uint32_t index : pool->reserved)
			stranded.erase(index);
		for (const auto *node : Nodes(vask_p4_meter_profile_list))
			if (manager == profile_index_mgr)
				stranded.erase(node->data.hw_profile_id);
		for (const auto *node : Nodes(vask_p4_meter_policy_list))
			if (manager == policy_index_mgr)
				stranded.erase(node->data.hw_policy_id);
		for (const auto *node : Nodes(vask_p4_meter_list))
			if (manager == meter_index_mgr)
				stranded.erase(node->data.hw_meter_id);
		if (!struck_)
			FUZZ_CHECK(std::includes(stranded_[manager].begin(),
				stranded_[manager].end(), stranded.begin(), stranded.end()));
		stranded_[manager] = stranded;
	}
}

void
Module::CheckMemory()
{
	const auto &live = TheAllocations().live();
	size_t listed = 0;

	for (const auto &node : ListImage()) {
		FUZZ_CHECK(live.count(const_cast<void *>(node.first)) == 1);
		listed++;
	}
	for (const Call &call : card.calls(Op::PoolAlloc))
		lost_ += call.args.at(0) == reinterpret_cast<uintptr_t>(meter_index_mgr) &&
			call.args.at(2) == 0;
	FUZZ_CHECK(live.size() == listed + lost_);
}

/* Every record that goes down holds nothing where it may not, and every line is the driver's and whole. */
void
Module::CheckCalls() const
{
	for (const Event &event : trace) {
		if (const auto *line = std::get_if<LogLine>(&event)) {
			FUZZ_CHECK(line->type == vask_p4_logtype);
			FUZZ_CHECK(line->text.starts_with("[offload_smartnic]"));
			FUZZ_CHECK(line->text.ends_with("\n"));
			continue;
		}
		const Call &call = std::get<Call>(event);
		switch (call.op) {
		case Op::MepAddProfile:
			FUZZ_CHECK(call.args.at(0) == 0 && call.args.at(1) < 256);
			FUZZ_CHECK(Bits(call.record, 40, 1) == 0 && Bits(call.record, 95, 1) == 1);
			break;
		case Op::MepAddPolicy:
			FUZZ_CHECK(call.args.at(0) == 0 && call.args.at(1) < 256);
			FUZZ_CHECK(Bits(call.record, 24, 7) == 0 && Bits(call.record, 31, 1) == 1);
			break;
		case Op::MepBindOutput:
			FUZZ_CHECK(call.args.at(1) <= 0x1eff && call.args.at(2) < 4096);
			break;
		case Op::IschWrite:
			/* off is all zero; on has a burst of 1 and rate level 0 */
			FUZZ_CHECK(Bits(call.record, 30, 2) == 0);
			if (Bits(call.record, 0, 1) == 0)
				FUZZ_CHECK(Bits(call.record, 0, 32) == 0);
			else
				FUZZ_CHECK(Bits(call.record, 1, 1) == 0 &&
					Bits(call.record, 3, 8) == 1);
			break;
		case Op::SetShaper:
			FUZZ_CHECK(Bits(call.record, 16, 16) == 0);
			FUZZ_CHECK(Bits(call.record, 48, 16) == 1);
			break;
		case Op::PipeProfileUpdate:
			FUZZ_CHECK(Bits(call.record, 0, 25) == 0);
			FUZZ_CHECK(Bits(call.record, 27, 4) == 1 && Bits(call.record, 127, 1) == 1);
			break;
		case Op::PipeMeterUpdate:
			FUZZ_CHECK(Bits(call.record, 0, 64) == 0 && Bits(call.record, 64, 64) == 0);
			FUZZ_CHECK(Bits(call.record, 128, 20) == 0);
			FUZZ_CHECK(Bits(call.record, 156, 4) == 1);
			break;
		default:
			break;
		}
	}
}
