/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_SAMPLER_H
#define VASK_SAMPLER_H

/**
 * @file
 * Takes the card's samples of what meters let through, once a second, for as long as the card is up.
 * Calls are for the control lock's holder.
 */

/** Without an alarm rates stay 0, which one WARNING line says. */
void vask_sampler_start();

/** When it returns no sample is being taken and none will be. */
void vask_sampler_stop();

#endif /* VASK_SAMPLER_H */
