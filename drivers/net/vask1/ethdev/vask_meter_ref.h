/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_REF_H
#define VASK_METER_REF_H

/**
 * @file
 * What ties rules, by the user's meter id, to the card's meter instances.
 *
 * The card meters a packet by an instance record, which the meter module leaves to the rest of the driver.
 * A record is written once a rule or a port's binding uses the meter in that engine, and kept in step with
 * the meter until it goes. All calls are for the control lock's holder.
 */

#include <cstdint>

struct rte_flow;
struct vask_meter_ref;

/** Rules, on all ports, that may use one meter. */
constexpr unsigned VASK_METER_RULES_MAX = 4;

/** 0, or -ENOMEM. To be called when the module starts. */
int vask_meter_ref_start();

/** Forgets all meters; no rule may be left. To be called when the module stops, the card still up. */
void vask_meter_ref_stop();

/**
 * Makes a rule use the meter that its METER action names.
 *
 * @return 0, and the rule's packets are metered; -EINVAL for meter 0, -ENOENT when there is no such meter,
 *   -ENOSPC when VASK_METER_RULES_MAX rules use it, -ENOMEM.
 */
int vask_meter_ref_attach(struct rte_flow *rule);

/** Ends a rule's use of its meter. The instance record stays as it is, counters too. */
void vask_meter_ref_detach(struct rte_flow *rule);

/** Rules that may still be attached: -EINVAL, -ENOENT, -ENOSPC as of vask_meter_ref_attach(), or 0. */
int vask_meter_ref_check(uint32_t meter_id);

/**
 * Brings packets and card in step with the module's record of a meter. To be called after any control call that
 * named it, refused or not.
 *
 * Enabled: the instance record is written in each engine that uses the meter, and rules meter with its
 * index. Absent or disabled: rules meter nothing and the record is cleared, but for an index that another
 * enabled meter holds by now, whose own record is then written.
 */
void vask_meter_refresh(uint32_t meter_id);

/** @name Likewise, mostly without a walk through all meters. @{ */
/** After a call that added the meter. */
void vask_meter_created(uint32_t meter_id);
/** After a call that neither adds nor removes nor disables meters. */
void vask_meter_changed(uint32_t meter_id);
/** After a call that disabled the meter. No other call leaves an index to a meter that has given it back. */
void vask_meter_disabled(uint32_t meter_id);
/** After a call that removed the meter. */
void vask_meter_destroyed(uint32_t meter_id);
/** @} */

#endif /* VASK_METER_REF_H */
