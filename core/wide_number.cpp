// SPDX-License-Identifier: MIT
// Binary numbers with 320 bits, limb by limb as on paper.
#include "core/wide_number.h"
#include <algorithm>
#include <bit>
#include <cstddef>
#include <limits>

namespace panoval
{

namespace
{

constexpr std::size_t kLimbs = WideNumber::kLimbs;

// A number with one limb more, so that the difference of two neighbours loses nothing.
using Guarded = std::array<std::uint32_t, kLimbs + 1>;

std::uint32_t low_limb(std::uint64_t value)
{
    return static_cast<std::uint32_t>(value & 0xFFFFFFFFu);
}

// Moves the digits to the right by a number of bits; what leaves is lost.
Guarded shift_right(const WideNumber& value, std::int64_t bits)
{
    Guarded shifted = {};
    const std::int64_t places = bits / 32;
    const auto rest = static_cast<unsigned>(bits % 32);
    for (std::size_t i = 0; i < kLimbs; ++i) {
        const std::size_t to = i + static_cast<std::size_t>(std::min<std::int64_t>(places, kLimbs + 1));
        const std::uint64_t moved = (std::uint64_t{value.limbs[i]} << 32) >> rest;
        if (to < shifted.size())
            shifted[to] |= static_cast<std::uint32_t>(moved >> 32);
        if (to + 1 < shifted.size())
            shifted[to + 1] |= low_limb(moved);
    }
    return shifted;
}

// 2^exponent for -1074 <= exponent <= 1023.
double power_of_two(std::int32_t exponent)
{
    if (exponent >= -1022)
        return std::bit_cast<double>(static_cast<std::uint64_t>(exponent + 1023) << 52);
    return std::bit_cast<double>(std::uint64_t{1} << (exponent + 1074));
}

// |a| >= |b|, of unlike signs or not.
WideNumber add_smaller(const WideNumber& a, const WideNumber& b)
{
    const Guarded addend = shift_right(b, std::int64_t{a.exponent} - b.exponent);
    Guarded sum = {};
    std::uint64_t carry = 0;
    for (std::size_t i = kLimbs + 1; i-- > 0;) {
        carry += (i < kLimbs ? std::uint64_t{a.limbs[i]} : 0) + addend[i];
        sum[i] = low_limb(carry);
        carry >>= 32;
    }
    if (carry == 0)
        return wide_from_limbs(sum.data(), kLimbs + 1, a.exponent, a.negative);
    std::array<std::uint32_t, kLimbs + 2> carried = {1};
    std::copy(sum.begin(), sum.end(), carried.begin() + 1);
    return wide_from_limbs(carried.data(), kLimbs + 2, a.exponent + 32, a.negative);
}

WideNumber subtract_smaller(const WideNumber& a, const WideNumber& b)
{
    const Guarded subtrahend = shift_right(b, std::int64_t{a.exponent} - b.exponent);
    Guarded difference = {};
    std::uint64_t borrow = 0;
    for (std::size_t i = kLimbs + 1; i-- > 0;) {
        const std::uint64_t digit = (i < kLimbs ? std::uint64_t{a.limbs[i]} : 0) - subtrahend[i] - borrow;
        difference[i] = low_limb(digit);
        borrow = digit >> 63;
    }
    return wide_from_limbs(difference.data(), kLimbs + 1, a.exponent, a.negative);
}

bool is_smaller(const WideNumber& a, const WideNumber& b)
{
    if (a.is_zero() || b.is_zero())
        return !b.is_zero();
    return a.exponent != b.exponent ? a.exponent < b.exponent : a.limbs < b.limbs;
}

} // namespace

WideNumber wide_from_limbs(const std::uint32_t* limbs, int count, std::int32_t exponent, bool negative) noexcept
{
    int first = 0;
    while (first < count && limbs[first] == 0)
        ++first;
    WideNumber value;
    if (first == count)
        return value;
    const auto shift = static_cast<unsigned>(std::countl_zero(limbs[first]));
    for (int i = 0; i < WideNumber::kLimbs; ++i) {
        const std::uint64_t here = first + i < count ? limbs[first + i] : 0;
        const std::uint64_t next = first + i + 1 < count ? limbs[first + i + 1] : 0;
        value.limbs[static_cast<std::size_t>(i)] = low_limb((((here << 32) | next) << shift) >> 32);
    }
    value.exponent = exponent - 32 * first - static_cast<std::int32_t>(shift);
    value.negative = negative;
    return value;
}

WideNumber wide(double value) noexcept
{
    const auto bits = std::bit_cast<std::uint64_t>(value);
    const auto biased = static_cast<std::int32_t>((bits >> 52) & 0x7FF);
    const std::uint64_t fraction = bits & 0xFFFFFFFFFFFFFu;
    const std::uint64_t digits = biased == 0 ? fraction : fraction | 0x10000000000000u;
    const std::uint32_t limbs[2] = {static_cast<std::uint32_t>(digits >> 32), low_limb(digits)};
    // digits * 2^(biased - 1075) = (digits / 2^64) * 2^(biased - 1011)
    return wide_from_limbs(limbs, 2, std::max(biased, 1) - 1011, (bits >> 63) != 0);
}

double to_double(const WideNumber& value) noexcept
{
    const double sign = value.negative ? -1.0 : 1.0;
    if (value.is_zero() || value.exponent < -1074)
        return sign * 0.0;
    if (value.exponent > 1024)
        return sign * std::numeric_limits<double>::infinity();
    // The result has 53 bits, fewer below 2^-1022.
    const std::int32_t bits = std::min(53, value.exponent + 1074);
    const std::uint64_t top = (std::uint64_t{value.limbs[0]} << 32) | value.limbs[1];
    const std::uint64_t below = bits == 0 ? top : top << bits;
    const bool is_past_half = (below << 1) != 0 || std::any_of(value.limbs.begin() + 2, value.limbs.end(),
                                                               [](std::uint32_t limb) { return limb != 0; });
    std::uint64_t digits = bits == 0 ? 0 : top >> (64 - bits);
    if ((below >> 63) != 0 && (is_past_half || (digits & 1) != 0))
        ++digits;
    // digits * 2^power in two exact steps; the first keeps within the normal numbers
    const std::int32_t power = value.exponent - bits;
    const std::int32_t step = power > 0 ? power : 0;
    return sign * (static_cast<double>(digits) * power_of_two(power - step)) * power_of_two(step);
}

WideNumber round_to_bits(const WideNumber& value, int bits) noexcept
{
    if (value.is_zero())
        return value;
    WideNumber half;
    half.limbs[0] = 0x80000000u;
    half.exponent = value.exponent - bits;
    half.negative = value.negative;
    WideNumber rounded = value + half;
    const int kept = bits + (rounded.exponent - value.exponent);
    for (int i = 0; i < WideNumber::kLimbs; ++i) {
        const int left = std::clamp(kept - 32 * i, 0, 32);
        rounded.limbs[static_cast<std::size_t>(i)] &= low_limb(~std::uint64_t{0} << (32 - left));
    }
    return rounded;
}

WideNumber negate(WideNumber value) noexcept
{
    value.negative = !value.negative;
    return value;
}

WideNumber scale(WideNumber value, std::int32_t power) noexcept
{
    value.exponent += power;
    return value;
}

WideNumber operator+(const WideNumber& a, const WideNumber& b) noexcept
{
    if (is_smaller(a, b))
        return b + a;
    if (b.is_zero())
        return a;
    return a.negative == b.negative ? add_smaller(a, b) : subtract_smaller(a, b);
}

WideNumber operator-(const WideNumber& a, const WideNumber& b) noexcept
{
    return a + negate(b);
}

WideNumber operator*(const WideNumber& a, const WideNumber& b) noexcept
{
    std::array<std::uint32_t, 2 * kLimbs> product = {};
    for (std::size_t i = kLimbs; i-- > 0;) {
        std::uint64_t carry = 0;
        for (std::size_t j = kLimbs; j-- > 0;) {
            carry += std::uint64_t{a.limbs[i]} * b.limbs[j] + product[i + j + 1];
            product[i + j + 1] = low_limb(carry);
            carry >>= 32;
        }
        product[i] = low_limb(carry);
    }
    return wide_from_limbs(product.data(), 2 * WideNumber::kLimbs, a.exponent + b.exponent, a.negative != b.negative);
}

WideNumber operator/(const WideNumber& a, const WideNumber& b) noexcept
{
    // Newton's reciprocal of the digits of b, from 53 bits on: 106, 212, all.
    const WideNumber digits = scale(b, -b.exponent);
    const WideNumber one = wide(1.0);
    WideNumber reciprocal = wide(1.0 / to_double(digits));
    for (int i = 0; i < 3; ++i)
        reciprocal = reciprocal + reciprocal * (one - digits * reciprocal);
    return scale(a * reciprocal, -b.exponent);
}

WideNumber divide_small(const WideNumber& a, std::uint32_t divisor) noexcept
{
    std::array<std::uint32_t, kLimbs + 1> quotient = {};
    std::uint64_t rest = 0;
    for (std::size_t i = 0; i <= kLimbs; ++i) {
        rest = (rest << 32) | (i < kLimbs ? a.limbs[i] : 0);
        quotient[i] = static_cast<std::uint32_t>(rest / divisor);
        rest %= divisor;
    }
    return wide_from_limbs(quotient.data(), WideNumber::kLimbs + 1, a.exponent, a.negative);
}

} // namespace panoval
