// SPDX-License-Identifier: MIT
// The ratio of brightness between two pictures, from the blocks of their overlap; robust against blocks that show
// something else, against shifts of some pixels, and without bias however dark the scene is.
#pragma once

#include "mosaic/gains/gain_levels.h"

#include <array>
#include <cstddef>
#include <vector>

namespace panoval::mosaic
{

struct RatioEstimate {
    enum class Kind {
        Known,
        Nothing,     // no sample counts, or both are black
        FirstBlack,  // no light in one of them, but in the other
        SecondBlack, //
    };
    Kind kind = Kind::Nothing;
    double log_ratio = 0;          // of the first picture's brightness to the second's, in the middle of what counts
    double error = 0;              // of log_ratio, standard
    double spread = 0;             // of single blocks about the model, robust standard deviation
    std::vector<double> ratios;    // of each block: its logarithmic ratio less log_ratio and less what a shift does
    std::vector<double> residuals; // of each block: what the whole model leaves
    std::vector<double> weights;   // of each block: samples times level times robust weight
    std::vector<char> is_apart;    // of each block: it shows something else
};

RatioEstimate estimate_ratio(const BlockLevels& levels);

// The value that splits the total weight in halves; 0 where there is none. Reorders its argument.
struct Weighted {
    double value;
    double weight;
};
double weighted_median(std::vector<Weighted>& values);

} // namespace panoval::mosaic
