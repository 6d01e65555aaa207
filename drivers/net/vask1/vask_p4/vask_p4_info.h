/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_P4_INFO_H
#define VASK_P4_INFO_H

/**
 * @file
 * The registry of meter objects: what the driver knows about every profile, policy and meter.
 *
 * Three global lists hold heap-allocated nodes in the order in which they were added. The meter module
 * owns the nodes; the driver's other modules may walk the lists. No lock guards them: whoever walks or
 * changes a list does it from the one control thread, or keeps the others away. A record's `sl` guards
 * its hardware index and its reference count only.
 */

#include <stdint.h>
#include <sys/queue.h>

#include <rte_spinlock.h>

#include "qorn_hal_raw_struct.h"
#include "vask_p4_mep_meter.h"

#ifdef __cplusplus
extern "C" {
#endif

/** off_hw_state of the records: how far the write into the card has come. */
enum vask_p4_off_hw_state {
	VASK_P4_OFF_HW_NONE = 0,
	VASK_P4_OFF_HW_PENDING = 1, /* under way, or failed */
	VASK_P4_OFF_HW_DONE = 2,
};

/** A meter profile. Rates are bytes/s and bursts bytes, or packets/s and packets in packet mode. */
struct vask_p4_meter_profile {
	uint64_t cir;
	uint64_t cbs;
	uint64_t eir; /* excess or peak rate; 0 for RFC 2697 */
	uint64_t ebs; /* excess or peak burst */
	int packet_mode;
	uint32_t rfc2698_mode;
	uint32_t profile_id; /* the caller's id, the key of the list */
	uint32_t ref_cnt;    /* meters that use the profile */
	uint32_t off_hw_state;
	rte_spinlock_t sl;
	uint32_t hw_profile_id;                         /* 0: none yet */
	struct vask_p4_mep_meter_profile_table profile; /* as last written to the engine */
};

/** A meter policy. The action codes are those of the engine's policy record. */
struct vask_p4_meter_policy {
	uint32_t red_dscp;
	uint32_t yellow_dscp;
	uint32_t green_dscp;
	uint32_t red_action;
	uint32_t yellow_action;
	uint32_t green_action;
	uint32_t policy_id; /* the caller's id, the key of the list; 0 is the default policy */
	uint32_t ref_cnt;   /* meters that use the policy */
	uint32_t off_hw_state;
	rte_spinlock_t sl;
	uint32_t hw_policy_id;                        /* 0: none yet; 255: the default policy */
	struct vask_p4_mep_meter_policy_table policy; /* as last written to the engine */
};

/** A meter. Its profile and policy are copies, taken when the meter was created or re-pointed. */
struct vask_p4_meter_cfg_entry {
	uint32_t meter_id;           /* the caller's id, the key of the list */
	uint32_t hw_meter_id;        /* 0: none */
	uint32_t port_sfi;           /* source-port number of the meter's port */
	uint32_t dir;                /* 0 receive, 1 transmit, 3 both sides */
	uint32_t enable : 1;         /* 0 */
	uint32_t type : 1;           /* 1: the meter binds its port */
	uint32_t is_color_aware : 1; /* 2 */
	uint32_t is_ori_pktlen : 1;  /* 3: meter on the original packet length */
	uint32_t resv : 28;          /* 4..31 */
	uint32_t stats_mask;
	uint32_t off_hw_state;
	rte_spinlock_t sl;
	struct vask_p4_meter_profile profile;
	struct vask_p4_meter_policy policy;
	struct qorn_meter_profile_table table;        /* pipeline profile last written */
	struct qorn_meter_table table_inst;           /* pipeline meter last written */
	struct vask_p4_mep_meter_inst_table mep_inst; /* engine instance last written */
};

struct vask_p4_meter_profile_node {
	TAILQ_ENTRY(vask_p4_meter_profile_node) next;
	struct vask_p4_meter_profile data;
};

struct vask_p4_meter_policy_node {
	TAILQ_ENTRY(vask_p4_meter_policy_node) next;
	struct vask_p4_meter_policy data;
};

struct vask_p4_meter_cfg_node {
	TAILQ_ENTRY(vask_p4_meter_cfg_node) next;
	struct vask_p4_meter_cfg_entry data;
};

TAILQ_HEAD(vask_p4_meter_profile_list_head, vask_p4_meter_profile_node);
TAILQ_HEAD(vask_p4_meter_policy_list_head, vask_p4_meter_policy_node);
TAILQ_HEAD(vask_p4_meter_list_head, vask_p4_meter_cfg_node);

/* Defined and initialised by the driver. */
extern struct vask_p4_meter_profile_list_head vask_p4_meter_profile_list;
extern struct vask_p4_meter_policy_list_head vask_p4_meter_policy_list;
extern struct vask_p4_meter_list_head vask_p4_meter_list;

#ifdef __cplusplus
}
#endif

#endif /* VASK_P4_INFO_H */
