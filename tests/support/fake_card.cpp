/* SPDX-License-Identifier: BSD-3-Clause */
#include "fake_card.h"

#include <climits>
#include <stdexcept>

#include "allocations.h"
#include "vask_p4_info.h"

struct vask_p4_meter_profile_list_head vask_p4_meter_profile_list =
	TAILQ_HEAD_INITIALIZER(vask_p4_meter_profile_list);
struct vask_p4_meter_policy_list_head vask_p4_meter_policy_list =
	TAILQ_HEAD_INITIALIZER(vask_p4_meter_policy_list);
struct vask_p4_meter_list_head vask_p4_meter_list = TAILQ_HEAD_INITIALIZER(vask_p4_meter_list);

namespace vask_test
{

namespace
{

/* A block of calloc() is told by its size which record it is: it may not be listed yet. */
static_assert(sizeof(vask_p4_meter_profile_node) != sizeof(vask_p4_meter_policy_node));
static_assert(sizeof(vask_p4_meter_profile_node) != sizeof(vask_p4_meter_cfg_node));
static_assert(sizeof(vask_p4_meter_policy_node) != sizeof(vask_p4_meter_cfg_node));

const rte_spinlock_t *
LockOfBlock(const void *block, size_t size)
{
	switch (size) {
	case sizeof(vask_p4_meter_profile_node):
		return &static_cast<const vask_p4_meter_profile_node *>(block)->data.sl;
	case sizeof(vask_p4_meter_policy_node):
		return &static_cast<const vask_p4_meter_policy_node *>(block)->data.sl;
	case sizeof(vask_p4_meter_cfg_node):
		return &static_cast<const vask_p4_meter_cfg_node *>(block)->data.sl;
	default:
		return nullptr;
	}
}

} // namespace

FakeCard &
TheCard()
{
	static auto *card = new FakeCard;
	return *card;
}

void
FakeCard::Reset()
{
	*this = FakeCard();
	TAILQ_INIT(&vask_p4_meter_profile_list);
	TAILQ_INIT(&vask_p4_meter_policy_list);
	TAILQ_INIT(&vask_p4_meter_list);
}

void
FakeCard::AddPort(const rte_eth_dev *dev, uint16_t sfi)
{
	vask_p4_priv_port port = {};
	port.rep.priv_port = sfi;
	ports_[dev] = port;
}

void
FakeCard::Fail(Op op, int code, unsigned nth)
{
	faults_.push_back({false, op, nth, code});
}

void
FakeCard::FailEvery(Op op, int code)
{
	faults_.push_back({false, op, 0, code});
}

void
FakeCard::FailAnyOp(unsigned nth, int code)
{
	faults_.push_back({true, {}, nth, code});
}

void
FakeCard::ClearFaults()
{
	faults_.clear();
}

/* Every fault counts every call that it applies to, so that several may be planned side by side. */
int
FakeCard::FaultOf(Op op, bool returns_status)
{
	constexpr unsigned SPENT = UINT_MAX;
	int code = 0;

	for (Fault &fault : faults_) {
		const bool applies = fault.any_op ? returns_status : fault.op == op;
		if (!applies || fault.in == SPENT)
			continue;
		if (fault.in == 0) {
			code = fault.code;
		} else if (--fault.in == 0) {
			code = fault.code;
			fault.in = SPENT;
		}
	}
	return code;
}

void
FakeCard::HandOut(const VASK_P4_INDEXSTACK_MANAGER *manager, std::deque<uint32_t> indexes)
{
	pool(manager).next = std::move(indexes);
}

void
FakeCard::Drain(const VASK_P4_INDEXSTACK_MANAGER *manager)
{
	Pool &drained = pool(manager);
	for (uint32_t index = 0; index < drained.capacity; index++)
		if (drained.used.insert(index).second)
			drained.reserved.insert(index);
}

FakeCard::Pool &
FakeCard::pool(const VASK_P4_INDEXSTACK_MANAGER *manager)
{
	for (auto &pool : pools_)
		if (&pool->manager == manager)
			return *pool;
	throw std::invalid_argument("not a pool of this card");
}

FakeCard::Pool &
FakeCard::NewPool(uint32_t capacity)
{
	pools_.push_back(std::make_unique<Pool>());
	pools_.back()->capacity = capacity;
	return *pools_.back();
}

std::vector<Call>
FakeCard::calls() const
{
	std::vector<Call> calls;
	for (const Event &event : trace)
		if (const auto *call = std::get_if<Call>(&event))
			calls.push_back(*call);
	return calls;
}

std::vector<Call>
FakeCard::calls(Op op) const
{
	std::vector<Call> calls = this->calls();
	std::erase_if(calls, [op](const Call &call) { return call.op != op; });
	return calls;
}

void
FakeCard::WatchLock(const rte_spinlock_t *lock)
{
	watched_.push_back(lock);
}

void
FakeCard::ForgetLocks()
{
	watched_.clear();
}

unsigned
FakeCard::LocksHeld() const
{
	std::set<const rte_spinlock_t *> locks(watched_.begin(), watched_.end());

	for (const auto &[block, size] : TheAllocations().live())
		if (const rte_spinlock_t *lock = LockOfBlock(block, size))
			locks.insert(lock);

	unsigned held = 0;
	for (const rte_spinlock_t *lock : locks)
		held += rte_spinlock_is_locked(const_cast<rte_spinlock_t *>(lock)) != 0;
	return held;
}

void
FakeCard::CheckLocks(Op op)
{
	if (!check_locks)
		return;
	const unsigned wanted = op == Op::PoolAlloc || op == Op::PoolFree ? 1 : 0;
	const unsigned held = LocksHeld();
	if (held != wanted)
		violations.push_back(std::string(OpName(op)) + " with " + std::to_string(held) +
			" record locks held, not " + std::to_string(wanted));
}

int
FakeCard::Record(Call call)
{
	const Op op = call.op;

	trace.emplace_back(std::move(call));
	CheckLocks(op);
	fallible_calls_++;
	return FaultOf(op, true);
}

void
FakeCard::RecordPlain(Call call)
{
	CheckLocks(call.op);
	trace.emplace_back(std::move(call));
}

bool
FakeCard::FailsPlain(Op op)
{
	return FaultOf(op, false) != 0;
}

vask_cmd_channel *
FakeCard::FetchChannel()
{
	static vask_cmd_channel channel;

	RecordPlain(CmdChannel());
	fetched_ = FailsPlain(Op::CmdChannel) ? nullptr : &channel;
	return fetched_;
}

void
FakeCard::CheckChannel(const vask_cmd_channel *channel)
{
	if (channel != fetched_)
		violations.push_back("a command on a channel that is not the one fetched last");
}

vask_p4_priv_port *
FakeCard::PortOf(const rte_eth_dev *dev)
{
	RecordPlain(PrivDataGet(dev));
	const auto port = ports_.find(dev);
	return FailsPlain(Op::PrivDataGet) || port == ports_.end() ? nullptr : &port->second;
}

} // namespace vask_test
