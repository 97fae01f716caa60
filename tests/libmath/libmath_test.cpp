// SPDX-License-Identifier: MIT
#include "libmath/libmath.h"
#include "tests/support/buffers.h"
#include "tests/support/failing_heap.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

namespace
{

using panoval::test::for_each_failing_allocation;
using panoval::test::Guarded;
using panoval::test::noise;
using panoval::test::same_bits;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();

std::size_t count(std::int32_t rows, std::int32_t columns)
{
    return static_cast<std::size_t>(rows) * static_cast<std::size_t>(columns);
}

std::vector<double> product(const std::vector<double>& a, const std::vector<double>& b, std::int32_t rows,
                            std::int32_t inner, std::int32_t columns)
{
    std::vector<double> c(count(rows, columns));
    for (std::int32_t i = 0; i < rows; ++i)
        for (std::int32_t j = 0; j < columns; ++j) {
            double sum = a[count(i, inner)] * b[static_cast<std::size_t>(j)];
            for (std::int32_t k = 1; k < inner; ++k) {
                const double term = a[count(i, inner) + static_cast<std::size_t>(k)] *
                                    b[count(k, columns) + static_cast<std::size_t>(j)];
                sum += term;
            }
            c[count(i, columns) + static_cast<std::size_t>(j)] = sum;
        }
    return c;
}

// Positive definite: g * g' with something on the diagonal.
std::vector<double> definite(std::int32_t n, std::uint64_t seed)
{
    const auto g = noise<double>(count(n, n), -1, 1, seed);
    std::vector<double> a(count(n, n));
    for (std::int32_t i = 0; i < n; ++i)
        for (std::int32_t j = 0; j < n; ++j) {
            double sum = i == j ? 0.5 : 0;
            for (std::int32_t k = 0; k < n; ++k)
                sum += g[count(i, n) + static_cast<std::size_t>(k)] * g[count(j, n) + static_cast<std::size_t>(k)];
            a[count(i, n) + static_cast<std::size_t>(j)] = sum;
        }
    return a;
}

void expect_identity(const std::vector<double>& m, std::int32_t n, double tolerance)
{
    for (std::int32_t i = 0; i < n; ++i)
        for (std::int32_t j = 0; j < n; ++j)
            ASSERT_NEAR(m[count(i, n) + static_cast<std::size_t>(j)], i == j ? 1 : 0, tolerance)
                << "element " << i << ", " << j << " of " << n;
}

// FNV-1a of the object representation
std::uint64_t digest(const std::vector<double>& values)
{
    std::uint64_t hash = 0xCBF29CE484222325u;
    for (const double value : values) {
        std::uint64_t bits;
        std::memcpy(&bits, &value, sizeof bits);
        for (int byte = 0; byte < 8; ++byte)
            hash = (hash ^ ((bits >> (8 * byte)) & 0xFF)) * 0x100000001B3u;
    }
    return hash;
}

TEST(MatrixInvert, WritesTheInverseInPlace)
{
    std::vector<double> a = {4, 7, 2, 6};
    std::int32_t scratch1[2];
    std::int32_t scratch2[2];
    EXPECT_EQ(matrix_invert(a.data(), 2, scratch1, scratch2), 1);
    const double expected[] = {0.6, -0.7, -0.2, 0.4};
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_NEAR(a[i], expected[i], 1e-15);
}

TEST(MatrixInvert, TimesTheMatrixGivesTheIdentityForEverySize)
{
    for (std::int32_t n = 1; n <= 40; ++n) {
        const auto a = noise<double>(count(n, n), -1, 1, static_cast<std::uint64_t>(n));
        Guarded<double> inverse(a);
        ASSERT_EQ(matrix_invert(inverse.data(), n, nullptr, nullptr), 1);
        EXPECT_TRUE(inverse.intact());
        expect_identity(product(inverse.values(), a, n, n, n), n, 1e-10);
    }
}

TEST(MatrixInvert, NeedsNoScratchOfTheCaller)
{
    Guarded<std::int32_t> scratch1(3);
    Guarded<std::int32_t> scratch2(3);
    std::vector<double> a = {2, 0, 0, 0, 4, 0, 0, 0, 8};
    EXPECT_EQ(matrix_invert(a.data(), 3, scratch1.data(), scratch2.data()), 1);
    EXPECT_TRUE(scratch1.intact() && scratch2.intact());
    EXPECT_TRUE(same_bits(a, std::vector<double>{0.5, 0, 0, 0, 0.25, 0, 0, 0, 0.125}));
}

TEST(MatrixInvert, CopesWithZerosOnTheDiagonal)
{
    std::vector<double> a = {0, 2, 4, 0};
    EXPECT_EQ(matrix_invert(a.data(), 2, nullptr, nullptr), 1);
    EXPECT_TRUE(same_bits(a, std::vector<double>{0, 0.25, 0.5, 0}));
}

TEST(MatrixInvert, CopesWithRowsOfVeryDifferentSize)
{
    std::vector<double> a = {1e150, 2e150, 1e-150, -1e-150};
    EXPECT_EQ(matrix_invert(a.data(), 2, nullptr, nullptr), 1);
    EXPECT_NEAR(a[0] * 3e150, 1, 1e-14);
    EXPECT_NEAR(a[3] * -3e-150, 1, 1e-14);
}

TEST(MatrixInvert, LeavesASingularMatrixAsItIs)
{
    for (const std::vector<double>& singular :
         {std::vector<double>{1, 2, 3, 4, 5, 6, 7, 8, 9}, std::vector<double>{1, 0, 2, 0, 0, 0, 3, 0, 4},
          std::vector<double>(9, 0.0), std::vector<double>(9, 7.0)}) {
        std::vector<double> a = singular;
        EXPECT_EQ(matrix_invert(a.data(), 3, nullptr, nullptr), 0);
        EXPECT_TRUE(same_bits(a, singular));
    }
}

TEST(MatrixInvert, TakesAValueThatIsNotFiniteForSingular)
{
    for (const double odd : {kInfinity, -kInfinity, kNotANumber}) {
        const std::vector<double> original = {1, 0, 0, odd};
        std::vector<double> a = original;
        EXPECT_EQ(matrix_invert(a.data(), 2, nullptr, nullptr), 0);
        EXPECT_TRUE(same_bits(a, original));
        EXPECT_EQ(matrix_symmetric_invert(a.data(), 2), 0);
        EXPECT_TRUE(same_bits(a, original));
    }
}

TEST(MatrixInvert, DoesNothingForSizesOfZeroOrLess)
{
    EXPECT_EQ(matrix_invert(nullptr, 0, nullptr, nullptr), 1);
    EXPECT_EQ(matrix_invert(nullptr, -3, nullptr, nullptr), 1);
    EXPECT_EQ(matrix_symmetric_invert(nullptr, 0), 1);
    EXPECT_EQ(matrix_symmetric_invert(nullptr, std::numeric_limits<std::int32_t>::min()), 1);
}

TEST(MatrixInvert, GivesTheSameBitsOnEveryMachine)
{
    // Large enough for the blocked paths, whose sums must not follow the machine's caches.
    constexpr std::int32_t n = 200;
    auto a = noise<double>(count(n, n), -1, 1, 77);
    ASSERT_EQ(matrix_invert(a.data(), n, nullptr, nullptr), 1);
    EXPECT_EQ(digest(a), 9419360599314940148u);
    auto b = definite(n, 78);
    ASSERT_EQ(matrix_symmetric_invert(b.data(), n), 1);
    EXPECT_EQ(digest(b), 866258070115526708u);
}

TEST(MatrixInvert, WithoutMemoryReturnsMinusOneAndLeavesTheMatrix)
{
    for_each_failing_allocation([](const auto& heap) {
        const auto original = definite(24, 5);
        auto a = original;
        const std::int32_t result = matrix_invert(a.data(), 24, nullptr, nullptr);
        EXPECT_EQ(result, heap.has_failed() ? -1 : 1);
        EXPECT_EQ(result != 1, static_cast<bool>(same_bits(a, original)));
    });
}

TEST(MatrixSymmetricInvert, WritesTheInverseInPlace)
{
    std::vector<double> a = {2, 1, 1, 2};
    EXPECT_EQ(matrix_symmetric_invert(a.data(), 2), 1);
    const double expected[] = {2. / 3, -1. / 3, -1. / 3, 2. / 3};
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_NEAR(a[i], expected[i], 1e-15);
}

TEST(MatrixSymmetricInvert, IsSymmetricToTheLastBitAndAnInverse)
{
    for (std::int32_t n = 1; n <= 40; ++n) {
        const auto a = definite(n, static_cast<std::uint64_t>(n));
        Guarded<double> inverse(a);
        ASSERT_EQ(matrix_symmetric_invert(inverse.data(), n), 1);
        EXPECT_TRUE(inverse.intact());
        for (std::int32_t i = 0; i < n; ++i)
            for (std::int32_t j = 0; j < n; ++j)
                EXPECT_EQ(inverse[count(i, n) + static_cast<std::size_t>(j)],
                          inverse[count(j, n) + static_cast<std::size_t>(i)]);
        expect_identity(product(inverse.values(), a, n, n, n), n, 1e-11);
    }
}

TEST(MatrixSymmetricInvert, ReadsTheLowerTriangleAlone)
{
    std::vector<double> a = {2, kNotANumber, 1, 2};
    EXPECT_EQ(matrix_symmetric_invert(a.data(), 2), 1);
    EXPECT_NEAR(a[1], -1. / 3, 1e-15);
}

TEST(MatrixSymmetricInvert, CopesWithIndefiniteMatrices)
{
    std::vector<double> a = {0, 2, 2, 0};
    EXPECT_EQ(matrix_symmetric_invert(a.data(), 2), 1);
    EXPECT_TRUE(same_bits(a, std::vector<double>{0, 0.5, 0.5, 0}));
    std::vector<double> b = {1, 3, 3, 1};
    EXPECT_EQ(matrix_symmetric_invert(b.data(), 2), 1);
    EXPECT_NEAR(b[0], -0.125, 1e-15);
    EXPECT_NEAR(b[1], 0.375, 1e-15);
}

TEST(MatrixSymmetricInvert, LeavesASingularMatrixAsItIs)
{
    // a row and column of zeros, as an image that nothing was measured for leaves it
    const std::vector<double> singular = {3, 0, 1, 0, 0, 0, 1, 0, 5};
    std::vector<double> a = singular;
    EXPECT_EQ(matrix_symmetric_invert(a.data(), 3), 0);
    EXPECT_TRUE(same_bits(a, singular));
}

TEST(MatrixSymmetricInvert, WithoutMemoryReturnsMinusOneAndLeavesTheMatrix)
{
    for_each_failing_allocation([](const auto& heap) {
        const auto original = definite(24, 6);
        auto a = original;
        const std::int32_t result = matrix_symmetric_invert(a.data(), 24);
        EXPECT_EQ(result, heap.has_failed() ? -1 : 1);
        EXPECT_EQ(result != 1, static_cast<bool>(same_bits(a, original)));
    });
}

TEST(MatrixMult, EqualsRunningSumsForEveryShape)
{
    for (std::int32_t rows = 1; rows <= 9; ++rows)
        for (std::int32_t inner = 1; inner <= 9; ++inner)
            for (std::int32_t columns = 1; columns <= 9; ++columns) {
                const auto a = noise<double>(count(rows, inner), -1, 1, 1);
                const auto b = noise<double>(count(inner, columns), -1, 1, 2);
                Guarded<double> c(count(rows, columns));
                EXPECT_EQ(matrix_mult(a.data(), b.data(), c.data(), rows, inner, columns), 1);
                EXPECT_TRUE(c.intact());
                EXPECT_TRUE(same_bits(c.values(), product(a, b, rows, inner, columns)));
            }
}

TEST(MatrixMult, SumsAWideProductInAscendingOrder)
{
    constexpr std::int32_t n = 300;
    const auto a = noise<double>(count(n, n), -1, 1, 3);
    const auto b = noise<double>(static_cast<std::size_t>(n), -1, 1, 4);
    std::vector<double> c(static_cast<std::size_t>(n));
    EXPECT_EQ(matrix_mult(a.data(), b.data(), c.data(), n, n, 1), 1);
    EXPECT_TRUE(same_bits(c, product(a, b, n, n, 1)));
}

TEST(MatrixMult, GivesZerosWithoutAnInnerSizeAndNothingWithoutAnOuterOne)
{
    std::vector<double> c(4, 9.0);
    EXPECT_EQ(matrix_mult(nullptr, nullptr, c.data(), 0, 2, 2), 1);
    EXPECT_EQ(matrix_mult(nullptr, nullptr, c.data(), 2, 2, -1), 1);
    EXPECT_TRUE(same_bits(c, std::vector<double>(4, 9.0)));
    EXPECT_EQ(matrix_mult(nullptr, nullptr, c.data(), 2, 0, 2), 1);
    EXPECT_TRUE(same_bits(c, std::vector<double>(4, 0.0)));
    EXPECT_EQ(matrix_mult(nullptr, nullptr, nullptr, -1, -1, -1), 1);
}

TEST(Pnrml, AddsToWhatIsThere)
{
    const double row[] = {2, 3};
    double normal[] = {100, 200, 300, 400};
    double rhs[] = {10, 20};
    EXPECT_EQ(pnrml(row, 2, 7, normal, rhs, 0.5), 1);
    const double expected[] = {102, 203, 303, 404.5};
    const double expected_rhs[] = {17, 30.5};
    EXPECT_TRUE(same_bits(normal, expected, 4));
    EXPECT_TRUE(same_bits(rhs, expected_rhs, 2));
}

TEST(Pnrml, RoundsEveryCellAfterEveryPoint)
{
    for (std::int32_t n = 1; n <= 12; ++n) {
        const auto size = static_cast<std::size_t>(n);
        Guarded<double> normal(std::vector<double>(size * size, 0.0));
        Guarded<double> rhs(std::vector<double>(size, 0.0));
        std::vector<double> expected(size * size, 0.0);
        std::vector<double> expected_rhs(size, 0.0);
        for (std::uint64_t point = 0; point < 50; ++point) {
            const auto row = noise<double>(size, -1e3, 1e3, point);
            const double value = noise<double>(1, -1, 1, point + 100)[0];
            const double weight = noise<double>(1, 0, 1, point + 200)[0];
            for (std::size_t i = 0; i < size; ++i) {
                const double weighted = weight * row[i];
                for (std::size_t j = 0; j < size; ++j) {
                    const double term = weighted * row[j];
                    expected[i * size + j] += term;
                }
                const double term = (weight * value) * row[i];
                expected_rhs[i] += term;
            }
            EXPECT_EQ(pnrml(row.data(), n, value, normal.data(), rhs.data(), weight), 1);
        }
        EXPECT_TRUE(normal.intact() && rhs.intact());
        EXPECT_TRUE(same_bits(normal.values(), expected));
        EXPECT_TRUE(same_bits(rhs.values(), expected_rhs));
    }
}

TEST(Pnrml, DoesNothingForSizesOfZeroOrLess)
{
    EXPECT_EQ(pnrml(nullptr, 0, 1, nullptr, nullptr, 1), 1);
    EXPECT_EQ(pnrml(nullptr, -1, 1, nullptr, nullptr, 1), 1);
}

TEST(SolveLsq, SolvesASquareSystemAndLeavesItAsItIs)
{
    const std::vector<double> original = {4, 1, 1, 3};
    std::vector<double> normal = original;
    std::vector<double> rhs = {9, 5};
    double solution[] = {kNotANumber, kNotANumber};
    double work[256];
    EXPECT_EQ(solve_lsq(normal.data(), rhs.data(), solution, 2, 2, work), 1);
    EXPECT_NEAR(solution[0], 2, 1e-15);
    EXPECT_NEAR(solution[1], 1, 1e-15);
    EXPECT_TRUE(same_bits(normal, original));
    EXPECT_TRUE(same_bits(rhs, std::vector<double>{9, 5}));
}

TEST(SolveLsq, FindsTheSolutionForEverySize)
{
    for (std::int32_t n = 1; n <= 24; ++n) {
        auto a = noise<double>(count(n, n), -1, 1, static_cast<std::uint64_t>(n) + 40);
        const auto x = noise<double>(static_cast<std::size_t>(n), -1, 1, 9);
        auto b = product(a, x, n, n, 1);
        Guarded<double> solution(static_cast<std::size_t>(n));
        EXPECT_EQ(solve_lsq(a.data(), b.data(), solution.data(), n, n, nullptr), 1);
        EXPECT_TRUE(solution.intact());
        for (std::int32_t i = 0; i < n; ++i)
            EXPECT_NEAR(solution[static_cast<std::size_t>(i)], x[static_cast<std::size_t>(i)], 1e-11);
    }
}

TEST(SolveLsq, TakesMoreRowsInTheSenseOfLeastSquares)
{
    // the mean of 1, 2, 6, and a line through (0, 1), (1, 3), (2, 4), (3, 4)
    double ones[] = {1, 1, 1};
    double values[] = {1, 2, 6};
    double mean = 0;
    EXPECT_EQ(solve_lsq(ones, values, &mean, 3, 1, nullptr), 1);
    EXPECT_NEAR(mean, 3, 1e-14);
    double design[] = {1, 0, 1, 1, 1, 2, 1, 3};
    double heights[] = {1, 3, 4, 4};
    double line[2];
    EXPECT_EQ(solve_lsq(design, heights, line, 4, 2, nullptr), 1);
    EXPECT_NEAR(line[0], 1.5, 1e-14);
    EXPECT_NEAR(line[1], 1.0, 1e-14);
}

TEST(SolveLsq, SolvesTheEquationsOfASmallConicFarFromTheOrigin)
{
    // Unknowns of a circle of radius 3 around (4000, 3000): columns between 1 and 1e7, all nearly parallel.
    std::vector<double> normal(25, 0.0);
    std::vector<double> rhs(5, 0.0);
    for (int i = 0; i < 40; ++i) {
        const double x = 4000 + 3 * std::cos(i * 0.157);
        const double y = 3000 + 3 * std::sin(i * 0.157);
        const double row[] = {x * y, y * y, x, y, 1};
        pnrml(row, 5, 1e-3 * (x - 4000), normal.data(), rhs.data(), 1);
    }
    double solution[5];
    EXPECT_EQ(solve_lsq(normal.data(), rhs.data(), solution, 5, 5, nullptr), 1);
    EXPECT_NEAR(solution[2], 1e-3, 1e-4);
}

TEST(SolveLsq, GivesZerosForASingularMatrix)
{
    double normal[] = {1, 2, 2, 4};
    double rhs[] = {1, 2};
    double solution[] = {9, 9};
    EXPECT_EQ(solve_lsq(normal, rhs, solution, 2, 2, nullptr), 0);
    EXPECT_EQ(solution[0], 0);
    EXPECT_EQ(solution[1], 0);
    double wide[] = {1, 0, 0, 0, 1, 0};
    double three[] = {9, 9, 9};
    EXPECT_EQ(solve_lsq(wide, rhs, three, 2, 3, nullptr), 0);
    EXPECT_EQ(three[2], 0);
    double tall[] = {1, 2, 2, 4, 3, 6};
    double observed[] = {1, 1, 1};
    EXPECT_EQ(solve_lsq(tall, observed, solution, 3, 2, nullptr), 0);
    EXPECT_EQ(solution[0], 0);
}

TEST(SolveLsq, PassesOnThatAnInputIsNotFinite)
{
    for (const double odd : {kInfinity, kNotANumber}) {
        double normal[] = {odd, 0, 0, 1};
        double identity[] = {1, 0, 0, 1};
        double rhs[] = {1, 2};
        double solution[] = {9, 9};
        EXPECT_EQ(solve_lsq(normal, rhs, solution, 2, 2, nullptr), 0);
        EXPECT_TRUE(std::isnan(solution[0]) && std::isnan(solution[1]));
        solution[0] = rhs[1] = odd;
        EXPECT_EQ(solve_lsq(identity, rhs, solution, 2, 2, nullptr), 0);
        EXPECT_TRUE(std::isnan(solution[0]) && std::isnan(solution[1]));
    }
}

TEST(SolveLsq, TakesSizesOfZeroOrLess)
{
    double solution[] = {9, 9};
    EXPECT_EQ(solve_lsq(nullptr, nullptr, solution, 0, 0, nullptr), 1);
    EXPECT_EQ(solve_lsq(nullptr, nullptr, nullptr, 2, -2, nullptr), 1);
    EXPECT_EQ(solution[0], 9);
    EXPECT_EQ(solve_lsq(nullptr, nullptr, solution, -1, 2, nullptr), 0);
    EXPECT_EQ(solution[0], 0);
}

TEST(SolveLsq, UsesNoHeapForAConic)
{
    auto normal = definite(5, 1);
    double rhs[] = {1, 2, 3, 4, 5};
    double solution[5];
    const panoval::test::FailingHeap heap(0);
    EXPECT_EQ(solve_lsq(normal.data(), rhs, solution, 5, 5, nullptr), 1);
    EXPECT_EQ(heap.allocations(), 0u);
}

TEST(SolveLsq, WithoutMemoryReturnsMinusOneAndZeros)
{
    for (const std::int32_t rows : {20, 30})
        for_each_failing_allocation([rows](const auto& heap) {
            auto a = noise<double>(count(rows, 20), -1, 1, 1);
            auto b = noise<double>(static_cast<std::size_t>(rows), -1, 1, 2);
            std::vector<double> solution(20, 9.0);
            const std::int32_t result = solve_lsq(a.data(), b.data(), solution.data(), rows, 20, nullptr);
            EXPECT_EQ(result, heap.has_failed() ? -1 : 1);
            EXPECT_EQ(result != 1, solution == std::vector<double>(20, 0.0));
        });
}

} // namespace
