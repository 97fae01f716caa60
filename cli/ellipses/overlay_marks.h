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

struct LabelPlace {
    double x, y; // of the number's lower left corner: on the outline, up and to the right
};

LabelPlace label_place(const Target& target);

} // namespace panoval::cli
