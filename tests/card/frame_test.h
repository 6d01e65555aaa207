/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef FRAME_TEST_H
#define FRAME_TEST_H

#include "card_test.h"
#include "softcard_frame.h"

/* Keeps one frame and frees it at the end. */
class Frame : public CardTest
{
      protected:
	rte_mbuf *Keep(rte_mbuf *pkt)
	{
		frame = pkt;
		return pkt;
	}

	void TearDown() override
	{
		rte_pktmbuf_free(frame);
		CardTest::TearDown();
	}

	rte_mbuf *frame = nullptr;
};

#endif /* FRAME_TEST_H */
