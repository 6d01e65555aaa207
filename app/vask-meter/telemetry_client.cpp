/* SPDX-License-Identifier: BSD-3-Clause */
#include "telemetry_client.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "error.h"

namespace
{
constexpr int ANSWER_SECONDS = 5;

/* Where EAL keeps a process's files, by the rules that its own tools follow. */
std::string
socket_path(const std::string &file_prefix)
{
	const char *folder = std::getenv("RUNTIME_DIRECTORY");
	if (folder == nullptr)
		folder = getuid() == 0 ? "/var/run" : std::getenv("XDG_RUNTIME_DIR");
	return fmt::format("{}/dpdk/{}/dpdk_telemetry.v2", folder ? folder : "/tmp", file_prefix);
}
} // namespace

telemetry_client::telemetry_client(const std::string &file_prefix)
	: path_(socket_path(file_prefix)), socket_(socket(AF_UNIX, SOCK_SEQPACKET, 0))
{
	struct sockaddr_un address = {};

	address.sun_family = AF_UNIX;
	if (path_.size() >= sizeof(address.sun_path))
		refuse("--file-prefix \"{}\": {} is too long for a socket; accepted are shorter ones",
			file_prefix, path_);
	std::memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
	if (socket_ < 0 ||
		connect(socket_, reinterpret_cast<struct sockaddr *>(&address), sizeof(address)) !=
			0) {
		const int why = errno;
		close(socket_);
		fail("{}: {}; accepted is the --file-prefix of a running DPDK process with telemetry",
			path_, std::strerror(why));
	}
	const struct timeval patience = {ANSWER_SECONDS, 0};
	setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
	/* the process says hello, and how long its answers may be */
	const nlohmann::json hello = receive();
	if (!hello.contains("max_output_len") || !hello["max_output_len"].is_number_unsigned())
		not_telemetry();
	answer_max_ = hello["max_output_len"];
}

telemetry_client::~telemetry_client()
{
	close(socket_);
}

nlohmann::json
telemetry_client::ask(const std::string &command)
{
	if (send(socket_, command.data(), command.size(), MSG_NOSIGNAL) < 0)
		fail("{}: the process has gone: {}", path_, std::strerror(errno));
	const nlohmann::json answer = receive();
	return answer.empty() ? nlohmann::json() : answer.begin().value();
}

void
telemetry_client::not_telemetry() const
{
	fail("{}: what listens there does not speak DPDK's telemetry", path_);
}

nlohmann::json
telemetry_client::receive()
{
	std::string text(answer_max_, '\0');
	const ssize_t n = recv(socket_, text.data(), text.size(), 0);
	if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
		fail("{}: the process does not answer within {} s", path_, ANSWER_SECONDS);
	if (n <= 0)
		fail("{}: the process has gone", path_);
	text.resize(static_cast<size_t>(n));
	nlohmann::json answer = nlohmann::json::parse(text, nullptr, false);
	if (!answer.is_object())
		not_telemetry();
	return answer;
}
