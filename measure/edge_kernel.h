// SPDX-License-Identifier: MIT
// Rows of gradients and of the pixels where they are the longest across an edge. Gradients are differences of the two
// neighbours here, so twice the slope per pixel.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval::measure
{

// The tangent of 22.5 degrees: a gradient this much flatter along one axis points along the other one.
constexpr float kSlant = 0.41421356f;

// Squared gradients of a row of pixels: dx * dx + dy * dy in single precision, 0 for the first and the last one.
// Returns whether any is above `least`.
bool square_gradients(const std::uint16_t* above, const std::uint16_t* row, const std::uint16_t* below,
                      std::size_t width, float least, float* squares);

// Samples and squared gradients of a row and of those beside it.
struct EdgeRows {
    const std::uint16_t* samples[3]; // above, the row, below
    const float* squares[3];
};

// Sets marks[x] to 1 where the squared gradient is above `least`, not below that of the neighbour downhill, and above
// that of the neighbour uphill, which are the ones of eight nearest to the gradient's direction; else to 0. The first
// and the last pixel have no mark.
void mark_steepest(const EdgeRows& rows, std::size_t width, float least, std::uint8_t* marks);

} // namespace panoval::measure
