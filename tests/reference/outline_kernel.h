// SPDX-License-Identifier: MIT
// The inner loops of the coverage model and of the normal equations, one pixel and one unknown at a time.
#pragma once

#include "measure/outline_kernel.h"
#include "tests/reference/normal_at.h"

#include <cstddef>
#include <cstdint>

namespace panoval::reference
{

inline void respond(const float* places, std::size_t count, double blur, double scale, std::size_t window,
                    std::size_t padded, float* out)
{
    const auto blur_f = static_cast<float>(blur);
    const auto scale_f = static_cast<float>(scale);
    for (std::size_t n = 0; n < count; ++n) {
        float* const response = out + 3 * padded * n;
        float* const integral = response + padded;
        float* const slope = integral + padded;
        for (std::size_t i = 0; i < padded; ++i) {
            response[i] = integral[i] = slope[i] = 0;
            if (i >= window)
                continue;
            const float before = (places[n] - static_cast<float>(i)) * scale_f;
            const float after = (places[n] - static_cast<float>(i + 1)) * scale_f;
            const NormalValueF from = normal_at(before);
            const NormalValueF to = normal_at(after);
            response[i] = from.cumulative - to.cumulative;
            integral[i] = ((before * from.cumulative + from.density) - (after * to.cumulative + to.density)) * blur_f;
            slope[i] = (from.density - to.density) * scale_f;
        }
    }
}

inline void add_levels(const measure::Level* levels, std::size_t count, std::int32_t y, std::size_t padded,
                       const float* by_row, const float* by_column, float* planes, std::size_t stride)
{
    for (std::size_t n = 0; n < count; ++n)
        for (std::size_t side = 0; side < 2; ++side) {
            const measure::Level& level = levels[n];
            const auto down = static_cast<std::size_t>(y - level.row);
            const float response = by_row[3 * padded * n + down];
            const float slope = by_row[3 * padded * n + 2 * padded + down];
            const float* const columns = by_column + 3 * padded * (2 * n + side);
            const float covered = side == 0 ? response * level.height : -(response * level.height);
            const auto first = static_cast<std::size_t>(level.column[side]);
            for (std::size_t i = 0; i < padded; ++i) {
                for (std::size_t element = 0; element < 5; ++element)
                    planes[element * stride + first + i] += response * level.by[side][element] * columns[i];
                planes[5 * stride + first + i] += 0.5f * response * level.normal[side][0] * columns[2 * padded + i] +
                                                  0.5f * slope * level.normal[side][1] * columns[i];
                planes[6 * stride + first + i] += covered * columns[padded + i];
            }
            planes[7 * stride + first] += covered;
        }
}

inline void add_coverage(const measure::Level* levels, std::size_t count, std::int32_t y, std::size_t padded,
                         const float* by_row, const float* by_column, float* planes, std::size_t stride)
{
    for (std::size_t n = 0; n < count; ++n)
        for (std::size_t side = 0; side < 2; ++side) {
            const measure::Level& level = levels[n];
            const float response = by_row[3 * padded * n + static_cast<std::size_t>(y - level.row)];
            const float* const columns = by_column + 3 * padded * (2 * n + side);
            const float covered = side == 0 ? response * level.height : -(response * level.height);
            const auto first = static_cast<std::size_t>(level.column[side]);
            for (std::size_t i = 0; i < padded; ++i) {
                planes[2 * stride + first + i] += response * level.by[side][2] * columns[i];
                planes[6 * stride + first + i] += covered * columns[padded + i];
            }
            planes[7 * stride + first] += covered;
        }
}

// The whole matrix; the kernel promises the upper triangle only.
inline void add_equations(const double* rows, const double* values, std::size_t count, double* matrix, double* sums)
{
    for (std::size_t n = 0; n < count; ++n)
        for (std::size_t i = 0; i < 12; ++i) {
            for (std::size_t j = 0; j < 12; ++j)
                matrix[12 * j + i] += rows[12 * n + j] * rows[12 * n + i];
            sums[i] += values[n] * rows[12 * n + i];
        }
}

} // namespace panoval::reference
