// SPDX-License-Identifier: MIT
// Ellipses from lines of equal level: from a whole closed line, or from those stretches of it that bend one way, where
// targets touch each other or something else.
#pragma once

#include "measure/detect_outline.h"

#include <cstddef>
#include <vector>

namespace panoval::measure
{

struct Oval {
    double x = 0;
    double y = 0;
    double a = 0; // semi-axes, a >= b
    double b = 0;
    double ux = 1; // unit vector along a
    double uy = 0;
    double rms = 0;     // of the points' distances
    double covered = 1; // share of the outline that has points
    bool is_dark = true;
};

// From area and moments of a closed line. False where it encloses nothing.
bool oval_of_closed_line(const std::vector<OutlinePoint>& points, Oval& oval);

// Whether the line is as close to its oval as lines through noise and pixels are.
bool is_oval(const Oval& oval) noexcept;

// Ovals of which the line shows more than half, of axes in that range.
std::vector<Oval> ovals_of_arcs(const LevelLine& line, double least_axis, double most_axis);

// The oval's signed distance from a point, in first order; below 0 inside.
double distance_from(const Oval& oval, const OutlinePoint& point) noexcept;

} // namespace panoval::measure
