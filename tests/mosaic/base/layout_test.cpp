// SPDX-License-Identifier: MIT
#include "mosaic/base/layout.h"

#include <gtest/gtest.h>

namespace panoval::mosaic::test
{

namespace
{

Layout layout_of(std::int64_t width, bool wraps, std::vector<Rect> rects)
{
    Layout layout;
    layout.width = width;
    layout.height = 100;
    layout.channels = 1;
    layout.bits = 8;
    layout.wraps = wraps;
    for (const Rect& rect : rects)
        layout.pictures.push_back({rect, false, ""});
    return layout;
}

TEST(FindOverlaps, NeighboursMeetAndTouchingOnesDoNot)
{
    const Layout layout = layout_of(300, false, {{0, 0, 100, 50}, {90, 10, 100, 50}, {190, 0, 50, 50}});
    const auto overlaps = find_overlaps(layout);
    ASSERT_EQ(overlaps.size(), 1u);
    EXPECT_EQ(overlaps[0], (Overlap{0, 1, {90, 10, 10, 40}, 0}));
    EXPECT_EQ(overlaps[0].in_first(layout), (Rect{90, 10, 10, 40}));
    EXPECT_EQ(overlaps[0].in_second(layout), (Rect{0, 0, 10, 40}));
}

TEST(FindOverlaps, PicturesMeetRoundTheHorizon)
{
    const Layout layout = layout_of(200, true, {{0, 0, 100, 50}, {90, 0, 120, 50}});
    const auto overlaps = find_overlaps(layout);
    ASSERT_EQ(overlaps.size(), 2u) << "in the middle and behind the right edge";
    EXPECT_EQ(overlaps[0].second_shift_x, -200);
    EXPECT_EQ(overlaps[0].region, (Rect{0, 0, 10, 50}));
    EXPECT_EQ(overlaps[0].in_second(layout), (Rect{110, 0, 10, 50}));
    EXPECT_EQ(overlaps[1].second_shift_x, 0);
    EXPECT_EQ(overlaps[1].region, (Rect{90, 0, 10, 50}));
}

TEST(FindOverlaps, EveryPairOfAStackIsFoundOnce)
{
    const Layout layout = layout_of(50, false, {{0, 0, 50, 50}, {10, 10, 5, 5}, {0, 0, 50, 50}});
    EXPECT_EQ(find_overlaps(layout).size(), 3u);
}

TEST(FindPlacements, APictureBeyondTheRightEdgeAppearsTwice)
{
    const auto placements = find_placements(layout_of(200, true, {{150, 0, 100, 50}, {0, 0, 200, 50}}));
    ASSERT_EQ(placements.size(), 3u);
    EXPECT_EQ(placements[0].rect, (Rect{-50, 0, 100, 50}));
    EXPECT_EQ(placements[1].rect, (Rect{150, 0, 100, 50}));
    EXPECT_EQ(placements[2].picture, 1u);
}

} // namespace

} // namespace panoval::mosaic::test
