// SPDX-License-Identifier: MIT
#include "cli/ellipses/overlay_marks.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace panoval::cli
{

namespace
{

constexpr double kLabelGap = 2; // pixels between an outline and its number

double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// The number's place beside the outline's point whose tangent falls at 45 degrees: right and down are 1 or -1.
LabelPlace label_corner(const Target& target, const LabelSize& size, int right, int down)
{
    const double cosine = std::cos(target.angle);
    const double sine = std::sin(target.angle);
    const double a2 = target.semi_major * target.semi_major;
    const double b2 = target.semi_minor * target.semi_minor;
    const double xx = a2 * cosine * cosine + b2 * sine * sine;
    const double xy = (a2 - b2) * cosine * sine;
    const double yy = a2 * sine * sine + b2 * cosine * cosine;
    const double length = std::sqrt(std::max(1e-12, xx + 2 * right * down * xy + yy)); // of the direction
    const double x = target.x + (right * xx + down * xy) / length + right * kLabelGap;
    const double y = target.y + (right * xy + down * yy) / length + down * kLabelGap;
    return {right > 0 ? x : x - size.width, down > 0 ? y + size.height : y};
}

} // namespace

double error_factor(const Measurement& measurement)
{
    if (measurement.method != Method::Precise || measurement.targets.empty())
        return 0;
    std::vector<double> errors;
    std::vector<double> sizes;
    for (const Target& target : measurement.targets) {
        errors.push_back(std::max(target.precise.sigma_x, target.precise.sigma_y));
        sizes.push_back(target.semi_minor);
    }
    const double wanted = std::max(8.0, median(sizes) / 3);
    const double error = median(errors);
    if (!(error > 0))
        return 0;
    double factor = 1;
    for (double decade = 1; decade < 1e9; decade *= 10)
        for (const double step : {1.0, 2.0, 5.0})
            if (decade * step * error <= wanted)
                factor = decade * step;
    return factor;
}

ErrorEllipse error_ellipse(const Target& target, double factor)
{
    const double xx = target.precise.covariance[0];
    const double xy = target.precise.covariance[1];
    const double yy = target.precise.covariance[6];
    const double mean = (xx + yy) / 2;
    const double half = std::hypot((xx - yy) / 2, xy);
    return {factor * std::sqrt(std::max(0.0, mean + half)), factor * std::sqrt(std::max(0.0, mean - half)),
            0.5 * std::atan2(2 * xy, xx - yy)};
}

LabelPlace label_place(const Target& target, const LabelSize& size, std::int32_t width, std::int32_t height)
{
    const double most_x = width - 1 - size.width - kLabelGap;
    const double most_y = height - 1 - kLabelGap;
    const double least_y = size.height + kLabelGap;
    const LabelPlace first = label_corner(target, size, 1, -1);
    for (const auto& [right, down] : {std::pair(1, -1), std::pair(-1, -1), std::pair(1, 1), std::pair(-1, 1)}) {
        const LabelPlace place = label_corner(target, size, right, down);
        if (place.x >= kLabelGap && place.x <= most_x && place.y >= least_y && place.y <= most_y)
            return place;
    }
    return {std::max(kLabelGap, std::min(first.x, most_x)), std::max(least_y, std::min(first.y, most_y))};
}

} // namespace panoval::cli
