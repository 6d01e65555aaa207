/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_P4_METER_INTERNAL_H
#define VASK_P4_METER_INTERNAL_H

/**
 * @file
 * What the files of the meter module share and export to nobody.
 *
 * Operations of the rte_mtr table refuse with -EBUSY whatever the cause, set rte_errno to EBUSY and fill the
 * error record when there is one; its type and message tell the cause, its `cause` is always null. The
 * other functions return 0 or a non-zero status (-1, or the lower layer's own) and log.
 */

#include <cstdint>
#include <cstdlib>
#include <memory>

#include <rte_spinlock.h>

extern "C" {
#include <rte_mtr_driver.h>
}

#include "vask_dev_cmds.h"
#include "vask_p4_enum.h"
#include "vask_p4_log.h"
#include "vask_p4_meter.h"

#pragma GCC visibility push(hidden)

/** Index 255 of the policy pool belongs to the default policy, whose id is 0. */
constexpr uint32_t VASK_P4_DEFAULT_POLICY_ID = 0;
constexpr uint32_t VASK_P4_DEFAULT_HW_POLICY_ID = 255;

/** Direction of a meter, as its record holds it. Any other value programs no shaper. */
enum vask_p4_meter_dir : uint32_t {
	VASK_P4_METER_RX = 0,
	VASK_P4_METER_TX = 1,
	VASK_P4_METER_BOTH = 3,
};

/** What a creation asks for. The P4 tables know no both-sides meter. */
enum vask_p4_meter_dir_request : int {
	VASK_P4_METER_REQUEST_TX = 1,
	VASK_P4_METER_REQUEST_RX = 2,
	VASK_P4_METER_REQUEST_BOTH = 3,
	VASK_P4_METER_REQUEST_TABLE_RX = 4,
	VASK_P4_METER_REQUEST_TABLE_TX = 5,
};

/** Action codes of a policy, as they travel to the engines and in P4 policer entries. */
enum vask_p4_meter_action : uint32_t {
	VASK_P4_METER_PASS = 0,
	VASK_P4_METER_SET_DSCP = 1,
	VASK_P4_METER_DROP = 2,
};

/** Holds a record's `sl` to the end of the scope. */
class vask_p4_spinlock_guard
{
      public:
	explicit vask_p4_spinlock_guard(rte_spinlock_t *sl) : sl_(sl)
	{
		rte_spinlock_lock(sl_);
	}
	~vask_p4_spinlock_guard()
	{
		rte_spinlock_unlock(sl_);
	}
	vask_p4_spinlock_guard(const vask_p4_spinlock_guard &) = delete;
	vask_p4_spinlock_guard &operator=(const vask_p4_spinlock_guard &) = delete;

      private:
	rte_spinlock_t *sl_;
};

struct vask_p4_free {
	void operator()(void *node) const
	{
		free(node);
	}
};

/** A node that no list owns yet: freed at the end of the scope unless it is released to a list. */
template <typename Node> using vask_p4_unlisted = std::unique_ptr<Node, vask_p4_free>;

/** A zeroed node, or null when memory is short. */
template <typename Node>
vask_p4_unlisted<Node>
vask_p4_node_alloc()
{
	return vask_p4_unlisted<Node>(static_cast<Node *>(calloc(1, sizeof(Node))));
}

/* Capabilities: vask_p4_meter.cpp */
int vask_p4_meter_cap_get(
	struct rte_eth_dev *dev, struct rte_mtr_capabilities *cap, struct rte_mtr_error *error);

/* Index pools: vask_p4_meter_pool.cpp */
int vask_p4_get_meter_index(VASK_P4_INDEXSTACK_MANAGER *list, uint32_t *pindex);
int vask_p4_meter_free_index(VASK_P4_INDEXSTACK_MANAGER *list, uint32_t index);
void vask_p4_meter_set_index(VASK_P4_INDEXSTACK_MANAGER *list, uint32_t index);

/* Lookups: vask_p4_meter_registry.cpp. The first match, borrowed, or null. */
struct vask_p4_meter_cfg_node *vask_p4_find_meter_byid(uint32_t meter_id);
struct vask_p4_meter_profile_node *vask_p4_find_meter_profile_byid(uint32_t profile_id);
struct vask_p4_meter_policy_node *vask_p4_find_meter_policy_byid(uint32_t policy_id);

/* Profiles: vask_p4_meter_profile.cpp */

/** Fills a profile record; -1 for an algorithm that is not known, or a peak rate below the committed. */
int vask_p4_profile_convert(
	struct vask_p4_meter_profile *vask_profile, const struct rte_mtr_meter_profile *profile);

/** The algorithm of a record, derived from its fields; not the inverse of the conversion. */
enum rte_mtr_algorithm vask_p4_meter_get_profile_type(const struct vask_p4_meter_profile *p);

/** 1 when a record equals a DPDK profile, else 0; RFC 4115 profiles equal nothing. */
int vask_p4_meter_profile_cmp(
	const struct vask_p4_meter_profile *srcp, const struct rte_mtr_meter_profile *dstp);

/** Writes a profile into one engine, in the engine's units, and keeps a copy of what was written. */
int vask_p4_meter_convert_profile(
	int dir, int hw_profile_id, struct vask_p4_meter_profile_node *profile_node);

/** Takes a hardware index if the node holds none and writes the ingress engine; can be repeated. */
int vask_p4_meter_add_profile_2_hw(struct vask_p4_meter_profile_node *profile_node);

/** Clears both engines, gives the index back and zeroes the record. */
int vask_p4_meter_del_profile_2_hw(struct vask_p4_meter_profile_node *profile_node);

int vask_p4_meter_profile_add(struct rte_eth_dev *dev, uint32_t meter_profile_id,
	struct rte_mtr_meter_profile *profile, struct rte_mtr_error *error);
int vask_p4_meter_profile_delete(
	struct rte_eth_dev *dev, uint32_t meter_profile_id, struct rte_mtr_error *error);

/** Gives one reference back; an unknown profile and a count of 0 are left alone. Always 0. */
int vask_p4_meter_profile_ref_dec(
	struct rte_eth_dev *dev, uint32_t meter_profile_id, struct rte_mtr_error *error);

/* Policies: vask_p4_meter_policy.cpp */

/** Writes a policy into one engine and keeps a copy of what was written. */
int vask_p4_meter_convert_policy(
	int dir, int hw_policy_id, struct vask_p4_meter_policy_node *policy_node);

/** Takes a hardware index if the node holds none and writes the ingress engine; can be repeated. */
int vask_p4_meter_add_policy_2_hw(struct vask_p4_meter_policy_node *policy_node);

/** Clears both engines, gives the index back and zeroes the record. */
int vask_p4_meter_del_policy_2_hw(struct vask_p4_meter_policy_node *policy_node);

int vask_p4_meter_policy_validate(struct rte_eth_dev *dev,
	struct rte_mtr_meter_policy_params *policy, struct rte_mtr_error *error);
int vask_p4_meter_policy_add(struct rte_eth_dev *dev, uint32_t policy_id,
	struct rte_mtr_meter_policy_params *policy, struct rte_mtr_error *error);
int vask_p4_meter_policy_delete(
	struct rte_eth_dev *dev, uint32_t policy_id, struct rte_mtr_error *error);

/** Gives one reference back; an unknown policy and a count of 0 are left alone. Always 0. */
int vask_p4_meter_policy_ref_dec(
	struct rte_eth_dev *dev, uint32_t policy_id, struct rte_mtr_error *error);

/* Committed rate to shaper records: vask_p4_meter_shaper.cpp. The records come zeroed. */
void vask_p4_meter_add_convert_shaper(
	uint32_t sfi, uint64_t cir, int pm, struct vask_shaper_set_info *shaper_info);
void vask_p4_meter_add_convert_isch_shaper(
	uint64_t cir, int pm, struct vask_p4_isch_shaper *shaper_info);
void
vask_p4_meter_del_convert_shaper(uint32_t sfi, int pm, struct vask_shaper_set_info *shaper_info);

/* A meter into and out of the card: vask_p4_meter_hw.cpp. What was written before a failure stays. */

/** Programs the shapers that the meter's direction uses, and enables the meter. */
int vask_p4_add_meter_cfg_2_hw(struct vask_p4_meter_cfg_node *meter_node);

/** Clears those shapers and the port's binding, and gives the hardware index back. */
int vask_p4_del_meter_cfg_2_hw(struct vask_p4_meter_cfg_node *meter_node);

/** Binds the meter to its port's transmit (dir 1) or receive (dir 0) traffic. */
int vask_p4_meter_add_port_to_hw(
	int dir, struct vask_p4_meter_cfg_node *meter_node, struct rte_mtr_error *error);

/** Takes the meter off its port's transmit (dir 1) or receive (any other dir) traffic. */
int vask_p4_meter_del_port_to_hw(int dir, struct vask_p4_meter_cfg_node *meter_node);

/** Clears the pipeline's profile and meter entries of that id. */
int vask_p4_del_meter_cfg_2_pol(uint32_t meter_id);

/* Meters: vask_p4_meter_instance.cpp */

/**
 * Creates a meter on a port.
 *
 * @param port_type  non-zero: a receive or both-sides meter binds the port.
 * @param dir        a vask_p4_meter_dir_request.
 * @return 0; -EBUSY with the error set; -1 when no hardware index is free.
 */
int
vask_p4_meter_inst_create(struct rte_eth_dev *dev, uint32_t meter_id, struct rte_mtr_params *params,
	int port_type, int use_ori_pkt, struct rte_mtr_error *error, int dir);

int vask_p4_meter_create(struct rte_eth_dev *dev, uint32_t meter_id, struct rte_mtr_params *params,
	int shared, struct rte_mtr_error *error);
int vask_p4_meter_destroy(struct rte_eth_dev *dev, uint32_t meter_id, struct rte_mtr_error *error);
int vask_p4_meter_enable(struct rte_eth_dev *dev, uint32_t mtr_id, struct rte_mtr_error *error);
int vask_p4_meter_disable(struct rte_eth_dev *dev, uint32_t mtr_id, struct rte_mtr_error *error);
int vask_p4_meter_stats_read(struct rte_eth_dev *dev, uint32_t mtr_id, struct rte_mtr_stats *stats,
	uint64_t *stats_mask, int clear, struct rte_mtr_error *error);

/* Live profile change: vask_p4_meter_update.cpp */

/** Moves a meter onto a profile: its copy, its shapers, and on success one reference. */
int vask_p4_meter_update_profile_2_hw(
	struct vask_p4_meter_profile *profile, struct vask_p4_meter_cfg_entry *meter);

int vask_p4_meter_profile_update(struct rte_eth_dev *dev, uint32_t meter_id,
	uint32_t meter_profile_id, struct rte_mtr_error *error);

/* P4 tables: vask_p4_meter_table.cpp */

/** Fills a DPDK profile from a P4 entry, whatever its name suggests; -1 for an unknown algorithm. */
int talvora_p4_offload_meter_profile_convert_from_std_2_nstd(
	struct rte_mtr_meter_profile *profile, const p4_meter_profile_t *entry);

#pragma GCC visibility pop

#endif /* VASK_P4_METER_INTERNAL_H */
