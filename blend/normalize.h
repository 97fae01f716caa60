// SPDX-License-Identifier: MIT
// Division of accumulated sums by accumulated weights, shared by the two blenders.
#pragma once

#include "panoval.h"

#include <cmath>
#include <cstddef>

namespace panoval
{

inline constexpr float kWeightEpsilon = 1e-5f; // keeps the division defined where nothing was added

// One sample's mean, rounded half up to a whole number.
inline float rounded_mean(float sum, float weight) noexcept
{
    const float shifted = sum / (weight + kWeightEpsilon) + 0.5f;
    return std::floor(shifted); // exact, as it would be in double precision
}

// Replaces every sample of sums by its rounded mean. weight has one channel and the size of sums. The step of
// feathering by itself, kept to be compared with its twin as a whole; the blender takes the same rows while it writes
// its result.
void normalize_by_weight(const Matf& weight, Matf& sums) noexcept;

// The same for count pixels of a row.
void normalize_row(float* sums, const float* weight, std::size_t count, std::size_t channels) noexcept;

} // namespace panoval
