/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef TESTS_SUPPORT_FAKE_CARD_H
#define TESTS_SUPPORT_FAKE_CARD_H

/**
 * @file
 * Stands for everything below the module: engines, pipeline, shapers, command channel, port data, index
 * pools, log type and list heads. It records every call in the trace, fails those it is told to fail, and
 * notes what the module's contract with those layers forbids.
 */

#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <rte_spinlock.h>

#include "trace.h"
#include "vask_p4_common.h"

namespace vask_test
{

class FakeCard
{
      public:
	/** A pool of indexes: hands out the lowest free one unless told otherwise. */
	struct Pool {
		VASK_P4_INDEXSTACK_MANAGER manager;
		uint32_t capacity;
		std::set<uint32_t> used;
		std::set<uint32_t> reserved; /* marked used at start, by nobody's record */
		std::deque<uint32_t> next;   /* indexes to hand out first */
		bool destroyed;
	};

	/** Back to a card that refuses nothing: no ports, no pools, empty lists. Frees nothing. */
	void Reset();

	/** Gives a device private data with that source-port number. */
	void AddPort(const rte_eth_dev *dev, uint16_t sfi);

	/** @name Faults. The nth call from now (every one for FailEvery) returns code. @{ */
	void Fail(Op op, int code, unsigned nth = 1);
	void FailEvery(Op op, int code);
	/** The nth call from now, whatever its operation, of those that return a status. */
	void FailAnyOp(unsigned nth, int code);
	void ClearFaults();
	/** @} */

	/** Indexes that a pool hands out next, in this order; they must be free by then. */
	void HandOut(const VASK_P4_INDEXSTACK_MANAGER *manager, std::deque<uint32_t> indexes);

	/** Takes every index that is left. */
	void Drain(const VASK_P4_INDEXSTACK_MANAGER *manager);

	Pool &pool(const VASK_P4_INDEXSTACK_MANAGER *manager);
	const std::vector<std::unique_ptr<Pool>> &pools() const
	{
		return pools_;
	}

	/** All calls in the trace, and those of one operation. */
	std::vector<Call> calls() const;
	std::vector<Call> calls(Op op) const;

	/** Calls that return a status, since the last Reset(); how far FailAnyOp() can reach. */
	unsigned fallible_calls() const
	{
		return fallible_calls_;
	}

	/** Entries of the transmit input-port table, by source port. */
	std::map<uint32_t, qorn_input_port_table_result_tx> tx_ports;

	/** Engine instances, by engine and hardware meter. */
	std::map<std::pair<int, uint32_t>, vask_p4_mep_meter_inst_table> instances;

	/** A record's lock that stands in no list and in no block of calloc(). */
	void WatchLock(const rte_spinlock_t *lock);
	void ForgetLocks();

	/** Locks of the module's records that are held now. */
	unsigned LocksHeld() const;

	/**
	 * By default a pool allocation or release must come with exactly one record's lock held and any other
	 * call with none; a test that calls the pool functions alone turns that off.
	 */
	bool check_locks = true;

	/** What the module did that the layers below do not allow; empty at the end of a good test. */
	std::vector<std::string> violations;

	/** @name Called by the fake operations. @{ */
	int Record(Call call);
	void RecordPlain(Call call);
	bool FailsPlain(Op op);
	void CheckChannel(const vask_cmd_channel *channel);
	vask_cmd_channel *FetchChannel();
	vask_p4_priv_port *PortOf(const rte_eth_dev *dev);
	Pool &NewPool(uint32_t capacity);
	/** @} */

      private:
	struct Fault {
		bool any_op;
		Op op;
		unsigned in; /* calls until it strikes, which is once; 0: every call */
		int code;
	};

	int FaultOf(Op op, bool returns_status);
	void CheckLocks(Op op);

	std::vector<Fault> faults_;
	std::vector<const rte_spinlock_t *> watched_;
	std::map<const rte_eth_dev *, vask_p4_priv_port> ports_;
	std::vector<std::unique_ptr<Pool>> pools_;
	unsigned fallible_calls_ = 0;
	vask_cmd_channel *fetched_ = nullptr;
};

/** The card that the fake operations work on. */
FakeCard &TheCard();

} // namespace vask_test

#endif /* TESTS_SUPPORT_FAKE_CARD_H */
