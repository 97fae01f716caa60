// SPDX-License-Identifier: MIT
// The threshold of one tile of an image, from the counts of its grey levels.
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

} // namespace panoval
