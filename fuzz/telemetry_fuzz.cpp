/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Requests of any parameters to the telemetry commands, over the socket, of a card with two ports, meters and
 * faults. Each answer is one JSON object and what was asked changes nothing but the faults.
 */
#include <cerrno>
#include <cstring>
#include <string>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <rte_eal.h>

#include "check.h"
#include "eal.h"
#include "objects.h"
#include "softcard_fault.h"

namespace
{

using Json = nlohmann::json;

constexpr unsigned REQUESTS_MAX = 8;
constexpr size_t REQUEST_BYTES = 900;
constexpr const char *COMMANDS[] = {"/net_vask1/ports", "/net_vask1/meters", "/net_vask1/meter",
	"/net_vask1/profiles", "/net_vask1/policies", "/net_vask1/shapers", "/net_vask1/pools",
	"/net_vask1/faults"};

int connection = -1;
std::string pools;

Json
Ask(const std::string &command, const std::string &parameters)
{
	static std::string answer(1 << 17, '\0');
	const std::string request = parameters.empty() ? command : command + "," + parameters;

	FUZZ_CHECK(send(connection, request.data(), request.size(), 0) ==
		static_cast<ssize_t>(request.size()));
	ssize_t n;
	do /* the fuzzer's alarm clock interrupts */
		n = recv(connection, answer.data(), answer.size(), 0);
	while (n < 0 && errno == EINTR);
	FUZZ_CHECK(n > 0);
	const Json json = Json::parse(answer.begin(), answer.begin() + n, nullptr, false);
	FUZZ_CHECK(!json.is_discarded());
	FUZZ_CHECK(json.is_object() && json.size() == 1 && json.contains(command));
	return json[command];
}

void
Connect()
{
	struct sockaddr_un address = {};

	address.sun_family = AF_UNIX;
	snprintf(address.sun_path, sizeof(address.sun_path), "%s/dpdk_telemetry.v2",
		rte_eal_get_runtime_dir());
	connection = socket(AF_UNIX, SOCK_SEQPACKET, 0);
	FUZZ_CHECK(connection >= 0);
	FUZZ_CHECK(connect(connection, reinterpret_cast<struct sockaddr *>(&address),
			   sizeof(address)) == 0);

	char greeting[1024];
	FUZZ_CHECK(recv(connection, greeting, sizeof(greeting), 0) > 0);
}

} // namespace

extern "C" int
LLVMFuzzerInitialize(int *, char ***)
{
	static FuzzWire wires[2];
	static const uint8_t profile[] = {2, 0, 4, 1, 2, 3, 4, 3, 1, 2, 3, 2, 1, 1, 2, 1, 1};
	Input in(profile, sizeof(profile));

	fuzz_eal_init();
	const uint16_t port = fuzz_port_probe(0, "", &wires[0]);
	fuzz_port_probe(1, ",clock=capture,shapers=enforce", &wires[1]);
	FUZZ_CHECK(fuzz_profile_add(in, port, 1));
	fuzz_policy_add(in, port, 1, false);
	for (uint32_t id = 1; id < 20; id++)
		FUZZ_CHECK(fuzz_meter_create(port, id, id % 2 ? FUZZ_RX : FUZZ_TX, id % 3 == 0));
	Connect();
	pools = Ask("/net_vask1/pools", "").dump();
	return 0;
}

extern "C" int
LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	Input in(data, size);

	for (unsigned n = 0; n < REQUESTS_MAX && !in.empty(); n++) {
		const char *command = COMMANDS[in.Below(std::size(COMMANDS))];
		std::string parameters;

		for (char c; !in.empty() && (c = static_cast<char>(in.Byte())) != '\n';)
			parameters += c;
		parameters.resize(std::min(parameters.size(), REQUEST_BYTES));

		const Json answer = Ask(command, parameters);
		FUZZ_CHECK(answer.is_object());
		FUZZ_CHECK(!answer.contains("error") || answer["error"].is_string());
		if (answer.contains("ids") && !answer.contains("error")) {
			FUZZ_CHECK(answer["ids"].size() == answer["count"].get<size_t>());
			FUZZ_CHECK(answer["count"].get<size_t>() <= answer["total"].get<size_t>());
		}
	}
	FUZZ_CHECK(Ask("/net_vask1/faults", "").size() == softcard_fault_list(nullptr, 0));
	FUZZ_CHECK(Ask("/net_vask1/pools", "").dump() == pools);
	FUZZ_CHECK(Ask("/net_vask1/faults", "clear").empty());
	return 0;
}
