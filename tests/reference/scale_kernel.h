// SPDX-License-Identifier: MIT
// Rows of smoothed pictures, one sample at a time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval::reference
{

inline void smooth_along(const std::uint16_t* row, std::size_t width, std::uint32_t* sums)
{
    for (std::size_t x = 0; x < width; ++x) {
        const std::uint32_t before = row[x > 0 ? x - 1 : 0];
        const std::uint32_t after = row[x + 1 < width ? x + 1 : x];
        sums[x] = before + 2u * row[x] + after;
    }
}

inline void smooth_down(const std::uint32_t* above, const std::uint32_t* here, const std::uint32_t* below,
                        std::size_t width, std::uint16_t* row)
{
    for (std::size_t x = 0; x < width; ++x)
        row[x] = static_cast<std::uint16_t>((above[x] + 2 * here[x] + below[x] + 8) / 16);
}

inline void halve_rows(const std::uint16_t* above, const std::uint16_t* below, std::size_t width, std::uint16_t* row)
{
    for (std::size_t x = 0; x < width; ++x) {
        const std::uint32_t sum = std::uint32_t{above[2 * x]} + above[2 * x + 1] + below[2 * x] + below[2 * x + 1];
        row[x] = static_cast<std::uint16_t>((sum + 2) / 4);
    }
}

} // namespace panoval::reference
