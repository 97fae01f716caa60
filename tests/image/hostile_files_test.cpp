// SPDX-License-Identifier: MIT
// A table of files that somebody made to hurt: a few bytes that claim huge pictures, structures that go round in
// circles, and sizes that do not go together. Each is refused by a message that says why, before any of it is decoded.
#include "image/image_read.h"
#include "image/row_reader.h"
#include "tests/image/file_bytes.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <utility>

namespace panoval::image::test
{

namespace
{

std::string png_chunk(const std::string& kind, const std::string& data)
{
    std::uint32_t sum = 0xFFFFFFFFu;
    for (const char c : kind + data) {
        sum ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit)
            sum = sum >> 1 ^ (sum % 2 != 0 ? 0xEDB88320u : 0u);
    }
    return big_endian(static_cast<std::uint32_t>(data.size()), 4) + kind + data + big_endian(~sum, 4);
}

// Grey, 8 bit, with a few bytes of samples; more: further chunks.
std::string png(std::uint32_t width, std::uint32_t height, char interlace = 0, const std::string& more = "")
{
    using namespace std::string_literals;
    return "\x89PNG\r\n\x1A\n"s +
           png_chunk("IHDR", big_endian(width, 4) + big_endian(height, 4) + "\x08\0\0\0"s.substr(0, 4) + interlace) +
           more + png_chunk("IDAT", "\x78\x9C\x63\0\0\0\1\0\1"s) + png_chunk("IEND", "");
}

// Grey; just the start of a file and a frame.
std::string jpeg(std::uint32_t width, std::uint32_t height)
{
    using namespace std::string_literals;
    return "\xFF\xD8\xFF\xC0\x00\x0B\x08"s + big_endian(height, 2) + big_endian(width, 2) +
           "\x01\x01\x11\x00\xFF\xDA\x00\x08\x01\x01\x00\x00\x3F\x00\xFF\xD9"s;
}

// Progressive, 16 x 16: a scan of the blocks' means, and so many of the rest, a table of one code each.
std::string jpeg_of_scans(int count)
{
    using namespace std::string_literals;
    const std::string one_code(15, '\0');
    std::string file = "\xFF\xD8\xFF\xDB\x00\x43\x00"s + std::string(64, '\1') +
                       "\xFF\xC2\x00\x0B\x08\x00\x10\x00\x10\x01\x01\x11\x00"s + "\xFF\xC4\x00\x14\x00\x01"s +
                       one_code + "\0"s + "\xFF\xC4\x00\x14\x10\x01"s + one_code + "\x20"s +
                       "\xFF\xDA\x00\x08\x01\x01\x00\x00\x00\x00\x0F"s;
    for (int i = 0; i < count; ++i)
        file += "\xFF\xDA\x00\x08\x01\x01\x00\x01\x3F\x00\x1F"s; // nothing in any of the four blocks
    return file + "\xFF\xD9"s;
}

using Tags = std::vector<std::pair<int, std::uint32_t>>;

// One directory, at byte 8, of tags with one long value each, that names the next one.
std::string tiff(const Tags& tags, std::uint32_t next = 0)
{
    std::string file = std::string("II*\0", 4) + little_endian(8, 4) + little_endian(tags.size(), 2);
    for (const auto& [tag, value] : tags)
        file += little_endian(static_cast<std::uint64_t>(tag), 2) + little_endian(4, 2) + little_endian(1, 4) +
                little_endian(value, 4);
    return file + little_endian(next, 4) + std::string(64, 'x');
}

// Width, height, 8 bit, no compression, black is zero, samples at byte 8, one strip of so many bytes.
Tags grey_tags(std::uint32_t width, std::uint32_t height, std::uint32_t strip_bytes, std::uint32_t compression = 1)
{
    return {{256, width}, {257, height}, {258, 8},      {259, compression},
            {262, 1},     {273, 8},      {278, height}, {279, strip_bytes}};
}

Tags tiled_tags(std::uint32_t tile_side)
{
    return {{256, 64},        {257, 64},        {258, 8}, {259, 1}, {262, 1},
            {322, tile_side}, {323, tile_side}, {324, 8}, {325, 64}};
}

struct Hostile {
    const char* name;
    std::string bytes;
    const char* found; // in the message
};

class HostileFile : public ScratchFolder
{
protected:
    ~HostileFile() override { set_most_pixels(kUsualMostPixels); }

    std::string message_for(const Hostile& file)
    {
        const std::string name = write_text(file.name, file.bytes);
        return error_of([&] {
            (void)probe_image(name);
            (void)read_image(name);
        });
    }
};

TEST_F(HostileFile, EachIsRefusedWithTheReason)
{
    const Hostile files[] = {
        {"sides.png", png(40'000, 40'000), "found a picture of 40000 x 40000 pixels; expected at most 1000000000"},
        {"interlaced.png", png(40'000, 40'000, 1), "found a picture of 40000 x 40000 pixels; expected at most"},
        {"none.png", png(0, 7), "found a truncated or damaged PNG file"},
        {"short.png", png(2000, 2000), "found a truncated or damaged PNG file"},
        {"long.png", png(0x7FFFFFFF, 1), "found a picture of 2147483647 x 1 pixels; expected at most"},
        {"beyond.png", png(0xFFFFFFFF, 1), "found a truncated or damaged PNG file"},
        {"sides.jpg", jpeg(65'500, 65'500), "found a picture of 65500 x 65500 pixels; expected at most"},
        {"short.jpg", jpeg(20'000, 20'000), "found a truncated or damaged JPEG file"},
        {"none.jpg", jpeg(0, 5), "found a truncated or damaged JPEG file"},
        {"scans.jpg", jpeg_of_scans(600), "found a truncated or damaged JPEG file (more than 500 scans)"},
        {"sides.pgm", "P2\n40000 40000\n255\n1 2 3", "found a picture of 40000 x 40000 pixels; expected at most"},
        {"raw.pgm", "P5\n30000 30000\n255\nxyz", "found a truncated file with 3 bytes of samples; expected 900000000"},
        {"sides.pam", "P7\nWIDTH 65536\nHEIGHT 65536\nDEPTH 1\nMAXVAL 255\nENDHDR\n", "found a truncated file with 0"},
        {"negative.pam", "P7\nWIDTH -5\nHEIGHT 5\nDEPTH 1\nMAXVAL 255\nENDHDR\n", "found a picture of -5 x 5 pixels"},
        {"line.pam", "P7\n" + std::string(5000, 'W'), "found a header line of more than 1000 characters"},
        {"number.pgm", "P5\n" + std::string(5000, '9') + " 4\n255\n", "found the width above 2147483647"},
        {"comment.pgm", "P5\n#" + std::string(100'000, 'c'), "found the file's end where the width stands"},
        {"sides.tif", tiff(grey_tags(40'000, 40'000, 16)), "found a picture of 40000 x 40000 pixels; expected at most"},
        {"strip.tif", tiff(grey_tags(30'000, 30'000, 0xFFFFFFF0u)), "found a truncated or damaged TIFF file"},
        {"deflate.tif", tiff(grey_tags(30'000, 30'000, 64, 8)), "found a truncated or damaged TIFF file"},
        {"lzw.tif", tiff(grey_tags(30'000, 30'000, 64, 5)), "found a truncated or damaged TIFF file"},
        {"tiles.tif", tiff(tiled_tags(0x7FFFFFF0u)), "found a truncated or damaged TIFF file"},
        {"tile.tif", tiff(tiled_tags(65520)), "found tiles of 65520 x 65520 pixels; expected at most 1000000000"},
        {"tileless.tif", tiff(tiled_tags(0)), "found a truncated or damaged TIFF file"},
        {"empty.tif", tiff({}), "found "},
        {"nowhere.tif", std::string("II*\0", 4) + little_endian(0xFFFFFF00u, 4), "found a truncated or damaged TIFF"},
        {"big.tif", std::string("II+\0\x08\0\0\0", 8) + little_endian(~std::uint64_t{0} - 8, 8), "found a truncated"},
    };
    for (const Hostile& file : files) {
        const std::string message = message_for(file);
        EXPECT_TRUE(contains(message, file.found)) << file.name << ": " << message;
        EXPECT_TRUE(contains(message, "; expected ")) << file.name << ": " << message;
        EXPECT_EQ(message.find('\n'), std::string::npos) << file.name;
    }
}

TEST_F(HostileFile, ADirectoryThatNamesItselfEndsTheFile)
{
    const std::string name = write_text("cycle.tif", tiff(grey_tags(4, 4, 16), 8));
    EXPECT_EQ(probe_image(name).size(), 1u);
}

TEST_F(HostileFile, AProfileThatGrowsIsLeftOut)
{
    const std::vector<Bytef> zeros(16'000'000);
    std::string packed(compressBound(static_cast<uLong>(zeros.size())), '\0');
    uLongf size = static_cast<uLongf>(packed.size());
    ASSERT_EQ(compress(reinterpret_cast<Bytef*>(packed.data()), &size, zeros.data(), static_cast<uLong>(zeros.size())),
              Z_OK);
    const std::string profile = png_chunk("iCCP", std::string("p\0\0", 3) + packed.substr(0, size));
    const std::string name = write_text("profile.png", png(1, 1, 0, profile));
    EXPECT_TRUE(open_rows(name)->metadata().profile.empty());
}

TEST_F(HostileFile, AUsualNumberOfScansIsRead)
{
    EXPECT_EQ(message_for({"scans.jpg", jpeg_of_scans(400), ""}), "no error");
    EXPECT_EQ(open_rows(in_folder("scans.jpg"))->held_bytes(), 2u * 16 * 16) << "all coefficients";
}

TEST_F(HostileFile, WithoutALimitSizesStillFitTheirNumbers)
{
    set_most_pixels(0);
    for (const Hostile& file :
         {Hostile{"a.pam", "P7\nWIDTH 2147483647\nHEIGHT 2147483647\nDEPTH 4\nMAXVAL 65535\nENDHDR\n", ""},
          Hostile{"a.png", png(0x7FFFFFFF, 0x7FFFFFFF, 1), ""},
          Hostile{"a.tif", tiff(grey_tags(0x7FFFFFFF, 0x7FFFFFFF, 16)), ""}}) {
        const std::string message = message_for(file);
        EXPECT_TRUE(contains(message, "found a picture of 2147483647 x 2147483647 pixels; expected at most 2^58"))
            << message;
    }
}

TEST_F(HostileFile, TheLimitOfPixelsIsExact)
{
    const auto message_of = [&](int height) {
        return message_for({"a.pgm", concat("P5\n10 ", height, "\n255\n") + std::string(200, 'x'), ""});
    };
    set_most_pixels(100);
    EXPECT_EQ(message_of(10), "no error");
    EXPECT_TRUE(contains(message_of(11), "found a picture of 10 x 11 pixels; expected at most 100 (--max-pixels)"));
    set_most_pixels(0);
    EXPECT_EQ(message_of(11), "no error");
}

} // namespace

} // namespace panoval::image::test
