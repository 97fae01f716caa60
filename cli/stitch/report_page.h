// SPDX-License-Identifier: MIT
// The report of a panorama: one HTML page that stands alone.
#pragma once

#include "cli/stitch/overlap_quality.h"

#include <string>
#include <vector>

namespace panoval::cli
{

struct ReportData {
    const PanoramaPlan& plan;
    const std::vector<double>& gains;
    const std::vector<OverlapQuality>& overlaps;
    const Image& panorama;
    std::string output;
    std::string blend; // in words
};

std::string report_page(const ReportData& data);

} // namespace panoval::cli
