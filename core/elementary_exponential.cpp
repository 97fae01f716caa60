// SPDX-License-Identifier: MIT
// exp, log and pow: reduction to a small argument by a table, a short series in double-double arithmetic, a rounding
// test (A. Ziv, Fast evaluation of elementary mathematical functions with correctly rounded last bit, 1991), and the
// wide functions for the few results that fail it. All bounds are relative, u = 2^-53.
#include "core/elementary.h"
#include "core/elementary_tables.h"
#include "core/elementary_wide.h"
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

namespace panoval
{

namespace
{

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// Adding and taking away 1.5 * 2^52 leaves the nearest whole number, for magnitudes below 2^51.
double nearest_whole(double value)
{
    constexpr double kShifter = 0x1.8p52;
    return (value + kShifter) - kShifter;
}

// 2^k for a normal result.
double power_of_two(std::int64_t k)
{
    return std::bit_cast<double>(static_cast<std::uint64_t>(k + 1023) << 52);
}

struct Exponential {
    DoubleDouble value; // from 0.99 to 2.01
    std::int64_t power; // times 2^power
};

constexpr double kExpBound = 0x1p-69;

// exp(x) for x = x.hi + x.lo, |x| < 750, |x.lo| <= u |x.hi|, off by less than 2^-70:
// n = 64 k + j steps of log 2 / 64 are taken away. n * kExpStep1 is exact (34 + 16 bits), and so is the difference, as
// it cancels; n * kExpStep2 is exact, the sum with it is kept whole; the third part is off by 2^-110. Then |r| <
// 2^-7.5. exp(r) = 1 + r + r^2 / 2 + q with q < 2^-25 in plain doubles: its five roundings stay below 2^-75, r^8 / 8!
// below 2^-75, the low parts of r and r^2 below 2^-100. Each of the additions to lo, and the product with the table,
// rounds something below 2^-24 once: eight times 2^-77.
Exponential exp_quick(DoubleDouble x)
{
    const double n = nearest_whole(x.hi * tables::kExpSteps);
    const double first = x.hi - n * tables::kExpStep1;
    const DoubleDouble second = two_sum(first, -(n * tables::kExpStep2));
    const DoubleDouble r = two_sum(second.hi, second.lo + (x.lo - n * tables::kExpStep3));
    const DoubleDouble square = two_product(r.hi, r.hi);
    const double q = square.hi * r.hi *
                     (1.0 / 6 + r.hi * (1.0 / 24 + r.hi * (1.0 / 120 + r.hi * (1.0 / 720 + r.hi * (1.0 / 5040)))));
    const DoubleDouble linear = fast_two_sum(1.0, r.hi);
    const DoubleDouble quadratic = fast_two_sum(linear.hi, 0.5 * square.hi);
    const double lo = q + (quadratic.lo + (linear.lo + (r.lo + r.lo * r.hi + 0.5 * square.lo)));
    const auto steps = static_cast<std::int64_t>(n);
    const DoubleDouble table = tables::kExp[steps & 63];
    const DoubleDouble product = two_product(table.hi, quadratic.hi);
    return {{product.hi, product.lo + (table.hi * lo + table.lo * quadratic.hi)}, steps >> 6};
}

// Whether the result is a normal number, and the bound decides it; the power of two is exact then.
bool is_decided(const Exponential& result, double bound, double& rounded)
{
    if (result.power < -1020 || result.power > 1022 || !rounds_safely(result.value, bound, rounded))
        return false;
    rounded *= power_of_two(result.power);
    return true;
}

constexpr double kLogBound = 0x1p-71;

// log(x) for finite x > 0 other than 1, off by less than 2^-72:
// x = 2^k m with 0.707 <= m < 1.415. With the table's c near 1 / m, of at most ten bits, r = m c - 1 is the exact sum
// of two doubles and |r| < 2^-7; log x = k log 2 - log c + log(1 + r). Where c is 1 and k is 0 the result is log(1 + r)
// alone, and everything is to be compared with r; else it is at least 2^-8.1, and the parts of log 2 and log c are good
// to 2^-95 of it. r - r^2 / 2 + r^3 / 3 are carried with double length, r.lo with its derivative 1 - r + r^2, of which
// less than 2^-80 is left out; the rest of the series to r^11, below r^4 / 3.9, in plain doubles: relative to r less
// than 2^-22.9, its six roundings less than 2^-73.3; r^12 / 12 is less than 2^-80 of r. The additions to lo round what
// is below 2^-22 of the result, four times.
DoubleDouble log_quick(double x)
{
    std::int64_t k = 0;
    if (x < 0x1p-1022) {
        x *= 0x1p54;
        k = -54;
    }
    const auto bits = std::bit_cast<std::uint64_t>(x);
    const auto entry = static_cast<std::size_t>((bits >> 45) & 127);
    const bool is_upper = entry >= 53;
    k += static_cast<std::int64_t>(bits >> 52) - 1023 + (is_upper ? 1 : 0);
    const std::uint64_t fraction = bits & 0xFFFFFFFFFFFFFu;
    const double m = std::bit_cast<double>(fraction | (is_upper ? 0x3FE0000000000000u : 0x3FF0000000000000u));
    const double m_high = std::bit_cast<double>(std::bit_cast<std::uint64_t>(m) & 0xFFFFFFFFF8000000u);
    const double c = tables::kReciprocals[entry];
    const DoubleDouble r = fast_two_sum(m_high * c - 1, (m - m_high) * c);

    const DoubleDouble square = two_product(r.hi, r.hi);
    const DoubleDouble cube = two_product(square.hi, r.hi);
    const double third = cube.hi / 3;
    const double third_low = (((cube.hi - 2 * third) - third) + (cube.lo + square.lo * r.hi)) * (1.0 / 3);
    const double z = r.hi;
    const double tail =
        square.hi * square.hi *
        (-1.0 / 4 +
         z * (1.0 / 5 +
              z * (-1.0 / 6 + z * (1.0 / 7 + z * (-1.0 / 8 + z * (1.0 / 9 + z * (-1.0 / 10 + z * (1.0 / 11))))))));

    const auto octaves = static_cast<double>(k);
    const DoubleDouble offset = two_sum(octaves * tables::kLn2Part1, tables::kLogs[entry].hi);
    const DoubleDouble linear = two_sum(offset.hi, r.hi);
    const DoubleDouble quadratic = two_sum(linear.hi, -0.5 * square.hi);
    const DoubleDouble cubic = two_sum(quadratic.hi, third);
    const double low = (r.lo - (r.hi - square.hi) * r.lo) - 0.5 * square.lo + third_low;
    const double table_low = octaves * tables::kLn2Part2 + tables::kLogs[entry].lo;
    const double lo = tail + (cubic.lo + (quadratic.lo + (linear.lo + (offset.lo + (low + table_low)))));
    return fast_two_sum(cubic.hi, lo);
}

bool is_whole(double value)
{
    return std::floor(value) == value;
}

bool is_odd(double value)
{
    return std::fabs(value) < 0x1p53 && is_whole(value) && !is_whole(0.5 * value);
}

// x^y where one of them is zero, infinite or not a number, or x is -1 or 1.
double pow_of_special(double x, double y)
{
    if (y == 0 || x == 1)
        return 1;
    if (std::isnan(x) || std::isnan(y))
        return x + y;
    const double size = std::fabs(x);
    if (std::isinf(y)) {
        if (size == 1)
            return 1;
        return (size > 1) == (y > 0) ? kInfinity : 0.0;
    }
    if (size == 1)
        return is_whole(y) ? (is_odd(y) ? -1.0 : 1.0) : (x - x) / (x - x);
    const double result = (size > 1) == (y > 0) ? kInfinity : 0.0;
    return std::signbit(x) && is_odd(y) ? -result : result;
}

// x^y for finite x > 0 other than 1, and finite y other than 0. y log x carries the logarithm's 2^-72 as a part of
// itself, and that is an error of |y log x| 2^-72 of its exponential.
double pow_of_positive(double x, double y)
{
    const DoubleDouble log = log_quick(x);
    const double estimate = y * log.hi;
    if (estimate > 710)
        return kInfinity;
    if (estimate < -746)
        return 0;
    if (std::fabs(estimate) < 0x1p-55)
        return 1; // 1 - 2^-54 is where the next double would begin
    const DoubleDouble product = two_product(y, log.hi);
    const DoubleDouble exponent = fast_two_sum(product.hi, product.lo + y * log.lo);
    double rounded = 0;
    if (is_decided(exp_quick(exponent), kExpBound + std::fabs(estimate) * kLogBound, rounded))
        return rounded;
    return elementary_wide::pow(x, y, log.hi);
}

} // namespace

double exp(double x) noexcept
{
    if (!(std::fabs(x) < 746)) {
        if (std::isnan(x))
            return x + x;
        return x > 0 ? kInfinity : 0;
    }
    if (std::fabs(x) < 0x1p-54)
        return 1;
    double rounded = 0;
    return is_decided(exp_quick({x, 0}), kExpBound, rounded) ? rounded : elementary_wide::exp(x);
}

double log(double x) noexcept
{
    if (!(x > 0 && x < kInfinity)) {
        if (x == 0)
            return -kInfinity;
        return x < 0 ? (x - x) / (x - x) : x + x; // infinity and not-a-number stay
    }
    if (x == 1)
        return 0;
    const DoubleDouble log = log_quick(x);
    double rounded = 0;
    return rounds_safely(log, kLogBound, rounded) ? rounded : elementary_wide::log(x, log.hi);
}

double pow(double x, double y) noexcept
{
    const double size = std::fabs(x);
    if (!(size > 0 && size < kInfinity && size != 1 && std::fabs(y) > 0 && std::fabs(y) < kInfinity))
        return pow_of_special(x, y);
    if (x > 0)
        return pow_of_positive(x, y);
    if (!is_whole(y))
        return (x - x) / (x - x);
    const double result = pow_of_positive(size, y);
    return is_odd(y) ? -result : result;
}

} // namespace panoval
