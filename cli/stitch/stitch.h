// SPDX-License-Identifier: MIT
// panoval stitch: from placed pictures to a panorama file.
#pragma once

#include "cli/base/common_options.h"

#include <string>
#include <vector>

namespace panoval::cli
{

struct StitchOptions {
    CommonOptions common;
    std::string output;
    std::vector<std::string> inputs; // as given: FILE@X,Y ...
    std::string layout;              // a file, or empty
    std::string blend = "multiband"; // or "feather"
    int bands = 0;                   // at most; 0: chosen from the overlaps
    bool has_no_gain = false;
    std::string gains;  // a file to load the gains from or, where it does not exist, to save them to; or empty
    std::string report; // an HTML file to write, or empty
    int depth = 0;      // bits per sample of the panorama; 0: as the inputs
    bool wants_alpha = false;
};

// Does all of it and prints the results.
void stitch(const StitchOptions& options);

} // namespace panoval::cli
