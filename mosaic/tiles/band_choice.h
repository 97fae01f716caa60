// SPDX-License-Identifier: MIT
// How many bands a panorama's overlaps have room for.
#pragma once

#include "mosaic/base/layout.h"

#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

inline constexpr int kMostChosenBands = 7;               // for a host that asks for no number
inline constexpr std::int64_t kStructuresPerOverlap = 8; // of the coarsest band

// About how long the seam is that two pictures have in their overlap, in pixels, by the distance to the pictures'
// edges: 0 where other pictures lie over all of it, so that the two never meet.
std::int64_t seam_length(const Layout& layout, const std::vector<Placement>& placements, const Overlap& overlap);

// The most bands for which kStructuresPerOverlap structures of the coarsest one fit the overlaps that carry nine tenths
// of the seams' length. 1 where nothing overlaps.
int choose_bands(const Layout& layout, const std::vector<Overlap>& overlaps, int most = kMostChosenBands);

} // namespace panoval::mosaic
