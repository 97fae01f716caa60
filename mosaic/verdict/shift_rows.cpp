// SPDX-License-Identifier: MIT
#include "mosaic/verdict/shift_rows.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "mosaic/verdict/shift_rows.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace panoval::mosaic::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

constexpr std::size_t kParts = 8;

template <class D>
HWY_INLINE void interpolate_vector(D d, const float* upper, const float* lower, float fx, float fy, float* out)
{
    const auto right = hn::Set(d, fx);
    const auto above = hn::LoadU(d, upper);
    const auto below = hn::LoadU(d, lower);
    const auto u = hn::Add(above, hn::Mul(right, hn::Sub(hn::LoadU(d, upper + 1), above)));
    const auto v = hn::Add(below, hn::Mul(right, hn::Sub(hn::LoadU(d, lower + 1), below)));
    hn::StoreU(hn::Add(u, hn::Mul(hn::Set(d, fy), hn::Sub(v, u))), d, out);
}

void interpolate_row(const float* upper, const float* lower, float fx, float fy, std::size_t count, float* out)
{
    const hn::ScalableTag<float> d;
    const hn::CappedTag<float, 1> one;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d))
        interpolate_vector(d, upper + i, lower + i, fx, fy, out + i);
    for (; i < count; ++i) // fewer than one vector left
        interpolate_vector(one, upper + i, lower + i, fx, fy, out + i);
}

// Parts of all sums, in memory: there are more than registers.
using Parts = float[kShiftSums][kParts];

template <class D, class V>
HWY_INLINE void add_part(D d, Parts& parts, ShiftSum sum, std::size_t lane, V value)
{
    float* const at = &parts[sum][lane];
    hn::StoreU(hn::Add(hn::LoadU(d, at), value), d, at);
}

// As many pixels as d has lanes, from i on, which is in part `lane`.
template <class D>
HWY_INLINE void add_pixels(D d, const ShiftRow& row, std::size_t i, std::size_t lane, Parts& parts)
{
    const auto half = hn::Set(d, 0.5f);
    const auto load = [&](const float* p) { return hn::LoadU(d, p); };
    const auto gradient = [&](const float* p, std::size_t step) {
        return hn::Mul(half, hn::Sub(load(p + step), load(p - step)));
    };
    const float* const first = row.first + i;
    const float* const second = row.second + i;
    const auto weight = load(row.weight + i);
    const auto a = hn::Mul(weight, load(first));
    const auto b = hn::Mul(weight, load(second));
    const auto ax = hn::Mul(weight, gradient(first, 1));
    const auto ay = hn::Mul(weight, gradient(first, row.first_stride));
    const auto bx = gradient(second, 1);
    const auto by = gradient(second, row.second_stride);
    const auto add = [&](ShiftSum sum, auto value) { add_part(d, parts, sum, lane, value); };
    add(kCount, weight);
    add(kA, a);
    add(kB, b);
    add(kAA, hn::Mul(a, a));
    add(kAB, hn::Mul(a, b));
    add(kBB, hn::Mul(b, b));
    add(kGx, ax);
    add(kGy, ay);
    add(kGxA, hn::Mul(ax, a));
    add(kGxB, hn::Mul(ax, b));
    add(kGyA, hn::Mul(ay, a));
    add(kGyB, hn::Mul(ay, b));
    add(kOwnXX, hn::Mul(ax, ax));
    add(kOwnXY, hn::Mul(ax, ay));
    add(kOwnYY, hn::Mul(ay, ay));
    add(kCommonXX, hn::Mul(ax, bx));
    add(kCommonXY, hn::Mul(half, hn::Add(hn::Mul(ax, by), hn::Mul(ay, bx))));
    add(kCommonYY, hn::Mul(ay, by));
}

void add_shift_row(const ShiftRow& row, std::array<double, kShiftSums>& sums)
{
    const hn::CappedTag<float, kParts> d;
    const hn::CappedTag<float, 1> one;
    Parts parts = {};
    std::size_t i = 0;
    for (; i + kParts <= row.count; i += kParts)
        for (std::size_t lane = 0; lane < kParts; lane += hn::Lanes(d))
            add_pixels(d, row, i + lane, lane, parts);
    for (std::size_t lane = 0; i < row.count; ++i, ++lane)
        add_pixels(one, row, i, lane, parts);
    for (std::size_t sum = 0; sum < kShiftSums; ++sum)
        for (std::size_t lane = 0; lane < kParts; ++lane)
            sums[sum] += static_cast<double>(parts[sum][lane]);
}

} // namespace panoval::mosaic::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval::mosaic
{
HWY_EXPORT(interpolate_row);
HWY_EXPORT(add_shift_row);

void interpolate_row(const float* upper, const float* lower, float fx, float fy, std::size_t count, float* out)
{
    HWY_DYNAMIC_DISPATCH(interpolate_row)(upper, lower, fx, fy, count, out);
}

void add_shift_row(const ShiftRow& row, std::array<double, kShiftSums>& sums)
{
    HWY_DYNAMIC_DISPATCH(add_shift_row)(row, sums);
}
} // namespace panoval::mosaic
#endif
