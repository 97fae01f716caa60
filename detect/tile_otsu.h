// SPDX-License-Identifier: MIT
// The threshold of one tile of an image.
#pragma once

#include <cstdint>

namespace panoval
{

// Of all grey levels that split a tile's pixels in two classes the one with the largest variance between them, in
// single precision; the lowest of equals. A tile of one grey level alone has threshold 0.
//
// counts       kGreyLevels elements: pixels of each level
// pixel_count  their sum, at least 1
std::int32_t otsu_threshold(const std::uint32_t* counts, std::int32_t pixel_count);

// The same from the pixels: one tile by itself, kept to be compared with its twin. A picture's tiles lie in its rows.
//
// width, height  pixels of the tile, at least 1
// pixels         width x height bytes without gaps
std::int32_t tile_otsu_threshold(std::int32_t width, std::int32_t height, const std::uint8_t* pixels);

} // namespace panoval
