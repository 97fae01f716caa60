// SPDX-License-Identifier: MIT
// How far points lie from a conic, and from an ellipse by its foci. Points are pairs x, y.
#pragma once

#include <cstddef>

namespace panoval
{

// x*x + b*x*y + c*y*y + d*x + e*y + f = 0
struct Conic {
    double b, c, d, e, f;
};

struct Foci {
    double x1, y1, x2, y2;
    double sum; // of the distances to both, for a point on the ellipse
};

// residuals[i] = -(x*x + (b*x)*y + (c*y)*y + d*x + e*y + f), left to right
void conic_residuals(const Conic& conic, const double* xy, std::size_t count, double* residuals);

// residuals[i] = distance to the first focus + distance to the second - sum
void focal_residuals(const Foci& foci, const double* xy, std::size_t count, double* residuals);

} // namespace panoval
