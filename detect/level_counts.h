// SPDX-License-Identifier: MIT
// How many pixels have each grey level.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval
{

inline constexpr std::int32_t kGreyLevels = 256;

// Counts the pixels of a rectangle: rows of width bytes, each stride bytes after the one before. counts: kGreyLevels
// elements, out.
void count_levels(const std::uint8_t* pixels, std::size_t stride, std::size_t width, std::size_t rows,
                  std::uint32_t* counts);

} // namespace panoval
