// SPDX-License-Identifier: MIT
// The homography from places of a board to points of a picture, by least squares of the distances in the picture.
#pragma once

#include "measure/grid_growth.h"

#include <array>
#include <vector>

namespace panoval::measure
{

using Homography = std::array<double, 9>; // row after row, [8] is 1

struct PlacedPoint {
    double column = 0;
    double row = 0;
    GridPoint point;
};

// False with fewer than four points, or with points that leave the homography open. One round minimizes algebraic
// distances, those that follow approach the least squares.
inline constexpr int kHomographyRounds = 10;
bool fit_homography(const std::vector<PlacedPoint>& placed, Homography& homography, int rounds = kHomographyRounds);

// False without an inverse. The inverse's third coordinate is positive where the homography's is.
bool invert(const Homography& homography, Homography& inverse) noexcept;

GridPoint map_place(const Homography& homography, double column, double row) noexcept;

} // namespace panoval::measure
