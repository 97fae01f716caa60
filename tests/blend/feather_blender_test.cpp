// SPDX-License-Identifier: MIT
// What the feather blender's record and results look like, worked out by hand.
#include "panoval.h"
#include "tests/blend/feather_scene.h"
#include "tests/support/buffers.h"
#include "tests/support/failing_heap.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

namespace
{

using namespace panoval::test;
using Samples = std::vector<int>;

constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();

TEST(FeatherPrepare, OpensAZeroCanvas)
{
    FeatherBlender blender{};
    std::memset(&blender.spare, 0x5A, sizeof blender.spare);
    const Roi canvas{-3, 7, 5, 4};
    feather_blender_prepare(&blender, 3, &canvas);
    EXPECT_EQ(blender.sharpness, 0.02f);
    EXPECT_EQ(blender.dst.width, 5);
    EXPECT_EQ(blender.dst.height, 4);
    EXPECT_EQ(blender.dst.channels, 3);
    EXPECT_EQ(values_of(blender.dst), std::vector<float>(60, 0.f));
    EXPECT_EQ(blender.dstWeightMap.width, 5);
    EXPECT_EQ(blender.dstWeightMap.height, 4);
    EXPECT_EQ(blender.dstWeightMap.channels, 1);
    EXPECT_EQ(values_of(blender.dstWeightMap), std::vector<float>(20, 0.f));
    EXPECT_EQ(std::memcmp(&blender.dstRoi, &canvas, sizeof canvas), 0);
    EXPECT_EQ(blender.weightMap.data, nullptr);
    EXPECT_EQ(blender.distScratch.data, nullptr);
    EXPECT_EQ(blender.spare.width, 0x5A5A5A5A);
    std::free(blender.dst.data);
    std::free(blender.dstWeightMap.data);
}

TEST(FeatherPrepare, OfACanvasBeyondTheSizesLeavesItEmpty)
{
    for (const Roi& canvas :
         {Roi{0, 0, 65536, 65536}, Roi{0, 0, 65537, 65536}, Roi{0, 0, kMost, kMost}, Roi{0, 0, 40000, 40000}})
        for (const int channels : {0, 3}) {
            if (channels == 0 && canvas.width == 40000)
                continue; // the weights alone fit
            Panorama p(canvas, channels);
            EXPECT_EQ(p.blender.dst.data, nullptr);
            EXPECT_EQ(p.blender.dst.width, 0);
            EXPECT_EQ(p.blender.dstWeightMap.data, nullptr);
            p.feed(Placed(4, 4, 3, 1, {0, 2}).filled(9));
            EXPECT_EQ(p.blend(1), Samples{});
            EXPECT_EQ(p.out.width, 0);
        }
}

TEST(FeatherPrepare, KeepsASizeThatIsNotPositiveAndNothingIsFed)
{
    for (const Roi& canvas : {Roi{0, 0, -4, 3}, Roi{0, 0, 3, -4}, Roi{0, 0, -4, -4}, Roi{-2, -2, kLeast, kLeast}})
        for (const int channels : {1, 3}) {
            Panorama p(canvas, channels);
            EXPECT_EQ(p.blender.dst.width, canvas.width);
            EXPECT_EQ(p.blender.dstWeightMap.height, canvas.height);
            p.feed(Placed(4, 4, 3, 1, {-3, -3}).filled(9)).feed(Placed(4, 4, 3, 8, {-5, -5}));
            const bool is_product_positive = canvas.width == -4 && canvas.height == -4;
            EXPECT_EQ(p.blend(1), Samples(is_product_positive ? 16u * static_cast<unsigned>(channels) : 0u, 0));
            EXPECT_EQ(p.out.width, canvas.width);
            EXPECT_EQ(p.out.height, canvas.height);
        }
}

TEST(FeatherPrepare, OfNegativeChannelsSumsWeightsAlone)
{
    Panorama p({0, 0, 5, 2}, -2);
    p.feed(Placed(5, 2, 3, 1, {0, 0}).filled(9));
    EXPECT_EQ(p.blender.dst.data, nullptr);
    EXPECT_EQ(values_of(p.blender.dstWeightMap), std::vector<float>(10, 1.f));
    EXPECT_EQ(p.blend(1), Samples{});
    EXPECT_EQ(p.out.channels, -2);
}

TEST(FeatherFeed, WeighsByTheDistanceFromTheMasksEdge)
{
    for_each_target([] {
        Placed image(120, 1, 1, 1, {0, 0});
        image.mask.data[0] = 0;
        Panorama p({0, 0, 120, 1}, 1);
        p.feed(image);
        EXPECT_EQ(p.blender.weightMap.width, 120);
        EXPECT_EQ(p.blender.weightMap.height, 1);
        EXPECT_EQ(p.blender.weightMap.channels, 1);
        for (int x = 0; x < 120; ++x)
            EXPECT_EQ(p.blender.weightMap.data[x], x >= 50 ? 1.f : static_cast<float>(x) * 0.02f) << x;
        EXPECT_EQ(p.blender.weightMap.data[1], 0.02f);
        EXPECT_EQ(values_of(p.blender.dstWeightMap), values_of(p.blender.weightMap));
    });
}

TEST(FeatherFeed, CountsDistancesInCityBlocks)
{
    Placed image(9, 9, 1, 1, {0, 0});
    image.mask.data[4 * 9 + 4] = 0;
    Panorama p({0, 0, 9, 9}, 1);
    p.feed(image);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 9; ++x)
            EXPECT_EQ(p.blender.weightMap.data[y * 9 + x],
                      static_cast<float>(std::abs(x - 4) + std::abs(y - 4)) * 0.02f);
}

TEST(FeatherFeed, GivesFullWeightEverywhereWhereTheMaskHasNoZero)
{
    for_each_target([] {
        Panorama p({0, 0, 21, 5}, 1);
        p.feed(Placed(21, 5, 1, 1, {0, 0}).filled(3));
        EXPECT_EQ(values_of(p.blender.weightMap), std::vector<float>(105, 1.f));
        EXPECT_EQ(values_of(p.blender.dst), std::vector<float>(105, 3.f));
    });
}

TEST(FeatherFeed, TakesAnyNonZeroMaskByteAlike)
{
    Placed image(4, 1, 1, 1, {0, 0});
    const std::uint8_t mask[] = {0, 1, 128, 255};
    std::memcpy(image.mask.data, mask, 4);
    Panorama p({0, 0, 4, 1}, 1);
    p.feed(image.filled(100));
    EXPECT_EQ(values_of(p.blender.weightMap), (std::vector<float>{0.f, 0.02f, 0.04f, 3.f * 0.02f}));
}

TEST(FeatherFeed, AMaskWithANegativeSideFeedsNothing)
{
    for (const auto& [width, height] : {std::pair{-1, 3}, {3, -1}, {-1, -1}, {-2, -3}}) {
        Placed image(4, 4, 1, 1, {0, 0});
        image.mask.width = width;
        image.mask.height = height;
        Panorama p({0, 0, 4, 4}, 1);
        p.feed(image.filled(9));
        EXPECT_EQ(p.blender.weightMap.data, nullptr) << width << " x " << height;
        EXPECT_EQ(p.blender.weightMap.width, 0);
        EXPECT_EQ(values_of(p.blender.dstWeightMap), std::vector<float>(16, 0.f));
    }
}

TEST(FeatherFeed, FollowsTheRecordsSharpness)
{
    Placed image(4, 1, 1, 1, {0, 0});
    image.mask.data[0] = 0;
    Panorama p({0, 0, 4, 1}, 1);
    p.blender.sharpness = 0.4f;
    p.feed(image);
    EXPECT_EQ(values_of(p.blender.weightMap), (std::vector<float>{0.f, 0.4f, 0.8f, 1.f}));
}

TEST(FeatherFeed, LeavesTheScratchMapsOfTheLastImage)
{
    for_each_target([] {
        Panorama p({0, 0, 40, 40}, 1);
        p.feed(Placed(30, 30, 1, 1, {0, 0}).masked(9, 1));
        Placed last(2, 1, 1, 1, {-100, -100}); // not on the canvas
        last.mask.data[1] = 0;
        p.feed(last);
        EXPECT_EQ(values_of(p.blender.weightMap), (std::vector<float>{0.02f, 0.f}));
        EXPECT_EQ(p.blender.distScratch.width, 4);
        EXPECT_EQ(p.blender.distScratch.height, 3);
        constexpr std::int32_t kFar = 0x1FFFFFFF;
        const std::int32_t expected[] = {kFar, kFar, kFar, kFar, kFar, 65536, 0, kFar, kFar, kFar, kFar, kFar};
        EXPECT_EQ(std::memcmp(p.blender.distScratch.data, expected, sizeof expected), 0);
    });
}

TEST(FeatherFeed, AddsOnlyTheVisiblePart)
{
    for_each_target([] {
        // A 20 x 20 image over each corner and side of a 30 x 24 canvas, and around a canvas smaller than itself.
        for (const int dx : {-21, -20, -19, -7, 0, 3, 10, 11, 29, 30, 31})
            for (const int dy : {-20, -19, -5, 0, 4, 5, 23, 24}) {
                Panorama p({100, -50, 30, 24}, 1);
                p.feed(Placed(20, 20, 1, 1, {100 + dx, -50 + dy}).filled(7));
                for (int y = 0; y < 24; ++y)
                    for (int x = 0; x < 30; ++x) {
                        const bool covered = x >= dx && x < dx + 20 && y >= dy && y < dy + 20;
                        EXPECT_EQ(p.blender.dst.data[y * 30 + x], covered ? 7.f : 0.f);
                        EXPECT_EQ(p.blender.dstWeightMap.data[y * 30 + x], covered ? 1.f : 0.f);
                    }
            }
        Panorama small({5, 5, 2, 1}, 1);
        EXPECT_EQ(small.feed(Placed(40, 40, 1, 1, {0, 0}).filled(7)).blend(1), (Samples{7, 7}));
    });
}

TEST(FeatherFeed, CutsAwayImagesAtTheEndsOfTheRange)
{
    for (const std::int32_t x : {kLeast, kLeast + 1, kMost - 1, kMost})
        for (const std::int32_t origin : {0, 1000}) {
            Panorama p({origin, 0, 8, 8}, 1);
            p.feed(Placed(3, 3, 1, 1, {x, 0}).filled(7)).feed(Placed(3, 3, 1, 1, {0, x}).filled(7));
            EXPECT_EQ(p.blend(1), Samples(64, 0));
        }
}

TEST(FeatherFeed, OfAnotherSampleSizeAddsWeightButNoColour)
{
    for_each_target([] {
        for (const int elem_size : {0, 3, 4, 8}) {
            Panorama p({0, 0, 20, 2}, 2);
            p.feed(Placed(20, 2, 2, elem_size, {0, 0}).noisy(1));
            EXPECT_EQ(values_of(p.blender.dst), std::vector<float>(80, 0.f));
            EXPECT_EQ(values_of(p.blender.dstWeightMap), std::vector<float>(40, 1.f));
        }
    });
}

TEST(FeatherFeed, OfFewerChannelsThanPreparedFillsTheFirstOnes)
{
    Panorama p({0, 0, 2, 1}, 3);
    EXPECT_EQ(p.feed(Placed(2, 1, 1, 1, {0, 0}).filled(5)).blend(1), (Samples{5, 0, 0, 5, 0, 0}));
}

TEST(FeatherFeed, OfMoreChannelsThanPreparedNeverLeavesTheCanvas)
{
    for_each_target([] {
        // Each sample goes where its indices say: a pixel's second and third sample fall on its neighbours.
        Panorama p({0, 0, 4, 1}, 1);
        EXPECT_EQ(p.feed(Placed(4, 1, 3, 1, {0, 0}).filled(100)).blend(2), (Samples{100, 200, 300, 300}));
        Panorama low_bits({0, 0, 4, 1}, 1);
        EXPECT_EQ(low_bits.feed(Placed(4, 1, 3, 1, {0, 0}).filled(100)).blend(1), (Samples{100, 200, 44, 44}));
        Panorama none({0, 0, 4, 1}, 0);
        EXPECT_EQ(none.feed(Placed(4, 1, 3, 1, {0, 0}).filled(100)).blend(1), Samples{});
        EXPECT_EQ(none.out.width, 4);
    });
}

TEST(FeatherFeed, WithAMaskOfAnotherSizeNeverLeavesItsMaps)
{
    for_each_target([] {
        for (const Size size : {Size{0, 0}, Size{3, 9}, Size{9, 3}, Size{3, 3}, Size{12, 12}, Size{-1, 4}, Size{-1, -1},
                                Size{-5, -5}, Size{4, -2}}) {
            const Placed image(9, 9, 3, 2, {1, 1});
            Placed mask(std::max(size.width, 0), std::max(size.height, 0), 1, 1, {0, 0});
            mask.mask.width = size.width;
            mask.mask.height = size.height;
            Panorama p({0, 0, 12, 12}, 3);
            feather_blender_feed(&p.blender, &image.img, &mask.mask, image.tl);
            EXPECT_EQ(p.blend(1).size(), 432u);
        }
    });
}

TEST(FeatherFeed, AddressesTheSumsWithTheirOwnWidthsWhereTheHostNarrowsTheCanvas)
{
    for (const int elem_size : {1, 8}) { // also an image that adds weight alone
        Panorama p({0, 0, 4, 3}, 1);
        p.blender.dstRoi = {0, 0, 3, 2};
        p.feed(Placed(9, 9, 1, elem_size, {1, -2}).filled(7));
        const float w = 1.f;
        EXPECT_EQ(values_of(p.blender.dstWeightMap), (std::vector<float>{0, w, w, 0, 0, w, w, 0, 0, 0, 0, 0}));
        const float v = elem_size == 1 ? 7.f : 0.f;
        EXPECT_EQ(values_of(p.blender.dst), (std::vector<float>{0, v, v, 0, 0, v, v, 0, 0, 0, 0, 0}));
    }
}

TEST(FeatherFeed, NeverLeavesTheSumsWhereTheHostChangesTheCanvasesHeight)
{
    for (const int height : {2, 5}) {
        Panorama p({0, 0, 4, 3}, 1);
        p.blender.dstRoi = {0, 0, 4, height};
        p.feed(Placed(9, 9, 1, 1, {1, -2}).filled(7));
        const float last = height > 2 ? 1.f : 0.f;
        EXPECT_EQ(values_of(p.blender.dstWeightMap), (std::vector<float>{0, 1, 1, 1, 0, 1, 1, 1, 0, last, last, last}));
        const float v = 7 * last;
        EXPECT_EQ(values_of(p.blender.dst), (std::vector<float>{0, 7, 7, 7, 0, 7, 7, 7, 0, v, v, v}));
    }
}

TEST(FeatherFeed, FillsSumsOfAsManySamplesAsASizeCanTell)
{
    // Of the 2^30 samples that the host's canvas has, those that the image covers are looked at.
    Panorama p({0, 0, 2, 1}, 1);
    p.blender.dst.width = 1 << 30;
    p.feed(Placed(2, 1, 1, 1, {0, 0}).filled(7));
    EXPECT_EQ(p.blender.dst.data[0], 7.f);
    EXPECT_EQ(p.blender.dst.data[1], 7.f);
}

TEST(FeatherFeed, OfNothingChangesNothing)
{
    Panorama p({0, 0, 3, 2}, 1);
    for (const Size size : {Size{0, 0}, Size{0, 7}, Size{7, 0}}) {
        p.feed(Placed(size.width, size.height, 1, 1, {0, 0}));
        EXPECT_EQ(p.blender.weightMap.width, size.width);
        EXPECT_EQ(p.blender.distScratch.width, size.width + 2);
    }
    EXPECT_EQ(p.blend(1), Samples(6, 0));
}

TEST(FeatherBlend, WithoutAnyFeedIsAllZero)
{
    for_each_target([] {
        Panorama p({4, 5, 19, 3}, 3);
        EXPECT_EQ(p.blend(1), Samples(171, 0));
        EXPECT_EQ(p.out.width, 19);
        EXPECT_EQ(p.out.height, 3);
        EXPECT_EQ(p.out.channels, 3);
        EXPECT_EQ(p.out.elemSize, 1);
    });
}

TEST(FeatherBlend, OfAnEmptyCanvasIsEmpty)
{
    for (const Roi& canvas : {Roi{0, 0, 0, 5}, Roi{0, 0, 5, 0}, Roi{0, 0, 0, 0}}) {
        Panorama p(canvas, 3);
        EXPECT_EQ(p.feed(Placed(4, 4, 3, 1, {0, 0}).filled(9)).blend(1), Samples{});
        EXPECT_EQ(p.out.width, canvas.width);
        EXPECT_EQ(p.out.height, canvas.height);
    }
}

TEST(FeatherBlend, RoundsTwoFullWeightsOf10And13To11)
{
    for_each_target([] {
        Panorama p({0, 0, 20, 1}, 1);
        p.feed(Placed(20, 1, 1, 1, {0, 0}).filled(10)).feed(Placed(20, 1, 1, 1, {0, 0}).filled(13));
        EXPECT_EQ(p.blend(1), Samples(20, 11));
    });
}

TEST(FeatherBlend, KeepsEvery8BitValueOfASingleImage)
{
    for_each_target([] {
        Placed image(256, 1, 1, 1, {0, 0});
        Samples expected;
        for (int v = 0; v < 256; ++v) {
            image.img.data[v] = static_cast<std::uint8_t>(v);
            expected.push_back(v);
        }
        Panorama p({0, 0, 256, 1}, 1);
        EXPECT_EQ(p.feed(image).blend(1), expected);
        Panorama wide({0, 0, 256, 1}, 1);
        EXPECT_EQ(wide.feed(image).blend(2), expected);
    });
}

TEST(FeatherBlend, Keeps16BitValuesBelow50128AndTakesOneOffLargerOnes)
{
    for_each_target([] {
        // The epsilon takes half a unit at 50000, and single precision rounds that away up to here.
        for (const int value : {0, 1, 255, 256, 40000, 50000, 50127, 50128, 65535}) {
            Panorama p({0, 0, 17, 1}, 1);
            const int expected = value >= 50128 ? value - 1 : value;
            EXPECT_EQ(p.feed(Placed(17, 1, 1, 2, {0, 0}).filled(value)).blend(2), Samples(17, expected));
        }
    });
}

TEST(FeatherBlend, Of16BitSamplesToBytesKeepsTheLowByte)
{
    for_each_target([] {
        Panorama p({0, 0, 17, 1}, 3);
        EXPECT_EQ(p.feed(Placed(17, 1, 3, 2, {0, 0}).filled(0x12AB)).blend(1), Samples(51, 0xAB));
    });
}

TEST(FeatherBlend, WritesZeroWhereTheWeightIsNoMoreThanTheEpsilonWhateverTheSum)
{
    for_each_target([] {
        Panorama p({0, 0, 33, 1}, 1);
        for (int x = 0; x < 33; ++x) {
            p.blender.dst.data[x] = 5.f;
            p.blender.dstWeightMap.data[x] = x % 3 == 0 ? 0.f : x % 3 == 1 ? 1e-5f : 1.00001e-5f;
        }
        const Samples samples = p.blend(2);
        for (std::size_t x = 0; x < 33; ++x) // 5 / 2.00001e-5 is 249998.75, 53391 + 3 * 65536
            EXPECT_EQ(samples[x], x % 3 == 2 ? 53391 : 0) << x;
    });
}

TEST(FeatherBlend, TruncatesMeansThatLeaveTheIntegersToZeroBits)
{
    for_each_target([] {
        Panorama p({0, 0, 32, 1}, 1);
        for (int x = 0; x < 32; ++x) {
            const float sums[] = {4e9f, -4e9f, 1e30f, -3.f};
            p.blender.dst.data[x] = sums[x % 4];
            p.blender.dstWeightMap.data[x] = 1.f;
        }
        const Samples samples = p.blend(1);
        for (std::size_t x = 0; x < 32; ++x)
            EXPECT_EQ(samples[x], x % 4 == 3 ? 253 : 0) << x;
    });
}

TEST(FeatherBlend, ToAnyOtherSampleSizeLeavesZeros)
{
    for (const int elem_size : {0, 3, 4, 8, -1}) {
        Panorama p({0, 0, 6, 2}, 1);
        p.out.data = static_cast<std::uint8_t*>(std::malloc(200));
        p.out.capacity = 200;
        std::memset(p.out.data, 77, 200);
        p.feed(Placed(6, 2, 1, 1, {0, 0}).filled(9));
        feather_blender_blend(&p.blender, &p.out, elem_size);
        EXPECT_EQ(p.out.size, 12 * elem_size);
        for (int i = 0; i < 200; ++i)
            EXPECT_EQ(p.out.data[i], i < 12 * elem_size ? 0 : 77);
    }
}

TEST(FeatherBlend, WritesEverySampleOfAReusedOutputAndNothingBehindIt)
{
    for_each_target([] {
        Panorama p({0, 0, 11, 3}, 3);
        p.out.data = static_cast<std::uint8_t*>(std::malloc(120));
        p.out.capacity = 120;
        std::memset(p.out.data, 77, 120);
        const std::uint8_t* const block = p.out.data;
        p.feed(Placed(4, 2, 3, 1, {1, 1}).filled(9)).blend(1);
        EXPECT_EQ(p.out.data, block);
        for (int i = 0; i < 120; ++i) {
            const int x = i / 3 % 11;
            const int y = i / 33;
            EXPECT_EQ(p.out.data[i], i >= 99 ? 77 : x >= 1 && x < 5 && y >= 1 && y < 3 ? 9 : 0);
        }
    });
}

TEST(FeatherBlend, ReleasesItsBuffersAndClearsTheirPointers)
{
    FailingHeap heap;
    {
        FeatherBlender blender{};
        int marker = 0;
        blender.spare.data = reinterpret_cast<float*>(&marker);
        Mat out{};
        for (int round = 0; round < 2; ++round) { // cleared pointers make the record usable again
            const Roi canvas{0, 0, 12, 9};
            const Placed image = Placed(12, 9, 3, 1, {0, 0});
            feather_blender_prepare(&blender, 3, &canvas);
            feather_blender_feed(&blender, &image.img, &image.mask, image.tl);
            feather_blender_blend(&blender, &out, 1);
            EXPECT_EQ(blender.dst.data, nullptr);
            EXPECT_EQ(blender.dstWeightMap.data, nullptr);
            EXPECT_EQ(blender.weightMap.data, nullptr);
            EXPECT_EQ(blender.distScratch.data, nullptr);
            EXPECT_EQ(blender.spare.data, reinterpret_cast<float*>(&marker));
        }
        MatDestroy(&out);
    }
    EXPECT_EQ(heap.live_blocks(), 0);
}

TEST(FeatherBlender, NeitherReadsNorWritesItsSpareContainer)
{
    FeatherBlender blender{};
    std::memset(&blender.spare, 0x5A, sizeof blender.spare);
    const Matf spare = blender.spare;
    const Roi canvas{0, 0, 12, 9};
    const Placed image = Placed(12, 9, 3, 1, {0, 0});
    Mat out{};
    feather_blender_prepare(&blender, 3, &canvas);
    feather_blender_feed(&blender, &image.img, &image.mask, image.tl);
    feather_blender_blend(&blender, &out, 1);
    EXPECT_EQ(blender.spare.width, spare.width);
    EXPECT_EQ(blender.spare.height, spare.height);
    EXPECT_EQ(blender.spare.channels, spare.channels);
    EXPECT_EQ(blender.spare.data, spare.data);
    MatDestroy(&out);
}

TEST(FeatherFeed, OfAMaskOfNegativeHeightLeavesNoWeights)
{
    Panorama p({0, 0, 3, 2}, 1);
    const Placed image(3, 2, 1, 1, {0, 0});
    Matb mask = image.mask;
    mask.height = -2;
    feather_blender_feed(&p.blender, &image.img, &mask, {0, 0});
    EXPECT_EQ(p.blender.weightMap.data, nullptr);
    EXPECT_EQ(p.blend(1), Samples(6, 0));
}

// A host may take the weights out of the record.
TEST(FeatherBlender, WithoutASumOfWeightsAddsNothingAndGivesZeros)
{
    Panorama p({0, 0, 3, 2}, 1);
    std::free(p.blender.dstWeightMap.data);
    p.blender.dstWeightMap.data = nullptr;
    p.feed(Placed(3, 2, 1, 1, {0, 0}));
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(p.blender.dst.data[i], 0.0f);
    EXPECT_EQ(p.blend(1), Samples(6, 0));
}

TEST(FeatherBlend, OfASpentRecordIsZeroAndFeedingOneIsHarmless)
{
    Panorama p({0, 0, 5, 2}, 1);
    const Placed image(5, 2, 1, 1, {0, 0});
    EXPECT_EQ(p.feed(image).blend(1), Samples(10, 0));
    p.feed(image);
    EXPECT_EQ(p.blend(1), Samples(10, 0));
}

TEST(FeatherFeed, WithoutMemoryForWeightsLetsGoOfBothScratchMaps)
{
    Panorama p({0, 0, 9, 9}, 1);
    p.feed(Placed(2, 2, 1, 1, {0, 0}));
    ASSERT_NE(p.blender.distScratch.data, nullptr);
    const Placed larger(8, 8, 1, 1, {0, 0});
    {
        const FailingHeap heap(0);
        p.feed(larger);
        EXPECT_TRUE(heap.has_failed());
    }
    EXPECT_EQ(p.blender.weightMap.data, nullptr);
    EXPECT_EQ(p.blender.distScratch.data, nullptr);
    EXPECT_EQ(p.blender.distScratch.width, 0);
}

TEST(FeatherBlender, WithoutMemoryNeverCrashesOrLeaks)
{
    for_each_failing_allocation([](FailingHeap& heap) {
        {
            const Roi canvas{0, 0, 12, 9};
            FeatherBlender blender{};
            Mat out{};
            std::uint8_t samples[12 * 9 * 3];
            std::uint8_t covered[12 * 9];
            std::memset(samples, 50, sizeof samples);
            std::memset(covered, 255, sizeof covered);
            const Mat img{12, 9, 3, 1, sizeof samples, 0, samples};
            const Matb mask{12, 9, 1, covered};
            feather_blender_prepare(&blender, 3, &canvas);
            const bool has_canvas = blender.dst.data != nullptr;
            EXPECT_EQ(blender.dstWeightMap.data != nullptr, has_canvas);
            feather_blender_feed(&blender, &img, &mask, {0, 0});
            const bool was_fed = blender.weightMap.data != nullptr;
            EXPECT_EQ(blender.distScratch.data != nullptr, was_fed);
            EXPECT_EQ(blender.weightMap.width, was_fed ? 12 : 0);
            feather_blender_blend(&blender, &out, 1);
            if (out.data != nullptr) {
                EXPECT_EQ(out.data[0], was_fed ? 50 : 0);
            } else {
                EXPECT_EQ(out.width + out.height + out.size, 0);
                EXPECT_TRUE(heap.has_failed());
            }
            MatDestroy(&out);
        }
        EXPECT_EQ(heap.live_blocks(), 0);
    });
}

} // namespace
