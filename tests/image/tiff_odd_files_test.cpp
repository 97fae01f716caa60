// SPDX-License-Identifier: MIT
// TIFF files as no writer of ours makes them, byte for byte: chains of directories, fields that contradict each other,
// samples that are not where they should be.
#include "image/image_read.h"
#include "image/image_write.h"
#include "image/row_reader.h"
#include "tests/image/file_bytes.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>
#include <tiffio.h>

namespace panoval::image::test
{

namespace
{

using Tags = std::vector<std::pair<int, std::uint32_t>>;

// Grey, 1 x 1, its sample in byte 8.
const Tags kPixel = {{256, 1}, {257, 1}, {258, 8}, {259, 1}, {262, 1}, {273, 8}, {278, 1}, {279, 1}};

constexpr std::uint32_t kFirst = 12; // the first directory's place

// A file whose directories each have these tags of one long value, sorted, and name the next; the last one names
// `last`.
std::string chain(const Tags& tags, std::uint32_t count, std::uint32_t last = 0)
{
    std::string file = std::string("II*\0", 4) + little_endian(kFirst, 4) + "x";
    file.resize(kFirst, '\0');
    const auto bytes = static_cast<std::uint32_t>(2 + 12 * tags.size() + 4);
    for (std::uint32_t i = 0; i < count; ++i) {
        file += little_endian(tags.size(), 2);
        for (const auto& [tag, value] : tags)
            file += little_endian(static_cast<std::uint64_t>(tag), 2) + little_endian(4, 2) + little_endian(1, 4) +
                    little_endian(value, 4);
        file += little_endian(i + 1 < count ? kFirst + (i + 1) * bytes : last, 4);
    }
    return file;
}

Tags with(Tags tags, int tag, std::uint32_t value)
{
    for (auto& [other, number] : tags)
        if (other == tag) {
            number = value;
            return tags;
        }
    tags.emplace_back(tag, value);
    std::sort(tags.begin(), tags.end());
    return tags;
}

class OddTiff : public ScratchFolder
{
protected:
    void SetUp() override { TIFFSetErrorHandler(nullptr); }

    std::string probe_error(const std::string& bytes) const
    {
        const std::string name = write_text("odd.tif", bytes);
        return error_of([&] { (void)probe_image(name); });
    }

    std::string read_error(const std::string& bytes, std::size_t layer = 0) const
    {
        const std::string name = write_text("odd.tif", bytes);
        return error_of([&] { (void)read_image(name, layer); });
    }
};

TEST_F(OddTiff, OnePixelIsAPicture)
{
    const Image image = read_image(write_text("odd.tif", chain(kPixel, 1)));
    EXPECT_EQ(describe(image), "1 x 1 pixels, 1 channel, 8 bit");
    EXPECT_EQ(image.data[0], 'x');
}

TEST_F(OddTiff, ACompressionThatIsNotBuiltInIsNoDamage)
{
    const std::string expected =
        "found a TIFF file with the compression number 50005, which this build cannot read; expected another "
        "compression, or none";
    EXPECT_TRUE(contains(probe_error(chain(with(kPixel, 259, 50005), 1)), expected));
    EXPECT_TRUE(contains(read_error(chain(with(kPixel, 259, 50005), 1)), expected));
}

TEST_F(OddTiff, TenThousandLayersAreTheMost)
{
    EXPECT_EQ(probe_error(chain(kPixel, 10000)), "no error");
    EXPECT_TRUE(contains(probe_error(chain(kPixel, 10001)), "found more than 10000 layers; expected fewer"));
}

TEST_F(OddTiff, ThumbnailsWithoutEndAreNotFollowed)
{
    const Tags thumbnail = with(kPixel, 254, 1);
    EXPECT_TRUE(contains(probe_error(chain(thumbnail, 10003)), "found a TIFF file without a full picture"));
}

TEST_F(OddTiff, AChainThatBreaksOffIsDamage)
{
    EXPECT_TRUE(contains(probe_error(chain(kPixel, 2, 0x7FFFFFF0)), "found a truncated or damaged TIFF file ("));
    EXPECT_EQ(read_error(chain(kPixel, 2, 0x7FFFFFF0), 1), "no error") << "the layers before it are there";
}

TEST_F(OddTiff, ALayerBehindWhichOnlyThumbnailsFollowIsTheLast)
{
    std::string file = chain(kPixel, 1);
    const auto place = static_cast<std::uint32_t>(file.size());
    file = chain(kPixel, 1, place);
    const std::string thumbnail = chain(with(kPixel, 254, 1), 1).substr(kFirst);
    EXPECT_TRUE(contains(read_error(file + thumbnail, 1), "found no layer 1; expected a file with that many layers"));
}

TEST_F(OddTiff, StripsOfNoRowsAreRefused)
{
    EXPECT_TRUE(contains(read_error(chain(with(kPixel, 278, 0), 1)), "odd.tif: found "));
}

TEST_F(OddTiff, ATileTallerThanAnyIsRefused)
{
    const Tags tiled = {{256, 16}, {257, 16},    {258, 8}, {259, 1}, {262, 1},
                        {322, 16}, {323, 65552}, {324, 8}, {325, 1}};
    EXPECT_TRUE(contains(read_error(chain(tiled, 1)), "found a truncated or damaged TIFF file"));
}

TEST_F(OddTiff, TilesWithoutColumnsOrRowsAreRefused)
{
    for (const int side : {322, 323}) {
        const Tags tiled = {{256, 16}, {257, 16}, {258, 8}, {259, 1}, {262, 1},
                            {322, 16}, {323, 16}, {324, 8}, {325, 1}};
        EXPECT_TRUE(contains(read_error(chain(with(tiled, side, 0), 1)), "odd.tif: found ")) << side;
    }
}

TEST_F(OddTiff, AnExifDirectoryThatIsNotThereIsLeftOut)
{
    const Image image = read_image(write_text("odd.tif", chain(with(kPixel, 34665, 0x7FFFFFF0), 1)));
    EXPECT_TRUE(image.metadata.exif.is_empty());
    EXPECT_EQ(image.data[0], 'x');
}

TEST_F(OddTiff, AStripBeyondAnyFileIsDamage)
{
    TIFF* const tiff = TIFFOpen(in_folder("big.tif").c_str(), "w8");
    const Image image = test_picture(5, 4, 1, 8);
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, 5);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, 4);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 4);
    TIFFWriteEncodedStrip(tiff, 0, image.data.get(), 20);
    TIFFClose(tiff);
    std::string bytes = read_text("big.tif");
    const std::size_t entry = bytes.find(std::string("\x11\x01\x10\x00\x01\x00\x00\x00\x00\x00\x00\x00", 12));
    ASSERT_NE(entry, std::string::npos) << "places of strips of 64 bits";
    expect_same_picture(read_image(in_folder("big.tif")), image);
    bytes.replace(entry + 12, 8, little_endian(std::uint64_t{0x7000000000000000u}, 8));
    EXPECT_TRUE(contains(read_error(bytes), "found a truncated or damaged TIFF file"));
}

TEST_F(OddTiff, ADamagedTileIsExplained)
{
    WriteOptions options;
    options.is_tiled = true;
    options.compression = Compression::Deflate;
    write_image(in_folder("a.tif"), test_picture(40, 30, 3, 8), options);
    std::string bytes = read_text("a.tif");
    bytes.replace(8, 64, 64, '\xFF'); // the first tile follows the header
    EXPECT_TRUE(contains(read_error(bytes), "found a truncated or damaged TIFF file"));
}

TEST_F(OddTiff, OnePlaneOfItsOwnIsAPlainPicture)
{
    const Image image = read_image(write_text("odd.tif", chain(with(kPixel, 284, 2), 1)));
    EXPECT_EQ(image.data[0], 'x');
}

TEST_F(OddTiff, BitsInTheOtherOrderAreTurned)
{
    const auto reader = open_rows(write_text("odd.tif", chain(with(kPixel, 266, 2), 1)));
    EXPECT_FALSE(reader->is_stored());
    std::uint8_t sample = 0;
    reader->read_rows(0, 1, {&sample, 1, nullptr, 0});
    EXPECT_EQ(sample, 0x1E) << "'x' is 0x78";
}

TEST_F(OddTiff, RowsMayBeAskedForWithRoomBetweenThem)
{
    const Image image = test_picture(7, 5, 3, 8);
    write_image(in_folder("a.tif"), image);
    std::vector<std::uint8_t> samples(5 * 30, 99);
    open_rows(in_folder("a.tif"))->read_rows(0, 5, {samples.data(), 30, nullptr, 0});
    for (std::int32_t y = 0; y < 5; ++y) {
        EXPECT_EQ(std::memcmp(samples.data() + 30 * y, image.row(y), 21), 0);
        EXPECT_EQ(std::count(samples.begin() + 30 * y + 21, samples.begin() + 30 * y + 30, 99), 9);
    }
}

// What a camera leaves out is left out in the file, too.
TEST_F(OddTiff, EachNoteOfAShotIsKeptAlone)
{
    Exif exposure, aperture, iso, date, maker;
    exposure.exposure_seconds = Rational{1, 60};
    aperture.f_number = Rational{28, 10};
    iso.iso = 70000;
    date.date = "2001:01:01 00:00:00";
    maker.make = "Maker";
    for (const Exif& exif : {exposure, aperture, iso, date, maker}) {
        Image image = test_picture(4, 3, 3, 8);
        image.metadata.exif = exif;
        write_image(in_folder("a.tif"), image);
        Exif expected = exif;
        if (expected.iso)
            expected.iso = 65535; // the field has 16 bits
        EXPECT_EQ(read_image(in_folder("a.tif")).metadata.exif, expected);
    }
}

TEST_F(OddTiff, APlaceLeftOrAboveTheOriginIsLeftOut)
{
    for (const auto& [x, y] : {std::pair{-1, 5}, {5, -1}, {-2, -3}}) {
        Image image = test_picture(4, 3, 3, 8);
        image.position = Offset{x, y};
        write_image(in_folder("a.tif"), image);
        EXPECT_EQ(read_image(in_folder("a.tif")).position, std::nullopt) << x << ", " << y;
    }
}

TEST_F(OddTiff, ASmallPictureHasNoPyramid)
{
    WriteOptions options;
    options.has_pyramid = true;
    const Image image = test_picture(256, 256, 1, 8);
    write_image(in_folder("a.tif"), image, options);
    TIFF* const tiff = TIFFOpen(in_folder("a.tif").c_str(), "r");
    EXPECT_EQ(TIFFNumberOfDirectories(tiff), 1);
    TIFFClose(tiff);
    expect_same_picture(read_image(in_folder("a.tif")), image);
}

} // namespace

} // namespace panoval::image::test
