// SPDX-License-Identifier: MIT
// The ratio of brightness between two dark noisy pictures. Noise below black is cut off, so that sums of samples are
// too large, the darker picture's more so; and bright pixels, which tell more than dark ones, count no more in a sum.
// Here the ratio is the one under which the pairs of samples that occur are most likely.
#pragma once

#include "mosaic/gains/gain_rounded.h"

#include <optional>

namespace panoval::mosaic
{

struct NoisyRatio {
    double log_ratio = 0; // of the first picture's brightness to the second's
    double error = 0;     // standard
    double of_sums = 0;   // logarithm of the ratio that sums of the same samples have
};

// log_ratio  where to begin
// Nothing where there are too few samples, too many bright ones, or the model does not explain their sums.
std::optional<NoisyRatio> find_noisy_ratio(const SamplePairs& pairs, double log_ratio);

} // namespace panoval::mosaic
