// SPDX-License-Identifier: MIT
// The edge detector's non-maximum suppression: a pixel stays a candidate where its magnitude is above those
// interpolated on either side along the gradient.
//
// With p the neighbour in the direction of the larger difference and q the diagonal one beside it, both on one side,
// the interpolated difference of that side is (p - m) * larger / m + (q - p) * smaller / m, each product rounded to
// double (larger and smaller without sign; all eight directions come down to this). Its sign decides.
//
// The sign of the rounded sum is that of the integer s = (p - m) * larger + (q - p) * smaller where s is not 0:
// quotient and product round by 2^-53 each, of terms that are together below 1.5e9 / m, so the sum is off by less than
// 4e-7 / m, and |s| / m is at least 1 / m. Where s is 0 but its terms are not, the rounded terms need not cancel:
// these pixels, few in a photograph, are decided in double.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "filter/canny_suppression.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set

#include <hwy/highway.h>

#include "filter/canny.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

inline double side(int p_minus_m, int q_minus_p, double larger, double smaller)
{
    return p_minus_m * larger + q_minus_p * smaller;
}

// One pixel in double.
inline std::uint8_t mark_of_pixel(const std::int16_t* z, std::ptrdiff_t n, int gx, int gy)
{
    const int m = z[0];
    if (m == 0)
        return kNoEdge;
    const bool along_x = std::abs(gx) >= std::abs(gy);
    const std::ptrdiff_t back_x = gx >= 0 ? -1 : 1;
    const std::ptrdiff_t back_y = gy >= 0 ? -n : n;
    const std::ptrdiff_t p = along_x ? back_x : back_y;
    const std::ptrdiff_t q = back_x + back_y;
    const double larger = std::max(std::abs(gx), std::abs(gy)) / static_cast<double>(m);
    const double smaller = std::min(std::abs(gx), std::abs(gy)) / static_cast<double>(m);
    const double mag1 = side(z[p] - m, z[q] - z[p], larger, smaller);
    const double mag2 = side(z[-p] - m, z[-q] - z[-p], larger, smaller);
    return mag1 > 0 || mag2 >= 0 ? kNoEdge : kCandidate;
}

#if HWY_TARGET == HWY_SCALAR
// One lane has no pairs to interleave, and nothing to gain.
inline std::size_t suppress_vectors(const std::int16_t*, const std::int16_t*, const std::int16_t*, std::size_t,
                                    std::uint8_t*)
{
    return 1;
}
#else
// Of two opposite neighbours the one that lies against the gradient, and the other. before is left of or above the
// pixel.
template <class M, class V>
HWY_INLINE std::pair<V, V> along_gradient(M points_back, V before, V after)
{
    return {hn::IfThenElse(points_back, after, before), hn::IfThenElse(points_back, before, after)};
}

// For each pixel s of one side, with its sign and zeros kept but cut off at 16 bits; tie where its terms cancel.
template <class D16, class V, class M = hn::Mask<D16>>
HWY_INLINE V sign_of_side(D16 d16, V m, V p, V q, V slopes_lower, V slopes_upper, M& tie)
{
    const hn::Repartition<std::int32_t, D16> d32;
    const auto pm = hn::Sub(p, m);
    const auto qp = hn::Sub(q, p);
    const auto sum_of_pairs = [d32](auto a, auto b) HWY_ATTR {
        auto odd = hn::Zero(d32);
        const auto even = hn::ReorderWidenMulAccumulate(d32, a, b, hn::Zero(d32), odd);
        return hn::RearrangeToOddPlusEven(even, odd);
    };
    const auto lower = sum_of_pairs(hn::InterleaveLower(d16, pm, qp), slopes_lower);
    const auto upper = sum_of_pairs(hn::InterleaveUpper(d16, pm, qp), slopes_upper);
    const auto s = hn::ReorderDemote2To(d16, lower, upper); // in the pixels' order, as interleaving is undone
    tie = hn::AndNot(hn::Eq(pm, hn::Zero(d16)), hn::Eq(s, hn::Zero(d16)));
    return s;
}

// Marks the vector of pixels at z; returns which of them have to be decided in double.
template <class D16, class V = hn::Vec<D16>, class M = hn::Mask<D16>>
HWY_INLINE M mark_vector(D16 d16, const std::int16_t* z, std::ptrdiff_t n, V gx, V gy, std::uint8_t* map)
{
    const auto at = [d16, z](std::ptrdiff_t offset) HWY_ATTR { return hn::LoadU(d16, z + offset); };
    const auto zero = hn::Zero(d16);
    const auto m = at(0);
    const auto abs_x = hn::Abs(gx);
    const auto abs_y = hn::Abs(gy);
    const auto along_y = hn::Lt(abs_x, abs_y);
    const auto left = hn::Lt(gx, zero);
    const auto up = hn::Lt(gy, zero);
    const auto [x1, x2] = along_gradient(left, at(-1), at(1));
    const auto [y1, y2] = along_gradient(up, at(-n), at(n));
    const auto p1 = hn::IfThenElse(along_y, y1, x1);
    const auto p2 = hn::IfThenElse(along_y, y2, x2);
    const auto rising = hn::Xor(left, up); // towards the upper right or the lower left
    const auto left_q = hn::IfThenElse(rising, at(n - 1), at(-n - 1));
    const auto right_q = hn::IfThenElse(rising, at(-n + 1), at(n + 1));
    const auto [q1, q2] = along_gradient(left, left_q, right_q);

    const auto larger = hn::Max(abs_x, abs_y);
    const auto smaller = hn::Min(abs_x, abs_y);
    const auto slopes_lower = hn::InterleaveLower(d16, larger, smaller);
    const auto slopes_upper = hn::InterleaveUpper(d16, larger, smaller);
    M tie1;
    M tie2;
    const auto s1 = sign_of_side(d16, m, p1, q1, slopes_lower, slopes_upper, tie1);
    const auto s2 = sign_of_side(d16, m, p2, q2, slopes_lower, slopes_upper, tie2);

    const auto is_flat = hn::Eq(m, zero);
    const auto is_maximum = hn::AndNot(hn::Or(hn::Gt(s1, zero), is_flat), hn::Lt(s2, zero));
    const hn::Rebind<std::uint8_t, D16> d8;
    const auto marks = hn::IfThenElse(is_maximum, hn::Set(d16, kCandidate), hn::Set(d16, kNoEdge));
    hn::StoreU(hn::DemoteTo(d8, marks), d8, map);
    return hn::AndNot(is_flat, hn::Or(tie1, tie2));
}

// All whole vectors from pixel 1 on; returns the first pixel after them.
inline std::size_t suppress_vectors(const std::int16_t* magnitude, const std::int16_t* delta_x,
                                    const std::int16_t* delta_y, std::size_t cols, std::uint8_t* map)
{
    const hn::ScalableTag<std::int16_t> d16;
    const auto n = static_cast<std::ptrdiff_t>(cols);
    std::size_t x = 1;
    for (; x + hn::Lanes(d16) <= cols - 2; x += hn::Lanes(d16)) {
        const auto gx = hn::LoadU(d16, delta_x + x);
        const auto gy = hn::LoadU(d16, delta_y + x);
        const auto ties = mark_vector(d16, magnitude + x, n, gx, gy, map + x);
        if (HWY_LIKELY(hn::AllFalse(d16, ties)))
            continue;
        HWY_ALIGN std::int16_t is_tie[HWY_MAX_BYTES / sizeof(std::int16_t)];
        hn::Store(hn::VecFromMask(d16, ties), d16, is_tie);
        for (std::size_t i = 0; i < hn::Lanes(d16); ++i)
            if (is_tie[i] != 0)
                map[x + i] = mark_of_pixel(magnitude + x + i, n, delta_x[x + i], delta_y[x + i]);
    }
    return x;
}
#endif

void suppression_row(const std::int16_t* magnitude, const std::int16_t* delta_x, const std::int16_t* delta_y,
                     std::size_t cols, std::uint8_t* map)
{
    const auto n = static_cast<std::ptrdiff_t>(cols);
    for (std::size_t x = suppress_vectors(magnitude, delta_x, delta_y, cols, map); x + 2 < cols; ++x)
        map[x] = mark_of_pixel(magnitude + x, n, delta_x[x], delta_y[x]);
}

} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{
HWY_EXPORT(suppression_row);

void canny_non_max_suppression(const std::int16_t* magnitude, const std::int16_t* delta_x, const std::int16_t* delta_y,
                               std::size_t cols, std::uint8_t* map)
{
    HWY_DYNAMIC_DISPATCH(suppression_row)(magnitude, delta_x, delta_y, cols, map);
}

namespace
{

// The direction that flat pixels inherit. It is that of no pixel at first, which makes no flat pixel a candidate.
struct Direction {
    int gx = 0;
    int gy = 0;
    double xperp = 0;
    double yperp = 0;
};

// The mark of a pixel of magnitude 0 with a direction that need not be its own: the signs of xperp and yperp are not
// tied to the case that gx and gy select, so every case stands for itself. n is the row length.
std::uint8_t mark_of_flat_pixel(const std::int16_t* z, std::ptrdiff_t n, const Direction& d)
{
    const bool along_x = d.gx < 0 && d.gy < 0 ? -d.gx > -d.gy : std::abs(d.gx) >= std::abs(d.gy);
    const std::ptrdiff_t back_x = d.gx >= 0 ? -1 : 1;
    const std::ptrdiff_t back_y = d.gy >= 0 ? -n : n;
    const std::ptrdiff_t p = along_x ? back_x : back_y;
    const std::ptrdiff_t q = back_x + back_y;
    // xperp is -gx / m: its factor is (m - p) or (p - q) where gx points right, the negative of that where left.
    const int sign_x = d.gx >= 0 ? -1 : 1;
    const int sign_y = d.gy >= 0 ? 1 : -1;
    const auto interpolate = [&](std::ptrdiff_t near, std::ptrdiff_t diagonal) {
        const int to_near = z[near] - z[0];
        const int to_diagonal = z[diagonal] - z[near];
        const int x_factor = sign_x * (along_x ? to_near : to_diagonal);
        const int y_factor = sign_y * (along_x ? to_diagonal : to_near);
        return x_factor * d.xperp + y_factor * d.yperp;
    };
    return interpolate(p, q) > 0 || interpolate(-p, -q) >= 0 ? kNoEdge : kCandidate;
}

} // namespace

void canny_mark_flat_pixels(const std::int16_t* magnitude, const std::int16_t* delta_x, const std::int16_t* delta_y,
                            std::int32_t rows, std::int32_t cols, std::uint8_t* edge)
{
    const std::ptrdiff_t n = cols;
    Direction direction;
    for (std::int32_t r = 1; r <= rows - 3; ++r)
        for (std::ptrdiff_t pos = r * n + 1; pos <= r * n + n - 3; ++pos) {
            const int m = magnitude[pos];
            if (m != 0) {
                const int gx = delta_x[pos];
                const int gy = delta_y[pos];
                direction = {gx, gy, -gx / static_cast<double>(m), gy / static_cast<double>(m)};
                continue;
            }
            if (direction.gx < 0)
                direction.gy = delta_y[pos]; // towards the left the case is chosen by the pixel's own difference
            edge[pos] = mark_of_flat_pixel(magnitude + pos, n, direction);
        }
}

} // namespace panoval
#endif
