// SPDX-License-Identifier: MIT
// Where the blocks lie that vote on a displacement: spread over the overlap, each at the place of most texture.
#pragma once

#include "mosaic/base/rect.h"
#include "mosaic/verdict/overlap_cells.h"

#include <cstddef>
#include <vector>

namespace panoval::mosaic
{

// In the frame of the overlap's region: every other sector's first, as on a chess board, and how many those are.
struct Blocks {
    std::vector<Rect> rects;
    std::size_t first_half = 0;
};

Blocks choose_blocks(const OverlapCells& cells);

} // namespace panoval::mosaic
