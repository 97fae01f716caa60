// SPDX-License-Identifier: MIT
// What panoval stitch offers of the panorama engine: plans, tiles, budgets, seams, the horizon.
#include "image/image_read.h"
#include "image/image_write.h"
#include "tests/cli/run_program.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <cstring>
#include <filesystem>

namespace panoval::cli::test
{

namespace
{

using Json = nlohmann::json;

class StitchEngine : public ScratchFolder
{
protected:
    // A part of a scene that is periodic across 300 columns.
    std::string shoot(const std::string& name, int x, int y, int width, int height)
    {
        Image image = make_image(width, height, 3, 8, "test");
        for (int v = 0; v < height; ++v)
            for (int u = 0; u < width; ++u)
                for (int c = 0; c < 3; ++c)
                    image.row(v)[3 * u + c] = scene_at(x + u, y + v, c);
        write_image(in_folder(name), image);
        return concat(in_folder(name), "@", x, ",", y);
    }
    static std::uint8_t scene_at(int x, int y, int c)
    {
        const double turn = 2 * 3.14159265358979 * x / 300;
        const double level = 120 + 50 * std::sin(turn + c) + 30 * std::sin(7 * turn + 0.1 * y) + 0.2 * y;
        return static_cast<std::uint8_t>(level + 0.5);
    }
    std::vector<std::string> three()
    {
        return {shoot("a.ppm", 0, 0, 120, 90), shoot("b.ppm", 80, 5, 120, 90), shoot("c.ppm", 160, -4, 120, 90)};
    }
    static Outcome stitch(std::vector<std::string> inputs, const std::vector<std::string>& more)
    {
        inputs.insert(inputs.begin(), "stitch");
        inputs.insert(inputs.end(), more.begin(), more.end());
        return run_panoval(inputs);
    }
    Json told(const std::vector<std::string>& inputs, std::vector<std::string> more)
    {
        more.push_back("--json");
        const Outcome outcome = stitch(inputs, more);
        EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
        return outcome.exit_code == 0 ? Json::parse(outcome.out) : Json();
    }
};

TEST_F(StitchEngine, MemoryThreadsAndTilesChangeNoPixel)
{
    const auto inputs = three();
    for (const std::string seams : {"optimal", "nearest", "none"}) {
        told(inputs, {"-o", in_folder("a-out.ppm"), "--seams", seams});
        told(inputs, {"-o", in_folder("b-out.ppm"), "--seams", seams, "--threads", "1", "--memory", "40M",
                      "--tile-size", "48"});
        EXPECT_EQ(read_text("a-out.ppm"), read_text("b-out.ppm")) << seams;
    }
}

TEST_F(StitchEngine, APlanIsBlendedInAnotherProcessAndByTiles)
{
    const auto inputs = three();
    told(inputs, {"-o", in_folder("whole.ppm"), "--tile-size", "64"});
    told(inputs, {"-o", in_folder("plan.json"), "--plan-only", "--tile-size", "64"});
    EXPECT_EQ(Json::parse(read_text("plan.json"))["statistics"]["overlaps"].size(), 2u);
    const Json json = told({}, {"-o", in_folder("again.ppm"), "--plan", in_folder("plan.json")});
    EXPECT_EQ(read_text("again.ppm"), read_text("whole.ppm"));
    EXPECT_EQ(json["images"], 3);
    const Image whole = read_image(in_folder("whole.ppm"));
    const int columns = (whole.width + 63) / 64;
    ASSERT_EQ(json["tiles"], columns * ((whole.height + 63) / 64));
    const Json one =
        told({}, {"-o", in_folder("tile.ppm"), "--plan", in_folder("plan.json"), "--tile", concat(columns + 1)});
    const Image tile = read_image(in_folder("tile.ppm"));
    EXPECT_EQ(one["width"], tile.width);
    EXPECT_EQ(one["height"], tile.height);
    EXPECT_EQ(one["x"], json["x"].get<int>() + 64);
    EXPECT_EQ(one["y"], json["y"].get<int>() + 64);
    for (int y = 0; y < tile.height; ++y)
        EXPECT_EQ(std::memcmp(tile.row(y), whole.row(64 + y) + 3 * 64, tile.row_bytes()), 0) << y;
    EXPECT_EQ(stitch({}, {"-o", in_folder("no.ppm"), "--plan", in_folder("plan.json"), "--tile", "999"}).exit_code, 2);
}

TEST_F(StitchEngine, APlanOfStatisticsHasTheGainsAndSeamsThatFollow)
{
    told(three(), {"-o", in_folder("whole.ppm")});
    told(three(), {"-o", in_folder("plan.json"), "--plan-only"});
    Json plan = Json::parse(read_text("plan.json"));
    plan.erase("gains");
    plan.erase("seams");
    write_text("less.json", plan.dump());
    told({}, {"-o", in_folder("again.ppm"), "--plan", in_folder("less.json")});
    EXPECT_EQ(read_text("again.ppm"), read_text("whole.ppm"));
    plan["statistics"]["overlaps"][0]["says"] = "disagree";
    plan["statistics"]["overlaps"][1].erase("all");
    write_text("bad.json", plan.dump());
    const Outcome bad = stitch({}, {"-o", in_folder("no.ppm"), "--plan", in_folder("bad.json")});
    EXPECT_EQ(bad.exit_code, 3);
    EXPECT_TRUE(contains(bad.err, "statistics of overlap 1")) << bad.err;
}

TEST_F(StitchEngine, APlanOfChangedPicturesIsRefused)
{
    told(three(), {"-o", in_folder("plan.json"), "--plan-only"});
    shoot("b.ppm", 80, 5, 121, 90);
    const Outcome outcome = stitch({}, {"-o", in_folder("out.ppm"), "--plan", in_folder("plan.json")});
    EXPECT_EQ(outcome.exit_code, 3);
    EXPECT_TRUE(contains(outcome.err, "b.ppm: found 121 x 90 pixels")) << outcome.err;
    write_text("bad.json", "{\"panoval_plan\": 7}");
    EXPECT_EQ(stitch({}, {"-o", in_folder("out.ppm"), "--plan", in_folder("bad.json")}).exit_code, 3);
    EXPECT_FALSE(file_exists(in_folder("out.ppm")));
}

TEST_F(StitchEngine, ADryRunTellsAndMakesNothing)
{
    const auto inputs = three();
    const std::size_t files = names().size();
    const Json json = told(inputs, {"-o", in_folder("out.tif"), "--dry-run", "--memory", "100M"});
    EXPECT_EQ(json["width"], 280);
    EXPECT_EQ(json["images"], 3);
    EXPECT_GE(json["tiles"], 1);
    EXPECT_LE(json["memory_bytes"], 100 << 20);
    EXPECT_GT(json["least_memory_bytes"], 0);
    EXPECT_EQ(json["panorama_bytes"], 280 * 99 * 3);
    EXPECT_EQ(names().size(), files);
}

TEST_F(StitchEngine, SeamsAreSavedAsNumbersOfPictures)
{
    told(three(), {"-o", in_folder("out.ppm"), "--save-seams", in_folder("seams.pgm"), "--seams", "nearest"});
    const Image seams = read_image(in_folder("seams.pgm"));
    EXPECT_EQ(seams.width, 280);
    EXPECT_EQ(seams.row(50)[10], 1);
    EXPECT_EQ(seams.row(50)[140], 2);
    EXPECT_EQ(seams.row(50)[270], 3);
    EXPECT_EQ(seams.row(0)[10], 0) << "above the first picture";
    EXPECT_EQ(
        stitch(three(), {"-o", in_folder("o.ppm"), "--save-seams", in_folder("s.pgm"), "--seams", "none"}).exit_code,
        2);
}

TEST_F(StitchEngine, SeamsGoOnlyIntoFormatsThatKeepThem)
{
    const auto inputs = three();
    write_text("b.ppm", "P6 120 90 255\n"); // whoever reads it fails
    for (const std::string name : {"seams.jpg", "seams.jpeg", "seams.dzi", "seams.ppm", "seams.zarr"})
        for (const std::string how : {"--plan-only", "--quiet"}) {
            const Outcome outcome = stitch(inputs, {"-o", in_folder("out.tif"), "--save-seams", in_folder(name), how});
            EXPECT_EQ(outcome.exit_code, 2) << name;
            EXPECT_TRUE(contains(outcome.err, "expected .png, .tif, .tiff, .pgm, .pnm or .pam, which keep numbers"));
        }
    EXPECT_EQ(names().size(), 3u) << "the pictures alone";
}

TEST_F(StitchEngine, SeamsAndGainsAreSavedBesideTilesToo)
{
    const auto inputs = three();
    told(inputs,
         {"-o", in_folder("whole.ppm"), "--save-seams", in_folder("whole.pgm"), "--gains", in_folder("w.json")});
    told(inputs, {"-o", in_folder("plan.json"), "--plan-only", "--split-seams", "--tile-size", "64"});
    told({}, {"--plan", in_folder("plan.json"), "-o", in_folder("a.zarr"), "--tile", "3", "--save-seams",
              in_folder("seams.pgm"), "--gains", in_folder("gains.json")});
    EXPECT_EQ(read_text("seams.pgm"), read_text("whole.pgm"));
    EXPECT_EQ(Json::parse(read_text("gains.json"))["gains"][2]["gain"],
              Json::parse(read_text("w.json"))["gains"][2]["gain"]);
}

// The heights of a JPEG file end at 65500 rows.
TEST_F(StitchEngine, SizesOfATileAreLookedAtBeforeTheWork)
{
    const std::string picture = shoot("a.ppm", 0, 0, 4, 4);
    const std::vector<std::string> far = {picture, in_folder("a.ppm") + "@0,70000"};
    told(far, {"-o", in_folder("plan.json"), "--plan-only", "--tile-size", "100000"});
    write_text("a.ppm", "P6 4 4 255\n");
    for (const std::string tile : {"", "0"}) {
        std::vector<std::string> more = {"--plan", in_folder("plan.json"), "-o", in_folder("out.jpg")};
        if (!tile.empty())
            more.insert(more.end(), {"--tile", tile});
        const Outcome outcome = stitch({}, more);
        EXPECT_EQ(outcome.exit_code, 4);
        EXPECT_TRUE(contains(outcome.err, "found 4 x 70004 pixels for a JPEG file")) << outcome.err;
    }
}

TEST_F(StitchEngine, APictureThatIsWiderThanTheCircleIsNamed)
{
    const Outcome outcome = stitch(three(), {"-o", in_folder("out.ppm"), "--wrap", "119"});
    EXPECT_EQ(outcome.exit_code, 3);
    EXPECT_TRUE(contains(outcome.err, "a.ppm: found a width of 120; expected at most that of the canvas"))
        << outcome.err;
}

TEST_F(StitchEngine, TheHorizonClosesWithoutALine)
{
    std::vector<std::string> inputs;
    for (int i = 0; i < 4; ++i)
        inputs.push_back(shoot(concat("w", i, ".ppm"), i * 75, 0, 110, 60));
    const Json json = told(inputs, {"-o", in_folder("round.ppm"), "--wrap", "300"});
    EXPECT_EQ(json["width"], 300);
    const Image round = read_image(in_folder("round.ppm"));
    int worst = 0;
    for (int y = 0; y < round.height; ++y)
        for (int x = 0; x < round.width; ++x)
            worst = std::max(worst, std::abs(round.row(y)[3 * x] - scene_at(x, y, 0)));
    EXPECT_LE(worst, 2);
}

TEST_F(StitchEngine, KeptPixelsComeFromTheirPicture)
{
    auto inputs = three();
    Image keep = make_image(120, 90, 1, 8, "test");
    for (int y = 0; y < 90; ++y)
        for (int x = 0; x < 120; ++x)
            keep.row(y)[x] = x >= 110 ? 255 : 0; // nearly at the right edge of the first picture
    write_image(in_folder("keep.pgm"), keep);
    const std::string layout =
        write_text("layout.json",
                   R"([{"file": "a.ppm", "x": 0, "y": 0, "keep": "keep.pgm"}, {"file": "b.ppm", "x": 80, "y": 5}])");
    told({}, {"-o", in_folder("out.ppm"), "--layout", layout, "--save-seams", in_folder("seams.pgm")});
    EXPECT_EQ(read_image(in_folder("seams.pgm")).row(50)[115], 1);
}

TEST_F(StitchEngine, WithoutSeamsKeepMasksDoNothingAndThatIsSaid)
{
    three();
    write_image(in_folder("keep.pgm"), make_image(120, 90, 1, 8, "test"));
    const std::string layout =
        write_text("layout.json",
                   R"([{"file": "a.ppm", "x": 0, "y": 0, "keep": "keep.pgm"}, {"file": "b.ppm", "x": 80, "y": 5}])");
    for (const std::vector<std::string>& way :
         {std::vector<std::string>{"--seams", "none"}, std::vector<std::string>{"--blend", "feather"}}) {
        std::vector<std::string> arguments = {"-o", in_folder("out.ppm"), "--layout", layout};
        arguments.insert(arguments.end(), way.begin(), way.end());
        const Outcome outcome = stitch({}, arguments);
        EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
        EXPECT_TRUE(contains(outcome.err, "\"keep\" masks do nothing without seams")) << outcome.err;
    }
}

TEST_F(StitchEngine, ANegativeNumberOfBytesOrPixelsIsRefused)
{
    for (const std::string option : {"--memory", "--max-pixels"}) {
        const Outcome outcome = stitch(three(), {"-o", in_folder("out.ppm"), option, "-1"});
        EXPECT_EQ(outcome.exit_code, 2) << option;
        EXPECT_TRUE(contains(outcome.err, concat(option, ": found '-1'; expected a "))) << outcome.err;
    }
}

TEST_F(StitchEngine, AForgottenWidthOfTheCircleIsExplained)
{
    const Outcome outcome = stitch({}, {"-o", in_folder("out.ppm"), "--wrap", three()[0], three()[1]});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_TRUE(contains(outcome.err, "--wrap: found '")) << outcome.err;
    EXPECT_TRUE(contains(outcome.err, ", or nothing: --wrap stands behind the pictures then")) << outcome.err;
}

TEST_F(StitchEngine, APlaceThatTheFormatHasNoRoomForIsTold)
{
    write_image(in_folder("far.ppm"), test_picture(40, 30, 3, 8));
    const std::string far = in_folder("far.ppm") + "@-7,3";
    const std::string note = "out.tif: its place, -7,3, is left out: a TIFF file holds no negative one";
    const Outcome outcome = stitch({far}, {"-o", in_folder("out.tif")});
    EXPECT_TRUE(contains(outcome.err, note)) << outcome.err;
    EXPECT_EQ(probe_image(in_folder("out.tif")).at(0).position, std::nullopt);
    EXPECT_EQ(stitch({far}, {"-o", in_folder("out.png"), "-q"}).err, "");
    EXPECT_EQ(probe_image(in_folder("out.png")).at(0).position, (image::Offset{-7, 3}));
    EXPECT_FALSE(contains(stitch({far}, {"-o", in_folder("out.ppm")}).err, "its place"));
}

TEST_F(StitchEngine, TooSmallABudgetNamesTheLeast)
{
    for (const int bits : {8, 16}) {
        std::vector<std::string> inputs;
        for (int i = 0; i < 2; ++i) {
            const std::string name = in_folder(concat("wide", i, ".ppm"));
            write_image(name, test_picture(16000, 16, 3, bits));
            inputs.push_back(concat(name, "@0,", 10 * i));
        }
        for (const auto& more : {std::vector<std::string>{"-o", in_folder("out.tif")},
                                 {"-o", in_folder("out.tif"), "--tile-size", "16000", "--seams", "none"},
                                 {"-o", in_folder("out.tif"), "--blend", "feather"},
                                 {"-o", in_folder("out.zarr"), "--tile-size", "16000"},
                                 {"-o", in_folder("out.json"), "--plan-only", "--tile-size", "16000"}}) {
            const auto with = [&](std::uint64_t memory) {
                auto arguments = more;
                arguments.insert(arguments.end(), {"--no-gain", "--memory", std::to_string(memory)});
                return stitch(inputs, arguments);
            };
            const Outcome outcome = with(1 << 20);
            EXPECT_EQ(outcome.exit_code, 5) << more[1];
            const bool blends_all = more.back() == "none" || more.back() == "feather";
            EXPECT_EQ(contains(outcome.err, "its seams"), !blends_all) << outcome.err;
            const std::string option = "expected --memory ";
            ASSERT_TRUE(contains(outcome.err, option)) << outcome.err;
            const std::uint64_t least = std::stoull(outcome.err.substr(outcome.err.find(option) + option.size()));
            EXPECT_EQ(with(least - 1).exit_code, 5) << more[1] << ", " << bits << " bit, " << least - 1;
            EXPECT_FALSE(file_exists(more[1]));
            const Outcome enough = with(least);
            EXPECT_EQ(enough.exit_code, 0) << bits << " bit: " << enough.err;
            EXPECT_TRUE(std::filesystem::exists(path_from_utf8(more[1])));
            std::filesystem::remove_all(path_from_utf8(more[1]));
        }
    }
}

TEST_F(StitchEngine, BudgetsBelowTheLeastOfAnyPanoramaAreRefused)
{
    for (const std::string memory : {"1048575", "1000K", "0"}) {
        const Outcome outcome = stitch(three(), {"-o", in_folder("out.ppm"), "--memory", memory});
        EXPECT_EQ(outcome.exit_code, 2) << memory;
        EXPECT_TRUE(contains(outcome.err, "found --memory ")) << outcome.err;
        EXPECT_TRUE(contains(outcome.err, "expected 1048576 bytes (1M) or more")) << outcome.err;
    }
    EXPECT_FALSE(file_exists(in_folder("out.ppm")));
}

TEST_F(StitchEngine, CanvasesOfMoreThan2To62SamplesAreRefused)
{
    shoot("a.ppm", 0, 0, 2, 2);
    const Outcome outcome =
        stitch({in_folder("a.ppm") + "@-1000000000,-1000000000", in_folder("a.ppm") + "@1000000000,1000000000"},
               {"-o", in_folder("out.tif"), "--seams", "none"});
    EXPECT_EQ(outcome.exit_code, 3);
    EXPECT_TRUE(contains(outcome.err, "2000000002 x 2000000002 pixels")) << outcome.err;
    EXPECT_TRUE(contains(outcome.err, "expected at most 2^62 samples")) << outcome.err;
    EXPECT_FALSE(file_exists(in_folder("out.tif")));
}

TEST_F(StitchEngine, BeingStrictTellsTheVerdictInTheExitCode)
{
    auto inputs = three();
    EXPECT_EQ(stitch(inputs, {"-o", in_folder("out.ppm"), "--strict"}).exit_code, 0);
    Image bad = make_image(120, 90, 3, 8, "test");
    for (std::size_t i = 0; i < bad.bytes(); ++i)
        bad.data[i] = static_cast<std::uint8_t>((i * 2654435761u) >> 24);
    write_image(in_folder("b.ppm"), bad);
    EXPECT_EQ(stitch(inputs, {"-o", in_folder("out.ppm"), "--strict"}).exit_code, 8);
    EXPECT_TRUE(file_exists(in_folder("out.ppm")));
}

TEST_F(StitchEngine, WithoutAVerdictThePanoramaIsTheSame)
{
    const auto inputs = three();
    ASSERT_EQ(stitch(inputs, {"-o", in_folder("judged.ppm")}).exit_code, 0);
    const Outcome outcome = stitch(inputs, {"-o", in_folder("out.ppm"), "--no-verdict", "--json"});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_FALSE(Json::parse(outcome.out).contains("verdict"));
    EXPECT_EQ(read_text("out.ppm"), read_text("judged.ppm"));
    EXPECT_EQ(stitch(inputs, {"-o", in_folder("out.ppm"), "--no-verdict", "--strict"}).exit_code, 2);
}

TEST_F(StitchEngine, StoredPicturesAreReadAgainWhereTheyAre)
{
    std::vector<std::string> inputs;
    for (int i = 0; i < 8; ++i) {
        write_image(in_folder(concat(i, ".tif")), test_picture(1000, 700, 3, 8));
        inputs.push_back(concat(in_folder(concat(i, ".tif")), "@", 800 * (i % 4), ",", 600 * (i / 4)));
    }
    const auto run = [&](const std::string& memory) {
        const Outcome outcome = stitch(inputs, {"-o", in_folder(memory + ".ppm"), "--memory", memory, "--json"});
        EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
        return Json::parse(outcome.out);
    };
    const Json little = run("40M");
    EXPECT_EQ(little["scratch_bytes"], 0);
    EXPECT_LE(little["decodes_per_picture"].get<double>(), 1.0);
    run("500M");
    EXPECT_EQ(read_text("40M.ppm"), read_text("500M.ppm"));
}

} // namespace

} // namespace panoval::cli::test
