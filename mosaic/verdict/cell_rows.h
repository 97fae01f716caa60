// SPDX-License-Identifier: MIT
// The kernel of reducing what two pictures share: sums and maxima down the columns of a few rows.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval::mosaic
{

inline constexpr std::int64_t kMostCellRows = 256; // whose sums fit

// Adds a row of samples to sums[i], and raises most[i] to it where it is larger.
void sum_cell_row(const std::uint8_t* row, std::size_t count, std::uint16_t* sums, std::uint8_t* most);
void sum_cell_row(const std::uint16_t* row, std::size_t count, std::uint32_t* sums, std::uint16_t* most);

} // namespace panoval::mosaic
