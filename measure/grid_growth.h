// SPDX-License-Identifier: MIT
// The lattice among points: neighbours of neighbours, from a seed outwards.
#pragma once

#include "measure/vicinity.h"

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

// Of neighbours in a grid that would fill the box around the points; above 0.
double spacing_of(const std::vector<GridPoint>& points) noexcept;

// Of disks about the points, by their indices.
//
// spacing  their radius, which makes no difference but how fast they are found: best about that of neighbours
Vicinity vicinity_of(const std::vector<GridPoint>& points, double spacing);

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
