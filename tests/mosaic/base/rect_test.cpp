// SPDX-License-Identifier: MIT
#include "mosaic/base/rect.h"

#include <gtest/gtest.h>

namespace panoval::mosaic::test
{

namespace
{

TEST(MosaicRect, IsEmptyWithoutColumnsOrWithoutRows)
{
    EXPECT_TRUE((Rect{3, 4, 0, 5}).is_empty());
    EXPECT_TRUE((Rect{3, 4, 5, 0}).is_empty());
    EXPECT_TRUE((Rect{3, 4, -1, 5}).is_empty());
    EXPECT_FALSE((Rect{3, 4, 1, 1}).is_empty());
    EXPECT_EQ((Rect{3, 4, 5, -2}).pixels(), 0);
    EXPECT_EQ((Rect{3, 4, 5, 2}).pixels(), 10);
}

TEST(MosaicRect, DiffersInAnyOneOfItsNumbers)
{
    const Rect rect{1, 2, 3, 4};
    EXPECT_TRUE(rect == (Rect{1, 2, 3, 4}));
    EXPECT_FALSE(rect == (Rect{0, 2, 3, 4}));
    EXPECT_FALSE(rect == (Rect{1, 0, 3, 4}));
    EXPECT_FALSE(rect == (Rect{1, 2, 0, 4}));
    EXPECT_FALSE(rect == (Rect{1, 2, 3, 0}));
}

TEST(MosaicRect, ContainsItsFirstPixelAndNotTheOneBehindItsLast)
{
    const Rect rect{1, 2, 3, 4};
    EXPECT_TRUE(rect.contains(1, 2));
    EXPECT_TRUE(rect.contains(3, 5));
    EXPECT_FALSE(rect.contains(0, 2));
    EXPECT_FALSE(rect.contains(4, 2));
    EXPECT_FALSE(rect.contains(1, 1));
    EXPECT_FALSE(rect.contains(1, 6));
    EXPECT_TRUE(rect.contains(rect));
    for (const auto& [dx, dy] : {std::pair(1, 0), std::pair(-1, 0), std::pair(0, 1), std::pair(0, -1)})
        EXPECT_FALSE(rect.contains(rect.moved(dx, dy)));
}

TEST(MosaicRect, TheBoundsOfNothingAndARectAreTheRect)
{
    const Rect rect{1, 2, 3, 4};
    const Rect nothing{50, 50, 0, 9};
    EXPECT_EQ(bounding(rect, nothing), rect);
    EXPECT_EQ(bounding(nothing, rect), rect);
    EXPECT_EQ(bounding(rect, {10, 0, 1, 1}), (Rect{1, 0, 10, 6}));
}

TEST(MosaicRect, RectsThatTouchShareNothing)
{
    const Rect rect{1, 2, 3, 4};
    EXPECT_EQ(intersect(rect, {4, 2, 3, 4}), Rect());
    EXPECT_EQ(intersect(rect, {1, 6, 3, 4}), Rect());
    EXPECT_EQ(intersect(rect, {3, 5, 3, 4}), (Rect{3, 5, 1, 1}));
}

} // namespace

} // namespace panoval::mosaic::test
