/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_REPORT_HTML_H
#define VASK_METER_REPORT_HTML_H

/**
 * @file
 * A replay's result as one page that needs nothing else: tables, and charts drawn by gnuplot.
 */

#include <string>

#include "config.h"
#include "replay.h"

/**
 * The page. The result must hold samples.
 *
 * @param capture  the name that the page gives the capture.
 * @throws vask_meter_error when gnuplot is not there or fails.
 */
std::string
result_html(const meters_config &config, const replay_result &result, const std::string &capture);

#endif /* VASK_METER_REPORT_HTML_H */
