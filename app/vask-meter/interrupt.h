/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_INTERRUPT_H
#define VASK_METER_INTERRUPT_H

#include <array>
#include <csignal>

/**
 * While it lives, SIGINT, SIGTERM and SIGHUP do not end the process but are noted, so that a command ends as
 * any other failure does and nothing half-written stays. One at a time.
 */
class interrupt_guard
{
      public:
	interrupt_guard();
	~interrupt_guard();
	interrupt_guard(const interrupt_guard &) = delete;
	interrupt_guard &operator=(const interrupt_guard &) = delete;

      private:
	static constexpr std::array SIGNALS = {SIGINT, SIGTERM, SIGHUP};
	std::array<struct sigaction, SIGNALS.size()> before_ = {};
};

bool interrupted();

/** @throws vask_meter_error when a signal came. */
void stop_if_interrupted();

#endif /* VASK_METER_INTERRUPT_H */
