// SPDX-License-Identifier: MIT
// The samples around a target and their parts.
#include "measure/patch.h"

#include "core/numbers.h"
#include "measure/picture.h"

#include <algorithm>
#include <cmath>

namespace panoval::measure
{

namespace
{

// The median of normally distributed deviations' sizes, as a share of the standard deviation, turned over.
constexpr double kMedianToSigma = 1.4826;

// A sample further from its plane than so many deviations is of something else: one in 300,000 samples of noise.
constexpr double kClip = 4.7;
constexpr int kClipRounds = 4;
constexpr std::size_t kMedianSamples = 4000;

double median(float* values, std::size_t count) noexcept
{
    float* const middle = values + count / 2;
    std::nth_element(values, middle, values + count);
    return static_cast<double>(*middle);
}

Part part_at(const DistanceTo& distance_to_outline, double x, double y, const Reach& reach) noexcept
{
    const DistanceTo::Place place = distance_to_outline.place(x, y);
    if (place.depth > reach.edge_inside)
        return place.depth <= reach.flat_inside ? Part::kInside : Part::kNone;
    const double distance = distance_to_outline.distance(place);
    if (distance <= reach.edge_outside)
        return Part::kEdge;
    return distance <= reach.flat_outside ? Part::kOutside : Part::kNone;
}

} // namespace

void PlaneSums::add(double dx, double dy, double value) noexcept
{
    const double d = value - origin;
    count += 1;
    x += dx;
    y += dy;
    xx += dx * dx;
    xy += dx * dy;
    yy += dy * dy;
    v += d;
    vx += d * dx;
    vy += d * dy;
    vv += d * d;
}

double PlaneSums::squared_residuals(const LevelPlane& plane) const noexcept
{
    const double l = plane.level - origin;
    const double gx = plane.slope_x;
    const double gy = plane.slope_y;
    const double cross = l * v + gx * vx + gy * vy;
    const double square = l * (l * count + 2 * gx * x + 2 * gy * y) + gx * gx * xx + 2 * gx * gy * xy + gy * gy * yy;
    return std::max(0.0, vv - 2 * cross + square);
}

bool PlaneSums::fit(LevelPlane& plane) const noexcept
{
    plane = {origin, 0, 0};
    if (count < 1)
        return false;
    const double mx = x / count;
    const double my = y / count;
    const double mv = v / count;
    const double cxx = xx - x * mx;
    const double cxy = xy - x * my;
    const double cyy = yy - y * my;
    const double determinant = cxx * cyy - cxy * cxy;
    plane.level = origin + mv;
    if (count < 6 || !(determinant > 1e-6 * cxx * cyy))
        return false;
    const double cvx = vx - v * mx;
    const double cvy = vy - v * my;
    plane.slope_x = (cvx * cyy - cvy * cxy) / determinant;
    plane.slope_y = (cvy * cxx - cvx * cxy) / determinant;
    plane.level -= plane.slope_x * mx + plane.slope_y * my;
    return true;
}

bool Patch::copy(const PanovalMeasureImage& image, const Box& box) noexcept
{
    box_ = box;
    picture_width_ = image.width;
    picture_height_ = image.height;
    if (size() > capacity_) {
        samples_ = allocate<float>(size());
        parts_ = allocate<Part>(size());
        scratch_ = allocate<float>(size());
        capacity_ = samples_ && parts_ && scratch_ ? size() : 0;
        if (capacity_ == 0)
            return false;
    }
    if (to_count(box.height) > span_capacity_) {
        spans_ = allocate<Span>(to_count(box.height));
        span_capacity_ = spans_ ? to_count(box.height) : 0;
        if (span_capacity_ == 0)
            return false;
    }
    std::fill_n(spans_.get(), box.height, Span{});
    const std::int32_t first_x = std::max(box.x, 0);
    const std::int32_t end_x = std::min(box.x + box.width, image.width);
    for (std::int32_t y = box.y; y < box.y + box.height; ++y) {
        float* const row = samples_.get() + index(box.x, y);
        std::fill_n(row, box.width, 0.0f);
        if (y >= 0 && y < image.height && first_x < end_x)
            read_samples(image, first_x, y, end_x - first_x, row + (first_x - box.x));
    }
    std::fill_n(parts_.get(), size(), Part::kNone);
    return true;
}

bool Patch::is_in_picture(std::int32_t x, std::int32_t y) const noexcept
{
    return x >= 0 && y >= 0 && x < picture_width_ && y < picture_height_;
}

bool Patch::interpolate(double x, double y, double& value) const noexcept
{
    const double left = std::floor(x);
    const double top = std::floor(y);
    if (!(left >= std::max(box_.x, 0)) || !(top >= std::max(box_.y, 0)) ||
        !(left <= std::min(box_.x + box_.width, picture_width_) - 2) ||
        !(top <= std::min(box_.y + box_.height, picture_height_) - 2))
        return false;
    const float* const corner = samples_.get() + index(truncate_to_int(left), truncate_to_int(top));
    const double fx = x - left;
    const double fy = y - top;
    const auto at = [corner](std::int32_t i) { return static_cast<double>(corner[i]); };
    const double upper = at(0) + fx * (at(1) - at(0));
    const double lower = at(box_.width) + fx * (at(box_.width + 1) - at(box_.width));
    value = upper + fy * (lower - upper);
    return std::isfinite(value);
}

void Patch::classify(const Outline& outline, const Reach& reach) noexcept
{
    const double far = std::max(reach.edge_outside, reach.flat_outside);
    const DistanceTo distance_to_outline(outline);
    const double half_width = outline.half_width() + far;
    const double half_height = outline.half_height() + far;
    const auto pixel = [](double place) { return truncate_to_int(place); };
    const std::int32_t begin = std::max({box_.x, 0, pixel(std::ceil(outline.x - half_width))});
    const std::int32_t end =
        std::min({box_.x + box_.width, picture_width_, pixel(std::floor(outline.x + half_width)) + 1});
    const std::int32_t top = std::max({box_.y, 0, pixel(std::ceil(outline.y - half_height))});
    const std::int32_t bottom =
        std::min({box_.y + box_.height, picture_height_, pixel(std::floor(outline.y + half_height)) + 1});
    std::fill_n(parts_.get(), size(), Part::kNone);
    std::fill_n(spans_.get(), box_.height, Span{});
    has_aliens_ = false;
    for (std::int32_t y = top; y < bottom; ++y) {
        Span& span = spans_[to_count(y - box_.y)];
        for (std::int32_t x = begin; x < end; ++x) {
            const Part part = part_at(distance_to_outline, x, y, reach);
            parts_[index(x, y)] = part != Part::kNone && !std::isfinite(sample(x, y)) ? Part::kAlien : part;
            has_aliens_ = has_aliens_ || parts_[index(x, y)] == Part::kAlien;
            if (part != Part::kEdge)
                continue;
            span.begin = span.end == 0 ? x : span.begin;
            span.end = x + 1;
        }
    }
}

template <class Measure>
double Patch::median_of(Part part, const Measure& measure) noexcept
{
    // The median of some thousand samples is as good as that of all.
    const std::size_t every = size() / kMedianSamples + 1;
    std::size_t count = 0;
    std::size_t seen = 0;
    for (std::int32_t y = box_.y; y < box_.y + box_.height; ++y)
        for (std::int32_t x = box_.x; x < box_.x + box_.width; ++x)
            if (parts_[index(x, y)] == part && seen++ % every == 0)
                scratch_[count++] = static_cast<float>(measure(x, y));
    return count > 0 ? median(scratch_.get(), count) : 0;
}

PlaneSums Patch::sum_flat(Part part, double reference_x, double reference_y, const LevelPlane& plane, double limit,
                          bool excludes, bool& has_aliens) noexcept
{
    PlaneSums sums;
    sums.origin = plane.level;
    has_aliens = false;
    for (std::int32_t y = box_.y; y < box_.y + box_.height; ++y)
        for (std::int32_t x = box_.x; x < box_.x + box_.width; ++x) {
            if (parts_[index(x, y)] != part)
                continue;
            const double dx = x - reference_x;
            const double dy = y - reference_y;
            const auto value = static_cast<double>(sample(x, y));
            if (std::fabs(value - plane.at(dx, dy)) <= limit) {
                sums.add(dx, dy, value);
                continue;
            }
            has_aliens = true;
            has_aliens_ = true;
            if (excludes)
                parts_[index(x, y)] = Part::kAlien;
        }
    return sums;
}

PlaneSums Patch::fit_flat(Part part, double reference_x, double reference_y, double least_spread, LevelPlane& plane,
                          double& spread) noexcept
{
    PlaneSums sums;
    bool has_aliens = true;
    // A level first that others' samples do not pull away.
    plane = {median_of(part, [this](std::int32_t x, std::int32_t y) { return static_cast<double>(sample(x, y)); }), 0,
             0};
    for (int round = 1; round <= kClipRounds && has_aliens; ++round) {
        const double middle = median_of(part, [&](std::int32_t x, std::int32_t y) {
            return std::fabs(static_cast<double>(sample(x, y)) - plane.at(x - reference_x, y - reference_y));
        });
        const double limit = kClip * std::max(kMedianToSigma * middle, least_spread);
        const bool is_last = round == kClipRounds;
        sums = sum_flat(part, reference_x, reference_y, plane, limit, is_last, has_aliens);
        if (is_last && has_aliens) {
            grow_aliens(part);
            sums = sum_flat(part, reference_x, reference_y, plane, HUGE_VAL, false, has_aliens);
        }
        sums.fit(plane);
    }
    const double freedom = sums.count - 3;
    spread = freedom > 0 ? std::sqrt(sums.squared_residuals(plane) / freedom) : 0;
    return sums;
}

void Patch::grow_aliens(Part part) noexcept
{
    // Marks first, so that what is grown does not grow.
    for (std::size_t i = 0; i < size(); ++i)
        scratch_[i] = parts_[i] == Part::kAlien ? 1.0f : 0.0f;
    for (std::int32_t y = 0; y < box_.height; ++y)
        for (std::int32_t x = 0; x < box_.width; ++x) {
            const std::size_t here = static_cast<std::size_t>(y) * static_cast<std::size_t>(box_.width) + to_count(x);
            if (scratch_[here] <= 0)
                continue;
            for (std::int32_t ny = std::max(y - 1, 0); ny <= std::min(y + 1, box_.height - 1); ++ny)
                for (std::int32_t nx = std::max(x - 1, 0); nx <= std::min(x + 1, box_.width - 1); ++nx) {
                    Part& other =
                        parts_[static_cast<std::size_t>(ny) * static_cast<std::size_t>(box_.width) + to_count(nx)];
                    if (other == part)
                        other = Part::kAlien;
                }
        }
}

} // namespace panoval::measure
