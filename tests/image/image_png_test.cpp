// SPDX-License-Identifier: MIT
#include "image/image_read.h"
#include "image/image_write.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>
#include <png.h>

#include <functional>

namespace panoval::image::test
{

namespace
{

class PngPicture : public ScratchFolder
{
protected:
    // A file as libpng makes it of rows of raw bytes.
    std::string write_raw(int width, int height, int bits, int color, int interlace, const std::string& bytes,
                          const std::function<void(png_structp, png_infop)>& set_chunks = {})
    {
        const std::string name = in_folder("raw.png");
        const FileHandle file = open_utf8(name, "wb");
        png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
        png_infop info = png_create_info_struct(png);
        png_init_io(png, file.get());
        png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), bits, color,
                     interlace, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        if (set_chunks)
            set_chunks(png, info);
        png_write_info(png, info);
        std::vector<png_bytep> rows;
        const std::size_t row_bytes = bytes.size() / static_cast<std::size_t>(height);
        for (std::size_t y = 0; y < static_cast<std::size_t>(height); ++y)
            rows.push_back(reinterpret_cast<png_bytep>(const_cast<char*>(bytes.data())) + y * row_bytes);
        png_write_image(png, rows.data());
        png_write_end(png, info);
        png_destroy_write_struct(&png, &info);
        return name;
    }

    static std::string samples_of(const Image& image)
    {
        return std::string(reinterpret_cast<const char*>(image.data.get()), image.bytes());
    }
};

TEST_F(PngPicture, KeepsEverySampleOfEveryFormat)
{
    for (const int bits : {8, 16})
        for (const int channels : {1, 3})
            for (const bool has_mask : {false, true}) {
                const Image image = test_picture(37, 23, channels, bits, has_mask);
                write_image(in_folder("a.png"), image);
                expect_same_picture(read_image(in_folder("a.png")), image);
                EXPECT_EQ(describe(probe_image(in_folder("a.png")).at(0)), describe(image));
            }
}

TEST_F(PngPicture, InterlacedFilesAreTheSamePicture)
{
    const Image image = test_picture(13, 11, 3, 8);
    const std::string name = write_raw(13, 11, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_ADAM7, samples_of(image));
    expect_same_picture(read_image(name), image);
    const auto reader = open_rows(name);
    EXPECT_EQ(reader->held_bytes(), 13u * 3 * 11) << "rows come in passes";
    for (const std::int32_t y : {10, 0, 5}) { // back, too
        std::uint8_t row[13 * 3];
        reader->read_rows(y, 1, {row, sizeof row, nullptr, 0});
        EXPECT_EQ(std::memcmp(row, image.row(y), sizeof row), 0) << y;
    }
}

TEST_F(PngPicture, PalettesAreExpandedToColours)
{
    const png_color palette[2] = {{10, 20, 30}, {40, 50, 60}};
    const std::string name = write_raw(2, 1, 8, PNG_COLOR_TYPE_PALETTE, PNG_INTERLACE_NONE, std::string("\1\0", 2),
                                       [&](png_structp png, png_infop info) { png_set_PLTE(png, info, palette, 2); });
    EXPECT_EQ(describe(read_image(name)), "2 x 1 pixels, 3 channels, 8 bit");
    EXPECT_EQ(samples_of(read_image(name)), "\x28\x32\x3C\x0A\x14\x1E");
}

TEST_F(PngPicture, ATransparentColourBecomesTheMask)
{
    png_color_16 transparent{};
    transparent.gray = 7;
    const std::string name =
        write_raw(3, 1, 8, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE, "\6\7\10",
                  [&](png_structp png, png_infop info) { png_set_tRNS(png, info, nullptr, 0, &transparent); });
    const Image image = read_image(name);
    ASSERT_NE(image.mask, nullptr);
    EXPECT_EQ(std::memcmp(image.mask.get(), "\xFF\0\xFF", 3), 0);
}

TEST_F(PngPicture, FewBitsAreStretchedToEight)
{
    const std::string name = write_raw(4, 1, 2, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE, "\x1B"); // 0 1 2 3
    EXPECT_EQ(samples_of(read_image(name)), std::string("\x00\x55\xAA\xFF", 4));
}

TEST_F(PngPicture, AnOffsetInPixelsIsThePosition)
{
    const auto set = [](int unit) {
        return [unit](png_structp png, png_infop info) { png_set_oFFs(png, info, -120, 45, unit); };
    };
    const Offset expected{-120, 45};
    EXPECT_EQ(probe_image(write_raw(1, 1, 8, 0, 0, "x", set(PNG_OFFSET_PIXEL))).at(0).position, expected);
    EXPECT_FALSE(probe_image(write_raw(1, 1, 8, 0, 0, "x", set(PNG_OFFSET_MICROMETER))).at(0).position.has_value());
}

TEST_F(PngPicture, APositionComesBackAsFarAsTheFormatGoes)
{
    const auto written = [&](std::int64_t x, std::int64_t y) {
        Image image = test_picture(3, 2, 1, 8);
        image.position = Offset{x, y};
        write_image(in_folder("placed.png"), image);
        return probe_image(in_folder("placed.png")).at(0).position;
    };
    EXPECT_EQ(written(-120, 45), (Offset{-120, 45}));
    EXPECT_EQ(written(2147483647, -2147483647), (Offset{2147483647, -2147483647}));
    EXPECT_EQ(written(0, 2147483648), std::nullopt);
    EXPECT_EQ(written(-2147483648, 0), std::nullopt);
}

TEST_F(PngPicture, AResolutionInMetresIsThatOfAnInch)
{
    const auto resolution_of = [&](png_uint_32 x, png_uint_32 y, int unit) {
        return read_image(write_raw(1, 1, 8, 0, 0, "x",
                                    [&](png_structp png, png_infop info) { png_set_pHYs(png, info, x, y, unit); }))
            .metadata.resolution;
    };
    EXPECT_EQ(resolution_of(11811, 5906, PNG_RESOLUTION_METER), (Resolution{300, 150.01}));
    EXPECT_EQ(resolution_of(11811, 5906, PNG_RESOLUTION_UNKNOWN), std::nullopt) << "a shape of pixels alone";
    EXPECT_EQ(resolution_of(0, 5906, PNG_RESOLUTION_METER), std::nullopt);
    EXPECT_EQ(resolution_of(11811, 0, PNG_RESOLUTION_METER), std::nullopt);
}

// The check sum that ends a chunk.
std::string check_sum(const std::string& chunk)
{
    std::uint32_t sum = 0xFFFFFFFFu;
    for (const char c : chunk) {
        sum ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit)
            sum = sum >> 1 ^ (sum % 2 != 0 ? 0xEDB88320u : 0u);
    }
    sum = ~sum;
    return {static_cast<char>(sum >> 24), static_cast<char>(sum >> 16 & 255), static_cast<char>(sum >> 8 & 255),
            static_cast<char>(sum & 255)};
}

TEST_F(PngPicture, OversizedPicturesAreRefusedByTheirHeader)
{
    write_image(in_folder("a.png"), test_picture(1, 1, 3, 8));
    std::string bytes = read_text("a.png");
    bytes.replace(16, 8, std::string("\x00\x00\x75\x30\x00\x00\x75\x30", 8));
    bytes.replace(29, 4, check_sum(bytes.substr(12, 17)));
    const std::string name = write_text("huge.png", bytes);
    EXPECT_EQ(error_of([&] { (void)read_image(name); }),
              name + ": found a picture of 30000 x 30000 pixels with 3 x 8 bit; expected at most 2^31 - 1 bytes of "
                     "samples");
}

TEST_F(PngPicture, EveryTruncationIsExplained)
{
    write_image(in_folder("a.png"), test_picture(9, 9, 3, 16, true));
    const std::string whole = read_text("a.png");
    for (std::size_t size = 8; size < whole.size(); size += 7) {
        const std::string name = write_text("cut.png", whole.substr(0, size));
        const std::string error = error_of([&] { (void)read_image(name); });
        EXPECT_EQ(error.substr(0, name.size()), name) << size << ": " << error;
        EXPECT_TRUE(contains(error, "found a truncated or damaged PNG file (")) << size << ": " << error;
    }
}

TEST_F(PngPicture, AnyDamagedByteIsNoticed)
{
    write_image(in_folder("a.png"), test_picture(9, 9, 3, 8));
    const std::string whole = read_text("a.png");
    for (std::size_t i = 8; i + 12 < whole.size(); ++i) { // up to the last chunk, which holds nothing
        std::string damaged = whole;
        damaged[i] = static_cast<char>(damaged[i] ^ 0x21);
        const std::string name = write_text("damaged.png", damaged);
        EXPECT_NE(error_of([&] { (void)read_image(name); }), "no error") << i;
    }
}

} // namespace

} // namespace panoval::image::test
