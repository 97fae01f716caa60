// SPDX-License-Identifier: MIT
#include "image/image.h"

#include "image/base64.h"
#include "image/data_uri.h"
#include "image/image_read.h"
#include "image/orientation.h"
#include "image/rows.h"
#include "tests/support/buffers.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

#include <vector>

namespace panoval::image::test
{

namespace
{

Image grey_picture(std::int32_t width, std::int32_t height, const std::vector<std::uint8_t>& values)
{
    Image image = make_image(width, height, 1, 8, "test");
    std::memcpy(image.data.get(), values.data(), values.size());
    return image;
}

std::vector<std::uint8_t> bytes_of(const Image& image)
{
    return std::vector<std::uint8_t>(image.data.get(), image.data.get() + image.bytes());
}

TEST(Image, DepthGoesUpAndDownWithoutLoss)
{
    Image image = test_picture(16, 16, 3, 8);
    const auto before = bytes_of(image);
    convert_depth(image, 16, "test");
    EXPECT_EQ(image.bits, 16);
    EXPECT_EQ(image.data[0], before[0]);
    EXPECT_EQ(image.data[1], before[0]) << "255 becomes 65535";
    convert_depth(image, 8, "test");
    EXPECT_EQ(bytes_of(image), before);
}

TEST(Image, AlphaIsTakenOutOfRowsOfAnyLength)
{
    for (std::int32_t width = 1; width < 20; ++width)
        for (const int channels : {1, 3}) {
            const Image source = test_picture(width, 2, channels, 8, true);
            std::vector<std::uint8_t> interleaved;
            for (std::size_t i = 0; i < source.pixels(); ++i) {
                const std::size_t at = i * static_cast<std::size_t>(channels);
                interleaved.insert(interleaved.end(), &source.data[at], &source.data[at] + channels);
                interleaved.push_back(source.mask[i]);
            }
            Image split = make_image(width, 2, channels, 8, "test");
            ensure_mask(split, "test");
            RowSplitter splitter(source, false);
            for (std::int32_t y = 0; y < 2; ++y) {
                const Rows to = rows_of(split, y);
                splitter.split(interleaved.data() + interleaved.size() / 2 * static_cast<std::size_t>(y), to.samples,
                               to.mask);
            }
            expect_same_picture(split, source);
        }
}

TEST(Image, SixteenBitsAreRoundedToTheNearestByte)
{
    Image image = make_image(4, 1, 1, 16, "test");
    const std::uint16_t samples[] = {128, 129, 65535 - 128, 65535 - 129};
    std::memcpy(image.data.get(), samples, sizeof samples);
    convert_depth(image, 8, "test");
    EXPECT_EQ(bytes_of(image), (std::vector<std::uint8_t>{0, 1, 255, 254}));
}

TEST(Image, GreyIsAWeightedMeanAndKeepsGreyColours)
{
    Image image = make_image(3, 1, 3, 8, "test");
    const std::uint8_t samples[] = {255, 0, 0, 77, 77, 77, 10, 200, 30};
    std::memcpy(image.data.get(), samples, sizeof samples);
    convert_to_grey(image, "test");
    EXPECT_EQ(image.channels, 1);
    // 76.245, 77, 2.99 + 117.4 + 3.42 = 123.81
    EXPECT_EQ(bytes_of(image), (std::vector<std::uint8_t>{76, 77, 124}));
}

TEST(Image, ColourRepeatsGrey)
{
    Image image = grey_picture(2, 1, {7, 9});
    convert_to_colour(image, "test");
    EXPECT_EQ(bytes_of(image), (std::vector<std::uint8_t>{7, 7, 7, 9, 9, 9}));
}

TEST(Image, SixteenBitColoursBecomeGreyAndBack)
{
    Image image = make_image(2, 1, 3, 16, "test");
    const std::uint16_t samples[] = {65535, 0, 0, 1000, 2000, 3000};
    std::memcpy(image.data.get(), samples, sizeof samples);
    convert_to_grey(image, "test");
    // 19594.965, and 299 + 1174 + 342
    EXPECT_EQ(sample_at(image.data.get(), 16, 0), 19595u);
    EXPECT_EQ(sample_at(image.data.get(), 16, 1), 1815u);
    convert_to_colour(image, "test");
    EXPECT_EQ(image.channels, 3);
    for (std::size_t i = 0; i < 6; ++i)
        EXPECT_EQ(sample_at(image.data.get(), 16, i), i < 3 ? 19595u : 1815u) << i;
}

TEST(Image, ConversionsToWhatAPictureIsChangeNothing)
{
    for (const int channels : {1, 3}) {
        Image image = test_picture(5, 4, channels, 16);
        const auto* const samples = image.data.get();
        convert_depth(image, 16, "test");
        if (channels == 1)
            convert_to_grey(image, "test");
        else
            convert_to_colour(image, "test");
        EXPECT_EQ(image.data.get(), samples) << "the same block";
        expect_same_picture(image, test_picture(5, 4, channels, 16));
    }
}

TEST(Image, AnySideIsOneOfFour)
{
    EXPECT_FALSE(Sides().any());
    for (const Sides& sides : {Sides{true, false, false, false},
                               {false, true, false, false},
                               {false, false, true, false},
                               {false, false, false, true}}) {
        EXPECT_TRUE(sides.any());
        EXPECT_FALSE(sides == Sides());
    }
}

TEST(Image, AMaskThatIsThereStays)
{
    Image image = test_picture(6, 5, 1, 8, true);
    const Image before = test_picture(6, 5, 1, 8, true);
    ensure_mask(image, "test");
    expect_same_picture(image, before);
}

TEST(Image, MemoryThatIsNotThereIsAskedForInTheFilesName)
{
    constexpr std::size_t kTooMuch = std::size_t{1} << 60;
    const std::string expected = "a.png: found too little memory; expected 1152921504607 MB to be free";
    if (!panoval::test::kAddressSanitizer) { // which stops the test instead
        EXPECT_EQ(error_of([] { need_memory(kTooMuch, "a.png"); }), expected);
        EXPECT_EQ(error_of([] { allocate_block(kTooMuch, "a.png"); }), expected);
    }
    EXPECT_EQ(error_of([] { need_memory(0, "a.png"); }), "no error");
}

using DataUri = ScratchFolder;

TEST_F(DataUri, HoldsThePictureAsAPngFile)
{
    const std::string start = "data:image/png;base64,";
    for (const int channels : {1, 3}) {
        const Image image = test_picture(9, 7, channels, 8, true);
        const std::string uri = picture_data_uri(image);
        ASSERT_EQ(uri.substr(0, start.size()), start);
        const auto file = bytes_of_base64(uri.substr(start.size()));
        ASSERT_TRUE(file);
        write_text("a.png", std::string(file->begin(), file->end()));
        expect_same_picture(read_image(in_folder("a.png")), test_picture(9, 7, channels, 8)); // without its mask
    }
}

TEST(Image, TheLibrarysViewHasTheSameShape)
{
    const Image image = test_picture(5, 4, 3, 16, true);
    const Mat mat = borrow_mat(image);
    EXPECT_EQ(mat.width, 5);
    EXPECT_EQ(mat.height, 4);
    EXPECT_EQ(mat.channels, 3);
    EXPECT_EQ(mat.elemSize, 2);
    EXPECT_EQ(mat.size, 5 * 4 * 3 * 2);
    EXPECT_EQ(mat.data, image.data.get());
}

TEST(Image, SamplesOfEitherDepthAreTold)
{
    const std::uint16_t samples[] = {7, 65535, 0x1234};
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(samples);
    EXPECT_EQ(sample_at(bytes, 16, 0), 7u);
    EXPECT_EQ(sample_at(bytes, 16, 1), 65535u);
    EXPECT_EQ(sample_at(bytes, 16, 2), 0x1234u);
    EXPECT_EQ(sample_at(bytes, 8, 2), 255u);
}

TEST(Image, OrientationsThatThereAreNotChangeNothing)
{
    for (const int orientation : {-1, 0, 1, 9, 1000})
        expect_same_picture(apply_orientation(test_picture(5, 3, 3, 8, true), orientation, "test"),
                            test_picture(5, 3, 3, 8, true));
}

// Every stored picture shows the same scene, as a viewer that honours the tag displays it:
//   1 2 3
//   4 5 6
TEST(Image, AllEightOrientationsShowTheSameScene)
{
    const std::vector<std::uint8_t> scene = {1, 2, 3, 4, 5, 6};
    const std::vector<std::uint8_t> stored[] = {
        {1, 2, 3, 4, 5, 6}, // upright
        {3, 2, 1, 6, 5, 4}, // first column on the right
        {6, 5, 4, 3, 2, 1}, // first row at the bottom, first column on the right
        {4, 5, 6, 1, 2, 3}, // first row at the bottom
        {1, 4, 2, 5, 3, 6}, // first row on the left, first column on top
        {3, 6, 2, 5, 1, 4}, // first row on the right, first column on top
        {6, 3, 5, 2, 4, 1}, // first row on the right, first column at the bottom
        {4, 1, 5, 2, 6, 3}, // first row on the left, first column at the bottom
    };
    for (int orientation = 1; orientation <= 8; ++orientation) {
        const bool is_turned = orientation >= 5;
        Image image = grey_picture(is_turned ? 2 : 3, is_turned ? 3 : 2, stored[orientation - 1]);
        image.mask = allocate_block(6, "test");
        image.has_alpha = true;
        std::memcpy(image.mask.get(), image.data.get(), 6);
        const Image seen = apply_orientation(std::move(image), orientation, "test");
        EXPECT_EQ(seen.width, 3) << orientation;
        EXPECT_EQ(bytes_of(seen), scene) << orientation;
        EXPECT_EQ(std::memcmp(seen.mask.get(), scene.data(), 6), 0) << orientation;
    }
}

TEST(Image, ColoursMultipliedWithAlphaAreDividedByIt)
{
    ImageInfo info{4, 1, 1, 8, true, {}};
    RowSplitter splitter(info, true);
    const std::uint8_t pixels[] = {100, 200, 50, 255, 9, 0, 60, 50}; // the last one is brighter than its alpha allows
    std::vector<std::uint8_t> samples(4);
    std::vector<std::uint8_t> mask(4);
    splitter.split(pixels, samples.data(), mask.data());
    EXPECT_EQ(samples, (std::vector<std::uint8_t>{128, 50, 0, 255}));
    EXPECT_EQ(mask, (std::vector<std::uint8_t>{200, 255, 0, 50}));
}

TEST(Image, PlanesWithoutAlphaAreCoveredEverywhere)
{
    RowSplitter splitter(ImageInfo{2, 1, 3, 8, false, {}}, false);
    const std::uint8_t planes[] = {10, 11, 0, 20, 21, 0, 30, 31, 0}; // a byte more than its two pixels each
    std::vector<std::uint8_t> samples(6);
    std::vector<std::uint8_t> mask(2);
    splitter.gather(planes, 3, samples.data(), mask.data());
    EXPECT_EQ(samples, (std::vector<std::uint8_t>{10, 20, 30, 11, 21, 31}));
    EXPECT_EQ(mask, (std::vector<std::uint8_t>{255, 255}));
}

TEST(Image, AFaintAlphaOf16BitStillCovers)
{
    const std::uint16_t values[] = {0, 1, 256, 65535};
    std::vector<std::uint8_t> mask(4);
    narrow_alpha(reinterpret_cast<const std::uint8_t*>(values), 4, mask.data());
    EXPECT_EQ(mask, (std::vector<std::uint8_t>{0, 1, 1, 255}));
}

} // namespace

} // namespace panoval::image::test
