// SPDX-License-Identifier: MIT
#include "mosaic/gains/gain_range.h"

#include "mosaic/gains/gain_measure.h"
#include "tests/mosaic/mosaic_scene.h"

#include <gtest/gtest.h>

#include <cmath>

namespace panoval::mosaic::test
{

namespace
{

using Samples = std::vector<std::uint8_t>;

void narrow(const Samples& first, const Samples& second, const Samples& second_mask, RatioRanges& ranges)
{
    const Samples whole(first.size(), 255);
    narrow_by_row(
        {first.data(), second.data(), whole.data(), second_mask.data(), static_cast<std::int64_t>(first.size()), 1},
        ranges);
}

TEST(RatioRange, HasTheRatiosThatExplainAllSamples)
{
    RatioRanges ranges;
    narrow({0, 100, 20, 255}, {0, 50, 10, 10}, Samples(4, 255), ranges);
    EXPECT_DOUBLE_EQ(ranges[0].low, 99.5 / 50.5);
    EXPECT_DOUBLE_EQ(ranges[0].high, 100.5 / 49.5);
    EXPECT_TRUE(ranges[0].is_known());
    EXPECT_FALSE(ranges[1].is_known());
}

TEST(RatioRange, IsEmptyWhereNoRatioExplainsAll)
{
    RatioRanges ranges;
    narrow({100, 100}, {50, 60}, {255, 255}, ranges);
    EXPECT_TRUE(ranges[0].is_empty());
    EXPECT_FALSE(nearest_inside(ranges[0], 0));
}

TEST(RatioRange, MindsNoSampleThatOnePictureDoesNotCover)
{
    RatioRanges ranges;
    narrow({100, 100}, {50, 60}, {255, 0}, ranges);
    EXPECT_TRUE(ranges[0].is_known());
}

TEST(RatioRange, IsNotKnownWithoutBothEnds)
{
    EXPECT_FALSE(RatioRange().is_known());
    EXPECT_FALSE((RatioRange{0.5, std::numeric_limits<double>::infinity()}.is_known())) << "any larger one would do";
    EXPECT_FALSE((RatioRange{0, 2}.is_known())) << "any smaller one would do";
    EXPECT_FALSE((RatioRange{2, 2}.is_known()));
    EXPECT_TRUE((RatioRange{1.9, 2}.is_known()));
}

TEST(RatioRange, KeepsARatioInsideAndTakesItsMiddleOtherwise)
{
    const RatioRange range{2, 8};
    EXPECT_EQ(nearest_inside(range, 1.2)->log_ratio, 1.2);
    EXPECT_NEAR(nearest_inside(range, 0)->log_ratio, std::log(4), 1e-12);
    EXPECT_FALSE(nearest_inside({0, 8}, 1));
    EXPECT_DOUBLE_EQ(nearest_inside(range, 1.2)->error, kErrorOfWidth * std::log(4)); // of a range from 2 to 8
}

TEST(RatioRange, IsSurerTheNarrowerItIs)
{
    const double wide = nearest_inside({2, 8}, 1.2)->error;
    const double narrow = nearest_inside({2, 4}, 1.2)->error;
    EXPECT_GT(narrow, 0);
    EXPECT_DOUBLE_EQ(wide, 2 * narrow); // log 4 and log 2
}

// Lines on a page of one value, without noise: nine of ten samples are rounded the same way.
TEST(RatioRange, TellsTheExposureOfAFlatPage)
{
    Scene page = make_scene(300, 160, {.channels = 1, .contrast = 0});
    for (std::int64_t y = 0; y < page.height; ++y)
        for (std::int64_t x = 0; x < page.width; ++x)
            page.at(x, y, 0) = x % 40 < 4 ? static_cast<float>(20 + 15 * (x % 4) + y % 50) / 255 : 0.422F;
    MemoryReader reader(300, 160);
    reader.add(0, 0, take_picture(page, {.rect = {0, 0, 180, 160}}));
    reader.add(120, 0, take_picture(page, {.rect = {120, 0, 180, 160}, .gain = 1 / 1.62}));
    const std::vector<Overlap> overlaps = find_overlaps(reader.layout);
    NoProgress progress;
    const GainStatistics statistics = measure_overlaps(reader.layout, overlaps, reader, {}, progress);
    EXPECT_NEAR(statistics.overlaps[0].all.value, std::log(1.62), 0.002);
}

} // namespace

} // namespace panoval::mosaic::test
