// SPDX-License-Identifier: MIT
// The chamfer distance transform as it is defined: two raster passes, one pixel after the other, sums that wrap.
#pragma once

#include "panoval.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

namespace panoval::reference
{

inline std::int32_t chamfer_cost(float pixels)
{
    const double units = std::floor(static_cast<double>(pixels * 65536.0f) + 0.5);
    if (units >= -2147483648.0 && units <= 2147483647.0)
        return static_cast<std::int32_t>(units);
    return std::numeric_limits<std::int32_t>::min();
}

// A sum of 32 bits that wraps.
inline std::int32_t chamfer_sum(std::int32_t a, std::int32_t b)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

inline void distanceTransform_3x3(const Matb* src, Matf* scratch, Matf* dist, const float* metrics)
{
    constexpr std::int32_t kInfinity = 0x1FFFFFFF;
    const std::int32_t straight = chamfer_cost(metrics[0]);
    const std::int32_t diagonal = chamfer_cost(metrics[1]);
    const std::ptrdiff_t width = src->width;
    const std::ptrdiff_t height = src->height;
    MatfReset(scratch, src->width + 2, src->height + 2, 1);
    auto* const cells = reinterpret_cast<std::int32_t*>(scratch->data);
    const std::ptrdiff_t pitch = width + 2;
    for (std::ptrdiff_t x = 0; x < pitch; ++x) {
        cells[x] = kInfinity;
        cells[(height + 1) * pitch + x] = kInfinity;
    }

    for (std::ptrdiff_t y = 0; y < height; ++y) {
        const std::int32_t* const up = cells + y * pitch + 1;
        std::int32_t* const row = cells + (y + 1) * pitch + 1;
        row[-1] = kInfinity;
        row[width] = kInfinity;
        for (std::ptrdiff_t x = 0; x < width; ++x) {
            if (src->data[y * width + x] == 0) {
                row[x] = 0;
                continue;
            }
            std::int32_t t = chamfer_sum(up[x - 1], diagonal);
            t = std::min(t, chamfer_sum(up[x], straight));
            t = std::min(t, chamfer_sum(up[x + 1], diagonal));
            t = std::min(t, chamfer_sum(row[x - 1], straight));
            row[x] = t;
        }
    }

    for (std::ptrdiff_t y = height - 1; y >= 0; --y) {
        std::int32_t* const row = cells + (y + 1) * pitch + 1;
        const std::int32_t* const down = row + pitch;
        for (std::ptrdiff_t x = width - 1; x >= 0; --x) {
            std::int32_t t = row[x];
            if (t > straight) {
                t = std::min(t, chamfer_sum(down[x + 1], diagonal));
                t = std::min(t, chamfer_sum(down[x], straight));
                t = std::min(t, chamfer_sum(down[x - 1], diagonal));
                t = std::min(t, chamfer_sum(row[x + 1], straight));
                row[x] = t;
            }
            dist->data[y * dist->width + x] = static_cast<float>(t) * 1.52587890625e-05f;
        }
    }
}

} // namespace panoval::reference
