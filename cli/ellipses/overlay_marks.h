// SPDX-License-Identifier: MIT
// What both kinds of overlays draw of a target beside its outline: the error ellipse of its centre, magnified, and the
// place of its number.
#pragma once

#include "cli/ellipses/ellipse_measure.h"

namespace panoval::cli
{

struct ErrorEllipse {
    double a = 0; // semi-axes in pixels, one standard deviation, magnified
    double b = 0;
    double angle = 0;
};

// 1, 2, 5, 10, 20, ...: what shows the measurement's usual error ellipse about as large as a third of a usual target,
// at least 8 pixels; 0 where there are no errors to show.
double error_factor(const Measurement& measurement);

ErrorEllipse error_ellipse(const Target& target, double factor);

struct LabelSize {
    double width = 0, height = 0;
};

struct LabelPlace {
    double x = 0, y = 0; // of the number's lower left corner
};

// Beside the outline: up and to the right, or in the first other corner where the number is within the picture.
LabelPlace label_place(const Target& target, const LabelSize& size, std::int32_t width, std::int32_t height);

} // namespace panoval::cli
