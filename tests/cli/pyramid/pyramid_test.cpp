// SPDX-License-Identifier: MIT
#include "image/image_read.h"
#include "image/image_write.h"
#include "image/row_halver.h"
#include "image/tiff_file.h"
#include "image/zarr_rows.h"
#include "tests/cli/run_program.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstring>

namespace panoval::cli::test
{

namespace
{

namespace fs = std::filesystem;
using Json = nlohmann::json;

class Pyramid : public ScratchFolder
{
protected:
    // A picture as a store of two tiles in chunks of this side.
    void make_store(const std::string& name, const Image& image, std::int32_t chunk)
    {
        image::StorePicture stored;
        stored.array = {image.width, image.height, image.channels + (image.mask ? 1 : 0), image.bits, chunk,
                        chunk,       true};
        stored.origin = {30, 40};
        stored.plan = "plan";
        stored.tiles = 2;
        const auto store = image::ZarrStore::begin(name, path_from_utf8(in_folder(name)), stored);
        const auto sizes = store.write_pixels(0, 0, 0, image.width, image.height, rows_of(image));
        store.mark_tile(0, sizes);
        store.mark_tile(1, sizes);
    }
    Outcome pyramid(const std::string& input, std::vector<std::string> more = {})
    {
        more.insert(more.begin(), {"pyramid", in_folder(input), "--json"});
        return run_panoval(more);
    }
    Image level_of(const std::string& name, std::size_t level)
    {
        const auto store = image::ZarrStore::open(in_folder(name));
        const auto reader = image::open_store_rows(store, level);
        const ImageInfo& info = reader->info();
        Image image = make_image(info.width, info.height, info.channels, info.bits, "test");
        if (info.has_alpha)
            ensure_mask(image, "test");
        image.has_alpha = info.has_alpha;
        reader->read_rows(0, info.height, rows_of(image));
        return image;
    }
};

// The same by rows.
Image halved(const Image& image)
{
    Image half = make_image((image.width + 1) / 2, (image.height + 1) / 2, image.channels, image.bits, "test");
    if (image.mask != nullptr)
        ensure_mask(half, "test");
    half.has_alpha = image.has_alpha;
    std::int32_t next = 0;
    RowHalver halver(image, [&](const ConstRows& row) {
        std::memcpy(half.row(next), row.samples, half.row_bytes());
        if (half.mask != nullptr)
            std::memcpy(half.mask.get() + next * half.width, row.mask, static_cast<std::size_t>(half.width));
        ++next;
    });
    for (std::int32_t y = 0; y < image.height; ++y)
        halver.add(rows_of(image, y));
    halver.finish();
    return half;
}

Image picture(int channels, int bits, bool has_mask)
{
    Image image = test_picture(203, 131, channels, bits, has_mask);
    image.has_alpha = has_mask;
    return image;
}

TEST_F(Pyramid, LevelsAreMeansOfTheLevelBefore)
{
    for (const int bits : {8, 16})
        for (const bool has_mask : {false, true})
            for (const std::int32_t chunk : {32, 37, 256}) {
                fs::remove_all(path_from_utf8(in_folder("a.zarr")));
                Image expected = picture(3, bits, has_mask);
                make_store("a.zarr", expected, chunk);
                const Outcome outcome = pyramid("a.zarr");
                ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
                const std::size_t levels = chunk == 256 ? 1 : 4;
                EXPECT_EQ(Json::parse(outcome.out)["levels"].size(), levels);
                ASSERT_EQ(image::ZarrStore::open(in_folder("a.zarr")).levels(), levels);
                for (std::size_t level = 1; level < levels; ++level) {
                    expected = halved(expected);
                    expect_same_picture(level_of("a.zarr", level), expected);
                }
            }
}

TEST_F(Pyramid, AddingLevelsTwiceChangesNothing)
{
    make_store("a.zarr", picture(1, 8, false), 64);
    ASSERT_EQ(pyramid("a.zarr").exit_code, 0);
    const std::string attributes = read_text("a.zarr/.zattrs");
    const std::string chunk = read_text("a.zarr/1/0/0/1");
    ASSERT_EQ(pyramid("a.zarr").exit_code, 0);
    EXPECT_EQ(read_text("a.zarr/.zattrs"), attributes);
    EXPECT_EQ(read_text("a.zarr/1/0/0/1"), chunk);
    const Json json = Json::parse(attributes);
    const Json& second = json["multiscales"][0]["datasets"][1];
    EXPECT_EQ(second["path"], "1");
    EXPECT_EQ(second["coordinateTransformations"][0]["scale"], (Json{1.0, 2.0, 2.0}));
    EXPECT_EQ(second["coordinateTransformations"][1]["translation"], (Json{0.0, 40.5, 30.5}));
}

TEST_F(Pyramid, AStoreBecomesATiffFileWithAllLevels)
{
    for (const int bits : {8, 16})
        for (const bool has_mask : {false, true}) {
            fs::remove_all(path_from_utf8(in_folder("a.zarr")));
            Image image = test_picture(700, 300, 3, bits, has_mask);
            image.has_alpha = has_mask;
            make_store("a.zarr", image, 64);
            const Outcome outcome =
                pyramid("a.zarr", {"-o", in_folder("a.tif"), "--compression", bits == 8 ? "deflate" : "none"});
            ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
            expect_same_picture(read_image(in_folder("a.tif")), image);
            EXPECT_EQ(probe_image(in_folder("a.tif")).at(0).position, (Offset{30, 40}));
            const FileHandle file = open_utf8(in_folder("a.tif"), "rb");
            const TiffFile tiff(file.get(), "a.tif", "r");
            std::vector<std::uint32_t> widths;
            do
                widths.push_back(tiff.field<std::uint32_t>(TIFFTAG_IMAGEWIDTH, 0));
            while (TIFFReadDirectory(tiff.get()) == 1);
            EXPECT_EQ(widths, (std::vector<std::uint32_t>{700, 350, 175}));
        }
}

TEST_F(Pyramid, AStoreBecomesDeepZoomAndAnyOtherFormat)
{
    make_store("a.zarr", picture(3, 16, false), 64);
    EXPECT_EQ(pyramid("a.zarr", {"-o", in_folder("a.dzi")}).exit_code, 4) << "16 bit";
    ASSERT_EQ(pyramid("a.zarr", {"-o", in_folder("a.dzi"), "--depth", "8"}).exit_code, 0);
    EXPECT_TRUE(file_exists(in_folder("a_files/8/0_0.jpg")));
    ASSERT_EQ(pyramid("a.zarr", {"-o", in_folder("a.png")}).exit_code, 0);
    Image expected = picture(3, 16, false);
    expect_same_picture(read_image(in_folder("a.png")), expected);
    ASSERT_EQ(pyramid("a.png", {"-o", in_folder("b.tif")}).exit_code, 0) << "a picture file as input";
    expect_same_picture(read_image(in_folder("b.tif")), expected);
}

TEST_F(Pyramid, WhatIsNotCompleteIsRefused)
{
    make_store("a.zarr", picture(1, 8, false), 64);
    fs::remove(path_from_utf8(in_folder("a.zarr/.panoval/tiles/1")));
    for (const std::vector<std::string>& more : {std::vector<std::string>{}, {"-o", in_folder("a.tif")}}) {
        const Outcome outcome = pyramid("a.zarr", more);
        EXPECT_EQ(outcome.exit_code, 3);
        EXPECT_TRUE(contains(outcome.err, "a.zarr: found no whole tile 1 of 2")) << outcome.err;
    }
    EXPECT_FALSE(file_exists(in_folder("a.tif")));
    EXPECT_FALSE(file_exists(in_folder("a.zarr/1")));
}

TEST_F(Pyramid, OddInputsAreExplained)
{
    make_store("a.zarr", picture(1, 8, false), 64);
    write_image(in_folder("a.png"), picture(1, 8, false));
    EXPECT_EQ(pyramid("a.png").exit_code, 3) << "no store";
    EXPECT_EQ(pyramid("no.zarr").exit_code, 3);
    EXPECT_EQ(pyramid("a.zarr", {"--quality", "50"}).exit_code, 2);
    EXPECT_EQ(pyramid("a.zarr", {"-o", in_folder("a.png"), "--compression", "lzw"}).exit_code, 2);
    EXPECT_EQ(pyramid("a.zarr", {"-o", in_folder("a.xyz")}).exit_code, 2);
    fs::create_directory(path_from_utf8(in_folder("empty")));
    EXPECT_TRUE(contains(pyramid("empty").err, "found no file .zattrs in it"));
    write_text("a.zarr/0/0/0/0", "damaged"); // the mark knows its size
    EXPECT_TRUE(contains(pyramid("a.zarr").err, "found no whole tile 0 of 2"));
    write_text("a.zarr/.zattrs", "[]");
    EXPECT_EQ(pyramid("a.zarr").exit_code, 3);
    for (const std::string text : {"{}", "{\"multiscales\": [{\"datasets\": [{\"path\": \"../0\"}]}]}",
                                   "{\"multiscales\": [{\"datasets\": []}]}", "{\"multiscales\": 1}"}) {
        write_text("a.zarr/.zattrs", text);
        EXPECT_EQ(pyramid("a.zarr").exit_code, 3) << text;
    }
}

} // namespace

} // namespace panoval::cli::test
