// SPDX-License-Identifier: MIT
#include "panoval.h"
#include "tests/blend/multi_band_pictures.h"
#include "tests/support/failing_heap.h"
#include "tests/support/targets.h"

#include <limits>

namespace panoval::test
{
namespace
{

struct Placement {
    int width, height;
    Point tl;
};

// inside, over each edge, larger than the canvas, one pixel, one row, one column
constexpr Placement kPlacements[] = {
    {61, 40, {10, 25}}, {50, 33, {-41, 0}},   {70, 50, {90, 70}},   {200, 150, {-45, -20}},
    {1, 1, {33, 44}},   {77, 1, {-10, 99}},   {1, 60, {129, 12}},   {2, 2, {-21, 9}},
    {3, 90, {-20, 10}}, {150, 90, {-20, 10}}, {64, 64, {-100, 40}}, {10, 10, {-25, 95}},
};

TEST(MultiBandFeed, EqualsItsTwinFrom1To7Bands)
{
    for_each_target([] {
        for (int bands = 1; bands <= 7; ++bands) {
            const int channels = 1 + bands % 4;
            Pair pair(bands, channels, kCanvas);
            std::uint64_t seed = static_cast<std::uint64_t>(bands) * 100;
            for (const Placement& p : kPlacements) {
                const Cover cover = static_cast<Cover>(seed % 5);
                const Picture picture(p.width, p.height, channels, 1 + static_cast<int>(seed / 5 % 2), cover, seed);
                pair.feed(picture, p.tl);
                ASSERT_TRUE(pair.same_sums()) << bands << " bands, " << p.width << " x " << p.height;
                ++seed;
            }
            ASSERT_TRUE(pair.same_panorama(1 + bands % 2));
        }
    });
}

TEST(MultiBandFeed, EqualsItsTwinForEveryFormat)
{
    for_each_target([] {
        for (const int channels : {1, 2, 3, 4, 5})
            for (const int elem_size : {1, 2}) {
                Pair pair(3, channels, {5, -6, 41, 37});
                const auto seed = static_cast<std::uint64_t>(channels * 10 + elem_size);
                pair.feed(Picture(30, 29, channels, elem_size, Cover::Grey, seed), {0, -10});
                pair.feed(Picture(23, 31, channels, elem_size, Cover::Holes, seed + 5), {20, 3});
                ASSERT_TRUE(pair.same_sums()) << channels << " channels, " << elem_size << " bytes";
                ASSERT_TRUE(pair.same_panorama(elem_size)) << channels << " channels, " << elem_size << " bytes";
            }
    });
}

TEST(MultiBandFeed, EqualsItsTwinOnTinyCanvases)
{
    for_each_target([] {
        for (int width = 1; width <= 9; ++width)
            for (int height = 1; height <= 9; ++height)
                for (const int bands : {1, 2, 7}) {
                    Pair pair(bands, 3, {1, 2, width, height});
                    const auto seed = static_cast<std::uint64_t>(width * 10 + height);
                    pair.feed(Picture(width, height, 3, 1, Cover::Full, seed), {1, 2});
                    pair.feed(Picture(2, 3, 3, 1, Cover::Grey, seed), {0, height});
                    ASSERT_TRUE(pair.same_sums()) << width << " x " << height << ", " << bands << " bands";
                    ASSERT_TRUE(pair.same_panorama(1)) << width << " x " << height << ", " << bands << " bands";
                }
    });
}

TEST(MultiBandFeed, EqualsItsTwinForEveryWidth)
{
    for_each_target([] {
        for (int width = 1; width <= 67; ++width) {
            Pair pair(2, width % 2 == 0 ? 3 : 4, {0, 0, 80, 9});
            const int channels = pair.twin.laplace[0].channels;
            pair.feed(Picture(width, 7, channels, 1, Cover::Holes, static_cast<std::uint64_t>(width)), {width % 11, 1});
            pair.feed(Picture(9, width, channels, 2, Cover::Grey, static_cast<std::uint64_t>(width)), {-3, -width / 2});
            ASSERT_TRUE(pair.same_sums()) << "width " << width;
            ASSERT_TRUE(pair.same_panorama(2)) << "width " << width;
        }
    });
}

TEST(MultiBandFeed, ChangesNothingForAnImageBesideTheCanvas)
{
    constexpr int kMost = std::numeric_limits<int>::max();
    constexpr int kLeast = std::numeric_limits<int>::min();
    Pair pair(3, 3, kCanvas);
    const Picture picture(20, 20, 3, 1, Cover::Full, 3);
    for (const Point tl : {Point{-40, 20}, Point{132, 20}, Point{0, -10}, Point{0, 106}, Point{kMost, kMost},
                           Point{kLeast, kLeast}, Point{kLeast, 20}})
        multi_band_blender_feed(&pair.blender, &picture.img, &picture.mask, tl);
    EXPECT_TRUE(pair.same_sums());
    EXPECT_TRUE(pair.same_panorama(1));
}

TEST(MultiBandFeed, ChangesNothingForAnImageWithoutPixels)
{
    Pair pair(3, 3, kCanvas);
    const Mat img{0, 5, 3, 1, 0, 0, nullptr};
    const Matb mask{0, 5, 1, nullptr};
    multi_band_blender_feed(&pair.blender, &img, &mask, {0, 20});
    EXPECT_TRUE(pair.same_sums());
}

TEST(MultiBandFeed, ChangesNothingForAnotherSampleSize)
{
    Pair pair(3, 1, kCanvas);
    Picture picture(20, 20, 4, 1, Cover::Full, 3);
    picture.img.channels = 1;
    for (const int elem_size : {0, 3, 4}) {
        picture.img.elemSize = elem_size;
        multi_band_blender_feed(&pair.blender, &picture.img, &picture.mask, {0, 20});
    }
    EXPECT_TRUE(pair.same_sums());
}

TEST(MultiBandFeed, TakesTheChannelsThatImageAndCanvasShare)
{
    for_each_target([] {
        for (const int canvas_channels : {1, 2, 3, 4})
            for (const int channels : {1, 2, 3, 4, 6})
                for (const int elem_size : {1, 2}) {
                    Pair pair(2, canvas_channels, {0, 0, 40, 30});
                    const Picture picture(33, 21, channels, elem_size, Cover::Grey, 8);
                    pair.feed(picture, {-5, 12});
                    ASSERT_TRUE(pair.same_sums()) << channels << " channels on " << canvas_channels;
                }
    });
}

TEST(MultiBandFeed, HasRoomForMatchedRowsOfEveryLength)
{
    for (int width = 1; width <= 40; ++width) {
        Pair pair(1, 2, {0, 0, 40, 4});
        pair.feed(Picture(width, 3, 3, 1, Cover::Grey, 9), {0, 0});
        ASSERT_TRUE(pair.same_sums()) << width << " pixels";
    }
}

TEST(MultiBandFeed, ReadsRowsOfTheMaskAtItsOwnWidth)
{
    const Picture picture(30, 20, 3, 1, Cover::Full, 22);
    const Guarded<std::uint8_t> wider(mask_of(Cover::Grey, 37, 20, 23));
    const Matb mask{37, 20, 1, const_cast<std::uint8_t*>(wider.data())};
    for (const Point tl : {Point{5, 30}, Point{-30, 0}}) {
        Pair pair(3, 3, kCanvas);
        multi_band_blender_feed(&pair.blender, &picture.img, &mask, tl);
        reference::multi_band_feed(pair.twin, picture.img, mask, tl);
        EXPECT_TRUE(pair.same_sums());
        EXPECT_TRUE(pair.same_panorama(1));
    }
}

TEST(MultiBandFeed, KeepsTheImageAndItsMask)
{
    const Picture picture(40, 40, 3, 1, Cover::Grey, 21);
    const Picture untouched(40, 40, 3, 1, Cover::Grey, 21);
    Pair pair(3, 3, kCanvas);
    pair.feed(picture, {0, 20});
    EXPECT_TRUE(same_bits(picture.samples.data(), untouched.samples.data(), picture.samples.size()));
    EXPECT_TRUE(same_bits(picture.covered.data(), untouched.covered.data(), picture.covered.size()));
}

TEST(MultiBandFeed, WeighsAMaskInProportion)
{
    Pair pair(1, 1, {0, 0, 8, 8});
    Picture picture(8, 8, 1, 1, Cover::Full, 4);
    picture.covered[0] = 0;
    picture.covered[1] = 51;
    pair.feed(picture, {0, 0});
    const float* const weights = pair.blender.dstBandWeights[0].data;
    EXPECT_EQ(weights[0], 0.0f);
    EXPECT_EQ(weights[1], 0.2f);
    EXPECT_EQ(weights[2], 1.0f);
}

TEST(MultiBandFeed, TakesLittleMemoryBesideTheCanvas)
{
    for (const int bands : {1, 5, 7}) {
        const Picture picture(1500, 900, 3, 1, Cover::Full, 31);
        Roi roi{0, 0, 1600, 1000};
        MultiBandBlender blender{};
        multi_band_blender_setbands(&blender, bands);
        multi_band_blender_prepare(&blender, 3, &roi);
        {
            FailingHeap heap;
            multi_band_blender_feed(&blender, &picture.img, &picture.mask, {50, 50});
            const std::size_t as_floats = area(1500, 900, 3) * sizeof(float);
            EXPECT_LE(heap.peak_bytes(), (std::size_t{4} << 20) + as_floats / 3) << bands << " bands";
            EXPECT_LE(heap.peak_bytes(), std::size_t{1} << 20) << bands << " bands";
            EXPECT_GT(heap.peak_bytes(), 0u);
        }
        multi_band_blender_blend(&blender, nullptr, 1);
    }
}

TEST(MultiBandFeed, ChangesNothingWithoutMemory)
{
    const Picture picture(60, 45, 3, 1, Cover::Grey, 31);
    for_each_failing_allocation([&](FailingHeap& heap) {
        Roi roi{0, 0, 64, 64};
        MultiBandBlender blender{};
        multi_band_blender_setbands(&blender, 4);
        multi_band_blender_prepare(&blender, 3, &roi);
        const bool is_prepared = !heap.has_failed();
        const std::ptrdiff_t blocks = heap.live_blocks();
        multi_band_blender_feed(&blender, &picture.img, &picture.mask, {1, 2});
        EXPECT_EQ(heap.live_blocks(), blocks);
        if (is_prepared && heap.has_failed())
            for (int i = 0; i <= 4; ++i)
                for (std::size_t k = 0; k < area(64 >> i, 64 >> i); ++k) {
                    ASSERT_EQ(blender.dstPyrLaplace[i].data[3 * k], 0.0f);
                    ASSERT_EQ(blender.dstBandWeights[i].data[k], 0.0f);
                }
        multi_band_blender_blend(&blender, nullptr, 1);
        EXPECT_EQ(heap.live_blocks(), 0);
    });
}

} // namespace
} // namespace panoval::test
