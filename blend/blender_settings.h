// SPDX-License-Identifier: MIT
// What the blenders are set to, and the panorama engine with them where it gives their sums.
#pragma once

#include "core/elementary.h"
#include "core/numbers.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace panoval
{

inline constexpr float kFeatherSharpness = 0.02f;   // weight per pixel of distance
inline constexpr std::int32_t kFullWeightFrom = 50; // pixels from a mask's edge
static_assert(kFullWeightFrom * kFeatherSharpness >= 1 && (kFullWeightFrom - 1) * kFeatherSharpness < 1);
inline constexpr float kCityBlockSteps[3] = {1.f, 2.f, 3.f}; // straight, diagonal, and one that a 3 x 3 mask has not

// The least multiple of a unit that is not below a size: what the canvas's sides become so that each band has whole
// pixels.
inline std::int64_t round_up(std::int64_t size, std::int64_t unit)
{
    return size + (unit - size % unit) % unit;
}

// Bands of a canvas: no more than halve its longer side to one pixel, and at least one.
inline std::int32_t usable_bands(std::int32_t requested, std::int64_t longer_side)
{
    const auto larger = static_cast<double>(longer_side);
    const std::int32_t possible = truncate_to_int(std::ceil(log(larger) / log(2.0)));
    return std::max(std::min(requested, possible), 1);
}

} // namespace panoval
