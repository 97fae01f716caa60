// SPDX-License-Identifier: MIT
#include "exposure/regions.h"

#include "tests/reference/regions.h"
#include "tests/support/buffers.h"
#include "tests/support/failing_heap.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <vector>

namespace
{

using panoval::test::FailingHeap;
using panoval::test::for_each_failing_allocation;
using panoval::test::for_each_target;
using panoval::test::Guarded;
using panoval::test::noise;
using panoval::test::Random;
using panoval::test::same_bits;
namespace reference = panoval::reference;

constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMax = std::numeric_limits<std::int32_t>::max();

using Bytes = std::vector<std::uint8_t>;

bool equal(const Roi& a, const Roi& b)
{
    return a.x == b.x && a.y == b.y && a.width == b.width && a.height == b.height;
}

// ------------------------------------------------------------------------------------------------- overlapRoi ----

TEST(OverlapRoi, OfRectanglesThatOnlyTouchIsNone)
{
    Roi roi = {1, 2, 3, 4};
    EXPECT_EQ(overlapRoi({0, 0}, {10, 0}, {10, 10}, {10, 10}, &roi), 0);
    EXPECT_EQ(overlapRoi({0, 0}, {0, 10}, {10, 10}, {10, 10}, &roi), 0);
    EXPECT_EQ(overlapRoi({10, 0}, {0, 0}, {10, 10}, {10, 10}, &roi), 0);
    EXPECT_EQ(overlapRoi({0, 0}, {10, 10}, {10, 10}, {10, 10}, &roi), 0);
    EXPECT_TRUE(equal(roi, {1, 2, 3, 4})); // untouched
}

TEST(OverlapRoi, MayBeOneColumnOrOneRowWide)
{
    Roi roi = {};
    EXPECT_EQ(overlapRoi({0, 0}, {9, 0}, {10, 10}, {10, 10}, &roi), 1);
    EXPECT_TRUE(equal(roi, {9, 0, 1, 10}));
    EXPECT_EQ(overlapRoi({0, 9}, {0, 0}, {10, 10}, {10, 10}, &roi), 1);
    EXPECT_TRUE(equal(roi, {0, 9, 10, 1}));
}

TEST(OverlapRoi, OfIdenticalRectanglesIsThatRectangle)
{
    Roi roi = {};
    EXPECT_EQ(overlapRoi({-5, 7}, {-5, 7}, {20, 30}, {20, 30}, &roi), 1);
    EXPECT_TRUE(equal(roi, {-5, 7, 20, 30}));
}

TEST(OverlapRoi, OfARectangleInsideAnotherIsTheInnerOne)
{
    Roi roi = {};
    EXPECT_EQ(overlapRoi({0, 0}, {3, 4}, {10, 10}, {5, 2}, &roi), 1);
    EXPECT_TRUE(equal(roi, {3, 4, 5, 2}));
    EXPECT_EQ(overlapRoi({3, 4}, {0, 0}, {5, 2}, {10, 10}, &roi), 1);
    EXPECT_TRUE(equal(roi, {3, 4, 5, 2}));
}

TEST(OverlapRoi, OfARectangleWithoutAreaIsNone)
{
    Roi roi = {1, 2, 3, 4};
    EXPECT_EQ(overlapRoi({0, 0}, {0, 0}, {0, 10}, {10, 10}, &roi), 0);
    EXPECT_EQ(overlapRoi({0, 0}, {0, 0}, {10, 10}, {10, 0}, &roi), 0);
    EXPECT_EQ(overlapRoi({0, 0}, {0, 0}, {-3, 10}, {10, 10}, &roi), 0);
    EXPECT_EQ(overlapRoi({5, 5}, {5, 5}, {0, 0}, {0, 0}, &roi), 0);
    EXPECT_TRUE(equal(roi, {1, 2, 3, 4}));
}

TEST(OverlapRoi, FormsItsSumsIn32Bits)
{
    Roi roi = {1, 2, 3, 4};
    // The right edge of the first wraps to the far left: nothing is shared.
    EXPECT_EQ(overlapRoi({kMax - 5, 0}, {kMax - 5, 0}, {10, 10}, {5, 10}, &roi), 0);
    EXPECT_TRUE(equal(roi, {1, 2, 3, 4}));
    EXPECT_EQ(overlapRoi({kMin, 0}, {kMin, 0}, {kMax, 1}, {kMax, 1}, &roi), 1);
    EXPECT_TRUE(equal(roi, {kMin, 0, kMax, 1}));
}

TEST(OverlapRoi, EqualsItsTwin)
{
    Random random(1);
    const auto at = [&] { return static_cast<std::int32_t>(random.integer(-12, 12)); };
    int overlaps = 0;
    for (int round = 0; round < 20000; ++round) {
        const Point tl1 = {at(), at()}, tl2 = {at(), at()};
        const Size sz1 = {at() + 8, at() + 8}, sz2 = {at() + 8, at() + 8};
        Roi actual = {-1, -1, -1, -1};
        Roi expected = actual;
        const std::int32_t found = reference::overlap_roi(tl1, tl2, sz1, sz2, &expected);
        ASSERT_EQ(overlapRoi(tl1, tl2, sz1, sz2, &actual), found);
        ASSERT_TRUE(equal(actual, expected));
        ASSERT_EQ(overlapRoi(tl2, tl1, sz2, sz1, &actual), found); // the order does not matter
        ASSERT_TRUE(equal(actual, expected));
        overlaps += found;
    }
    EXPECT_GT(overlaps, 2000);
    EXPECT_LT(overlaps, 18000);
}

TEST(PartInside, SeesTheSourceFromTheRectangle)
{
    EXPECT_TRUE(equal(panoval::part_inside({-2, -3, 10, 10}, 4, 5), {2, 3, 4, 5}));
    EXPECT_TRUE(equal(panoval::part_inside({1, 2, 10, 10}, 4, 5), {0, 0, 3, 3}));
    EXPECT_TRUE(equal(panoval::part_inside({1, 1, 2, 2}, 4, 5), {0, 0, 2, 2}));
    EXPECT_TRUE(equal(panoval::part_inside({kMin, 0, kMax, 1}, 4, 5), {0, 0, 0, 0}));
    EXPECT_TRUE(equal(panoval::part_inside({kMax, kMax, kMax, kMax}, kMax, kMax), {0, 0, 0, 0}));
    EXPECT_TRUE(equal(panoval::part_inside({-kMax, 0, kMax, 1}, 4, 5), {0, 0, 0, 0})); // ends where the source begins
    EXPECT_TRUE(equal(panoval::part_inside({-kMax + 1, 0, kMax, 1}, 4, 5), {kMax - 1, 0, 1, 1}));
    EXPECT_TRUE(equal(panoval::part_inside({0, 0, -1, 5}, 4, 5), {0, 0, 0, 0}));
}

// ---------------------------------------------------------------------------------------------- get_sub_image ----

// An image over a block that others own.
Mat image_over(std::int32_t width, std::int32_t height, std::int32_t channels, std::int32_t elem_size,
               std::uint8_t* data)
{
    const std::int32_t size = width * height * channels * elem_size;
    return {width, height, channels, elem_size, size, size, data};
}

Bytes bytes_of(const Mat& m)
{
    return Bytes(m.data, m.data + (m.size > 0 ? m.size : 0));
}

Bytes bytes_of(const Matb& m)
{
    const std::int32_t count = m.width * m.height;
    return Bytes(m.data, m.data + (count > 0 ? count : 0));
}

TEST(GetSubImage, ClearsWhatLiesOutside)
{
    Bytes samples = {1, 2, 3, 4};
    const Mat src = image_over(2, 2, 1, 1, samples.data());
    const Roi roi = {-2, -2, 4, 4};
    Mat dst = {};
    get_sub_image(&src, &roi, &dst);
    EXPECT_EQ(dst.width, 4);
    EXPECT_EQ(dst.height, 4);
    EXPECT_EQ(dst.channels, 1);
    EXPECT_EQ(dst.elemSize, 1);
    EXPECT_EQ(bytes_of(dst), (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 0, 0, 3, 4}));
    MatDestroy(&dst);
}

TEST(GetSubImage, CopiesAllChannelsAndBothBytes)
{
    Bytes samples(2 * 1 * 3 * 2);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<std::uint8_t>(i + 1);
    const Mat src = image_over(2, 1, 3, 2, samples.data());
    const Roi roi = {1, 0, 2, 1};
    Mat dst = {};
    get_sub_image(&src, &roi, &dst);
    EXPECT_EQ(bytes_of(dst), (Bytes{7, 8, 9, 10, 11, 12, 0, 0, 0, 0, 0, 0}));
    MatDestroy(&dst);
}

TEST(GetSubImage, GivesZerosForAnyOtherSampleSize)
{
    for (const std::int32_t elem_size : {3, 4, 8}) {
        Bytes samples(64, 9);
        const Mat src = image_over(2, 2, 1, elem_size, samples.data());
        const Roi roi = {0, 0, 2, 1};
        Mat dst = {};
        MatReset(&dst, 100, 1, 1, 1);
        std::fill_n(dst.data, 100, std::uint8_t{7});
        get_sub_image(&src, &roi, &dst);
        EXPECT_EQ(dst.elemSize, elem_size);
        EXPECT_EQ(bytes_of(dst), Bytes(static_cast<std::size_t>(2 * elem_size), 0));
        EXPECT_EQ(dst.data[2 * elem_size], 7); // beyond the new size nothing changes
        MatDestroy(&dst);
    }
}

TEST(GetSubImage, OfARectangleWithoutAreaIsEmpty)
{
    Bytes samples = {1, 2, 3, 4};
    const Mat src = image_over(2, 2, 1, 1, samples.data());
    for (const Roi roi : {Roi{0, 0, 0, 2}, Roi{0, 0, 2, 0}, Roi{0, 0, -1, 2}, Roi{1, 1, 2, -3}}) {
        Mat dst = {};
        get_sub_image(&src, &roi, &dst);
        EXPECT_EQ(dst.width, roi.width);
        EXPECT_EQ(dst.height, roi.height);
        EXPECT_EQ(dst.data, nullptr);
    }
}

TEST(GetSubImage, OfTwoNegativeSizesCopiesNothing)
{
    Bytes samples = {1, 2, 3, 4};
    const Mat src = image_over(2, 2, 1, 1, samples.data());
    const Roi roi = {0, 0, -2, -2};
    Mat dst = {};
    get_sub_image(&src, &roi, &dst);
    EXPECT_EQ(bytes_of(dst), Bytes(4, 0)); // the product of the sizes is positive
    MatDestroy(&dst);
}

TEST(GetSubImage, GivesZerosWhenTheSizeWraps)
{
    Bytes samples = {1, 2, 3, 4};
    const Mat src = image_over(2, 2, 1, 1, samples.data());
    const Roi roi = {0, 0, 65537, 65536}; // wraps to 65536 bytes
    Mat dst = {};
    get_sub_image(&src, &roi, &dst);
    EXPECT_EQ(dst.width, 65537);
    EXPECT_EQ(bytes_of(dst), Bytes(65536, 0));
    MatDestroy(&dst);
}

TEST(GetSubImage, FarOutsideIsZero)
{
    Bytes samples = {1, 2, 3, 4};
    const Mat src = image_over(2, 2, 1, 1, samples.data());
    for (const Roi roi : {Roi{kMax, kMax, 3, 3}, Roi{kMin, kMin, 3, 3}, Roi{2, 0, 3, 3}, Roi{0, -3, 3, 3}}) {
        Mat dst = {};
        get_sub_image(&src, &roi, &dst);
        EXPECT_EQ(bytes_of(dst), Bytes(9, 0));
        MatDestroy(&dst);
    }
}

TEST(GetSubImage, KeepsTheBlockOfALargerDestination)
{
    Bytes samples = {1, 2, 3, 4};
    const Mat src = image_over(2, 2, 1, 1, samples.data());
    const Roi roi = {1, 0, 3, 2};
    Mat dst = {};
    MatReset(&dst, 10, 10, 1, 1);
    std::fill_n(dst.data, 100, std::uint8_t{7});
    const std::uint8_t* const block = dst.data;
    get_sub_image(&src, &roi, &dst);
    EXPECT_EQ(dst.data, block);
    EXPECT_EQ(dst.capacity, 100);
    EXPECT_EQ(bytes_of(dst), (Bytes{2, 0, 0, 4, 0, 0}));
    EXPECT_EQ(dst.data[6], 7);
    MatDestroy(&dst);
}

TEST(GetSubImage, EqualsItsTwinForEveryPlace)
{
    Random random(7);
    Mat actual = {};
    Mat expected = {};
    for (int round = 0; round < 3000; ++round) {
        const auto within = [&](int low, int high) { return static_cast<std::int32_t>(random.integer(low, high)); };
        const std::int32_t width = within(0, 40), height = within(0, 9);
        const std::int32_t channels = within(1, 5), elem_size = within(1, 2);
        const auto bytes = static_cast<std::size_t>(width * height * channels * elem_size);
        Guarded<std::uint8_t> samples(noise<std::uint8_t>(bytes, 1, 255, static_cast<std::uint64_t>(round)));
        const Mat src = image_over(width, height, channels, elem_size, samples.data());
        const Roi roi = {within(-45, 45), within(-12, 12), within(0, 67), within(0, 20)};
        get_sub_image(&src, &roi, &actual);
        reference::get_sub_image(&src, &roi, &expected);
        ASSERT_EQ(actual.size, expected.size);
        ASSERT_TRUE(same_bits(bytes_of(actual), bytes_of(expected))) << "round " << round;
        ASSERT_TRUE(samples.intact());
    }
    MatDestroy(&actual);
    MatDestroy(&expected);
}

TEST(CopyRow, CopiesEveryLengthAndNothingBeside)
{
    for_each_target([] {
        for (std::size_t length = 0; length <= 200; ++length)
            for (std::size_t offset = 0; offset < 3; ++offset) {
                const Guarded<std::uint8_t> src(noise<std::uint8_t>(offset + length, 1, 255, length));
                Guarded<std::uint8_t> dst(length);
                const std::uint8_t* const row = src.data() + offset;
                panoval::copy_row(row, row, length, dst.data());
                ASSERT_TRUE(same_bits(dst.data(), row, length)) << "length " << length;
                ASSERT_TRUE(dst.intact());
            }
    });
}

TEST(GetSubImage, CopiesRowsOfEveryKindOfLength)
{
    for_each_target([] {
        for (const std::int32_t width : {1, 5000, 5461, 5462, 7000}) { // 3 bytes a pixel: long rows go another way
            const Bytes samples = noise<std::uint8_t>(static_cast<std::size_t>(3 * (width + 2) * 3), 0, 255, 1);
            Bytes source = samples;
            const Mat src = image_over(width + 2, 3, 3, 1, source.data());
            for (const Roi& roi : {Roi{1, 0, width, 3}, Roi{-1, -1, width, 5}, Roi{3, 1, width, 2}}) {
                Mat actual = {};
                Mat expected = {};
                get_sub_image(&src, &roi, &actual);
                reference::get_sub_image(&src, &roi, &expected);
                EXPECT_TRUE(same_bits(bytes_of(actual), bytes_of(expected))) << "width " << width << ", x " << roi.x;
                MatDestroy(&actual);
                MatDestroy(&expected);
            }
        }
    });
}

TEST(GetSubImage, WithoutMemoryLeavesTheDestinationEmpty)
{
    Bytes samples(100, 3);
    for_each_failing_allocation([&](FailingHeap& heap) {
        const Mat src = image_over(10, 10, 1, 1, samples.data());
        const Roi roi = {0, 0, 5, 5};
        Mat dst = {};
        get_sub_image(&src, &roi, &dst);
        if (heap.has_failed()) {
            EXPECT_EQ(dst.width, 0);
            EXPECT_EQ(dst.size, 0);
            EXPECT_EQ(dst.data, nullptr);
        } else {
            EXPECT_EQ(bytes_of(dst), Bytes(25, 3));
        }
        MatDestroy(&dst);
        EXPECT_EQ(heap.live_blocks(), 0);
    });
}

// ----------------------------------------------------------------------------------------------- get_sub_mask ----

TEST(GetSubMask, KeepsValuesAsTheyAreAndClearsWhatLiesOutside)
{
    Bytes values = {7, 255, 1, 0};
    const Matb mask = {2, 2, 1, values.data()};
    const Roi roi = {-1, 0, 4, 3};
    Matb dst = {};
    get_sub_mask(&mask, &roi, &dst);
    EXPECT_EQ(dst.width, 4);
    EXPECT_EQ(dst.height, 3);
    EXPECT_EQ(dst.channels, 1);
    EXPECT_EQ(bytes_of(dst), (Bytes{0, 7, 255, 0, 0, 1, 0, 0, 0, 0, 0, 0}));
    std::free(dst.data);
}

TEST(GetSubMask, ReadsOneBytePerPixelWhateverChannelsTheMaskDeclares)
{
    Bytes values = {1, 2, 3, 4, 5, 6};
    const Matb mask = {3, 2, 3, values.data()};
    const Roi roi = {1, 0, 2, 2};
    Matb dst = {};
    get_sub_mask(&mask, &roi, &dst);
    EXPECT_EQ(dst.channels, 1);
    EXPECT_EQ(bytes_of(dst), (Bytes{2, 3, 5, 6}));
    std::free(dst.data);
}

TEST(GetSubMask, OfARectangleWithoutAreaIsEmpty)
{
    Bytes values = {1, 2, 3, 4};
    const Matb mask = {2, 2, 1, values.data()};
    for (const Roi roi : {Roi{0, 0, 0, 2}, Roi{0, 0, 2, 0}, Roi{0, 0, -1, 2}}) {
        FailingHeap heap;
        Matb dst = {};
        MatbReset(&dst, 5, 5, 1);
        get_sub_mask(&mask, &roi, &dst);
        EXPECT_EQ(dst.width, roi.width);
        EXPECT_EQ(dst.height, roi.height);
        std::free(dst.data);
        EXPECT_EQ(heap.live_blocks(), 0);
    }
}

TEST(GetSubMask, OfTwoNegativeSizesOrOneThatWrapsGivesZeros)
{
    Bytes values = {1, 2, 3, 4};
    const Matb mask = {2, 2, 1, values.data()};
    Matb dst = {};
    const Roi negative = {0, 0, -2, -2};
    get_sub_mask(&mask, &negative, &dst);
    EXPECT_EQ(bytes_of(dst), Bytes(4, 0));
    const Roi wrapping = {0, 0, 65537, 65536};
    get_sub_mask(&mask, &wrapping, &dst);
    EXPECT_EQ(Bytes(dst.data, dst.data + 65536), Bytes(65536, 0));
    std::free(dst.data);
}

TEST(GetSubMask, EqualsItsTwinForEveryPlace)
{
    Random random(8);
    Matb actual = {};
    Matb expected = {};
    for (int round = 0; round < 3000; ++round) {
        const auto within = [&](int low, int high) { return static_cast<std::int32_t>(random.integer(low, high)); };
        const std::int32_t width = within(0, 67), height = within(0, 9);
        const auto bytes = static_cast<std::size_t>(width * height);
        Guarded<std::uint8_t> values(noise<std::uint8_t>(bytes, 0, 255, static_cast<std::uint64_t>(round)));
        const Matb mask = {width, height, 1, values.data()};
        const Roi roi = {within(-70, 70), within(-12, 12), within(0, 67), within(0, 20)};
        get_sub_mask(&mask, &roi, &actual);
        reference::get_sub_mask(&mask, &roi, &expected);
        ASSERT_EQ(actual.width, expected.width);
        ASSERT_TRUE(same_bits(bytes_of(actual), bytes_of(expected))) << "round " << round;
        ASSERT_TRUE(values.intact());
    }
    std::free(actual.data);
    std::free(expected.data);
}

TEST(GetSubMask, WithoutMemoryLeavesTheDestinationEmpty)
{
    Bytes values(100, 3);
    for_each_failing_allocation([&](FailingHeap& heap) {
        const Matb mask = {10, 10, 1, values.data()};
        const Roi roi = {0, 0, 5, 5};
        Matb dst = {};
        get_sub_mask(&mask, &roi, &dst);
        EXPECT_EQ(dst.width, heap.has_failed() ? 0 : 5);
        EXPECT_EQ(dst.data == nullptr, heap.has_failed());
        std::free(dst.data);
        EXPECT_EQ(heap.live_blocks(), 0);
    });
}

// ----------------------------------------------------------------------------------------- get_mask_intersect ----

TEST(GetMaskIntersect, MarksWhatBothCoverAndCountsIt)
{
    Bytes first = {0, 1, 255, 7, 0, 128};
    Bytes second = {0, 2, 255, 0, 9, 1};
    const Matb a = {3, 2, 1, first.data()};
    const Matb b = {3, 2, 1, second.data()};
    Matb out = {};
    EXPECT_EQ(get_mask_intersect(&a, &b, &out), 3);
    EXPECT_EQ(out.width, 3);
    EXPECT_EQ(out.height, 2);
    EXPECT_EQ(out.channels, 1);
    EXPECT_EQ(bytes_of(out), (Bytes{0, 255, 255, 0, 0, 255}));
    std::free(out.data);
}

TEST(GetMaskIntersect, OfValuesWithoutACommonBitMarksThemAllTheSame)
{
    Bytes first(100, 0x55);
    Bytes second(100, 0xAA);
    const Matb a = {100, 1, 1, first.data()};
    const Matb b = {100, 1, 1, second.data()};
    Matb out = {};
    EXPECT_EQ(get_mask_intersect(&a, &b, &out), 100);
    EXPECT_EQ(bytes_of(out), Bytes(100, 255));
    std::free(out.data);
}

TEST(GetMaskIntersect, OfFullMasksCountsEveryPixel)
{
    Bytes full(67 * 41, 255);
    const Matb mask = {67, 41, 1, full.data()};
    Matb out = {};
    EXPECT_EQ(get_mask_intersect(&mask, &mask, &out), 67 * 41);
    EXPECT_EQ(bytes_of(out), full);
    std::free(out.data);
}

TEST(GetMaskIntersect, OfDisjointMasksIsZero)
{
    Bytes left(200), right(200);
    for (std::size_t i = 0; i < 200; ++i)
        (i % 2 != 0 ? left : right)[i] = 255;
    const Matb a = {20, 10, 1, left.data()};
    const Matb b = {20, 10, 1, right.data()};
    Matb out = {};
    EXPECT_EQ(get_mask_intersect(&a, &b, &out), 0);
    EXPECT_EQ(bytes_of(out), Bytes(200, 0));
    std::free(out.data);
}

TEST(GetMaskIntersect, OfMasksWithoutPixelsIsZero)
{
    const Matb a = {5, 0, 1, nullptr};
    Matb out = {};
    EXPECT_EQ(get_mask_intersect(&a, &a, &out), 0);
    EXPECT_EQ(out.width, 5);
    EXPECT_EQ(out.height, 0);
    std::free(out.data);
}

TEST(GetMaskIntersect, ReadsOnlyTheFirstMasksSize)
{
    Bytes first(6, 1);
    Bytes second = {1, 0, 1, 0, 1, 0, 1, 1};
    const Matb a = {3, 2, 1, first.data()};
    const Matb b = {8, 1, 1, second.data()};
    Matb out = {};
    EXPECT_EQ(get_mask_intersect(&a, &b, &out), 3);
    EXPECT_EQ(bytes_of(out), (Bytes{255, 0, 255, 0, 255, 0}));
    std::free(out.data);
}

TEST(GetMaskIntersect, EqualsItsTwinForEverySizeAndContent)
{
    using panoval::test::kAllContents;
    for_each_target([] {
        Matb expected = {};
        for (const auto content : kAllContents)
            for (std::int32_t height = 0; height <= 67; height += height < 3 ? 1 : 16)
                for (std::int32_t width = 0; width <= 67; ++width) {
                    Bytes first = panoval::test::picture(content, width, height, 1);
                    Bytes second = noise<std::uint8_t>(first.size(), 0, 2, 5);
                    const Guarded<std::uint8_t> in1(first), in2(second);
                    const Matb a = {width, height, 1, const_cast<std::uint8_t*>(in1.data())};
                    const Matb b = {width, height, 1, const_cast<std::uint8_t*>(in2.data())};
                    Matb out = {};
                    const std::int32_t count = reference::get_mask_intersect(&a, &b, &expected);
                    ASSERT_EQ(get_mask_intersect(&a, &b, &out), count) << width << " x " << height;
                    ASSERT_TRUE(same_bits(bytes_of(out), bytes_of(expected))) << width << " x " << height;
                    std::free(out.data);
                }
        std::free(expected.data);
    });
}

TEST(IntersectMasks, WritesNothingBesideItsResult)
{
    for_each_target([] {
        for (std::size_t count = 0; count <= 67; ++count) {
            const Guarded<std::uint8_t> a(noise<std::uint8_t>(count, 0, 3, 1));
            const Guarded<std::uint8_t> b(noise<std::uint8_t>(count, 0, 3, 2));
            Guarded<std::uint8_t> out(count);
            std::size_t expected = 0;
            for (std::size_t i = 0; i < count; ++i)
                expected += a.data()[i] != 0 && b.data()[i] != 0;
            ASSERT_EQ(panoval::intersect_masks(a.data(), b.data(), count, out.data()), expected);
            ASSERT_TRUE(out.intact());
        }
    });
}

TEST(GetMaskIntersect, WithoutMemoryIsZeroAndEmpty)
{
    Bytes full(100, 255);
    for_each_failing_allocation([&](FailingHeap& heap) {
        const Matb mask = {10, 10, 1, full.data()};
        Matb out = {};
        const std::int32_t count = get_mask_intersect(&mask, &mask, &out);
        EXPECT_EQ(count, heap.has_failed() ? 0 : 100);
        EXPECT_EQ(out.width, heap.has_failed() ? 0 : 10);
        std::free(out.data);
        EXPECT_EQ(heap.live_blocks(), 0);
    });
}

} // namespace
