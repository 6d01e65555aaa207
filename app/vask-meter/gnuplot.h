/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_GNUPLOT_H
#define VASK_METER_GNUPLOT_H

#include <string>
#include <vector>

/** A plot without its terminal and its output, and the size to draw it in: pixels at 13-pixel letters. */
struct gnuplot_script {
	std::string text;
	unsigned int width, height;
};

/**
 * Runs gnuplot once for all scripts.
 *
 * @return an <svg> element for each script, as wide as what it stands in. What is black takes the colour of
 *   the text around it.
 * @throws vask_meter_error when gnuplot is not installed or refuses a script.
 */
std::vector<std::string> gnuplot_svgs(const std::vector<gnuplot_script> &scripts);

#endif /* VASK_METER_GNUPLOT_H */
