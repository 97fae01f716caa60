// SPDX-License-Identifier: MIT
#include "mosaic/gains/gain_samples.h"

#include "tests/mosaic/memory_reader.h"
#include "tests/mosaic/mosaic_scene.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace panoval::mosaic::test
{

namespace
{

TEST(OverlapSamples, AreOfPixelsThatBothPicturesCover)
{
    MemoryReader reader(6, 2);
    MemoryPicture first = MemoryPicture::blank(4, 2, 3, 8);
    std::fill(first.samples.begin(), first.samples.end(), std::uint16_t{5});
    first.mask.assign(8, 255);
    first.mask[3] = 0;
    reader.add(0, 0, first);
    reader.add(2, 0, MemoryPicture::blank(4, 2, 3, 8));
    const Overlap overlap = find_overlaps(reader.layout)[0];
    const auto pairs = count_samples(reader.layout, overlap, lay_out_blocks(overlap.region, 1), {}, reader).pairs;
    ASSERT_EQ(pairs.size(), 4u);
    EXPECT_EQ(pairs[1].count[5 * SamplePairs::kSide], 3u);
    EXPECT_EQ(pairs[3].count[5 * SamplePairs::kSide], 9u);
}

TEST(OverlapSamples, AreNotOfPixelsThatTheSecondPictureDoesNotCover)
{
    MemoryReader reader(4, 1);
    MemoryPicture second = MemoryPicture::blank(4, 1, 1, 8);
    second.mask = {255, 255, 0, 1};
    reader.add(0, 0, MemoryPicture::blank(4, 1, 1, 8));
    reader.add(0, 0, second);
    const Overlap overlap = find_overlaps(reader.layout)[0];
    EXPECT_EQ(count_samples(reader.layout, overlap, lay_out_blocks(overlap.region, 1), {}, reader).pairs[0].count[0],
              3u);
}

// Differences that change their sign with every second pixel, and say nothing about the next one.
TEST(OverlapSamples, AreNotWhereEverySecondPixelGoesTogether)
{
    MemoryReader reader(64, 64);
    Random random = seeded(8);
    for (const int deep : {0, 3}) {
        MemoryPicture picture = MemoryPicture::blank(64, 64, 1, 8);
        for (std::size_t i = 0; i < picture.samples.size(); ++i)
            picture.samples[i] = static_cast<std::uint16_t>(20 +
                                                            (i % 4 == 0   ? deep
                                                             : i % 4 == 2 ? -deep
                                                                          : 0) +
                                                            random.integer(0, 1));
        reader.add(0, 0, picture);
    }
    const Overlap overlap = find_overlaps(reader.layout)[0];
    EXPECT_FALSE(
        is_white(count_samples(reader.layout, overlap, lay_out_blocks(overlap.region, 1), {}, reader).neighbours));
}

// Rows of 5 and 3, where some samples are too bright to be told apart.
TEST(OverlapSamples, LeaveOutWhatIsBrightInEitherPicture)
{
    MemoryReader reader(6, 1);
    MemoryPicture first = MemoryPicture::blank(6, 1, 1, 8);
    MemoryPicture second = first;
    first.samples = {5, 64, 5, 5, 5, 5};
    second.samples = {3, 3, 3, 3, 200, 3};
    reader.add(0, 0, first);
    reader.add(0, 0, second);
    const Overlap overlap = find_overlaps(reader.layout)[0];
    const OverlapSamples samples = count_samples(reader.layout, overlap, lay_out_blocks(overlap.region, 1), {}, reader);
    EXPECT_EQ(samples.pairs[0].count[5 * SamplePairs::kSide + 3], 4u);
    EXPECT_EQ(samples.neighbours[0].at[0].count, 4u);
    EXPECT_EQ(samples.neighbours[0].at[1].count, 1u) << "columns 2 and 3";
    EXPECT_EQ(samples.neighbours[0].at[2].count, 2u) << "columns 0 and 2, 3 and 5";
}

TEST(OverlapSamples, OfBlackChannelsSayNothing)
{
    std::vector<NeighbourSums> neighbours(2);
    EXPECT_TRUE(is_white(neighbours));
    neighbours[0].first = 100; // the second picture is black
    EXPECT_TRUE(is_white(neighbours));
    neighbours[1].second = 100;
    EXPECT_TRUE(is_white(neighbours));
}

// Two pictures of the same place and of one channel, 8 x 8; samples count from 0 to 63, the second one's are one more.
struct Square {
    MemoryReader reader{8, 8};
    Overlap overlap;

    Square()
    {
        for (const std::size_t more : {0u, 1u}) {
            MemoryPicture picture = MemoryPicture::blank(8, 8, 1, 8);
            for (std::size_t k = 0; k < 64; ++k)
                picture.samples[k] = static_cast<std::uint16_t>(std::min<std::size_t>(k + more, 63));
            reader.add(0, 0, picture);
        }
        overlap = find_overlaps(reader.layout)[0];
    }
};

TEST(OverlapSamples, LeaveBlocksOut)
{
    Square square;
    const GainBlocks blocks = lay_out_blocks(square.overlap.region, 4);
    ASSERT_EQ(blocks.blocks.size(), 4u);
    const auto pairs = count_samples(square.reader.layout, square.overlap, blocks, {0, 0, 1, 0}, square.reader).pairs;
    for (std::size_t y = 0; y < 8; ++y)
        for (std::size_t x = 0; x < 8; ++x) {
            const std::size_t k = 8 * y + x;
            const bool is_left_out = y >= 4 && x < 4;
            EXPECT_EQ(pairs[0].count[k * SamplePairs::kSide + std::min<std::size_t>(k + 1, 63)], is_left_out ? 0u : 1u);
        }
}

TEST(OverlapSamples, HaveTheProductsOfNeighbours)
{
    Square square;
    const GainBlocks blocks = lay_out_blocks(square.overlap.region, 1);
    const auto sums = count_samples(square.reader.layout, square.overlap, blocks, {}, square.reader).neighbours.at(0);
    NeighbourSums::Products expected;
    for (std::uint64_t k = 0; k < 64; ++k) {
        if (k % 8 >= 6)
            continue; // the pixel two places to the right is in the same row
        const std::uint64_t second = k + 1;
        const std::uint64_t far_second = std::min<std::uint64_t>(k + 3, 63);
        expected.first += k * (k + 2);
        expected.second += second * far_second;
        expected.first_second += k * far_second;
        expected.second_first += second * (k + 2);
        ++expected.count;
    }
    EXPECT_EQ(sums.at[2].first, expected.first);
    EXPECT_EQ(sums.at[2].second, expected.second);
    EXPECT_EQ(sums.at[2].first_second, expected.first_second);
    EXPECT_EQ(sums.at[2].second_first, expected.second_first);
    EXPECT_EQ(sums.at[2].count, 48u);
    EXPECT_EQ(sums.at[0].count, 64u);
    EXPECT_EQ(sums.first, 63u * 64u / 2);
}

std::vector<NeighbourSums> neighbours_of(const Cut& second, double noise)
{
    const Scene scene = make_scene(120, 200, {.mean = 8 / 255.0});
    MemoryReader reader(120, 200);
    const Cut first{.rect = {0, 0, 120, 200}, .gain = 1.3, .noise = noise};
    Cut other = second;
    other.rect = first.rect;
    other.noise = noise;
    other.seed = 2;
    reader.add(0, 0, take_picture(scene, first));
    reader.add(0, 0, take_picture(scene, other));
    const Overlap overlap = find_overlaps(reader.layout)[0];
    return count_samples(reader.layout, overlap, lay_out_blocks(overlap.region, 1), {}, reader).neighbours;
}

TEST(OverlapSamples, AreWhiteWhereNoiseAloneMakesThemDiffer)
{
    for (const double noise : {0.5, 1.0, 3.0})
        EXPECT_TRUE(is_white(neighbours_of({.gain = 0.8}, noise))) << noise;
    EXPECT_TRUE(is_white(neighbours_of({.white = {1.1, 0.9, 1, 1}}, 1))) << "each channel has its own ratio";
}

TEST(OverlapSamples, AreNotWhereThePicturesDiffer)
{
    EXPECT_FALSE(is_white(neighbours_of({.shift_x = 1}, 1)));
    EXPECT_FALSE(is_white(neighbours_of({.shift_y = -1}, 1)));
    EXPECT_FALSE(is_white(neighbours_of({.blur = 3}, 1)));
    EXPECT_FALSE(is_white(neighbours_of({.things = {{{20, 20, 60, 60}, 0.1}}}, 1)));
}

} // namespace

} // namespace panoval::mosaic::test
