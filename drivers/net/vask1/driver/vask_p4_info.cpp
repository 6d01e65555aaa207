/* SPDX-License-Identifier: BSD-3-Clause */
/* The heads of the registry's lists. */

#include "vask_p4_info.h"

struct vask_p4_meter_profile_list_head vask_p4_meter_profile_list =
	TAILQ_HEAD_INITIALIZER(vask_p4_meter_profile_list);
struct vask_p4_meter_policy_list_head vask_p4_meter_policy_list =
	TAILQ_HEAD_INITIALIZER(vask_p4_meter_policy_list);
struct vask_p4_meter_list_head vask_p4_meter_list = TAILQ_HEAD_INITIALIZER(vask_p4_meter_list);
