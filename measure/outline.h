// SPDX-License-Identifier: MIT
// An elliptical outline in the form that adjustments work on: centre + S (cos t, sin t) with a symmetric S. Unlike axes
// and angle, its elements have no bad place: a circle is an ellipse like any other.
#pragma once

#include "panoval_measure.h"

namespace panoval::measure
{

// S = [[mean + skew_x, skew_y], [skew_y, mean - skew_x]]
struct Outline {
    double x = 0;
    double y = 0;
    double mean = 0;   // half the sum of the semi-axes
    double skew_x = 0; // half their difference, times the cosine of twice the angle
    double skew_y = 0; // and times its sine

    double skew() const noexcept;
    double semi_major() const noexcept { return mean + skew(); }
    double semi_minor() const noexcept { return mean - skew(); }
    double mean_radius() const noexcept; // of the circle with the same area
};

// Either axis of the ellipse may be the longer one.
Outline outline_of(const PanovalMeasureEllipse& ellipse) noexcept;

// The angle is above -pi/2 and at most pi/2.
PanovalMeasureEllipse ellipse_of(const Outline& outline) noexcept;

// Where a point lies: signed distance to the outline, below 0 inside. Exact on the outline and to second order near it.
double distance_to(const Outline& outline, double x, double y) noexcept;

// A lower bound of the distance to the outline of a place inside. Other than distance_to it holds everywhere.
double depth_in(const Outline& outline, double x, double y) noexcept;

// The covariance of (x, y, major, minor, angle) from that of (x, y, mean, skew_x, skew_y); both 5 x 5.
// Returns whether the axes differ significantly. If not, the angle's variance is that of an unknown direction.
bool transform_covariance(const Outline& outline, const double* covariance, double* result) noexcept;

} // namespace panoval::measure
