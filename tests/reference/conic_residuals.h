// SPDX-License-Identifier: MIT
// What a conic fit computes of every point, one point at a time.
#pragma once

#include "detect/conic_residuals.h"

#include <cmath>
#include <cstddef>

namespace panoval::reference
{

inline void conic_residuals(const Conic& conic, const double* xy, std::size_t count, double* residuals)
{
    for (std::size_t i = 0; i < count; ++i) {
        const double x = xy[2 * i];
        const double y = xy[2 * i + 1];
        residuals[i] = -(x * x + conic.b * x * y + conic.c * y * y + conic.d * x + conic.e * y + conic.f);
    }
}

inline void focal_residuals(const Foci& foci, const double* xy, std::size_t count, double* residuals)
{
    for (std::size_t i = 0; i < count; ++i) {
        const double dx1 = xy[2 * i] - foci.x1;
        const double dy1 = xy[2 * i + 1] - foci.y1;
        const double dx2 = xy[2 * i] - foci.x2;
        const double dy2 = xy[2 * i + 1] - foci.y2;
        residuals[i] = std::sqrt(dx1 * dx1 + dy1 * dy1) + std::sqrt(dx2 * dx2 + dy2 * dy2) - foci.sum;
    }
}

inline void design_rows(const double* xy, std::size_t count, double (*rows)[5])
{
    for (std::size_t i = 0; i < count; ++i) {
        const double x = xy[2 * i];
        const double y = xy[2 * i + 1];
        const double row[5] = {x * y, y * y, x, y, 1};
        for (int k = 0; k < 5; ++k)
            rows[i][k] = row[k];
    }
}

inline void lower_weights(const double* residuals, std::size_t count, double limit, double rms, double* weights)
{
    for (std::size_t i = 0; i < count; ++i)
        if (std::fabs(residuals[i]) > limit)
            weights[i] = rms * weights[i] * rms / (residuals[i] * residuals[i]);
}

} // namespace panoval::reference
