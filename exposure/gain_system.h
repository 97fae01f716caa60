// SPDX-License-Identifier: MIT
// The linear system of the gains: one unknown per image. The one place that calls libmath for it.
#pragma once

#include "core/heap.h"

#include <cstdint>

namespace panoval
{

// counts and intensities are n x n tables as in GainCompensator.
struct GainSystem {
    HeapArray<double> a; // n x n
    HeapArray<double> b; // n
    explicit operator bool() const { return a != nullptr && b != nullptr; }
};

GainSystem build_gain_system(std::int32_t n, const std::int32_t* counts, const double* intensities);

// gains = inverse of a times b, with the general or the symmetric inversion. False without memory; a singular matrix is
// multiplied as the inversion left it.
bool solve_general(GainSystem& system, std::int32_t n, double* gains);
bool solve_symmetric(GainSystem& system, std::int32_t n, double* gains);

} // namespace panoval
