// SPDX-License-Identifier: MIT
// Whether the pictures hang together, and what of the canvas they leave uncovered.
#pragma once

#include "mosaic/verdict/verdict.h"

#include <cstddef>
#include <vector>

namespace panoval::mosaic
{

// Pictures that share pixels, directly or by way of others.
std::vector<std::vector<std::size_t>> connected_groups(std::size_t pictures,
                                                       const std::vector<OverlapVerdict>& overlaps);

struct Uncovered {
    std::int64_t pixels = 0;
    std::vector<Hole> holes; // uncovered places that do not reach the canvas's edge, the largest first
};

Uncovered find_uncovered(const SeamMap& seams, bool wraps);

} // namespace panoval::mosaic
