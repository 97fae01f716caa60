// SPDX-License-Identifier: MIT
// Small problems of least squares.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace panoval::mosaic
{

// Weighted sums and their solution. Summed in one order on every processor.
template <std::size_t kTerms>
class NormalEquations
{
public:
    using Terms = std::array<double, kTerms>;

    void add(const Terms& terms, double value, double weight)
    {
        for (std::size_t i = 0; i < kTerms; ++i) {
            const double weighted = weight * terms[i];
            right_[i] += weighted * value;
            for (std::size_t j = 0; j <= i; ++j)
                matrix_[i][j] += weighted * terms[j];
        }
    }

    // Draws all factors but the first one to 0 where the data say nothing of them.
    void hold_back(double weight)
    {
        for (std::size_t i = 0; i < kTerms; ++i)
            matrix_[i][i] += (i == 0 ? 0 : weight) + 1e-9;
    }

    // By Cholesky's decomposition.
    Terms solve()
    {
        for (std::size_t i = 0; i < kTerms; ++i)
            for (std::size_t j = 0; j <= i; ++j) {
                double rest = matrix_[i][j];
                for (std::size_t k = 0; k < j; ++k)
                    rest -= matrix_[i][k] * matrix_[j][k];
                matrix_[i][j] = i == j ? std::sqrt(std::max(rest, 1e-12)) : rest / matrix_[j][j];
            }
        Terms solution = right_;
        for (std::size_t i = 0; i < kTerms; ++i) {
            for (std::size_t k = 0; k < i; ++k)
                solution[i] -= matrix_[i][k] * solution[k];
            solution[i] /= matrix_[i][i];
        }
        for (std::size_t i = kTerms; i-- > 0;) {
            for (std::size_t k = i + 1; k < kTerms; ++k)
                solution[i] -= matrix_[k][i] * solution[k];
            solution[i] /= matrix_[i][i];
        }
        return solution;
    }

    // After solve(), for values with a variance of 1: the variance of the last factor but one, its covariance with the
    // last one, and that one's variance. Larger where other terms are nearly proportional to theirs.
    std::array<double, 3> covariance_of_last_two() const
    {
        const double a = matrix_[kTerms - 2][kTerms - 2];
        const double b = matrix_[kTerms - 1][kTerms - 2];
        const double c = matrix_[kTerms - 1][kTerms - 1];
        const double last = 1 / (c * c);
        return {1 / (a * a) + b * b / (a * a) * last, -b / a * last, last};
    }

private:
    std::array<Terms, kTerms> matrix_{};
    Terms right_{};
};

} // namespace panoval::mosaic
