// SPDX-License-Identifier: MIT
#include "detect/level_counts.h"

#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <vector>

namespace
{

using namespace panoval;

using Counts = std::array<std::uint32_t, kGreyLevels>;

Counts counts_of(const std::vector<std::uint8_t>& pixels, std::size_t stride, std::size_t width, std::size_t rows)
{
    Counts counts;
    counts.fill(77); // overwritten
    count_levels(pixels.data(), stride, width, rows, counts.data());
    return counts;
}

TEST(LevelCounts, CountEveryPixelOfTheRectangleOnce)
{
    const auto pixels = test::noise<std::uint8_t>(90 * 5, 0, 255, 3);
    for (std::size_t width = 0; width <= 90; ++width) {
        Counts expected = {};
        for (std::size_t y = 0; y < 5; ++y)
            for (std::size_t x = 0; x < width; ++x)
                ++expected[pixels[y * 90 + x]];
        EXPECT_EQ(counts_of(pixels, 90, width, 5), expected) << width;
    }
}

TEST(LevelCounts, OfOneLevelAreItsPixels)
{
    const std::vector<std::uint8_t> pixels(64 * 40, 255);
    Counts expected = {};
    expected[255] = 33 * 40;
    EXPECT_EQ(counts_of(pixels, 64, 33, 40), expected);
}

TEST(LevelCounts, OfNoRowsAreZero)
{
    EXPECT_EQ(counts_of({1, 2, 3}, 3, 3, 0), Counts{});
}

} // namespace
