// SPDX-License-Identifier: MIT
// Sums over rows of samples, and the middle of samples.
#pragma once

#include <array>
#include <cstddef>

namespace panoval::measure
{

// Samples are summed in so many turns, which are added at the end: the first and the second, and the two others.
inline constexpr std::size_t kSumTurns = 4;

struct RowSums {
    double count = 0; // of the samples that are kept
    double x = 0, xx = 0;
    double v = 0, vx = 0, vv = 0; // of what samples differ from the origin
};

// Sums over those of `count` samples that differ from an even slope by no more than a limit.
//
// x       of the first sample; the next ones lie at x + 1, x + 2, ...
// origin  subtracted from every sample
// slope   of the levels along the row; level: where it is at x = 0, less the origin
RowSums sum_row(const float* samples, std::size_t count, double x, double origin, double level, double slope,
                double limit) noexcept;

// The value in the middle of the order of finite values, of two the upper one, of none 0.
float middle_of(const float* values, std::size_t count) noexcept;

} // namespace panoval::measure
