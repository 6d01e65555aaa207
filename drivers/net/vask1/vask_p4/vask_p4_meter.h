/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_P4_METER_H
#define VASK_P4_METER_H

/**
 * @file
 * The meter module: what it exports to the rest of the driver and to a P4 control plane.
 *
 * Thread safety: none of its own. Every call here, lookups included, expects one control thread at a time, or
 * callers that serialise them; vask_p4_dev_mtr_ops_get() alone may be called from any thread.
 */

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include <rte_byteorder.h>

#include "vask_p4_idx.h"
#include "vask_p4_info.h"

#ifdef __cplusplus
extern "C" {
#endif

struct rte_eth_dev;

/** The ingress scheduler's shaper register, 32 bits. The all-zero value turns the shaper off. */
struct vask_p4_isch_shaper {
	uint32_t enable : 1;       /* 0 */
	uint32_t alway_closed : 1; /* 1: nothing passes */
	uint32_t mode : 1;         /* 2 */
	uint32_t pbs : 7;          /* 3..9: peak burst */
	uint32_t rate_level : 1;   /* 10: scale of rate */
	uint32_t rate : 19;        /* 11..29: at rate_level 0, in 100 kbit/s */
	uint32_t resvd : 2;        /* 30..31 */
};

static_assert(sizeof(struct vask_p4_isch_shaper) == 4, "ingress scheduler shaper register");

/** Writes the ingress scheduler's shaper register; there is one for the whole card. 0, or a status. */
int vask_p4_isch_shaper_csr_write(struct vask_p4_isch_shaper value);

/**
 * @name Operation table
 * @{
 */

/**
 * The module's rte_mtr operations, for the port's ethdev `mtr_ops_get` slot.
 *
 * Every port gets the same constant table. See the DPDK Traffic Metering and Policing API.
 *
 * @param ops  receives a `const struct rte_mtr_ops *`.
 * @return 0, or -EINVAL for a null device, and *ops is untouched.
 */
int vask_p4_dev_mtr_ops_get(struct rte_eth_dev *dev, void *ops);

/** @} */

/**
 * @name Index pools
 * Null until vask_p4_meter_indexstack_init(); left dangling by vask_p4_meter_indexstack_destory().
 * @{
 */
extern VASK_P4_INDEXSTACK_MANAGER *meter_index_mgr;   /**< 4096 hardware meters, 0 reserved */
extern VASK_P4_INDEXSTACK_MANAGER *profile_index_mgr; /**< 256 hardware profiles, 0 reserved */
extern VASK_P4_INDEXSTACK_MANAGER
	*policy_index_mgr; /**< 256 hardware policies, 0 and 255 reserved */

/**
 * Starts the module: creates the pools and installs the default policy (id 0, which drops red).
 *
 * To be called once before any other operation; a second start without a stop is not guarded against.
 *
 * @return 0; -1 when a pool could not be created, and those that were stay as they are.
 */
int vask_p4_meter_indexstack_init(void);

/** Stops the module: destroys the pools. The registry lists are not emptied. */
void vask_p4_meter_indexstack_destory(void);

/** @} */

/** The hardware index of the caller's meter, or 0 when there is no such meter; 0 is never a meter. */
uint32_t vask_p4_find_hw_meterid_by_upid(uint32_t meter_id);

/** The policy with that id, borrowed until it is deleted, or null. */
struct vask_p4_meter_policy_node *vask_p4_meter_get_policy(uint32_t policy_id);

/** Adds the policy under which green and yellow pass and red is dropped; its outcome is only logged. */
void vask_p4_meter_add_default_policy(uint32_t policy_id);

/**
 * Fills an engine instance record from a meter: enable, profile, policy, flags and which counters to
 * keep. Buckets, counters and reserved bits of the record stay as the caller had them.
 */
void vask_p4_meter_convert_inst(
	const struct vask_p4_meter_cfg_node *meter_node, struct vask_p4_mep_meter_inst_table *inst);

/**
 * Writes a profile and a meter into the pipeline's meter tables: the profile under the caller's profile
 * id, the meter under meter_id, its counters and buckets reset.
 *
 * @return 0, or -1; when the second write fails the first one stays.
 */
int vask_p4_update_meter_cfg_2_pol(const struct vask_p4_meter_profile_node *profile_node,
	struct vask_p4_meter_cfg_node *meter_node, uint32_t meter_id);

/**
 * Sets the MTU of a port's meter output.
 *
 * @param mtu  bytes, 68 to 16384.
 * @return 0; -EINVAL out of range or for a device that is not the driver's; else the engine's status.
 */
int vask_p4_dev_mtu_set(struct rte_eth_dev *dev, uint16_t mtu);

/**
 * @name P4 tables
 *
 * Rows keyed by a 32-bit id. The records are packed, lowest bit first. Their numbers are in the byte
 * order of the host, although the field types are DPDK's big-endian ones: nothing is swapped, and the
 * P4 layer writes them in the same order.
 *
 * What is added here is an ordinary profile, policy or meter and may be used through rte_mtr, and the
 * other way round. All calls accept any record of the right size; a null one gives -1.
 * @{
 */

/** Row of the profile table, 33 bytes. Units as in struct rte_mtr_meter_profile. */
typedef struct p4_meter_profile {
	rte_be64_t cir;
	rte_be64_t eir; /* excess or peak rate */
	rte_be64_t cbs;
	rte_be64_t ebs;          /* excess or peak burst */
	uint8_t packet_mode : 2; /* 256..257: 0 bytes, else packets */
	uint8_t meter_rfc : 2;   /* 258..259: 0 RFC 2697, 1 RFC 2698, 2 RFC 4115 */
	uint8_t rsv : 4;         /* 260..263: not read */
} __attribute__((packed)) p4_meter_profile_t;

static_assert(sizeof(p4_meter_profile_t) == 33, "P4 profile entry");
static_assert(offsetof(p4_meter_profile_t, cir) == 0, "cir");
static_assert(offsetof(p4_meter_profile_t, eir) == 8, "eir");
static_assert(offsetof(p4_meter_profile_t, cbs) == 16, "cbs");
static_assert(offsetof(p4_meter_profile_t, ebs) == 24, "ebs");

/** Row of the policer table, 3 bytes. Action codes as in the engine's policy record. */
typedef struct p4_meter_policer {
	uint8_t red_action : 2;    /* 0..1 */
	uint8_t red_dscp : 6;      /* 2..7 */
	uint8_t yellow_action : 2; /* 8..9 */
	uint8_t yellow_dscp : 6;   /* 10..15 */
	uint8_t green_action : 2;  /* 16..17 */
	uint8_t green_dscp : 6;    /* 18..23 */
} __attribute__((packed)) p4_meter_policer_t;

static_assert(sizeof(p4_meter_policer_t) == 3, "P4 policer entry");

/** Row of the meter instance table, 6 bytes. */
typedef struct p4_meter_instance {
	rte_be32_t type : 1;          /* 0: 1 = the meter belongs to the port dpdk_port_id */
	rte_be32_t dir : 1;           /* 1: 0 receive, 1 transmit */
	rte_be32_t meter_enable : 1;  /* 2 */
	rte_be32_t color_mode : 1;    /* 3: colour-aware */
	rte_be32_t origin_pkt : 1;    /* 4: meter on the original packet length */
	rte_be32_t stats_mask : 8;    /* 5..12: p4_meter_stats_type */
	rte_be32_t dpdk_port_id : 16; /* 13..28 */
	rte_be32_t profile_id : 8;    /* 29..36 */
	rte_be32_t policer_id : 8;    /* 37..44 */
	rte_be32_t rsv : 3;           /* 45..47: not read */
} __attribute__((packed)) p4_meter_instance_t;

static_assert(sizeof(p4_meter_instance_t) == 6, "P4 meter instance entry");

/** Bits of stats_mask, in the order of enum rte_mtr_stats_type. */
typedef enum p4_meter_stats_type {
	P4_METER_STATS_N_PKTS_GREEN = 1,
	P4_METER_STATS_N_PKTS_YELLOW = 2,
	P4_METER_STATS_N_PKTS_RED = 4,
	P4_METER_STATS_N_PKTS_DROPPED = 8,
	P4_METER_STATS_N_BYTES_GREEN = 16,
	P4_METER_STATS_N_BYTES_YELLOW = 32,
	P4_METER_STATS_N_BYTES_RED = 64,
	P4_METER_STATS_N_BYTES_DROPPED = 128,
} p4_meter_stats_type;

/** Adds a profile. 0; -1 for meter_rfc 3; -EBUSY when the profile is refused (the log says why). */
int talvora_p4_offload_meter_table_profile_add(uint32_t id, const p4_meter_profile_t *entry);

/**
 * Rewrites a profile in place, used or not. Takes every field as it stands: no rate rule is checked, and
 * RFC 2698 once set is not taken back. Meters that use the profile keep their own copy.
 *
 * @return 0; -1 for an unknown id, or a failed write, after which the record holds the new values.
 */
int talvora_p4_offload_meter_table_profile_mod(uint32_t id, const p4_meter_profile_t *entry);

/** Deletes a profile. 0, also for an unknown id; -EBUSY while meters use it or when the card refuses. */
int talvora_p4_offload_meter_table_profile_del(uint32_t id);

/** Adds a policy. 0; -1 for an id in use, no memory, no free index or a failed write. */
int talvora_p4_offload_meter_table_policer_add(uint32_t id, const p4_meter_policer_t *entry);

/** Rewrites a policy in place, used or not. 0; -1 for an unknown id or a failed write. */
int talvora_p4_offload_meter_table_policer_mod(uint32_t id, const p4_meter_policer_t *entry);

/** Deletes a policy. 0, also for an unknown id; -EBUSY while meters use it or when the card refuses. */
int talvora_p4_offload_meter_table_policer_del(uint32_t id);

/**
 * Creates a meter.
 *
 * @return -1 for a null entry, -EINVAL for a dpdk_port_id of 562 or more; otherwise 0, also when the
 *   meter was refused: the log tells.
 */
int talvora_p4_offload_meter_table_instance_add(uint32_t id, const p4_meter_instance_t *meter_inst);

/** Destroys a meter. 0, also for an unknown id; -EBUSY when the card refuses. */
int talvora_p4_offload_meter_table_instance_del(uint32_t id);

/**
 * Rewrites a meter in place and programs its shapers. Shapers of the old direction and the port's binding
 * stay as they are.
 *
 * @return 0; -1 when the meter, one of the profiles or one of the policies is missing, or when a shaper is
 *   refused, after which the record holds the new values and no reference has moved.
 */
int talvora_p4_offload_meter_table_instance_mod(uint32_t id, const p4_meter_instance_t *meter_inst);

/** @} */

#ifdef __cplusplus
}
#endif

#endif /* VASK_P4_METER_H */
