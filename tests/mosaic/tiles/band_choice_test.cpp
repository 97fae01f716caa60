// SPDX-License-Identifier: MIT
#include "mosaic/tiles/band_choice.h"

#include <gtest/gtest.h>

#include <vector>

namespace panoval::mosaic::test
{

namespace
{

Layout layout_of(const std::vector<Rect>& rects)
{
    Layout layout;
    Rect all;
    for (const Rect& rect : rects) {
        layout.pictures.push_back({rect, false, ""});
        all = bounding(all, rect);
    }
    layout.width = all.right();
    layout.height = all.bottom();
    return layout;
}

int bands_of(const std::vector<Rect>& rects)
{
    const Layout layout = layout_of(rects);
    return choose_bands(layout, find_overlaps(layout));
}

TEST(ChooseBands, EightOfTheCoarsestStructuresFitTheOverlap)
{
    EXPECT_EQ(bands_of({{0, 0, 1000, 800}, {990, 0, 1000, 800}}), 1);
    EXPECT_EQ(bands_of({{0, 0, 1000, 800}, {937, 0, 1000, 800}}), 2) << "63 pixels";
    EXPECT_EQ(bands_of({{0, 0, 1000, 800}, {936, 0, 1000, 800}}), 3) << "64 pixels";
    EXPECT_EQ(bands_of({{0, 0, 1000, 800}, {872, 0, 1000, 800}}), 4) << "128 pixels";
    EXPECT_EQ(bands_of({{0, 0, 4000, 3000}, {2000, 0, 4000, 3000}}), 7);
}

TEST(ChooseBands, PicturesThatDoNotMeetNeedOne)
{
    EXPECT_EQ(bands_of({{0, 0, 100, 100}}), 1);
    EXPECT_EQ(bands_of({{0, 0, 100, 100}, {100, 0, 100, 100}}), 1);
}

TEST(ChooseBands, AnIncidentalOverlapDoesNotCount)
{
    // The first and the third picture share 10 columns, which lie in the middle of the second one.
    const std::vector<Rect> rects = {{0, 0, 1000, 800}, {495, 0, 1000, 800}, {990, 0, 1000, 800}};
    const Layout layout = layout_of(rects);
    const auto overlaps = find_overlaps(layout);
    ASSERT_EQ(overlaps.size(), 3u);
    EXPECT_EQ(seam_length(layout, find_placements(layout), overlaps[1]), 0);
    EXPECT_GT(seam_length(layout, find_placements(layout), overlaps[0]), 500);
    EXPECT_EQ(choose_bands(layout, overlaps), 5) << "of the 505 columns that neighbours share";
}

// The same three pictures, with the edge of a canvas that goes round in the first one, or between the others.
TEST(ChooseBands, AreTheSameWhereverACanvasThatGoesRoundBegins)
{
    for (const std::int64_t begin : {0, 300, 800, 1200, 2400}) {
        Layout layout;
        layout.width = 2500;
        layout.height = 800;
        layout.wraps = true;
        for (const std::int64_t x : {0, 495, 990})
            layout.pictures.push_back({{(begin + x) % 2500, 0, 1000, 800}, false, ""});
        const auto overlaps = find_overlaps(layout);
        ASSERT_EQ(overlaps.size(), 3u);
        EXPECT_EQ(choose_bands(layout, overlaps), 5) << begin;
    }
}

TEST(ChooseBands, AFewNarrowOverlapsDoNotRuleALargePanorama)
{
    std::vector<Rect> rects;
    for (std::int64_t i = 0; i < 20; ++i)
        rects.push_back({i * 800, 0, 1060, 700});
    rects.push_back({19 * 800 + 1050, 0, 500, 700});
    EXPECT_EQ(bands_of(rects), 5) << "260 pixels, but for one overlap of 10";
}

} // namespace

} // namespace panoval::mosaic::test
