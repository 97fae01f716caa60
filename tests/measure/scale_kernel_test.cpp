// SPDX-License-Identifier: MIT
#include "measure/scale_kernel.h"

#include "tests/reference/scale_kernel.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace
{

using panoval::test::for_each_target;
using panoval::test::Random;

constexpr std::size_t kMostWidth = 70;
constexpr std::size_t kGuard = 8; // samples behind a row that no kernel may change

// Random samples with many at either end of the range.
std::vector<std::uint16_t> samples(std::size_t count, std::uint64_t seed)
{
    Random random(seed);
    std::vector<std::uint16_t> result(count);
    for (std::uint16_t& sample : result)
        sample = static_cast<std::uint16_t>(std::clamp<std::int64_t>(random.integer(-20000, 85535), 0, 65535));
    return result;
}

TEST(SmoothAlong, EqualsItsTwinForEveryTailAndOffset)
{
    for_each_target([] {
        for (std::size_t offset = 0; offset < 3; ++offset)
            for (std::size_t width = 1; width <= kMostWidth; ++width) {
                const auto row = samples(offset + width, width);
                std::vector<std::uint32_t> expected(width + kGuard, 7);
                auto actual = expected;
                panoval::reference::smooth_along(row.data() + offset, width, expected.data());
                panoval::measure::smooth_along(row.data() + offset, width, actual.data());
                ASSERT_EQ(actual, expected) << "width " << width << ", offset " << offset;
            }
    });
}

TEST(SmoothAlong, RepeatsTheOutermostSamples)
{
    const std::uint16_t row[] = {10, 20, 40};
    std::uint32_t sums[3] = {};
    panoval::measure::smooth_along(row, 3, sums);
    EXPECT_EQ(sums[0], 10u + 2 * 10 + 20);
    EXPECT_EQ(sums[1], 10u + 2 * 20 + 40);
    EXPECT_EQ(sums[2], 20u + 2 * 40 + 40);
}

TEST(SmoothDown, EqualsItsTwinForEveryTailAndOffset)
{
    for_each_target([] {
        for (std::size_t offset = 0; offset < 3; ++offset)
            for (std::size_t width = 1; width <= kMostWidth; ++width) {
                std::vector<std::uint32_t> rows[3];
                for (std::size_t i = 0; i < 3; ++i)
                    for (const std::uint16_t sample : samples(offset + width, 3 * width + i))
                        rows[i].push_back(4u * sample);
                std::vector<std::uint16_t> expected(width + kGuard, 7);
                auto actual = expected;
                const auto row = [&](std::size_t i) { return rows[i].data() + offset; };
                panoval::reference::smooth_down(row(0), row(1), row(2), width, expected.data());
                panoval::measure::smooth_down(row(0), row(1), row(2), width, actual.data());
                ASSERT_EQ(actual, expected) << "width " << width << ", offset " << offset;
            }
    });
}

TEST(SmoothDown, RoundsHalvesUp)
{
    const std::uint32_t above[] = {8, 7, 4 * 65535};
    const std::uint32_t here[] = {0, 0, 4 * 65535};
    std::uint16_t row[3] = {};
    panoval::measure::smooth_down(above, here, here, 3, row);
    EXPECT_EQ(row[0], 1);
    EXPECT_EQ(row[1], 0);
    EXPECT_EQ(row[2], 65535);
}

TEST(HalveRows, EqualsItsTwinForEveryTailAndOffset)
{
    for_each_target([] {
        for (std::size_t offset = 0; offset < 3; ++offset)
            for (std::size_t width = 1; width <= kMostWidth; ++width) {
                const auto above = samples(offset + 2 * width, width);
                const auto below = samples(offset + 2 * width, width + 100);
                std::vector<std::uint16_t> expected(width + kGuard, 7);
                auto actual = expected;
                panoval::reference::halve_rows(above.data() + offset, below.data() + offset, width, expected.data());
                panoval::measure::halve_rows(above.data() + offset, below.data() + offset, width, actual.data());
                ASSERT_EQ(actual, expected) << "width " << width << ", offset " << offset;
            }
    });
}

TEST(HalveRows, RoundsHalvesUp)
{
    const std::uint16_t above[] = {1, 0, 1, 0};
    const std::uint16_t below[] = {1, 0, 0, 0};
    std::uint16_t row[2] = {};
    panoval::measure::halve_rows(above, below, 2, row);
    EXPECT_EQ(row[0], 1);
    EXPECT_EQ(row[1], 0);
}

} // namespace
