/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef METERING_TEST_H
#define METERING_TEST_H

#include "card_test.h"

constexpr uint64_t US = 1000;
constexpr uint64_t BYTE = 125000;       /* level parts */
constexpr uint64_t PACKET = 1000000000; /* likewise */

/* 1 byte/us, 1024 bytes committed, 1024 bytes excess, RFC 2697. */
constexpr Profile SMALL = {125, 1, 0, 1};

/* Sends bursts through an engine. */
class Metering : public CardTest
{
      protected:
	/* Meters equal frames and gives the mask of those dropped; the burst stays in `burst`. */
	uint64_t Run(int dir, uint32_t meter, uint64_t now_ns, const std::vector<uint32_t> &lengths,
		uint8_t tos = 0)
	{
		std::vector<rte_mbuf *> pkts;
		Free(burst);
		for (uint32_t length : lengths)
			pkts.push_back(MakeIpv4(length, tos));
		burst = Burst(meter, now_ns, pkts);
		return softcard_meter_burst(dir, &burst);
	}

	uint8_t Tos(unsigned i)
	{
		return BytesOf(burst.pkts[i]).at(15);
	}

	void TearDown() override
	{
		Free(burst);
		CardTest::TearDown();
	}

	softcard_burst burst = {};
};

#endif /* METERING_TEST_H */
