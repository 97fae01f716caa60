// SPDX-License-Identifier: MIT
// Row kernels of the composite: where it differs from a picture, how levels collapse, and what leaves
// it.
#pragma once

#include "blend/band_rows.h"

#include <cstddef>
#include <cstdint>

namespace panoval::mosaic
{

// samples[i] -= composite[i].
void subtract_row(float* samples, const float* composite, std::size_t count);

// sums[i] += the expanded coarser level; the order of its sums is that of the library's pyramids. Nothing for a coarse
// row of kind None.
void add_expanded_row(float* sums, const CoarseRows& coarse, std::size_t count);

// out[i] = floor((composite[i] + correction[i]) * scale + 0.5), clamped to the sample's range; in single precision.
// correction may be null. sample_bytes: 1 or 2.
void finish_row(const float* composite, const float* correction, float scale, std::size_t count, void* out,
                std::size_t sample_bytes);

} // namespace panoval::mosaic
