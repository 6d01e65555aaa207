/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_FLOW_RULE_H
#define VASK_METER_FLOW_RULE_H

/**
 * @file
 * A flow rule of a configuration, as rte_flow and as testpmd's command line know it.
 */

#include <string>

#include "config.h"

/** Creates the rule. @throws vask_meter_error with the port's own message. */
void create_flow_rule(const flow_config &rule, uint16_t ethdev);

/** testpmd's command for the same rule. */
std::string flow_rule_command(const flow_config &rule);

#endif /* VASK_METER_FLOW_RULE_H */
