// SPDX-License-Identifier: MIT
// Matrices of any bits into libmath: products and normal equations to the last bit as their definition has them; what
// cannot be inverted stays as it is; inverses of symmetric matrices are symmetric; no answer where there is none.
#include "fuzz/input.h"
#include "libmath/libmath.h"

#include <cmath>

namespace
{

using namespace panoval::fuzz;

using Values = std::vector<double>;

// Numbers of moderate size, with bits of the input on top.
Values values(Input& input, std::size_t count)
{
    Values all = panoval::test::noise<double>(count, -3, 3, input.number<std::uint64_t>(0, 0xFFFF));
    const int sparse = input.number(1, 4);
    for (std::size_t i = 0; i < count; ++i)
        if (i % static_cast<std::size_t>(sparse) != 0)
            all[i] = std::floor(all[i]);
    const auto own = input.bytes().ConsumeBytes<std::uint8_t>(input.number<std::size_t>(0, count * sizeof(double)));
    if (!own.empty())
        std::memcpy(all.data(), own.data(), own.size());
    return all;
}

// Which not-a-number comes out is not promised.
bool same(const Values& a, const Values& b)
{
    for (std::size_t i = 0; i < a.size(); ++i)
        if (!same_bits(&a[i], &b[i], 1) && !(std::isnan(a[i]) && std::isnan(b[i])))
            return false;
    return a.size() == b.size();
}

void multiply(Input& input)
{
    const int rows = input.number(1, 9);
    const int inner = input.number(1, 9);
    const int columns = input.number(1, 9);
    const Values a = values(input, area(rows, inner));
    const Values b = values(input, area(inner, columns));
    Values c(area(rows, columns), 7);
    require(matrix_mult(a.data(), b.data(), c.data(), rows, inner, columns) == 1);
    Values expected(c.size());
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < columns; ++j)
            for (int k = 0; k < inner; ++k) {
                const double term =
                    a[area(i, inner) + static_cast<std::size_t>(k)] * b[area(k, columns) + static_cast<std::size_t>(j)];
                double& sum = expected[area(i, columns) + static_cast<std::size_t>(j)];
                sum = k == 0 ? term : sum + term;
            }
    require(same(c, expected));
}

void observe(Input& input)
{
    const int n = input.number(1, 9);
    const auto count = static_cast<std::size_t>(n);
    const Values row = values(input, count);
    const Values scalars = values(input, 2);
    Values normal = values(input, count * count);
    Values rhs = values(input, count);
    Values expected_normal = normal;
    Values expected_rhs = rhs;
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t j = 0; j < count; ++j)
            expected_normal[i * count + j] += scalars[1] * row[i] * row[j];
        expected_rhs[i] += scalars[1] * scalars[0] * row[i];
    }
    require(pnrml(row.data(), n, scalars[0], normal.data(), rhs.data(), scalars[1]) == 1);
    require(same(normal, expected_normal) && same(rhs, expected_rhs));
}

void invert(Input& input)
{
    const int n = input.number(1, 9);
    const auto count = static_cast<std::size_t>(n);
    const bool is_symmetric = input.flag();
    const Values before = values(input, count * count);
    Values a = before;
    const int result =
        is_symmetric ? matrix_symmetric_invert(a.data(), n) : matrix_invert(a.data(), n, nullptr, nullptr);
    Values again = before;
    require(result == (is_symmetric ? matrix_symmetric_invert(again.data(), n)
                                    : matrix_invert(again.data(), n, nullptr, nullptr)));
    require(same_bits(a, again));
    if (result != 1) {
        require(same_bits(a, before));
        return;
    }
    for (std::size_t i = 0; is_symmetric && i < count; ++i)
        for (std::size_t j = 0; j < i; ++j)
            require(same_bits(&a[i * count + j], &a[j * count + i], 1));
}

void solve(Input& input)
{
    const int rows = input.number(1, 9);
    const int columns = input.number(1, 9);
    Values normal = values(input, area(rows, columns));
    Values rhs = values(input, static_cast<std::size_t>(rows));
    const Values same_normal = normal;
    const Values same_rhs = rhs;
    Values solution(static_cast<std::size_t>(columns), 7);
    const int result = solve_lsq(normal.data(), rhs.data(), solution.data(), rows, columns, nullptr);
    require(same_bits(normal, same_normal) && same_bits(rhs, same_rhs));
    if (rows < columns)
        require(result != 1);
    if (result != 1)
        for (const double value : solution)
            require(value == 0 || std::isnan(value));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    switch (input.number(0, 3)) {
    case 0:
        multiply(input);
        break;
    case 1:
        observe(input);
        break;
    case 2:
        invert(input);
        break;
    default:
        solve(input);
        break;
    }
    return 0;
}
