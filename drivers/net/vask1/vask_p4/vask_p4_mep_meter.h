/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_P4_MEP_METER_H
#define VASK_P4_MEP_METER_H

/**
 * @file
 * Records and operations of the card's two meter engines.
 *
 * The ingress engine (imep) meters what a port receives, the egress engine (emep) what it transmits.
 * Each holds a table of profiles (token-bucket parameters), of policies (what to do with each colour) and
 * of meter instances (state and counters). Records are little-endian, lowest bit first.
 *
 * Every operation returns 0, or a non-zero code of the engine layer's own and the table is unchanged.
 * Operations are for the control path: callers serialise them. A record handed in is copied, one to be
 * filled stays the caller's.
 */

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The engines, as the `dir` argument of the operations. */
enum vask_p4_mep_dir {
	VASK_P4_MEP_INGRESS = 0,
	VASK_P4_MEP_EGRESS = 1,
};

/** Token-bucket parameters, 96 bits: rates in 8000 bytes/s and bursts in 1024 bytes, or packets. */
struct vask_p4_mep_meter_profile_table {
	uint64_t ebs : 20;    /* 0..19 */
	uint64_t cbs : 20;    /* 20..39 */
	uint64_t cf : 1;      /* 40 */
	uint64_t eir : 26;    /* 41..66 */
	uint64_t cir : 26;    /* 67..92 */
	uint64_t pm : 1;      /* 93: rates and bursts count packets */
	uint64_t rfc2698 : 1; /* 94: two-rate metering of RFC 2698 */
	uint64_t valid : 1;   /* 95 */
} __attribute__((packed));

static_assert(sizeof(struct vask_p4_mep_meter_profile_table) == 12, "engine profile");

/** What to do with each colour, 32 bits. Actions: 0 pass, 1 rewrite the IPv4 DSCP, 2 drop. */
struct vask_p4_mep_meter_policy_table {
	uint32_t red_action : 2;    /* 0..1 */
	uint32_t yellow_action : 2; /* 2..3 */
	uint32_t green_action : 2;  /* 4..5 */
	uint32_t red_dscp : 6;      /* 6..11 */
	uint32_t yellow_dscp : 6;   /* 12..17 */
	uint32_t green_dscp : 6;    /* 18..23 */
	uint32_t cbnd : 1;          /* 24 */
	uint32_t ebnd : 1;          /* 25 */
	uint32_t rsv : 5;           /* 26..30 */
	uint32_t valid : 1;         /* 31 */
};

static_assert(sizeof(struct vask_p4_mep_meter_policy_table) == 4, "engine policy");

/** A meter with its state and counters, 256 bits. */
struct vask_p4_mep_meter_inst_table {
	uint32_t valid : 1;                      /* 0 */
	uint32_t profile_id : 8;                 /* 1..8 */
	uint32_t policy_id : 8;                  /* 9..16 */
	uint32_t is_color_aware : 1;             /* 17 */
	uint32_t use_original_packet_length : 1; /* 18 */
	uint32_t stats_bytes_type : 3;           /* 19..21 */
	uint32_t stats_pkts_type : 3;            /* 22..24 */
	uint32_t rsv1 : 7;                       /* 25..31 */
	uint32_t bkt_c : 27;                     /* 32..58: committed bucket */
	uint32_t rsv2 : 5;                       /* 59..63 */
	uint32_t bkt_e : 27;                     /* 64..90: excess bucket */
	uint32_t rsv3 : 5;                       /* 91..95 */
	uint32_t drop_pkt_cnt;                   /* 96..127: packets */
	uint32_t pkt_len_c;                      /* 128..159 */
	uint32_t pkt_len_e;                      /* 160..191 */
	uint64_t drop_pkt_len_cnt;               /* 192..255: bytes */
};

static_assert(sizeof(struct vask_p4_mep_meter_inst_table) == 32, "engine instance");
static_assert(offsetof(struct vask_p4_mep_meter_inst_table, drop_pkt_cnt) == 12, "drop_pkt_cnt");
static_assert(offsetof(struct vask_p4_mep_meter_inst_table, pkt_len_c) == 16, "pkt_len_c");
static_assert(offsetof(struct vask_p4_mep_meter_inst_table, pkt_len_e) == 20, "pkt_len_e");
static_assert(
	offsetof(struct vask_p4_mep_meter_inst_table, drop_pkt_len_cnt) == 24, "bytes dropped");

/** Writes a profile entry. */
int vask_p4_mep_add_meter_profile(
	int dir, uint32_t hw_profile_id, const struct vask_p4_mep_meter_profile_table *profile);

/** Clears a profile entry. */
int vask_p4_mep_del_meter_profile(int dir, uint32_t hw_profile_id);

/** Writes a policy entry. */
int vask_p4_mep_add_meter_policy(
	int dir, uint32_t hw_policy_id, const struct vask_p4_mep_meter_policy_table *policy);

/** Clears a policy entry. */
int vask_p4_mep_del_meter_policy(int dir, uint32_t hw_policy_id);

/** Reads a meter with its counters into a record that the caller has zeroed. Nothing is reset. */
int vask_p4_mep_read_meter_inst(
	int dir, uint32_t hw_meter_id, struct vask_p4_mep_meter_inst_table *inst);

/** Makes a meter govern a port's output. */
int vask_p4_mep_update_meter_output_by_meterid(int dir, uint32_t port_sfi, uint32_t hw_meter_id);

/** Takes the meter off a port's output. */
int vask_p4_mep_del_meter_output_by_meterid(int dir, uint32_t port_sfi);

/** Sets the MTU, in bytes, of a port's meter output. */
int vask_p4_mep_update_meter_output_by_mtu(uint16_t port, uint16_t mtu);

#ifdef __cplusplus
}
#endif

#endif /* VASK_P4_MEP_METER_H */
