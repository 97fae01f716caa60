// SPDX-License-Identifier: MIT
// Images of circles under perspective. A conic's pole of the vanishing line of its plane is the image of the circle's
// centre; everything here is a way to come by that line.
#pragma once

#include "panoval_measure.h"

#include <cstdint>

namespace panoval::measure
{

// PANOVAL_MEASURE_OK, or what is wrong with an ellipse.
std::int32_t check_ellipse(const PanovalMeasureEllipse& ellipse) noexcept;

// The image of the centre of a circle whose plane vanishes in the line a x + b y + c = 0. False when that line meets
// the ellipse, so that no circle looks like it.
bool centre_by_vanishing_line(const PanovalMeasureEllipse& ellipse, const double* covariance, const double* line,
                              PanovalMeasurePoint& centre) noexcept;

// The line in which a plane vanishes, from a homography that maps the plane to the picture. False without an inverse.
bool vanishing_line(const double* homography, double* line) noexcept;

} // namespace panoval::measure
