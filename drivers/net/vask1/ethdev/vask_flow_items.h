/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_FLOW_ITEMS_H
#define VASK_FLOW_ITEMS_H

/**
 * @file
 * From the items of an rte_flow pattern to key and mask.
 */

#include "vask_flow_rule.h"

/**
 * Checks a pattern and fills key and mask, which are zero before, of a rule.
 *
 * Items stand in the order of the headers: eth, up to two vlan, ipv4 or ipv6, udp or tcp, with void
 * anywhere. The lowest ones may be left out and then match anything; a pattern that begins at eth has no
 * gap but for the VLAN tags, which match with none named, unless eth's type or has_vlan says otherwise.
 * Masks may have any bits; without a mask DPDK's default for the item holds. Ranges (`last`) are refused.
 *
 * @return 0, or -EINVAL or -ENOTSUP with error set: its cause is the item.
 */
int vask_flow_items_parse(const struct rte_flow_item *item, struct vask_flow_spec *spec,
	struct rte_flow_error *error);

#endif /* VASK_FLOW_ITEMS_H */
