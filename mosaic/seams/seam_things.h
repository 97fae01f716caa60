// SPDX-License-Identifier: MIT
// Things that stand at one place in the first picture of an overlap and at another place in the second one. Whoever
// gets one of two such places of the overlap should get the other one, too, so that the thing is there once.
#pragma once

#include "mosaic/seams/seam_cost.h"
#include "mosaic/seams/seam_swap.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

struct ThingCell {
    std::int64_t x; // columns may lie beyond the grid's last one
    std::int64_t y;
};

struct ThingSample {
    ThingCell at;
    std::size_t large; // the large cell that it is a part of, counted in the rectangle that was searched
};

// Connected cells in which the two pictures differ much.
struct ThingPlace {
    std::size_t center = 0; // its dearest large cell, counted as in its samples
    std::int32_t cost = 0;  // of that
    Rect box;               // of the samples
    std::vector<ThingSample> samples;
    std::size_t size = 0; // how many they were at first
    float difference = 0; // mean ratio of the samples
};

inline constexpr float kAlike = 0.25f; // of the difference of the pictures at a place, what else shows the same

// cells: a rectangle of cells of `coarse`, each of factor x factor of the costs' cells; cell_costs: their costs. The
// largest ones, in descending order.
std::vector<ThingPlace> find_thing_places(const CellCosts& costs, const PicturePair& pair, const CellGrid& coarse,
                                          std::int64_t factor, const Rect& cells,
                                          const std::vector<std::int32_t>& cell_costs);

// The places of a pair that show the same thing.
std::vector<SwapTie> tie_moved_things(const CellCosts& costs, const PicturePair& pair,
                                      const std::vector<ThingPlace>& places);

} // namespace panoval::mosaic
