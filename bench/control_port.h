/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef BENCH_CONTROL_PORT_H
#define BENCH_CONTROL_PORT_H

/**
 * @file
 * Port 0, which the control operations are timed on. null_seam.cpp makes it of the module alone over lower layers
 * that do nothing, vask1_port.cpp is a net_vask1 port.
 */

/** Brings port 0 into being, once. */
void control_port_init();

/** With bare, the port's rte_mtr slots return at once instead of entering the driver; without, they are as they were. */
void control_port_attach(bool bare);

/** Starts the module, every table empty. 0, or what it returns. */
int control_port_start();

/** Stops it. Nothing is listed any more. */
void control_port_stop();

#endif /* BENCH_CONTROL_PORT_H */
