// SPDX-License-Identifier: MIT
// A strip against a plain array of its labels.
#include "mosaic/seams/seam_strip.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace panoval::mosaic
{

namespace
{

constexpr std::int64_t kWidth = 37;
constexpr std::int64_t kSide = 8;
constexpr std::int64_t kHeight = 5;
constexpr std::int64_t kTop = 16;

class SeamStripTest : public testing::Test
{
protected:
    // Every other tile has one label, the others one of three at each pixel.
    SeamStripTest() : strip_(kWidth, kSide, kSide), labels_(kWidth * kHeight)
    {
        std::mt19937 random(7);
        strip_.begin(kTop, kHeight);
        for (std::int64_t i = 0; i < strip_.tile_count(); ++i) {
            const Rect tile = strip_.tile(i);
            for (std::int64_t y = 0; y < kHeight; ++y)
                for (std::int64_t x = tile.x; x < tile.right(); ++x) {
                    const auto label =
                        i % 2 == 0 ? static_cast<std::int32_t>(i) : static_cast<std::int32_t>(random() % 3);
                    at(x, y) = label;
                    if (i % 2 != 0)
                        strip_.row(y)[x] = label;
                }
            if (i % 2 == 0)
                strip_.set_uniform(i, static_cast<std::int32_t>(i));
        }
    }

    std::int32_t& at(std::int64_t x, std::int64_t y) { return labels_[static_cast<std::size_t>(y * kWidth + x)]; }

    SeamStrip strip_;
    std::vector<std::int32_t> labels_;
};

} // namespace

TEST_F(SeamStripTest, TilesLieBesideEachOther)
{
    ASSERT_EQ(strip_.tile_count(), 5);
    EXPECT_EQ(strip_.tile(0), (Rect{0, kTop, 8, kHeight}));
    EXPECT_EQ(strip_.tile(4), (Rect{32, kTop, 5, kHeight}));
}

TEST_F(SeamStripTest, LabelsAreThoseOfTheTileOrOfThePixel)
{
    std::vector<std::int32_t> row(kWidth);
    for (std::int64_t y = 0; y < kHeight; ++y) {
        strip_.copy_row(y, row.data());
        for (std::int64_t x = 0; x < kWidth; ++x) {
            EXPECT_EQ(strip_.label(x, y), at(x, y)) << x << ' ' << y;
            EXPECT_EQ(row[static_cast<std::size_t>(x)], at(x, y)) << x << ' ' << y;
        }
    }
}

TEST_F(SeamStripTest, RunsEndWhereTheLabelChangesOrTheTileEnds)
{
    std::vector<SeamMap::Run> runs;
    for (std::int64_t y = 0; y < kHeight; ++y) {
        strip_.list_runs(y, runs);
        std::int64_t x = 0;
        for (const SeamMap::Run& run : runs) {
            ASSERT_LT(x, run.end);
            for (; x < run.end; ++x)
                EXPECT_EQ(at(x, y), run.label) << x << ' ' << y;
        }
        EXPECT_EQ(x, kWidth);
        EXPECT_LT(runs.size(), static_cast<std::size_t>(kWidth));
    }
}

TEST_F(SeamStripTest, ASpeltOutTileKeepsItsLabels)
{
    for (std::int64_t i = 0; i < strip_.tile_count(); ++i) {
        EXPECT_EQ(strip_.is_uniform(i), i % 2 == 0);
        strip_.spell_out(i);
        EXPECT_FALSE(strip_.is_uniform(i));
    }
    for (std::int64_t y = 0; y < kHeight; ++y)
        for (std::int64_t x = 0; x < kWidth; ++x)
            EXPECT_EQ(strip_.row(y)[x], at(x, y)) << x << ' ' << y;
}

TEST_F(SeamStripTest, OthersAreFoundInTheAskedPartOnly)
{
    EXPECT_FALSE(strip_.has_other(2, 2, strip_.tile(2)));
    EXPECT_TRUE(strip_.has_other(1, 2, strip_.tile(2)));
    EXPECT_FALSE(strip_.has_other(kNobody, 2, strip_.tile(2))); // nobody's area has no seams
    for (std::int64_t y = 0; y < kHeight; ++y)
        for (std::int64_t x = 8; x < 16; ++x)
            for (std::int32_t label = 0; label < 3; ++label)
                EXPECT_EQ(strip_.has_other(label, 1, {x, kTop + y, 1, 1}), at(x, y) != label);
}

TEST_F(SeamStripTest, PinnedPixelsAreKnown)
{
    EXPECT_FALSE(strip_.is_pinned(9, 1));
    strip_.begin_pins();
    strip_.pin(9, 1, 77);
    EXPECT_EQ(strip_.label(9, 1), 77);
    EXPECT_TRUE(strip_.is_pinned(9, 1));
    EXPECT_FALSE(strip_.is_pinned(10, 1));
    EXPECT_FALSE(strip_.is_pinned(9, 2));
}

TEST_F(SeamStripTest, ANewStripForgetsTheOldOne)
{
    strip_.begin(kTop + kSide, kHeight);
    for (std::int64_t i = 0; i < strip_.tile_count(); ++i)
        EXPECT_FALSE(strip_.is_uniform(i));
    EXPECT_EQ(strip_.tile(0).y, kTop + kSide);
}

} // namespace panoval::mosaic
