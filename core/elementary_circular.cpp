// SPDX-License-Identifier: MIT
// sin, cos, atan and atan2: reduction to a small argument by a table, a short series in double-double arithmetic, a
// rounding test (Ziv's, as in elementary_exponential.cpp), and the wide functions for the few results that fail it.
// All bounds are relative, u = 2^-53.
#include "core/elementary.h"
#include "core/elementary_tables.h"
#include "core/elementary_wide.h"
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace panoval
{

namespace
{

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kSineBound = 0x1p-66;
constexpr double kArctangentBound = 0x1p-66;

// Below this the number of steps stays under 2^21, so that its products with the parts of pi / 512 are exact.
constexpr double kLargestQuickAngle = 12800;

// What is left of x after whole steps of pi / 512.
struct Reduced {
    DoubleDouble rest; // magnitudes up to 2^-8.3
    std::int64_t steps;
};

// n * kCircleStep1 and its difference from x are exact, as is n * kCircleStep2 (32 + 21 bits); the sum with that is
// kept whole, and the third part is off by 2^-106 at most: its own 2^-130 times 2^21, and the rounding of what is below
// 2^-56.
Reduced reduce(double x)
{
    constexpr double kShifter = 0x1.8p52; // adding and taking it away leaves the nearest whole number
    const double n = (x * tables::kCircleSteps + kShifter) - kShifter;
    const double first = x - n * tables::kCircleStep1;
    const DoubleDouble second = two_sum(first, -(n * tables::kCircleStep2));
    return {fast_two_sum(second.hi, second.lo - n * tables::kCircleStep3), static_cast<std::int64_t>(n)};
}

// sin(n pi / 512 + r), off by less than 2^-66.5, where n is 0 or |r| >= 2^-25, so that r is good to 2^-80 of itself:
// sin(a + r) = S + C r + C (sin r - r) + S (cos r - 1) with S and C, sine and cosine of a, from the table to 2^-107.
// The first two terms are carried with double length. The third is below r^3 / 6, 2^-19 of r, its five roundings below
// 2^-69.5 of r, and where S is not 0 the result is at least half of S and at least r; where S is 0 it is r itself but
// for 2^-19. The fourth is below S r^2 / 2, 2^-17.6 S, its four roundings below 2^-68.6 S. The series are cut off below
// 2^-80. The additions to lo round what is below 2^-16.6 of the result once or, for C r's low part, below 2^-53 of it.
DoubleDouble sine_quick(std::int64_t steps, DoubleDouble r)
{
    const auto j = static_cast<std::size_t>(steps & 255);
    const bool is_cosine = (steps & 256) != 0;
    const DoubleDouble s = is_cosine ? tables::kSine[256 - j] : tables::kSine[j];
    const DoubleDouble other = is_cosine ? tables::kSine[j] : tables::kSine[256 - j];
    const DoubleDouble c = is_cosine ? DoubleDouble{-other.hi, -other.lo} : other;

    const double square = r.hi * r.hi;
    const double sine_rest = r.lo + r.hi * square * (-1.0 / 6 + square * (1.0 / 120 - square * (1.0 / 5040)));
    const double cosine_rest =
        square * (-0.5 + square * (1.0 / 24 - square * (1.0 / 720 - square * (1.0 / 40320)))) - r.hi * r.lo;
    const DoubleDouble product = two_product(c.hi, r.hi);
    const DoubleDouble sum = fast_two_sum(s.hi, product.hi);
    const double lo = sum.lo + (product.lo + (s.lo + c.lo * r.hi + (c.hi * sine_rest + s.hi * cosine_rest)));
    return (steps & 512) != 0 ? DoubleDouble{-sum.hi, -lo} : DoubleDouble{sum.hi, lo};
}

// The sine `quarter` quarters of a circle further on, where the quick way serves the angle and decides.
bool sine_decided(double x, std::int64_t quarter, double& rounded)
{
    if (std::fabs(x) > kLargestQuickAngle)
        return false;
    const Reduced reduced = reduce(x);
    if (reduced.steps != 0 && std::fabs(reduced.rest.hi) < 0x1p-25)
        return false;
    return rounds_safely(sine_quick(reduced.steps + 256 * quarter, reduced.rest), kSineBound, rounded);
}

// atan(y / x) for 0 < y <= x, y / x >= 2^-500, off by less than 2^-67:
// With c = j / 128 near y / x it is atan(c) + atan(z), z = (y - c x) / (x + c y), |z| < 2^-7.9. c has eight bits, so
// that c times either half of x or y is exact; numerator and denominator are sums of two doubles to 2^-104 of y and x,
// and z to 2^-100 of itself or, where c is not 0, of c. z^3 / 3 is below 2^-17.4 of z, its four roundings below
// 2^-68.4; z^11 / 11 is below 2^-82 of z.
DoubleDouble first_octant(double y, double x)
{
    const double j = std::floor(y / x * 128 + 0.5);
    const double c = j / 128;
    const DoubleDouble x_parts = split(x);
    const DoubleDouble y_parts = split(y);
    const DoubleDouble above = two_sum(y, -(c * x_parts.hi));
    const DoubleDouble numerator = two_sum(above.hi, -(c * x_parts.lo));
    const DoubleDouble below = two_sum(x, c * y_parts.hi);
    const DoubleDouble denominator = two_sum(below.hi, c * y_parts.lo);
    const double numerator_low = above.lo + numerator.lo;
    const double denominator_low = below.lo + denominator.lo;

    const double z = numerator.hi / denominator.hi;
    const DoubleDouble back = two_product(z, denominator.hi);
    const double rest = ((numerator.hi - back.hi) - back.lo) + (numerator_low - z * denominator_low);
    const double z_low = rest / denominator.hi;
    const double square = z * z;
    const double z_rest = z * square * (-1.0 / 3 + square * (1.0 / 5 - square * (1.0 / 7 - square * (1.0 / 9)))) +
                          (z_low - z_low * square);

    const DoubleDouble table = tables::kArctangent[static_cast<std::size_t>(j)];
    const DoubleDouble sum = fast_two_sum(table.hi, z);
    return {sum.hi, sum.lo + (table.lo + z_rest)};
}

// base - angle for an angle below the base
DoubleDouble minus(DoubleDouble base, DoubleDouble angle)
{
    const DoubleDouble difference = fast_two_sum(base.hi, -angle.hi);
    return {difference.hi, difference.lo + (base.lo - angle.lo)};
}

// The angle of (x, y) for finite, non-zero x and y.
double angle_of(double y, double x)
{
    double height = std::fabs(y);
    double width = std::fabs(x);
    const bool is_steep = height > width;
    if (is_steep) {
        const double swapped = height;
        height = width;
        width = swapped;
    }
    if (height < width * 0x1p-500)
        return elementary_wide::atan2(y, x, 0);
    // Scaled so that no product below leaves the normal numbers; x is at most 2^500 y.
    const double unit = width > 0x1p500 ? 0x1p-600 : height < 0x1p-450 ? 0x1p500 : 1.0;
    const DoubleDouble octant = first_octant(height * unit, width * unit);
    DoubleDouble angle = is_steep ? minus(tables::kHalfPi, octant) : octant;
    if (x < 0)
        angle = minus(tables::kPi, angle);
    double rounded = 0;
    if (!rounds_safely(angle, kArctangentBound, rounded))
        return elementary_wide::atan2(y, x, octant.hi);
    return y < 0 ? -rounded : rounded;
}

// The angle of (x, y) where one of them is zero or infinite.
double angle_of_special(double y, double x)
{
    constexpr double kPi = tables::kPi.hi;
    double size = kPi / 2;
    if (std::isinf(y)) {
        if (std::isinf(x))
            size = x > 0 ? kPi / 4 : 0x1.2d97c7f3321d2p1; // three quarters of pi
    } else if (y == 0 || std::isinf(x)) {
        size = std::signbit(x) ? kPi : 0.0;
    }
    return std::signbit(y) ? -size : size;
}

} // namespace

double sin(double x) noexcept
{
    if (!(std::fabs(x) < kInfinity))
        return x - x;
    if (std::fabs(x) < 0x1p-27)
        return x; // x^3 / 6 is less than half a step
    double rounded = 0;
    return sine_decided(x, 0, rounded) ? rounded : elementary_wide::sin(x);
}

double cos(double x) noexcept
{
    if (!(std::fabs(x) < kInfinity))
        return x - x;
    if (std::fabs(x) < 0x1p-27)
        return 1; // x^2 / 2 is less than half a step
    double rounded = 0;
    return sine_decided(x, 1, rounded) ? rounded : elementary_wide::cos(x);
}

double atan(double x) noexcept
{
    if (std::isnan(x))
        return x + x;
    if (std::fabs(x) < 0x1p-27)
        return x; // x^3 / 3 is less than half a step
    return std::isinf(x) ? angle_of_special(x, 1) : angle_of(x, 1);
}

double atan2(double y, double x) noexcept
{
    if (std::isnan(x) || std::isnan(y))
        return x + y;
    if (y == 0 || x == 0 || std::isinf(x) || std::isinf(y))
        return angle_of_special(y, x);
    return angle_of(y, x);
}

} // namespace panoval
