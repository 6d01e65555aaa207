/* SPDX-License-Identifier: BSD-3-Clause */
/* The driver's log type. */

#include "vask_p4_log.h"

RTE_LOG_REGISTER_DEFAULT(vask_p4_logtype, NOTICE);
