// SPDX-License-Identifier: MIT
// The normal equations of a fit, accumulated and solved by libmath. The one place of this folder that calls it.
#pragma once

#include "libmath/libmath.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace panoval
{

// Scratch that solve_lsq may use, in doubles.
inline constexpr std::size_t kSolverWork = 256;

template <int Unknowns>
class NormalEquations
{
public:
    void clear() noexcept
    {
        std::fill_n(normal_, Unknowns * Unknowns, 0.0);
        std::fill_n(rhs_, Unknowns, 0.0);
    }

    // row: one coefficient for each unknown
    void add(const double* row, double value, double weight) noexcept
    {
        (void)pnrml(row, Unknowns, value, normal_, rhs_, weight);
    }

    // May be called once per accumulation: the solver may use up the equations. A solver that gives up leaves 0.
    void solve(double* solution) noexcept
    {
        double work[kSolverWork];
        std::fill_n(work, kSolverWork, 0.0);
        std::fill_n(solution, Unknowns, 0.0);
        (void)solve_lsq(normal_, rhs_, solution, Unknowns, Unknowns, work);
    }

private:
    double normal_[Unknowns * Unknowns];
    double rhs_[Unknowns];
};

} // namespace panoval
