// SPDX-License-Identifier: MIT
// A quadratic surface is fitted to nine gradient magnitudes; along its direction of strongest curvature the ridge lies
// where the slope vanishes (Steger, An unbiased detector of curvilinear structures, 1998, with a 3 x 3 facet model).
#include "detect/edge_refine.h"

#include "core/numbers.h"

#include <cmath>
#include <cstddef>

namespace panoval
{
namespace
{

struct Slopes {
    double gx;
    double gy;
    double hxx;
    double hxy;
    double hyy;
};

struct Curvature {
    double value;
    double nx; // its direction
    double ny;
};

// Sums of at most nine magnitudes are exact. hxy has the opposite of the usual sign. The direction below depends on it,
// and so do all published results, so it stays.
Slopes slopes_of(const MagnitudePatch& magnitude)
{
    const auto& m = magnitude.at;
    const double top = m[0][0] + m[0][1] + m[0][2];
    const double middle = m[1][0] + m[1][1] + m[1][2];
    const double bottom = m[2][0] + m[2][1] + m[2][2];
    const double left = m[0][0] + m[1][0] + m[2][0];
    const double centre = m[0][1] + m[1][1] + m[2][1];
    const double right = m[0][2] + m[1][2] + m[2][2];
    return {
        .gx = (right - left) / 6,
        .gy = (bottom - top) / 6,
        .hxx = 2 * (left - 2 * centre + right) / 6,
        .hxy = (m[0][2] - m[0][0] + m[2][0] - m[2][2]) * 0.25,
        .hyy = 2 * (top - 2 * middle + bottom) / 6,
    };
}

// The eigenvalue of larger size of [[hxx, hxy], [hxy, hyy]], by one Jacobi rotation; of two equal sizes the negative
// one.
Curvature strongest_curvature(const Slopes& h)
{
    double c = 1;
    double s = 0;
    double along_s = h.hyy;
    double along_c = h.hxx;
    if (h.hxy != 0) {
        const double theta = (h.hxx - h.hyy) * 0.5 / h.hxy;
        const double size = 1 / (std::fabs(theta) + std::sqrt(theta * theta + 1));
        const double t = theta < 0 ? -size : size;
        c = 1 / std::sqrt(t * t + 1);
        s = t * c;
        along_s = h.hyy - h.hxy * t;
        along_c = h.hxx + h.hxy * t;
    }
    const double size_s = std::fabs(along_s);
    const double size_c = std::fabs(along_c);
    if (size_c > size_s || (size_c == size_s && along_c <= along_s))
        return {along_c, c, s};
    return {along_s, -s, c};
}

} // namespace

MagnitudePatch magnitude_patch(const std::uint8_t* image, std::int32_t width, std::int32_t pixel)
{
    MagnitudePatch patch;
    for (int j = 0; j < 3; ++j) {
        const std::uint8_t* const row = image + pixel + static_cast<std::ptrdiff_t>(j - 1) * width - 1;
        for (int i = 0; i < 3; ++i) {
            const int dx = row[i + 1] - row[i - 1];
            const int dy = row[i + width] - row[i - width];
            // A root in single precision rounds to the same integer part for every sum below 2^17.
            patch.at[j][i] = truncate_to_int(std::sqrt(static_cast<float>(dx * dx + dy * dy)));
        }
    }
    return patch;
}

EdgePoint refine_edge_point(const MagnitudePatch& magnitude, std::int32_t x, std::int32_t y)
{
    const Slopes h = slopes_of(magnitude);
    const Curvature ridge = strongest_curvature(h);
    double distance = 0;
    if (ridge.value < 0) {
        const double nx = ridge.nx;
        const double ny = ridge.ny;
        distance = -(nx * h.gx + ny * h.gy) / (h.hxx * nx * nx + 2 * h.hxy * nx * ny + h.hyy * ny * ny);
    }
    const double dx = distance * ridge.nx;
    const double dy = distance * ridge.ny;
    if (std::fabs(dx) <= 0.5 && std::fabs(dy) <= 0.5)
        return {x + dx, y + dy};
    return {static_cast<double>(x), static_cast<double>(y)};
}

} // namespace panoval
