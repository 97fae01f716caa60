// SPDX-License-Identifier: MIT
// Sub-pixel positions of edges: the ridge of the gradient magnitude near each of many pixels.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval
{

// Gradient magnitudes of up to kCount pixels and their eight neighbours.
struct MagnitudePatches {
    static constexpr std::size_t kCount = 32;
    float at[3][3][kCount]; // [row][column] around each pixel; [1][1] is the pixel itself
};

// Fills the patches of `count` interior pixels whose neighbours are interior, too. Magnitudes are the truncated roots
// of the squared differences of the opposite neighbours.
//
// image   rows of width bytes
// pixels  y * width + x, at least two pixels inside the image
// count   at most kCount
void measure_patches(const std::uint8_t* image, std::int32_t width, const std::int32_t* pixels, std::size_t count,
                     MagnitudePatches& patches);

// Moves each pixel onto its ridge, by at most half a pixel in each direction; leaves it where there is none so near.
//
// pixels  y * width + x, one for each of the patches
// count   at most kCount
// xy      out: the places in pixels, as pairs
void refine_edge_points(const MagnitudePatches& patches, std::int32_t width, const std::int32_t* pixels,
                        std::size_t count, double* xy);

} // namespace panoval
