/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_TUNE_HTML_H
#define VASK_METER_TUNE_HTML_H

#include <string>

#include "tune.h"

/**
 * A sweep's result as one page that needs nothing else.
 *
 * @param algorithm, loss  as they were given.
 * @throws vask_meter_error when gnuplot is not there or fails.
 */
std::string tune_html(const tune_options &options, const std::string &algorithm,
	const std::string &loss, const tune_result &result);

#endif /* VASK_METER_TUNE_HTML_H */
