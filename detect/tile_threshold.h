// SPDX-License-Identifier: MIT
// A threshold for every pixel, interpolated between the thresholds of tiles.
#pragma once

#include <cstdint>

namespace panoval
{

// Marks dark pixels: those at or below the threshold that is interpolated between the tiles' centres.
//
// width, height  pixels; nothing is written when either is below 1
// image          width x height bytes
// map            width x height, out: 1 = dark, 0 = not
// divisions      tiles across each dimension; outside 1 to the smaller side there are no tiles and the map becomes 0
//
// False when the heap is exhausted, with map untouched.
//
// A map of words is the operation in its plain form, which its tests compare with the twin; the target finder takes
// bytes.
[[nodiscard]] bool adaptive_tile_threshold(std::int32_t width, std::int32_t height, const std::uint8_t* image,
                                           std::uint32_t* map, std::int32_t divisions);

// The same with a map of bytes, which may be the image itself.
[[nodiscard]] bool adaptive_tile_threshold(std::int32_t width, std::int32_t height, const std::uint8_t* image,
                                           std::uint8_t* map, std::int32_t divisions);

} // namespace panoval
