/* SPDX-License-Identifier: BSD-3-Clause */
#include "interrupt.h"

#include "error.h"

static volatile std::sig_atomic_t came;

interrupt_guard::interrupt_guard()
{
	struct sigaction action = {};

	action.sa_handler = [](int) {
		came = 1;
	};
	for (size_t i = 0; i < SIGNALS.size(); i++)
		sigaction(SIGNALS[i], &action, &before_[i]);
}

interrupt_guard::~interrupt_guard()
{
	for (size_t i = 0; i < SIGNALS.size(); i++)
		sigaction(SIGNALS[i], &before_[i], nullptr);
}

bool
interrupted()
{
	return came != 0;
}

void
stop_if_interrupted()
{
	if (interrupted())
		fail("interrupted");
}
