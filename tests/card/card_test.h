/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef CARD_TEST_H
#define CARD_TEST_H

/* What tests of the software card share: EAL, a card that is up, a pool, frames. */

#include <cstdint>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <rte_mbuf.h>
#include <rte_meter.h>

#include "profile.h"
#include "softcard.h"
#include "softcard_view.h"

constexpr int RX = VASK_P4_MEP_INGRESS;
constexpr int TX = VASK_P4_MEP_EGRESS;

/* One pool for all tests: 4096 buffers of 2048 bytes behind the headroom. EAL is up from main() on. */
rte_mempool *Pool();

/*
 * A pool for the frames that this thread makes, instead of that one; null: that one again. A thread
 * sanitizer does not see how a pool hands a buffer from one thread to another.
 */
void UsePool(rte_mempool *own);

/* Buffers of the pool in use. */
unsigned InUse();

/* A card that is up, and no buffer lost at the end. */
class CardTest : public ::testing::Test
{
      protected:
	void SetUp() override;
	void TearDown() override;

      private:
	unsigned in_use_before = 0;
};

vask_p4_mep_meter_profile_table ProfileRecord(const Profile &profile);

/* Actions of green, yellow and red, and the DSCP of each. */
vask_p4_mep_meter_policy_table
PolicyRecord(std::array<uint32_t, 3> action, std::array<uint32_t, 3> dscp = {});

/* Policy that passes green and yellow and drops red. */
vask_p4_mep_meter_policy_table DropRed();

vask_p4_mep_meter_inst_table InstRecord(uint32_t profile_id, uint32_t policy_id);

/* Writes profile 1, policy 1 and a meter that uses them. */
void MakeMeter(int dir, uint32_t meter, const Profile &profile,
	const vask_p4_mep_meter_policy_table &policy, bool color_aware = false);

softcard_meter_view View(int dir, uint32_t meter);

/* A frame of those bytes in one segment. */
rte_mbuf *MakeFrame(const std::vector<uint8_t> &bytes);

/* An untagged IPv4 frame of that length with a right header checksum; at least 34 bytes. */
rte_mbuf *MakeIpv4(uint32_t length, uint8_t tos = 0);

/* The same as bytes, with tags (their TPIDs, outermost first) and IPv4 options (a multiple of 4). */
std::vector<uint8_t> Ipv4Bytes(uint32_t length, uint8_t tos,
	const std::vector<uint16_t> &tpids = {}, uint32_t option_bytes = 0);

/* All bytes of a frame, whatever segments hold them. */
std::vector<uint8_t> BytesOf(const rte_mbuf *frame);

/* A burst of one meter; the packets become the burst's. */
softcard_burst Burst(uint32_t meter, uint64_t now_ns, const std::vector<rte_mbuf *> &pkts);

/* Frees the packets of a burst. */
void Free(softcard_burst &burst);

#endif /* CARD_TEST_H */
