// SPDX-License-Identifier: MIT
// Whether the pictures hang together, and what of the canvas they leave uncovered.
#pragma once

#include "mosaic/pictures/pixel_block.h"
#include "mosaic/verdict/verdict.h"

#include <cstddef>
#include <vector>

namespace panoval::mosaic
{

// Of each picture, whether a pixel of the canvas is its own or shared by it. Without a seam map (height 0) its mask
// tells.
std::vector<bool> pictures_that_cover(const Layout& layout, PictureReader& reader, const SeamMap& seams,
                                      const std::vector<OverlapVerdict>& overlaps);

// Pictures that share pixels, directly or by way of others. One that covers nothing is in none.
std::vector<std::vector<std::size_t>> connected_groups(const std::vector<bool>& covers,
                                                       const std::vector<OverlapVerdict>& overlaps);

struct Uncovered {
    std::int64_t pixels = 0;
    std::vector<Hole> holes; // uncovered places that do not reach the canvas's edge, the largest first
};

Uncovered find_uncovered(const SeamMap& seams, bool wraps);

} // namespace panoval::mosaic
