// SPDX-License-Identifier: MIT
#include "image/exif.h"
#include "image/image_read.h"
#include "image/image_write.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace panoval::image::test
{

namespace
{

using JpegPicture = ScratchFolder;

// Smooth, as JPEG likes it.
Image soft_picture(std::int32_t width, std::int32_t height, int channels)
{
    Image image = make_image(width, height, channels, 8, "test");
    std::size_t i = 0;
    for (std::int32_t y = 0; y < height; ++y)
        for (std::int32_t x = 0; x < width; ++x)
            for (int c = 0; c < channels; ++c)
                image.data[i++] = static_cast<std::uint8_t>(40 + 2 * x + y + 20 * c);
    return image;
}

TEST_F(JpegPicture, KeepsASmoothPictureWithinAFewLevels)
{
    for (const int channels : {1, 3}) {
        const Image image = soft_picture(61, 37, channels);
        write_image(in_folder("a.jpg"), image);
        const Image read = read_image(in_folder("a.jpg"));
        ASSERT_EQ(describe(read), describe(image));
        int worst = 0;
        for (std::size_t i = 0; i < image.bytes(); ++i)
            worst = std::max(worst, std::abs(read.data[i] - image.data[i]));
        EXPECT_LE(worst, 4);
    }
}

TEST_F(JpegPicture, Holds8BitsWithoutAlpha)
{
    const auto refusal = [&](int bits, bool has_mask) {
        return error_of([&] { write_image(in_folder("a.jpeg"), test_picture(2, 2, 3, bits, has_mask)); });
    };
    EXPECT_TRUE(contains(refusal(16, false), "found 16 bits for a JPEG file; expected 8"));
    EXPECT_TRUE(contains(refusal(8, true), "found an alpha channel"));
    EXPECT_TRUE(contains(error_of([&] { write_image(in_folder("a.jpg"), test_picture(65501, 1, 1, 8)); }),
                         "found 65501 x 1 pixels for a JPEG file; expected at most 65500"));
    EXPECT_TRUE(names().empty());
}

TEST_F(JpegPicture, EveryTruncationIsExplained)
{
    write_image(in_folder("a.jpg"), test_picture(40, 40, 3, 8));
    const std::string whole = read_text("a.jpg");
    for (std::size_t size = 3; size < whole.size() - 2; size += 41) {
        const std::string name = write_text("cut.jpg", whole.substr(0, size));
        const std::string error = error_of([&] { (void)read_image(name); });
        EXPECT_TRUE(contains(error, "found a truncated or damaged JPEG file (")) << size << ": " << error;
    }
}

TEST_F(JpegPicture, OversizedPicturesAreRefusedByTheirHeader)
{
    write_image(in_folder("a.jpg"), soft_picture(40, 30, 3));
    std::string file = read_text("a.jpg");
    const std::size_t frame = file.find("\xFF\xC0"); // behind it two bytes of length, one of bits, height and width
    ASSERT_NE(frame, std::string::npos);
    file.replace(frame + 5, 4, "\xEA\x60\xEA\x60"); // 60000 each
    const std::string name = write_text("large.jpg", file);
    EXPECT_TRUE(contains(error_of([&] { (void)read_image(name); }),
                         "large.jpg: found a picture of 60000 x 60000 pixels with 3 x 8 bit; expected at most"));
}

// An APP1 block behind the start of the file, as cameras write it.
std::string with_orientation(const std::string& jpeg, bool is_big_endian, char orientation)
{
    const std::string little("Exif\0\0II*\0\x08\0\0\0\x01\0\x12\x01\x03\0\x01\0\0\0", 24);
    const std::string big("Exif\0\0MM\0*\0\0\0\x08\0\x01\x01\x12\0\x03\0\0\0\x01", 24);
    const std::string value = is_big_endian ? std::string{0, orientation, 0, 0} : std::string{orientation, 0, 0, 0};
    const std::string block = (is_big_endian ? big : little) + value + std::string(4, '\0');
    const std::string length = {0, static_cast<char>(block.size() + 2)};
    return jpeg.substr(0, 2) + "\xFF\xE1" + length + block + jpeg.substr(2);
}

TEST_F(JpegPicture, IsTurnedAsTheCameraWasHeld)
{
    write_image(in_folder("a.jpg"), soft_picture(48, 32, 1));
    const Image upright = read_image(in_folder("a.jpg"));
    for (const bool is_big_endian : {false, true}) {
        const std::string turned = write_text("turned.jpg", with_orientation(read_text("a.jpg"), is_big_endian, 6));
        EXPECT_EQ(describe(probe_image(turned).at(0)), "32 x 48 pixels, 1 channel, 8 bit");
        const Image image = read_image(turned);
        EXPECT_EQ(describe(image), "32 x 48 pixels, 1 channel, 8 bit");
        EXPECT_EQ(image.row(0)[31], upright.row(0)[0]) << "the first pixel is seen at the top right";
        EXPECT_EQ(image.row(47)[31], upright.row(0)[47]);
        for (const char other : {'\1', '\0', '\x9'})
            EXPECT_EQ(probe_image(write_text("b.jpg", with_orientation(read_text("a.jpg"), is_big_endian, other)))
                          .at(0)
                          .width,
                      48);
    }
}

TEST(ExifOrientation, StaysInsideItsBlock)
{
    const std::string whole = with_orientation("\xFF\xD8", false, 6).substr(6);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const std::vector<std::uint8_t> block(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        const int orientation = parse_exif(block.data(), block.size()).orientation;
        EXPECT_TRUE(orientation == 1 || orientation == 6);
    }
    std::vector<std::uint8_t> far(whole.begin(), whole.end());
    far[10] = far[11] = far[12] = far[13] = 0xFF;
    EXPECT_EQ(parse_exif(far.data(), far.size()).orientation, 1);
}

// A file with these bytes behind its start.
std::string with_block(const std::string& jpeg, const std::string& block)
{
    return jpeg.substr(0, 2) + block + jpeg.substr(2);
}

TEST_F(JpegPicture, WhatIsOddButHarmlessIsRead)
{
    const Image image = soft_picture(48, 32, 3);
    write_image(in_folder("a.jpg"), image);
    const std::string whole = read_text("a.jpg");
    const Image expected = read_image(in_folder("a.jpg"));
    std::string newer = whole;
    newer[newer.find("JFIF") + 5] = 2; // the version
    std::string adobe = whole;
    adobe.erase(2, 18); // in place of the JFIF block
    adobe = with_block(adobe, std::string("\xFF\xEE\0\x0E"
                                          "Adobe\0\x64\0\0\0\0\x07",
                                          16));
    std::string stray = whole;
    stray.insert(stray.find(std::string("\xFF\xDB", 2)), "stray");
    for (const std::string& odd : {newer, adobe, stray})
        expect_same_picture(read_image(write_text("b.jpg", odd)), expected);
}

TEST_F(JpegPicture, AFileWithoutItsEndBehindThePictureIsTruncated)
{
    write_image(in_folder("a.jpg"), soft_picture(48, 32, 3));
    std::string bytes = read_text("a.jpg");
    bytes.resize(bytes.size() - 2);
    bytes += std::string("\xFF\xFE\0\5abc", 7); // a comment in place of the end
    const std::string error = error_of([&] { (void)read_image(write_text("b.jpg", bytes)); });
    EXPECT_TRUE(contains(error, "found a truncated or damaged JPEG file (")) << error;
}

TEST_F(JpegPicture, OfTwoNotesOfACameraTheFirstCounts)
{
    Image image = soft_picture(48, 32, 1);
    image.metadata.exif.model = "Second";
    write_image(in_folder("a.jpg"), image);
    const std::string once = with_orientation(read_text("a.jpg"), false, 6); // without a model
    const std::string twice = with_orientation(once, true, 8);
    const Image read = read_image(write_text("b.jpg", twice));
    EXPECT_EQ(read.metadata.exif.model, "Second");
    const Image expected = read_image(write_text("c.jpg", with_orientation(read_text("a.jpg"), true, 8)));
    expect_same_picture(read, expected);
    image.metadata.exif.model = "First";
    write_image(in_folder("d.jpg"), image);
    const std::string first = read_text("d.jpg");
    const std::size_t begin = first.find(std::string("\xFF\xE1", 2));
    const std::size_t bytes =
        2 + 256 * static_cast<unsigned char>(first[begin + 2]) + static_cast<unsigned char>(first[begin + 3]);
    const std::string both = with_block(read_text("a.jpg"), first.substr(begin, bytes));
    EXPECT_EQ(read_image(write_text("e.jpg", both)).metadata.exif.model, "First");
}

TEST_F(JpegPicture, AResolutionMayBeThatOfACentimetre)
{
    write_image(in_folder("a.jpg"), soft_picture(8, 8, 3));
    const std::string bytes = read_text("a.jpg");
    const std::size_t start =
        bytes.find("JFIF"); // behind it and two bytes of version: unit, and two numbers of 2 bytes
    ASSERT_NE(start, std::string::npos);
    const auto resolution_of = [&](const std::string& unit_and_numbers) {
        std::string changed = bytes;
        changed.replace(start + 7, 5, unit_and_numbers);
        return read_image(write_text("b.jpg", changed)).metadata.resolution;
    };
    EXPECT_EQ(resolution_of(std::string("\1\1\x2C\0\x96", 5)), (Resolution{300, 150}));
    EXPECT_EQ(resolution_of(std::string("\2\0\x64\0\x32", 5)), (Resolution{254, 127}));
    EXPECT_EQ(resolution_of(std::string("\0\0\x64\0\x32", 5)), std::nullopt) << "a shape of pixels alone";
    EXPECT_EQ(resolution_of(std::string("\1\0\0\0\x32", 5)), std::nullopt);
    EXPECT_EQ(resolution_of(std::string("\1\0\x64\0\0", 5)), std::nullopt);
}

TEST_F(JpegPicture, FourComponentsAreRefused)
{
    write_image(in_folder("a.jpg"), soft_picture(8, 8, 3));
    std::string bytes = read_text("a.jpg");
    const std::size_t frame = bytes.find(std::string("\xFF\xC0", 2));
    ASSERT_NE(frame, std::string::npos);
    bytes[frame + 3] = static_cast<char>(bytes[frame + 3] + 3); // a header of four components
    bytes[frame + 9] = 4;
    bytes.insert(frame + 19, std::string("\x04\x11\x00", 3));
    const std::string error = error_of([&] { (void)probe_image(write_text("b.jpg", bytes)); });
    EXPECT_TRUE(contains(error, "found a JPEG file with 4 components; expected 1 (grey) or 3 (colour)")) << error;
}

} // namespace

} // namespace panoval::image::test
