/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef SOFTCARD_FRAME_H
#define SOFTCARD_FRAME_H

/**
 * @file
 * What the card reads and changes in a frame: its VLAN tags and the DSCP of its IPv4 header. Nothing is
 * read past the end of a segment; headers may lie across segments. A frame that is too short, or whose
 * header is not an IPv4 header (version, header length, total length), has no DSCP.
 */

#include <cstdint>

#include <rte_meter.h>

struct rte_mbuf;

/** VLAN tags that the card looks behind; more make the frame one of unknown protocol. */
constexpr uint32_t SOFTCARD_FRAME_TAGS_MAX = 2;

/** VLAN tags (0x8100, 0x88a8 and 0x9100) at the start of a frame, at most SOFTCARD_FRAME_TAGS_MAX. */
uint32_t softcard_frame_tags(const struct rte_mbuf *frame);

/** The IPv4 DSCP of a frame, 0 to 63, or -1 when it has none. */
int softcard_frame_dscp(const struct rte_mbuf *frame);

/**
 * The colour a frame comes with: the drop precedence of its DSCP if that is an assured-forwarding one (RFC
 * 2597: 1 green, 2 yellow, 3 red), else green.
 */
enum rte_color softcard_frame_color(const struct rte_mbuf *frame);

/**
 * Gives a frame's IPv4 header another DSCP. ECN bits stay, the checksum is updated as RFC 1624 says, so a
 * wrong one stays wrong.
 *
 * A header that other mbufs or an external owner may see is first copied into a segment of its own, from
 * the pool of the frame's first segment, or of the mbuf that holds its data.
 *
 * @param frame  the frame; replaced by another one that holds it when the header had to be copied.
 * @return true if the header now has that DSCP; false for a frame without one, or when no segment was to
 *   be had, and nothing is changed.
 */
bool softcard_frame_dscp_write(struct rte_mbuf **frame, uint8_t dscp);

#endif /* SOFTCARD_FRAME_H */
