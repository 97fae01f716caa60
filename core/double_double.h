// SPDX-License-Identifier: MIT
// Numbers of twice the precision as unevaluated sums of two doubles, made of + - * / only (T. J. Dekker, A
// floating-point technique for extending the available precision, 1971; D. E. Knuth's exact sum). Nothing here needs a
// fused multiply-add, and none may be made of it: the build keeps contraction off.
#pragma once

namespace panoval
{

struct DoubleDouble {
    double hi;
    double lo;
};

// a + b exactly, for |a| >= |b| or a = 0.
inline DoubleDouble fast_two_sum(double a, double b) noexcept
{
    const double sum = a + b;
    return {sum, b - (sum - a)};
}

// a + b exactly.
inline DoubleDouble two_sum(double a, double b) noexcept
{
    const double sum = a + b;
    const double b_part = sum - a;
    return {sum, (a - (sum - b_part)) + (b - b_part)};
}

// The value as a sum of two numbers of 26 bits, for magnitudes below 2^996.
inline DoubleDouble split(double value) noexcept
{
    constexpr double kSplitter = 134217729; // 2^27 + 1
    const double scaled = kSplitter * value;
    const double high = scaled - (scaled - value);
    return {high, value - high};
}

// a * b exactly, while neither overflow nor underflow comes near: factors below 2^996, products from 2^-960 up to
// 2^1022.
inline DoubleDouble two_product(double a, double b) noexcept
{
    const double product = a * b;
    const DoubleDouble x = split(a);
    const DoubleDouble y = split(b);
    return {product, ((x.hi * y.hi - product) + x.hi * y.lo + x.lo * y.hi) + x.lo * y.lo};
}

// The double nearest to a value that is hi + lo but for an error of at most bound * |hi|, if every such value rounds
// alike; |lo| < |hi| / 4. Returns whether it does.
inline bool rounds_safely(DoubleDouble value, double bound, double& rounded) noexcept
{
    const double error = value.hi < 0 ? -value.hi * bound : value.hi * bound;
    rounded = value.hi + (value.lo - error);
    return rounded == value.hi + (value.lo + error);
}

} // namespace panoval
