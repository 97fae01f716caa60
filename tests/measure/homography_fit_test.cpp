// SPDX-License-Identifier: MIT
#include "measure/homography_fit.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

namespace
{

using panoval::measure::fit_homography;
using panoval::measure::Homography;
using panoval::measure::invert;
using panoval::measure::map_place;
using panoval::measure::PlacedPoint;

constexpr Homography kTilted = {30, 4, 100, -3, 25, 80, 0.01, 0.02, 1};

std::vector<PlacedPoint> board()
{
    std::vector<PlacedPoint> placed;
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 4; ++column)
            placed.push_back({1.0 * column, 1.0 * row, map_place(kTilted, column, row)});
    return placed;
}

TEST(FitHomography, IsTheOneThatMadeThePoints)
{
    Homography found;
    ASSERT_TRUE(fit_homography(board(), found));
    for (std::size_t i = 0; i < 9; ++i)
        EXPECT_NEAR(found[i], kTilted[i], 1e-8) << i;
}

TEST(FitHomography, RefusesPointsThatLeaveItOpen)
{
    Homography found = {7};
    std::vector<PlacedPoint> placed = board();
    placed.resize(3);
    EXPECT_FALSE(fit_homography(placed, found)) << "three points";
    placed = board();
    placed.resize(4);
    EXPECT_FALSE(fit_homography(placed, found)) << "one row";
    for (PlacedPoint& p : placed)
        p = {1, 2, {30, 40}};
    EXPECT_FALSE(fit_homography(placed, found)) << "one place";
    EXPECT_EQ(found[0], 7) << "untouched";
}

TEST(Invert, LeadsBackFromThePictureToTheBoard)
{
    Homography back;
    ASSERT_TRUE(invert(kTilted, back));
    const auto point = map_place(kTilted, 3, 2);
    const auto place = map_place(back, point.x, point.y);
    EXPECT_NEAR(place.x, 3, 1e-12);
    EXPECT_NEAR(place.y, 2, 1e-12);
    EXPECT_FALSE(invert({1, 2, 3, 2, 4, 6, 0, 0, 1}, back)) << "a plane seen from its edge";
}

} // namespace
