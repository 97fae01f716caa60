// SPDX-License-Identifier: MIT
// Sums over rows of samples, one sample at a time, and the middle of samples in order.
#pragma once

#include "measure/patch_kernel.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace panoval::reference
{

inline measure::RowSums sum_row(const float* samples, std::size_t count, double x, double origin, double level,
                                double slope, double limit)
{
    double sums[6][measure::kSumTurns] = {};
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t turn = i % measure::kSumTurns;
        const double at = static_cast<double>(i) + x;
        const double value = static_cast<double>(samples[i]) - origin;
        if (!(std::fabs(value - (level + slope * at)) <= limit))
            continue;
        sums[0][turn] += 1;
        sums[1][turn] += at;
        sums[2][turn] += at * at;
        sums[3][turn] += value;
        sums[4][turn] += value * at;
        sums[5][turn] += value * value;
    }
    const auto total = [&](std::size_t i) { return (sums[i][0] + sums[i][1]) + (sums[i][2] + sums[i][3]); };
    return {total(0), total(1), total(2), total(3), total(4), total(5)};
}

inline float middle_of(std::vector<float> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace panoval::reference
