// SPDX-License-Identifier: MIT
// The sums down the columns of rows, as they are defined.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace panoval::reference
{

inline void sum_row(const std::uint8_t* row, const std::uint8_t* below, std::size_t count, std::size_t step,
                    std::uint16_t* sums, std::uint16_t* rough)
{
    for (std::size_t i = 0; i < count; ++i) {
        sums[i] = static_cast<std::uint16_t>(sums[i] + row[i]);
        if (i + step < count)
            rough[i] = static_cast<std::uint16_t>(rough[i] + std::abs(row[i] - row[i + step]));
        if (below != nullptr)
            rough[i] = static_cast<std::uint16_t>(rough[i] + std::abs(row[i] - below[i]));
    }
}

} // namespace panoval::reference
