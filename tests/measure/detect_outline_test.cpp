// SPDX-License-Identifier: MIT
#include "measure/detect_outline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace
{

using panoval::measure::follow_level;
using panoval::measure::LevelLine;
using panoval::measure::OutlinePoint;
using panoval::measure::Scale;

constexpr double kLevel = 500;

// level(x, y) for every pixel.
template <class Level>
Scale scale_of(std::int32_t width, std::int32_t height, const Level& level)
{
    Scale scale;
    scale.width = width;
    scale.height = height;
    scale.samples = panoval::allocate<std::uint16_t>(scale.at(0, height));
    for (std::int32_t y = 0; y < height; ++y)
        for (std::int32_t x = 0; x < width; ++x)
            scale.samples[scale.at(x, y)] = level(x, y);
    scale.edge_gradient = 100;
    return scale;
}

TEST(FollowLevel, GoesRoundASquareAndCloses)
{
    const Scale scale = scale_of(12, 12, [](std::int32_t x, std::int32_t y) -> std::uint16_t {
        return x >= 4 && x < 8 && y >= 4 && y < 8 ? 1000 : 0;
    });
    LevelLine line;
    ASSERT_TRUE(follow_level(scale, 4, 5, kLevel, line));
    EXPECT_TRUE(line.is_closed);
    EXPECT_EQ(line.points.size(), 16u) << "four between pixels on each side";
}

TEST(FollowLevel, EndsAtThePicturesEdges)
{
    const Scale level = scale_of(14, 9, [](std::int32_t, std::int32_t y) -> std::uint16_t { return y < 4 ? 1000 : 0; });
    const Scale turned =
        scale_of(14, 9, [](std::int32_t, std::int32_t y) -> std::uint16_t { return y < 4 ? 0 : 1000; });
    for (const Scale* const scale : {&level, &turned}) {
        LevelLine line;
        ASSERT_TRUE(follow_level(*scale, 6, 4, kLevel, line));
        EXPECT_FALSE(line.is_closed);
        EXPECT_EQ(line.points.size(), 12u) << "where it goes from cell to cell";
        const auto [first, last] =
            std::minmax_element(line.points.begin(), line.points.end(),
                                [](const OutlinePoint& one, const OutlinePoint& other) { return one.x < other.x; });
        EXPECT_EQ(first->x, 1);
        EXPECT_EQ(last->x, 12);
        EXPECT_TRUE(
            std::all_of(line.points.begin(), line.points.end(), [](const OutlinePoint& p) { return p.y == 3.5; }));
    }
}

// A slope too gentle for an edge, along which the line runs out of the picture on one side soon, and not on the other.
TEST(FollowLevel, KeepsTheShortEndOfALineThatIsFlat)
{
    const Scale scale = scale_of(
        12, 40, [](std::int32_t x, std::int32_t) -> std::uint16_t { return static_cast<std::uint16_t>(445 + 10 * x); });
    for (const std::int32_t y : {4, 35}) { // where the line begins with its short end, and where it ends with it
        LevelLine line;
        ASSERT_TRUE(follow_level(scale, 5, y, kLevel, line));
        EXPECT_FALSE(line.is_closed);
        EXPECT_LE(line.points.size(), 6u);
        for (const OutlinePoint& p : line.points)
            EXPECT_LE(std::fabs(p.y - y), 4);
    }
}

TEST(FollowLevel, IsNoneWhereBothEndsAreFlat)
{
    const Scale scale = scale_of(
        12, 40, [](std::int32_t x, std::int32_t) -> std::uint16_t { return static_cast<std::uint16_t>(445 + 10 * x); });
    LevelLine line;
    EXPECT_FALSE(follow_level(scale, 5, 20, kLevel, line));
    EXPECT_FALSE(follow_level(scale, 2, 20, kLevel, line)) << "no neighbour is beyond the level";
}

// The teeth of a comb: a line many times as long as the picture is wide and high.
TEST(FollowLevel, StopsInAMaze)
{
    constexpr std::int32_t kSide = 60;
    const Scale scale = scale_of(kSide, kSide, [](std::int32_t x, std::int32_t y) -> std::uint16_t {
        const bool is_back = y >= 2 && y < 4;
        const bool is_tooth = y >= 2 && y < kSide - 2 && x % 4 < 2;
        return x >= 2 && x < kSide - 2 && (is_back || is_tooth) ? 1000 : 0;
    });
    LevelLine line;
    ASSERT_TRUE(follow_level(scale, 8, 30, kLevel, line));
    EXPECT_FALSE(line.is_closed);
    EXPECT_EQ(line.points.size(), 2u * 4 * 2 * kSide - 1) << "as many either way, but for the first";
}

} // namespace
