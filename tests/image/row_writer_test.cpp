// SPDX-License-Identifier: MIT
#include "image/row_writer.h"

#include "image/failure.h"
#include "image/image_read.h"
#include "image/image_write.h"
#include "image/row_halver.h"
#include "image/tiff_file.h"
#include "image/tiff_layout.h"
#include "tests/support/colour_profile.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace panoval::image::test
{

namespace
{

using RowWriting = ScratchFolder;

Metadata camera()
{
    Metadata metadata;
    metadata.exif = {"Maker", "Model X", "2024:02:29 12:34:56", Rational{1, 250}, Rational{28, 10}, 400};
    metadata.resolution = Resolution{300, 300};
    return metadata;
}

// The picture, a few rows at a time.
void write_in_pieces(const std::string& name, const Image& image, const WriteOptions& options = {})
{
    OutputFile output(name);
    const auto writer = make_row_writer(output, OutputName(name), image, options);
    for (std::int32_t y = 0, count = 1; y < image.height; y += count, count = count % 5 + 1) {
        count = std::min(count, image.height - y);
        writer->add(rows_of(image, y), count);
    }
    writer->finish();
    output.commit();
}

TEST_F(RowWriting, RowsMakeTheFileThatTheWholePictureMakes)
{
    for (const std::string name : {"a.png", "a.tif", "a.pam", "a.ppm", "a.jpg"})
        for (const int bits : {8, 16})
            for (const bool has_mask : {false, true}) {
                if (!OutputName(name).format().holds(3, bits, has_mask))
                    continue;
                const Image image = test_picture(61, 43, 3, bits, has_mask);
                write_image(in_folder(name), image);
                const std::string whole = read_text(name);
                write_in_pieces(in_folder(name), image);
                EXPECT_EQ(read_text(name), whole) << name;
            }
}

TEST_F(RowWriting, EveryLayoutOfTiffIsReadBack)
{
    for (const std::string& compression : tiff_compressions())
        for (const bool is_tiled : {false, true})
            for (const int bits : {8, 16})
                for (const bool has_mask : {false, true}) {
                    const Image image = test_picture(530, 270, has_mask ? 1 : 3, bits, has_mask);
                    WriteOptions options;
                    options.compression = compression_of(compression);
                    options.is_tiled = is_tiled;
                    write_in_pieces(in_folder("a.tif"), image, options);
                    expect_same_picture(read_image(in_folder("a.tif")), image);
                }
    EXPECT_EQ(tiff_compressions().front(), "none");
    EXPECT_TRUE(contains(error_of([] { (void)compression_of("bzip"); }), "expected none, lzw, deflate"));
}

TEST_F(RowWriting, QualityDecidesTheSizeOfAJpegFile)
{
    std::vector<std::size_t> sizes;
    for (const int quality : {30, 93, 100}) {
        WriteOptions options;
        options.quality = quality;
        write_image(in_folder("a.jpg"), test_picture(100, 100, 3, 8), options);
        sizes.push_back(read_text("a.jpg").size());
    }
    EXPECT_LT(2 * sizes[0], sizes[1]);
    EXPECT_LT(sizes[1], sizes[2]);
}

// PNG has no place for them.
TEST_F(RowWriting, PngLeavesProfilesOfOtherChannelsOut)
{
    Image image = test_picture(20, 10, 1, 8);
    image.metadata.profile = colour_profile();
    image.metadata.resolution = camera().resolution;
    write_image(in_folder("grey.png"), image);
    const Image read = read_image(in_folder("grey.png"));
    EXPECT_TRUE(read.metadata.profile.empty());
    EXPECT_TRUE(read.metadata.resolution);
    EXPECT_EQ(std::vector<std::uint8_t>(read.row(9), read.row(9) + 20),
              std::vector<std::uint8_t>(image.row(9), image.row(9) + 20));
}

TEST_F(RowWriting, MetadataIsKept)
{
    for (const std::string name : {"a.png", "a.tif", "a.jpg"}) {
        Image image = test_picture(20, 10, 3, 8);
        image.metadata = camera();
        image.metadata.profile = colour_profile();
        write_image(in_folder(name), image);
        const Metadata read = open_rows(in_folder(name))->metadata();
        EXPECT_EQ(read.profile, colour_profile()) << name;
        EXPECT_EQ(read.exif, camera().exif) << name;
        ASSERT_TRUE(read.resolution) << name;
        EXPECT_NEAR(read.resolution->x, 300, 0.01) << name;
        EXPECT_NEAR(read.resolution->y, 300, 0.01) << name;
    }
}

TEST_F(RowWriting, APlaceIsKeptAtAnyResolution)
{
    Image image = test_picture(20, 10, 3, 8);
    image.position = Offset{1234, 5};
    image.metadata.resolution = Resolution{72, 300};
    write_image(in_folder("a.tif"), image);
    EXPECT_EQ(probe_image(in_folder("a.tif")).at(0).position, (Offset{1234, 5}));
    EXPECT_EQ(open_rows(in_folder("a.tif"))->metadata().resolution, (Resolution{72, 300}));
}

TEST_F(RowWriting, AMeanOfFourMakesAPixelOfThePyramid)
{
    Image image = make_image(3, 3, 1, 8, "test");
    const std::uint8_t samples[] = {10, 21, 40, 30, 40, 80, 1, 2, 255};
    std::memcpy(image.data.get(), samples, sizeof samples);
    std::vector<int> halved;
    RowHalver halver(image, [&](const ConstRows& row) {
        halved.insert(halved.end(), {row.samples[0], row.samples[1]});
    });
    for (std::int32_t y = 0; y < 3; ++y)
        halver.add(rows_of(std::as_const(image), y));
    halver.finish();
    EXPECT_EQ(halved, (std::vector<int>{25, 60, 2, 255})); // (10 + 21 + 30 + 40 + 2) / 4; the last ones stand for two
}

TEST(RowHalver, MakesTheMeanOfFourOfEveryFormat)
{
    for (const int channels : {1, 3})
        for (const int bits : {8, 16})
            for (const bool has_mask : {false, true}) {
                Image image = test_picture(4, 4, channels, bits, false);
                if (has_mask)
                    ensure_mask(image, "test");
                image.has_alpha = has_mask;
                std::size_t next = 0;
                RowHalver halver(image, [&](const ConstRows& half) {
                    const std::size_t y = next++;
                    for (std::size_t i = 0; i < 2 * static_cast<std::size_t>(channels); ++i) {
                        const auto c = static_cast<std::size_t>(channels);
                        const std::size_t left = 2 * (i / c) * c + i % c;
                        std::uint32_t sum = 2;
                        for (const std::size_t row : {2 * y, 2 * y + 1})
                            for (const std::size_t at : {left, left + c})
                                sum += sample_at(image.data.get(), bits, row * 4 * c + at);
                        EXPECT_EQ(sample_at(half.samples, bits, i), sum / 4) << channels << ", " << bits;
                    }
                    EXPECT_EQ(half.mask != nullptr, has_mask);
                });
                for (std::int32_t y = 0; y < 4; ++y)
                    halver.add(rows_of(std::as_const(image), y));
                halver.finish();
                EXPECT_EQ(next, 2u);
            }
}

TEST(RowHalver, KeepsAFaintTraceOfCoverage)
{
    Image image = test_picture(2, 2, 1, 8, true);
    image.has_alpha = true;
    for (const int covered : {0, 1, 2, 5, 6}) {
        std::fill_n(image.mask.get(), 4, std::uint8_t{0});
        image.mask[3] = static_cast<std::uint8_t>(covered);
        RowHalver halver(image, [&](const ConstRows& half) {
            EXPECT_EQ(half.mask[0], covered == 0 ? 0 : covered < 6 ? 1 : 2) << covered;
            EXPECT_EQ(half.samples[0], covered == 0 ? 0 : image.data[3]);
        });
        halver.add(rows_of(std::as_const(image), 0));
        halver.add(rows_of(std::as_const(image), 1));
        halver.finish();
    }
}

TEST_F(RowWriting, WhatIsNotCoveredLeavesNoTraceInThePyramid)
{
    Image image = make_image(4, 2, 1, 16, "test");
    ensure_mask(image, "test");
    const std::uint16_t samples[] = {1000, 9, 9, 9, 9, 9, 9, 9};
    const std::uint8_t mask[] = {255, 0, 0, 0, 0, 0, 0, 0};
    std::memcpy(image.data.get(), samples, sizeof samples);
    std::memcpy(image.mask.get(), mask, sizeof mask);
    std::vector<std::uint16_t> halved(2);
    std::vector<std::uint8_t> half_mask(2);
    RowHalver halver(image, [&](const ConstRows& row) {
        std::memcpy(halved.data(), row.samples, 4);
        std::memcpy(half_mask.data(), row.mask, 2);
    });
    halver.add(rows_of(std::as_const(image), 0));
    halver.add(rows_of(std::as_const(image), 1));
    EXPECT_EQ(halved, (std::vector<std::uint16_t>{1000, 0}));
    EXPECT_EQ(half_mask, (std::vector<std::uint8_t>{64, 0}));
}

// Sizes of all directories of a TIFF file, and whether they call themselves reduced.
std::vector<std::vector<std::uint32_t>> directories_of(const std::string& name)
{
    const FileHandle file = open_utf8(name, "rb");
    const TiffFile tiff(file.get(), name, "r");
    std::vector<std::vector<std::uint32_t>> all;
    do
        all.push_back(
            {tiff.field<std::uint32_t>(TIFFTAG_IMAGEWIDTH, 0), tiff.field<std::uint32_t>(TIFFTAG_IMAGELENGTH, 0),
             tiff.field<std::uint32_t>(TIFFTAG_SUBFILETYPE, 0), tiff.field<std::uint32_t>(TIFFTAG_TILEWIDTH, 0)});
    while (TIFFReadDirectory(tiff.get()) == 1);
    return all;
}

TEST_F(RowWriting, APyramidFollowsThePicture)
{
    for (const bool has_mask : {false, true}) {
        Image image = test_picture(1001, 700, 3, 8, has_mask);
        image.metadata = camera();
        WriteOptions options;
        options.has_pyramid = true;
        options.compression = Compression::Deflate;
        write_in_pieces(in_folder("a.tif"), image, options);
        EXPECT_EQ(
            directories_of(in_folder("a.tif")),
            (std::vector<std::vector<std::uint32_t>>{{1001, 700, 0, 256}, {501, 350, 1, 256}, {251, 175, 1, 256}}));
        EXPECT_EQ(probe_image(in_folder("a.tif")).size(), 1u) << "one layer";
        expect_same_picture(read_image(in_folder("a.tif")), image);
        EXPECT_EQ(names(), std::vector<std::string>{"a.tif"}) << "nothing is left beside it";
    }
}

TEST(TiffLayout, TakesMoreThanFourGigabytesIntoAccountBeforeTheyAreThere)
{
    ImageInfo info;
    info.width = 60'000;
    info.height = 30'000;
    info.channels = 3;
    info.bits = 8;
    EXPECT_EQ(most_tiff_bytes(info, {false, Compression::None, false}), 5'400'000'000u);
    EXPECT_EQ(most_tiff_bytes(info, {true, Compression::None, false}), 60'160ull * 30'208 * 3);
    EXPECT_GT(most_tiff_bytes(info, {true, Compression::Lzw, false}), 8'000'000'000u);
}

TEST_F(RowWriting, DeepZoomHasATileForEveryPartOfEveryLevel)
{
    const Image image = test_picture(600, 509, 3, 8);
    WriteOptions options;
    options.quality = 100;
    write_in_pieces(in_folder("a.dzi"), image, options);
    const std::string xml = read_text("a.dzi");
    EXPECT_TRUE(contains(xml, "Format=\"jpg\" Overlap=\"1\" TileSize=\"254\"")) << xml;
    EXPECT_TRUE(contains(xml, "<Size Width=\"600\" Height=\"509\"/>")) << xml;
    const auto size_of = [&](const std::string& tile) {
        const ImageInfo info = probe_image(in_folder("a_files/" + tile)).at(0);
        return std::vector<std::int32_t>{info.width, info.height};
    };
    EXPECT_EQ(size_of("10/0_0.jpg"), (std::vector<std::int32_t>{255, 255}));
    EXPECT_EQ(size_of("10/1_1.jpg"), (std::vector<std::int32_t>{256, 256}));
    EXPECT_EQ(size_of("10/2_2.jpg"), (std::vector<std::int32_t>{600 - 2 * 254 + 1, 2})) << "a last row of its own";
    EXPECT_EQ(size_of("9/1_1.jpg"), (std::vector<std::int32_t>{300 - 254 + 1, 2}));
    EXPECT_EQ(size_of("8/0_0.jpg"), (std::vector<std::int32_t>{150, 128}));
    EXPECT_EQ(size_of("0/0_0.jpg"), (std::vector<std::int32_t>{1, 1}));
    EXPECT_FALSE(file_exists(in_folder("a_files/11")));
    EXPECT_FALSE(file_exists(in_folder("a_files/10/3_0.jpg")));
}

TEST_F(RowWriting, DeepZoomOfOneColumnOrRowEndsInOnePixel)
{
    for (const bool is_column : {false, true}) {
        const std::string name = is_column ? "column" : "row";
        const Image image = is_column ? test_picture(1, 5, 3, 8) : test_picture(5, 1, 3, 8);
        write_in_pieces(in_folder(name + ".dzi"), image);
        const ImageInfo half = probe_image(in_folder(name + "_files/2/0_0.jpg")).at(0);
        EXPECT_EQ(half.width, is_column ? 1 : 3);
        EXPECT_EQ(half.height, is_column ? 3 : 1);
        EXPECT_EQ(probe_image(in_folder(name + "_files/0/0_0.jpg")).at(0).pixels(), 1u);
        EXPECT_FALSE(file_exists(in_folder(name + "_files/4"))) << "5, 3, 2, 1";
    }
}

// Wider than its rows are: a picture inside a larger one.
TEST_F(RowWriting, RowsMayHaveRoomBetweenThem)
{
    const Image image = test_picture(40, 30, 3, 8);
    std::vector<std::uint8_t> wide(200 * 30, 77);
    for (std::int32_t y = 0; y < 30; ++y)
        std::memcpy(wide.data() + 200 * y, image.row(y), 120);
    OutputFile output(in_folder("a.tif"));
    const auto writer = make_row_writer(output, OutputName("a.tif"), image);
    writer->add({wide.data(), 200, nullptr, 0}, 30);
    writer->finish();
    output.commit();
    expect_same_picture(read_image(in_folder("a.tif")), image);
}

TEST_F(RowWriting, ANarrowTallPictureHasAPyramid)
{
    const Image image = test_picture(10, 600, 3, 8);
    WriteOptions options;
    options.has_pyramid = true;
    write_in_pieces(in_folder("a.tif"), image, options);
    expect_same_picture(read_image(in_folder("a.tif")), image);
    TIFF* const tiff = TIFFOpen(in_folder("a.tif").c_str(), "r");
    EXPECT_EQ(TIFFNumberOfDirectories(tiff), 3) << "600, 300 and 150 rows";
    TIFFClose(tiff);
}

TEST_F(RowWriting, DeepZoomTilesShowThePicture)
{
    const Image image = test_picture(300, 260, 3, 8, true); // with alpha: PNG, which loses nothing
    write_in_pieces(in_folder("a.dzi"), image);
    const Image tile = read_image(in_folder("a_files/9/1_1.png"));
    ASSERT_EQ(describe(tile), "47 x 7 pixels, 3 channels and alpha, 8 bit");
    for (std::int32_t y = 0; y < 7; ++y)
        EXPECT_EQ(std::memcmp(tile.row(y), image.row(253 + y) + 3 * 253, 3 * 47), 0) << y;
}

TEST_F(RowWriting, DeepZoomIsCompleteOrNotThere)
{
    const Image image = test_picture(300, 260, 3, 8);
    {
        OutputFile output(in_folder("a.dzi"));
        make_row_writer(output, OutputName("a.dzi"), image)->add(rows_of(image), 260);
    }
    EXPECT_TRUE(names().empty());
    write_in_pieces(in_folder("a.dzi"), image);
    write_in_pieces(in_folder("a.dzi"), test_picture(20, 20, 3, 8));
    EXPECT_EQ(names().size(), 2u) << "the older one has gone";
    EXPECT_FALSE(file_exists(in_folder("a_files/9")));
    std::filesystem::create_directory(path_from_utf8(in_folder("b_files")));
    EXPECT_TRUE(contains(error_of([&] { write_in_pieces(in_folder("b.dzi"), image); }), "b.dzi: found the folder "));
}

} // namespace

} // namespace panoval::image::test
