// SPDX-License-Identifier: MIT
#include "measure/patch_kernel.h"

#include "measure/row_spans.h"
#include "tests/reference/patch_kernel.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

namespace
{

using panoval::measure::middle_of;
using panoval::measure::Outline;
using panoval::measure::RowSums;
using panoval::measure::Span;
using panoval::measure::sum_row;
using panoval::measure::WidenedOutline;
using panoval::test::for_each_target;
using panoval::test::noise;
using panoval::test::Random;

TEST(SumRow, EqualsItsTwinForEveryTailAndOffset)
{
    for_each_target([] {
        for (std::size_t offset = 0; offset < 4; ++offset)
            for (std::size_t count = 0; count <= 40; ++count) {
                auto samples = noise(offset + count, -2.f, 2.f, count + 1);
                if (count > 5)
                    samples[offset + 5] = std::numeric_limits<float>::quiet_NaN();
                const float* const row = samples.data() + offset;
                for (const double limit : {1.5, HUGE_VAL, 0.0}) {
                    const RowSums actual = sum_row(row, count, -3.3, 0.4, 0.2, 0.01, limit);
                    const RowSums expected = panoval::reference::sum_row(row, count, -3.3, 0.4, 0.2, 0.01, limit);
                    ASSERT_EQ(std::memcmp(&actual, &expected, sizeof(actual)), 0)
                        << "count " << count << ", limit " << limit;
                }
            }
    });
}

TEST(SumRow, LeavesOutWhatIsFarFromTheSlope)
{
    const float samples[] = {11, 12, 99, 14};
    const RowSums sums = sum_row(samples, 4, 0, 10, 1, 1, 0.5);
    EXPECT_EQ(sums.count, 3);
    EXPECT_EQ(sums.x, 0 + 1 + 3);
    EXPECT_EQ(sums.xx, 0 + 1 + 9);
    EXPECT_EQ(sums.v, 1 + 2 + 4);
    EXPECT_EQ(sums.vx, 0 + 2 + 12);
    EXPECT_EQ(sums.vv, 1 + 4 + 16);
}

TEST(MiddleOf, EqualsItsTwinForEveryCountAndTies)
{
    for_each_target([] {
        for (std::size_t count = 0; count <= 70; ++count) {
            const auto samples = noise(count, -3.f, 3.f, count + 1);
            auto tied = samples;
            for (float& value : tied)
                value = std::round(value);
            for (const std::vector<float>& values : {samples, tied})
                ASSERT_EQ(middle_of(values.data(), count), panoval::reference::middle_of(values)) << "count " << count;
        }
    });
}

TEST(MiddleOf, FindsValuesOfEverySize)
{
    for_each_target([] {
        const float tiny = std::numeric_limits<float>::denorm_min();
        const float huge = std::numeric_limits<float>::max();
        for (const std::vector<float>& values : {std::vector<float>{-huge, huge},
                                                 {huge, huge, -huge},
                                                 {tiny, 0, -tiny},
                                                 {tiny, tiny, 0, 0, 0},
                                                 {1, std::nextafter(1.f, 2.f), std::nextafter(1.f, 2.f)},
                                                 {-0.f, 0.f}})
            EXPECT_EQ(middle_of(values.data(), values.size()), panoval::reference::middle_of(values));
        const float zeros[] = {-0.f, -0.f, -0.f};
        EXPECT_FALSE(std::signbit(middle_of(zeros, 3)));
    });
}

// (x, y) inside an ellipse with these elements, by its axes.
bool is_inside(double x, double y, double a, double b, double angle)
{
    const double along = (x * std::cos(angle) + y * std::sin(angle)) / a;
    const double across = (y * std::cos(angle) - x * std::sin(angle)) / b;
    return along * along + across * across <= 1;
}

TEST(WidenedOutline, HasTheColumnsInsideLongerAxes)
{
    Random random(3);
    for (int trial = 0; trial < 200; ++trial) {
        const double a = random.real(2, 20), b = random.real(1, a), angle = random.real(-1.5, 1.5);
        const double x = random.real(-3, 3), y = random.real(-3, 3), by = random.real(-2, 4);
        const double half = (a - b) / 2;
        const Outline outline = {x, y, (a + b) / 2, half * std::cos(2 * angle), half * std::sin(2 * angle)};
        const WidenedOutline wide(outline, by);
        for (int row = -30; row <= 30; ++row) {
            const Span span = wide.columns(row, {-20, 21});
            for (int column = -20; column <= 20; ++column) {
                const bool expected = b + by > 0 && is_inside(column - x, row - y, a + by, b + by, angle);
                ASSERT_EQ(column >= span.begin && column < span.end, expected)
                    << "trial " << trial << ", row " << row << ", column " << column;
            }
        }
    }
}

} // namespace
