// SPDX-License-Identifier: MIT
// An elliptical outline in the form that adjustments work on: centre + S (cos t, sin t) with a symmetric S. Unlike axes
// and angle, its elements have no bad place: a circle is an ellipse like any other.
#pragma once

#include "panoval_measure.h"

#include <cmath>

namespace panoval::measure
{

inline constexpr double kPi = 3.14159265358979323846;

// S = [[mean + skew_x, skew_y], [skew_y, mean - skew_x]]
struct Outline {
    double x = 0;
    double y = 0;
    double mean = 0;   // half the sum of the semi-axes
    double skew_x = 0; // half their difference, times the cosine of twice the angle
    double skew_y = 0; // and times its sine

    bool operator==(const Outline&) const = default;
    double skew() const noexcept;
    double semi_major() const noexcept { return mean + skew(); }
    double semi_minor() const noexcept { return mean - skew(); }
    double half_width() const noexcept; // of the box around it
    double half_height() const noexcept;
    double mean_radius() const noexcept; // of the circle with the same area
};

// Either axis of the ellipse may be the longer one.
Outline outline_of(const PanovalMeasureEllipse& ellipse) noexcept;

// The angle is above -pi/2 and at most pi/2.
PanovalMeasureEllipse ellipse_of(const Outline& outline) noexcept;

// Distances to an outline.
class DistanceTo
{
public:
    explicit DistanceTo(const Outline& outline) noexcept;

    struct Place {
        double u, v;   // the point where the outline is the unit circle
        double length; // its distance from the centre there
        double depth;  // below the outline: a lower bound, everywhere; negative outside
    };
    Place place(double x, double y) const noexcept
    {
        const double dx = x - x_;
        const double dy = y - y_;
        const double u = xx_ * dx + xy_ * dy;
        const double v = xy_ * dx + yy_ * dy;
        const double length = std::sqrt(u * u + v * v);
        return {u, v, length, least_ * (1 - length)};
    }

    // Signed, below 0 inside. Exact on the outline and to second order near it; not so near the centre.
    double distance(const Place& place) const noexcept
    {
        const double gx = xx_ * place.u + xy_ * place.v;
        const double gy = xy_ * place.u + yy_ * place.v;
        const double gradient = std::sqrt(gx * gx + gy * gy);
        return gradient > 0 ? (place.length - 1) * place.length / gradient : -least_;
    }

private:
    double x_, y_;
    double xx_, xy_, yy_; // the inverse of the outline's matrix
    double least_;        // semi-minor axis
};

// The covariance of (x, y, major, minor, angle) from that of (x, y, mean, skew_x, skew_y); both 5 x 5.
// Returns whether the axes differ significantly. If not, the angle's variance is that of an unknown direction.
bool transform_covariance(const Outline& outline, const double* covariance, double* result) noexcept;

} // namespace panoval::measure
