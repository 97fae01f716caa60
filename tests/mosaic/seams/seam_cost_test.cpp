// SPDX-License-Identifier: MIT
#include "mosaic/seams/seam_cost.h"

#include <gtest/gtest.h>

namespace panoval::mosaic::test
{

namespace
{

Layout two_on_each_other(int bits)
{
    Layout layout;
    layout.width = 64;
    layout.height = 64;
    layout.channels = 1;
    layout.bits = bits;
    layout.pictures.resize(2);
    for (PlacedPicture& picture : layout.pictures)
        picture.rect = layout.canvas();
    return layout;
}

struct Features {
    std::uint16_t first;
    std::uint16_t second;
};

// The ratio of two pictures of which six cells in ten have some features and the others the others.
float ratio_of(int bits, Features most, Features others)
{
    const Layout layout = two_on_each_other(bits);
    const CellGrid grid(layout, 4);
    std::vector<ReducedPicture> pictures;
    pictures.reserve(2);
    for (std::size_t i = 0; i < 2; ++i)
        pictures.emplace_back(layout, i, grid);
    for (std::int64_t i = 0; i < grid.count(); ++i) {
        const Features& features = i % 10 < 6 ? most : others;
        pictures[0].features(i)[0] = features.first;
        pictures[1].features(i)[0] = features.second;
        pictures[0].features(i)[1] = pictures[1].features(i)[1] = 0;
    }
    const CellCosts costs(layout, find_overlaps(layout), grid, pictures, 1);
    const PicturePair* const pair = costs.find_pair(0, 1);
    return pair != nullptr ? pair->ratio[0] : 0.f;
}

TEST(CellCosts, RatioIsTheUsualOneOfTheCells)
{
    EXPECT_FLOAT_EQ(ratio_of(8, {5000, 6000}, {5000, 15000}), 1.2f);
    EXPECT_FLOAT_EQ(ratio_of(16, {5000, 15000}, {5000, 6000}), 3.f);
}

TEST(CellCosts, RatioOfEightBitPicturesIsNotThatOfTheirDarkCells)
{
    // 300 are little more than two levels of 8 bits, whose rounding would be all of their ratio, and 600 of 16 bits
    EXPECT_FLOAT_EQ(ratio_of(8, {300, 900}, {5000, 6000}), 1.2f);
    EXPECT_FLOAT_EQ(ratio_of(16, {300, 900}, {5000, 6000}), 3.f);
    EXPECT_FLOAT_EQ(ratio_of(16, {30, 90}, {5000, 6000}), 1.2f);
}

TEST(CellCosts, RatioOfPicturesThatAreNotTheSameSceneIsLimited)
{
    EXPECT_FLOAT_EQ(ratio_of(8, {1000, 30000}, {1000, 30000}), 4.f);
    EXPECT_FLOAT_EQ(ratio_of(8, {30000, 1000}, {30000, 1000}), 0.25f);
}

TEST(CellCosts, AreNoneOfCellsThatAPictureDoesNotCover)
{
    Layout layout = two_on_each_other(8);
    layout.pictures[1].rect = {32, 0, 32, 64};
    layout.pictures[1].has_mask = true;
    const CellGrid grid(layout, 4);
    std::vector<ReducedPicture> pictures;
    pictures.reserve(2);
    for (std::size_t i = 0; i < 2; ++i)
        pictures.emplace_back(layout, i, grid);
    pictures[1].mask_cover_row(3)[0] = Cover::Wholly; // of column 8
    pictures[0].features(pictures[0].index(8, 3))[0] = 3000;
    pictures[1].features(0 + 3 * 8)[0] = 3320;
    const CellCosts costs(layout, find_overlaps(layout), grid, pictures, 1);
    const PicturePair* const pair = costs.find_pair(0, 1);
    ASSERT_NE(pair, nullptr);
    const float noise = 320.f * 320 + 32 * 32; // of the only cell, and of rounding
    EXPECT_FLOAT_EQ(costs.ratio_between(*pair, 8, 3, 8, 3), 320.f * 320 / noise);
    EXPECT_EQ(costs.ratio_between(*pair, 8, 3, 9, 3), -1) << "masked";
    EXPECT_EQ(costs.ratio_between(*pair, 8, 3, 7, 3), -1) << "beside the second picture";
    EXPECT_EQ(costs.ratio_between(*pair, 8, -1, 8, 3), -1) << "above the first one";
    std::vector<std::int32_t> filled(2);
    costs.fill(*pair, {8, 3, 2, 1}, filled.data());
    EXPECT_GE(filled[0], 0);
    EXPECT_EQ(filled[1], kNotShared);
}

TEST(CellCosts, PicturesThatDoNotOverlapAreNoPair)
{
    Layout layout = two_on_each_other(8);
    layout.width = 128;
    layout.pictures[1].rect.x = 64;
    const CellGrid grid(layout, 4);
    std::vector<ReducedPicture> pictures;
    pictures.reserve(2);
    for (std::size_t i = 0; i < 2; ++i)
        pictures.emplace_back(layout, i, grid);
    const CellCosts costs(layout, find_overlaps(layout), grid, pictures, 1);
    EXPECT_EQ(costs.find_pair(0, 1), nullptr);
    EXPECT_TRUE(costs.pairs().empty());
}

} // namespace

} // namespace panoval::mosaic::test
