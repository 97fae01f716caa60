// SPDX-License-Identifier: MIT
// What accumulated sums and weights come to, shared by the two blenders. blend/weighted_mean_inl.h has the same for
// vectors.
#pragma once

#include <cmath>

namespace panoval
{

inline constexpr float kWeightEpsilon = 1e-5f; // keeps the division defined where nothing was added

// One sample's mean, rounded half up to a whole number.
inline float rounded_mean(float sum, float weight) noexcept
{
    const float shifted = sum / (weight + kWeightEpsilon) + 0.5f;
    return std::floor(shifted); // exact, as it would be in double precision
}

} // namespace panoval
