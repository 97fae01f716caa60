// SPDX-License-Identifier: MIT
// One radial falloff for all pictures of a camera, from how the ratio of brightness changes within overlaps: each spot
// of an overlap lies at different distances from the two pictures' centres.
#pragma once

#include "mosaic/corrections.h"
#include "mosaic/gain_levels.h"

#include <cstddef>
#include <vector>

namespace panoval::mosaic
{

// A good overlap for the falloff.
struct FalloffPair {
    const BlockLevels* levels; // as they are in the pictures
    const BlockRadii* radii;
};

struct FalloffEstimate {
    Falloff falloff;
    double corner_error = 1; // standard error of the logarithm of the brightness in the corners
    bool is_determined = false;

    double corner() const { return falloff.at(1); }
    // Clearly there, and strong enough to be seen.
    bool is_worthwhile() const;
};

// Flat, and not determined, where the overlaps cannot tell.
FalloffEstimate estimate_falloff(const std::vector<FalloffPair>& pairs, int rounds, std::size_t threads);

} // namespace panoval::mosaic
