// SPDX-License-Identifier: MIT
// The coverage model. The outline is sampled in pairs at equal heights: angles from the top, so that the right half
// runs down, and the left half back up through the same heights. A pair shares its factors in y, and the pairs that
// reach a row of pixels are neighbours.
#include "measure/outline_model.h"

#include "core/numbers.h"
#include "measure/normal_table.h"

#include <algorithm>
#include <cmath>

namespace panoval::measure
{

namespace
{

constexpr double kPi = 3.14159265358979323846;

// Distance of samples along the outline, in blurs. Sampling a Gaussian at so many deviations leaves a ripple of
// 2 exp(-2 (pi / 1.2)^2) = 2e-6.
constexpr double kSpacing = 1.2;

double cosine_of_small(double angle) noexcept
{
    const double square = angle * angle;
    double sum = 1;
    for (int n = 18; n >= 2; n -= 2)
        sum = 1 - square / (n * (n - 1)) * sum;
    return sum;
}

double sine_of_small(double angle) noexcept
{
    const double square = angle * angle;
    double sum = 1;
    for (int n = 19; n >= 3; n -= 2)
        sum = 1 - square / (n * (n - 1)) * sum;
    return angle * sum;
}

std::size_t window_of(double blur) noexcept
{
    return to_count(truncate_to_int(2 * (0.5 + kReach * blur))) + 1;
}

// An even number of samples.
std::size_t pairs_of(double semi_major, double blur) noexcept
{
    return to_count(truncate_to_int(kPi * semi_major / (kSpacing * blur))) + 8;
}

std::int32_t first_pixel(double position, double blur) noexcept
{
    return truncate_to_int(std::ceil(position - (0.5 + kReach * blur)));
}

} // namespace

// A pair of samples: [0] on the right half of the outline, [1] on the left.
struct OutlineModel::Level {
    std::int32_t row;       // first row that it reaches
    std::int32_t column[2]; // first columns
    double height;          // of the outline along y, positive
    double by[2][5];        // derivatives of the area along the outline to its elements
    double normal[2][2];    // outward normals times the outline's length
};

bool OutlineModel::reserve(const Box& box, double semi_major, double least_blur, double largest_blur) noexcept
{
    const std::size_t window = window_of(largest_blur);
    const std::size_t levels = pairs_of(semi_major, least_blur);
    const std::size_t stride = to_count(box.width) + 1;
    if (levels > level_capacity_) {
        level_ = allocate<Level>(levels);
        level_capacity_ = levels;
    }
    if (levels * window > table_capacity_) {
        by_row_ = allocate<double>(2 * levels * window);
        by_column_ = allocate<double>(6 * levels * window);
        table_capacity_ = levels * window;
    }
    if (stride > stride_) {
        planes_ = allocate<double>((kPlanes + 1) * stride);
        stride_ = stride;
    }
    box_ = box;
    const bool is_complete = level_ && by_row_ && by_column_ && planes_;
    if (!is_complete)
        level_capacity_ = table_capacity_ = stride_ = 0;
    return is_complete;
}

bool OutlineModel::sample(const Outline& outline, double blur) noexcept
{
    levels_ = pairs_of(outline.semi_major(), blur);
    window_ = window_of(blur);
    if (levels_ > level_capacity_ || levels_ * window_ > table_capacity_ || !(outline.semi_minor() > 0))
        return false;
    const double a = outline.mean + outline.skew_x;
    const double b = outline.skew_y;
    const double c = outline.mean - outline.skew_x;
    const double half_width = std::sqrt(a * a + b * b);
    const double half_height = std::sqrt(b * b + c * c);
    const double margin = 2 + kReach * blur;
    if (!(outline.x - half_width - margin >= box_.x) || !(outline.x + half_width + margin <= box_.x + box_.width - 1) ||
        !(outline.y - half_height - margin >= box_.y) ||
        !(outline.y + half_height + margin <= box_.y + box_.height - 1))
        return false;

    // (along, across) turns so that the height above the centre is half_height times the sine.
    const double down[2] = {b / half_height, c / half_height};
    const double step = kPi / static_cast<double>(levels_);
    const double turn_cos = cosine_of_small(step);
    const double turn_sin = sine_of_small(step);
    double cosine = sine_of_small(step / 2);
    double sine = -cosine_of_small(step / 2);
    for (std::size_t level = 0; level < levels_; ++level) {
        const double right[2] = {sine * down[0] + cosine * down[1], sine * down[1] - cosine * down[0]};
        const double left[2] = {sine * down[0] - cosine * down[1], sine * down[1] + cosine * down[0]};
        level_[level].height = half_height * cosine * step;
        sample_level(outline, level, right, left, step, blur);
        const double next = sine * turn_cos + cosine * turn_sin;
        cosine = cosine * turn_cos - sine * turn_sin;
        sine = next;
    }
    first_ = 0;
    last_ = 0;
    return true;
}

void OutlineModel::sample_level(const Outline& outline, std::size_t index, const double* right, const double* left,
                                double step, double blur) noexcept
{
    Level& level = level_[index];
    const double a = outline.mean + outline.skew_x;
    const double b = outline.skew_y;
    const double c = outline.mean - outline.skew_x;
    const double y = outline.y + b * right[0] + c * right[1];
    level.row = first_pixel(y, blur);
    const double* const units[2] = {right, left};
    for (std::size_t side = 0; side < 2; ++side) {
        const double u = units[side][0];
        const double v = units[side][1];
        // The tangent for a step of the angle, turned outward.
        const double normal_x = (c * u - b * v) * step;
        const double normal_y = (a * v - b * u) * step;
        level.normal[side][0] = normal_x;
        level.normal[side][1] = normal_y;
        level.by[side][kByX] = normal_x;
        level.by[side][kByY] = normal_y;
        level.by[side][kByMean] = normal_x * u + normal_y * v;
        level.by[side][kBySkewX] = normal_x * u - normal_y * v;
        level.by[side][kBySkewY] = normal_x * v + normal_y * u;
        const double x = outline.x + a * u + b * v;
        level.column[side] = first_pixel(x, blur);
        sample_point(2 * index + side, x - level.column[side], blur);
    }
    double* const response = by_row_.get() + 2 * index * window_;
    double* const slope = response + window_;
    const double scale = 1 / blur;
    NormalValue before = normal_at((y - level.row + 0.5) * scale);
    for (std::size_t i = 0; i < window_; ++i) {
        const NormalValue after = normal_at((y - level.row - 0.5 - static_cast<double>(i)) * scale);
        response[i] = before.cumulative - after.cumulative;
        slope[i] = (before.density - after.density) * scale;
        before = after;
    }
}

// offset: x of the sample, from the first of its columns
void OutlineModel::sample_point(std::size_t point, double offset, double blur) noexcept
{
    double* const response = by_column_.get() + 3 * point * window_;
    double* const integral = response + window_;
    double* const slope = integral + window_;
    const double scale = 1 / blur;
    double z = (offset + 0.5) * scale;
    NormalValue before = normal_at(z);
    double before_integral = z * before.cumulative + before.density;
    for (std::size_t i = 0; i < window_; ++i) {
        z = (offset - 0.5 - static_cast<double>(i)) * scale;
        const NormalValue after = normal_at(z);
        const double after_integral = z * after.cumulative + after.density;
        response[i] = before.cumulative - after.cumulative;
        integral[i] = (before_integral - after_integral) * blur;
        slope[i] = (before.density - after.density) * scale;
        before = after;
        before_integral = after_integral;
    }
}

const double* OutlineModel::row(std::int32_t y) noexcept
{
    std::fill_n(planes_.get(), (kPlanes + 1) * stride_, 0.0);
    while (last_ < levels_ && level_[last_].row <= y)
        ++last_;
    while (first_ < last_ && level_[first_].row + static_cast<std::int32_t>(window_) <= y)
        ++first_;
    for (std::size_t level = first_; level < last_; ++level)
        add_level(level, y);
    // What chords cover evenly is noted where they end.
    double* const coverage = planes_.get() + kCoverage * stride_;
    const double* const ends = planes_.get() + kPlanes * stride_;
    double even = 0;
    for (std::size_t column = to_count(box_.width); column-- > 0;) {
        even += ends[column + 1];
        coverage[column] += even;
    }
    return planes_.get();
}

void OutlineModel::add_level(std::size_t index, std::int32_t y) noexcept
{
    const Level& level = level_[index];
    const auto i = static_cast<std::size_t>(y - level.row);
    const double response_y = by_row_[2 * index * window_ + i];
    const double slope_y = by_row_[(2 * index + 1) * window_ + i];
    double* const planes = planes_.get();
    const double covered = response_y * level.height;
    for (std::size_t side = 0; side < 2; ++side) {
        const auto column = static_cast<std::size_t>(level.column[side] - box_.x);
        const double* const response = by_column_.get() + 3 * (2 * index + side) * window_;
        const double* const integral = response + window_;
        const double* const slope = integral + window_;
        double weight[kPlanes];
        for (std::size_t plane = 0; plane < 5; ++plane)
            weight[plane] = response_y * level.by[side][plane];
        // Half the Laplacian: the diffusion that a larger square of the blur is.
        const double across = 0.5 * response_y * level.normal[side][0];
        const double along = 0.5 * slope_y * level.normal[side][1];
        const double area = side == 0 ? covered : -covered;
        for (std::size_t j = 0; j < window_; ++j) {
            for (std::size_t plane = 0; plane < 5; ++plane)
                planes[plane * stride_ + column + j] += weight[plane] * response[j];
            planes[kByBlur * stride_ + column + j] += across * slope[j] + along * response[j];
            planes[kCoverage * stride_ + column + j] += area * integral[j];
        }
        planes[kPlanes * stride_ + column] += area;
    }
}

} // namespace panoval::measure
