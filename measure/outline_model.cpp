// SPDX-License-Identifier: MIT
// The coverage model. The outline is sampled in pairs at equal heights: angles from the top, so that the right half
// runs down, and the left half back up through the same heights. A pair shares its factors in y, and the pairs that
// reach a row of pixels are neighbours.
#include "measure/outline_model.h"

#include "core/numbers.h"

#include <algorithm>
#include <cmath>

namespace panoval::measure
{

namespace
{

// Distance of samples along the outline, in blurs. Sampling a Gaussian at so many deviations leaves a ripple of
// 2 exp(-2 (pi / 1.3)^2) = 2e-5.
constexpr double kSpacing = 1.3;

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

std::size_t padded_window(std::size_t window) noexcept
{
    return (window + kWindowStep - 1) / kWindowStep * kWindowStep;
}

std::int32_t first_pixel(double position, double blur) noexcept
{
    return truncate_to_int(std::ceil(position - (0.5 + kReach * blur)));
}

} // namespace

Box box_around(const Outline& outline, double margin) noexcept
{
    const double half_width = outline.half_width() + margin;
    const double half_height = outline.half_height() + margin;
    const std::int32_t left = truncate_to_int(std::floor(outline.x - half_width));
    const std::int32_t top = truncate_to_int(std::floor(outline.y - half_height));
    return {left, top, truncate_to_int(std::ceil(outline.x + half_width)) - left + 1,
            truncate_to_int(std::ceil(outline.y + half_height)) - top + 1};
}

bool OutlineModel::reserve(const Box& box, double semi_major, double least_blur, double largest_blur) noexcept
{
    const std::size_t window = padded_window(window_of(largest_blur));
    const std::size_t levels = pairs_of(semi_major, least_blur);
    // A window may begin in the last column.
    const std::size_t stride = to_count(box.width) + window + kWindowStep;
    sampled_blur_ = 0;
    if (levels > level_capacity_) {
        level_ = allocate<Level>(levels);
        row_place_ = allocate<float>(levels);
        column_place_ = allocate<float>(2 * levels);
        level_capacity_ = levels;
    }
    if (levels * window > table_capacity_ || window > window_capacity_) {
        by_row_ = allocate<float>(3 * levels * window);
        by_column_ = allocate<float>(6 * levels * window);
        scratch_ = allocate<float>(respond_scratch(window));
        table_capacity_ = levels * window;
        window_capacity_ = window;
    }
    if (stride > stride_) {
        planes_ = allocate<float>((kPlanes + 1) * stride);
        stride_ = stride;
    }
    box_ = box;
    const bool is_complete = level_ && row_place_ && column_place_ && by_row_ && by_column_ && scratch_ && planes_;
    if (!is_complete)
        level_capacity_ = table_capacity_ = window_capacity_ = stride_ = 0;
    return is_complete;
}

bool OutlineModel::sample(const Outline& outline, double blur) noexcept
{
    first_ = 0;
    last_ = 0;
    if (blur == sampled_blur_ && outline == sampled_)
        return true;
    sampled_blur_ = 0;
    levels_ = pairs_of(outline.semi_major(), blur);
    window_ = window_of(blur);
    padded_ = padded_window(window_);
    if (levels_ > level_capacity_ || levels_ * padded_ > table_capacity_ || padded_ > window_capacity_ ||
        !(outline.semi_minor() > 0))
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
        level_[level].height = static_cast<float>(half_height * cosine * step);
        place_level(outline, level, right, left, step, blur);
        const double next = sine * turn_cos + cosine * turn_sin;
        cosine = cosine * turn_cos - sine * turn_sin;
        sine = next;
    }
    const auto fill = [&](const float* places, std::size_t count, float* tables) {
        respond(places, count, blur, 1 / blur, window_, padded_, scratch_.get(), tables);
    };
    fill(row_place_.get(), levels_, by_row_.get());
    fill(column_place_.get(), 2 * levels_, by_column_.get());
    sampled_ = outline;
    sampled_blur_ = blur;
    return true;
}

void OutlineModel::place_level(const Outline& outline, std::size_t index, const double* right, const double* left,
                               double step, double blur) noexcept
{
    Level& level = level_[index];
    const double a = outline.mean + outline.skew_x;
    const double b = outline.skew_y;
    const double c = outline.mean - outline.skew_x;
    const double y = outline.y + b * right[0] + c * right[1];
    level.row = first_pixel(y, blur);
    row_place_[index] = static_cast<float>(y - level.row + 0.5);
    const double* const units[2] = {right, left};
    for (std::size_t side = 0; side < 2; ++side) {
        const double u = units[side][0];
        const double v = units[side][1];
        // The tangent for a step of the angle, turned outward.
        const double normal_x = (c * u - b * v) * step;
        const double normal_y = (a * v - b * u) * step;
        level.normal[side][0] = static_cast<float>(normal_x);
        level.normal[side][1] = static_cast<float>(normal_y);
        level.by[side][kByX] = level.normal[side][0];
        level.by[side][kByY] = level.normal[side][1];
        level.by[side][kByMean] = static_cast<float>(normal_x * u + normal_y * v);
        level.by[side][kBySkewX] = static_cast<float>(normal_x * u - normal_y * v);
        level.by[side][kBySkewY] = static_cast<float>(normal_x * v + normal_y * u);
        const double x = outline.x + a * u + b * v;
        const std::int32_t column = first_pixel(x, blur);
        level.column[side] = column - box_.x;
        column_place_[2 * index + side] = static_cast<float>(x - column + 0.5);
    }
}

RowSpans OutlineModel::all_columns() const noexcept
{
    const std::int32_t end = box_.x + box_.width;
    return {box_.x, box_.x, end, end, end, end, end, end};
}

// To the levels that reach a row.
void OutlineModel::advance(std::int32_t y) noexcept
{
    while (last_ < levels_ && level_[last_].row <= y)
        ++last_;
    while (first_ < last_ && level_[first_].row + static_cast<std::int32_t>(window_) <= y)
        ++first_;
}

OutlineModel::Stretches OutlineModel::stretches_of(const RowSpans& spans) const noexcept
{
    Span left = {spans.edge - box_.x, spans.inside - box_.x};
    Span right = {spans.inside_end - box_.x, spans.edge_end - box_.x};
    const auto widen = [this](Span& span, std::int32_t column) {
        span.begin = std::min(span.begin, column);
        span.end = std::max(span.end, column + static_cast<std::int32_t>(padded_));
    };
    for (std::size_t i = first_; i < last_; ++i) {
        widen(right, level_[i].column[0]);
        widen(left, level_[i].column[1]);
    }
    if (left.end >= right.begin) // one stretch
        right = {std::min(left.begin, right.begin), std::max(left.end, right.end)};
    left.end = std::min(left.end, right.begin);
    return {left, right};
}

const float* OutlineModel::row(std::int32_t y) noexcept
{
    return row(y, all_columns());
}

const float* OutlineModel::row(std::int32_t y, const RowSpans& spans) noexcept
{
    fill_row(y, spans, add_levels, {{0, kPlanes + 1}});
    return planes_.get();
}

const float* OutlineModel::coverage_row(std::int32_t y) noexcept
{
    return coverage_row(y, all_columns());
}

const float* OutlineModel::coverage_row(std::int32_t y, const RowSpans& spans) noexcept
{
    fill_row(y, spans, add_coverage, {{kByMean, 1}, {kCoverage, 2}});
    return planes_.get();
}

void OutlineModel::fill_row(std::int32_t y, const RowSpans& spans, decltype(add_levels)* add,
                            std::initializer_list<PlaneRun> filled) noexcept
{
    advance(y);
    const Stretches stretches = stretches_of(spans);
    for (const Span& span : {stretches.left, stretches.right})
        for (const PlaneRun& run : filled)
            if (span.begin < span.end)
                clear_planes(planes_.get() + run.first * stride_ + span.begin, stride_, run.count,
                             to_count(span.end - span.begin));
    add(level_.get() + first_, last_ - first_, y, padded_, by_row_.get() + 3 * padded_ * first_,
        by_column_.get() + 6 * padded_ * first_, planes_.get(), stride_);
    double even = 0;
    add_even(stretches.right, even);
    add_even(stretches.left, even);
}

// What chords cover evenly is noted where they end.
void OutlineModel::add_even(const Span& span, double& even) noexcept
{
    float* const coverage = planes_.get() + kCoverage * stride_;
    const float* const ends = planes_.get() + kPlanes * stride_;
    for (std::int32_t column = span.end; column-- > span.begin;) {
        coverage[column] += static_cast<float>(even);
        even += static_cast<double>(ends[column]);
    }
}

} // namespace panoval::measure
