// SPDX-License-Identifier: MIT
// The two passes of the chamfer distance transform on one row. A row of cells has a cell of frame at either end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

namespace panoval
{

inline constexpr std::int32_t kFarAway = 0x1FFFFFFF; // initial distance, and the frame around the mask
inline constexpr float kPixelsPerUnit = 1.0f / 65536.0f;

// Costs of the steps, and the distance that stands for infinity, as cells of type T count them.
template <class T>
struct ChamferSteps {
    T far_away;
    T straight; // horizontal or vertical
    T diagonal;
};

// Lanes of the widest vectors that the scans use.
template <class T>
inline constexpr std::size_t kMostLanes = 32 / sizeof(T);

// Whether the vector scans of a mask stay within T. A pixel is never farther than by the straight way from the nearest
// side of the frame, so the largest value is far_away + straight * smaller_side. To that come one step of either kind,
// and the two vectors of straight steps that the bias of the scans allows for.
template <class T>
bool is_scan_exact(std::int32_t smaller_side, std::int64_t far_away, std::int64_t straight,
                   std::int64_t diagonal) noexcept
{
    if (straight < 0 || diagonal < 0)
        return false;
    const std::int64_t steps = std::int64_t{smaller_side} + 2 * static_cast<std::int64_t>(kMostLanes<T>) + 1;
    return far_away + steps * straight + diagonal <= std::numeric_limits<T>::max();
}

// Cells of 32 bits: distances in units of 1/65536 pixel. Exact says that no sum leaves 32 bits; otherwise sums wrap,
// and the row takes a plain loop.
void forward_row(const std::uint8_t* src, const std::int32_t* above, std::int32_t* row, std::size_t width,
                 const ChamferSteps<std::int32_t>& steps, bool exact) noexcept;
void backward_row(const std::int32_t* below, std::int32_t* row, std::size_t width,
                  const ChamferSteps<std::int32_t>& steps, bool exact, float* distances) noexcept;

// Where both costs are whole pixels, every distance is a multiple n * 65536, or such a multiple above kFarAway, whose
// lower half has all bits set. Keys hold them in 16 bits in the same order: 2n, or 2n + 1 for the latter.
inline constexpr std::int16_t kFarKey = 2 * (kFarAway >> 16) + 1;

void forward_key_row(const std::uint8_t* src, const std::int16_t* above, std::int16_t* row, std::size_t width,
                     const ChamferSteps<std::int16_t>& steps) noexcept;

// cells holds the row's keys and receives its 32-bit cells in their place, frame included; finished receives its final
// keys. below and finished lie outside the row.
void backward_key_row(const std::int16_t* below, std::int32_t* cells, std::int16_t* finished, std::size_t width,
                      const ChamferSteps<std::int16_t>& steps, float* distances) noexcept;

} // namespace panoval
