// SPDX-License-Identifier: MIT
// The kernel of reducing a picture: sums down the columns of a few rows.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval::mosaic
{

// Rows whose sums fit 16 bits: a row adds at most twice the largest 8-bit sample to each of them.
inline constexpr std::int64_t kMostRowsToSum = 128;

// Adds a row of 8-bit samples to sums[i], and to rough[i] the absolute differences from the sample `step` further on
// and from the one below, which is left out where there is no row below (null). The last `step` samples have none
// further on.
void sum_row(const std::uint8_t* row, const std::uint8_t* below, std::size_t count, std::size_t step,
             std::uint16_t* sums, std::uint16_t* rough);

} // namespace panoval::mosaic
