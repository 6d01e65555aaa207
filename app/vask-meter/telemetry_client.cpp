/* SPDX-License-Identifier: BSD-3-Clause */
#include "telemetry_client.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "error.h"

namespace
{
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
		refuse("--file-prefix \"{}\": {} is too long for a socket", file_prefix, path_);
	std::memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
	if (socket_ < 0 ||
		connect(socket_, reinterpret_cast<struct sockaddr *>(&address), sizeof(address)) !=
			0) {
		const int why = errno;
		close(socket_);
		fail("{}: {}; accepted is the --file-prefix of a running DPDK process with telemetry",
			path_, std::strerror(why));
	}
	/* the process says hello, and how long its answers may be */
	answer_max_ = nlohmann::json::parse(receive()).value("max_output_len", answer_max_);
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
	const nlohmann::json answer = nlohmann::json::parse(receive());
	return answer.empty() ? nlohmann::json() : answer.begin().value();
}

std::string
telemetry_client::receive()
{
	std::string text(answer_max_, '\0');
	const ssize_t n = recv(socket_, text.data(), text.size(), 0);
	if (n <= 0)
		fail("{}: the process has gone", path_);
	text.resize(static_cast<size_t>(n));
	return text;
}
