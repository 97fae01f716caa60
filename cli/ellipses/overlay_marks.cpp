// SPDX-License-Identifier: MIT
#include "cli/ellipses/overlay_marks.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace panoval::cli
{

namespace
{

double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
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

LabelPlace label_place(const Target& target)
{
    // The outline's point whose tangent falls at 45 degrees.
    const double cosine = std::cos(target.angle);
    const double sine = std::sin(target.angle);
    const double a2 = target.semi_major * target.semi_major;
    const double b2 = target.semi_minor * target.semi_minor;
    const double xx = a2 * cosine * cosine + b2 * sine * sine;
    const double xy = (a2 - b2) * cosine * sine;
    const double yy = a2 * sine * sine + b2 * cosine * cosine;
    const double length = std::sqrt(std::max(1e-12, xx - 2 * xy + yy)); // of the direction (1, -1)
    return {target.x + (xx - xy) / length, target.y + (xy - yy) / length};
}

} // namespace panoval::cli
