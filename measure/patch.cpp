// SPDX-License-Identifier: MIT
// The samples around a target and their parts.
#include "measure/patch.h"

#include "core/numbers.h"
#include "measure/picture.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace panoval::measure
{

namespace
{

// The median of normally distributed deviations' sizes, as a share of the standard deviation, turned over.
constexpr double kMedianToSigma = 1.4826;

// A sample further from its plane than so many deviations is of something else: one in 300,000 samples of noise.
constexpr double kClip = 4.7;
constexpr int kClipRounds = 4;

double median(float* values, std::size_t count) noexcept
{
    float* const middle = values + count / 2;
    std::nth_element(values, middle, values + count);
    return static_cast<double>(*middle);
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

bool Patch::has_edge(std::int32_t y) const noexcept
{
    return std::memchr(parts(y), static_cast<int>(Part::kEdge), to_count(box_.width)) != nullptr;
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

void Patch::classify(const Outline& outline, double edge_reach, double flat_reach) noexcept
{
    const double far = edge_reach + flat_reach;
    const double a = outline.mean + outline.skew_x;
    const double b = outline.skew_y;
    const double c = outline.mean - outline.skew_x;
    const double half_height = std::sqrt(b * b + c * c) + far;
    const double half_width = std::sqrt(a * a + b * b) + far;
    std::fill_n(parts_.get(), size(), Part::kNone);
    for (std::int32_t y = box_.y; y < box_.y + box_.height; ++y) {
        if (y < 0 || y >= picture_height_ || std::fabs(y - outline.y) > half_height)
            continue;
        for (std::int32_t x = std::max(box_.x, 0); x < std::min(box_.x + box_.width, picture_width_); ++x) {
            if (std::fabs(x - outline.x) > half_width)
                continue;
            const double distance = distance_to(outline, x, y);
            if (std::fabs(distance) > far)
                continue;
            Part& place = parts_[index(x, y)];
            if (!std::isfinite(sample(x, y)))
                place = Part::kAlien;
            else if (distance > -edge_reach ? distance <= edge_reach : depth_in(outline, x, y) <= edge_reach)
                place = Part::kEdge;
            else
                place = distance < 0 ? Part::kInside : Part::kOutside;
        }
    }
}

PlaneSums Patch::fit_flat(Part part, double reference_x, double reference_y, double least_spread, LevelPlane& plane,
                          double& spread) noexcept
{
    PlaneSums sums;
    for (int round = 0; round < kClipRounds; ++round) {
        std::size_t count = 0;
        for (std::int32_t y = box_.y; y < box_.y + box_.height; ++y)
            for (std::int32_t x = box_.x; x < box_.x + box_.width; ++x)
                if (parts_[index(x, y)] == part)
                    scratch_[count++] = static_cast<float>(
                        std::fabs(static_cast<double>(sample(x, y)) - plane.at(x - reference_x, y - reference_y)));
        sums = {};
        sums.origin = plane.level;
        if (count == 0)
            return sums;
        const double limit = kClip * std::max(kMedianToSigma * median(scratch_.get(), count), least_spread);
        bool has_aliens = false;
        for (std::int32_t y = box_.y; y < box_.y + box_.height; ++y)
            for (std::int32_t x = box_.x; x < box_.x + box_.width; ++x) {
                if (parts_[index(x, y)] != part)
                    continue;
                const double dx = x - reference_x;
                const double dy = y - reference_y;
                const auto value = static_cast<double>(sample(x, y));
                if (std::fabs(value - plane.at(dx, dy)) <= limit) {
                    sums.add(dx, dy, value);
                } else if (round == kClipRounds - 1) {
                    parts_[index(x, y)] = Part::kAlien;
                    has_aliens = true;
                }
            }
        if (has_aliens) {
            grow_aliens(part);
            sums = {};
            sums.origin = plane.level;
            for (std::int32_t y = box_.y; y < box_.y + box_.height; ++y)
                for (std::int32_t x = box_.x; x < box_.x + box_.width; ++x)
                    if (parts_[index(x, y)] == part)
                        sums.add(x - reference_x, y - reference_y, static_cast<double>(sample(x, y)));
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
