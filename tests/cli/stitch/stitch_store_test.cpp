// SPDX-License-Identifier: MIT
// panoval stitch into OME-Zarr: tiles by themselves, what is missing, what goes wrong.
#include "image/image_read.h"
#include "image/image_write.h"
#include "image/zarr_store.h"
#include "tests/cli/run_program.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <random>

namespace panoval::cli::test
{

namespace
{

namespace fs = std::filesystem;
using Json = nlohmann::json;

class StitchStore : public ScratchFolder
{
protected:
    std::string shoot(const std::string& name, int x, int y, int width, int height, int bits = 8)
    {
        Image image = make_image(width, height, 3, bits, "test");
        for (int v = 0; v < height; ++v)
            for (int u = 0; u < width; ++u)
                for (int c = 0; c < 3; ++c) {
                    const double level =
                        120 + 50 * std::sin(0.02 * (x + u) + c) + 30 * std::sin(0.15 * (x + u - y - v));
                    const auto value = static_cast<std::uint16_t>(level * (bits == 16 ? 257 : 1));
                    std::memcpy(image.row(v) + (3 * u + c) * (bits / 8), &value, static_cast<std::size_t>(bits / 8));
                }
        write_image(in_folder(name), image);
        return concat(in_folder(name), "@", x, ",", y);
    }
    std::vector<std::string> three(int bits = 8)
    {
        return {shoot("a.ppm", 0, 0, 300, 210, bits), shoot("b.ppm", 220, 15, 300, 210, bits),
                shoot("c.ppm", 440, -9, 300, 210, bits)};
    }
    Outcome stitch(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "stitch");
        return run_panoval(arguments);
    }
    // A plan of three pictures in tiles.
    void make_plan(const std::string& name, const std::string& tile_size, std::vector<std::string> more = {})
    {
        std::vector<std::string> arguments = three();
        arguments.insert(arguments.end(), {"-o", in_folder(name), "--plan-only", "--tile-size", tile_size, "--quiet"});
        arguments.insert(arguments.end(), more.begin(), more.end());
        const Outcome outcome = stitch(arguments);
        ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    }
    Outcome tiles(const std::string& plan, const std::string& store, std::vector<std::string> more)
    {
        more.insert(more.begin(), {"--plan", in_folder(plan), "-o", in_folder(store), "--json"});
        return stitch(more);
    }
    // Every file of a folder with its bytes.
    std::map<std::string, std::string> files_of(const std::string& folder)
    {
        std::map<std::string, std::string> files;
        const fs::path root = path_from_utf8(in_folder(folder));
        for (const auto& entry : fs::recursive_directory_iterator(root))
            if (entry.is_regular_file()) {
                const std::string name = entry.path().lexically_relative(root).generic_string();
                files[name] = read_text(folder + "/" + name);
            }
        return files;
    }
};

// Seams in a file beside the plan: tasks read a part of it, and the pixels are the same, however far the bands reach.
TEST_F(StitchStore, TilesOfSeamsInAFileOfTheirOwnAreTheSame)
{
    std::vector<std::string> pictures;
    for (int i = 0; i < 5; ++i)
        pictures.push_back(shoot(concat(i, ".ppm"), 700 * i, 3 * i, 1000, 300));
    for (const char* const bands : {"2", "7"}) {
        const auto plan = [&](const std::string& name, const std::string& more) {
            std::vector<std::string> arguments = pictures;
            arguments.insert(arguments.end(),
                             {"-o", in_folder(name), "--plan-only", "--tile-size", "200", "--bands", bands});
            arguments.insert(arguments.end(), {more, "--quiet"});
            const Outcome outcome = stitch(arguments);
            ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
        };
        plan("two.json", "--split-seams");
        plan("one.json", "--json");
        EXPECT_FALSE(contains(read_text("two.json"), "\"seams\": \"A")) << "they are beside it";
        EXPECT_FALSE(contains(read_text("two.json"), "\"statistics\"")) << "tasks have no use for them";
        EXPECT_TRUE(file_exists(in_folder("two.json.seams")) && !file_exists(in_folder("one.json.seams")));
        fs::remove_all(path_from_utf8(in_folder("one.zarr")));
        fs::remove_all(path_from_utf8(in_folder("two.zarr")));
        ASSERT_EQ(tiles("one.json", "one.zarr", {}).exit_code, 0);
        for (const char* const part : {"5/9", "0/9", "8/9", "1/9", "2/9", "3/9", "4/9", "6/9", "7/9"})
            ASSERT_EQ(tiles("two.json", "two.zarr", {"--tile", part}).exit_code, 0);
        EXPECT_EQ(files_of("one.zarr/0"), files_of("two.zarr/0")) << bands;
        ASSERT_EQ(tiles("two.json", "two.tif", {}).exit_code, 0);
        ASSERT_EQ(tiles("one.json", "one.tif", {}).exit_code, 0);
        EXPECT_EQ(read_text("one.tif"), read_text("two.tif")) << "as a whole";
    }
    EXPECT_EQ(tiles("two.json", "none.zarr", {"--dry-run"}).exit_code, 0);
    fs::remove(path_from_utf8(in_folder("two.json.seams")));
    const Outcome missing = tiles("two.json", "two.zarr", {"--tile", "3"});
    EXPECT_EQ(missing.exit_code, 3);
    EXPECT_TRUE(contains(missing.err, "two.json.seams")) << missing.err;
}

// What all pictures agree in goes by way of the plan and the store into the pictures that are made of it.
TEST_F(StitchStore, CarriesWhatThePicturesTell)
{
    Metadata told;
    told.resolution = image::Resolution{300, 300};
    told.exif.make = "Maker";
    told.exif.iso = 400;
    std::vector<std::string> pictures;
    for (const int x : {0, 200}) {
        Image image = make_image(300, 100, 3, 8, "test");
        std::fill_n(image.data.get(), image.bytes(), std::uint8_t{90});
        image.metadata = told;
        image.metadata.exif.model = concat(x); // in which they do not agree
        write_image(in_folder(concat(x, ".png")), image);
        pictures.push_back(concat(in_folder(concat(x, ".png")), "@", x, ",0"));
    }
    std::vector<std::string> plan = pictures;
    plan.insert(plan.end(), {"-o", in_folder("p.json"), "--plan-only", "--tile-size", "128", "--quiet"});
    ASSERT_EQ(stitch(plan).exit_code, 0);
    ASSERT_EQ(tiles("p.json", "out.zarr", {"--tile", "2"}).exit_code, 0);
    ASSERT_EQ(tiles("p.json", "out.zarr", {"--resume"}).exit_code, 0);
    ASSERT_EQ(tiles("p.json", "tile.tif", {"--tile", "0"}).exit_code, 0);
    ASSERT_EQ(tiles("p.json", "whole.tif", {}).exit_code, 0);
    ASSERT_EQ(run_panoval({"pyramid", in_folder("out.zarr"), "-o", in_folder("first.tif")}).exit_code, 0);
    ASSERT_EQ(run_panoval({"pyramid", in_folder("out.zarr")}).exit_code, 0) << "writes the attributes anew";
    ASSERT_EQ(run_panoval({"pyramid", in_folder("out.zarr"), "-o", in_folder("pyramid.tif")}).exit_code, 0);
    pictures.insert(pictures.end(), {"-o", in_folder("direct.zarr"), "--quiet"});
    ASSERT_EQ(stitch(pictures).exit_code, 0);
    ASSERT_EQ(run_panoval({"pyramid", in_folder("direct.zarr"), "-o", in_folder("direct.tif")}).exit_code, 0);
    for (const char* const name : {"whole.tif", "tile.tif", "first.tif", "pyramid.tif", "direct.tif"})
        EXPECT_EQ(read_image(in_folder(name)).metadata, told) << name;
}

TEST_F(StitchStore, TilesInAnyOrderMakeTheBytesOfTheWholeRun)
{
    for (const std::string alpha : {"", "--alpha"}) {
        make_plan("plan.json", "64");
        std::vector<std::string> more;
        if (!alpha.empty())
            more.push_back(alpha);
        fs::remove_all(path_from_utf8(in_folder("tiles.zarr")));
        EXPECT_EQ(tiles("plan.json", "whole.zarr", more).exit_code, 0);
        const std::int64_t count = image::ZarrStore::open(in_folder("whole.zarr")).picture().tiles;
        std::vector<std::int64_t> order(static_cast<std::size_t>(count));
        for (std::size_t i = 0; i < order.size(); ++i)
            order[i] = static_cast<std::int64_t>(i);
        std::shuffle(order.begin(), order.end(), std::mt19937(5));
        for (std::size_t i = 0; i < order.size(); i += 6) { // six tiles a process
            std::string list;
            for (std::size_t k = i; k < std::min(i + 6, order.size()); ++k)
                list += concat(list.empty() ? "" : ",", order[k]);
            std::vector<std::string> with = more;
            with.insert(with.end(), {"--tile", list});
            const Outcome outcome = tiles("plan.json", "tiles.zarr", with);
            ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
        }
        EXPECT_EQ(files_of("tiles.zarr"), files_of("whole.zarr")) << alpha;
    }
}

TEST_F(StitchStore, HasThePixelsOfThePictureFile)
{
    for (const int bits : {8, 16}) {
        std::vector<std::string> arguments = three(bits);
        arguments.insert(arguments.end(), {"--alpha", "--tile-size", "100", "--quiet", "-o"});
        arguments.push_back(in_folder("whole.tif"));
        ASSERT_EQ(stitch(arguments).exit_code, 0);
        arguments.back() = in_folder("whole.zarr");
        ASSERT_EQ(stitch(arguments).exit_code, 0);
        const Image whole = read_image(in_folder("whole.tif"));
        const auto store = image::ZarrStore::open(in_folder("whole.zarr"));
        const image::ZarrArray& array = store.array(0);
        ASSERT_EQ(array.channels, 4);
        ASSERT_EQ(array.bits, bits);
        EXPECT_EQ(array.chunk_width, 100);
        EXPECT_EQ(store.picture().origin, (Offset{0, -9}));
        image::Chunk chunk;
        for (int y = 0; y < whole.height; ++y)
            for (int x = 0; x < whole.width; ++x) {
                if (x % 100 == 0)
                    store.read_chunk(0, y / 100, x / 100, chunk);
                const std::size_t bytes = static_cast<std::size_t>(bits) / 8;
                const std::size_t at = static_cast<std::size_t>(y % 100 * 100 + x % 100) * bytes;
                for (std::size_t c = 0; c < 3; ++c)
                    ASSERT_EQ(std::memcmp(&chunk[c * 10000 * bytes + at],
                                          whole.row(y) + (static_cast<std::size_t>(x) * 3 + c) * bytes, bytes),
                              0)
                        << x << "," << y;
                ASSERT_EQ(chunk[3 * 10000 * bytes + at], whole.mask[static_cast<std::size_t>(y * whole.width + x)]);
            }
    }
}

TEST_F(StitchStore, ATileOpensThePicturesThatItShowsAlone)
{
    make_plan("plan.json", "64");
    fs::remove(path_from_utf8(in_folder("b.ppm")));
    fs::remove(path_from_utf8(in_folder("c.ppm")));
    const Outcome outcome = tiles("plan.json", "out.zarr", {"--tile", "0"});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_EQ(Json::parse(outcome.out)["tiles_made"], 1);
    EXPECT_EQ(tiles("plan.json", "tile.png", {"--tile", "0"}).exit_code, 0);
}

TEST_F(StitchStore, WhatFailsNamesTileAndPictureAndTheOthersGoOn)
{
    make_plan("plan.json", "64");
    fs::remove(path_from_utf8(in_folder("c.ppm")));
    const Outcome some = tiles("plan.json", "out.zarr", {"--tile", "0,1,11"});
    EXPECT_EQ(some.exit_code, 1);
    EXPECT_TRUE(contains(some.err, "panoval: tile 11: ")) << some.err;
    EXPECT_TRUE(contains(some.err, "c.ppm: found no ")) << some.err;
    const Json json = Json::parse(some.out);
    EXPECT_EQ(json["tiles_made"], 2);
    ASSERT_EQ(json["tiles_failed"].size(), 1u);
    EXPECT_EQ(json["tiles_failed"][0]["tile"], 11);
    EXPECT_FALSE(file_exists(in_folder("out.zarr/.panoval/tiles/11")));
    EXPECT_EQ(tiles("plan.json", "out.zarr", {"--tile", "10-11"}).exit_code, 6);
    const Outcome one = tiles("plan.json", "out.zarr", {"--tile", "11"});
    EXPECT_EQ(one.exit_code, 3);
    EXPECT_TRUE(contains(one.err, "tile 11: ")) << one.err;
    const Outcome whole = tiles("plan.json", "whole.zarr", {});
    EXPECT_EQ(whole.exit_code, 3);
    EXPECT_FALSE(file_exists(in_folder("whole.zarr"))) << "complete or not there";
    shoot("c.ppm", 440, -9, 300, 210);
    const Json rest = Json::parse(tiles("plan.json", "out.zarr", {"--resume"}).out);
    EXPECT_EQ(rest["tiles_kept"], 2);
    EXPECT_EQ(rest["tiles_made"], rest["tiles"].get<int>() - 2);
}

TEST_F(StitchStore, ResumingMakesWhatIsMissingAlone)
{
    make_plan("plan.json", "64");
    ASSERT_EQ(tiles("plan.json", "whole.zarr", {}).exit_code, 0);
    ASSERT_EQ(tiles("plan.json", "out.zarr", {"--resume"}).exit_code, 0);
    const auto whole = files_of("whole.zarr");
    EXPECT_EQ(files_of("out.zarr"), whole);
    Json json = Json::parse(tiles("plan.json", "out.zarr", {"--resume", "--tile", "0-9"}).out);
    EXPECT_EQ(json["tiles_made"], 0);
    EXPECT_EQ(json["tiles_kept"], 10);
    EXPECT_EQ(json["pictures_read"], 0.0);
    const std::string chunk = read_text("out.zarr/0/0/1/1");
    write_text("out.zarr/0/0/1/1", chunk.substr(0, chunk.size() / 2));
    fs::remove(path_from_utf8(in_folder("out.zarr/.panoval/tiles/3")));
    json = Json::parse(tiles("plan.json", "out.zarr", {"--resume"}).out);
    EXPECT_EQ(json["tiles_made"], 2);
    EXPECT_EQ(files_of("out.zarr"), whole);
    json = Json::parse(tiles("plan.json", "out.zarr", {"--tile", "0-9"}).out);
    EXPECT_EQ(json["tiles_made"], 10) << "made anew where nobody says resume";
    EXPECT_EQ(files_of("out.zarr"), whole);
}

TEST_F(StitchStore, OtherPlansAndPicturesAreRefusedByName)
{
    make_plan("plan.json", "64");
    ASSERT_EQ(tiles("plan.json", "out.zarr", {"--tile", "0"}).exit_code, 0);
    make_plan("other.json", "64", {"--no-gain"});
    Outcome outcome = tiles("other.json", "out.zarr", {"--resume"});
    EXPECT_EQ(outcome.exit_code, 4);
    EXPECT_TRUE(contains(outcome.err, "out.zarr: found a store that another plan began")) << outcome.err;
    EXPECT_EQ(tiles("plan.json", "out.zarr", {"--resume", "--alpha"}).exit_code, 4);
    std::string text = read_text("plan.json");
    text.replace(text.find("\"panoval_plan\": 1"), 17, "\"panoval_plan\": 9");
    write_text("new.json", text);
    outcome = tiles("new.json", "new.zarr", {"--tile", "0"});
    EXPECT_EQ(outcome.exit_code, 3);
    EXPECT_TRUE(contains(outcome.err, "new.json: found another value of \"panoval_plan\"")) << outcome.err;
    shoot("a.ppm", 100, 0, 300, 210); // the same size, another part of the scene
    outcome = tiles("plan.json", "out.zarr", {"--tile", "0"});
    EXPECT_EQ(outcome.exit_code, 3);
    EXPECT_TRUE(contains(outcome.err, "tile 0: ")) << outcome.err;
    EXPECT_TRUE(contains(outcome.err, "a.ppm: found 300 x 210 pixels")) << outcome.err;
    EXPECT_TRUE(contains(outcome.err, "another file than when the plan was made")) << outcome.err;
    EXPECT_FALSE(file_exists(in_folder("new.zarr")));
}

TEST_F(StitchStore, ADryRunCountsWhatTasksRead)
{
    // 3 x 1 pictures of 300 x 200, every 200 pixels, that need not be there
    write_text("places.json", R"([{"file": "a.jpg", "x": 0, "y": 0, "width": 300, "height": 200},
                                  {"file": "b.jpg", "x": 200, "y": 0, "width": 300, "height": 200},
                                  {"file": "c.jpg", "x": 400, "y": 0, "width": 300, "height": 200}])");
    const auto dry_run = [&](std::vector<std::string> more) {
        more.insert(more.begin(), {"--layout", in_folder("places.json"), "-o", in_folder("a.zarr"), "--json",
                                   "--dry-run", "--bands", "1", "--tile-size", "100"});
        const Outcome outcome = stitch(more);
        EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
        return Json::parse(outcome.out);
    };
    Json json = dry_run({});
    EXPECT_EQ(json["tiles"], 14);
    EXPECT_EQ(json["tasks"]["count"], 14);
    // with a reach of 4 pixels the first and the last picture are needed by 4 columns of 2 tiles, the middle one by 5
    EXPECT_EQ(json["tasks"]["picture_reads"], 2 * (4 + 5 + 4));
    EXPECT_EQ(json["tasks"]["bytes_read"], 26 * 300 * 200 * 3);
    EXPECT_EQ(json["tasks"]["bytes_written"], 700 * 200 * 3);
    EXPECT_GT(json["tasks"]["core_hours"], 0.0);
    json = dry_run({"--tile", "0,7,13", "--alpha"});
    EXPECT_EQ(json["tasks"]["picture_reads"], 3) << "corners show a picture each";
    EXPECT_EQ(json["tasks"]["bytes_written"], 3 * 100 * 100 * 4);
    EXPECT_FALSE(file_exists(in_folder("a.zarr")));
    EXPECT_EQ(stitch({"--layout", in_folder("places.json"), "-o", in_folder("a.zarr")}).exit_code, 3) << "not there";
    shoot("a.jpg", 0, 0, 301, 200);
    const Outcome outcome = stitch({"--layout", in_folder("places.json"), "-o", in_folder("a.zarr")});
    EXPECT_TRUE(contains(outcome.err, "expected 300 x 200 pixels, 3 channels, 8 bit as the layout says"));
    write_text("bad.json", R"([{"file": "a.jpg", "x": 0, "y": 0, "width": 0, "height": 200}])");
    EXPECT_EQ(stitch({"--layout", in_folder("bad.json"), "-o", in_folder("a.zarr"), "--dry-run"}).exit_code, 3);
}

TEST_F(StitchStore, OddCommandLinesAreExplained)
{
    make_plan("plan.json", "64");
    EXPECT_EQ(tiles("plan.json", "a.zarr", {"--tile", "99999"}).exit_code, 2);
    EXPECT_EQ(tiles("plan.json", "a.png", {"--tile", "0-1"}).exit_code, 2);
    EXPECT_EQ(tiles("plan.json", "a.png", {"--resume"}).exit_code, 2);
    EXPECT_EQ(tiles("plan.json", "a.zarr", {"--pyramid"}).exit_code, 2);
    EXPECT_EQ(tiles("plan.json", "a.zarr", {"--compression", "lzw"}).exit_code, 2);
    EXPECT_EQ(tiles("plan.json", "a.zarr", {"--report", in_folder("r.html")}).exit_code, 2);
    fs::create_directory(path_from_utf8(in_folder("b.zarr")));
    write_text("b.zarr/mine", "text");
    EXPECT_EQ(tiles("plan.json", "b.zarr", {}).exit_code, 4);
    EXPECT_EQ(tiles("plan.json", "b.zarr", {"--resume"}).exit_code, 4);
    EXPECT_EQ(read_text("b.zarr/mine"), "text");
    EXPECT_FALSE(file_exists(in_folder("a.zarr")));
}

TEST_F(StitchStore, AnOlderStoreIsReplacedAsAWhole)
{
    make_plan("plan.json", "64");
    make_plan("other.json", "64", {"--no-gain"});
    ASSERT_EQ(tiles("plan.json", "a.zarr", {}).exit_code, 0);
    ASSERT_EQ(tiles("other.json", "a.zarr", {"--compression", "none"}).exit_code, 0);
    ASSERT_EQ(tiles("other.json", "b.zarr", {"--compression", "none"}).exit_code, 0);
    EXPECT_EQ(files_of("a.zarr"), files_of("b.zarr"));
    EXPECT_EQ(fs::file_size(path_from_utf8(in_folder("a.zarr/0/0/0/0"))), 3u * 64 * 64);
}

} // namespace

} // namespace panoval::cli::test
