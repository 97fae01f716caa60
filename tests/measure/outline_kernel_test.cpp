// SPDX-License-Identifier: MIT
#include "measure/outline_kernel.h"
#include "tests/reference/normal_at.h"
#include "tests/reference/outline_kernel.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace
{

using panoval::measure::kWindowStep;
using panoval::measure::Level;
using panoval::reference::normal_at;
using panoval::test::for_each_target;
using panoval::test::noise;
using panoval::test::Random;
using panoval::test::same_bits;

TEST(NormalTable, IsExactToThirteenDigits)
{
    for (int i = -90000; i <= 90000; ++i) {
        const double z = i * 1e-4 + 3e-6;
        ASSERT_NEAR(normal_at(z).cumulative, 0.5 * std::erfc(-z / std::sqrt(2.0)), 1e-13) << z;
        ASSERT_NEAR(normal_at(z).density, std::exp(-z * z / 2) / std::sqrt(2 * 3.14159265358979323846), 1e-13) << z;
    }
    EXPECT_EQ(normal_at(0.0).cumulative, 0.5);
    EXPECT_EQ(normal_at(1e300).cumulative, normal_at(8.0).cumulative);
    EXPECT_EQ(normal_at(-HUGE_VAL).density, normal_at(-8.0).density);
}

TEST(NormalTable, IsExactToTwoTenMillionthsInSinglePrecision)
{
    for (int i = -90000; i <= 90000; ++i) {
        const auto z = static_cast<float>(i * 1e-4 + 3e-6);
        const double exact = static_cast<double>(z);
        ASSERT_NEAR(static_cast<double>(normal_at(z).cumulative), normal_at(exact).cumulative, 2e-7) << z;
        ASSERT_NEAR(static_cast<double>(normal_at(z).density), normal_at(exact).density, 2e-7) << z;
    }
    EXPECT_EQ(normal_at(HUGE_VALF).cumulative, 1.0f);
    EXPECT_EQ(normal_at(-1e30f).density, normal_at(-8.0f).density);
}

TEST(Respond, EqualsItsTwinForEveryWindow)
{
    for_each_target([] {
        Random random(1);
        for (std::size_t window = 1; window <= 40; ++window) {
            const std::size_t padded = (window + kWindowStep - 1) / kWindowStep * kWindowStep;
            const double blur = random.real(0.1, 5);
            const double offset = random.real(0, static_cast<double>(window));
            std::vector<float> edges(3 * (padded + kWindowStep));
            std::vector<float> actual(3 * padded, -1.f);
            std::vector<float> expected(3 * padded, -2.f);
            panoval::measure::respond(offset, blur, 1 / blur, window, padded, edges.data(), actual.data(),
                                      actual.data() + padded, actual.data() + 2 * padded);
            panoval::reference::respond(offset, blur, 1 / blur, window, padded, expected.data(),
                                        expected.data() + padded, expected.data() + 2 * padded);
            ASSERT_TRUE(same_bits(actual, expected)) << "window " << window << ", blur " << blur;
        }
    });
}

TEST(AddLevels, EqualsItsTwin)
{
    for_each_target([] {
        Random random(2);
        for (const std::size_t padded : std::initializer_list<std::size_t>{4, 8, 12, 24}) {
            constexpr std::size_t kLevels = 9;
            const std::size_t stride = 70 + padded;
            const auto by_row = noise(3 * padded * kLevels, -1.f, 1.f, 3);
            const auto by_column = noise(6 * padded * kLevels, -1.f, 1.f, 4);
            std::vector<Level> levels(kLevels);
            for (Level& level : levels) {
                level.row = static_cast<std::int32_t>(random.integer(11, 14));
                for (int& column : level.column)
                    column = static_cast<int>(random.integer(0, 69));
                level.height = static_cast<float>(random.real(0, 1));
                for (std::size_t side = 0; side < 2; ++side) {
                    for (float& by : level.by[side])
                        by = static_cast<float>(random.real(-1, 1));
                    for (float& normal : level.normal[side])
                        normal = static_cast<float>(random.real(-1, 1));
                }
            }
            auto actual = noise(8 * stride, -1.f, 1.f, 5);
            auto expected = actual;
            panoval::measure::add_levels(levels.data(), kLevels, 14, padded, by_row.data(), by_column.data(),
                                         actual.data(), stride);
            panoval::reference::add_levels(levels.data(), kLevels, 14, padded, by_row.data(), by_column.data(),
                                           expected.data(), stride);
            ASSERT_TRUE(same_bits(actual, expected)) << "padded " << padded;
        }
    });
}

TEST(AddEquations, EqualsTheUpperTriangleOfItsTwin)
{
    for_each_target([] {
        for (std::size_t count = 0; count < 20; ++count) {
            const auto rows = noise(12 * count, -3.0, 3.0, count);
            const auto values = noise(count, -3.0, 3.0, count + 50);
            auto actual = noise(144, -1.0, 1.0, 7);
            auto expected = actual;
            auto sums = noise(12, -1.0, 1.0, 8);
            auto expected_sums = sums;
            panoval::measure::add_equations(rows.data(), values.data(), count, actual.data(), sums.data());
            panoval::reference::add_equations(rows.data(), values.data(), count, expected.data(), expected_sums.data());
            for (std::size_t j = 0; j < 12; ++j)
                for (std::size_t i = 0; i <= j; ++i)
                    ASSERT_EQ(actual[12 * j + i], expected[12 * j + i]) << i << ", " << j << ", count " << count;
            ASSERT_TRUE(same_bits(sums, expected_sums));
        }
    });
}

} // namespace
