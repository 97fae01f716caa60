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

// False with fewer than four points, or with points that leave the homography open.
bool fit_homography(const std::vector<PlacedPoint>& placed, Homography& homography);

GridPoint map_place(const Homography& homography, double column, double row) noexcept;

} // namespace panoval::measure
