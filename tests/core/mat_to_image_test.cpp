// SPDX-License-Identifier: MIT
#include "panoval.h"
#include "tests/reference/mat_to_image.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{

using panoval::test::for_each_target;
using panoval::test::Guarded;
using panoval::test::noise;
using panoval::test::same_bits;
namespace reference = panoval::reference;

using Bytes = std::vector<std::uint8_t>;

struct Format {
    std::int32_t channels;
    std::int32_t elem_size;
};
constexpr Format kFormats[] = {{1, 1}, {3, 1}, {1, 2}, {3, 2}};

Mat record(std::int32_t width, std::int32_t height, Format format, std::uint8_t* data)
{
    const std::int32_t size = width * height * format.channels * format.elem_size;
    return {width, height, format.channels, format.elem_size, size, size, data};
}

// The picture of an image of the given samples, between guard bytes.
Bytes picture_of(std::int32_t width, std::int32_t height, Format format, const Bytes& samples)
{
    Guarded<std::uint8_t> in(samples);
    Guarded<std::uint8_t> out(static_cast<std::size_t>(3 * width * height));
    const Mat m = record(width, height, format, in.data());
    EXPECT_EQ(MatToImage(&m, out.data()), 1);
    EXPECT_TRUE(out.intact());
    return out.values();
}

TEST(MatToImage, RepeatsAGreyByteThreeTimes)
{
    EXPECT_EQ(picture_of(2, 1, {1, 1}, {7, 255}), (Bytes{7, 7, 7, 255, 255, 255}));
}

TEST(MatToImage, KeepsThreeBytesInTheirOrder)
{
    EXPECT_EQ(picture_of(1, 2, {3, 1}, {1, 2, 3, 200, 100, 50}), (Bytes{1, 2, 3, 200, 100, 50}));
}

TEST(MatToImage, RepeatsTheHighByteOfAGrey16BitSample)
{
    EXPECT_EQ(picture_of(1, 1, {1, 2}, {0xAB, 0x12}), (Bytes{0x12, 0x12, 0x12}));
}

TEST(MatToImage, KeepsTheHighBytesOfThreeSamplesInTheirOrder)
{
    EXPECT_EQ(picture_of(1, 1, {3, 2}, {0xFF, 0x01, 0xFF, 0x02, 0x00, 0xFF}), (Bytes{0x01, 0x02, 0xFF}));
}

TEST(MatToImage, DropsTheLowByteWithoutRounding)
{
    EXPECT_EQ(picture_of(2, 1, {1, 2}, {0xFF, 0x00, 0xFF, 0xFE}), (Bytes{0, 0, 0, 0xFE, 0xFE, 0xFE}));
}

TEST(MatToImage, ReturnsZeroForAnyOtherFormatAndLeavesOutUntouched)
{
    constexpr Format others[] = {{2, 1}, {0, 1}, {4, 1}, {-1, 1}, {1, 4}, {1, 0}, {3, 8}, {3, -1}, {2, 4}};
    for (const Format format : others) {
        Bytes in(64, 3);
        Bytes out(12, 77);
        const Mat m = record(2, 2, format, in.data());
        EXPECT_EQ(MatToImage(&m, out.data()), 0) << format.channels << " x " << format.elem_size;
        EXPECT_EQ(out, Bytes(12, 77));
    }
}

TEST(MatToImage, TestsTheFormatBeforeTheSize)
{
    const Mat m = record(0, 5, {2, 1}, nullptr);
    EXPECT_EQ(MatToImage(&m, nullptr), 0);
}

TEST(MatToImage, ReturnsOneForAnImageWithoutPixelsAndWritesNothing)
{
    for (const Format format : kFormats) {
        for (const std::int32_t width : {0, -5}) {
            Bytes out(3, 77);
            const Mat m = record(width, 5, format, nullptr);
            EXPECT_EQ(MatToImage(&m, out.data()), 1);
            EXPECT_EQ(out, Bytes(3, 77));
        }
    }
}

TEST(MatToImage, WrapsThePixelCount)
{
    const Mat m = {65536, 65536, 1, 1, 0, 0, nullptr};
    EXPECT_EQ(MatToImage(&m, nullptr), 1);
}

TEST(MatToImage, EqualsItsTwinForEverySizeAndFormat)
{
    for_each_target([] {
        for (const Format format : kFormats)
            for (std::int32_t height = 0; height <= 67; height += height < 4 ? 1 : 21)
                for (std::int32_t width = 0; width <= 67; ++width) {
                    const auto pixels = static_cast<std::size_t>(width * height);
                    const auto samples =
                        noise<std::uint8_t>(pixels * static_cast<std::size_t>(format.channels * format.elem_size), 0,
                                            255, static_cast<std::uint64_t>(width));
                    Guarded<std::uint8_t> in(samples);
                    const Mat m = record(width, height, format, in.data());
                    Bytes expected(3 * pixels);
                    ASSERT_EQ(reference::mat_to_image(m, expected.data()), 1);
                    ASSERT_TRUE(same_bits(picture_of(width, height, format, samples), expected))
                        << width << " x " << height << ", " << format.channels << " x " << format.elem_size;
                    ASSERT_TRUE(in.intact());
                    ASSERT_EQ(in.values(), samples);
                }
    });
}

TEST(MatToImage, EqualsItsTwinForLargeImages)
{
    for_each_target([] {
        for (const Format format : kFormats)
            for (const std::int32_t width : {2047, 2048, 2049, 5000}) {
                auto samples = noise<std::uint8_t>(static_cast<std::size_t>(width * 3 * 6), 0, 255, 3);
                const Mat m = record(width, 3, format, samples.data());
                Bytes expected(static_cast<std::size_t>(width * 9));
                reference::mat_to_image(m, expected.data());
                samples.resize(static_cast<std::size_t>(m.size));
                ASSERT_TRUE(same_bits(picture_of(width, 3, format, samples), expected)) << width;
            }
    });
}

TEST(MatToImage, EqualsItsTwinForAnyAlignmentOfOut)
{
    for_each_target([] {
        for (const Format format : kFormats)
            for (std::size_t offset = 0; offset < 33; ++offset) {
                auto samples = noise<std::uint8_t>(101 * 6, 0, 255, offset);
                const Mat m = record(101, 1, format, samples.data());
                Bytes expected(offset + 303 + 8, 0xA5);
                Bytes actual = expected;
                reference::mat_to_image(m, expected.data() + offset);
                MatToImage(&m, actual.data() + offset);
                ASSERT_TRUE(same_bits(actual, expected)) << "offset " << offset;
            }
    });
}

} // namespace
