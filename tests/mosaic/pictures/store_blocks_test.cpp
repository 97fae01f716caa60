// SPDX-License-Identifier: MIT
#include "mosaic/pictures/store_blocks.h"

#include <gtest/gtest.h>

namespace panoval::mosaic::test
{

namespace
{

Layout layout_of(std::int64_t width, std::int64_t height, bool has_mask)
{
    Layout layout;
    layout.channels = 3;
    layout.bits = 8;
    layout.pictures = {{{0, 0, width, height}, false, "a"}, {{0, 0, width, height}, has_mask, "b"}};
    return layout;
}

TEST(StoreBlocks, CountWhatARowConsistsOf)
{
    const Layout layout = layout_of(100, 10, true);
    EXPECT_EQ(row_sizes(layout, 0, {}).all(), 300u);
    EXPECT_EQ(row_sizes(layout, 1, {}).mask, 100u);
    EXPECT_EQ(row_sizes(layout, 1, {true, true}).all(), 500u);
}

TEST(StoreBlocks, AreAPartOfTheMemoryInWholeLines)
{
    const Layout layout = layout_of(3000, 2000, true);
    const std::vector<PictureTraits> traits(2);
    EXPECT_EQ(choose_block(layout, traits, std::size_t{1} << 30), std::size_t{1} << 20) << "the largest";
    EXPECT_EQ(choose_block(layout, traits, std::size_t{32} << 20), std::size_t{1} << 19);
    EXPECT_EQ(choose_block(layout, traits, 0), std::size_t{1} << 14) << "the smallest";
    EXPECT_EQ(choose_block(layout_of(10001, 2000, true), traits, 0), 40064u) << "a row of 40004 bytes";
}

TEST(StoreBlocks, AreNoLargerThanAPicture)
{
    const std::vector<PictureTraits> traits(2);
    EXPECT_EQ(choose_block(layout_of(100, 401, false), traits, std::size_t{1} << 30), 120320u);
    EXPECT_EQ(choose_block(layout_of(100, 4, false), traits, std::size_t{1} << 30), std::size_t{1} << 14);
}

TEST(StoreBlocks, AreThreeForEachThreadWhereThereAreMasks)
{
    const std::vector<PictureTraits> traits(2);
    EXPECT_EQ(count_mask_blocks(layout_of(9, 9, false), 4), 0u);
    EXPECT_EQ(count_working_blocks(layout_of(9, 9, false), 4), 8u);
    EXPECT_EQ(count_mask_blocks(layout_of(9, 9, true), 4), 4u);
    EXPECT_EQ(count_working_blocks(layout_of(9, 9, true), 4), 12u);
    EXPECT_EQ(least_store_bytes(layout_of(9, 9, true), traits, 4), 12u << 14);
    EXPECT_EQ(least_store_bytes(layout_of(10001, 9, true), traits, 1), 3u * 40064);
}

TEST(StoreBlocks, TellWhatAllPicturesTake)
{
    EXPECT_EQ(bytes_of_all_pictures(layout_of(100, 10, true), std::vector<PictureTraits>(2)), 7000u);
}

} // namespace

} // namespace panoval::mosaic::test
