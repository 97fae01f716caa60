// SPDX-License-Identifier: MIT
// Positions of samples on a ring: an ellipse walked in equal steps of the polar angle, in whole pixels.
#pragma once

#include <cstdint>

namespace panoval
{

struct RingShape {
    double x, y;         // centre
    double a, b;         // semi-axes
    double cosine, sine; // of the orientation
};

// Batches keep the angles of a long ring off the heap.
inline constexpr std::int32_t kRingBatch = 128;

// Positions of the samples first to first + count - 1 of all that the ring has, in order. Radius, offsets from the
// centre and position truncate, each, to 32-bit integers.
//
// count  1 to kRingBatch
// x, y   kRingBatch values each, out; those beyond count mean nothing
void ring_positions(const RingShape& shape, std::int32_t first, std::int32_t count, std::int32_t all, std::int32_t* x,
                    std::int32_t* y);

} // namespace panoval
