/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef SOFTCARD_INTERNAL_H
#define SOFTCARD_INTERNAL_H

/**
 * @file
 * What the files of the card share: its tables and the calls that change them. The lower-layer operations
 * (softcard_seam_*.cpp) are these calls with faults and trace around them.
 *
 * Tables are written by one control thread at a time. Packets read only the meters, as softcard_guard.h says,
 * and the per-port words, which are atomic.
 */

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>

#include <rte_spinlock.h>

#include "qorn_hal_user_api.h"
#include "softcard.h"
#include "softcard_bucket.h"
#include "softcard_guard.h"
#include "vask_cmd_api.h"
#include "vask_dev_cmds.h"
#include "vask_p4_mep_meter.h"
#include "vask_p4_meter.h"

constexpr uint32_t SOFTCARD_PIPELINE_ENTRIES = 4096;

/** Codes of a policy's actions. */
enum softcard_action {
	SOFTCARD_ACTION_PASS = 0,
	SOFTCARD_ACTION_DSCP = 1,
	SOFTCARD_ACTION_DROP = 2,
	SOFTCARD_ACTION_RESERVED = 3, /* passes */
};

/** Packets and bytes, both since the record was created. */
struct softcard_count {
	uint64_t packets;
	uint64_t bytes;
};

/** What a meter does. With the first alone it goes the fastest way. */
enum softcard_meter_flag : uint8_t {
	SOFTCARD_METER_ON = 1 << 0,       /* instance, profile and policy are valid */
	SOFTCARD_METER_AWARE = 1 << 1,    /* takes the colour that packets come with */
	SOFTCARD_METER_REWRITES = 1 << 2, /* some colour gets another DSCP */
	SOFTCARD_METER_ORIGINAL = 1 << 3, /* counts what was taken off a packet, too */
	SOFTCARD_METER_PACKETS = 1 << 4,  /* packet mode */
};

/**
 * A meter as packets use it: its profile and policy in the form that a packet needs. What a green packet
 * touches is the first cache line, what others touch besides is the second.
 */
struct alignas(RTE_CACHE_LINE_SIZE) softcard_meter {
	rte_spinlock_t lock; /* see softcard_guard.h */
	uint8_t flags;       /* SOFTCARD_METER_... */
	uint8_t drop_colors; /* bit n: packets of enum rte_color n are dropped */
	uint8_t dscp_colors; /* bit n: packets of enum rte_color n get another DSCP */
	struct softcard_bucket_params params;
	struct softcard_bucket_state state;
	std::array<struct softcard_count, 3> colors; /* by enum rte_color */

	uint64_t rewritten;
	std::array<uint8_t, 3> dscp; /* by enum rte_color */
	/*
	 * What was dropped, less what the colours count that are dropped now: packets need not count
	 * drops. May be below 0, modulo 2^64. See softcard_meter_dropped().
	 */
	struct softcard_count dropped_base;
};

/* of 64 bytes; where lines are longer, one holds all of it */
static_assert(sizeof(struct softcard_meter) == SOFTCARD_METER_SIZE);
static_assert(offsetof(struct softcard_meter, colors) + sizeof(struct softcard_count) ==
		RTE_CACHE_LINE_MIN_SIZE,
	"a green packet touches one line");

/** What a meter has dropped. It is held, or a copy. */
struct softcard_count softcard_meter_dropped(const struct softcard_meter &meter);

/** The meters whose valid instances name a profile or a policy. */
struct softcard_meter_set {
	uint32_t n;
	std::array<uint64_t, SOFTCARD_METERS / 64> bits;
};

/** One sample of softcard_rate_sample(). */
struct softcard_rate {
	uint64_t last_ns;
	uint64_t passed_bytes;
	uint64_t bytes_s;
};

/** A profile's record, and what meters take from it once one needs it. */
struct softcard_profile {
	struct vask_p4_mep_meter_profile_table record;
	bool converted; /* the two below follow the record */
	uint8_t flags;  /* SOFTCARD_METER_PACKETS, or none */
	struct softcard_bucket_params params;
	struct softcard_meter_set users;
};

/** Likewise a policy. */
struct softcard_policy {
	struct vask_p4_mep_meter_policy_table record;
	bool converted;
	uint8_t flags; /* SOFTCARD_METER_REWRITES, or none */
	uint8_t drop_colors;
	uint8_t dscp_colors;
	std::array<uint8_t, 3> dscp;
	struct softcard_meter_set users;
};

/** An instance record without levels and counters, which are the meter's; and how fast the meter passes bytes. */
struct softcard_inst {
	bool valid;
	uint16_t profile_id;
	uint16_t policy_id;
	uint16_t flags; /* SOFTCARD_METER_AWARE, SOFTCARD_METER_ORIGINAL */
	uint16_t stats_bytes_type;
	uint16_t stats_pkts_type;
	struct softcard_rate rate;
};

struct softcard_engine {
	std::array<struct softcard_profile, SOFTCARD_PROFILES> profiles;
	std::array<struct softcard_policy, SOFTCARD_POLICIES> policies;
	std::array<struct softcard_inst, SOFTCARD_METERS> insts;
	/* each burst reads it: apart from what control calls write */
	alignas(RTE_CACHE_LINE_SIZE) struct softcard_meter *meters; /* SOFTCARD_METERS */
	alignas(RTE_CACHE_LINE_SIZE) struct softcard_guard guard;   /* of the meters */
};

struct softcard_pipeline {
	std::array<struct qorn_meter_profile_table, SOFTCARD_PIPELINE_ENTRIES> profiles;
	std::array<struct qorn_meter_table, SOFTCARD_PIPELINE_ENTRIES> meters;
	std::array<struct qorn_input_port_table_result_tx, SOFTCARD_PORTS> tx_ports;
};

/**
 * A shaper as a bucket of debt: each packet adds what it costs, time pays `rate` parts a nanosecond off, and
 * a packet leaves when the debt leaves room for it in the burst.
 */
struct softcard_shaper {
	rte_spinlock_t lock; /* guards all below */
	bool enabled;        /* limits, or is closed */
	bool closed;
	bool packet_mode;
	uint32_t register_value;
	uint64_t rate;  /* parts a nanosecond; 0 does not limit */
	uint64_t burst; /* parts */
	uint64_t debt;  /* parts, at last_ns */
	uint64_t last_ns;
};

struct softcard {
	std::array<struct softcard_engine, SOFTCARD_ENGINES> engines;
	struct softcard_pipeline pipeline;
	std::array<struct softcard_shaper, SOFTCARD_PORTS> port_shapers;
	struct softcard_shaper isch_shaper;
	/* each burst reads one: apart from what control calls write */
	alignas(RTE_CACHE_LINE_SIZE) std::array<struct softcard_port, SOFTCARD_PORTS> ports;
};

/** The card, or null while it is down. */
extern struct softcard *softcard;

/**
 * @name Engine tables
 * Each returns 0, or -EINVAL (unknown engine, null record), -ERANGE (index past the table), -ENODEV (card
 * down).
 * @{
 */
int softcard_profile_write(
	int dir, uint32_t hw_profile_id, const struct vask_p4_mep_meter_profile_table *profile);
int softcard_profile_clear(int dir, uint32_t hw_profile_id);
int softcard_policy_write(
	int dir, uint32_t hw_policy_id, const struct vask_p4_mep_meter_policy_table *policy);
int softcard_policy_clear(int dir, uint32_t hw_policy_id);
int
softcard_meter_inst_read(int dir, uint32_t hw_meter_id, struct vask_p4_mep_meter_inst_table *inst);
int softcard_output_write(int dir, uint32_t port_sfi, uint32_t hw_meter_id);
int softcard_mtu_write(uint32_t port_sfi, uint16_t mtu);

/** Whether an engine has a table entry of that index. Inline, because each burst asks. */
static inline int
softcard_engine_check(int dir, uint32_t index, uint32_t entries)
{
	if (softcard == nullptr)
		return -ENODEV;
	if (dir != VASK_P4_MEP_INGRESS && dir != VASK_P4_MEP_EGRESS)
		return -EINVAL;
	return index < entries ? 0 : -ERANGE;
}

/** Likewise, and whether there is a record to be written or filled. */
static inline int
softcard_record_check(int dir, uint32_t index, uint32_t entries, const void *record)
{
	const int rc = softcard_engine_check(dir, index, entries);

	return rc == 0 && record == nullptr ? -EINVAL : rc;
}
/** @} */

/** Brings what packets use of the meters in a set up to what the engine's tables hold. */
void softcard_meter_set_refresh(int dir, const struct softcard_meter_set *set);

/** One moment's picture of a meter, its levels never above the bursts. */
struct softcard_meter softcard_meter_copy(int dir, uint32_t hw_meter_id);

/** Fills an instance record as the engine shows it. */
void softcard_meter_inst_fill(int dir, uint32_t hw_meter_id, const struct softcard_meter &meter,
	struct vask_p4_mep_meter_inst_table *inst);

/**
 * @name Pipeline tables
 * Each returns a qorn_status: QORN_ERR_NOT_READY while the card is down, QORN_ERR_BAD_PTR for a null record,
 * QORN_ERR_OUT_OF_RANGE for an index past the table.
 * @{
 */
int softcard_pipeline_profile_write(uint32_t index, const struct qorn_meter_profile_table *entry);
int softcard_pipeline_meter_write(uint32_t index, const struct qorn_meter_table *entry);
int softcard_tx_port_read(uint32_t source_port, struct qorn_input_port_table_result_tx *result);
int
softcard_tx_port_write(uint32_t source_port, const struct qorn_input_port_table_result_tx *result);
/** @} */

/** @name Shaper registers
 * 0, -EINVAL (null record), -ERANGE (source port past the table), -ENODEV (card down).
 * @{
 */
int softcard_port_shaper_write(const struct vask_shaper_set_info *info);
int softcard_isch_write(struct vask_p4_isch_shaper value);
/** @} */

/** The shaper of a direction and port, or null. */
struct softcard_shaper *softcard_shaper_of(int dir, uint16_t port_sfi);

/**
 * When a packet that is ready at earliest_ns may leave. The shaper's lock is held.
 *
 * @return false while nothing may leave at all.
 */
bool softcard_shaper_release(struct softcard_shaper *shaper, uint64_t earliest_ns, uint32_t length,
	uint64_t *release_ns);

/** Accounts for a packet that leaves at release_ns, as softcard_shaper_release() gave it. Lock held. */
void softcard_shaper_charge(struct softcard_shaper *shaper, uint64_t release_ns, uint32_t length);

#endif /* SOFTCARD_INTERNAL_H */
