// SPDX-License-Identifier: MIT
// The samples around a target and their parts.
#include "measure/patch.h"

#include "core/median.h"
#include "core/numbers.h"
#include "measure/picture.h"

#include <algorithm>
#include <cmath>

namespace panoval::measure
{

namespace
{

// A sample further from its plane than so many deviations is of something else: one in 300,000 samples of noise.
constexpr double kClip = 4.7;
constexpr int kClipRounds = 4;
constexpr double kStrayShare = 0.001; // so few such samples may be noise, too
constexpr std::int32_t kMedianSamples = 500;

bool all_finite(const float* samples, std::int32_t count) noexcept
{
    for (std::int32_t i = 0; i < count; ++i)
        if (!std::isfinite(samples[i]))
            return false;
    return true;
}

} // namespace

void PlaneSums::add_row(const RowSums& row, double dy) noexcept
{
    count += row.count;
    x += row.x;
    y += row.count * dy;
    xx += row.xx;
    xy += row.x * dy;
    yy += row.count * dy * dy;
    v += row.v;
    vx += row.vx;
    vy += row.v * dy;
    vv += row.vv;
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
        excluded_ = allocate<Pixel>(size());
        capacity_ = samples_ && parts_ && scratch_ && excluded_ ? size() : 0;
        if (capacity_ == 0)
            return false;
    }
    if (to_count(box.height) > span_capacity_) {
        spans_ = allocate<RowSpans>(to_count(box.height));
        span_capacity_ = spans_ ? to_count(box.height) : 0;
        if (span_capacity_ == 0)
            return false;
    }
    is_finite_ = true;
    const std::int32_t first_x = std::max(box.x, 0);
    const std::int32_t end_x = std::min(box.x + box.width, image.width);
    for (std::int32_t y = box.y; y < box.y + box.height; ++y) {
        float* const row = samples_.get() + index(box.x, y);
        std::fill_n(row, box.width, 0.0f);
        if (y >= 0 && y < image.height && first_x < end_x)
            read_samples(image, first_x, y, end_x - first_x, row + (first_x - box.x));
        if (image.sample_type == PANOVAL_MEASURE_F32)
            is_finite_ = is_finite_ && all_finite(row, box.width);
    }
    return true;
}

bool Patch::is_in_picture(std::int32_t x, std::int32_t y) const noexcept
{
    return x >= 0 && y >= 0 && x < picture_width_ && y < picture_height_;
}

bool Patch::can_interpolate(double x, double y) const noexcept
{
    return x >= std::max(box_.x, 0) && y >= std::max(box_.y, 0) &&
           x < std::min(box_.x + box_.width, picture_width_) - 1 &&
           y < std::min(box_.y + box_.height, picture_height_) - 1;
}

double Patch::interpolate(double x, double y) const noexcept
{
    const std::int32_t left = truncate_to_int(x); // not negative
    const std::int32_t top = truncate_to_int(y);
    const float* const upper = samples_.get() + index(left, top);
    const float* const lower = upper + box_.width;
    const double fx = x - left;
    const double fy = y - top;
    const auto between = [](float from, float to, double share) {
        return static_cast<double>(from) + share * static_cast<double>(to - from);
    };
    const double above = between(upper[0], upper[1], fx);
    const double below = between(lower[0], lower[1], fx);
    return above + fy * (below - above);
}

void Patch::read_line(double x, double y, double dx, double dy, std::size_t count, double* values,
                      bool* is_known) const noexcept
{
    const auto last = static_cast<double>(count - 1);
    const bool is_inside = is_finite_ && can_interpolate(x, y) && can_interpolate(x + last * dx, y + last * dy);
    for (std::size_t i = 0; i < count; ++i) {
        const double px = x + static_cast<double>(i) * dx;
        const double py = y + static_cast<double>(i) * dy;
        is_known[i] = is_inside || can_interpolate(px, py);
        if (!is_known[i])
            continue;
        values[i] = interpolate(px, py);
        is_known[i] = is_finite_ || std::isfinite(values[i]);
    }
}

void Patch::classify(const Outline& outline, const Reach& reach) noexcept
{
    const Span columns = {std::max(box_.x, 0), std::max(std::min(box_.x + box_.width, picture_width_), box_.x)};
    const WidenedOutline limits[4] = {{outline, std::max(reach.edge_outside, reach.flat_outside)},
                                      {outline, reach.edge_outside},
                                      {outline, -reach.edge_inside},
                                      {outline, -std::max(reach.edge_inside, reach.flat_inside)}};
    has_aliens_ = false;
    shows_others_ = false;
    excluded_count_ = 0;
    for (std::int32_t y = box_.y; y < box_.y + box_.height; ++y) {
        RowSpans& row = spans_[to_count(y - box_.y)];
        row = {};
        std::fill_n(parts_.get() + index(box_.x, y), box_.width, Part::kNone);
        if (y < 0 || y >= picture_height_)
            continue;
        Span all[4];
        Span within = columns;
        for (std::size_t i = 0; i < 4; ++i)
            within = all[i] = limits[i].columns(y, within);
        row = {all[0].begin, all[1].begin, all[2].begin, all[3].begin, all[3].end, all[2].end, all[1].end, all[0].end};
        const auto set = [&](std::int32_t begin, std::int32_t end, Part part) {
            std::fill_n(parts_.get() + index(begin, y), end - begin, part);
        };
        set(row.outside, row.outside_end, Part::kOutside);
        set(row.edge, row.edge_end, Part::kEdge);
        set(row.inside, row.inside_end, Part::kInside);
        set(row.middle, row.middle_end, Part::kNone);
        for (std::int32_t x = row.outside; !is_finite_ && x < row.outside_end; ++x) {
            if (part(x, y) == Part::kNone || std::isfinite(sample(x, y)))
                continue;
            set_part(x, y, Part::kAlien);
            has_aliens_ = true;
        }
    }
}

template <class Visit>
void Patch::for_each_run(Part part, const Visit& visit) const noexcept
{
    for (std::int32_t y = box_.y; y < box_.y + box_.height; ++y) {
        const RowSpans& row = spans(y);
        const Span spans[2] = {part == Part::kInside ? Span{row.inside, row.middle} : Span{row.outside, row.edge},
                               part == Part::kInside ? Span{row.middle_end, row.inside_end}
                                                     : Span{row.edge_end, row.outside_end}};
        for (const Span& span : spans) {
            if (!has_aliens_) {
                if (span.begin < span.end)
                    visit(y, span.begin, span.end);
                continue;
            }
            for (std::int32_t x = span.begin; x < span.end;) {
                std::int32_t end = x;
                while (end < span.end && this->part(end, y) == part)
                    ++end;
                if (x < end)
                    visit(y, x, end);
                x = end + 1;
            }
        }
    }
}

std::int32_t Patch::count_of(Part part) const noexcept
{
    std::int32_t count = 0;
    for_each_run(part, [&](std::int32_t, std::int32_t begin, std::int32_t end) { count += end - begin; });
    return count;
}

double Patch::median_of(Part part, double reference_x, double reference_y, const LevelPlane& plane,
                        bool of_size) noexcept
{
    // The median of some hundred samples is as good as that of all.
    const std::int32_t every = count_of(part) / kMedianSamples + 1;
    std::size_t count = 0;
    std::int32_t skip = 0; // samples until the next one
    for_each_run(part, [&](std::int32_t y, std::int32_t begin, std::int32_t end) {
        const double level = plane.level + plane.slope_y * (y - reference_y);
        std::int32_t x = begin + skip;
        for (; x < end; x += every) {
            const double difference = static_cast<double>(sample(x, y)) - (level + plane.slope_x * (x - reference_x));
            scratch_[count++] = static_cast<float>(of_size ? std::fabs(difference) : difference);
        }
        skip = x - end;
    });
    return static_cast<double>(middle_of(scratch_.get(), count));
}

PlaneSums Patch::sum_flat(Part part, double reference_x, double reference_y, const LevelPlane& plane,
                          double limit) const noexcept
{
    PlaneSums sums;
    sums.origin = plane.level;
    for_each_run(part, [&](std::int32_t y, std::int32_t begin, std::int32_t end) {
        const double dy = y - reference_y;
        sums.add_row(sum_row(samples_.get() + index(begin, y), to_count(end - begin), begin - reference_x, plane.level,
                             plane.slope_y * dy, plane.slope_x, limit),
                     dy);
    });
    return sums;
}

void Patch::exclude_flat(Part part, double reference_x, double reference_y, const LevelPlane& plane,
                         double limit) noexcept
{
    for_each_run(part, [&](std::int32_t y, std::int32_t begin, std::int32_t end) {
        for (std::int32_t x = begin; x < end; ++x)
            if (!(std::fabs(static_cast<double>(sample(x, y)) - plane.at(x - reference_x, y - reference_y)) <= limit))
                exclude(x, y);
    });
}

PlaneSums Patch::fit_flat(Part part, double reference_x, double reference_y, double least_spread, LevelPlane& plane,
                          double& spread) noexcept
{
    PlaneSums sums;
    double others = -1;
    bool is_last = false;
    // A level first that others' samples do not pull away.
    plane = {median_of(part, reference_x, reference_y, {}, false), 0, 0};
    for (int round = 1; !is_last; ++round) {
        const double middle = median_of(part, reference_x, reference_y, plane, true);
        const double limit = kClip * std::max(kMedianToSigma * middle, least_spread);
        sums = sum_flat(part, reference_x, reference_y, plane, limit);
        const double before = others;
        others = count_of(part) - sums.count;
        shows_others_ = shows_others_ || others > kStrayShare * sums.count + 1;
        is_last = others == 0 || others == before || round == kClipRounds;
        if (others > 0 && is_last) {
            exclude_flat(part, reference_x, reference_y, plane, limit);
            grow_aliens(part);
            sums = sum_flat(part, reference_x, reference_y, plane, HUGE_VAL);
        }
        sums.fit(plane);
    }
    const double freedom = sums.count - 3;
    spread = freedom > 0 ? std::sqrt(sums.squared_residuals(plane) / freedom) : 0;
    return sums;
}

void Patch::exclude(std::int32_t x, std::int32_t y) noexcept
{
    set_part(x, y, Part::kAlien);
    excluded_[excluded_count_++] = {x, y};
    has_aliens_ = true;
}

void Patch::grow_aliens(Part part) noexcept
{
    for (std::size_t i = 0; i < excluded_count_; ++i) {
        const Pixel& pixel = excluded_[i];
        for (std::int32_t y = std::max(pixel.y - 1, box_.y); y <= std::min(pixel.y + 1, box_.y + box_.height - 1); ++y)
            for (std::int32_t x = std::max(pixel.x - 1, box_.x); x <= std::min(pixel.x + 1, box_.x + box_.width - 1);
                 ++x)
                if (this->part(x, y) == part)
                    set_part(x, y, Part::kAlien);
    }
    excluded_count_ = 0;
}

} // namespace panoval::measure
