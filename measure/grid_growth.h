// SPDX-License-Identifier: MIT
// The lattice among points: neighbours of neighbours, from a seed outwards.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::measure
{

struct GridPoint {
    double x = 0;
    double y = 0;
};

// A point's place in the lattice.
struct LatticePlace {
    std::int32_t point = 0; // index
    std::int32_t i = 0;     // steps along the first direction
    std::int32_t j = 0;     // and along the second
};

// The nearest others of every point, nearest first; fewer than kNeighbours when there are fewer points.
inline constexpr std::size_t kNeighbours = 8;
std::vector<std::vector<std::int32_t>> find_neighbours(const std::vector<GridPoint>& points);

// Grows a lattice whose steps at the seed are those to the points `first` and `second`. A step changes slowly from
// place to place, as it does under perspective. Every point is at one place at most, and every place has one point at
// most.
std::vector<LatticePlace> grow_lattice(const std::vector<GridPoint>& points,
                                       const std::vector<std::vector<std::int32_t>>& neighbours, std::int32_t seed,
                                       std::int32_t first, std::int32_t second);

} // namespace panoval::measure
