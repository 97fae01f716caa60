// SPDX-License-Identifier: MIT
// The kernels of reducing what two pictures share: sums and maxima down the columns of a few rows, and across.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval::mosaic
{

inline constexpr std::size_t kMostCellRows = 32; // whose sums fit
inline constexpr std::size_t kMostFolded = 8;    // columns of them, likewise

// Adds a row of samples to sums[i], and raises most[i] to it where it is larger.
void sum_cell_row(const std::uint8_t* row, std::size_t count, std::uint16_t* sums, std::uint8_t* most);
void sum_cell_row(const std::uint16_t* row, std::size_t count, std::uint32_t* sums, std::uint16_t* most);

// Adds sums[i + distance] to sums[i], as it was before, and raises most[i] to most[i + distance], for all i for which
// there is such a one.
void fold_cell_columns(std::size_t count, std::size_t distance, std::uint16_t* sums, std::uint8_t* most);
void fold_cell_columns(std::size_t count, std::size_t distance, std::uint32_t* sums, std::uint16_t* most);

} // namespace panoval::mosaic
