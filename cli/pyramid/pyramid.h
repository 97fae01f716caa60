// SPDX-License-Identifier: MIT
// panoval pyramid: reduced levels in a store, and stores as picture files.
#pragma once

#include "cli/base/common_options.h"

#include <string>

namespace panoval::cli
{

struct PyramidOptions {
    CommonOptions common;
    std::string input;
    std::string output;      // a picture file; empty: levels go into the store
    std::string compression; // of TIFF; empty: none
    int depth = 0;           // bits per sample of the output; 0: as the input
    int quality = 0;         // of JPEG; 0: the format's own
};

// Does all of it and prints the results.
void make_pyramid(const PyramidOptions& options);

} // namespace panoval::cli
