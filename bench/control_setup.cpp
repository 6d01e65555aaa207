/* SPDX-License-Identifier: BSD-3-Clause */

#include "control_setup.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string_view>
#include <vector>

#include "control_port.h"
#include "vask_p4_log.h"

constexpr uint16_t PORT = CONTROL_PORT;
constexpr uint64_t RECEIVE_METER = UINT64_C(1) << 63;

static void
must(int rc, const char *what)
{
	if (rc == 0)
		return;
	fprintf(stderr, "bench: %s failed with %d\n", what, rc);
	abort();
}

void
control_profile_add(uint32_t id)
{
	struct rte_mtr_meter_profile profile = {};

	profile.alg = RTE_MTR_TRTCM_RFC2698;
	profile.trtcm_rfc2698 = {1250000, 2500000, 65536, 131072};
	must(rte_mtr_meter_profile_add(PORT, id, &profile, nullptr), "profile add");
}

struct rte_mtr_meter_policy_params
control_policy()
{
	static const struct rte_flow_action end = {RTE_FLOW_ACTION_TYPE_END, nullptr};
	static const struct rte_flow_action drop[] = {{RTE_FLOW_ACTION_TYPE_DROP, nullptr}, end};

	return {{&end, &end, drop}};
}

void
control_policy_add(uint32_t id)
{
	struct rte_mtr_meter_policy_params policy = control_policy();

	must(rte_mtr_meter_policy_add(PORT, id, &policy, nullptr), "policy add");
}

void
control_meter_create(uint32_t id, uint32_t profile_id, uint32_t policy_id)
{
	struct rte_mtr_params params = {};

	params.meter_profile_id = profile_id;
	params.meter_policy_id = policy_id;
	params.meter_enable = 1;
	params.stats_mask = RECEIVE_METER | RTE_MTR_STATS_N_PKTS_DROPPED;
	must(rte_mtr_create(PORT, id, &params, 0, nullptr), "create");
}

/* Links the nodes anew in an order that has nothing to do with memory, the last one excepted. */
template <typename Head>
static void
shuffle(Head *head)
{
	using Node = std::remove_pointer_t<decltype(head->tqh_first)>;
	std::vector<Node *> nodes;

	for (Node *node = head->tqh_first; node != nullptr; node = node->next.tqe_next)
		nodes.push_back(node);
	if (nodes.empty())
		return;
	std::shuffle(nodes.begin(), nodes.end() - 1, std::mt19937(1));
	TAILQ_INIT(head);
	for (Node *node : nodes)
		TAILQ_INSERT_TAIL(head, node, next);
}

void
control_setup(const struct control_state &state)
{
	must(control_port_start(), "start");
	for (uint32_t id = 1; id <= state.profiles; id++)
		control_profile_add(id);
	for (uint32_t id = 1; id <= state.policies; id++)
		control_policy_add(id);
	for (uint32_t id = 1; id <= state.meters; id++)
		control_meter_create(id, 1, 1);
	if (state.shuffled) {
		shuffle(&vask_p4_meter_profile_list);
		shuffle(&vask_p4_meter_policy_list);
		shuffle(&vask_p4_meter_list);
	}
}

void
control_teardown()
{
	while (!TAILQ_EMPTY(&vask_p4_meter_list))
		must(rte_mtr_destroy(
			     PORT, TAILQ_FIRST(&vask_p4_meter_list)->data.meter_id, nullptr),
			"destroy");
	while (!TAILQ_EMPTY(&vask_p4_meter_profile_list))
		must(rte_mtr_meter_profile_delete(PORT,
			     TAILQ_FIRST(&vask_p4_meter_profile_list)->data.profile_id, nullptr),
			"profile delete");
	while (!TAILQ_EMPTY(&vask_p4_meter_policy_list))
		must(rte_mtr_meter_policy_delete(PORT,
			     TAILQ_FIRST(&vask_p4_meter_policy_list)->data.policy_id, nullptr),
			"policy delete");
	control_port_stop();
}

static unsigned int lines;
static FILE *line_stream;

static ssize_t
count_line(void *, const char *text, size_t size)
{
	constexpr std::string_view head = "[offload_smartnic]";
	std::string_view rest(text, size);

	for (size_t at = 0; (at = rest.find(head, at)) != std::string_view::npos; at += head.size())
		lines++;
	return size;
}

void
control_count_lines_begin()
{
	lines = 0;
	line_stream = fopencookie(nullptr, "w", {nullptr, count_line, nullptr, nullptr});
	setvbuf(line_stream, nullptr, _IOFBF, 1 << 16);
	rte_openlog_stream(line_stream);
	rte_log_set_level(vask_p4_logtype, RTE_LOG_DEBUG);
}

unsigned int
control_count_lines_end()
{
	rte_log_set_level(vask_p4_logtype, RTE_LOG_EMERG);
	rte_openlog_stream(nullptr);
	fclose(line_stream);
	return lines;
}
