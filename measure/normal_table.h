// SPDX-License-Identifier: MIT
// The normal distribution and its density, from a table and a Taylor series around its nearest entry: products and sums
// alone, so that the same bits come out everywhere. The error is below 1e-13; beyond 8 deviations the values are the
// limits 0, 1 and 0.
#pragma once

#include "core/numbers.h"

#include <array>
#include <cmath>
#include <cstddef>

namespace panoval::measure
{

struct NormalValue {
    double cumulative; // integral of the density up to z
    double density;    // exp(-z * z / 2) / sqrt(2 pi)
};

namespace normal_detail
{

inline constexpr double kStep = 1.0 / 32;
inline constexpr double kLimit = 8;
inline constexpr std::size_t kEntries = 513; // from -8 to 8

// Derivatives of the density over the density are Hermite polynomials: one Taylor step of both functions.
constexpr NormalValue shift(NormalValue at, double z, double d) noexcept
{
    const double z2 = z * z;
    const double h2 = z2 - 1;
    const double h3 = z * (z2 - 3);
    const double h4 = z2 * (z2 - 6) + 3;
    const double h5 = z * (z2 * (z2 - 10) + 15);
    const double h6 = z2 * (z2 * (z2 - 15) + 45) - 15;
    const double ratio = 1 + d * (-z + d * (h2 / 2 + d * (-h3 / 6 + d * (h4 / 24 + d * (-h5 / 120 + d * (h6 / 720))))));
    const double area =
        d * (1 + d * (-z / 2 + d * (h2 / 6 + d * (-h3 / 24 + d * (h4 / 120 + d * (-h5 / 720 + d * (h6 / 5040)))))));
    return {at.cumulative + at.density * area, at.density * ratio};
}

// exp(-x) for 0 <= x <= 0.25
constexpr double small_exponential(double x) noexcept
{
    double sum = 1;
    for (int n = 16; n >= 1; --n)
        sum = 1 - x / n * sum;
    return sum;
}

constexpr std::array<NormalValue, kEntries> make_table() noexcept
{
    std::array<NormalValue, kEntries> table{};
    constexpr std::size_t middle = kEntries / 2;
    table[middle] = {0.5, 0.39894228040143267794};
    constexpr int parts = 8; // of a step, so that the series of `shift` is exact to the last bits
    for (std::size_t i = 0; i < middle; ++i) {
        const double z = static_cast<double>(i) * kStep;
        NormalValue value = table[middle + i];
        for (int part = 0; part < parts; ++part)
            value = shift(value, z + part * kStep / parts, kStep / parts);
        // The density anew from its own recurrence, which does not collect the errors of the series.
        value.density = table[middle + i].density * small_exponential(z * kStep + kStep * kStep / 2);
        table[middle + i + 1] = value;
        table[middle - i - 1] = {1 - value.cumulative, value.density};
    }
    return table;
}

inline constexpr std::array<NormalValue, kEntries> kTable = make_table();

} // namespace normal_detail

inline NormalValue normal_at(double z) noexcept
{
    using namespace normal_detail;
    if (!(z > -kLimit))
        return {0, 0};
    if (!(z < kLimit))
        return {1, 0};
    const double position = std::floor((z + kLimit) * (1 / kStep) + 0.5);
    const double at = position * kStep - kLimit;
    return shift(kTable[static_cast<std::size_t>(truncate_to_int(position))], at, z - at);
}

} // namespace panoval::measure
