// SPDX-License-Identifier: MIT
// Places where two overlapping pictures show different things.
#pragma once

#include "mosaic/verdict/overlap_cells.h"
#include "mosaic/verdict/verdict.h"
#include "mosaic/verdict/verdict_tone.h"

#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

// The worst first. Differences of brightness that change slowly, or with the level, are none; neither are edges that
// lie a few pixels beside each other.
//
// displacement  of the second picture, in pixels, which is taken out first
std::vector<Ghost> find_ghosts(const OverlapCells& cells, const ToneModel& tone,
                               const std::vector<std::uint8_t>& owners, const Displacement& displacement,
                               const Layout& layout);

} // namespace panoval::mosaic
