/* SPDX-License-Identifier: BSD-3-Clause */
#include <cerrno>
#include <cstring>

#include <rte_malloc.h>

#include "vask_flow_frame.h"
#include "vask_flow_table.h"
#include "vask_flow_tuple.h"
#include "vask_rcu.h"

constexpr unsigned RANK_AGE_BITS = 48;

static void
retire(struct vask_flow_state *state, struct vask_flow_retired *retired,
	void (*release)(struct vask_flow_retired *))
{
	retired->release = release;
	retired->token = rte_rcu_qsbr_start(state->rcu);
	STAILQ_INSERT_TAIL(&state->retired, retired, next);
	state->n_retired++;
}

/*
 * Frees what no packet can see any more, oldest first: a tuple goes after the rules that left it. Waits until so much
 * is there, because to ask interrupts those who bring packets.
 */
static void
reclaim(struct vask_flow_state *state, uint32_t least)
{
	struct vask_flow_retired *oldest;

	if (state->n_retired < least)
		return;
	vask_rcu_fence();
	while ((oldest = STAILQ_FIRST(&state->retired)) != nullptr &&
		vask_rcu_passed(state->rcu, oldest->token, false)) {
		STAILQ_REMOVE_HEAD(&state->retired, next);
		state->n_retired--;
		oldest->release(oldest);
	}
}

static void
release_view(struct vask_flow_retired *retired)
{
	rte_free(container_of(retired, struct vask_flow_view, retired));
}

static void
release_tuple(struct vask_flow_retired *retired)
{
	vask_flow_tuple_free(container_of(retired, struct vask_flow_tuple, retired));
}

static void
release_rule(struct vask_flow_retired *retired)
{
	struct rte_flow *rule = container_of(retired, struct rte_flow, retired);

	vask_flow_tuple_give_back(rule->tuple, rule);
	vask_flow_rule_free(rule);
}

/* Shows packets the tuples as they are listed now. */
static int
publish(struct vask_flow_state *state)
{
	const struct vask_flow_view *old = state->view.load(std::memory_order_relaxed);
	struct vask_flow_view *view = nullptr;
	struct vask_flow_tuple *tuple;
	uint32_t n = 0;

	TAILQ_FOREACH (tuple, &state->tuples, next)
		n++;
	if (n != 0) {
		view = static_cast<struct vask_flow_view *>(rte_zmalloc("vask_flow_view",
			sizeof(*view) + n * sizeof(view->entry[0]), RTE_CACHE_LINE_SIZE));
		if (view == nullptr)
			return -ENOMEM;
		TAILQ_FOREACH (tuple, &state->tuples, next)
			view->entry[view->n++] = {tuple->best_rank, tuple};
	}
	state->view.store(view);
	if (old != nullptr)
		retire(state, &const_cast<struct vask_flow_view *>(old)->retired, release_view);
	return 0;
}

/* Lists a tuple by its best rank. */
static void
list_tuple(struct vask_flow_state *state, struct vask_flow_tuple *tuple)
{
	struct vask_flow_tuple *later;

	TAILQ_FOREACH (later, &state->tuples, next)
		if (later->best_rank > tuple->best_rank)
			break;
	if (later != nullptr)
		TAILQ_INSERT_BEFORE(later, tuple, next);
	else
		TAILQ_INSERT_TAIL(&state->tuples, tuple, next);
}

static struct vask_flow_tuple *
find_tuple(const struct vask_flow_state *state, const union vask_flow_fields *mask)
{
	struct vask_flow_tuple *tuple;

	TAILQ_FOREACH (tuple, &state->tuples, next)
		/* NOLINTNEXTLINE(bugprone-suspicious-memory-comparison,cert-exp42-c,cert-flp37-c): no padding */
		if (memcmp(&tuple->full_mask, mask, sizeof(*mask)) == 0)
			return tuple;
	return nullptr;
}

int
vask_flow_state_create(struct rte_rcu_qsbr *rcu, struct vask_flow_state **state)
{
	*state = static_cast<struct vask_flow_state *>(
		rte_zmalloc("vask_flow_state", sizeof(**state), RTE_CACHE_LINE_SIZE));
	if (*state == nullptr)
		return -ENOMEM;
	(*state)->rcu = rcu;
	TAILQ_INIT(&(*state)->rules);
	TAILQ_INIT(&(*state)->tuples);
	STAILQ_INIT(&(*state)->retired);
	return 0;
}

void
vask_flow_state_free(struct vask_flow_state *state)
{
	struct vask_flow_tuple *tuple;
	struct vask_flow_retired *retired;

	if (state == nullptr)
		return;
	while ((retired = STAILQ_FIRST(&state->retired)) != nullptr) {
		STAILQ_REMOVE_HEAD(&state->retired, next);
		retired->release(retired);
	}
	/* only where memory was too short for a new view do empty tuples stay in the old one */
	while ((tuple = TAILQ_FIRST(&state->tuples)) != nullptr) {
		TAILQ_REMOVE(&state->tuples, tuple, next);
		vask_flow_tuple_free(tuple);
	}
	rte_free(const_cast<struct vask_flow_view *>(state->view.load()));
	rte_free(state);
}

/*
 * Another tuple with the heads of one that is full, or in which the key of a new rule finds no place, and with
 * that rule; null when memory is short.
 */
static struct vask_flow_tuple *
rebuild_tuple(const struct vask_flow_tuple *old, struct rte_flow *added)
{
	const bool full = old->n_keys == old->capacity;
	struct vask_flow_tuple *tuple = vask_flow_tuple_create(
		&old->full_mask, full ? 2 * (old->n_keys + 1) : RTE_MAX(old->capacity, 2u));
	struct rte_flow *rule;
	int rc;

	if (tuple == nullptr)
		return nullptr;
	rc = vask_flow_tuple_prepare(tuple, old, added);
	TAILQ_FOREACH (rule, &old->rules, in_tuple)
		if (rule->head && rc == 0)
			rc = vask_flow_tuple_put(tuple, rule);
	if (rc == 0)
		rc = vask_flow_tuple_put(tuple, added);
	if (rc == 0)
		return tuple;
	vask_flow_tuple_free(tuple);
	return nullptr;
}

/* Moves the rules of a tuple, and a new one that it has no place for, into another that takes its place. */
static int
replace_tuple(struct vask_flow_state *state, struct vask_flow_tuple *old, struct rte_flow *added)
{
	struct vask_flow_tuple *tuple = rebuild_tuple(old, added);
	struct rte_flow *rule;

	if (tuple == nullptr)
		return -ENOMEM;
	tuple->best_rank = old->best_rank;
	TAILQ_INSERT_BEFORE(old, tuple, next);
	TAILQ_REMOVE(&state->tuples, old, next);
	if (publish(state) != 0) {
		TAILQ_INSERT_BEFORE(tuple, old, next);
		TAILQ_REMOVE(&state->tuples, tuple, next);
		vask_flow_tuple_free(tuple);
		return -ENOMEM;
	}
	TAILQ_FOREACH (rule, &old->rules, in_tuple)
		rule->tuple = tuple;
	TAILQ_CONCAT(&tuple->rules, &old->rules, in_tuple);
	added->tuple = tuple;
	retire(state, &old->retired, release_tuple);
	return 0;
}

/* The first rule of a mask brings its tuple with it. */
static int
insert_first(struct vask_flow_state *state, struct rte_flow *rule)
{
	struct vask_flow_tuple *tuple = vask_flow_tuple_create(&rule->spec.mask, 1);

	if (tuple == nullptr)
		return -ENOMEM;
	vask_flow_tuple_put(tuple, rule);
	tuple->best_rank = rule->rank;
	list_tuple(state, tuple);
	if (publish(state) != 0) {
		TAILQ_REMOVE(&state->tuples, tuple, next);
		vask_flow_tuple_free(tuple);
		return -ENOMEM;
	}
	rule->tuple = tuple;
	rule->head = true;
	return 0;
}

/* Puts a rule among those with the same pattern, the first of which is head. */
static int
insert_in_chain(struct vask_flow_tuple *tuple, struct rte_flow *head, struct rte_flow *rule)
{
	struct rte_flow *next;

	if (rule->rank < head->rank) {
		rule->next.store(head);
		if (vask_flow_tuple_put(tuple, rule) != 0)
			return -ENOMEM;
		rule->head = true;
		head->head = false;
		return 0;
	}
	while ((next = head->next.load(std::memory_order_relaxed)) != nullptr &&
		next->rank < rule->rank)
		head = next;
	rule->next.store(next);
	head->next.store(rule);
	return 0;
}

static void
relist_tuple(struct vask_flow_state *state, struct vask_flow_tuple *tuple, uint64_t best_rank)
{
	tuple->best_rank = best_rank;
	TAILQ_REMOVE(&state->tuples, tuple, next);
	list_tuple(state, tuple);
}

static int
insert_into(struct vask_flow_state *state, struct vask_flow_tuple *tuple, struct rte_flow *rule)
{
	struct rte_flow *head;
	int rc;

	/* a rank too low costs packets a lookup, one too high would hide the rule */
	if (rule->rank < tuple->best_rank) {
		const uint64_t before = tuple->best_rank;

		relist_tuple(state, tuple, rule->rank);
		if (publish(state) != 0) {
			relist_tuple(state, tuple, before);
			return -ENOMEM;
		}
	}
	rule->tuple = tuple;
	head = vask_flow_tuple_head(tuple, rule);
	if (head != nullptr)
		return insert_in_chain(tuple, head, rule);

	rc = vask_flow_tuple_put(tuple, rule);
	if (rc == -ENOSPC)
		rc = replace_tuple(state, tuple, rule);
	rule->head = rc == 0;
	return rc;
}

int
vask_flow_insert(struct rte_flow *rule)
{
	struct vask_flow_state *state = rule->state;
	struct vask_flow_tuple *tuple = find_tuple(state, &rule->spec.mask);
	int rc;

	reclaim(state, 1); /* a rule may need the place of one that is gone */
	rule->rank =
		static_cast<uint64_t>(rule->spec.priority) << RANK_AGE_BITS | state->next_age++;
	rc = tuple == nullptr ? insert_first(state, rule) : insert_into(state, tuple, rule);
	if (rc != 0)
		return rc;
	TAILQ_INSERT_TAIL(&state->rules, rule, in_state);
	TAILQ_INSERT_TAIL(&rule->tuple->rules, rule, in_tuple);
	if (rule->spec.meter_id != 0 && state->n_meter_rules++ == 0)
		state->metering.store(true);
	return 0;
}

void
vask_flow_rule_meter_set(struct rte_flow *rule, uint32_t hw_meter_id)
{
	const vask_flow_brief before = rule->brief.load(std::memory_order_relaxed);
	const vask_flow_brief flags = before & ~vask_flow_brief{UINT32_MAX};

	/* packets read what is written here: most changes of a meter leave it as it is */
	if ((flags | hw_meter_id) == before)
		return;
	rule->brief.store(flags | hw_meter_id, std::memory_order_release);
	if (rule->head)
		vask_flow_tuple_update(rule->tuple, rule);
}

void
vask_flow_remove(struct rte_flow *rule)
{
	struct vask_flow_state *state = rule->state;
	struct vask_flow_tuple *tuple = rule->tuple;
	struct rte_flow *next = rule->next.load(std::memory_order_relaxed);

	if (rule->spec.meter_id != 0 && --state->n_meter_rules == 0)
		state->metering.store(false);
	if (!rule->head) {
		struct rte_flow *before = vask_flow_tuple_head(tuple, rule);

		while (before->next.load(std::memory_order_relaxed) != rule)
			before = before->next.load(std::memory_order_relaxed);
		before->next.store(next);
	} else if (next != nullptr) {
		/* takes the place of the same key, so there is room */
		vask_flow_tuple_put(tuple, next);
		next->head = true;
	} else {
		vask_flow_tuple_take(tuple, rule);
	}
	rule->head = false;
	TAILQ_REMOVE(&state->rules, rule, in_state);
	TAILQ_REMOVE(&tuple->rules, rule, in_tuple);
	retire(state, &rule->retired, release_rule);

	if (TAILQ_EMPTY(&tuple->rules)) {
		struct vask_flow_tuple *after = TAILQ_NEXT(tuple, next);

		TAILQ_REMOVE(&state->tuples, tuple, next);
		if (publish(state) == 0)
			retire(state, &tuple->retired, release_tuple);
		else if (after != nullptr) /* stays, empty */
			TAILQ_INSERT_BEFORE(after, tuple, next);
		else
			TAILQ_INSERT_TAIL(&state->tuples, tuple, next);
	}
	reclaim(state, 64);
}
