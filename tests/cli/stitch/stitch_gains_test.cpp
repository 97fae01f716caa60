// SPDX-License-Identifier: MIT
// panoval stitch with gains, bands and report, on scenes whose truth is known.
#include "image/image_read.h"
#include "image/image_write.h"
#include "tests/cli/run_program.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace panoval::cli::test
{

namespace
{

using Json = nlohmann::json;

// One smooth scene, which pictures show at their places with gains of their own.
double scene_at(double x, double y, int channel)
{
    return 110 + 40 * std::sin(0.05 * x + channel) + 30 * std::cos(0.07 * y - channel) + 10 * std::sin(0.4 * (x + y));
}

struct Shot {
    std::int32_t x, y, width, height;
    double gain;
};

class StitchGains : public ScratchFolder
{
protected:
    std::string shoot(const std::string& name, const Shot& shot, int channels, int bits,
                      const image::WriteOptions& options = {}) const
    {
        Image image = make_image(shot.width, shot.height, channels, bits, "test");
        for (std::int32_t y = 0; y < shot.height; ++y)
            for (std::int32_t x = 0; x < shot.width; ++x)
                for (int c = 0; c < channels; ++c) {
                    const double level = shot.gain * scene_at(shot.x + x, shot.y + y, c) * (bits == 16 ? 150 : 1);
                    const auto sample = static_cast<std::uint16_t>(level + 0.5);
                    const std::size_t at = static_cast<std::size_t>(x * channels + c) * image.sample_bytes();
                    std::memcpy(image.row(y) + at, &sample, image.sample_bytes());
                }
        write_image(in_folder(name), image, options);
        return concat(in_folder(name), "@", shot.x, ",", shot.y);
    }

    std::vector<std::string> shoot_all(int channels, int bits) const
    {
        std::vector<std::string> inputs;
        for (std::size_t i = 0; i < kShots.size(); ++i)
            inputs.push_back(shoot(concat("shot", i, channels == 1 ? ".pgm" : ".ppm"), kShots[i], channels, bits));
        return inputs;
    }

    static Outcome stitch(std::vector<std::string> inputs, const std::vector<std::string>& more)
    {
        inputs.insert(inputs.begin(), {"stitch", "--json"});
        inputs.insert(inputs.end(), more.begin(), more.end());
        return run_panoval(inputs);
    }

    const std::vector<Shot> kShots = {{-20, 5, 120, 90, 0.8}, {60, 0, 120, 90, 1.1}, {140, -8, 120, 90, 1.0}};
};

// What the coding of JPEG files leaves out is nobody's fault, and hides no displacement.
TEST_F(StitchGains, JpegFilesAreJudgedByWhatTheyShow)
{
    const std::vector<Shot> shots = {{0, 0, 220, 200, 0.8}, {140, 5, 220, 200, 1.0}, {280, 0, 220, 200, 0.9}};
    for (const int quality : {75, 85, 95}) {
        std::vector<std::string> inputs;
        for (std::size_t i = 0; i < shots.size(); ++i)
            inputs.push_back(shoot(concat("shot", i, ".jpg"), shots[i], 3, 8, {.quality = quality}));
        const Json good = Json::parse(stitch(inputs, {"-o", in_folder("out.png")}).out);
        EXPECT_EQ(good["verdict"], "good") << "quality " << quality << ": " << good["reasons"];
        inputs[1] = concat(in_folder("shot1.jpg"), "@143,5");
        const Json displaced = Json::parse(stitch(inputs, {"-o", in_folder("out.png")}).out);
        EXPECT_EQ(displaced["verdict"], "bad") << "quality " << quality << ": " << displaced["reasons"];
        EXPECT_EQ(displaced["misfits"], Json({1})) << "quality " << quality << ": " << displaced["reasons"];
    }
}

TEST_F(StitchGains, KnownGainsAreRecovered)
{
    for (const int channels : {1, 3})
        for (const int bits : {8, 16}) {
            const Outcome outcome =
                stitch(shoot_all(channels, bits), {"-o", in_folder(channels == 1 ? "out.pgm" : "out.ppm")});
            ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
            const Json pictures = Json::parse(outcome.out)["pictures"];
            // What counts is that gain times exposure agrees.
            for (std::size_t i = 1; i < 3; ++i) {
                const double before = kShots[i].gain / kShots[0].gain;
                const double after = before * pictures[i]["gain"].get<double>() / pictures[0]["gain"].get<double>();
                EXPECT_NEAR(after, 1.0, 0.005) << channels << " channels, " << bits << " bit, picture " << i;
            }
        }
}

// Squares of samples beyond 46340 do not fit the 32 bits in which the library forms them.
TEST_F(StitchGains, BrightPicturesOf16BitGetGainsToo)
{
    std::vector<std::string> inputs;
    for (std::size_t i = 0; i < kShots.size(); ++i) {
        Image image = make_image(kShots[i].width, kShots[i].height, 3, 16, "test");
        const auto sample = static_cast<std::uint16_t>(50000 * kShots[i].gain);
        for (std::size_t at = 0; at < image.bytes(); at += 2)
            std::memcpy(&image.data[at], &sample, sizeof sample);
        const std::string name = concat("bright", i, ".ppm");
        write_image(in_folder(name), image);
        inputs.push_back(concat(in_folder(name), "@", kShots[i].x, ",", kShots[i].y));
    }
    const Outcome outcome = stitch(inputs, {"-o", in_folder("out.ppm")});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    const Json pictures = Json::parse(outcome.out)["pictures"];
    for (std::size_t i = 0; i < kShots.size(); ++i) {
        const double alike = pictures[i]["gain"].get<double>() * kShots[i].gain;
        const double first = pictures[0]["gain"].get<double>() * kShots[0].gain;
        EXPECT_NEAR(alike, first, 0.02 * first) << "picture " << i;
    }
}

TEST_F(StitchGains, GainsMakeOverlapsAgree)
{
    const Outcome outcome = stitch(shoot_all(3, 8), {"-o", in_folder("out.ppm"), "--distributions"});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    const Json json = Json::parse(outcome.out);
    ASSERT_EQ(json["overlaps"].size(), 2u);
    for (const Json& overlap : json["overlaps"]) {
        EXPECT_LT(overlap["after"]["mean"].get<double>(), 0.5 * overlap["before"]["mean"].get<double>());
        double sum = 0;
        for (const double share : overlap["after"]["distribution"])
            sum += share;
        EXPECT_NEAR(sum, 1.0, 1e-9);
    }
    EXPECT_EQ(json["overlaps"][0]["shared_pixels"], 40 * 85);
}

TEST_F(StitchGains, NoGainLeavesTheBrightnessAsItIs)
{
    const Outcome outcome = stitch(shoot_all(1, 8), {"-o", in_folder("out.pgm"), "--no-gain"});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    const Json json = Json::parse(outcome.out);
    for (const Json& picture : json["pictures"])
        EXPECT_EQ(picture["gain"], 1.0);
    EXPECT_EQ(json["overlaps"][0]["before"], json["overlaps"][0]["after"]);
    const Image panorama = read_image(in_folder("out.pgm"));
    EXPECT_NEAR(panorama.row(50)[10], 0.8 * scene_at(-10, 42, 0), 3);
}

TEST_F(StitchGains, SavedGainsGiveTheSamePanorama)
{
    const auto inputs = shoot_all(3, 8);
    const std::string gains = in_folder("gains.json");
    ASSERT_EQ(stitch(inputs, {"-o", in_folder("a.ppm"), "--gains", gains}).exit_code, 0);
    ASSERT_TRUE(file_exists(gains));
    const std::string saved = read_text("gains.json");
    const Outcome again = stitch(inputs, {"-o", in_folder("b.ppm"), "--gains", gains});
    ASSERT_EQ(again.exit_code, 0) << again.err;
    EXPECT_EQ(read_text("gains.json"), saved) << "loading changes nothing";
    EXPECT_EQ(read_text("a.ppm"), read_text("b.ppm"));
}

TEST_F(StitchGains, GainsOfOtherPicturesAreRefused)
{
    const auto inputs = shoot_all(1, 8);
    const auto refused = [&](const std::string& text) {
        const Outcome outcome = stitch(inputs, {"-o", in_folder("o.pgm"), "--gains", write_text("gains.json", text)});
        EXPECT_EQ(outcome.exit_code, 3) << text;
        EXPECT_TRUE(contains(outcome.err, "gains.json")) << outcome.err;
        EXPECT_FALSE(file_exists(in_folder("o.pgm")));
        EXPECT_EQ(read_text("gains.json"), text);
    };
    refused("nonsense");
    refused("[1, 2, 3]");
    refused(R"({"gains": [{"file": "shot0.pgm", "layer": 0, "gain": 1}]})");
    refused(R"({"gains": [{"file": "shot0.pgm", "layer": 0, "gain": 1}, {"file": "shot1.pgm", "layer": 0, "gain": -1},
                          {"file": "shot2.pgm", "layer": 0, "gain": 1}]})");
    for (const std::string& entry : {std::string(R"("file": "shot0.pgm", "layer": 0, "gain": 1e300)"),
                                     std::string(R"("file": "shot0.pgm", "layer": 0, "gain": 1e-300)"),
                                     std::string(R"("file": "shot0.pgm", "layer": 0, "gain": 1e999)"),
                                     std::string(R"("file": "shot0.pgm", "layer": 0, "gain": NaN)")})
        refused(concat(R"({"gains": [{)", entry, R"(}, {"file": "shot1.pgm", "layer": 0, "gain": 1},
                          {"file": "shot2.pgm", "layer": 0, "gain": 1}]})"));
    refused(R"({"gains": [{"file": "shot0.pgm"}, {"file": "shot1.pgm"}, {"file": "shot2.pgm"}]})");
}

TEST_F(StitchGains, GainsGoToPicturesInTheirOrderWhateverTheirNames)
{
    const auto inputs = shoot_all(1, 8);
    const std::string deep = std::string(300000, '[') + std::string(300000, ']');
    const std::string gains =
        write_text("gains.json", concat(R"({"gains": [{"file": "other.pgm", "layer": 0, "gain": 1.25},
        {"gain": 0.5}, {"file": )",
                                        deep, R"(, "gain": 2}]})"));
    const Outcome outcome = stitch(inputs, {"-o", in_folder("o.pgm"), "--gains", gains});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_TRUE(contains(outcome.err, "entry 1 is for 'other.pgm' and is taken for ")) << outcome.err;
    const Json pictures = Json::parse(outcome.out)["pictures"];
    EXPECT_EQ(pictures[0]["gain"], 1.25);
    EXPECT_EQ(pictures[1]["gain"], 0.5);
    EXPECT_EQ(pictures[2]["gain"], 2.0);
}

// A picture that ends in its pixels is noticed when it is read; what is wrong with the gains, before that.
TEST_F(StitchGains, GainsThatCannotBeLoadedOrSavedAreKnownBeforeThePicturesAreRead)
{
    const std::string bad = write_text("bad.pgm", "P2\n2 2\n255\n1 2 3") + "@0,0";
    const std::string other = write_text("other.json", R"({"gains": []})");
    const Outcome load = stitch({bad}, {"-o", in_folder("o.pgm"), "--gains", other});
    EXPECT_EQ(load.exit_code, 3);
    EXPECT_TRUE(contains(load.err, "other.json: found 0 gains")) << load.err;
    const Outcome save = stitch({bad}, {"-o", in_folder("o.pgm"), "--gains", in_folder("none/g.json")});
    EXPECT_EQ(save.exit_code, 4);
    EXPECT_TRUE(contains(save.err, "g.json: found no folder")) << save.err;
    EXPECT_EQ(stitch({bad}, {"-o", in_folder("o.pgm"), "--gains", in_folder("g.json")}).exit_code, 3);
    EXPECT_EQ(names().size(), 2u) << "nothing is left behind";
}

TEST_F(StitchGains, BandsAreChosenFromTheOverlaps)
{
    const auto inputs = shoot_all(1, 8); // overlaps 40 pixels wide: 8 x 4 fit, 8 x 8 do not
    EXPECT_EQ(Json::parse(stitch(inputs, {"-o", in_folder("o.pgm")}).out)["bands"], 2);
    EXPECT_EQ(Json::parse(stitch(inputs, {"-o", in_folder("o.pgm"), "--bands", "4"}).out)["bands"], 4);
    EXPECT_EQ(stitch(inputs, {"-o", in_folder("o.pgm"), "--bands", "0"}).exit_code, 2);
    EXPECT_EQ(stitch(inputs, {"-o", in_folder("o.pgm"), "--bands", "31"}).exit_code, 2);
    EXPECT_EQ(stitch(inputs, {"-o", in_folder("o.pgm"), "--bands", "3", "--blend", "feather"}).exit_code, 2);
    EXPECT_EQ(stitch(inputs, {"-o", in_folder("o.pgm"), "--no-gain", "--gains", in_folder("g.json")}).exit_code, 2);
}

TEST_F(StitchGains, SeamsAreBelowWhatTheSceneShows)
{
    for (int bands = 1; bands <= 7; ++bands) {
        const Outcome outcome = stitch(shoot_all(3, 8), {"-o", in_folder("out.ppm"), "--bands", std::to_string(bands)});
        ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
        const Json json = Json::parse(outcome.out);
        const double level = json["pictures"][1]["gain"].get<double>() * kShots[1].gain; // of the panorama
        const Image panorama = read_image(in_folder("out.ppm"));
        double worst = 0;
        for (std::int32_t y = 20; y < 80; ++y)
            for (std::int32_t x = 10; x + 10 < panorama.width; ++x)
                worst = std::max(worst, std::fabs(panorama.row(y)[3 * x] - level * scene_at(x - 20, y - 8, 0)));
        EXPECT_LT(worst, 4) << bands << " bands: far from the scene";
        // Steps across the border of a picture are no larger than within the scene.
        double step = 0;
        for (std::int32_t y = 20; y < 80; ++y)
            step = std::max(step, std::fabs((panorama.row(y)[3 * 80] - panorama.row(y)[3 * 79]) -
                                            level * (scene_at(60, y - 8, 0) - scene_at(59, y - 8, 0))));
        EXPECT_LT(step, 3) << bands << " bands: a visible step";
    }
}

TEST_F(StitchGains, WhatNoPictureCoversIsBlack)
{
    const std::vector<std::string> inputs = {shoot("a.pgm", {0, 0, 60, 40, 1}, 1, 8),
                                             shoot("b.pgm", {40, 50, 60, 40, 1}, 1, 8)};
    ASSERT_EQ(stitch(inputs, {"-o", in_folder("out.pgm"), "--bands", "3"}).exit_code, 0);
    const Image panorama = read_image(in_folder("out.pgm"));
    EXPECT_EQ(panorama.row(45)[50], 0);
    EXPECT_EQ(panorama.row(5)[90], 0);
    EXPECT_EQ(panorama.row(80)[5], 0);
    EXPECT_GT(panorama.row(5)[5], 0);
}

TEST_F(StitchGains, TheReportTellsWhichPictureIsBad)
{
    auto inputs = shoot_all(3, 8);
    Image bad = make_image(120, 90, 3, 8, "test"); // the middle one shows something else
    for (std::size_t i = 0; i < bad.bytes(); ++i)
        bad.data[i] = static_cast<std::uint8_t>((i * 2654435761u) >> 24);
    write_image(in_folder("shot1.ppm"), bad);
    const Outcome outcome = stitch(inputs, {"-o", in_folder("out.ppm"), "--report", in_folder("r.html")});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    const Json json = Json::parse(outcome.out);
    EXPECT_EQ(json["overlaps"][0]["verdict"], "bad");
    EXPECT_EQ(json["verdict"], "bad");
    EXPECT_EQ(json["misfits"], Json({1}));
    EXPECT_TRUE(contains(json["suspect"].get<std::string>(), "shot1.ppm")) << json["suspect"];
    const std::string page = read_text("r.html");
    EXPECT_TRUE(contains(page, R"(<img id="panorama" alt="the panorama" src="data:image/png;base64,iVBORw0KGgo)"));
    EXPECT_TRUE(contains(page, "</html>"));
}

// Before the gains nearly all differences are beyond the last bar.
TEST_F(StitchGains, TheReportShowsSmallDifferencesBesideManyLargeOnes)
{
    const std::vector<std::string> inputs = {shoot("a.pgm", {0, 0, 60, 40, 0.4}, 1, 8),
                                             shoot("b.pgm", {20, 0, 60, 40, 1.3}, 1, 8)};
    ASSERT_EQ(stitch(inputs, {"-o", in_folder("out.pgm"), "--report", in_folder("r.html")}).exit_code, 0);
    const std::string page = read_text("r.html");
    EXPECT_TRUE(contains(page, R"(height="48.00" fill="#b9a06a")")) << "the last bar";
    EXPECT_TRUE(contains(page, R"(height="48.00" fill="#2a6fb0")")) << "the highest one after the gains";
}

// Three layers as large as the canvas, of which each shows a third and a bit.
TEST_F(StitchGains, TheReportLeavesOutRectanglesThatMeetWithoutASharedPixel)
{
    std::vector<std::string> inputs;
    for (std::int32_t i = 0; i < 3; ++i) {
        Image mask = make_image(120, 40, 1, 8, "test");
        for (std::int32_t y = 0; y < mask.height; ++y)
            for (std::int32_t x = 0; x < mask.width; ++x)
                mask.row(y)[x] = x >= 40 * i - 5 && x < 40 * i + 45 ? 255 : 0;
        write_image(in_folder(concat("m", i, ".pgm")), mask);
        inputs.push_back(
            concat(shoot(concat("p", i, ".pgm"), {0, 0, 120, 40, 1}, 1, 8), ":", in_folder(concat("m", i, ".pgm"))));
    }
    const auto count_of = [](const std::string& text, const std::string& part) {
        std::size_t count = 0;
        for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
            ++count;
        return count;
    };
    const Outcome three = stitch(inputs, {"-o", in_folder("o.pgm"), "--report", in_folder("r.html")});
    ASSERT_EQ(three.exit_code, 0) << three.err;
    EXPECT_EQ(Json::parse(three.out)["overlapping_pairs"], 3);
    const std::string page = read_text("r.html");
    EXPECT_EQ(count_of(page, "<svg class=\"bars\""), 2u);
    EXPECT_TRUE(contains(page, "1 pair of rectangles meets without"));
    EXPECT_TRUE(contains(page, "Verdict: good."));

    ASSERT_EQ(stitch({inputs[0], inputs[2]}, {"-o", in_folder("o.pgm"), "--report", in_folder("r.html")}).exit_code, 0);
    EXPECT_TRUE(contains(read_text("r.html"), "No two pictures overlap: there is no seam to judge."));
}

TEST_F(StitchGains, AReportThatCannotBeWrittenLeavesNoPanorama)
{
    const auto inputs = shoot_all(1, 8);
    const Outcome outcome = stitch(inputs, {"-o", in_folder("out.pgm"), "--report", in_folder("no/r.html")});
    EXPECT_EQ(outcome.exit_code, 4);
    EXPECT_FALSE(file_exists(in_folder("out.pgm")));
}

} // namespace

} // namespace panoval::cli::test
