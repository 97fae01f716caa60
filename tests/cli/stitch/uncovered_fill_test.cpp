// SPDX-License-Identifier: MIT
#include "cli/stitch/uncovered_fill.h"

#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace panoval::cli::test
{

namespace
{

// One grey row; ? stands for an uncovered pixel.
Image row_of(const std::vector<int>& levels, std::int32_t height = 1)
{
    Image image = make_image(static_cast<std::int32_t>(levels.size()), height, 1, 8, "test");
    ensure_mask(image, "test");
    for (std::int32_t y = 0; y < height; ++y)
        for (std::size_t x = 0; x < levels.size(); ++x) {
            image.row(y)[x] = static_cast<std::uint8_t>(levels[x] < 0 ? 123 : levels[x]);
            image.mask[static_cast<std::size_t>(y) * levels.size() + x] = levels[x] < 0 ? 0 : 255;
        }
    return image;
}

std::vector<int> levels_of(const Image& image, std::int32_t y = 0)
{
    return std::vector<int>(image.row(y), image.row(y) + image.width);
}

TEST(FillUncovered, GoesOnAlongARow)
{
    Image image = row_of({-1, -1, 10, -1, -1, -1, 50, 60, -1});
    fill_uncovered(image);
    EXPECT_EQ(levels_of(image), (std::vector<int>{10, 10, 10, 20, 30, 40, 50, 60, 60}));
}

TEST(FillUncovered, RowsWithoutCoverageTakeTheNearestOne)
{
    Image image = row_of({1, 2}, 6);
    std::fill_n(image.mask.get(), 2 * 6, std::uint8_t{0});
    for (const std::size_t row : {1u, 4u})
        std::fill_n(image.mask.get() + 2 * row, 2, std::uint8_t{9});
    image.row(4)[0] = 70;
    fill_uncovered(image);
    EXPECT_EQ(levels_of(image, 0), (std::vector<int>{1, 2}));
    EXPECT_EQ(levels_of(image, 2), (std::vector<int>{1, 2}));
    EXPECT_EQ(levels_of(image, 3), (std::vector<int>{70, 2}));
    EXPECT_EQ(levels_of(image, 5), (std::vector<int>{70, 2}));
}

TEST(FillUncovered, KeepsCoveredPixelsAndEmptyPictures)
{
    for (const int bits : {8, 16}) {
        const Image before = test_picture(23, 17, 3, bits, true);
        Image after = test_picture(23, 17, 3, bits, true);
        fill_uncovered(after);
        const std::size_t bytes = 3 * before.sample_bytes();
        for (std::size_t i = 0; i < before.pixels(); ++i)
            if (before.mask[i] != 0) {
                ASSERT_EQ(std::memcmp(&before.data[i * bytes], &after.data[i * bytes], bytes), 0) << "pixel " << i;
            }
        Image empty = test_picture(23, 17, 3, bits, true);
        std::fill_n(empty.mask.get(), empty.pixels(), std::uint8_t{0});
        fill_uncovered(empty);
        EXPECT_EQ(std::memcmp(empty.data.get(), before.data.get(), before.bytes()), 0);
    }
}

} // namespace

} // namespace panoval::cli::test
