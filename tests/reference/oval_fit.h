// SPDX-License-Identifier: MIT
// The oval fit as it is defined, step by step, on libmath. The weights at the end can be looked at.
#pragma once

#include "core/elementary.h"
#include "libmath/libmath.h"
#include "panoval.h"

#include <cmath>
#include <cstdint>
#include <vector>

namespace panoval::reference
{

struct OvalFitTrace {
    std::vector<double> weights;
    int iterations = 0;
};

inline std::int32_t oval_fit(std::int32_t count, const double* points, OvalFit* result, OvalFitTrace* trace = nullptr)
{
    if (count <= 5)
        return 0;
    const auto n = static_cast<std::size_t>(count);
    const auto px = [&](std::size_t i) { return points[2 * i]; };
    const auto py = [&](std::size_t i) { return points[2 * i + 1]; };

    double mx = 0;
    double my = 0;
    for (std::size_t i = 0; i < n; ++i) {
        mx = mx + px(i);
        my = my + py(i);
    }
    mx = mx / static_cast<double>(n);
    my = my / static_cast<double>(n);
    const double r = std::sqrt((px(0) - mx) * (px(0) - mx) + (py(0) - my) * (py(0) - my));
    double B = 0;
    double C = 1;
    double D = -2 * mx;
    double E = -2 * my;
    double F = mx * mx + my * my - r * r;

    std::vector<double> w(n, 1.0);
    std::vector<double> v(n);
    bool stalled = false;
    bool converged = false;
    double previous = 0;
    int k = 0;
    for (;;) {
        double normal[25] = {};
        double rhs[5] = {};
        double weight_sum = 0;
        double square_sum = 0;
        for (std::size_t i = 0; i < n; ++i) {
            const double x = px(i);
            const double y = py(i);
            double sum = x * x;
            sum = sum + B * x * y;
            sum = sum + C * y * y;
            sum = sum + D * x;
            sum = sum + E * y;
            sum = sum + F;
            v[i] = -sum;
            double row[5] = {x * y, y * y, x, y, 1};
            pnrml(row, 5, v[i], normal, rhs, w[i]);
            weight_sum = weight_sum + w[i];
            square_sum = square_sum + w[i] * v[i] * v[i];
        }
        const double rms = std::sqrt(square_sum / weight_sum);

        double solution[5] = {};
        double work[256] = {};
        solve_lsq(normal, rhs, solution, 5, 5, work);
        B = B + solution[0];
        C = C + solution[1];
        D = D + solution[2];
        E = E + solution[3];
        F = F + solution[4];

        if (rms < 0.01)
            converged = true;
        if (std::fabs(solution[0]) < 1e-6 && std::fabs(solution[1]) < 1e-6 && std::fabs(solution[2]) < 1e-6 &&
            std::fabs(solution[3]) < 1e-6 && std::fabs(solution[4]) < 1e-6)
            stalled = true;

        const bool reweight = (stalled && rms > 0.01) || (k > 0 && rms > previous) || k >= 26;
        if (reweight) {
            for (std::size_t i = 0; i < n; ++i)
                if (std::fabs(v[i]) > 1.5 * rms)
                    w[i] = rms * w[i] * rms / (v[i] * v[i]);
            stalled = false;
        }
        if (k > 0 && stalled && std::fabs(previous - rms) < 1e-6) {
            k = k + 1;
            break;
        }
        previous = rms;
        k = k + 1;
        if (converged || k == 50)
            break;
    }
    if (trace != nullptr)
        *trace = {w, k};

    *result = OvalFit{1, B, C, D, E, F, 0, 0, 0, 0, 0, 0, 0};
    if (std::isinf(B) || std::isinf(C) || std::isinf(D) || std::isinf(E) || std::isinf(F))
        return 0;
    if (!(B * B - 4 * C < 0))
        return 0;

    const double x0 = (B * E - 2 * C * D) / (4 * C - B * B);
    const double y0 = (B * D - 2 * E) / (4 * C - B * B);
    double theta = 0.5 * panoval::atan(B / (1 - C));
    const double F0 = F + (D * x0 + E * y0) / 2;
    const double cos2 = panoval::cos(theta) * panoval::cos(theta);
    const double sin2 = panoval::sin(theta) * panoval::sin(theta);
    const double K = F0 * (cos2 - sin2);
    double a = std::sqrt(K / (C * sin2 - cos2));
    double b = std::sqrt(K / (sin2 - C * cos2));
    if (b > a) {
        std::swap(a, b);
        theta = theta + 1.5707963267948966;
    }

    const double c = std::sqrt(a * a - b * b);
    const double f1x = x0 - c * panoval::cos(theta);
    const double f1y = y0 - c * panoval::sin(theta);
    const double f2x = x0 + c * panoval::cos(theta);
    const double f2y = y0 + c * panoval::sin(theta);
    double weight_sum = 0;
    double square_sum = 0;
    double largest = 0.0;
    for (std::size_t i = 0; i < n; ++i) {
        const double d1 = std::sqrt((px(i) - f1x) * (px(i) - f1x) + (py(i) - f1y) * (py(i) - f1y));
        const double d2 = std::sqrt((px(i) - f2x) * (px(i) - f2x) + (py(i) - f2y) * (py(i) - f2y));
        const double d = d1 + d2 - 2 * a;
        weight_sum = weight_sum + w[i];
        square_sum = square_sum + w[i] * (d * d);
        if (d > largest)
            largest = d;
    }
    const double rms = std::sqrt(square_sum / weight_sum);
    *result = OvalFit{1, B, C, D, E, F, x0, y0, a, b, theta, rms, largest};
    return 1;
}

} // namespace panoval::reference
