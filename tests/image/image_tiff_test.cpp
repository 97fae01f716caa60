// SPDX-License-Identifier: MIT
#include "image/image_read.h"
#include "image/image_write.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>
#include <tiffio.h>

#include <functional>

namespace panoval::image::test
{

namespace
{

using SetTags = std::function<void(TIFF*)>;

class TiffPicture : public ScratchFolder
{
protected:
    void SetUp() override { TIFFSetErrorHandler(nullptr); }

    std::string name() const { return in_folder("a.tif"); }

    // Adds a picture of these interleaved samples to the file, in one strip unless tags say otherwise.
    void append(const Image& image, const SetTags& set_tags, const char* mode = "a")
    {
        TIFF* const tiff = TIFFOpen(name().c_str(), mode);
        const int samples = image.channels + (image.mask != nullptr ? 1 : 0);
        TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, image.width);
        TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, image.height);
        TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, samples);
        TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, image.bits);
        TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, image.channels == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
        TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, image.height);
        if (image.mask != nullptr)
            set_alpha(tiff, EXTRASAMPLE_UNASSALPHA);
        if (set_tags)
            set_tags(tiff);
        write_samples(tiff, image, samples);
        TIFFWriteDirectory(tiff);
        TIFFClose(tiff);
    }

    static void set_alpha(TIFF* tiff, std::uint16_t kind) { TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &kind); }

    static SetTags position(float x, float y, float resolution)
    {
        return [=](TIFF* tiff) {
            TIFFSetField(tiff, TIFFTAG_XRESOLUTION, static_cast<double>(resolution));
            TIFFSetField(tiff, TIFFTAG_YRESOLUTION, static_cast<double>(resolution));
            TIFFSetField(tiff, TIFFTAG_XPOSITION, static_cast<double>(x));
            TIFFSetField(tiff, TIFFTAG_YPOSITION, static_cast<double>(y));
        };
    }

private:
    // Sample s of pixel (x, y); 0 outside.
    static void copy_sample(const Image& image, std::int64_t x, std::int64_t y, int s, std::uint8_t* to)
    {
        const std::size_t size = image.sample_bytes();
        std::memset(to, 0, size);
        if (x >= image.width || y >= image.height)
            return;
        const auto pixel = static_cast<std::size_t>(y * image.width + x);
        if (s < image.channels)
            std::memcpy(to,
                        image.data.get() +
                            (pixel * static_cast<std::size_t>(image.channels) + static_cast<std::size_t>(s)) * size,
                        size);
        else
            std::memset(to, image.mask[pixel], size);
    }

    static void write_samples(TIFF* tiff, const Image& image, int samples)
    {
        std::uint16_t planar = PLANARCONFIG_CONTIG;
        TIFFGetField(tiff, TIFFTAG_PLANARCONFIG, &planar);
        const bool is_separate = planar == PLANARCONFIG_SEPARATE;
        std::uint32_t width = static_cast<std::uint32_t>(image.width);
        std::uint32_t height = static_cast<std::uint32_t>(image.height);
        if (TIFFIsTiled(tiff)) {
            TIFFGetField(tiff, TIFFTAG_TILEWIDTH, &width);
            TIFFGetField(tiff, TIFFTAG_TILELENGTH, &height);
        } else {
            TIFFGetField(tiff, TIFFTAG_ROWSPERSTRIP, &height);
        }
        std::uint32_t index = 0;
        for (int plane = 0; plane < (is_separate ? samples : 1); ++plane)
            for (std::int64_t top = 0; top < image.height; top += height)
                for (std::int64_t left = 0; left < image.width; left += width) {
                    std::vector<std::uint8_t> block;
                    const std::int64_t rows =
                        TIFFIsTiled(tiff) ? height : std::min<std::int64_t>(height, image.height - top);
                    for (std::int64_t y = top; y < top + rows; ++y)
                        for (std::int64_t x = left; x < left + width; ++x)
                            for (int s = is_separate ? plane : 0; s < (is_separate ? plane + 1 : samples); ++s) {
                                block.resize(block.size() + image.sample_bytes());
                                copy_sample(image, x, y, s, block.data() + block.size() - image.sample_bytes());
                            }
                    if (TIFFIsTiled(tiff))
                        TIFFWriteEncodedTile(tiff, index++, block.data(), static_cast<tmsize_t>(block.size()));
                    else
                        TIFFWriteEncodedStrip(tiff, index++, block.data(), static_cast<tmsize_t>(block.size()));
                }
    }
};

TEST_F(TiffPicture, KeepsEverySampleOfEveryFormat)
{
    for (const int bits : {8, 16})
        for (const int channels : {1, 3})
            for (const bool has_mask : {false, true}) {
                const Image image = test_picture(37, 23, channels, bits, has_mask);
                write_image(in_folder("own.tiff"), image);
                expect_same_picture(read_image(in_folder("own.tiff")), image);
                EXPECT_EQ(describe(probe_image(in_folder("own.tiff")).at(0)), describe(image));
            }
}

TEST_F(TiffPicture, TilesStripsAndPlanesAreTheSamePicture)
{
    const SetTags tiled = [](TIFF* tiff) {
        TIFFSetField(tiff, TIFFTAG_TILEWIDTH, 16);
        TIFFSetField(tiff, TIFFTAG_TILELENGTH, 32);
    };
    const SetTags strips = [](TIFF* tiff) { TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 7); };
    for (const bool is_separate : {false, true})
        for (const auto& layout : {tiled, strips})
            for (const int compression : {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE})
                for (const int bits : {8, 16})
                    for (const int channels : {1, 3}) {
                        const Image image = test_picture(35, 41, channels, bits, true);
                        append(
                            image,
                            [&](TIFF* tiff) {
                                TIFFSetField(tiff, TIFFTAG_COMPRESSION, compression);
                                if (is_separate)
                                    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE);
                                layout(tiff);
                            },
                            "w");
                        expect_same_picture(read_image(name()), image);
                    }
}

TEST_F(TiffPicture, BothByteOrdersAndBigFilesAreRead)
{
    const Image image = test_picture(9, 7, 3, 16);
    for (const char* mode : {"wl", "wb", "w8"}) {
        append(image, {}, mode);
        expect_same_picture(read_image(name()), image);
    }
}

TEST_F(TiffPicture, PositionTagsGiveTheOffsetInPixels)
{
    append(test_picture(4, 3, 3, 8), position(8.24f, 1.5f, 150.f), "w");
    const Offset expected{1236, 225};
    EXPECT_EQ(probe_image(name()).at(0).position, expected);
    EXPECT_EQ(read_image(name()).position, expected);
}

TEST_F(TiffPicture, WithoutTagsThereIsNoPosition)
{
    append(test_picture(4, 3, 3, 8), {}, "w");
    EXPECT_FALSE(probe_image(name()).at(0).position.has_value());
    append(
        test_picture(4, 3, 3, 8), [](TIFF* tiff) { TIFFSetField(tiff, TIFFTAG_XPOSITION, 3.0); }, "w");
    EXPECT_FALSE(probe_image(name()).at(0).position.has_value()) << "a position without resolution means nothing";
    append(
        test_picture(4, 3, 3, 8),
        [](TIFF* tiff) {
            TIFFSetField(tiff, TIFFTAG_XPOSITION, 0.0);
            TIFFSetField(tiff, TIFFTAG_YPOSITION, 0.0);
        },
        "w");
    EXPECT_EQ(probe_image(name()).at(0).position, (Offset{0, 0}));
}

TEST_F(TiffPicture, PlacesThatMeanNothingAreLeftOut)
{
    const auto position_of = [&](const SetTags& set_tags) {
        append(test_picture(4, 3, 3, 8), set_tags, "w");
        return probe_image(name()).at(0).position;
    };
    EXPECT_EQ(position_of(position(2.f, 0.f, 10.f)), (Offset{20, 0}));
    EXPECT_EQ(position_of([](TIFF* tiff) { TIFFSetField(tiff, TIFFTAG_YPOSITION, 3.0); }), std::nullopt);
    EXPECT_EQ(position_of(position(3e9f, 0.f, 10.f)), std::nullopt) << "farther than any canvas";
    EXPECT_EQ(position_of(position(0.f, 3e9f, 10.f)), std::nullopt);
}

TEST_F(TiffPicture, ResolutionsAreThoseOfAnInch)
{
    const auto resolution_of = [&](double x, double y, int unit) {
        append(
            test_picture(4, 3, 3, 8),
            [=](TIFF* tiff) {
                TIFFSetField(tiff, TIFFTAG_XRESOLUTION, x);
                TIFFSetField(tiff, TIFFTAG_YRESOLUTION, y);
                TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, unit);
            },
            "w");
        return read_image(name()).metadata.resolution;
    };
    EXPECT_EQ(resolution_of(300, 150, RESUNIT_INCH), (Resolution{300, 150}));
    EXPECT_EQ(resolution_of(100, 50, RESUNIT_CENTIMETER), (Resolution{254, 127}));
    EXPECT_EQ(resolution_of(300, 150, RESUNIT_NONE), std::nullopt) << "a shape of pixels alone";
    EXPECT_EQ(resolution_of(0, 150, RESUNIT_INCH), std::nullopt);
    EXPECT_EQ(resolution_of(300, 0, RESUNIT_INCH), std::nullopt);
}

TEST_F(TiffPicture, ExposuresAboveASecondAreKept)
{
    Image image = test_picture(4, 3, 3, 8);
    image.metadata.exif.exposure_seconds = Rational{5, 2};
    image.metadata.exif.f_number = Rational{3, 10};
    write_image(name(), image);
    EXPECT_EQ(read_image(name()).metadata.exif.exposure_seconds, (Rational{2500, 1000}));
    EXPECT_EQ(read_image(name()).metadata.exif.f_number, (Rational{300, 1000})) << "no part of a whole";
    for (const Rational& odd : {Rational{4000000000, 1}, Rational{1, 4294967295}}) {
        image.metadata.exif.exposure_seconds = odd;
        write_image(name(), image);
        EXPECT_EQ(read_image(name()).metadata.exif.exposure_seconds, std::nullopt);
    }
}

TEST_F(TiffPicture, JpegInsideIsReadAsColour)
{
    Image image = make_image(32, 16, 3, 8, "test");
    for (std::size_t i = 0; i < image.bytes(); ++i)
        image.data[i] = static_cast<std::uint8_t>(60 + 60 * (i % 3));
    append(
        image,
        [](TIFF* tiff) {
            TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_JPEG);
            TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_YCBCR);
            TIFFSetField(tiff, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
        },
        "w");
    const Image read = read_image(name());
    ASSERT_EQ(describe(read), describe(image));
    for (std::size_t i = 0; i < image.bytes(); ++i)
        ASSERT_NEAR(read.data[i], image.data[i], 3) << i;
}

TEST_F(TiffPicture, AFileOfThumbnailsAloneHasNoPicture)
{
    const SetTags reduced = [](TIFF* tiff) { TIFFSetField(tiff, TIFFTAG_SUBFILETYPE, FILETYPE_REDUCEDIMAGE); };
    append(test_picture(2, 2, 3, 8), reduced, "w");
    append(test_picture(2, 2, 3, 8), reduced);
    EXPECT_EQ(error_of([&] { (void)probe_image(name()); }),
              name() + ": found a TIFF file without a full picture; expected at least one");
    EXPECT_TRUE(contains(error_of([&] { (void)read_image(name()); }), "a.tif: found "));
}

TEST_F(TiffPicture, EveryPageIsALayerExceptThumbnails)
{
    append(test_picture(4, 3, 3, 8), position(0.f, 0.f, 100.f), "w");
    append(test_picture(2, 2, 3, 8),
           [](TIFF* tiff) { TIFFSetField(tiff, TIFFTAG_SUBFILETYPE, FILETYPE_REDUCEDIMAGE); });
    append(test_picture(5, 6, 3, 8, true), position(0.5f, 1.f, 100.f));
    const auto layers = probe_image(name());
    ASSERT_EQ(layers.size(), 2u);
    EXPECT_EQ(layers[1].position, (Offset{50, 100}));
    expect_same_picture(read_image(name(), 0), test_picture(4, 3, 3, 8));
    expect_same_picture(read_image(name(), 1), test_picture(5, 6, 3, 8, true));
    EXPECT_TRUE(contains(error_of([&] { (void)read_image(name(), 2); }), "found no layer 2"));
}

TEST_F(TiffPicture, AssociatedAlphaIsDividedOutAndUnassociatedIsNot)
{
    Image image = test_picture(2, 1, 1, 8);
    ensure_mask(image, "test");
    image.data[0] = 60;
    image.mask[0] = 120;
    image.data[1] = 60;
    image.mask[1] = 255;
    append(
        image, [](TIFF* tiff) { set_alpha(tiff, EXTRASAMPLE_ASSOCALPHA); }, "w");
    EXPECT_EQ(read_image(name()).data[0], 128);
    EXPECT_EQ(read_image(name()).data[1], 60);
    EXPECT_EQ(read_image(name()).mask[0], 120);
    append(image, {}, "w");
    EXPECT_EQ(read_image(name()).data[0], 60);
}

TEST_F(TiffPicture, AssociatedAlphaOf16BitsIsDividedOut)
{
    Image image = test_picture(2, 1, 1, 16);
    ensure_mask(image, "test");
    const std::uint16_t stored[] = {6000, 6000};
    std::memcpy(image.data.get(), stored, sizeof stored);
    image.mask[0] = 120; // of 65535 it is 30840
    image.mask[1] = 255;
    append(
        image, [](TIFF* tiff) { set_alpha(tiff, EXTRASAMPLE_ASSOCALPHA); }, "w");
    const Image back = read_image(name());
    std::uint16_t samples[2];
    std::memcpy(samples, back.data.get(), sizeof samples);
    EXPECT_EQ(samples[0], 12750);
    EXPECT_EQ(samples[1], 6000);
    EXPECT_EQ(back.mask[0], 120);
}

TEST_F(TiffPicture, OrientationIsApplied)
{
    const Image image = test_picture(3, 2, 3, 8);
    append(
        image, [](TIFF* tiff) { TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_RIGHTTOP); }, "w");
    EXPECT_EQ(probe_image(name()).at(0).width, 2);
    const Image read = read_image(name());
    EXPECT_EQ(read.width, 2);
    EXPECT_EQ(read.height, 3);
    EXPECT_EQ(std::memcmp(read.row(0) + 3, image.row(0), 3), 0) << "the first pixel is seen at the top right";
}

TEST_F(TiffPicture, WhereZeroIsWhiteTheSamplesAreInverted)
{
    const Image image = test_picture(3, 2, 1, 16);
    append(
        image, [](TIFF* tiff) { TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE); }, "w");
    EXPECT_EQ(read_image(name()).data[3], 255 - image.data[3]);
}

TEST_F(TiffPicture, OtherKindsOfSamplesAreNamed)
{
    const Image image = test_picture(4, 4, 3, 16);
    const auto error = [&](const SetTags& set_tags) {
        append(image, set_tags, "w");
        return error_of([&] { (void)probe_image(name()); });
    };
    const auto set = [](std::uint32_t tag, int value) { return [=](TIFF* tiff) { TIFFSetField(tiff, tag, value); }; };
    EXPECT_TRUE(contains(error(set(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_INT)), "found TIFF samples of 16 bit, signed"));
    EXPECT_TRUE(contains(error(set(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_IEEEFP)), "16 bit, floating; expected whole"));
    EXPECT_TRUE(contains(error(set(TIFFTAG_BITSPERSAMPLE, 32)), "found TIFF samples of 32 bit"));
    EXPECT_TRUE(contains(error(set(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_CIELAB)), "found a TIFF file with L*a*b* samples"));
    EXPECT_TRUE(contains(error(set(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_COMPLEXINT)), "found TIFF samples of 16 bit; "));
    const std::pair<int, const char*> kinds[] = {{PHOTOMETRIC_SEPARATED, "CMYK or other inks"},
                                                 {PHOTOMETRIC_YCBCR, "YCbCr samples"},
                                                 {PHOTOMETRIC_ICCLAB, "L*a*b* samples"},
                                                 {PHOTOMETRIC_ITULAB, "L*a*b* samples"},
                                                 {PHOTOMETRIC_MASK, "the photometric interpretation 4"}};
    for (const auto& [kind, words] : kinds)
        EXPECT_TRUE(contains(error(set(TIFFTAG_PHOTOMETRIC, kind)), concat("found a TIFF file with ", words))) << words;
    EXPECT_TRUE(contains(error(set(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK)), "found 3 samples a pixel"));
    append(
        test_picture(4, 4, 1, 8),
        [](TIFF* tiff) {
            std::vector<std::uint16_t> levels(256);
            TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_PALETTE);
            TIFFSetField(tiff, TIFFTAG_COLORMAP, levels.data(), levels.data(), levels.data());
        },
        "w");
    EXPECT_TRUE(contains(error_of([&] { (void)probe_image(name()); }), "found a TIFF file with a palette; expected"));
    EXPECT_EQ(error(set(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_VOID)), "no error") << "of no known kind: taken as they are";
}

TEST_F(TiffPicture, OversizedPicturesAreRefusedByTheirTags)
{
    append(test_picture(4, 4, 3, 8), {}, "wl");
    std::string bytes = read_text("a.tif");
    const std::string width("\x00\x01\x03\x00\x01\x00\x00\x00\x04\x00\x00\x00", 12); // tag, short, one, 4
    const std::size_t at = bytes.find(width);
    ASSERT_NE(at, std::string::npos);
    bytes.replace(at + 2, 1, "\x04"); // long
    bytes.replace(at + 8, 4, std::string("\x00\xCA\x9A\x3B", 4));
    const std::string file = write_text("huge.tif", bytes);
    EXPECT_EQ(error_of([&] { (void)read_image(file); }),
              file + ": found a picture of 1000000000 x 4 pixels with 3 x 8 bit; expected at most 2^31 - 1 bytes of "
                     "samples");
}

TEST_F(TiffPicture, EveryTruncationIsExplained)
{
    append(test_picture(9, 9, 3, 16, true), {}, "w");
    const std::string whole = read_text("a.tif");
    for (std::size_t size = 4; size < whole.size(); size += 13) {
        const std::string cut = write_text("cut.tif", whole.substr(0, size));
        const std::string error = error_of([&] { (void)read_image(cut); });
        EXPECT_EQ(error.substr(0, cut.size()), cut) << size << ": " << error;
    }
}

TEST_F(TiffPicture, AnyDamageIsEitherReadOrExplained)
{
    append(test_picture(6, 5, 3, 8, true), position(1.f, 2.f, 10.f), "w");
    const std::string whole = read_text("a.tif");
    std::size_t explained = 0;
    for (std::size_t i = 0; i < whole.size(); ++i)
        for (const char change : {'\0', '\1', '\x7F', '\xFF'}) {
            std::string damaged = whole;
            damaged[i] = change;
            const std::string file = write_text("damaged.tif", damaged);
            explained += error_of([&] { (void)read_image(file); }) != "no error";
        }
    EXPECT_GT(explained, 50u);
}

} // namespace

} // namespace panoval::image::test
