// SPDX-License-Identifier: MIT
// Least squares with a handful of unknowns: normal equations and Cholesky's decomposition, always in the same order of
// operations.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace panoval::mosaic
{

template <std::size_t kCount>
struct NormalEquations {
    using Vector = std::array<double, kCount>;

    std::array<Vector, kCount> matrix{}; // the lower triangle
    Vector right{};

    void add(const Vector& basis, double value, double weight)
    {
        for (std::size_t i = 0; i < kCount; ++i) {
            const double scaled = weight * basis[i];
            for (std::size_t j = 0; j <= i; ++j)
                matrix[i][j] += scaled * basis[j];
            right[i] += scaled * value;
        }
    }

    void add(const NormalEquations& other)
    {
        for (std::size_t i = 0; i < kCount; ++i) {
            for (std::size_t j = 0; j <= i; ++j)
                matrix[i][j] += other.matrix[i][j];
            right[i] += other.right[i];
        }
    }

    // That much speaks for a value of unknown i.
    void add_prior(std::size_t i, double weight, double value = 0)
    {
        matrix[i][i] += weight;
        right[i] += weight * value;
    }

    Vector solve() const { return solve(right); }

    // With another right side. Unknowns that no equation determines become 0.
    Vector solve(const Vector& other_right) const
    {
        std::array<Vector, kCount> lower{};
        Vector x = other_right;
        for (std::size_t i = 0; i < kCount; ++i) {
            for (std::size_t j = 0; j <= i; ++j) {
                double sum = matrix[i][j];
                for (std::size_t k = 0; k < j; ++k)
                    sum -= lower[i][k] * lower[j][k];
                if (i == j)
                    lower[i][i] = sum > 1e-12 * matrix[i][i] ? std::sqrt(sum) : 0.0;
                else
                    lower[i][j] = lower[j][j] > 0 ? sum / lower[j][j] : 0.0;
            }
            for (std::size_t k = 0; k < i; ++k)
                x[i] -= lower[i][k] * x[k];
            x[i] = lower[i][i] > 0 ? x[i] / lower[i][i] : 0.0;
        }
        for (std::size_t i = kCount; i-- > 0;) {
            for (std::size_t k = i + 1; k < kCount; ++k)
                x[i] -= lower[k][i] * x[k];
            x[i] = lower[i][i] > 0 ? x[i] / lower[i][i] : 0.0;
        }
        return x;
    }
};

} // namespace panoval::mosaic
