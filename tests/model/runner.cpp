/* SPDX-License-Identifier: BSD-3-Clause */
/**
 * @file
 * Executes the scenarios of FORMAT.md against the module, one JSON line each from standard input, and
 * prints one result line a step.
 */

#include <cstdio>
#include <iostream>

#include <unistd.h>

#include <rte_errno.h>

#include "runner_arguments.h"

static const int errno_untouched = 7777;
static char marker; /* what an untouched error record points to */

static uint32_t
crc32(const std::string &text)
{
	static const auto table = [] {
		std::array<uint32_t, 256> entries;
		for (uint32_t n = 0; n < 256; n++) {
			uint32_t value = n;
			for (int bit = 0; bit < 8; bit++) {
				value = (value >> 1) ^ ((value & 1) != 0 ? 0xEDB88320U : 0);
			}
			entries[n] = value;
		}
		return entries;
	}();
	uint32_t value = 0xFFFFFFFFU;
	for (char c : text) {
		value = table[(value ^ static_cast<uint8_t>(c)) & 0xFF] ^ (value >> 8);
	}
	return ~value;
}

static std::string
outcome_text(const struct outcome &out, bool dump)
{
	if (out.skipped) {
		return "{\"skip\":1}";
	}
	std::string text =
		"{\"r\":" + (out.result ? std::to_string(*out.result) : "null") + ",\"er\":";
	const struct rte_mtr_error &error = out.error;
	if (error.type == RTE_MTR_ERROR_TYPE_NONE && error.cause == &marker &&
		error.message == &marker) {
		text += "null";
	} else {
		text += "[" + std::to_string(error.type) + "," +
			(error.cause == nullptr ? "0," : "1,") +
			runner_quoted(error.message != nullptr ? error.message : "(null)") + "]";
	}
	text += ",\"en\":" + (rte_errno == errno_untouched ? "null" : std::to_string(rte_errno));
	std::string state = runner_state();
	char digest[16];
	snprintf(digest, sizeof(digest), "%08x", crc32(state));
	text += ",\"x\":" + out.extra + ",\"ev\":[" + fake.events + "],\"s\":\"" + digest + "\"";
	if (dump) {
		text += ",\"d\":" + runner_quoted(state);
	}
	return text + "}";
}

static std::string
execute(const json &step, bool dump)
{
	runner_begin_step();
	auto planned = step.find("f");
	if (planned != step.end()) {
		for (const json &fault : *planned) {
			fake.faults[{fault[0].get<std::string>(), fault[1].get<int64_t>()}] =
				integer(fault[2]);
		}
	}
	struct outcome out;
	out.error = {RTE_MTR_ERROR_TYPE_NONE, &marker, &marker};
	rte_errno = errno_untouched;
	runner_step function = runner_find_step(step["o"].get<std::string>());
	if (function == nullptr) {
		std::cerr << "no step is called " << step["o"] << "\n";
		_exit(2);
	}
	function(step["a"], out);
	return outcome_text(out, dump);
}

static void
run(const json &scenario)
{
	alarm(10);
	runner_reset();
	for (const json &port : scenario.value("ports", json::array())) {
		fake.ports[port[0].get<int64_t>()] = static_cast<uint16_t>(number(port[1]));
	}
	if (scenario.contains("tx")) {
		fake.tx_default = from_hex<std::array<uint8_t, 28>>(scenario["tx"]);
	}
	bool dump = scenario.value("dump", 0) != 0;
	bool flush = scenario.value("flush", 0) != 0;
	for (const json &step : scenario["steps"]) {
		std::string line = execute(step, dump) + "\n";
		fwrite(line.data(), 1, line.size(), stdout);
		if (flush) {
			fflush(stdout);
		}
	}
	fflush(stdout);
}

int
main()
{
	static char buffer[1 << 20];
	setvbuf(stdout, buffer, _IOFBF, sizeof(buffer));
	std::ios::sync_with_stdio(false);
	printf("{\"hello\":1,\"end\":%d,\"void\":%d,\"queue\":%d,\"drop\":%d,\"dscp4\":%d,\"dscp6\":%d}\n",
		RTE_FLOW_ACTION_TYPE_END, RTE_FLOW_ACTION_TYPE_VOID, RTE_FLOW_ACTION_TYPE_QUEUE,
		RTE_FLOW_ACTION_TYPE_DROP, RTE_FLOW_ACTION_TYPE_SET_IPV4_DSCP,
		RTE_FLOW_ACTION_TYPE_SET_IPV6_DSCP);
	fflush(stdout);
	std::string line;
	while (std::getline(std::cin, line)) {
		run(json::parse(line));
	}
	runner_reset();
	return 0;
}
