// SPDX-License-Identifier: MIT
#include "image/stored_png.h"

#include "image/image_read.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

namespace panoval::image::test
{

namespace
{

TEST(StoredPng, OfTwoPixelsIsKnown)
{
    Image image = make_image(2, 1, 1, 8, "test");
    image.data[0] = 0x12;
    image.data[1] = 0x34;
    const std::vector<std::uint8_t> expected = {0x89, 'P',  'N',  'G',  '\r', '\n', 0x1A, '\n', //
                                                0,    0,    0,    13,   'I',  'H',  'D',  'R',  0,    0,    0,    2,
                                                0,    0,    0,    1,    8,    0,    0,    0,    0, //
                                                0xD1, 0x49, 0x20, 0x56,                            //
                                                0,    0,    0,    14,   'I',  'D',  'A',  'T',  0x78, 1,    1,    3,
                                                0,    0xFC, 0xFF, 0,    0x12, 0x34, 0x00, 0x5B, 0x00, 0x47, //
                                                0x4D, 0xA8, 0xC3, 0x85,                                     //
                                                0,    0,    0,    0,    'I',  'E',  'N',  'D',  0xAE, 0x42, 0x60, 0x82};
    EXPECT_EQ(stored_png(image), expected);
}

#ifndef PANOVAL_PNM_ONLY
class StoredPngFile : public ScratchFolder
{
};

// The last one fills several blocks and chunks.
TEST_F(StoredPngFile, IsReadAsThePicture)
{
    const struct {
        std::int32_t width, height;
        int channels;
    } shapes[] = {{1, 1, 3}, {7, 5, 1}, {33, 21, 3}, {65534, 1, 1}, {65535, 1, 1}, {700, 600, 3}};
    for (const auto& shape : shapes) {
        const Image image = test_picture(shape.width, shape.height, shape.channels, 8);
        const auto bytes = stored_png(image);
        write_text("a.png", std::string(bytes.begin(), bytes.end()));
        expect_same_picture(read_image(in_folder("a.png")), image);
    }
}
#endif

} // namespace

} // namespace panoval::image::test
