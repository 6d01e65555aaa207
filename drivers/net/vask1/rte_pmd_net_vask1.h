/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef RTE_PMD_NET_VASK1_H
#define RTE_PMD_NET_VASK1_H

/**
 * @file
 * The net_vask1 port's own calls for applications: the P4 tables while ports carry traffic, and faults.
 *
 * A program that uses them links the driver's library. Every call takes the lock that the ports' rte_mtr and
 * rte_flow calls take, so any thread may make it at any time; none may be made from a burst. While there is
 * no port the card is down, and every call but rte_pmd_net_vask1_fault_clear() returns -ENODEV.
 */

#include <stdint.h>

#include <rte_meter.h>

#include "vask_p4_meter.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @name P4 tables
 * As the functions talvora_p4_offload_meter_table_* that they call, whose results they return; packets see
 * the meter that a call names as it stands when the call returns.
 * @{
 */

/** Adds a profile. */
int rte_pmd_net_vask1_profile_add(uint32_t id, const p4_meter_profile_t *entry);

/** Rewrites a profile in place. */
int rte_pmd_net_vask1_profile_mod(uint32_t id, const p4_meter_profile_t *entry);

/** Deletes a profile. */
int rte_pmd_net_vask1_profile_del(uint32_t id);

/** Adds a policy. */
int rte_pmd_net_vask1_policer_add(uint32_t id, const p4_meter_policer_t *entry);

/** Rewrites a policy in place. */
int rte_pmd_net_vask1_policer_mod(uint32_t id, const p4_meter_policer_t *entry);

/** Deletes a policy. */
int rte_pmd_net_vask1_policer_del(uint32_t id);

/** Creates a meter. */
int rte_pmd_net_vask1_instance_add(uint32_t id, const p4_meter_instance_t *entry);

/** Rewrites a meter in place. */
int rte_pmd_net_vask1_instance_mod(uint32_t id, const p4_meter_instance_t *entry);

/** Destroys a meter. */
int rte_pmd_net_vask1_instance_del(uint32_t id);
/** @} */

/** What an engine has done for a meter since its instance became valid. Arrays go by enum rte_color. */
struct rte_pmd_net_vask1_meter_stats {
	uint64_t n_pkts[RTE_COLORS];
	uint64_t n_bytes[RTE_COLORS];
	uint64_t n_pkts_dropped;
	uint64_t n_bytes_dropped;
	uint64_t n_pkts_rewritten; /**< packets that carry the DSCP that the policy asks for */
	/** Levels of the committed and the excess (or peak) bucket, and what they hold when full; in whole
	 * bytes, or packets in packet mode. */
	uint64_t level_c;
	uint64_t level_e;
	uint64_t burst_c;
	uint64_t burst_e;
};

/**
 * Reads what rte_mtr_stats_read() does not tell: the packets of each colour.
 *
 * @param mtr_id  the meter, by the caller's id, whichever interface created it.
 * @param egress  0 for the ingress engine, else the egress engine.
 * @return 0; -ENOENT when there is no such meter; -EINVAL for null stats; -ENODEV. All zero while no packets
 *   are metered by it in that engine.
 */
int rte_pmd_net_vask1_meter_stats(
	uint32_t mtr_id, int egress, struct rte_pmd_net_vask1_meter_stats *stats);

/**
 * Sets a fault: an operation of the card's lower layers fails, or takes longer.
 *
 * @param text  `<operation>:<n|every>:<code>[:<delay in microseconds>]`, where the operation is a function's
 *   name and n counts its calls from now, 1 being the next one.
 * @return 0; -ENOENT for an operation that does not exist; -EINVAL for text that does not read so; -ENOTSUP
 *   for a code where the operation returns nothing; -ENOSPC when too many are set; -ENODEV. A refusal gives an ERR line that says what is accepted.
 */
int rte_pmd_net_vask1_fault_set(const char *text);

/** Lifts all faults. Closing a port does so too. */
void rte_pmd_net_vask1_fault_clear(void);

#ifdef __cplusplus
}
#endif

#endif /* RTE_PMD_NET_VASK1_H */
