// SPDX-License-Identifier: MIT
// The report of a panorama: one HTML page that stands alone.
#pragma once

#include "cli/stitch/panorama_job.h"

#include <string>

namespace panoval::cli
{

struct ReportData {
    const PanoramaJob& job;
    const PanoramaGains& gains;
    const Json& verdict;  // as the engine gives it, with distributions
    const Image& preview; // of the panorama, 8 bit
};

std::string report_page(const ReportData& data);

} // namespace panoval::cli
