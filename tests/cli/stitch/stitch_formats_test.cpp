// SPDX-License-Identifier: MIT
// panoval stitch on PNG, TIFF and JPEG files, and on a scene whose truth is known.
#include "image/image_read.h"
#include "image/image_write.h"
#include "tests/cli/run_program.h"
#include "tests/support/colour_profile.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace panoval::cli::test
{

namespace
{

using Json = nlohmann::json;

class StitchFormats : public ScratchFolder
{
protected:
    Json stitch(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "stitch");
        arguments.push_back("--json");
        const Outcome outcome = run_panoval(arguments);
        EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
        return outcome.exit_code == 0 ? Json::parse(outcome.out) : Json();
    }

    // A layer of one colour with alpha.
    void append_layer(const std::string& name, std::uint32_t width, std::uint32_t height, const std::uint8_t* pixel,
                      double x, double y, bool is_associated)
    {
        append_layer(name, width, height, x, y, is_associated, [pixel](std::uint32_t, std::uint32_t) {
            return std::array<std::uint8_t, 4>{pixel[0], pixel[1], pixel[2], pixel[3]};
        });
    }

    // A layer as remapping programs write it. pixel_at(x, y) gives what is stored in the layer's pixel.
    template <class PixelAt>
    void append_layer(const std::string& name, std::uint32_t width, std::uint32_t height, double x, double y,
                      bool is_associated, const PixelAt& pixel_at)
    {
        TIFF* const tiff = TIFFOpen(in_folder(name).c_str(), "a");
        const std::uint16_t kind = is_associated ? EXTRASAMPLE_ASSOCALPHA : EXTRASAMPLE_UNASSALPHA;
        TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width);
        TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height);
        TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 4);
        TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
        TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
        TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &kind);
        TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 3);
        TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
        TIFFSetField(tiff, TIFFTAG_XRESOLUTION, 150.);
        TIFFSetField(tiff, TIFFTAG_YRESOLUTION, 150.);
        TIFFSetField(tiff, TIFFTAG_XPOSITION, x / 150.);
        TIFFSetField(tiff, TIFFTAG_YPOSITION, y / 150.);
        std::vector<std::array<std::uint8_t, 4>> row(width);
        for (std::uint32_t line = 0; line < height; ++line) {
            for (std::uint32_t column = 0; column < width; ++column)
                row[column] = pixel_at(column, line);
            TIFFWriteScanline(tiff, row.data(), line, 0);
        }
        TIFFClose(tiff);
    }
};

TEST_F(StitchFormats, AllFormatsGiveTheSamePanorama)
{
    const Image left = test_picture(40, 30, 3, 8, true);
    const Image right = test_picture(36, 28, 3, 8, true);
    Image expected;
    for (const char* format : {"png", "tif", "pam"}) {
        write_image(in_folder(concat("l.", format)), left);
        write_image(in_folder(concat("r.", format)), right);
        const std::string out = in_folder(concat("out-", format, ".", format));
        stitch({"-o", out, "--alpha", in_folder(concat("l.", format)) + "@0,0",
                in_folder(concat("r.", format)) + "@21,-4"});
        Image panorama = read_image(out);
        if (expected.data == nullptr)
            expected = std::move(panorama);
        else
            expect_same_picture(panorama, expected);
    }
}

TEST_F(StitchFormats, LayersOfOneTiffFindTheirPlaces)
{
    for (const bool is_associated : {false, true}) {
        const std::string name = concat("layers", is_associated, ".tif");
        const std::uint8_t dark[4] = {50, 60, 70, 255};
        const std::uint8_t bright[4] = {200, 100, 150, 255};
        append_layer(name, 40, 20, dark, 100, 30, is_associated);
        append_layer(name, 40, 20, bright, 130, 35, is_associated);
        const Json json = stitch({"-o", in_folder("out.png"), in_folder(name), "--blend", "feather", "--no-gain"});
        EXPECT_EQ(json["images"], 2);
        EXPECT_EQ(json["x"], 100);
        EXPECT_EQ(json["y"], 30);
        const Image panorama = read_image(in_folder("out.png"));
        EXPECT_EQ(panorama.width, 70);
        EXPECT_EQ(panorama.height, 25);
        EXPECT_EQ(panorama.row(10)[0], 50);
        EXPECT_EQ(panorama.row(10)[3 * 69], 200);
        EXPECT_EQ(stitch({"-o", in_folder("out.png"), in_folder(name) + "@-100,0"})["x"], 0) << "moved together";
    }
}

TEST_F(StitchFormats, ALayeredTiffIsALayout)
{
    const std::uint8_t pixel[4] = {50, 60, 70, 255};
    append_layer("layers.tif", 40, 20, pixel, 100, 30, false);
    append_layer("layers.tif", 40, 20, pixel, 130, 35, false);
    const Json json = stitch({"-o", in_folder("out.png"), "--layout", in_folder("layers.tif")});
    EXPECT_EQ(json["images"], 2);
    EXPECT_EQ(json["width"], 70);
    const Image placed = read_image(in_folder("out.png"));
    stitch({"-o", in_folder("again.png"), in_folder("layers.tif")});
    expect_same_picture(read_image(in_folder("again.png")), placed);
    write_image(in_folder("plain.png"), test_picture(8, 8, 3, 8));
    const Outcome outcome = run_panoval({"stitch", "-o", in_folder("no.png"), "--layout", in_folder("plain.png")});
    EXPECT_EQ(outcome.exit_code, 3);
    EXPECT_TRUE(contains(outcome.err, "plain.png: found no position in the file")) << outcome.err;
}

// A remapped view: a disc of the canvas with a soft rim, on which every view shows the same.
struct RemappedView {
    int x, y, radius;

    int alpha_at(int u, int v) const
    {
        return static_cast<int>(std::clamp(std::lround(100 * (radius - std::hypot(u - x, v - y))), 0l, 255l));
    }
};

constexpr int kRemappedWidth = 120;
constexpr int kRemappedHeight = 60;
constexpr RemappedView kRemappedViews[] = {{32, 30, 27}, {60, 29, 28}, {88, 31, 27}};

int remapped_scene(int u, int v, int channel)
{
    return 40 + u + v / 2 + 30 * channel;
}

std::array<std::uint8_t, 4> stored_pixel(const RemappedView& view, int u, int v, bool is_associated)
{
    const int alpha = view.alpha_at(u, v);
    std::array<std::uint8_t, 4> pixel = {0, 0, 0, static_cast<std::uint8_t>(alpha)};
    for (std::size_t c = 0; c < 3 && alpha != 0; ++c) {
        const double factor = is_associated ? alpha / 255.0 : 1;
        pixel[c] = static_cast<std::uint8_t>(factor * remapped_scene(u, v, static_cast<int>(c)) + 0.5);
    }
    return pixel;
}

// The largest difference from the scene where a view covers it fully. The alpha is that of the views.
int worst_difference(const Image& panorama, int left, int top)
{
    int worst = 0;
    for (int y = 0; y < panorama.height; ++y)
        for (int x = 0; x < panorama.width; ++x) {
            int alpha = 0;
            for (const RemappedView& view : kRemappedViews)
                alpha = std::max(alpha, view.alpha_at(x + left, y + top));
            EXPECT_EQ(panorama.mask[static_cast<std::size_t>(y * panorama.width + x)], alpha) << x << ", " << y;
            for (int c = 0; c < 3 && alpha == 255; ++c)
                worst = std::max(worst, std::abs(panorama.row(y)[3 * x + c] - remapped_scene(x + left, y + top, c)));
        }
    return worst;
}

// Cropped layers have the size of what they show, uncropped ones the size of the canvas.
TEST_F(StitchFormats, RemappedLayersGiveOnePanoramaInEveryKindOfFile)
{
    for (const bool is_cropped : {true, false})
        for (const bool is_associated : {true, false}) {
            const std::string name = concat(is_cropped ? "cropped-" : "uncropped-", is_associated, ".tif");
            for (const RemappedView& view : kRemappedViews) {
                const int left = is_cropped ? view.x - view.radius : 0;
                const int top = is_cropped ? view.y - view.radius : 0;
                const int side = 2 * view.radius + 1;
                append_layer(name, static_cast<std::uint32_t>(is_cropped ? side : kRemappedWidth),
                             static_cast<std::uint32_t>(is_cropped ? side : kRemappedHeight), left, top, is_associated,
                             [&](std::uint32_t x, std::uint32_t y) {
                                 return stored_pixel(view, left + static_cast<int>(x), top + static_cast<int>(y),
                                                     is_associated);
                             });
            }
            for (const std::string blend : {"feather", "multiband"}) {
                const Json json = stitch({"-o", in_folder("out.png"), "--alpha", "--no-gain", "--blend", blend,
                                          "--seams", "none", "--layout", in_folder(name)});
                EXPECT_EQ(json["x"], is_cropped ? 5 : 0);
                EXPECT_EQ(json["width"], is_cropped ? 111 : kRemappedWidth);
                const int worst = worst_difference(read_image(in_folder("out.png")), json["x"], json["y"]);
                // Colours multiplied with a faint alpha are coarse.
                EXPECT_LE(worst, is_associated ? 2 : 1) << name << ", " << blend;
            }
        }
}

TEST_F(StitchFormats, OtherCommandsTakeTheFirstOfSeveralLayers)
{
    const std::uint8_t dark[4] = {50, 50, 50, 255};
    const std::uint8_t bright[4] = {200, 200, 200, 255};
    append_layer("two.tif", 40, 20, dark, 0, 0, false);
    append_layer("two.tif", 30, 10, bright, 0, 0, false);
    const Outcome outcome = run_panoval({"smooth", in_folder("two.tif"), "-o", in_folder("out.png")});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    const Image smooth = read_image(in_folder("out.png"));
    EXPECT_EQ(smooth.width, 40);
    EXPECT_EQ(smooth.row(10)[20], 50);
}

TEST_F(StitchFormats, OneMaskForSeveralLayersIsRefused)
{
    const std::uint8_t pixel[4] = {50, 60, 70, 255};
    append_layer("two.tif", 8, 8, pixel, 0, 0, false);
    append_layer("two.tif", 8, 8, pixel, 4, 0, false);
    write_image(in_folder("m.png"), test_picture(8, 8, 1, 8));
    const Outcome outcome =
        run_panoval({"stitch", "-o", in_folder("out.png"), in_folder("two.tif") + "@0,0:" + in_folder("m.png")});
    EXPECT_EQ(outcome.exit_code, 3);
    EXPECT_TRUE(contains(outcome.err, "found one mask for a file of several layers")) << outcome.err;
}

TEST_F(StitchFormats, JpegHolds8BitsWhateverThePicturesHave)
{
    write_image(in_folder("a.png"), test_picture(16, 16, 3, 16));
    EXPECT_EQ(stitch({"-o", in_folder("out.jpg"), in_folder("a.png") + "@0,0"})["bits"], 8);
    const Outcome outcome =
        run_panoval({"stitch", "-o", in_folder("out2.jpg"), in_folder("a.png") + "@0,0", "--depth", "16"});
    EXPECT_EQ(outcome.exit_code, 4);
    EXPECT_TRUE(contains(outcome.err, "found 16 bits for a JPEG file; expected 8 (--depth 8), or another ending"));
    EXPECT_EQ(stitch({"-o", in_folder("again.png"), in_folder("out.jpg") + "@0,0"})["channels"], 3);
}

TEST_F(StitchFormats, OptionsOfOtherFormatsAreRefused)
{
    write_image(in_folder("a.png"), test_picture(16, 16, 3, 8));
    const auto refusal = [&](std::vector<std::string> options, const std::string& output) {
        std::vector<std::string> command = {"stitch", "-o", in_folder(output), in_folder("a.png") + "@0,0"};
        command.insert(command.end(), options.begin(), options.end());
        const Outcome outcome = run_panoval(command);
        EXPECT_EQ(outcome.exit_code == 2, !file_exists(in_folder(output))) << outcome.err;
        return outcome.exit_code == 2 ? outcome.err : std::string();
    };
    EXPECT_TRUE(
        contains(refusal({"--compression", "lzw"}, "1.png"), "1.png; expected it with .tif, .tiff or .zarr alone"));
    EXPECT_TRUE(contains(refusal({"--quality", "50"}, "1.tif"), "found --quality 50 with "));
    EXPECT_TRUE(contains(refusal({"--quality", "50", "--alpha"}, "1.dzi"), "or Deep Zoom without alpha"));
    EXPECT_TRUE(contains(refusal({"--pyramid"}, "1.jpg"), "found --pyramid with "));
    EXPECT_TRUE(contains(refusal({"--compression", "lzw"}, "1.zarr"), "1.zarr; expected deflate or none"));
    EXPECT_TRUE(contains(refusal({"--quality", "50"}, "1.zarr"), "expected it with a JPEG file, or Deep Zoom"));
    EXPECT_EQ(refusal({"--compression", "lzw", "--pyramid"}, "2.tiff"), "");
    EXPECT_EQ(refusal({"--quality", "50"}, "2.jpg"), "");
    EXPECT_EQ(refusal({"--quality", "50", "--pyramid"}, "2.dzi"), "");
}

Image make_zero_mask(std::int32_t width, std::int32_t height)
{
    Image mask = make_image(width, height, 1, 8, "test");
    std::fill_n(mask.data.get(), mask.bytes(), std::uint8_t{0});
    return mask;
}

// The panorama's colours mean what the pictures' colours mean.
TEST_F(StitchFormats, AColourProfileIsPassedOn)
{
    Image image = test_picture(8, 8, 3, 8);
    image.metadata.profile = colour_profile();
    for (const char* format : {"png", "tif", "jpg"}) {
        const std::string name = in_folder(concat("a.", format));
        write_image(name, image);
        ASSERT_EQ(read_image(name).metadata.profile, image.metadata.profile) << format;
        const std::string out = in_folder(concat("out.", format));
        stitch({"-o", out, name + "@0,0", name + "@3,0"});
        EXPECT_EQ(read_image(out).metadata.profile, image.metadata.profile) << format;
        write_image(in_folder("mask.png"), make_zero_mask(8, 8));
        EXPECT_EQ(run_panoval({"inpaint", name, "--mask", in_folder("mask.png"), "-o", out}).exit_code, 0);
        EXPECT_EQ(read_image(out).metadata.profile, image.metadata.profile) << format << " repaired";
    }
    image.metadata.profile.clear();
    write_image(in_folder("plain.png"), image);
    const Outcome outcome = run_panoval(
        {"stitch", "-o", in_folder("out.png"), in_folder("a.png") + "@0,0", in_folder("plain.png") + "@3,0"});
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_TRUE(contains(outcome.err, "plain.png: found another colour profile than in ")) << outcome.err;
    EXPECT_TRUE(read_image(in_folder("out.png")).metadata.profile.empty());
}

TEST_F(StitchFormats, ATruncatedPictureLeavesNoOutput)
{
    write_image(in_folder("a.png"), test_picture(60, 60, 3, 8));
    const std::string whole = read_text("a.png");
    const std::string cut = write_text("cut.png", whole.substr(0, whole.size() / 2));
    const Outcome outcome = run_panoval({"stitch", "-o", in_folder("out.png"), cut + "@0,0"});
    EXPECT_EQ(outcome.exit_code, 3);
    EXPECT_TRUE(contains(outcome.err, "cut.png: found a truncated or damaged PNG file")) << outcome.err;
    EXPECT_FALSE(file_exists(in_folder("out.png")));
    EXPECT_EQ(names().size(), 2u);
}

// Gains of 1, 0.8 and 1.24 and vignetting remain, but the scene is in its place and nothing masked out comes through.
TEST_F(StitchFormats, ASceneIsFoundAgain)
{
    for (const std::string format : {"png", "tiff", "pnm"}) {
        const std::string folder = "scene-" + format;
        ASSERT_EQ(
            run_program("make_scene", {in_folder(folder), "--size", "small", "--pictures", "3", "--format", format})
                .exit_code,
            0);
        const Json json = stitch({"-o", in_folder("out.png"), "--layout", in_folder(folder + "/layout.json")});
        const Json truth_json = Json::parse(read_text(folder + "/truth.json"));
        EXPECT_EQ(json["x"], truth_json["x"]);
        const Image panorama = read_image(in_folder("out.png"));
        const Image truth = read_image(in_folder(folder + (format == "pnm" ? "/truth.ppm" : "/truth.png")));
        ASSERT_EQ(panorama.width, truth.width);
        const auto shift = static_cast<std::int32_t>(json["y"].get<int>() - truth_json["y"].get<int>());
        double error = 0;
        std::size_t wrong = 0, count = 0;
        for (std::int32_t y = 20; y < panorama.height - 20; ++y)
            for (std::size_t i = 0; i < truth.row_bytes(); ++i, ++count) {
                const int difference = panorama.row(y)[i] - truth.row(y + shift)[i];
                error += std::abs(difference);
                wrong += std::abs(difference) > 0.35 * truth.row(y + shift)[i] + 12;
            }
        EXPECT_LT(error / static_cast<double>(count), 25.0);
        EXPECT_EQ(wrong, 0u);
    }
}

} // namespace

} // namespace panoval::cli::test
