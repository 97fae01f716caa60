// SPDX-License-Identifier: MIT
// Sub-pixel position of an edge: the ridge of the gradient magnitude near one pixel.
#pragma once

#include <cstdint>

namespace panoval
{

// Gradient magnitudes of a pixel and its eight neighbours.
struct MagnitudePatch {
    double at[3][3]; // [row][column]; [1][1] is the pixel itself
};

// A place in pixels.
struct EdgePoint {
    double x;
    double y;
};

// Fills the patch around an interior pixel whose neighbours are interior, too. Magnitudes are the truncated roots of
// the squared differences of the opposite neighbours.
//
// image  rows of width bytes
// pixel  y * width + x, at least two pixels inside the image
MagnitudePatch magnitude_patch(const std::uint8_t* image, std::int32_t width, std::int32_t pixel);

// Moves the pixel (x, y) onto the ridge, by at most half a pixel in each direction; leaves it where there is none so
// near.
EdgePoint refine_edge_point(const MagnitudePatch& magnitude, std::int32_t x, std::int32_t y);

} // namespace panoval
