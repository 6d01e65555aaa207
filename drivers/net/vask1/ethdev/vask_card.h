/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_CARD_H
#define VASK_CARD_H

/**
 * @file
 * The card's life: up with the first port, down with the last. Calls are for the control lock's holder.
 */

struct vask_port;

/**
 * Makes a port one of the card's: card and module start with the first one, and the faults and the trace
 * that the port's arguments ask for are set, the former in time to hit the module's start.
 *
 * @return 0 and the port is listed in vask_ports; a negative errno after an ERR line, and nothing is left.
 */
int vask_card_join(struct vask_port *port);

/**
 * Takes a port off the card: faults are lifted, the port's meters destroyed and its entries cleared. With the last port the
 * profiles and policies that are left go too, the default policy included, and module and card stop.
 */
void vask_card_leave(struct vask_port *port);

/** Destroys the meters of a port. One that the card refuses to delete is freed after a WARNING line. */
void vask_card_destroy_meters(struct vask_port *port);

#endif /* VASK_CARD_H */
