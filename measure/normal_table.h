// SPDX-License-Identifier: MIT
// The normal distribution and its density in tables, which the compiler makes of Taylor series: products and sums
// alone, so that the same bits come out everywhere. A step of the series from an entry has an error below 1e-13.
#pragma once

#include <array>
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

// Reciprocal factorials: a division by a constant costs as much as one by a variable.
inline constexpr double kFactorial3 = 1.0 / 6;
inline constexpr double kFactorial4 = 1.0 / 24;
inline constexpr double kFactorial5 = 1.0 / 120;
inline constexpr double kFactorial6 = 1.0 / 720;
inline constexpr double kFactorial7 = 1.0 / 5040;

// Derivatives of the density over the density are Hermite polynomials: one Taylor step of both functions.
constexpr NormalValue shift(NormalValue at, double z, double d) noexcept // COUNT_EXCL_START: runs in the compiler alone
{
    const double z2 = z * z;
    const double h2 = z2 - 1;
    const double h3 = z * (z2 - 3);
    const double h4 = z2 * (z2 - 6) + 3;
    const double h5 = z * (z2 * (z2 - 10) + 15);
    const double h6 = z2 * (z2 * (z2 - 15) + 45) - 15;
    double ratio = h6 * kFactorial6;
    ratio = h5 * -kFactorial5 + d * ratio;
    ratio = h4 * kFactorial4 + d * ratio;
    ratio = h3 * -kFactorial3 + d * ratio;
    ratio = h2 * 0.5 + d * ratio;
    ratio = (0 - z) + d * ratio;
    ratio = 1 + d * ratio;
    double area = h6 * kFactorial7;
    area = h5 * -kFactorial6 + d * area;
    area = h4 * kFactorial5 + d * area;
    area = h3 * -kFactorial4 + d * area;
    area = h2 * kFactorial3 + d * area;
    area = z * -0.5 + d * area;
    area = (1 + d * area) * d;
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

// For vectors of single precision that gather: finer tables, so that two terms of the series do.
inline constexpr float kFineStep = 1.0f / 64;
inline constexpr std::size_t kFineEntries = 1025; // from -8 to 8

constexpr NormalValue fine_entry(std::size_t i) noexcept
{
    const std::size_t before = i / 2;
    const double z = static_cast<double>(before) * kStep - kLimit;
    return i % 2 == 0 ? kTable[before] : shift(kTable[before], z, kStep / 2);
}

template <double NormalValue::*Member>
constexpr std::array<float, kFineEntries> fine_table() noexcept
{
    std::array<float, kFineEntries> table{};
    for (std::size_t i = 0; i < kFineEntries; ++i)
        table[i] = static_cast<float>(fine_entry(i).*Member);
    return table;
} // COUNT_EXCL_STOP

inline constexpr std::array<float, kFineEntries> kCumulative = fine_table<&NormalValue::cumulative>();
inline constexpr std::array<float, kFineEntries> kDensity = fine_table<&NormalValue::density>();

} // namespace normal_detail

} // namespace panoval::measure
