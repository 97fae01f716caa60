// SPDX-License-Identifier: MIT
// The elementary functions from their series in numbers of 320 bits. Every operation is off by less than 2^-313 of its
// result, and fewer than 2^12 of them add up, so that results are good to 2^-250 of themselves even after the loss of
// 53 bits to cancellation. No result of a double lies closer than about 2^-120 of itself to the middle between two
// doubles (Lefevre and Muller have searched them all for these functions of one argument), but for those of pow that
// are exact or lie exactly in the middle: see pow.
#include "core/elementary_wide.h"
#include "core/elementary_tables.h"
#include "core/wide_number.h"
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>

namespace panoval::elementary_wide
{

namespace
{

WideNumber ln2()
{
    return wide_from_limbs(tables::kWideLn2, WideNumber::kLimbs, 0, false);
}

WideNumber quarter_pi()
{
    return wide_from_limbs(tables::kWideQuarterPi, WideNumber::kLimbs, 0, false);
}

// Taylor's series of exp, 2^-10 times the argument, squared ten times. (0.35 / 2^10)^23 / 23! < 2^-330.
WideNumber exp_of(const WideNumber& x)
{
    constexpr std::uint32_t kTerms = 23;
    constexpr std::int32_t kSquarings = 10;
    const double multiple = std::floor(to_double(x) * (tables::kExpSteps / 64) + 0.5);
    const WideNumber reduced = scale(x - wide(multiple) * ln2(), -kSquarings);
    const WideNumber one = wide(1.0);
    WideNumber sum = one;
    for (std::uint32_t k = kTerms; k > 0; --k)
        sum = one + divide_small(reduced * sum, k);
    for (std::int32_t i = 0; i < kSquarings; ++i)
        sum = sum * sum;
    return scale(sum, static_cast<std::int32_t>(multiple));
}

// With y near log x and t = (x - e^y) / (x + e^y): log x = y + 2 artanh t. As |t| < 2^-30, t^11 / 11 < 2^-332.
WideNumber log_of(double x, double close)
{
    const WideNumber value = wide(x);
    const WideNumber power = exp_of(wide(close));
    const WideNumber t = (value - power) / (value + power);
    const WideNumber square = t * t;
    WideNumber sum;
    for (const std::uint32_t k : {9u, 7u, 5u, 3u, 1u})
        sum = divide_small(wide(1.0), k) + square * sum;
    return wide(close) + scale(t * sum, 1);
}

struct SineCosine {
    WideNumber sine;
    WideNumber cosine;
};

// Taylor's series for |x| <= 0.79. 0.79^70 / 70! < 2^-340.
SineCosine sine_cosine_of(const WideNumber& x)
{
    constexpr std::uint32_t kTerms = 35;
    const WideNumber one = wide(1.0);
    const WideNumber square = x * x;
    SineCosine sums = {one, one};
    for (std::uint32_t k = kTerms; k > 0; --k) {
        sums.sine = one - divide_small(square * sums.sine, 2 * k * (2 * k + 1));
        sums.cosine = one - divide_small(square * sums.cosine, 2 * k * (2 * k - 1));
    }
    sums.sine = sums.sine * x;
    return sums;
}

// x = quadrant * pi / 2 + rest, |rest| <= pi / 4, quadrants counted modulo 4.
struct Reduced {
    std::uint32_t quadrant;
    WideNumber rest;
};

constexpr std::size_t kWindow = 14; // limbs of 2 / pi that matter: 448 bits

// The bits of 2 / pi that begin after the first one's, `from` bits behind the binary point; those before it are 0.
std::array<std::uint32_t, kWindow> two_over_pi(std::int32_t from)
{
    static_assert(std::size(tables::kWideTwoOverPi) > (2046 - 1075 - 2) / 32 + kWindow); // for the largest double
    const auto limb_at = [](std::int32_t i) -> std::uint64_t { return i >= 0 ? tables::kWideTwoOverPi[i] : 0; };
    const std::int32_t first = from >= 0 ? from / 32 : -((31 - from) / 32); // rounded down
    const auto shift = static_cast<unsigned>(from - 32 * first);
    std::array<std::uint32_t, kWindow> window = {};
    for (std::size_t i = 0; i < kWindow; ++i) {
        const std::int32_t at = first + static_cast<std::int32_t>(i);
        window[i] = static_cast<std::uint32_t>((((limb_at(at) << 32) | limb_at(at + 1)) << shift) >> 32);
    }
    return window;
}

// |x| = m 2^e with a whole m below 2^53. The bits of 2 / pi up to the (e - 2)nd contribute multiples of 4, whole turns,
// and are left out; the 448 after those give |x| 2 / pi modulo 4 with an error below m 2^(2 - 448) < 2^-393. No double
// is closer than 2^-62 to a multiple of pi / 2 (but 0), so that the rest is good to 2^-330 of itself.
Reduced reduce(double x)
{
    const auto bits = std::bit_cast<std::uint64_t>(x) & 0x7FFFFFFFFFFFFFFFu;
    const auto biased = static_cast<std::int32_t>(bits >> 52);
    if (biased < 1022) // |x| < 1/2
        return {0, wide(x)};
    const std::uint64_t m = (bits & 0xFFFFFFFFFFFFFu) | 0x10000000000000u;
    const auto window = two_over_pi(biased - 1075 - 2);
    // m times the window, modulo 4: what leaves at the front is whole turns.
    std::array<std::uint32_t, kWindow> product = {};
    for (std::size_t half = 0; half < 2; ++half) {
        const std::uint64_t digit = half == 0 ? m & 0xFFFFFFFFu : m >> 32;
        std::uint64_t carry = 0;
        for (std::size_t i = kWindow - half; i-- > 0;) {
            carry += digit * window[i + half] + product[i];
            product[i] = static_cast<std::uint32_t>(carry & 0xFFFFFFFFu);
            carry >>= 32;
        }
    }
    // Two bits before the binary point, then the fraction.
    std::uint32_t quadrant = product[0] >> 30;
    product[0] &= 0x3FFFFFFFu;
    WideNumber fraction = wide_from_limbs(product.data(), static_cast<int>(kWindow), 2, false);
    if (fraction.exponent == 0) { // at least a half; no x is a multiple of pi / 2, so that it is not 0
        fraction = fraction - wide(1.0);
        ++quadrant;
    }
    const WideNumber rest = scale(fraction * quarter_pi(), 1);
    return x < 0 ? Reduced{(4 - quadrant) & 3, negate(rest)} : Reduced{quadrant & 3, rest};
}

double sine_in_quadrant(std::uint32_t quadrant, const WideNumber& rest)
{
    const SineCosine values = sine_cosine_of(rest);
    const WideNumber& value = (quadrant & 1) != 0 ? values.cosine : values.sine;
    return to_double((quadrant & 2) != 0 ? negate(value) : value);
}

// atan(y / x) for 0 < y <= x, a quotient below 2^-200 standing for its arctangent: what is missing, less than 2^-400 of
// it, is only to be known to be missing. Else with a near the angle and t = (y cos a - x sin a) / (x cos a + y sin a)
// the angle is a + atan t, and as |t| < 2^-38 a, t^9 / 9 < 2^-340 a.
WideNumber first_octant(double y, double x, double close)
{
    const WideNumber height = wide(y);
    const WideNumber width = wide(x);
    const WideNumber quotient = height / width;
    if (quotient.exponent < -200)
        return quotient - scale(quotient, -280);
    const SineCosine at = sine_cosine_of(wide(close));
    const WideNumber t = (height * at.cosine - width * at.sine) / (width * at.cosine + height * at.sine);
    const WideNumber square = t * t;
    WideNumber sum;
    for (const std::uint32_t k : {7u, 5u, 3u, 1u})
        sum = divide_small(wide(1.0), k) - square * sum;
    return wide(close) + t * sum;
}

} // namespace

double exp(double x) noexcept
{
    return to_double(exp_of(wide(x)));
}

double log(double x, double close) noexcept
{
    return to_double(log_of(x, close));
}

// Where the power is a double or the middle between two, the wide result is that but for its error; where it is not, it
// keeps away: no more than 2^117 pairs have a power within range, so that one within 2^-210 of a middle is not to be
// expected. Rounding to 210 bits first therefore finds the exact cases, and the second rounding sees them exactly.
double pow(double x, double y, double close_log) noexcept
{
    return to_double(round_to_bits(exp_of(wide(y) * log_of(x, close_log)), 210));
}

double sin(double x) noexcept
{
    const Reduced reduced = reduce(x);
    return sine_in_quadrant(reduced.quadrant, reduced.rest);
}

double cos(double x) noexcept
{
    const Reduced reduced = reduce(x);
    return sine_in_quadrant(reduced.quadrant + 1, reduced.rest);
}

double atan2(double y, double x, double close) noexcept
{
    const double height = std::fabs(y);
    const double width = std::fabs(x);
    WideNumber angle = height <= width ? first_octant(height, width, close)
                                       : scale(quarter_pi(), 1) - first_octant(width, height, close);
    if (x < 0)
        angle = scale(quarter_pi(), 2) - angle;
    const double rounded = to_double(angle);
    return y < 0 ? -rounded : rounded;
}

} // namespace panoval::elementary_wide
