// SPDX-License-Identifier: MIT
// Inpainting against its twin, at its corners, and without memory.
#include "panoval.h"
#include "tests/reference/inpaint.h"
#include "tests/support/buffers.h"
#include "tests/support/failing_heap.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

namespace
{

using namespace panoval;
using namespace panoval::test;

using Bytes = std::vector<std::uint8_t>;

struct Scene {
    int width = 0;
    int height = 0;
    Bytes image; // channels samples a pixel
    Bytes mask;  // mask_channels bytes a pixel
    int channels = 3;
    int mask_channels = 1;

    std::uint8_t& mark(int x, int y) { return mask[static_cast<std::size_t>((y * width + x) * mask_channels)]; }
    std::uint8_t pixel(int x, int y, int c) const
    {
        return image[static_cast<std::size_t>((y * width + x) * channels + c)];
    }
};

Scene scene(Content content, int width, int height, std::uint64_t seed)
{
    Scene s{width, height, {}, Bytes(static_cast<std::size_t>(width * height), 0)};
    s.image.resize(static_cast<std::size_t>(width * height * 3));
    for (std::size_t c = 0; c < 3; ++c) {
        const Bytes channel = picture(content, width, height, seed + c);
        for (std::size_t i = 0; i < channel.size(); ++i)
            s.image[3 * i + c] = channel[i];
    }
    return s;
}

void mark_box(Scene& s, int x0, int y0, int x1, int y1)
{
    for (int y = y0; y <= y1; ++y)
        for (int x = x0; x <= x1; ++x)
            s.mark(x, y) = 255;
}

Mat record(std::uint8_t* data, int width, int height, int channels)
{
    const int size = width * height * channels;
    return {width, height, channels, 1, size, size, data};
}

// Fills a scene in place, in blocks of the exact size.
void inpaint_scene(Scene& s, int range)
{
    Guarded<std::uint8_t> image(s.image);
    Guarded<std::uint8_t> mask(s.mask);
    Mat image_record = record(image.data(), s.width, s.height, s.channels);
    Mat mask_record = record(mask.data(), s.width, s.height, s.mask_channels);
    inpaint(&image_record, &mask_record, range);
    EXPECT_TRUE(image.intact() && mask.intact());
    EXPECT_EQ(image_record.data, image.data());
    s.image = image.values();
    s.mask = mask.values();
}

void expect_twin(const Scene& s, int range)
{
    Scene expected = s;
    reference::inpaint(expected.image.data(), s.width, s.height, s.channels, expected.mask.data(), s.mask_channels,
                       range);
    Scene actual = s;
    inpaint_scene(actual, range);
    EXPECT_TRUE(same_bits(actual.image, expected.image));
    EXPECT_TRUE(same_bits(actual.mask, expected.mask));
}

// Marks each pixel with the given chance.
void mark_at_random(Scene& s, int percent, std::uint64_t seed)
{
    Random random(seed);
    for (std::uint8_t& mark : s.mask)
        mark = random.integer(0, 99) < percent ? static_cast<std::uint8_t>(random.integer(1, 255)) : 0;
}

TEST(Inpaint, EqualsItsTwinOnEveryContentAndMask)
{
    for_each_target([] {
        for (const Content content : kAllContents)
            for (const int percent : {1, 5, 20}) {
                Scene s = scene(content, 37, 26, 5);
                mark_at_random(s, percent, static_cast<std::uint64_t>(percent));
                mark_box(s, 12, 8, 24, 17);
                for (const int range : {1, 3, 5}) {
                    SCOPED_TRACE(testing::Message() << name_of(content) << ", " << percent << "%, range " << range);
                    expect_twin(s, range);
                }
            }
    });
}

TEST(Inpaint, EqualsItsTwinForEverySmallSize)
{
    for_each_target([] {
        for (int width = 1; width <= 9; ++width)
            for (int height = 1; height <= 9; ++height)
                for (const int percent : {10, 50, 90}) {
                    Scene s = scene(Content::Noise, width, height, static_cast<std::uint64_t>(width * 10 + height));
                    mark_at_random(s, percent, static_cast<std::uint64_t>(width * 100 + height));
                    SCOPED_TRACE(testing::Message() << width << " x " << height << ", " << percent << "%");
                    expect_twin(s, 2);
                }
    });
}

TEST(Inpaint, EqualsItsTwinForEveryRange)
{
    Scene s = scene(Content::Photograph, 33, 29, 2);
    mark_box(s, 9, 10, 20, 18);
    for_each_target([&] {
        for (const int range : {std::numeric_limits<int>::min(), -5, -1, 0, 1, 2, 4, 7, 8, 15, 16, 28, 33, 40, 1000}) {
            SCOPED_TRACE(range);
            expect_twin(s, range);
        }
    });
}

TEST(Inpaint, EqualsItsTwinWhereTheRegionMeetsTheBorder)
{
    for_each_target([] {
        for (int side = 0; side < 4; ++side)
            for (int gap = 0; gap <= 3; ++gap) { // known pixels between the marks and the border
                Scene s = scene(Content::Noise, 24, 20, static_cast<std::uint64_t>(side));
                const int x0 = side == 0 ? gap : 8;
                const int x1 = side == 1 ? 23 - gap : 15;
                const int y0 = side == 2 ? gap : 7;
                const int y1 = side == 3 ? 19 - gap : 12;
                mark_box(s, x0, y0, x1, y1);
                SCOPED_TRACE(testing::Message() << "side " << side << ", gap " << gap);
                expect_twin(s, 4);
            }
    });
}

TEST(Inpaint, EqualsItsTwinOnSymmetricShapesFullOfEqualDistances)
{
    for_each_target([] {
        for (int shape = 0; shape < 4; ++shape)
            for (const Content content : {Content::Checkerboard, Content::TwoLevel, Content::Ramp}) {
                Scene s = scene(content, 41, 41, 1);
                for (int y = 0; y < 41; ++y)
                    for (int x = 0; x < 41; ++x) {
                        const int u = std::abs(x - 20);
                        const int v = std::abs(y - 20);
                        const bool inside[4] = {u <= 9 && v <= 9, u + v <= 12, u * u + v * v <= 120,
                                                (u <= 2 || v <= 2) && u <= 15 && v <= 15};
                        s.mark(x, y) = inside[shape] ? 1 : 0;
                    }
                SCOPED_TRACE(testing::Message() << "shape " << shape << ", " << name_of(content));
                expect_twin(s, 5);
            }
    });
}

TEST(Inpaint, EqualsItsTwinWhereOnlyAFewPixelsAreKnown)
{
    for_each_target([] {
        for (const auto& [x, y] : {std::pair{0, 0}, {20, 11}, {29, 19}, {1, 19}, {15, 0}}) {
            Scene s = scene(Content::Noise, 30, 20, 4);
            std::fill(s.mask.begin(), s.mask.end(), std::uint8_t{0});
            mark_box(s, 1, 1, 28, 18);
            for (int yy = y - 2; yy <= y + 2; ++yy) // a hole in the marks, so that a ring is left
                for (int xx = x - 2; xx <= x + 2; ++xx)
                    if (xx >= 0 && yy >= 0 && xx < 30 && yy < 20)
                        s.mark(xx, yy) = 0;
            SCOPED_TRACE(testing::Message() << x << ", " << y);
            expect_twin(s, 6);
        }
    });
}

TEST(Inpaint, ReadsAMaskOfThreeChannelsByItsPixelsAndClearsItsBorderByItsBytes)
{
    for (int width = 4; width <= 24; ++width) {
        SCOPED_TRACE(testing::Message() << "width " << width);
        Scene s = scene(Content::Photograph, width, 18, 3);
        s.mask_channels = 3;
        s.mask.assign(static_cast<std::size_t>(width) * 18 * 3, 0);
        Random random(static_cast<std::uint64_t>(width));
        const int one_in = width % 2 == 0 ? 10 : 60;
        for (std::uint8_t& byte : s.mask)
            byte = random.integer(0, one_in - 1) == 0 ? 255 : 0;
        expect_twin(s, 4);
    }
}

TEST(Inpaint, FillsThreeByThreePixelsAroundOneMark)
{
    Scene s = scene(Content::Noise, 20, 20, 1);
    const Scene before = s;
    s.mark(10, 11) = 1;
    inpaint_scene(s, 3);
    for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 20; ++x) {
            bool changed = false;
            for (int c = 0; c < 3; ++c)
                changed = changed || s.pixel(x, y, c) != before.pixel(x, y, c);
            EXPECT_EQ(changed, std::abs(x - 10) <= 1 && std::abs(y - 11) <= 1) << x << ", " << y;
        }
}

TEST(Inpaint, FillsAFlatPictureWithItsColour)
{
    Scene s = scene(Content::Flat, 30, 30, 1);
    const Bytes truth = s.image;
    for (int y = 10; y < 20; ++y)
        for (int x = 10; x < 20; ++x)
            for (int c = 0; c < 3; ++c)
                s.image[static_cast<std::size_t>((y * 30 + x) * 3 + c)] = 7;
    mark_box(s, 10, 10, 19, 19);
    inpaint_scene(s, 5);
    EXPECT_EQ(s.image, truth);
}

TEST(Inpaint, WithoutReachFillsWithBlack)
{
    for (const int range : {0, -1, -1000000}) {
        Scene s = scene(Content::Flat, 12, 12, 1);
        s.mark(6, 6) = 1;
        inpaint_scene(s, range);
        for (int y = 0; y < 12; ++y)
            for (int x = 0; x < 12; ++x)
                EXPECT_EQ(s.pixel(x, y, 1), std::abs(x - 6) <= 1 && std::abs(y - 6) <= 1 ? 0 : 185);
    }
}

TEST(Inpaint, StoresAValueOf256As0)
{
    // On a bright slope the correction along the gradient lifts the mean of 255 above 255.5.
    Scene s = scene(Content::White, 30, 20, 1);
    for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 12; ++x)
            for (int c = 0; c < 3; ++c)
                s.image[static_cast<std::size_t>((y * 30 + x) * 3 + c)] = static_cast<std::uint8_t>(195 + 5 * x);
    mark_box(s, 13, 8, 16, 11);
    expect_twin(s, 3);
    inpaint_scene(s, 3);
    EXPECT_GT(std::count(s.image.begin(), s.image.end(), 0), 0);
}

TEST(Inpaint, AcceptsARangeOfTheLargestInteger)
{
    Scene s = scene(Content::Photograph, 15, 14, 1);
    s.mark(7, 7) = 1;
    Scene wide = s;
    inpaint_scene(s, 100);
    inpaint_scene(wide, std::numeric_limits<int>::max());
    EXPECT_EQ(wide.image, s.image);
}

TEST(Inpaint, WithAnEmptyMaskChangesNothing)
{
    Scene s = scene(Content::Noise, 20, 20, 1);
    const Scene before = s;
    inpaint_scene(s, 5);
    EXPECT_EQ(s.image, before.image);
    EXPECT_EQ(s.mask, before.mask);
}

TEST(Inpaint, ClearsRunsOfMarksThatTouchTopBottomOrLeftAndFillsNothingThen)
{
    Scene s = scene(Content::Noise, 20, 16, 1);
    const Bytes before = s.image;
    mark_box(s, 6, 0, 9, 5);
    mark_box(s, 4, 12, 15, 15);
    mark_box(s, 0, 7, 4, 9);
    inpaint_scene(s, 5);
    EXPECT_EQ(s.image, before);
    EXPECT_EQ(s.mask, Bytes(s.mask.size(), 0));
}

TEST(Inpaint, ClearsOnlyTheLastMarkOfARowOnTheRight)
{
    Scene s = scene(Content::Noise, 20, 16, 1);
    mark_box(s, 15, 6, 19, 8);
    inpaint_scene(s, 5);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 20; ++x)
            EXPECT_EQ(s.mark(x, y), x >= 15 && x <= 18 && y >= 6 && y <= 8 ? 255 : 0);
}

TEST(Inpaint, LeavesAPictureOfOtherThanThreeChannelsButConsumesTheMask)
{
    for (const int channels : {1, 2, 4}) {
        Scene s = scene(Content::Noise, 12, 12, 1);
        s.channels = channels;
        s.image = noise<std::uint8_t>(static_cast<std::size_t>(144 * channels), 0, 255, 3);
        const Bytes before = s.image;
        mark_box(s, 4, 0, 5, 3);
        mark_box(s, 6, 6, 7, 7);
        inpaint_scene(s, 5);
        EXPECT_EQ(s.image, before);
        EXPECT_EQ(s.mark(4, 0), 0);
        EXPECT_EQ(s.mark(6, 6), 255);
    }
}

TEST(Inpaint, NeverWritesTheFirstRowAndColumn)
{
    Scene s = scene(Content::Noise, 20, 20, 1);
    const Scene before = s;
    mark_box(s, 1, 1, 17, 17); // grown by one it covers them
    inpaint_scene(s, 4);
    for (int i = 0; i < 20; ++i)
        for (int c = 0; c < 3; ++c) {
            EXPECT_EQ(s.pixel(i, 0, c), before.pixel(i, 0, c));
            EXPECT_EQ(s.pixel(0, i, c), before.pixel(0, i, c));
        }
    EXPECT_NE(s.image, before.image);
}

TEST(Inpaint, WithoutAKnownPixelAroundTheRegionChangesNothing)
{
    Scene s = scene(Content::Noise, 20, 20, 1);
    const Bytes before = s.image;
    mark_box(s, 1, 1, 18, 18);
    inpaint_scene(s, 4);
    EXPECT_EQ(s.image, before);
}

TEST(Inpaint, TakesTheUnmarkedPartOfTheFirstRowAndColumnForUnknown)
{
    // Marks beside the border: the grown region covers parts of row 0 and column 0, which keep their colour and give
    // nothing to the pixels beside them.
    Scene s = scene(Content::Flat, 16, 16, 1);
    mark_box(s, 1, 1, 6, 6);
    Scene dirty = s;
    for (int i = 0; i < 8; ++i)
        for (int c = 0; c < 3; ++c) {
            dirty.image[static_cast<std::size_t>(i * 3 + c)] = 3;
            dirty.image[static_cast<std::size_t>(i * 16 * 3 + c)] = 3;
        }
    expect_twin(dirty, 3);
    inpaint_scene(dirty, 3);
    EXPECT_EQ(dirty.pixel(4, 0, 0), 3);
    EXPECT_EQ(dirty.pixel(0, 4, 0), 3);
}

TEST(Inpaint, OfRecordsWithoutPixelsDoesNothing)
{
    Mat empty{};
    inpaint(&empty, &empty, 5);
    EXPECT_EQ(empty.data, nullptr);

    Scene s = scene(Content::Noise, 10, 10, 1);
    const Bytes before = s.image;
    Mat image = record(s.image.data(), 10, 10, 3);
    inpaint(&image, &empty, 5);
    EXPECT_EQ(s.image, before);

    mark_box(s, 3, 0, 6, 6);
    Mat mask = record(s.mask.data(), 10, 10, 1);
    inpaint(&empty, &mask, 5); // the mask is consumed all the same
    EXPECT_EQ(s.mark(3, 3), 0);
}

TEST(Inpaint, TakesAMaskOfAnotherSizeForOneWithTheSameCornerAndStaysInsideBoth)
{
    for (const auto& [mask_width, mask_height] : {std::pair{10, 8}, {30, 25}, {7, 40}, {40, 7}, {1, 1}}) {
        Scene s = scene(Content::Photograph, 20, 18, 6);
        Guarded<std::uint8_t> mask(Bytes(static_cast<std::size_t>(mask_width * mask_height), 0));
        for (int y = 2; y < mask_height - 2; ++y)
            for (int x = 2; x < mask_width - 2; ++x)
                mask[static_cast<std::size_t>(y * mask_width + x)] = (x + y) % 5 == 0 ? 9 : 0;
        Scene same = s; // the common part of the marks
        for (int y = 0; y < std::min(mask_height, 18); ++y)
            for (int x = 0; x < std::min(mask_width, 20); ++x)
                same.mark(x, y) = mask[static_cast<std::size_t>(y * mask_width + x)];
        if (mask_width > 20 || mask_height > 18) // marks on the picture's border would be cleared in a mask of its size
            for (int y = 0; y < 18; ++y)
                for (int x = 0; x < 20; ++x)
                    if (x == 19 || y == 17) {
                        same.mark(x, y) = 0;
                        if (x < mask_width && y < mask_height)
                            mask[static_cast<std::size_t>(y * mask_width + x)] = 0;
                    }
        inpaint_scene(same, 3);
        Guarded<std::uint8_t> pixels(s.image);
        Mat image = record(pixels.data(), 20, 18, 3);
        Mat mask_record = record(mask.data(), mask_width, mask_height, 1);
        inpaint(&image, &mask_record, 3);
        EXPECT_EQ(pixels.values(), same.image) << mask_width << " x " << mask_height;
        EXPECT_TRUE(pixels.intact() && mask.intact());
    }
}

TEST(Inpaint, WithoutMemoryLeavesThePictureAndLeaksNothing)
{
    for_each_failing_allocation([](FailingHeap& heap) {
        Scene s = scene(Content::Noise, 16, 16, 1);
        const Bytes before = s.image;
        mark_box(s, 5, 5, 9, 9);
        Mat image = record(s.image.data(), 16, 16, 3);
        Mat mask = record(s.mask.data(), 16, 16, 1);
        const std::ptrdiff_t live = heap.live_blocks();
        inpaint(&image, &mask, 3);
        EXPECT_EQ(heap.live_blocks(), live);
        EXPECT_EQ(s.image == before, heap.has_failed());
    });
}

TEST(Inpaint, KeepsMemoryForTheSurroundingsOfTheRegionOnly)
{
    Scene s = scene(Content::Flat, 1000, 800, 1);
    mark_box(s, 500, 400, 520, 420);
    Mat image = record(s.image.data(), 1000, 800, 3);
    Mat mask = record(s.mask.data(), 1000, 800, 1);
    const FailingHeap heap;
    inpaint(&image, &mask, 5);
    EXPECT_LT(heap.peak_bytes(), 100000u);
}

} // namespace
