// SPDX-License-Identifier: MIT
// Binary numbers with 320 bits, in integer arithmetic: what the elementary functions fall back on where twice the
// double precision does not decide how to round. Plain rather than fast; it is reached about once in a thousand calls.
#pragma once

#include <array>
#include <cstdint>

namespace panoval
{

// (-1)^negative * 0.limbs * 2^exponent. The top bit of the first limb is set, except for zero, whose limbs are all
// zero.
struct WideNumber {
    static constexpr int kLimbs = 10;

    std::array<std::uint32_t, kLimbs> limbs = {}; // most significant first
    std::int32_t exponent = 0;
    bool negative = false;

    bool is_zero() const noexcept { return limbs[0] == 0; }
};

// From count limbs of a binary fraction, most significant first, times 2^exponent.
WideNumber wide_from_limbs(const std::uint32_t* limbs, int count, std::int32_t exponent, bool negative) noexcept;

// Exact for every finite value.
WideNumber wide(double value) noexcept;

// The nearest double, ties to even, with overflow to infinity and gradual underflow.
double to_double(const WideNumber& value) noexcept;

// The nearest number of so few bits (33 to 319), ties away from zero.
WideNumber round_to_bits(const WideNumber& value, int bits) noexcept;

WideNumber negate(WideNumber value) noexcept;
// times 2^power
WideNumber scale(WideNumber value, std::int32_t power) noexcept;

// Sums and products are cut off: off by less than 2^-317 of the result. A difference is exact where the exponents of
// its terms are at most 32 apart, and so wherever it cancels.
WideNumber operator+(const WideNumber& a, const WideNumber& b) noexcept;
WideNumber operator-(const WideNumber& a, const WideNumber& b) noexcept;
WideNumber operator*(const WideNumber& a, const WideNumber& b) noexcept;
// Off by less than 2^-313 of the result; the divisor is not zero.
WideNumber operator/(const WideNumber& a, const WideNumber& b) noexcept;
WideNumber divide_small(const WideNumber& a, std::uint32_t divisor) noexcept;

} // namespace panoval
