// SPDX-License-Identifier: MIT
// The definition of the sub-pixel edge position, on a whole image of gradient magnitudes.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::reference
{

// Truncated roots of the squared differences of neighbours; one-sided differences on the border.
inline std::vector<std::int16_t> gradient_magnitude(const std::vector<std::uint8_t>& image, int width, int height)
{
    std::vector<std::int16_t> magnitude(image.size());
    const auto at = [&](int x, int y) {
        return static_cast<int>(
            image[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)]);
    };
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const int dx = at(x == width - 1 ? x : x + 1, y) - at(x == 0 ? x : x - 1, y);
            const int dy = at(x, y == height - 1 ? y : y + 1) - at(x, y == 0 ? y : y - 1);
            const double root = std::sqrt(static_cast<double>(dx * dx + dy * dy));
            magnitude[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)] =
                static_cast<std::int16_t>(static_cast<int>(root));
        }
    return magnitude;
}

inline void refine_edge_point(int width, int height, const std::int16_t* magnitude, int x, int y, double out[2])
{
    const int xm = x - 1 < 0 ? x : x - 1;
    const int xp = x + 1 < width ? x + 1 : x;
    const int ym = y - 1 < 0 ? y : y - 1;
    const int yp = y + 1 < height ? y + 1 : y;
    const auto f = [&](int i, int j) {
        return static_cast<double>(magnitude[static_cast<std::ptrdiff_t>(j) * width + i]);
    };

    const double gx = (f(xp, ym) - f(xm, ym) + f(xp, y) - f(xm, y) + f(xp, yp) - f(xm, yp)) / 6;
    const double gy = (f(xm, yp) + f(x, yp) + f(xp, yp) - f(xm, ym) - f(x, ym) - f(xp, ym)) / 6;
    const double hxy = (f(xp, ym) - f(xm, ym) + f(xm, yp) - f(xp, yp)) * 0.25;
    const double hyy = 2 *
                       ((f(xm, ym) + f(x, ym) + f(xp, ym)) - 2 * (f(xm, y) + f(x, y) + f(xp, y)) +
                        (f(xm, yp) + f(x, yp) + f(xp, yp))) /
                       6;
    const double hxx = 2 *
                       ((f(xm, ym) + f(xm, y) + f(xm, yp)) - 2 * (f(x, ym) + f(x, y) + f(x, yp)) +
                        (f(xp, ym) + f(xp, y) + f(xp, yp))) /
                       6;

    double c = 1;
    double s = 0;
    double l1 = hyy;
    double l2 = hxx;
    if (hxy != 0) {
        const double theta = (hxx - hyy) * 0.5 / hxy;
        double t = 1 / (std::fabs(theta) + std::sqrt(theta * theta + 1));
        if (theta < 0)
            t = -t;
        c = 1 / std::sqrt(t * t + 1);
        s = t * c;
        l1 = hyy - hxy * t;
        l2 = hxx + hxy * t;
    }

    double lambda = l1;
    double nx = -s;
    double ny = c;
    if (std::fabs(l2) > std::fabs(l1) || (std::fabs(l2) == std::fabs(l1) && l2 <= l1)) {
        lambda = l2;
        nx = c;
        ny = s;
    }
    double tt = 0;
    if (lambda < 0)
        tt = -(nx * gx + ny * gy) / (hxx * nx * nx + 2 * hxy * nx * ny + hyy * ny * ny);
    const double dx = tt * nx;
    const double dy = tt * ny;
    out[0] = x;
    out[1] = y;
    if (std::fabs(dx) <= 0.5 && std::fabs(dy) <= 0.5) {
        out[0] = x + dx;
        out[1] = y + dy;
    }
}

} // namespace panoval::reference
