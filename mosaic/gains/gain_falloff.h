// SPDX-License-Identifier: MIT
// One radial falloff for all pictures of a camera, from how the ratio of brightness changes within overlaps: each spot
// of an overlap lies at different distances from the two pictures' centres.
#pragma once

#include "mosaic/gains/gain_levels.h"
#include "mosaic/pictures/corrections.h"

#include <cstddef>
#include <vector>

namespace panoval::mosaic
{

// A good overlap for the falloff.
struct FalloffPair {
    const BlockLevels* levels; // as they are in the pictures
    const BlockRadii* radii;
};

// Flat where the overlaps cannot tell.
Falloff estimate_falloff(const std::vector<FalloffPair>& pairs, std::size_t threads);

} // namespace panoval::mosaic
