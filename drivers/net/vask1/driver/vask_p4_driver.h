/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_P4_DRIVER_H
#define VASK_P4_DRIVER_H

/** Name under which the driver registers with its bus, and by which its ports are told from others'. */
#define VASK_P4_DRIVER_NAME "net_vask1"

#endif /* VASK_P4_DRIVER_H */
