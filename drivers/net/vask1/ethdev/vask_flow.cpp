/* SPDX-License-Identifier: BSD-3-Clause */
#include <cerrno>
#include <cstdio>

#include "vask_flow.h"
#include "vask_flow_dump.h"
#include "vask_flow_parse.h"
#include "vask_meter_ref.h"
#include "vask_p4_enum.h"

/* The result of vask_meter_ref_check() or vask_meter_ref_attach() as a refusal of the METER action. */
static int
refuse_meter(int rc, const struct rte_flow_action *action, struct rte_flow_error *error)
{
	const char *text = "meter 0 cannot be used by a rule";

	if (rc == -ENOENT)
		text = "there is no such meter";
	else if (rc == -ENOSPC)
		text = "four rules use this meter already";
	else if (rc == -ENOMEM)
		text = "no memory for the use of the meter";
	return rte_flow_error_set(error, -rc, RTE_FLOW_ERROR_TYPE_ACTION_CONF, action, text);
}

static int
parse(const struct rte_eth_dev *dev, const struct rte_flow_attr *attr,
	const struct rte_flow_item pattern[], const struct rte_flow_action actions[],
	struct vask_flow_spec *spec, const struct rte_flow_action **meter_action,
	struct rte_flow_error *error)
{
	int rc = vask_flow_parse(
		dev->data->nb_rx_queues, attr, pattern, actions, spec, meter_action, error);

	if (rc != 0 || *meter_action == nullptr)
		return rc;
	rc = vask_meter_ref_check(spec->meter_id);
	return rc != 0 ? refuse_meter(rc, *meter_action, error) : 0;
}

static int
flow_validate(struct rte_eth_dev *dev, const struct rte_flow_attr *attr,
	const struct rte_flow_item pattern[], const struct rte_flow_action actions[],
	struct rte_flow_error *error)
{
	const struct rte_flow_action *meter_action;
	struct vask_flow_spec spec;
	vask_control_guard lock;

	return parse(dev, attr, pattern, actions, &spec, &meter_action, error);
}

static struct rte_flow *
no_memory(struct rte_flow *rule, struct rte_flow_error *error)
{
	rte_flow_error_set(
		error, ENOMEM, RTE_FLOW_ERROR_TYPE_UNSPECIFIED, nullptr, "no memory for the rule");
	if (rule != nullptr) {
		vask_meter_ref_detach(rule);
		vask_flow_rule_free(rule);
	}
	return nullptr;
}

static struct rte_flow *
flow_create(struct rte_eth_dev *dev, const struct rte_flow_attr *attr,
	const struct rte_flow_item pattern[], const struct rte_flow_action actions[],
	struct rte_flow_error *error)
{
	const struct rte_flow_action *meter_action;
	struct vask_flow_spec spec;
	vask_control_guard lock;
	struct rte_flow *rule;

	if (parse(dev, attr, pattern, actions, &spec, &meter_action, error) != 0)
		return nullptr;
	rule = vask_flow_rule_alloc(vask_port_of(dev)->flow[spec.dir], &spec);
	if (rule == nullptr)
		return no_memory(nullptr, error);
	if (spec.meter_id != 0 && vask_meter_ref_attach(rule) != 0)
		return no_memory(rule, error);
	if (vask_flow_insert(rule) != 0)
		return no_memory(rule, error);
	return rule;
}

/* Whether a handle is one of the port's rules: applications do destroy twice. */
static bool
is_rule(const struct vask_port *port, const struct rte_flow *flow)
{
	for (const struct vask_flow_state *state : port->flow) {
		const struct rte_flow *rule;

		TAILQ_FOREACH (rule, &state->rules, in_state)
			if (rule == flow)
				return true;
	}
	return false;
}

static int
no_rule(const struct rte_flow *flow, struct rte_flow_error *error)
{
	return rte_flow_error_set(
		error, ENOENT, RTE_FLOW_ERROR_TYPE_HANDLE, flow, "the port has no such rule");
}

static void
remove_rule(struct rte_flow *rule)
{
	vask_meter_ref_detach(rule);
	vask_flow_remove(rule);
}

static void
remove_all(struct vask_port *port)
{
	for (struct vask_flow_state *state : port->flow) {
		struct rte_flow *rule;

		while (state != nullptr && (rule = TAILQ_FIRST(&state->rules)) != nullptr)
			remove_rule(rule);
	}
}

static int
flow_destroy(struct rte_eth_dev *dev, struct rte_flow *flow, struct rte_flow_error *error)
{
	vask_control_guard lock;

	if (!is_rule(vask_port_of(dev), flow))
		return no_rule(flow, error);
	remove_rule(flow);
	return 0;
}

static int
flow_flush(struct rte_eth_dev *dev, struct rte_flow_error *)
{
	vask_control_guard lock;

	remove_all(vask_port_of(dev));
	return 0;
}

static int
flow_query(struct rte_eth_dev *dev, struct rte_flow *flow, const struct rte_flow_action *action,
	void *data, struct rte_flow_error *error)
{
	struct rte_flow_query_count *query = static_cast<struct rte_flow_query_count *>(data);
	uint64_t hits, bytes;
	vask_control_guard lock;

	if (!is_rule(vask_port_of(dev), flow))
		return no_rule(flow, error);
	if (action == nullptr || vask_p4_enum_number(&action->type) != RTE_FLOW_ACTION_TYPE_COUNT)
		return rte_flow_error_set(error, ENOTSUP, RTE_FLOW_ERROR_TYPE_ACTION, action,
			"only count can be queried");
	if (flow->count == nullptr)
		return rte_flow_error_set(error, EINVAL, RTE_FLOW_ERROR_TYPE_ACTION, action,
			"the rule has no count action");
	if (query == nullptr)
		return rte_flow_error_set(error, EINVAL, RTE_FLOW_ERROR_TYPE_UNSPECIFIED, nullptr,
			"no record for the answer");
	vask_flow_rule_count(flow, query->reset, &hits, &bytes);
	query->hits_set = 1;
	query->bytes_set = 1;
	query->hits = hits;
	query->bytes = bytes;
	return 0;
}

static int
flow_isolate(struct rte_eth_dev *, int set, struct rte_flow_error *error)
{
	if (set == 0)
		return 0;
	return rte_flow_error_set(error, ENOTSUP, RTE_FLOW_ERROR_TYPE_UNSPECIFIED, nullptr,
		"isolated mode is not supported: packets that match no rule are always received");
}

static int
flow_dev_dump(
	struct rte_eth_dev *dev, struct rte_flow *flow, FILE *file, struct rte_flow_error *error)
{
	const struct vask_port *port = vask_port_of(dev);
	vask_control_guard lock;

	if (file == nullptr)
		return rte_flow_error_set(error, EINVAL, RTE_FLOW_ERROR_TYPE_UNSPECIFIED, nullptr,
			"no file to write to");
	if (flow != nullptr) {
		if (!is_rule(port, flow))
			return no_rule(flow, error);
		vask_flow_dump(flow, file);
		return 0;
	}
	for (const struct vask_flow_state *state : port->flow) {
		struct rte_flow *rule;

		TAILQ_FOREACH (rule, &state->rules, in_state)
			vask_flow_dump(rule, file);
	}
	return 0;
}

static constexpr struct rte_flow_ops
make_ops()
{
	struct rte_flow_ops ops = {};

	ops.validate = flow_validate;
	ops.create = flow_create;
	ops.destroy = flow_destroy;
	ops.flush = flow_flush;
	ops.query = flow_query;
	ops.isolate = flow_isolate;
	ops.dev_dump = flow_dev_dump;
	return ops;
}

constexpr struct rte_flow_ops vask_flow_ops = make_ops();

int
vask_flow_port_init(struct vask_port *port)
{
	for (struct vask_flow_state *&state : port->flow)
		if (vask_flow_state_create(port->rcu, &state) != 0) {
			vask_flow_port_fini(port);
			return -ENOMEM;
		}
	return 0;
}

void
vask_flow_port_fini(struct vask_port *port)
{
	remove_all(port);
	for (struct vask_flow_state *&state : port->flow) {
		vask_flow_state_free(state);
		state = nullptr;
	}
}
