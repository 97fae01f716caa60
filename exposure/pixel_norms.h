// SPDX-License-Identifier: MIT
// Euclidean norms of the pixels of a row, for the brightness statistics of overlapping images.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval
{

// norms[i] = the root of the sum of the squares of pixel i's samples, or 0 where covered[i] is 0.
// The root is taken in double precision; the sum before it is exact.
void pixel_norms(const std::uint8_t* pixels, std::size_t channels, const std::uint8_t* covered, std::size_t count,
                 double* norms);

// The same for 16-bit samples. Each square is a signed 32-bit product that wraps above 46340, so that a sum may be
// negative and its root not a number. Hosts rely on it.
void pixel_norms(const std::uint16_t* pixels, std::size_t channels, const std::uint8_t* covered, std::size_t count,
                 double* norms);

} // namespace panoval
