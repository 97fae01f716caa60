// SPDX-License-Identifier: MIT
// The angles' sines and cosines come from the C library one by one; everything after them is vectors whose lanes are
// samples. Integers stay doubles, in which they are exact, until the end.
#include "detect/ring_positions.h"

#include "core/elementary.h"
#include "core/numbers.h"

#include <cstddef>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "detect/ring_positions.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#ifndef PANOVAL_DETECT_RING_POSITIONS_TYPES
#define PANOVAL_DETECT_RING_POSITIONS_TYPES
namespace panoval
{
namespace
{

struct Angles {
    double cosine[kRingBatch];
    double sine[kRingBatch];
};

struct Positions {
    double x[kRingBatch];
    double y[kRingBatch];
};

} // namespace
} // namespace panoval
#endif

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace
{

namespace hn = hwy::HWY_NAMESPACE;
using D = hn::ScalableTag<double>;
using V = hn::Vec<D>;

// As truncate_to_int, but the integer stays a double.
HWY_INLINE V truncate(V value)
{
    const D d;
    const V lowest = hn::Set(d, -2147483648.0);
    const auto fits = hn::And(hn::Gt(value, hn::Set(d, -2147483649.0)), hn::Lt(value, hn::Set(d, 2147483648.0)));
    return hn::IfThenElse(fits, hn::Trunc(value), lowest);
}

// Whole vectors: what the angles hold beyond count gives positions that nobody reads.
void place(const RingShape& shape, const Angles& angles, size_t count, Positions& positions)
{
    const D d;
    const V one = hn::Set(d, 1.0);
    const V a_squared = hn::Set(d, shape.a * shape.a);
    const V b_squared = hn::Set(d, shape.b * shape.b);
    const V cosine = hn::Set(d, shape.cosine);
    const V sine = hn::Set(d, shape.sine);
    for (size_t i = 0; i < count; i += hn::Lanes(d)) {
        const V c = hn::LoadU(d, angles.cosine + i);
        const V s = hn::LoadU(d, angles.sine + i);
        const V sum = hn::Add(hn::Div(hn::Mul(c, c), a_squared), hn::Div(hn::Mul(s, s), b_squared));
        const V radius = truncate(hn::Sqrt(hn::Div(one, sum)));
        const V dx = truncate(hn::Mul(radius, c));
        const V dy = truncate(hn::Mul(radius, s));
        const V x = hn::Add(hn::Sub(hn::Mul(dx, cosine), hn::Mul(dy, sine)), hn::Set(d, shape.x));
        const V y = hn::Add(hn::Add(hn::Mul(dy, cosine), hn::Mul(dx, sine)), hn::Set(d, shape.y));
        hn::StoreU(truncate(x), d, positions.x + i);
        hn::StoreU(truncate(y), d, positions.y + i);
    }
}

} // namespace
} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{
namespace
{

HWY_EXPORT(place);

constexpr double kTwoPi = 6.283185307179586;
static_assert(kRingBatch % 8 == 0, "whole vectors of every instruction set");

} // namespace

void ring_positions(const RingShape& shape, std::int32_t first, std::int32_t count, std::int32_t all, std::int32_t* x,
                    std::int32_t* y)
{
    Angles angles = {};
    for (std::int32_t i = 0; i < count; ++i) {
        const double phi = ((first + i) * kTwoPi) / all;
        angles.cosine[i] = panoval::cos(phi);
        angles.sine[i] = panoval::sin(phi);
    }
    Positions positions = {};
    HWY_DYNAMIC_DISPATCH(place)(shape, angles, to_count(count), positions);
    for (std::int32_t i = 0; i < count; ++i) {
        x[i] = truncate_to_int(positions.x[i]);
        y[i] = truncate_to_int(positions.y[i]);
    }
}

} // namespace panoval
#endif
