/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef QORN_HAL_RAW_STRUCT_H
#define QORN_HAL_RAW_STRUCT_H

/**
 * @file
 * Records of the pipeline's tables, as the card stores them.
 *
 * Each record is a sequence of little-endian 32-bit words, lowest bit first. A field that crosses a
 * word boundary is declared in two pieces, `_l<n>` (its low n bits) and `_h<n>` (its high n bits); the
 * pieces are adjacent, so the whole field is one range of bits, given beside its low piece.
 */

#include <assert.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Pipeline meter profile, 128 bits. */
struct qorn_meter_profile_table {
	uint32_t r_dscp : 6;   /* 0..5 */
	uint32_t y_dscp : 6;   /* 6..11 */
	uint32_t g_dscp : 6;   /* 12..17 */
	uint32_t r_act : 2;    /* 18..19 */
	uint32_t y_act : 2;    /* 20..21 */
	uint32_t g_act : 2;    /* 22..23 */
	uint32_t cf : 1;       /* 24 */
	uint32_t pm : 1;       /* 25: packet mode */
	uint32_t rfc : 1;      /* 26: RFC 2698 */
	uint32_t cbsm : 1;     /* 27: committed-burst flag */
	uint32_t ebsm : 1;     /* 28: excess-burst flag */
	uint32_t cbnd : 1;     /* 29: committed-bucket flag */
	uint32_t ebnd : 1;     /* 30: excess-bucket flag */
	uint32_t cbs_l1 : 1;   /* 31: cbs is 31..50 */
	uint32_t cbs_h19 : 19; /* 32..50 */
	uint32_t ebs_l13 : 13; /* 51..63: ebs is 51..70 */
	uint32_t ebs_h7 : 7;   /* 64..70 */
	uint32_t cir_l25 : 25; /* 71..95: cir is 71..98 */
	uint32_t cir_h3 : 3;   /* 96..98 */
	uint32_t eir : 28;     /* 99..126 */
	uint32_t valid : 1;    /* 127 */
};

static_assert(sizeof(struct qorn_meter_profile_table) == 16, "pipeline meter profile");

/** Pipeline meter with its state, 160 bits. */
struct qorn_meter_table {
	uint32_t last_ts : 4;          /* 0..3: engine state */
	uint32_t byte_cnt_l28 : 28;    /* 4..31: byte_cnt is 4..51 */
	uint32_t byte_cnt_h20 : 20;    /* 32..51 */
	uint32_t pkt_cnt_l12 : 12;     /* 52..63: pkt_cnt is 52..83 */
	uint32_t pkt_cnt_h20 : 20;     /* 64..83 */
	uint32_t bkt_c_l12 : 12;       /* 84..95: bkt_c is 84..115 */
	uint32_t bkt_c_h20 : 20;       /* 96..115 */
	uint32_t bkt_e_l12 : 12;       /* 116..127: bkt_e is 116..147 */
	uint32_t bkt_e_h20 : 20;       /* 128..147 */
	uint32_t meter_profile_id : 8; /* 148..155 */
	uint32_t valid : 1;            /* 156 */
	uint32_t rsv : 3;              /* 157..159 */
};

static_assert(sizeof(struct qorn_meter_table) == 20, "pipeline meter");

/** Key of the transmit input-port table, 32 bits. */
struct qorn_input_port_table_key_tx {
	uint32_t source_port : 14; /* 0..13 */
	uint32_t resv : 18;        /* 14..31 */
};

static_assert(sizeof(struct qorn_input_port_table_key_tx) == 4, "transmit input-port key");

/** Entry of the transmit input-port table, 224 bits. */
struct qorn_input_port_table_result_tx {
	uint32_t def_action_index : 25;     /* 0..24 */
	uint32_t opcode_vpe : 4;            /* 25..28 */
	uint32_t opcode_rpe_l : 3;          /* 29..31: opcode_rpe is 29..32 */
	uint32_t opcode_rpe_h : 1;          /* 32 */
	uint32_t mep_type : 2;              /* 33..34 */
	uint32_t mep_dispatch_type : 4;     /* 35..38 */
	uint32_t action_type : 1;           /* 39 */
	uint32_t def_destination : 23;      /* 40..62 */
	uint32_t group_index_vpe_l : 1;     /* 63: group_index_vpe is 63..70 */
	uint32_t group_index_vpe_h : 7;     /* 64..70 */
	uint32_t group_index_rpe : 8;       /* 71..78 */
	uint32_t mirror_pri : 2;            /* 79..80 */
	uint32_t mirror_meter_index_l : 15; /* 81..95: mirror_meter_index is 81..96 */
	uint32_t mirror_meter_index_h : 1;  /* 96 */
	uint32_t mirror_index : 13;         /* 97..109 */
	uint32_t metering_info0 : 16;       /* 110..125: the meter of the port's transmit traffic */
	uint32_t tpid_antispoof_ctl : 2;    /* 126..127 */
	uint32_t allowed_tpid_sel : 8;      /* 128..135 */
	uint32_t def_tpid_sel : 3;          /* 136..138 */
	uint32_t pri_antispoof_ctl : 2;     /* 139..140 */
	uint32_t allowed_pri : 8;           /* 141..148 */
	uint32_t def_pri : 3;               /* 149..151 */
	uint32_t smac_anti_spoof : 2;       /* 152..153 */
	uint32_t smac_low16_l : 6;          /* 154..159: smac_low16 is 154..169 */
	uint32_t smac_low16_h : 10;         /* 160..169 */
	uint32_t smac_high32_l : 22;        /* 170..191: smac_high32 is 170..201 */
	uint32_t smac_high32_h : 10;        /* 192..201 */
	uint32_t rpe_overlay_flag : 1;      /* 202 */
	uint32_t rpe_qid : 14;              /* 203..216 */
	uint32_t rsv : 7;                   /* 217..223 */
};

static_assert(sizeof(struct qorn_input_port_table_result_tx) == 28, "transmit input-port entry");

#ifdef __cplusplus
}
#endif

#endif /* QORN_HAL_RAW_STRUCT_H */
