// SPDX-License-Identifier: MIT
// The mean over an ellipse looks only at the pixels of its bounding box. Each pixel there takes the exact test; lanes
// are pixels of a row.
//
// Why the box is enough. A pixel is inside when v = (d1 + d2) - sum, evaluated in double precision, is at most -1, or
// when v leaves the integer range, 2^31 or more. Positions are 32-bit integers, so d1 + d2 stays below 1.3e10 and its
// error below 1e-5. Therefore v <= -1 implies d1 + d2 < sum in real numbers: the pixel lies within the ellipse of the
// same foci and the major axis `sum`, whose bounding box has the half sizes sqrt(a*a - fy*fy) and sqrt(a*a - fx*fx)
// around the middle of the foci, with a = sum / 2 and (fx, fy) half the way between the foci. Taking `sum` where
// `sum - 1` bounds the ellipse leaves half a pixel for the rounding of the box itself. v of 2^31 or more is the other
// case: d1 + d2 is convex, so the largest v of the image is that of a corner.
#include "detect/inside_mean.h"

#include "core/numbers.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "detect/inside_mean.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#ifndef PANOVAL_DETECT_INSIDE_MEAN_TYPES
#define PANOVAL_DETECT_INSIDE_MEAN_TYPES
namespace panoval
{
namespace
{

constexpr double kIntegerRange = 2147483648.0;

// Pixels first to last, both included; empty where last is below first.
struct Box {
    std::int32_t first_x, last_x, first_y, last_y;
};

// Whole numbers, exact in a double for every image.
struct Totals {
    double sum = 0;
    double count = 0;
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
using M = hn::Mask<D>;

HWY_INLINE M is_inside(V x, V focus_x1, V focus_x2, V dy1_squared, V dy2_squared, V sum)
{
    const D d;
    const V dx1 = hn::Sub(x, focus_x1);
    const V dx2 = hn::Sub(x, focus_x2);
    const V d1 = hn::Sqrt(hn::Add(hn::Mul(dx1, dx1), dy1_squared));
    const V d2 = hn::Sqrt(hn::Add(hn::Mul(dx2, dx2), dy2_squared));
    const V value = hn::Sub(hn::Add(d1, d2), sum);
    // Everything but a value that truncates to 0 or a positive integer.
    return hn::Not(hn::And(hn::Gt(value, hn::Set(d, -1.0)), hn::Lt(value, hn::Set(d, kIntegerRange))));
}

HWY_INLINE V load_pixels(const uint8_t* pixels)
{
    const D d;
    const hn::Rebind<int32_t, D> d32;
    const hn::Rebind<uint8_t, D> d8;
    return hn::PromoteTo(d, hn::PromoteTo(d32, hn::LoadU(d8, pixels)));
}

void add_inside(const uint8_t* image, size_t width, const Box& box, const Foci& foci, Totals& totals)
{
    const D d;
    const size_t lanes = hn::Lanes(d);
    const V focus_x1 = hn::Set(d, foci.x1);
    const V focus_x2 = hn::Set(d, foci.x2);
    const V focal_sum = hn::Set(d, foci.sum);
    const auto count = static_cast<size_t>(box.last_x - box.first_x) + 1;
    V sum = hn::Zero(d);
    V inside = hn::Zero(d);
    for (std::int32_t y = box.first_y; y <= box.last_y; ++y) {
        const uint8_t* const row = image + static_cast<size_t>(y) * width + static_cast<size_t>(box.first_x);
        const double dy1 = y - foci.y1;
        const double dy2 = y - foci.y2;
        const V dy1_squared = hn::Set(d, dy1 * dy1);
        const V dy2_squared = hn::Set(d, dy2 * dy2);
        const auto add = [&](size_t i, V pixels, M valid) HWY_ATTR {
            const V x = hn::Iota(d, static_cast<double>(box.first_x) + static_cast<double>(i));
            const M mask = hn::And(valid, is_inside(x, focus_x1, focus_x2, dy1_squared, dy2_squared, focal_sum));
            sum = hn::Add(sum, hn::IfThenElseZero(mask, pixels));
            inside = hn::Add(inside, hn::IfThenElseZero(mask, hn::Set(d, 1.0)));
        };
        size_t i = 0;
        for (; i + lanes <= count; i += lanes)
            add(i, load_pixels(row + i), hn::FirstN(d, lanes));
        if (i < count) {
            uint8_t last[hn::MaxLanes(d)] = {};
            std::memcpy(last, row + i, count - i);
            add(i, load_pixels(last), hn::FirstN(d, count - i));
        }
    }
    totals.sum = hn::GetLane(hn::SumOfLanes(d, sum));
    totals.count = hn::GetLane(hn::SumOfLanes(d, inside));
}

} // namespace
} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{
namespace
{

HWY_EXPORT(add_inside);

double focal_value(double x, double y, const Foci& foci)
{
    const double d1 = std::sqrt((x - foci.x1) * (x - foci.x1) + (y - foci.y1) * (y - foci.y1));
    const double d2 = std::sqrt((x - foci.x2) * (x - foci.x2) + (y - foci.y2) * (y - foci.y2));
    return d1 + d2 - foci.sum;
}

bool may_leave_integer_range(std::int32_t width, std::int32_t height, const Foci& foci)
{
    const double right = width - 1.0;
    const double bottom = height - 1.0;
    const double largest = std::max(std::max(focal_value(0, 0, foci), focal_value(right, 0, foci)),
                                    std::max(focal_value(0, bottom, foci), focal_value(right, bottom, foci)));
    return !(largest < kIntegerRange - 1);
}

// The whole pixels from centre - half to centre + half that the image has.
void clip(double centre, double half, std::int32_t size, std::int32_t& first, std::int32_t& last)
{
    first = truncate_to_int(std::clamp(std::ceil(centre - half), 0.0, static_cast<double>(size)));
    last = truncate_to_int(std::clamp(std::floor(centre + half), -1.0, size - 1.0));
}

Box bounding_box(std::int32_t width, std::int32_t height, const Foci& foci)
{
    if (may_leave_integer_range(width, height, foci))
        return {0, width - 1, 0, height - 1};
    if (foci.sum < 1) // no sum of distances is below 0
        return {0, -1, 0, -1};
    const double a = foci.sum / 2;
    const double fx = (foci.x2 - foci.x1) / 2;
    const double fy = (foci.y2 - foci.y1) / 2;
    Box box;
    clip((foci.x1 + foci.x2) / 2, std::sqrt(std::max(0.0, a * a - fy * fy)), width, box.first_x, box.last_x);
    clip((foci.y1 + foci.y2) / 2, std::sqrt(std::max(0.0, a * a - fx * fx)), height, box.first_y, box.last_y);
    return box;
}

} // namespace

std::int32_t mean_inside(const std::uint8_t* image, std::int32_t width, std::int32_t height, const Foci& foci)
{
    if (width < 1 || height < 1)
        return 0;
    const Box box = bounding_box(width, height, foci);
    if (box.last_x < box.first_x || box.last_y < box.first_y)
        return 0;
    Totals totals;
    HWY_DYNAMIC_DISPATCH(add_inside)(image, to_count(width), box, foci, totals);
    if (totals.count == 0)
        return 0;
    return static_cast<std::int32_t>(static_cast<std::int64_t>(totals.sum) / static_cast<std::int64_t>(totals.count));
}

} // namespace panoval
#endif
