// SPDX-License-Identifier: MIT
#include "image/row_reader.h"

#include "image/image_read.h"
#include "image/image_write.h"
#include "image/tiff_file.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace panoval::image::test
{

namespace
{

using RowReading = ScratchFolder;

// These rows of a file, as a picture.
Image rows_from(RowReader& reader, std::int32_t first, std::int32_t count)
{
    const ImageInfo& info = reader.info();
    Image image = make_image(info.width, count, info.channels, info.bits, "test");
    ensure_mask(image, "test");
    reader.read_rows(first, count, rows_of(image));
    return image;
}

void expect_rows(RowReader& reader, const Image& whole, std::int32_t first, std::int32_t count)
{
    const Image part = rows_from(reader, first, count);
    EXPECT_EQ(std::memcmp(part.data.get(), whole.row(first), part.bytes()), 0) << "rows from " << first;
    const auto width = static_cast<std::size_t>(whole.width);
    for (std::size_t i = 0; i < part.pixels(); ++i)
        ASSERT_EQ(part.mask[i], whole.mask != nullptr ? whole.mask[static_cast<std::size_t>(first) * width + i] : 255);
}

TEST_F(RowReading, GivesTheRowsOfTheWholePictureInAnyOrder)
{
    for (const std::string name : {"a.png", "a.tif", "a.pam", "a.pnm", "a.jpg"})
        for (const int bits : {8, 16})
            for (const int channels : {1, 3})
                for (const bool has_mask : {false, true}) {
                    if (!OutputName(name).format().holds(channels, bits, has_mask))
                        continue;
                    write_image(in_folder(name), test_picture(37, 50, channels, bits, has_mask));
                    const Image whole = read_image(in_folder(name));
                    const auto reader = open_rows(in_folder(name));
                    EXPECT_EQ(describe(reader->info()), describe(whole));
                    for (const std::int32_t first : {0, 7, 14, 3, 49, 20, 0})
                        expect_rows(*reader, whole, first, std::min(7, 50 - first));
                }
}

TEST_F(RowReading, LeavesWhatIsBesideTheRows)
{
    write_image(in_folder("a.png"), test_picture(5, 4, 3, 8, true));
    const Image whole = read_image(in_folder("a.png"));
    std::vector<std::uint8_t> samples(4 * 40, 99);
    std::vector<std::uint8_t> mask(4 * 9, 77);
    open_rows(in_folder("a.png"))->read_rows(0, 4, {samples.data(), 40, mask.data(), 9});
    for (std::int32_t y = 0; y < 4; ++y) {
        EXPECT_EQ(std::memcmp(samples.data() + 40 * y, whole.row(y), 15), 0);
        EXPECT_EQ(std::count(samples.begin() + 40 * y + 15, samples.begin() + 40 * y + 40, 99), 25);
        EXPECT_EQ(std::count(mask.begin() + 9 * y + 5, mask.begin() + 9 * y + 9, 77), 4);
    }
    open_rows(in_folder("a.png"))->read_rows(1, 2, {samples.data(), 40, nullptr, 0});
    EXPECT_EQ(std::memcmp(samples.data(), whole.row(1), 15), 0) << "without a mask";
}

TEST_F(RowReading, TilesAndStripsOfTiffAreReadWhereTheyAre)
{
    const Image image = test_picture(300, 700, 3, 8, true);
    for (const bool is_tiled : {false, true})
        for (const std::string& compression : tiff_compressions()) {
            WriteOptions options;
            options.is_tiled = is_tiled;
            options.compression = compression_of(compression);
            write_image(in_folder("a.tif"), image, options);
            const auto reader = open_rows(in_folder("a.tif"));
            EXPECT_EQ(reader->is_stored(), !is_tiled && options.compression == compression_of("none"));
            EXPECT_LT(reader->held_bytes(), 256u * 300u * 4u + 1) << "at most a row of tiles";
            for (const std::int32_t first : {600, 250, 0, 520})
                expect_rows(*reader, image, first, 20);
        }
}

TEST_F(RowReading, NumbersInTextGiveTheirRowsInAnyOrder)
{
    write_text("a.pgm", "P2 2 4 255\n10 11\n20 21\n30 31\n40 41\n");
    const auto reader = open_rows(in_folder("a.pgm"));
    EXPECT_FALSE(reader->is_stored()) << "rows begin where the numbers before them end";
    for (const std::int32_t first : {3, 1, 2, 0}) {
        const Image row = rows_from(*reader, first, 1);
        EXPECT_EQ(row.data[0], 10 * (first + 1));
        EXPECT_EQ(row.data[1], 10 * (first + 1) + 1);
    }
}

TEST_F(RowReading, OnlyFilesThatHoldRowsAsTheyAreSaySo)
{
    for (const std::string name : {"a.png", "a.jpg"}) {
        write_image(in_folder(name), test_picture(40, 30, 3, 8));
        EXPECT_FALSE(open_rows(in_folder(name))->is_stored()) << name;
    }
}

void set_rgb_fields(const TiffFile& tiff, std::uint32_t width, std::uint32_t height)
{
    TIFFSetField(tiff.get(), TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tiff.get(), TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(tiff.get(), TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tiff.get(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(tiff.get(), TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
}

TEST_F(RowReading, ACompressedPictureInOneStripComesInOrder)
{
    const Image image = test_picture(2000, 1500, 3, 8);
    {
        const FileHandle file = open_utf8(in_folder("a.tif"), "w+b");
        TiffFile tiff(file.get(), "a.tif", "w");
        set_rgb_fields(tiff, 2000, 1500);
        TIFFSetField(tiff.get(), TIFFTAG_COMPRESSION, COMPRESSION_LZW);
        TIFFSetField(tiff.get(), TIFFTAG_ROWSPERSTRIP, 1500);
        for (std::int32_t y = 0; y < 1500; ++y)
            ASSERT_EQ(TIFFWriteScanline(tiff.get(), const_cast<std::uint8_t*>(image.row(y)),
                                        static_cast<std::uint32_t>(y), 0),
                      1);
        ASSERT_TRUE(tiff.close());
    }
    const auto reader = open_rows(in_folder("a.tif"));
    EXPECT_LT(reader->held_bytes(), 20'000u) << "a few rows all the same";
    for (const std::int32_t first : {0, 700, 705, 100}) // forward, on, and back
        expect_rows(*reader, image, first, 5);
}

TEST_F(RowReading, AStoredPictureHasItsRowsInAnyOrderAndAsFarAsTheFileGoes)
{
    for (const bool has_alpha : {false, true})
        for (const int bits : {8, 16}) {
            const Image image = test_picture(300, 700, 3, bits, has_alpha);
            write_image(in_folder("a.tif"), image);
            const auto reader = open_rows(in_folder("a.tif"));
            ASSERT_TRUE(reader->is_stored());
            for (const std::int32_t first : {600, 0, 100, 0, 63, 699})
                expect_rows(*reader, image, first, std::min(first == 100 ? 600 : 37, 700 - first));
            std::vector<std::uint8_t> samples(image.bytes());
            const Rows tight{samples.data(), image.row_bytes(), nullptr, 0}; // as the file has them
            reader->read_rows(1, 699, tight.from(1));
            EXPECT_EQ(std::memcmp(tight.row(1), image.row(1), 699 * image.row_bytes()), 0);
        }
}

TEST_F(RowReading, StripsMayStandAnywhereInTheFile)
{
    const Image image = test_picture(100, 70, 3, 8);
    for (const std::vector<std::uint32_t>& order :
         {std::vector<std::uint32_t>{0, 1, 2, 3, 4, 5, 6}, {6, 5, 4, 3, 2, 1, 0}, {3, 4, 0, 1, 2, 6, 5}}) {
        {
            const FileHandle file = open_utf8(in_folder("a.tif"), "w+b");
            TiffFile tiff(file.get(), "a.tif", "w");
            set_rgb_fields(tiff, 100, 70);
            TIFFSetField(tiff.get(), TIFFTAG_ROWSPERSTRIP, 10);
            for (const std::uint32_t strip : order)
                ASSERT_EQ(TIFFWriteEncodedStrip(tiff.get(), strip,
                                                const_cast<std::uint8_t*>(image.row(static_cast<int>(10 * strip))),
                                                3000),
                          3000);
            ASSERT_TRUE(tiff.close());
        }
        const auto reader = open_rows(in_folder("a.tif"));
        ASSERT_TRUE(reader->is_stored());
        for (const std::int32_t first : {0, 5, 33, 69})
            expect_rows(*reader, image, first, 70 - first);
    }
}

TEST_F(RowReading, AStoredPictureWithoutItsEndSaysSo)
{
    const Image image = test_picture(300, 700, 3, 8);
    write_image(in_folder("a.tif"), image);
    const auto reader = open_rows(in_folder("a.tif"));
    std::filesystem::resize_file(path_from_utf8(in_folder("a.tif")), 900 * 500); // while it is open
    expect_rows(*reader, image, 0, 400);
    EXPECT_TRUE(contains(error_of([&] { (void)rows_from(*reader, 400, 200); }), "truncated or damaged"));
}

TEST_F(RowReading, ATurnedPictureHasItsRowsAsItIsSeen)
{
    const Image image = test_picture(30, 20, 3, 8);
    for (const int orientation : {3, 6}) {
        {
            const FileHandle file = open_utf8(in_folder("a.tif"), "w+b");
            TiffFile tiff(file.get(), "a.tif", "w");
            set_rgb_fields(tiff, 30, 20);
            TIFFSetField(tiff.get(), TIFFTAG_ORIENTATION, orientation);
            TIFFSetField(tiff.get(), TIFFTAG_ROWSPERSTRIP, 20);
            ASSERT_EQ(TIFFWriteEncodedStrip(tiff.get(), 0, image.data.get(), 1800), 1800);
            ASSERT_TRUE(tiff.close());
        }
        const Image whole = read_image(in_folder("a.tif"));
        const auto reader = open_rows(in_folder("a.tif"));
        EXPECT_EQ(reader->held_bytes(), 2 * whole.bytes()) << "while it is turned";
        EXPECT_EQ(describe(reader->info()), describe(whole));
        for (const std::int32_t first : {13, 0, 5})
            expect_rows(*reader, whole, first, 7);
        std::vector<std::uint8_t> samples(whole.row_bytes());
        reader->read_rows(2, 1, {samples.data(), samples.size(), nullptr, 0});
        EXPECT_EQ(std::memcmp(samples.data(), whole.row(2), samples.size()), 0) << "without a mask";
    }
}

TEST_F(RowReading, ATurnedPictureHasItsMaskAsItIsSeen)
{
    {
        const FileHandle file = open_utf8(in_folder("a.tif"), "w+b");
        TiffFile tiff(file.get(), "a.tif", "w");
        set_rgb_fields(tiff, 30, 20);
        const std::uint16_t alpha = EXTRASAMPLE_UNASSALPHA;
        TIFFSetField(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, 4);
        TIFFSetField(tiff.get(), TIFFTAG_EXTRASAMPLES, 1, &alpha);
        TIFFSetField(tiff.get(), TIFFTAG_ORIENTATION, ORIENTATION_RIGHTTOP);
        TIFFSetField(tiff.get(), TIFFTAG_ROWSPERSTRIP, 20);
        Image samples = test_picture(30 * 4, 20, 1, 8);
        ASSERT_EQ(TIFFWriteEncodedStrip(tiff.get(), 0, samples.data.get(), 2400), 2400);
        ASSERT_TRUE(tiff.close());
    }
    const Image whole = read_image(in_folder("a.tif"));
    ASSERT_TRUE(whole.mask != nullptr);
    const auto reader = open_rows(in_folder("a.tif"));
    EXPECT_EQ(reader->held_bytes(), 2u * 30 * 20 * (3 + 1)) << "twice while it is turned, its mask too";
    for (const std::int32_t first : {13, 0, 5})
        expect_rows(*reader, whole, first, 7);
}

TEST_F(RowReading, APictureWhereZeroIsWhiteIsInvertedInEveryLayout)
{
    const Image image = test_picture(30, 20, 1, 8);
    for (const int compression : {COMPRESSION_NONE, COMPRESSION_LZW}) {
        {
            const FileHandle file = open_utf8(in_folder("a.tif"), "w+b");
            TiffFile tiff(file.get(), "a.tif", "w");
            set_rgb_fields(tiff, 30, 20);
            TIFFSetField(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, 1);
            TIFFSetField(tiff.get(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
            TIFFSetField(tiff.get(), TIFFTAG_COMPRESSION, compression);
            TIFFSetField(tiff.get(), TIFFTAG_ROWSPERSTRIP, 6);
            for (std::uint32_t y = 0; y < 20; ++y)
                ASSERT_EQ(
                    TIFFWriteScanline(tiff.get(), const_cast<std::uint8_t*>(image.row(static_cast<int>(y))), y, 0), 1);
            ASSERT_TRUE(tiff.close());
        }
        const Image rows = rows_from(*open_rows(in_folder("a.tif")), 0, 20);
        for (std::size_t i = 0; i < image.bytes(); ++i)
            ASSERT_EQ(rows.data[i], 255 - image.data[i]) << i << ", compression " << compression;
    }
}

TEST_F(RowReading, SaysWhatItKeeps)
{
    write_image(in_folder("a.png"), test_picture(400, 300, 3, 8));
    EXPECT_EQ(open_rows(in_folder("a.png"))->held_bytes(), 3u * 400 * 3) << "three rows";
    write_image(in_folder("a.jpg"), test_picture(400, 300, 3, 8));
    write_image(in_folder("a.ppm"), test_picture(400, 300, 3, 8));
    EXPECT_LT(open_rows(in_folder("a.jpg"))->held_bytes(), 400u * 300 * 3);
    EXPECT_LT(open_rows(in_folder("a.ppm"))->held_bytes(), 10'000u);
}

TEST_F(RowReading, APictureBeyondTheLibrarysSizesHasItsRows)
{
    // 70000 x 40000 pixels, 2.8 GB, all of them zero: a sparse file.
    const std::string header = "P5\n70000 40000\n255\n";
    write_text("huge.pgm", header);
    std::filesystem::resize_file(path_from_utf8(in_folder("huge.pgm")), header.size() + 2'800'000'000u);
    const auto reader = open_rows(in_folder("huge.pgm"));
    std::vector<std::uint8_t> row(70000, 1);
    reader->read_rows(39'999, 1, {row.data(), row.size(), nullptr, 0});
    EXPECT_EQ(std::count(row.begin(), row.end(), 0), 70000);
    EXPECT_TRUE(contains(error_of([&] { (void)read_image(in_folder("huge.pgm")); }), "at most 2^31 - 1 bytes"));
}

} // namespace

} // namespace panoval::image::test
