/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_GNUPLOT_H
#define VASK_METER_GNUPLOT_H

#include <string>
#include <vector>

/**
 * Runs gnuplot once for all scripts; each is a plot without its terminal and its output.
 *
 * @return an <svg> element for each script, as wide as what it stands in.
 * @throws vask_meter_error when gnuplot is not installed or refuses a script.
 */
std::vector<std::string> gnuplot_svgs(const std::vector<std::string> &scripts);

#endif /* VASK_METER_GNUPLOT_H */
