// SPDX-License-Identifier: MIT
// Conversions between the two forms of an ellipse.
#include "measure/outline.h"

#include "core/elementary.h"
#include "core/numbers.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace panoval::measure
{

namespace
{

// Axes whose difference is below so many deviations are taken for equal.
constexpr double kSignificance = 3;

} // namespace

double Outline::skew() const noexcept
{
    return std::sqrt(skew_x * skew_x + skew_y * skew_y);
}

double Outline::half_width() const noexcept
{
    return std::sqrt((mean + skew_x) * (mean + skew_x) + skew_y * skew_y);
}

double Outline::half_height() const noexcept
{
    return std::sqrt((mean - skew_x) * (mean - skew_x) + skew_y * skew_y);
}

double Outline::mean_radius() const noexcept
{
    return std::sqrt(std::max(0.0, semi_major() * semi_minor()));
}

Outline outline_of(const PanovalMeasureEllipse& ellipse) noexcept
{
    const double half_difference = (ellipse.semi_major - ellipse.semi_minor) / 2;
    return {ellipse.x, ellipse.y, (ellipse.semi_major + ellipse.semi_minor) / 2,
            half_difference * panoval::cos(2 * ellipse.angle), half_difference * panoval::sin(2 * ellipse.angle)};
}

PanovalMeasureEllipse ellipse_of(const Outline& outline) noexcept
{
    const double angle = panoval::atan2(outline.skew_y, outline.skew_x) / 2;
    return {outline.x, outline.y, outline.semi_major(), outline.semi_minor(), angle <= -kPi / 2 ? kPi / 2 : angle};
}

DistanceTo::DistanceTo(const Outline& outline) noexcept : x_(outline.x), y_(outline.y), least_(outline.semi_minor())
{
    const double a = outline.mean + outline.skew_x;
    const double b = outline.skew_y;
    const double c = outline.mean - outline.skew_x;
    const double inverse = 1 / (a * c - b * b);
    xx_ = c * inverse;
    xy_ = -b * inverse;
    yy_ = a * inverse;
}

bool transform_covariance(const Outline& outline, const double* covariance, double* result) noexcept
{
    const double skew = outline.skew();
    const double cosine = skew > 0 ? outline.skew_x / skew : 1;
    const double sine = skew > 0 ? outline.skew_y / skew : 0;
    const double across =
        sine * sine * covariance[18] - 2 * sine * cosine * covariance[19] + cosine * cosine * covariance[24];
    const bool is_significant = skew * skew > kSignificance * kSignificance * across;
    // Rows: derivatives of x, y, major, minor, angle. An angle of no meaning is told apart by its variance alone.
    const double turn = is_significant ? 1 / (2 * skew) : 0;
    const double rows[5][5] = {{1, 0, 0, 0, 0},
                               {0, 1, 0, 0, 0},
                               {0, 0, 1, cosine, sine},
                               {0, 0, 1, -cosine, -sine},
                               {0, 0, 0, -sine * turn, cosine * turn}};
    for (std::size_t i = 0; i < 5; ++i)
        for (std::size_t j = 0; j < 5; ++j) {
            double sum = 0;
            for (std::size_t k = 0; k < 5; ++k)
                for (std::size_t l = 0; l < 5; ++l)
                    sum += rows[i][k] * covariance[5 * k + l] * rows[j][l];
            result[5 * i + j] = sum;
        }
    if (!is_significant)
        result[24] = kPi * kPi / 12;
    return is_significant;
}

} // namespace panoval::measure
