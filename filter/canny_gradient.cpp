// SPDX-License-Identifier: MIT
// The edge detector's differences and their magnitude, on rows of 16-bit values.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "filter/canny_gradient.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set

#include <hwy/highway.h>

#include "core/numbers.h"
#include "filter/canny.h"

#include <cmath>

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

inline std::int16_t difference(std::int16_t a, std::int16_t b)
{
    return static_cast<std::int16_t>(low_half(a - b));
}

// out[i] = plus[i] - minus[i]
void subtract_row(const std::int16_t* plus, const std::int16_t* minus, std::size_t count, std::int16_t* out)
{
    const hn::ScalableTag<std::int16_t> d;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d))
        hn::StoreU(hn::Sub(hn::LoadU(d, plus + i), hn::LoadU(d, minus + i)), d, out + i);
    for (; i < count; ++i)
        out[i] = difference(plus[i], minus[i]);
}

void derivatives_row(const std::int16_t* above, const std::int16_t* row, const std::int16_t* below, std::size_t cols,
                     std::int16_t* delta_x, std::int16_t* delta_y)
{
    delta_x[0] = difference(row[1], row[0]);
    subtract_row(row + 2, row, cols - 2, delta_x + 1);
    delta_x[cols - 1] = difference(row[cols - 1], row[cols - 2]);
    subtract_row(below, above, cols, delta_y);
}

#if HWY_TARGET == HWY_SCALAR
// One lane has no pairs to interleave, and nothing to gain.
inline std::size_t magnitude_vectors(const std::int16_t*, const std::int16_t*, std::size_t, std::int16_t*)
{
    return 0;
}
#else
// The root of n, rounded, for 0 <= n <= 2 * 22950^2.
//
// The single-precision root is off by less than 0.005: the conversion of n and the root each round by 2^-25 of a value
// up to 32456, and so does the sum with 0.49. Cut off after adding 0.49 it is therefore the rounded root m or m - 1.
// Which of them tells the integer n: the root is above k + 1/2 where n is above k^2 + k.
template <class D32, class V = hn::Vec<D32>>
HWY_INLINE V rounded_root(D32 d32, V n)
{
    const hn::Rebind<float, D32> df;
    const auto root = hn::Sqrt(hn::ConvertTo(df, n));
    const auto guess = hn::ConvertTo(d32, hn::Add(root, hn::Set(df, 0.49f)));
    const auto last_of_guess = hn::Add(hn::Mul(guess, guess), guess);
    return hn::Sub(guess, hn::VecFromMask(d32, hn::Gt(n, last_of_guess)));
}

// All whole vectors of a row; returns how many pixels they hold.
inline std::size_t magnitude_vectors(const std::int16_t* delta_x, const std::int16_t* delta_y, std::size_t count,
                                     std::int16_t* magnitude)
{
    const hn::ScalableTag<std::int16_t> d16;
    const hn::Repartition<std::int32_t, decltype(d16)> d32;
    // Two interleaved vectors are squared and added in pairs, which only the rearrangement promises. Interleaving and
    // narrowing both work inside blocks of 128 bits, so that the order of the pixels comes back.
    const auto root_of_pairs = [d32](auto pairs) HWY_ATTR {
        auto odd = hn::Zero(d32);
        const auto even = hn::ReorderWidenMulAccumulate(d32, pairs, pairs, hn::Zero(d32), odd);
        return rounded_root(d32, hn::RearrangeToOddPlusEven(even, odd));
    };
    std::size_t i = 0;
    for (; i + hn::Lanes(d16) <= count; i += hn::Lanes(d16)) {
        const auto x = hn::LoadU(d16, delta_x + i);
        const auto y = hn::LoadU(d16, delta_y + i);
        const auto lower = root_of_pairs(hn::InterleaveLower(d16, x, y));
        const auto upper = root_of_pairs(hn::InterleaveUpper(d16, x, y));
        hn::StoreU(hn::ReorderDemote2To(d16, lower, upper), d16, magnitude + i);
    }
    return i;
}
#endif

void magnitude_row(const std::int16_t* delta_x, const std::int16_t* delta_y, std::size_t count, std::int16_t* magnitude)
{
    for (std::size_t i = magnitude_vectors(delta_x, delta_y, count, magnitude); i < count; ++i) {
        const double sum = static_cast<double>(delta_x[i] * delta_x[i]) + static_cast<double>(delta_y[i] * delta_y[i]);
        magnitude[i] = static_cast<std::int16_t>(low_half(truncate_to_int(std::sqrt(sum) + 0.5)));
    }
}

} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{
HWY_EXPORT(derivatives_row);
HWY_EXPORT(magnitude_row);

void canny_derivatives(const std::int16_t* above, const std::int16_t* row, const std::int16_t* below, std::size_t cols,
                       std::int16_t* delta_x, std::int16_t* delta_y)
{
    HWY_DYNAMIC_DISPATCH(derivatives_row)(above, row, below, cols, delta_x, delta_y);
}

void canny_magnitude(const std::int16_t* delta_x, const std::int16_t* delta_y, std::size_t count,
                     std::int16_t* magnitude)
{
    HWY_DYNAMIC_DISPATCH(magnitude_row)(delta_x, delta_y, count, magnitude);
}

} // namespace panoval
#endif
