// SPDX-License-Identifier: MIT
// Rows of the smoothed pictures that detection looks at. Sums of integers, so any order gives the same.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval::measure
{

// 1 2 1 along a row, its outermost samples repeated. width is at least 1.
void smooth_along(const std::uint16_t* row, std::size_t width, std::uint32_t* sums);

// 1 2 1 down three rows of such sums, a sixteenth of it, rounded half up.
void smooth_down(const std::uint32_t* above, const std::uint32_t* here, const std::uint32_t* below, std::size_t width,
                 std::uint16_t* row);

// Means of 2 x 2 samples of two rows, rounded half up; width is that of the result.
void halve_rows(const std::uint16_t* above, const std::uint16_t* below, std::size_t width, std::uint16_t* row);

} // namespace panoval::measure
