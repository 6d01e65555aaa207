/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_TELEMETRY_CLIENT_H
#define VASK_METER_TELEMETRY_CLIENT_H

#include <string>

#include <nlohmann/json.hpp>

/** A connection to the telemetry socket of a running DPDK process. */
class telemetry_client
{
      public:
	/**
	 * @param file_prefix  the process's EAL option of that name.
	 * @throws vask_meter_error when nobody listens there.
	 */
	explicit telemetry_client(const std::string &file_prefix);
	~telemetry_client();
	telemetry_client(const telemetry_client &) = delete;
	telemetry_client &operator=(const telemetry_client &) = delete;

	/**
	 * The answer to a command, "/net_vask1/meter,9"; null when the process does not know the command.
	 *
	 * @throws vask_meter_error when the process has gone.
	 */
	nlohmann::json ask(const std::string &command);

	/** @throws vask_meter_error: an answer is not what a DPDK process says. */
	[[noreturn]] void not_telemetry() const;

      private:
	/** The next message, an object. */
	nlohmann::json receive();

	std::string path_;
	int socket_;
	size_t answer_max_ = 16384;
};

#endif /* VASK_METER_TELEMETRY_CLIENT_H */
