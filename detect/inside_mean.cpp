// SPDX-License-Identifier: MIT
// The mean over an ellipse looks only at the pixels of its bounding box, and takes the exact test only near the
// ellipse. Lanes are pixels of a row.
//
// A pixel is inside when v = (d1 + d2) - sum, evaluated in double precision, is at most -1, or when v leaves the
// integer range, 2^31 or more. Positions are 32-bit integers, so d1 + d2 stays below 1.3e10 and its error below 1e-5.
//
// Why the box is enough: v <= -1 implies d1 + d2 < sum in real numbers, so the pixel lies within the ellipse of the
// same foci and the major axis `sum`, whose bounding box has the half sizes sqrt(a*a - fy*fy) and sqrt(a*a - fx*fx)
// around the middle of the foci, with a = sum / 2 and (fx, fy) half the way between the foci. Taking `sum` where `sum -
// 1` bounds the ellipse leaves half a pixel for the rounding of the box itself. v of 2^31 or more is the other case: d1
// + d2 is convex, so the largest v of the image is that of a corner.
//
// Why a few tests decide a row: d1 + d2 is convex along it. Between two pixels whose v is below -1 by more than the
// errors every pixel is inside, and beyond one whose v is above -1 by more, seen from a pixel inside, none is. Where
// the row is likely to enter and leave the ellipse is only guessed; a wrong guess costs the row's full test.
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
    bool has_ellipse; // pixels inside are those of the ellipse, and its row ends may be guessed
};

struct Totals {
    std::int64_t sum = 0;
    std::int64_t count = 0;
};

// The pixels that a row is likely to have inside: from the first to the last of them. Solves
// a*a * (u*u + w*w) - (u*fx + w*fy)^2 = a*a * b*b, the ellipse around the middle of its foci, for u.
class RowGuess
{
public:
    explicit RowGuess(const Foci& foci)
        : middle_x_((foci.x1 + foci.x2) / 2), middle_y_((foci.y1 + foci.y2) / 2), fx_((foci.x2 - foci.x1) / 2),
          fy_((foci.y2 - foci.y1) / 2)
    {
        const double a = (foci.sum - 1) / 2;
        const double b_squared = a * a - fx_ * fx_ - fy_ * fy_;
        half_height_squared_ = a * a - fx_ * fx_;
        ab_ = b_squared > 0 ? a * std::sqrt(b_squared) : 0;
    }

    // Not-a-number for a row beside the ellipse.
    void ends(double y, double& left, double& right) const
    {
        const double w = y - middle_y_;
        const double centre = middle_x_ + fx_ * fy_ * w / half_height_squared_;
        const double half = ab_ * std::sqrt(half_height_squared_ - w * w) / half_height_squared_;
        left = centre - half;
        right = centre + half;
    }

private:
    double middle_x_, middle_y_, fx_, fy_;
    double half_height_squared_;
    double ab_;
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

// One row of the image with what the tests of its pixels have in common.
struct Row {
    const uint8_t* pixels;
    double x1, x2, dy1_squared, dy2_squared, sum;

    Row(const uint8_t* image, size_t width, std::int32_t y, const Foci& foci)
        : pixels(image + static_cast<size_t>(y) * width), x1(foci.x1), x2(foci.x2),
          dy1_squared((y - foci.y1) * (y - foci.y1)), dy2_squared((y - foci.y2) * (y - foci.y2)), sum(foci.sum)
    {
    }

    double value(std::int32_t x) const
    {
        const double d1 = std::sqrt((x - x1) * (x - x1) + dy1_squared);
        const double d2 = std::sqrt((x - x2) * (x - x2) + dy2_squared);
        return d1 + d2 - sum;
    }
};

// Pixels first to last, of which there is at least one, each with the exact test.
void add_tested(const Row& row, std::int32_t first, std::int32_t last, Totals& totals)
{
    const D d;
    const size_t lanes = hn::Lanes(d);
    const auto count = static_cast<size_t>(last - first) + 1;
    const uint8_t* const pixels = row.pixels + first;
    const V x1 = hn::Set(d, row.x1);
    const V x2 = hn::Set(d, row.x2);
    const V dy1_squared = hn::Set(d, row.dy1_squared);
    const V dy2_squared = hn::Set(d, row.dy2_squared);
    const V focal_sum = hn::Set(d, row.sum);
    V sum = hn::Zero(d); // whole numbers, exact for every row
    V inside = hn::Zero(d);
    const auto add = [&](size_t i, V levels, M valid) HWY_ATTR {
        const V x = hn::Iota(d, static_cast<double>(first) + static_cast<double>(i));
        const M mask = hn::And(valid, is_inside(x, x1, x2, dy1_squared, dy2_squared, focal_sum));
        sum = hn::Add(sum, hn::IfThenElseZero(mask, levels));
        inside = hn::Add(inside, hn::IfThenElseZero(mask, hn::Set(d, 1.0)));
    };
    size_t i = 0;
    for (; i + lanes <= count; i += lanes)
        add(i, load_pixels(pixels + i), hn::FirstN(d, lanes));
    if (i < count) {
        uint8_t rest[hn::MaxLanes(d)] = {};
        std::memcpy(rest, pixels + i, count - i);
        add(i, load_pixels(rest), hn::FirstN(d, count - i));
    }
    totals.sum += static_cast<std::int64_t>(hn::GetLane(hn::SumOfLanes(d, sum)));
    totals.count += static_cast<std::int64_t>(hn::GetLane(hn::SumOfLanes(d, inside)));
}

// Pixels first to last, all of them inside.
void add_all(const Row& row, std::int32_t first, std::int32_t last, Totals& totals)
{
    const hn::ScalableTag<uint8_t> d;
    const hn::Repartition<uint64_t, decltype(d)> d64;
    const auto count = static_cast<size_t>(last - first) + 1;
    const uint8_t* const pixels = row.pixels + first;
    auto sums = hn::Zero(d64);
    size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d))
        sums = hn::Add(sums, hn::SumsOf8(hn::LoadU(d, pixels + i)));
    auto sum = static_cast<std::int64_t>(hn::GetLane(hn::SumOfLanes(d64, sums)));
    for (; i < count; ++i)
        sum += pixels[i];
    totals.sum += sum;
    totals.count += static_cast<std::int64_t>(count);
}

// False, with nothing added, where the guess does not hold.
bool add_by_guess(const Row& row, double left, double right, const Box& box, Totals& totals)
{
    constexpr double kSlack = 1e-4; // more than the errors of two values
    if (!(right - left > 4 && left > box.first_x - 1.0 && right < box.last_x + 1.0))
        return false;
    // At either end at least one pixel inside the box, which is left to be tested.
    const std::int32_t first = truncate_to_int(std::ceil(left)) + 1;
    const std::int32_t last = truncate_to_int(std::floor(right)) - 1;
    const std::int32_t before = std::max(first - 3, box.first_x - 1);
    const std::int32_t after = std::min(last + 3, box.last_x + 1);
    if (!(row.value(first) < -1 - kSlack && row.value(last) < -1 - kSlack))
        return false;
    if (!(row.value(before) > -1 + kSlack && row.value(after) > -1 + kSlack))
        return false;
    add_tested(row, before + 1, first - 1, totals);
    add_all(row, first, last, totals);
    add_tested(row, last + 1, after - 1, totals);
    return true;
}

void add_inside(const uint8_t* image, size_t width, const Box& box, const Foci& foci, Totals& totals)
{
    const RowGuess guess(foci);
    for (std::int32_t y = box.first_y; y <= box.last_y; ++y) {
        const Row row(image, width, y, foci);
        double left;
        double right;
        guess.ends(y, left, right);
        if (box.has_ellipse && add_by_guess(row, left, right, box, totals))
            continue;
        add_tested(row, box.first_x, box.last_x, totals);
    }
}

void add_every_pixel(const uint8_t* image, size_t width, const Box& box, Totals& totals)
{
    for (std::int32_t y = box.first_y; y <= box.last_y; ++y)
        add_all(Row(image, width, y, {}), box.first_x, box.last_x, totals);
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
HWY_EXPORT(add_every_pixel);

double focal_value(double x, double y, const Foci& foci)
{
    const double d1 = std::sqrt((x - foci.x1) * (x - foci.x1) + (y - foci.y1) * (y - foci.y1));
    const double d2 = std::sqrt((x - foci.x2) * (x - foci.x2) + (y - foci.y2) * (y - foci.y2));
    return d1 + d2 - foci.sum;
}

// Whether a pixel's value may leave the integer range.
bool may_leave_integer_range(std::int32_t width, std::int32_t height, const Foci& foci)
{
    const double right = width - 1.0;
    const double bottom = height - 1.0;
    const double largest = std::max(std::max(focal_value(0, 0, foci), focal_value(right, 0, foci)),
                                    std::max(focal_value(0, bottom, foci), focal_value(right, bottom, foci)));
    return !(largest < kIntegerRange - 1);
}

double distance_from_image(double x, double y, std::int32_t width, std::int32_t height)
{
    const double dx = x - std::clamp(x, 0.0, width - 1.0);
    const double dy = y - std::clamp(y, 0.0, height - 1.0);
    return std::sqrt(dx * dx + dy * dy);
}

// Whether every pixel's value leaves the integer range: no pixel is nearer to the foci than the image is.
bool all_leave_integer_range(std::int32_t width, std::int32_t height, const Foci& foci)
{
    return distance_from_image(foci.x1, foci.y1, width, height) + distance_from_image(foci.x2, foci.y2, width, height) -
               foci.sum >
           kIntegerRange + 1;
}

// The whole pixels from centre - half to centre + half that the image has.
void clip(double centre, double half, std::int32_t size, std::int32_t& first, std::int32_t& last)
{
    first = truncate_to_int(std::clamp(std::ceil(centre - half), 0.0, static_cast<double>(size)));
    last = truncate_to_int(std::clamp(std::floor(centre + half), -1.0, size - 1.0));
}

Box bounding_box(std::int32_t width, std::int32_t height, const Foci& foci)
{
    if (foci.sum < 1) // no sum of distances is below 0
        return {0, -1, 0, -1, true};
    const double a = foci.sum / 2;
    const double fx = (foci.x2 - foci.x1) / 2;
    const double fy = (foci.y2 - foci.y1) / 2;
    Box box = {0, 0, 0, 0, true};
    clip((foci.x1 + foci.x2) / 2, std::sqrt(std::max(0.0, a * a - fy * fy)), width, box.first_x, box.last_x);
    clip((foci.y1 + foci.y2) / 2, std::sqrt(std::max(0.0, a * a - fx * fx)), height, box.first_y, box.last_y);
    return box;
}

Totals totals_inside(const std::uint8_t* image, std::int32_t width, std::int32_t height, const Foci& foci)
{
    Totals totals;
    const Box whole = {0, width - 1, 0, height - 1, false};
    if (all_leave_integer_range(width, height, foci)) {
        HWY_DYNAMIC_DISPATCH(add_every_pixel)(image, to_count(width), whole, totals);
        return totals;
    }
    const Box box = may_leave_integer_range(width, height, foci) ? whole : bounding_box(width, height, foci);
    if (box.first_x <= box.last_x)
        HWY_DYNAMIC_DISPATCH(add_inside)(image, to_count(width), box, foci, totals);
    return totals;
}

} // namespace

std::int32_t mean_inside(const std::uint8_t* image, std::int32_t width, std::int32_t height, const Foci& foci)
{
    if (width < 1 || height < 1)
        return 0;
    const Totals totals = totals_inside(image, width, height, foci);
    return totals.count == 0 ? 0 : static_cast<std::int32_t>(totals.sum / totals.count);
}

} // namespace panoval
#endif
