// SPDX-License-Identifier: MIT
// The sums that a displacement is fitted from, as they are defined.
#pragma once

#include "mosaic/verdict/shift_rows.h"

#include <array>
#include <cstddef>

namespace panoval::reference
{

inline void interpolate_row(const float* upper, const float* lower, float fx, float fy, std::size_t count, float* out)
{
    for (std::size_t i = 0; i < count; ++i) {
        const float u = upper[i] + fx * (upper[i + 1] - upper[i]);
        const float v = lower[i] + fx * (lower[i + 1] - lower[i]);
        out[i] = u + fy * (v - u);
    }
}

inline void add_shift_row(const mosaic::ShiftRow& row, std::array<double, mosaic::kShiftSums>& sums)
{
    std::array<std::array<float, 8>, mosaic::kShiftSums> parts{};
    for (std::size_t i = 0; i < row.count; ++i) {
        const float* const p = row.first + i;
        const float* const q = row.second + i;
        const float w = row.weight[i];
        const float a = w * p[0];
        const float b = w * q[0];
        const float ax = w * (0.5f * (p[1] - *(p - 1)));
        const float ay = w * (0.5f * (p[row.first_stride] - *(p - row.first_stride)));
        const float bx = 0.5f * (q[1] - *(q - 1));
        const float by = 0.5f * (q[row.second_stride] - *(q - row.second_stride));
        const std::array<float, mosaic::kShiftSums> values = {w,
                                                              a,
                                                              b,
                                                              a * a,
                                                              a * b,
                                                              b * b,
                                                              ax,
                                                              ay,
                                                              ax * a,
                                                              ax * b,
                                                              ay * a,
                                                              ay * b,
                                                              ax * ax,
                                                              ax * ay,
                                                              ay * ay,
                                                              ax * bx,
                                                              0.5f * (ax * by + ay * bx),
                                                              ay * by};
        for (std::size_t sum = 0; sum < values.size(); ++sum)
            parts[sum][i % 8] += values[sum];
    }
    for (std::size_t sum = 0; sum < parts.size(); ++sum)
        for (const float part : parts[sum])
            sums[sum] += static_cast<double>(part);
}

} // namespace panoval::reference
