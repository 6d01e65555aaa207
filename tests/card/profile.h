/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef PROFILE_H
#define PROFILE_H

#include <cstdint>

/* A profile's fields as the engine keeps them: rates in 8000 bytes/s, bursts in 1024 bytes, or packets. */
struct Profile {
	uint32_t cir, cbs, eir, ebs;
	bool packet_mode = false;
	bool rfc2698 = false;
};

#endif /* PROFILE_H */
