/* SPDX-License-Identifier: BSD-3-Clause */
#include "vask_flow_frame.h"

constexpr uint8_t IPV4_AT = VASK_FLOW_PLAIN_IPV4;
constexpr uint8_t L4_REST_AT = VASK_FLOW_PLAIN_L4 + sizeof(vask_flow_fields::l4_ports);
constexpr uint8_t ANYWHERE = 0; /* a plain frame has no such field, and no key asks for it */

const uint8_t vask_flow_offsets[2][VASK_FLOW_WORDS] = {
	{0, 8, 16, 24, 32, 40, 48, 56, 64, 72, 80},
	/* 4 bytes and the IPv4 header, the rest of IPv6, behind the ports, Ethernet, tags */
	{ANYWHERE, IPV4_AT - 4, IPV4_AT + 4, IPV4_AT + 12, ANYWHERE, ANYWHERE, L4_REST_AT,
		L4_REST_AT + 8, 0, 8, ANYWHERE},
};

static_assert(offsetof(union vask_flow_fields, ipv4) == 8 + 4);
static_assert(offsetof(union vask_flow_fields, l4_rest) == 6 * 8);
static_assert(offsetof(union vask_flow_fields, eth) == 8 * 8);

struct vask_flow_frame
vask_flow_frame_image(const struct rte_mbuf *pkt, union vask_flow_fields *image)
{
	vask_flow_fields_read(pkt, image);
	return vask_flow_frame_of(image);
}
