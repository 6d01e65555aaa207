/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef FUZZ_MODULE_H
#define FUZZ_MODULE_H

/**
 * @file
 * The meter module, started, over the fake card that records every call, and what holds between any two calls
 * to it whatever failed below.
 */

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <vector>

#include <rte_mtr.h>

#include "fake_card.h"
#include "input.h"
#include "log_capture.h"
#include "vask_p4_info.h"

class Module
{
      public:
	Module();
	~Module();

	/** What a refusal by the card may leave changed in the lists; any other refusal changes nothing. */
	enum class Leaves { NOTHING, SOMETHING };

	/**
	 * Makes one call under the faults that the input plans for it, and checks its result against its error
	 * record, and what a refused call left behind.
	 *
	 * @return the call's result.
	 */
	int
	Make(Input &input, Leaves leaves, const std::function<int(struct rte_mtr_error *)> &call);

	/** A layer below, or an allocation, failed in the last call. */
	bool struck() const
	{
		return struck_;
	}

	/** Lists, references, pools, locks, memory, and the records and lines of the last call. */
	void Check();

	/** The first listed record of an id, or null. */
	static const vask_p4_meter_profile *Profile(uint32_t id);
	static const vask_p4_meter_policy *Policy(uint32_t id);
	static const vask_p4_meter_cfg_entry *Meter(uint32_t id);

	/** Meters that are listed. */
	size_t meters() const;

	/** The calls of an operation that the last call made. */
	std::vector<vask_test::Call> Calls(vask_test::Op op) const
	{
		return card.calls(op);
	}

	/** One reference less, and never below 0. */
	static void Drop(std::map<uint32_t, uint32_t> &references, uint32_t id);

	/** One reference less of an object that is still listed. */
	static void Take(std::map<uint32_t, uint32_t> &references, uint32_t id);

	/** Devices: two with source ports 42 and 0x1eff, one with one too many, and one that is another's. */
	static rte_eth_dev *Device(unsigned n);

	vask_test::FakeCard &card;

	/** References that each listed profile and policy should have, by its id: the target's to keep. */
	std::map<uint32_t, uint32_t> profile_references;
	std::map<uint32_t, uint32_t> policy_references;

      private:
	void CheckLists() const;
	void CheckPools();
	void CheckMemory();
	void CheckCalls() const;

	vask_test::LogCapture log_;
	bool struck_ = false;
	size_t lost_ = 0; /* meters given up, not freed, because no index was free */
	std::map<const VASK_P4_INDEXSTACK_MANAGER *, std::set<uint32_t>> stranded_;
};

#endif /* FUZZ_MODULE_H */
