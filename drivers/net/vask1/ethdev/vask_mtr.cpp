/* SPDX-License-Identifier: BSD-3-Clause */
#include <cerrno>

#include "vask_meter_ref.h"
#include "vask_mtr.h"
#include "vask_p4_meter.h"
#include "vask_port.h"

/* The module's own table and ours; the same for every port. Written when the card starts. */
static const struct rte_mtr_ops *module_ops;
static struct rte_mtr_ops guarded_ops;

constexpr uint64_t DROP_COUNTERS = RTE_MTR_STATS_N_PKTS_DROPPED | RTE_MTR_STATS_N_BYTES_DROPPED;

/* Holds the lock for a call and sees to the error record. */
struct guarded_call {
	const struct vask_control_guard lock;
	struct rte_mtr_error *const error;

	explicit guarded_call(struct rte_mtr_error *e) : error(e)
	{
		if (error != nullptr)
			*error = {};
	}

	/* Applications print the record of a refusal whatever it holds. */
	int done(int rc, const char *failed_step) const
	{
		if (rc != 0 && error != nullptr && error->type == RTE_MTR_ERROR_TYPE_NONE) {
			error->type = RTE_MTR_ERROR_TYPE_UNSPECIFIED;
			error->message = failed_step;
		}
		return rc;
	}
};

/* `done` follows a call that succeeded. A refusal may mean that the meter has gone behind our back. */
static void
after_call(uint32_t mtr_id, int rc, void (*done)(uint32_t))
{
	if (rc == 0)
		done(mtr_id);
	else
		vask_meter_refresh(mtr_id);
}

static int
guarded_capabilities_get(
	struct rte_eth_dev *dev, struct rte_mtr_capabilities *cap, struct rte_mtr_error *error)
{
	const guarded_call call(error);

	return call.done(module_ops->capabilities_get(dev, cap, error), "capabilities not known");
}

static int
guarded_profile_add(struct rte_eth_dev *dev, uint32_t profile_id,
	struct rte_mtr_meter_profile *profile, struct rte_mtr_error *error)
{
	const guarded_call call(error);

	return call.done(module_ops->meter_profile_add(dev, profile_id, profile, error),
		"meter profile: no free index, or the engine refused the entry");
}

static int
guarded_profile_delete(struct rte_eth_dev *dev, uint32_t profile_id, struct rte_mtr_error *error)
{
	const guarded_call call(error);

	return call.done(module_ops->meter_profile_delete(dev, profile_id, error),
		"meter profile: the engine refused to delete the entry");
}

static int
guarded_policy_validate(struct rte_eth_dev *dev, struct rte_mtr_meter_policy_params *policy,
	struct rte_mtr_error *error)
{
	const guarded_call call(error);

	return call.done(module_ops->meter_policy_validate(dev, policy, error),
		"meter policy: an action is not supported");
}

static int
guarded_policy_add(struct rte_eth_dev *dev, uint32_t policy_id,
	struct rte_mtr_meter_policy_params *policy, struct rte_mtr_error *error)
{
	const guarded_call call(error);

	return call.done(module_ops->meter_policy_add(dev, policy_id, policy, error),
		"meter policy: no free index, or the engine refused the entry");
}

static int
guarded_policy_delete(struct rte_eth_dev *dev, uint32_t policy_id, struct rte_mtr_error *error)
{
	const guarded_call call(error);

	return call.done(module_ops->meter_policy_delete(dev, policy_id, error),
		"meter policy: the engine refused to delete the entry");
}

static int
guarded_create(struct rte_eth_dev *dev, uint32_t mtr_id, struct rte_mtr_params *params, int shared,
	struct rte_mtr_error *error)
{
	const guarded_call call(error);
	const int rc = module_ops->create(dev, mtr_id, params, shared, error);

	after_call(mtr_id, rc, vask_meter_created);
	return call.done(rc, "meter: no free hardware meter index");
}

static int
guarded_destroy(struct rte_eth_dev *dev, uint32_t mtr_id, struct rte_mtr_error *error)
{
	const guarded_call call(error);
	const int rc = module_ops->destroy(dev, mtr_id, error);

	after_call(mtr_id, rc, vask_meter_destroyed);
	return call.done(rc, "meter: the card refused to delete it");
}

static int
guarded_enable(struct rte_eth_dev *dev, uint32_t mtr_id, struct rte_mtr_error *error)
{
	const guarded_call call(error);
	const int rc = module_ops->meter_enable(dev, mtr_id, error);

	after_call(mtr_id, rc, vask_meter_changed);
	return call.done(rc, "meter enable: the card refused the meter's shapers");
}

static int
guarded_disable(struct rte_eth_dev *dev, uint32_t mtr_id, struct rte_mtr_error *error)
{
	const guarded_call call(error);
	const int rc = module_ops->meter_disable(dev, mtr_id, error);

	after_call(mtr_id, rc, vask_meter_disabled);
	return call.done(
		rc, "meter disable: the card refused to remove the meter's shapers or binding");
}

static int
guarded_profile_update(
	struct rte_eth_dev *dev, uint32_t mtr_id, uint32_t profile_id, struct rte_mtr_error *error)
{
	const guarded_call call(error);
	const int rc = module_ops->meter_profile_update(dev, mtr_id, profile_id, error);

	after_call(mtr_id, rc, vask_meter_changed);
	return call.done(rc, "meter profile update: the card refused the meter's new profile");
}

static bool
meter_known(uint32_t mtr_id)
{
	const struct vask_p4_meter_cfg_node *node;

	TAILQ_FOREACH (node, &vask_p4_meter_list, next)
		if (node->data.meter_id == mtr_id)
			return true;
	return false;
}

static int
guarded_stats_read(struct rte_eth_dev *dev, uint32_t mtr_id, struct rte_mtr_stats *stats,
	uint64_t *stats_mask, int clear, struct rte_mtr_error *error)
{
	const guarded_call call(error);
	const char *const failed = "meter statistics: the meter could not be read";
	uint64_t mask = DROP_COUNTERS;
	int rc;

	if (stats_mask != nullptr && *stats_mask != 0)
		return call.done(
			module_ops->stats_read(dev, mtr_id, stats, stats_mask, clear, error),
			failed);

	rc = module_ops->stats_read(dev, mtr_id, stats, &mask, clear, error);
	if (rc == 0 && stats_mask != nullptr)
		*stats_mask = meter_known(mtr_id) ? DROP_COUNTERS : 0;
	return call.done(rc, failed);
}

static struct rte_mtr_ops
guarded_ops_fill()
{
	struct rte_mtr_ops ops = {};

#define GUARD(slot, fn) ops.slot = module_ops->slot != nullptr ? (fn) : nullptr
	GUARD(capabilities_get, guarded_capabilities_get);
	GUARD(meter_profile_add, guarded_profile_add);
	GUARD(meter_profile_delete, guarded_profile_delete);
	GUARD(create, guarded_create);
	GUARD(destroy, guarded_destroy);
	GUARD(meter_enable, guarded_enable);
	GUARD(meter_disable, guarded_disable);
	GUARD(meter_profile_update, guarded_profile_update);
	GUARD(stats_read, guarded_stats_read);
	GUARD(meter_policy_validate, guarded_policy_validate);
	GUARD(meter_policy_add, guarded_policy_add);
	GUARD(meter_policy_delete, guarded_policy_delete);
#undef GUARD
	return ops;
}

int
vask_mtr_start(struct rte_eth_dev *dev)
{
	const int rc = vask_p4_dev_mtr_ops_get(dev, &module_ops);

	if (rc == 0)
		guarded_ops = guarded_ops_fill();
	return rc;
}

int
vask_mtr_ops_get(struct rte_eth_dev *, void *ops)
{
	*static_cast<const struct rte_mtr_ops **>(ops) = &guarded_ops;
	return 0;
}
