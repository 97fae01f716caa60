// SPDX-License-Identifier: MIT
// The quadratic form of a widened outline, solved for the columns of a row.
#include "measure/row_spans.h"

#include "core/numbers.h"

#include <algorithm>
#include <cmath>

namespace panoval::measure
{

WidenedOutline::WidenedOutline(const Outline& outline, double distance) noexcept : x_(outline.x), y_(outline.y)
{
    const double mean = outline.mean + distance;
    if (!(mean - outline.skew() > 0))
        return;
    has_inside_ = true;
    // The form is the inverse of the squared matrix: xx dx^2 + 2 xy dx dy + yy dy^2 <= 1.
    const double a = mean + outline.skew_x;
    const double b = outline.skew_y;
    const double c = mean - outline.skew_x;
    const double inverse = 1 / (a * c - b * b);
    const double xx = (c * c + b * b) * inverse * inverse;
    const double xy = -b * (a + c) * inverse * inverse;
    slant_ = -xy / xx;
    square_ = 1 / xx;
    drop_ = inverse * inverse / (xx * xx); // the form's determinant over xx^2
}

Span WidenedOutline::columns(std::int32_t y, const Span& within) const noexcept
{
    const double dy = y - y_;
    const double square = square_ - drop_ * dy * dy;
    if (!has_inside_ || !(square >= 0))
        return {within.begin, within.begin};
    const double middle = x_ + slant_ * dy;
    const double half = std::sqrt(square);
    const double begin = std::max(std::ceil(middle - half), static_cast<double>(within.begin));
    const double end = std::min(std::floor(middle + half) + 1, static_cast<double>(within.end));
    if (!(begin < end))
        return {within.begin, within.begin};
    return {truncate_to_int(begin), truncate_to_int(end)};
}

double least_widening(const Outline& outline) noexcept
{
    return outline.mean > 0 ? outline.mean_radius() / outline.mean : 1;
}

} // namespace panoval::measure
