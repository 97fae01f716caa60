// SPDX-License-Identifier: MIT
// The lattice of a board among points, by a homography that explains more and more of them, and windows of its places.
#pragma once

#include "measure/grid_growth.h"
#include "measure/homography_fit.h"

#include <cstdint>
#include <vector>

namespace panoval::measure
{

// A target may be off its place by this share of a step, or by less when the others are nearer to theirs.
inline constexpr double kPlaceTolerance = 0.2;
double place_tolerance(std::vector<double> distances);

struct Lattice {
    std::vector<LatticePlace> places; // one point at each place at most
    std::vector<GridPoint> between;   // points that are at no place, in steps
};

// Lines i to i_end - 1 and j to j_end - 1 of a lattice.
struct Window {
    std::int32_t i = 0, i_end = 0;
    std::int32_t j = 0, j_end = 0;

    std::int64_t size() const noexcept { return std::int64_t{i_end - i} * (j_end - j); }
    bool holds(const LatticePlace& p) const noexcept { return p.i >= i && p.i < i_end && p.j >= j && p.j < j_end; }
};

// From a grown lattice: the places around its origin give a homography, which tells the places of the points around
// them, and so on outwards. Empty where there is none.
Lattice fit_lattice(const std::vector<GridPoint>& points, const std::vector<LatticePlace>& grown);

// All places that have a point.
Window bounds_of(const std::vector<LatticePlace>& places) noexcept;

std::int32_t count_in(const Lattice& lattice, const Window& window) noexcept;

// How well a window explains the points: one for each place that has one, minus one for each that has none, minus two
// for each point at a place beside the window or between places inside.
std::int64_t score_of(const Lattice& lattice, const Window& window) noexcept;

// The window that is left when outer lines go as long as the score rises.
Window trimmed_window(const Lattice& lattice);

// The window of so many lines in either direction with the highest score. False when the lattice is smaller: where in
// it the window lies would be open.
bool best_window(const Lattice& lattice, std::int32_t lines_i, std::int32_t lines_j, Window& window);

} // namespace panoval::measure
