// SPDX-License-Identifier: MIT
// What a conic fit computes of every point: how far it lies from the conic, or from an ellipse by its foci, its row of
// the equations, its weight. Points are pairs x, y.
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

// rows[i] = x*y, y*y, x, y, 1: the conic's derivatives by b to f
void design_rows(const double* xy, std::size_t count, double (*rows)[5]);

// Every point whose residual exceeds `limit` in size gets rms * weight * rms / (residual * residual) for its weight.
void lower_weights(const double* residuals, std::size_t count, double limit, double rms, double* weights);

} // namespace panoval
