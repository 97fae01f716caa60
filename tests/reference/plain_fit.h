// SPDX-License-Identifier: MIT
// The least squares fit of a blurred ellipse to all samples of a window, as plain as it can be written: the share of
// every pixel by an integral along the outline, derivatives by differences, Gauss-Newton steps. Ten unknowns: the
// outline, the blur, both levels, and light that changes both by the same share.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace panoval::reference
{

struct PlainFit {
    // x, y, mean semi-axis, its two skews, squared blur, inside level, outside level, change of light along x and y
    std::array<double, 10> unknowns{};
    double semi_major() const { return unknowns[2] + std::hypot(unknowns[3], unknowns[4]); }
    double semi_minor() const { return unknowns[2] - std::hypot(unknowns[3], unknowns[4]); }
};

inline double normal_area(double z)
{
    return 0.5 * std::erfc(-z / std::sqrt(2.0));
}

inline double normal_area_integral(double z)
{
    return z * normal_area(z) + std::exp(-z * z / 2) / std::sqrt(2 * 3.14159265358979323846);
}

// What the model says of every sample of a picture.
inline std::vector<double> plain_model(const PlainFit& fit, std::size_t width, std::size_t height)
{
    const auto& [x, y, mean, skew_x, skew_y, blur_square, inside, outside, light_x, light_y] = fit.unknowns;
    const double blur = std::sqrt(blur_square);
    std::vector<double> share(width * height, 0.0);
    std::vector<double> across(width);
    const auto steps = static_cast<std::size_t>(2 * 3.14159265358979323846 * (mean + 1) / (0.5 * blur)) + 8;
    for (std::size_t i = 0; i < steps; ++i) {
        const double t = 2 * 3.14159265358979323846 * static_cast<double>(i) / static_cast<double>(steps);
        const double u = x + (mean + skew_x) * std::cos(t) + skew_y * std::sin(t);
        const double v = y + skew_y * std::cos(t) + (mean - skew_x) * std::sin(t);
        const double step = (-skew_y * std::sin(t) + (mean - skew_x) * std::cos(t)) * 2 * 3.14159265358979323846 /
                            static_cast<double>(steps);
        for (std::size_t column = 0; column < width; ++column) { // the covered part of the pixel to the outline's left
            const double z = (u - static_cast<double>(column)) / blur;
            across[column] =
                blur * (normal_area_integral(z + 0.5 / blur) - normal_area_integral(z - 0.5 / blur)) * step;
        }
        for (std::size_t row = 0; row < height; ++row) {
            const double z = (v - static_cast<double>(row)) / blur;
            const double part = normal_area(z + 0.5 / blur) - normal_area(z - 0.5 / blur);
            for (std::size_t column = 0; column < width && part > 1e-12; ++column)
                share[row * width + column] += part * across[column];
        }
    }
    for (std::size_t row = 0; row < height; ++row)
        for (std::size_t column = 0; column < width; ++column) {
            double& value = share[row * width + column];
            const double light =
                1 + light_x * (static_cast<double>(column) - x) + light_y * (static_cast<double>(row) - y);
            value = (outside + (inside - outside) * value) * light;
        }
    return share;
}

// Gauss elimination with pivots; the matrix is used up.
inline std::array<double, 10> solve_plainly(std::array<std::array<double, 11>, 10> rows)
{
    for (std::size_t i = 0; i < 10; ++i) {
        std::size_t pivot = i;
        for (std::size_t k = i + 1; k < 10; ++k)
            pivot = std::fabs(rows[k][i]) > std::fabs(rows[pivot][i]) ? k : pivot;
        std::swap(rows[i], rows[pivot]);
        for (std::size_t k = 0; k < 10; ++k) {
            if (k == i)
                continue;
            const double factor = rows[k][i] / rows[i][i];
            for (std::size_t j = i; j < 11; ++j)
                rows[k][j] -= factor * rows[i][j];
        }
    }
    std::array<double, 10> solution{};
    for (std::size_t i = 0; i < 10; ++i)
        solution[i] = rows[i][10] / rows[i][i];
    return solution;
}

// From a start near the truth.
template <class Sample>
PlainFit fit_plainly(const std::vector<Sample>& samples, std::size_t width, PlainFit fit)
{
    const std::size_t height = samples.size() / width;
    constexpr std::array<double, 10> kSteps = {1e-4, 1e-4, 1e-4, 1e-4, 1e-4, 1e-4, 1e-3, 1e-3, 1e-7, 1e-7};
    for (int iteration = 0; iteration < 6; ++iteration) {
        const std::vector<double> here = plain_model(fit, width, height);
        std::vector<std::vector<double>> columns;
        for (std::size_t i = 0; i < 10; ++i) {
            PlainFit moved = fit;
            moved.unknowns[i] += kSteps[i];
            columns.push_back(plain_model(moved, width, height));
            for (std::size_t n = 0; n < here.size(); ++n)
                columns[i][n] = (columns[i][n] - here[n]) / kSteps[i];
        }
        std::array<std::array<double, 11>, 10> equations{};
        for (std::size_t n = 0; n < here.size(); ++n)
            for (std::size_t i = 0; i < 10; ++i) {
                for (std::size_t j = 0; j < 10; ++j)
                    equations[i][j] += columns[i][n] * columns[j][n];
                equations[i][10] += columns[i][n] * (static_cast<double>(samples[n]) - here[n]);
            }
        const std::array<double, 10> step = solve_plainly(equations);
        for (std::size_t i = 0; i < 10; ++i)
            fit.unknowns[i] += step[i];
        fit.unknowns[5] = std::fmax(fit.unknowns[5], 0.04);
    }
    return fit;
}

} // namespace panoval::reference
