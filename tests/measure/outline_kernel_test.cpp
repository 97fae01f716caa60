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

using panoval::measure::kCoveragePlane;
using panoval::measure::kMeanPlane;
using panoval::measure::kRespondGroup;
using panoval::measure::kWindowStep;
using panoval::measure::Level;
using panoval::measure::respond_scratch;
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
            const std::size_t count = window % (2 * kRespondGroup + 2); // groups that are full and others
            const auto places = noise(count, 0.f, static_cast<float>(window) + 1, window);
            std::vector<float> scratch(respond_scratch(padded));
            std::vector<float> actual(3 * padded * count, -1.f);
            std::vector<float> expected(3 * padded * count, -2.f);
            panoval::measure::respond(places.data(), count, blur, 1 / blur, window, padded, scratch.data(),
                                      actual.data());
            panoval::reference::respond(places.data(), count, blur, 1 / blur, window, padded, expected.data());
            ASSERT_TRUE(same_bits(actual, expected)) << "window " << window << ", blur " << blur;
        }
    });
}

TEST(ClearPlanes, ClearsWholeStepsOfThePlanes)
{
    for_each_target([] {
        constexpr std::size_t kStride = 40;
        for (std::size_t columns = 0; columns <= 30; ++columns) {
            std::vector<float> planes(4 * kStride, 1.f);
            panoval::measure::clear_planes(planes.data() + kStride, kStride, 2, columns);
            const std::size_t cleared = (columns + kWindowStep - 1) / kWindowStep * kWindowStep;
            for (std::size_t i = 0; i < planes.size(); ++i) {
                const std::size_t plane = i / kStride;
                const bool is_cleared = plane >= 1 && plane <= 2 && i % kStride < cleared;
                ASSERT_EQ(planes[i], is_cleared ? 0.f : 1.f) << "element " << i << ", columns " << columns;
            }
        }
    });
}

// Levels of which all reach row 14, and what they have of rows and columns.
struct LevelTables {
    static constexpr std::size_t kLevels = 9;

    explicit LevelTables(std::size_t window)
        : padded(window), stride(70 + window), by_row(noise(3 * window * kLevels, -1.f, 1.f, 3)),
          by_column(noise(6 * window * kLevels, -1.f, 1.f, 4)), levels(kLevels)
    {
        Random random(2);
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
    }
    // The planes that adding the levels to others makes.
    std::vector<float> add_by(decltype(panoval::measure::add_levels)* add) const
    {
        auto planes = noise(8 * stride, -1.f, 1.f, 5);
        add(levels.data(), kLevels, 14, padded, by_row.data(), by_column.data(), planes.data(), stride);
        return planes;
    }

    std::size_t padded;
    std::size_t stride;
    std::vector<float> by_row;
    std::vector<float> by_column;
    std::vector<Level> levels;
};

TEST(AddLevels, EqualsItsTwin)
{
    for_each_target([] {
        for (const std::size_t padded : std::initializer_list<std::size_t>{4, 8, 12, 24}) {
            const LevelTables tables(padded);
            const auto twin = [](auto... arguments) noexcept { panoval::reference::add_levels(arguments...); };
            ASSERT_TRUE(same_bits(tables.add_by(panoval::measure::add_levels), tables.add_by(twin))) << padded;
        }
    });
}

TEST(AddCoverage, EqualsItsTwinAndTheSamePlanesOfAllLevels)
{
    for_each_target([] {
        for (const std::size_t padded : std::initializer_list<std::size_t>{4, 8, 12, 24}) {
            const LevelTables tables(padded);
            const auto twin = [](auto... arguments) noexcept { panoval::reference::add_coverage(arguments...); };
            const auto actual = tables.add_by(panoval::measure::add_coverage);
            ASSERT_TRUE(same_bits(actual, tables.add_by(twin))) << padded;
            const auto all = tables.add_by(panoval::measure::add_levels);
            for (const std::size_t plane : {kMeanPlane, kCoveragePlane, kCoveragePlane + 1})
                for (std::size_t i = plane * tables.stride; i < (plane + 1) * tables.stride; ++i)
                    ASSERT_EQ(actual[i], all[i]) << "plane " << plane;
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
