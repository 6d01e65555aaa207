/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_CONFIG_H
#define VASK_METER_CONFIG_H

/**
 * @file
 * A set-up of meters as CONFIG describes it. doc/vask-meter.md explains the file.
 */

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <netinet/in.h>
#include <rte_meter.h>
#include <rte_mtr.h>

#include "quantity.h"

enum class meter_side { RX, TX, BOTH };

struct profile_config {
	std::string where; /* "FILE:12: [profile 9]", for what is refused later */
	uint32_t id;
	enum rte_mtr_algorithm algorithm;
	bool packet_mode;
	/* bytes/s and bytes, or packets/s and packets; eir and ebs are the peak's with RFC 2698 */
	uint64_t cir, cbs, eir, ebs;
};

struct colour_config {
	enum { PASS, DSCP, DROP } action;
	uint8_t dscp;
};

struct policy_config {
	std::string where; /* "FILE:12: [policy 9]", for what is refused later */
	uint32_t id;
	std::array<colour_config, RTE_COLORS> colours; /* by enum rte_color */
};

struct meter_config {
	std::string where; /* "FILE:12: [meter 9]", for what is refused later */
	uint32_t id;
	uint16_t port;
	meter_side side;
	uint32_t profile, policy;
	bool original_length, colour_aware, enable;
};

struct address_config {
	int family; /* AF_INET or AF_INET6 */
	uint8_t bytes[16];
	unsigned int prefix;
};

struct flow_config {
	std::string where; /* "FILE:12: [flow 9]", for what is refused later */
	uint32_t id;
	uint16_t port;
	bool egress;
	uint32_t meter;
	uint32_t priority;
	std::optional<uint16_t> vlan;
	std::optional<address_config> src, dst;
	std::optional<uint8_t> dscp;
	std::optional<uint8_t> protocol; /* IPPROTO_TCP or IPPROTO_UDP */
	std::optional<uint16_t> sport, dport;

	/** The IP version that the rule asks for; 0: none. */
	int family() const;
};

struct meters_config {
	std::string path;
	bool p4;      /* through the P4 tables, else through rte_mtr */
	bool enforce; /* shapers delay */
	uint16_t ports;
	std::optional<uint16_t> mtu;
	std::vector<profile_config> profiles;
	std::vector<policy_config> policies;
	std::vector<meter_config> meters;
	std::vector<flow_config> flows;

	const profile_config *profile(uint32_t id) const;
	const policy_config *policy(uint32_t id) const;
	const meter_config *meter(uint32_t id) const;
};

/** Reads and checks a CONFIG. @throws vask_meter_error with file, line, key, value and what is accepted. */
meters_config config_read(const std::string &path);

#endif /* VASK_METER_CONFIG_H */
