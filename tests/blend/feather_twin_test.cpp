// SPDX-License-Identifier: MIT
// The feather blender against its literal twin, bit for bit, after every step.
#include "panoval.h"
#include "tests/blend/feather_scene.h"
#include "tests/reference/feather_blender.h"
#include "tests/support/buffers.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace
{

using namespace panoval::test;

// The routines and their twins side by side on the same calls.
class Pair
{
public:
    Pair(const Roi& canvas, int channels) : fast_(canvas, channels)
    {
        panoval::reference::feather_blender_prepare(&twin_, channels, &canvas);
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;
    ~Pair()
    {
        for (Matf* const m : {&twin_.dst, &twin_.distScratch, &twin_.weightMap, &twin_.dstWeightMap})
            std::free(m->data);
        MatDestroy(&twin_out_);
    }

    void feed(const Placed& image)
    {
        fast_.feed(image);
        panoval::reference::feather_blender_feed(&twin_, &image.img, &image.mask, image.tl);
        expect_same(fast_.blender.weightMap, twin_.weightMap, "weights");
        expect_same(fast_.blender.distScratch, twin_.distScratch, "distances");
        expect_same(fast_.blender.dst, twin_.dst, "sums");
        expect_same(fast_.blender.dstWeightMap, twin_.dstWeightMap, "sums of weights");
        EXPECT_TRUE(image.intact());
    }

    // The panorama.
    const Mat& blend(int elem_size)
    {
        feather_blender_blend(&fast_.blender, &fast_.out, elem_size);
        panoval::reference::feather_blender_blend(&twin_, &twin_out_, elem_size);
        EXPECT_EQ(fast_.out.size, twin_out_.size);
        EXPECT_EQ(fast_.out.width, twin_out_.width);
        EXPECT_EQ(fast_.out.height, twin_out_.height);
        EXPECT_EQ(fast_.out.channels, twin_out_.channels);
        EXPECT_EQ(fast_.out.elemSize, twin_out_.elemSize);
        EXPECT_TRUE(same_bits(fast_.out.data, twin_out_.data, static_cast<std::size_t>(twin_out_.size)));
        return fast_.out;
    }

private:
    static void expect_same(const Matf& actual, const Matf& expected, const char* what)
    {
        EXPECT_EQ(actual.width, expected.width);
        EXPECT_EQ(actual.height, expected.height);
        EXPECT_EQ(actual.channels, expected.channels);
        const auto count = static_cast<std::size_t>(expected.width) * static_cast<std::size_t>(expected.height) *
                           static_cast<std::size_t>(expected.channels);
        EXPECT_TRUE(same_bits(actual.data, expected.data, count)) << what;
    }

    Panorama fast_;
    FeatherBlender twin_{};
    Mat twin_out_{};
};

TEST(FeatherTwin, EqualsItForEverySmallSize)
{
    for_each_target([] {
        for (int size = 0; size <= 67; ++size)
            for (const bool tall : {false, true}) {
                SCOPED_TRACE(testing::Message() << size << (tall ? " rows" : " columns"));
                const auto seed = static_cast<std::uint64_t>(size);
                const int other = 1 + size % 4;
                Pair pair({0, 0, tall ? other + 2 : size + 2, tall ? size + 2 : other + 2}, 3);
                pair.feed(Placed(tall ? other : size, tall ? size : other, 3, 1, {1, 1}).noisy(seed).masked(9, seed));
                pair.feed(Placed(tall ? other : size, tall ? size : other, 3, 2, {0, 2}).noisy(seed).masked(40, seed));
                pair.blend(1 + size % 2);
            }
    });
}

TEST(FeatherTwin, EqualsItForEveryChannelCountAndSampleSize)
{
    for_each_target([] {
        for (int channels = 0; channels <= 9; ++channels)
            for (const int elem_size : {1, 2, 4})
                for (const int out_size : {1, 2, 3}) {
                    SCOPED_TRACE(testing::Message() << channels << " channels of " << elem_size << " bytes");
                    Pair pair({-2, 3, 41, 13}, channels);
                    pair.feed(Placed(33, 11, channels, elem_size, {0, 4}).noisy(5).masked(30, 6));
                    pair.feed(Placed(37, 9, channels, elem_size, {3, 3}).noisy(7).masked(20, 8));
                    pair.blend(out_size);
                }
    });
}

TEST(FeatherTwin, EqualsItForImagesOfOtherChannelCountsThanPrepared)
{
    for_each_target([] {
        for (int prepared = 0; prepared <= 4; ++prepared)
            for (int channels = 0; channels <= 5; ++channels)
                for (const int elem_size : {1, 2}) {
                    SCOPED_TRACE(testing::Message() << channels << " channels on " << prepared);
                    Pair pair({0, 0, 19, 7}, prepared);
                    pair.feed(Placed(23, 9, channels, elem_size, {-2, -1}).noisy(5).masked(30, 6));
                    pair.blend(1);
                }
    });
}

// Weights are found by the mask's own width, samples by the image's.
TEST(FeatherTwin, EqualsItForMasksLargerThanTheirImages)
{
    for_each_target([] {
        for (const int elem_size : {1, 2})
            for (int cut = 0; cut <= 4; ++cut) {
                SCOPED_TRACE(testing::Message() << cut << " columns less, " << elem_size << " bytes");
                Pair pair({0, 0, 41, 15}, 3);
                Placed image = Placed(39, 13, 3, elem_size, {1, -2});
                image.noisy(5).masked(30, 6);
                image.img.width -= cut;
                image.img.height -= cut / 2;
                pair.feed(image);
                pair.blend(elem_size);
            }
    });
}

TEST(FeatherTwin, EqualsItForEveryPlaceAroundTheCanvas)
{
    for_each_target([] {
        for (int y = -12; y <= 10; y += 11)
            for (int x = -24; x <= 24; ++x) {
                Pair pair({100, 200, 23, 10}, 3);
                pair.feed(Placed(23, 11, 3, 1, {100 + x, 200 + y}).noisy(9).masked(30, 2));
                pair.blend(1);
            }
    });
}

TEST(FeatherTwin, EqualsItForMasksOfEveryContent)
{
    for_each_target([] {
        for (const Content content : kAllContents) {
            SCOPED_TRACE(name_of(content));
            Pair pair({0, 0, 131, 67}, 3);
            Placed image = Placed(131, 67, 3, 1, {0, 0});
            image.noisy(3);
            const auto mask = picture(content, 131, 67, 8);
            for (std::size_t i = 0; i < mask.size(); ++i)
                image.mask.data[i] = mask[i] < 100 ? 0 : mask[i];
            pair.feed(image);
            pair.blend(1);
        }
    });
}

// A panorama of five overlapping pictures in two rows, with ragged masks, partly beyond the canvas.
std::uint64_t scene(int channels, int elem_size, int out_size)
{
    Pair pair({-40, -30, 400, 260}, channels);
    const Point places[] = {{-60, -45}, {80, -20}, {230, -35}, {-20, 100}, {190, 90}};
    for (std::size_t i = 0; i < 5; ++i) {
        Placed image(190 + 3 * static_cast<int>(i), 150, channels, elem_size, places[i]);
        pair.feed(image.noisy(i).masked(2000, i + 50));
    }
    const Mat& panorama = pair.blend(out_size);
    std::uint64_t hash = 14695981039346656037u;
    for (int i = 0; i < panorama.size; ++i)
        hash = (hash ^ panorama.data[i]) * 1099511628211u;
    return hash;
}

TEST(FeatherScene, EqualsItsTwinAndItsGoldenSumIn8BitColour)
{
    for_each_target([] { EXPECT_EQ(scene(3, 1, 1), 14984837918082165402u); });
}

TEST(FeatherScene, EqualsItsTwinAndItsGoldenSumIn16BitColour)
{
    for_each_target([] { EXPECT_EQ(scene(3, 2, 2), 11756378904108604082u); });
}

TEST(FeatherScene, EqualsItsTwinAndItsGoldenSumInGrey)
{
    for_each_target([] { EXPECT_EQ(scene(1, 1, 1), 12880593177339285509u); });
}

// Smooth pictures as they come from a camera, each brighter than the one before.
TEST(FeatherScene, EqualsItsTwinForOverlappingPhotographs)
{
    for_each_target([] {
        Pair pair({0, 0, 700, 220}, 3);
        for (int i = 0; i < 4; ++i) {
            Placed image(260, 200, 3, 1, {150 * i - 10, 7 * i});
            for (int c = 0; c < 3; ++c) {
                const auto plane = picture(Content::Photograph, 260, 200, static_cast<std::uint64_t>(10 * i + c));
                for (std::size_t p = 0; p < plane.size(); ++p)
                    image.img.data[3 * p + static_cast<std::size_t>(c)] =
                        static_cast<std::uint8_t>(plane[p] * (70 + 10 * i) / 100);
            }
            image.masked(100000, 3);
            pair.feed(image);
        }
        pair.blend(1);
    });
}

} // namespace
