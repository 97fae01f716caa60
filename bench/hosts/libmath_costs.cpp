// SPDX-License-Identifier: MIT
// The routines of libmath, with matrices of the size that the gains of a hundred pictures have.
#include "bench/hosts/cost_of.h"
#include "libmath/libmath.h"

namespace panoval::bench
{

namespace
{

constexpr std::int32_t kUnknowns = 100;

// Symmetric, with the strong diagonal of gains.
std::vector<double> gains_matrix()
{
    std::vector<double> matrix(kUnknowns * kUnknowns);
    for (int i = 0; i < kUnknowns; ++i)
        for (int j = 0; j < kUnknowns; ++j)
            matrix[static_cast<std::size_t>(i * kUnknowns + j)] = i == j ? kUnknowns : 1.0 / (1 + (i + j) % 7);
    return matrix;
}

} // namespace

void print_libmath_calls()
{
    const std::vector<double> given = gains_matrix();
    std::vector<double> matrix = given, product(given.size()), line(kUnknowns, 1), right(kUnknowns, 1);
    std::vector<double> solution(kUnknowns);
    const auto restore = [&] { matrix = given; };
    print_per_call("matrix_invert", "100 x 100",
                   cost_of([&] { matrix_invert(matrix.data(), kUnknowns, nullptr, nullptr); }, restore));
    print_per_call("matrix_symmetric_invert", "100 x 100",
                   cost_of([&] { matrix_symmetric_invert(matrix.data(), kUnknowns); }, restore));
    print_per_call("matrix_mult", "two of 100 x 100", cost_of([&] {
                       matrix_mult(given.data(), given.data(), product.data(), kUnknowns, kUnknowns, kUnknowns);
                   }));
    print_per_call("pnrml", "100 unknowns",
                   cost_of([&] { pnrml(line.data(), kUnknowns, 1, matrix.data(), right.data(), 1); }, restore));
    print_per_call(
        "solve_lsq", "100 x 100",
        cost_of([&] { solve_lsq(matrix.data(), right.data(), solution.data(), kUnknowns, kUnknowns, nullptr); },
                restore));
}

} // namespace panoval::bench
