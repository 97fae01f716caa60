// SPDX-License-Identifier: MIT
// panoval ellipses, from outside, on rendered targets.
#include "image/image_read.h"
#include "image/image_write.h"
#include "tests/cli/run_program.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <sstream>

namespace panoval::cli::test
{

namespace
{

using Json = nlohmann::json;

struct Disc {
    double x, y, radius;
};

// Dark discs of 30 on 210, 8 x 8 samples a pixel; a pixel's centre has whole coordinates.
Image render(std::int32_t width, std::int32_t height, const std::vector<Disc>& discs)
{
    Image image = make_image(width, height, 1, 8, "test");
    for (std::int32_t y = 0; y < height; ++y)
        for (std::int32_t x = 0; x < width; ++x) {
            int dark = 0;
            for (int sample = 0; sample < 64; ++sample) {
                const double px = x + (sample % 8 - 3.5) / 8;
                const double py = y + (sample / 8 - 3.5) / 8;
                dark += std::any_of(discs.begin(), discs.end(),
                                    [&](const Disc& d) { return std::hypot(px - d.x, py - d.y) < d.radius; });
            }
            image.row(y)[x] = static_cast<std::uint8_t>(210 - 180 * dark / 64);
        }
    return image;
}

const std::vector<Disc> kTwoDiscs = {{40.3, 30.6, 12}, {100.25, 62.5, 9}};

class Ellipses : public ScratchFolder
{
protected:
    std::string write_two_discs(const std::string& name = "two.pgm") const
    {
        write_image(in_folder(name), render(150, 100, kTwoDiscs));
        return in_folder(name);
    }
};

TEST_F(Ellipses, JsonGivesEveryTargetWithSubPixelCentres)
{
    const Outcome outcome = run_panoval({"ellipses", "--json", write_two_discs()});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    const Json image = Json::parse(outcome.out).at("images").at(0);
    ASSERT_EQ(image.at("targets").size(), 2u);
    for (std::size_t i = 0; i < 2; ++i) {
        const Json target = image.at("targets").at(i);
        EXPECT_EQ(target.at("number"), i + 1);
        EXPECT_NEAR(target.at("x").get<double>(), kTwoDiscs[i].x, 0.02);
        EXPECT_NEAR(target.at("y").get<double>(), kTwoDiscs[i].y, 0.02);
        EXPECT_NEAR(target.at("semi_major").get<double>(), kTwoDiscs[i].radius, 0.05);
        EXPECT_GT(target.at("quality").get<double>(), 0.7);
        EXPECT_EQ(target.at("polarity"), "dark");
        EXPECT_NEAR(target.at("contrast").get<double>(), 180, 3);
        for (const char* const name : {"sigma_x", "sigma_y", "sigma_major", "sigma_minor", "sigma_angle", "blur"})
            EXPECT_GT(target.at(name).get<double>(), 0) << name;
        for (const char* const name : {"cov_xy", "noise", "edge_share", "chi_square", "flags"})
            EXPECT_TRUE(target.contains(name)) << name;
        EXPECT_NEAR(target.at("level_inside").get<double>(), 30, 3);
        EXPECT_NEAR(target.at("level_outside").get<double>(), 210, 3);
        EXPECT_FALSE(target.contains("covariance"));
        EXPECT_GE(target.at("semi_major").get<double>(), target.at("semi_minor").get<double>());
    }
    EXPECT_EQ(outcome.err, "");
}

TEST_F(Ellipses, JsonTellsItsVersionTheMethodAndTheRangeOfAngles)
{
    const std::string two = write_two_discs();
    const Json precise = Json::parse(run_panoval({"ellipses", "--json", two}).out);
    EXPECT_EQ(precise.at("schema_version"), 2);
    EXPECT_EQ(precise.at("method"), "precise");
    const double low = precise.at("angle_range").at(0).get<double>();
    const double high = precise.at("angle_range").at(1).get<double>();
    EXPECT_NEAR(high, 1.5707963267948966, 1e-15);
    EXPECT_EQ(low, -high);
    for (const Json& target : precise.at("images").at(0).at("targets")) {
        EXPECT_GT(target.at("angle").get<double>(), low);
        EXPECT_LE(target.at("angle").get<double>(), high);
    }
    const Json library = Json::parse(run_panoval({"ellipses", "--method", "library", "--json", two}).out);
    EXPECT_EQ(library.at("schema_version"), 2);
    EXPECT_EQ(library.at("method"), "library");
}

// A disc at the border, a ring of two outlines, and one disc beside it.
TEST_F(Ellipses, EveryFormatNamesTheFlags)
{
    Image image = render(170, 100, {{8, 20.3, 8}, {60.2, 60.7, 24}, {99, 60, 12}});
    for (std::int32_t y = 0; y < 100; ++y)
        for (std::int32_t x = 0; x < 170; ++x)
            if (std::hypot(x - 60.2, y - 60.7) < 12)
                image.row(y)[x] = 255;
    write_image(in_folder("flags.pgm"), image);
    const Json targets =
        Json::parse(run_panoval({"ellipses", "--json", in_folder("flags.pgm")}).out)["images"][0]["targets"];
    ASSERT_EQ(targets.size(), 4u) << targets;
    const auto flags = [&](std::size_t target) { return targets[target]["flags"].get<std::vector<std::string>>(); };
    const auto has = [&](std::size_t target, const char* name) {
        const std::vector<std::string> names = flags(target);
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    EXPECT_TRUE(has(0, "border")) << targets[0];
    int rings = 0;
    int neighbours = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        rings += has(i, "ring");
        neighbours += has(i, "neighbour");
    }
    EXPECT_EQ(rings, 2) << targets;
    EXPECT_GE(neighbours, 2) << targets;
    for (const bool wants_csv : {true, false}) {
        const std::string text = wants_csv ? run_panoval({"ellipses", "--csv", in_folder("flags.pgm")}).out
                                           : run_panoval({"ellipses", in_folder("flags.pgm")}).out;
        for (std::size_t i = 0; i < 4; ++i) {
            std::string joined;
            for (const std::string& name : flags(i))
                joined += (joined.empty() ? "" : " ") + name;
            EXPECT_TRUE(contains(text, joined)) << joined << " in " << text;
        }
    }
}

TEST_F(Ellipses, TheLibrarysOwnLinesStayOutOfTheResults)
{
    // A square's fit is bad enough to be rejected, which makes the finder print a line.
    Image image = render(150, 100, kTwoDiscs);
    for (std::int32_t y = 8; y < 40; ++y)
        std::fill_n(image.row(y) + 80, 60, std::uint8_t{30});
    write_image(in_folder("square.pgm"), image);
    for (const char* const format : {"--json", "--csv"}) {
        const Outcome outcome =
            run_panoval({"ellipses", "--method", "library", format, "--max-rms", "1", in_folder("square.pgm")});
        ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
        EXPECT_FALSE(contains(outcome.out, "rms=")) << outcome.out;
    }
}

TEST_F(Ellipses, CsvHasALineForEachTarget)
{
    const Outcome outcome = run_panoval({"ellipses", "--csv", write_two_discs()});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_EQ(outcome.out.substr(0, 21), "file,status,number,x,");
    EXPECT_EQ(std::count(outcome.out.begin(), outcome.out.end(), '\n'), 3);
}

TEST_F(Ellipses, TheTableNamesThePictureAndNumbersTheTargets)
{
    const Outcome outcome = run_panoval({"ellipses", write_two_discs()});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_TRUE(contains(outcome.out, "two.pgm: 2 targets in 150 x 100 pixels")) << outcome.out;
}

TEST_F(Ellipses, ColourGivesTheTargetsOfItsGrey)
{
    for (const char* const method : {"precise", "library"}) {
        const Outcome grey = run_panoval({"ellipses", "--method", method, "--json", write_two_discs()});
        Image colour = render(150, 100, kTwoDiscs);
        convert_to_colour(colour, "test");
        write_image(in_folder("two.ppm"), colour);
        const Outcome outcome = run_panoval({"ellipses", "--method", method, "--json", in_folder("two.ppm")});
        ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
        EXPECT_EQ(Json::parse(outcome.out)["images"][0]["targets"], Json::parse(grey.out)["images"][0]["targets"]);
    }
}

TEST_F(Ellipses, TheLibrarysMethodScalesSixteenBitToEight)
{
    const Outcome grey = run_panoval({"ellipses", "--method", "library", "--json", write_two_discs()});
    Image deep = render(150, 100, kTwoDiscs);
    convert_depth(deep, 16, "test");
    write_image(in_folder("deep.pgm"), deep);
    const Outcome outcome = run_panoval({"ellipses", "--method", "library", "--json", in_folder("deep.pgm")});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_EQ(Json::parse(outcome.out)["images"][0]["targets"], Json::parse(grey.out)["images"][0]["targets"]);
    const Json target = Json::parse(grey.out)["images"][0]["targets"][0];
    for (const char* const name : {"rms", "outline_points", "labelled_pixels"})
        EXPECT_TRUE(target.contains(name)) << name;
    EXPECT_NEAR(target["x"].get<double>(), kTwoDiscs[0].x, 0.4);
}

TEST_F(Ellipses, SixteenBitAreMeasuredAsSixteenBit)
{
    // A contrast of 150 in 65535 is less than one level of eight bit.
    Image deep = make_image(150, 100, 1, 16, "test");
    const Image eight = render(150, 100, kTwoDiscs);
    for (std::size_t i = 0; i < deep.pixels(); ++i) {
        const auto level = static_cast<std::uint16_t>(20000 + (eight.data[i] - 30) * 5 / 6);
        std::memcpy(deep.data.get() + 2 * i, &level, 2);
    }
    write_image(in_folder("deep.pgm"), deep);
    const Outcome outcome = run_panoval({"ellipses", "--json", in_folder("deep.pgm")});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    const Json image = Json::parse(outcome.out)["images"][0];
    EXPECT_EQ(image["bits"], 16);
    ASSERT_EQ(image["targets"].size(), 2u);
    EXPECT_NEAR(image["targets"][0]["contrast"].get<double>(), 150, 3);
}

TEST_F(Ellipses, PolarityAndQualityChooseAndNothingFoundSaysWhy)
{
    const std::string two = write_two_discs();
    const auto json = [&](const std::vector<std::string>& options) {
        std::vector<std::string> arguments = {"ellipses", "--json", two};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Outcome outcome = run_panoval(arguments);
        EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
        return Json::parse(outcome.out)["images"][0];
    };
    EXPECT_EQ(json({"--polarity", "dark"})["targets"].size(), 2u);
    const Json bright = json({"--polarity", "bright"});
    EXPECT_EQ(bright["targets"].size(), 0u);
    EXPECT_TRUE(contains(bright["nothing_because"].get<std::string>(), "2 found that are dark")) << bright;
    const Json best = json({"--min-quality", "1"});
    EXPECT_TRUE(contains(best["nothing_because"].get<std::string>(), "less quality")) << best;
    write_image(in_folder("flat.pgm"), render(60, 60, {}));
    const Outcome flat = run_panoval({"ellipses", in_folder("flat.pgm")});
    EXPECT_EQ(flat.exit_code, 0);
    EXPECT_TRUE(contains(flat.out, "0 targets in 60 x 60 pixels: no closed outline")) << flat.out;
}

TEST_F(Ellipses, NothingFoundSaysWhatIsWrongWithTheOutlines)
{
    const auto reason = [&](const Image& image) {
        write_image(in_folder("one.pgm"), image);
        return run_panoval({"ellipses", in_folder("one.pgm")}).out;
    };
    EXPECT_TRUE(contains(reason(render(60, 60, {{30, 30, 1.6}})), "too small: less than 2.5 pixels"));
    EXPECT_TRUE(contains(reason(render(150, 150, {{75, 75, 60}})), "too large: more than a third"));
    Image faint = render(60, 60, {{30, 30, 12}});
    for (std::int32_t y = 0; y < 60; ++y)
        for (std::int32_t x = 0; x < 60; ++x) // contrast 9, noise of 4 levels
            faint.row(y)[x] =
                static_cast<std::uint8_t>(100 + faint.row(y)[x] / 20 + (x * 7919 + y * 104729 + x * y * 31) % 15);
    EXPECT_TRUE(contains(reason(faint), "too faint against the noise")) << reason(faint);
    Image bar = make_image(100, 100, 1, 8, "test");
    for (std::int32_t y = 0; y < 100; ++y)
        for (std::int32_t x = 0; x < 100; ++x)
            bar.row(y)[x] = y >= 20 && y < 70 && x >= 42 && x < 50 ? 30 : 210;
    EXPECT_TRUE(contains(reason(bar), "outlines, none of them oval")) << reason(bar);
}

TEST_F(Ellipses, ABoardIsOrderedAndNamesItsMissingPlaces)
{
    std::vector<Disc> discs;
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 4; ++column)
            if (row != 1 || column != 2)
                discs.push_back({40 + 55 * column + 0.3 * row, 40 + 55 * row - 0.2 * column, 12});
    write_image(in_folder("board.pgm"), render(260, 200, discs));
    const Outcome outcome = run_panoval({"ellipses", "--board", "3x4", "--json", in_folder("board.pgm")});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    const Json board = Json::parse(outcome.out)["images"][0]["board"];
    EXPECT_EQ(board["found"], true) << board;
    EXPECT_EQ(board["places"].size(), 11u);
    ASSERT_EQ(board["missing"].size(), 1u);
    EXPECT_EQ(board["missing"][0]["row"], 1);
    EXPECT_EQ(board["missing"][0]["column"], 2);
    EXPECT_NEAR(board["missing"][0]["x"].get<double>(), 150.3, 0.1);
    EXPECT_LT(board["rms"].get<double>(), 0.02);
    const Outcome table = run_panoval({"ellipses", "--board", "3x4", in_folder("board.pgm")});
    EXPECT_TRUE(contains(table.out, "board of 3 x 4: 11 found, 1 missing")) << table.out;
    const Outcome none = run_panoval({"ellipses", "--board", "9x9", in_folder("board.pgm")});
    EXPECT_TRUE(contains(none.out, "board of 9 x 9: not found")) << none.out;
    discs.resize(3);
    for (const std::vector<Disc>& few : {discs, std::vector<Disc>()}) {
        write_image(in_folder("few.pgm"), render(260, 200, few));
        const Outcome lacking = run_panoval({"ellipses", "--board", "3x4", in_folder("few.pgm")});
        EXPECT_TRUE(contains(lacking.out, "not found: too few targets; expected 4 or more")) << lacking.out;
    }
}

TEST_F(Ellipses, CovarianceIsPrintedWhereItIsAskedFor)
{
    const Outcome outcome = run_panoval({"ellipses", "--json", "--covariance", write_two_discs()});
    const Json target = Json::parse(outcome.out)["images"][0]["targets"][0];
    ASSERT_EQ(target["covariance"].size(), 5u);
    EXPECT_NEAR(target["covariance"][0][0].get<double>(), std::pow(target["sigma_x"].get<double>(), 2), 1e-15);
    EXPECT_EQ(target["covariance"][0][1], target["cov_xy"]);
    const Outcome csv = run_panoval({"ellipses", "--csv", "--covariance", write_two_discs()});
    EXPECT_TRUE(contains(csv.out, ",c00,c01,")) << csv.out;
    const Outcome table = run_panoval({"ellipses", "--covariance", write_two_discs()});
    EXPECT_TRUE(contains(table.out, "angle ")) << table.out;
}

TEST_F(Ellipses, ResultsAreTheSameBytesInEveryRun)
{
    const std::string two = write_two_discs();
    for (const char* const format : {"--json", "--csv"})
        EXPECT_EQ(run_panoval({"ellipses", format, two}).out, run_panoval({"ellipses", format, two}).out);
    EXPECT_FALSE(contains(run_panoval({"ellipses", "--json", two}).out, "seconds"));
    EXPECT_TRUE(contains(run_panoval({"ellipses", "--json", "--times", two}).out, "seconds"));
    EXPECT_TRUE(contains(run_panoval({"ellipses", "--times", two}).out, " ms")); // before a line end of any system
    EXPECT_FALSE(contains(run_panoval({"ellipses", two}).out, " ms"));
}

TEST_F(Ellipses, EachMethodHasOptionsOfItsOwn)
{
    const std::string two = write_two_discs();
    for (const char* const option : {"--min-pixels", "--max-rms", "--divisions"}) {
        const Outcome outcome = run_panoval({"ellipses", option, "3", two});
        EXPECT_EQ(outcome.exit_code, 2);
        EXPECT_TRUE(contains(outcome.err, std::string(option) + " belongs to --method library")) << outcome.err;
    }
    const Outcome outcome = run_panoval({"ellipses", "--method", "library", "--polarity", "both", two});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_TRUE(contains(outcome.err, "--polarity belongs to --method precise")) << outcome.err;
    for (const char* const board : {"7", "1x9", "7x", "x7", "7x9x", "7 by 9", "2000x2"})
        EXPECT_EQ(run_panoval({"ellipses", "--board", board, two}).exit_code, 2) << board;
}

// Yellow alone could not be read on light ground.
void expect_numbers_on_dark_rims(const Image& overlay, int expected_dots)
{
    const auto is = [&](std::int32_t x, std::int32_t y, int red, int green, int blue) {
        const std::uint8_t* const pixel = overlay.row(y) + 3 * x;
        return pixel[0] == red && pixel[1] == green && pixel[2] == blue;
    };
    int dots = 0;
    for (std::int32_t y = 1; y + 1 < overlay.height; ++y)
        for (std::int32_t x = 1; x + 1 < overlay.width; ++x) {
            if (!is(x, y, 255, 220, 0))
                continue;
            ++dots;
            for (const std::int32_t side : {-1, 1})
                EXPECT_TRUE(is(x + side, y, 255, 220, 0) || is(x + side, y, 0, 0, 0)) << x << ", " << y;
        }
    EXPECT_EQ(dots, expected_dots);
}

TEST_F(Ellipses, OverlaysShowTheTargets)
{
    const Outcome outcome =
        run_panoval({"ellipses", write_two_discs(), "--png", in_folder("over.ppm"), "--svg", in_folder("over.svg")});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    const Image overlay = read_image(in_folder("over.ppm"));
    EXPECT_EQ(describe(overlay), "150 x 100 pixels, 3 channels, 8 bit");
    const std::uint8_t* const edge = overlay.row(31) + 3 * 28; // on the first disc's left edge
    EXPECT_GT(edge[0], edge[1] + 40) << "no red outline";
    EXPECT_EQ(overlay.row(90)[3 * 20], 210) << "the picture shows through";
    expect_numbers_on_dark_rims(overlay, 8 + 11); // of a 1 and a 2
    const std::string svg = read_text("over.svg");
    EXPECT_TRUE(contains(svg, "<svg xmlns=")) << svg.substr(0, 200);
    EXPECT_TRUE(contains(svg, "<image width=\"150\" height=\"100\"")) << svg.substr(0, 400);
    EXPECT_TRUE(contains(svg, "href=\"data:image/png;base64,iVBORw0KGgo")) << "the picture itself";
    std::size_t ellipses = 0;
    for (auto at = svg.find("<ellipse "); at != std::string::npos; at = svg.find("<ellipse ", at + 1))
        ++ellipses;
    EXPECT_EQ(ellipses, 4u) << "outlines and error ellipses";
    EXPECT_TRUE(contains(svg, "error ellipses (1 sigma) x ")) << "how many times they are magnified";
    bool is_factor_written = false; // in the colour of the error ellipses, in the lower left corner
    for (std::int32_t x = 0; x < 40; ++x)
        for (std::int32_t y = 90; y < 100; ++y)
            is_factor_written |= overlay.row(y)[3 * x] == 255 && overlay.row(y)[3 * x + 1] == 0;
    EXPECT_TRUE(is_factor_written);
}

TEST_F(Ellipses, NumbersOfTargetsInCornersAreWithinThePicture)
{
    write_image(in_folder("corners.pgm"), render(150, 100, {{138, 12, 11}, {12, 13, 11}, {138, 88, 11}, {12, 87, 11}}));
    const Outcome outcome = run_panoval(
        {"ellipses", in_folder("corners.pgm"), "--png", in_folder("over.ppm"), "--svg", in_folder("over.svg")});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    expect_numbers_on_dark_rims(read_image(in_folder("over.ppm")), 8 + 11 + 11 + 9);
    const std::string svg = read_text("over.svg");
    int numbers = 0;
    for (auto at = svg.find("<text x=\""); at != std::string::npos; at = svg.find("<text x=\"", at + 1)) {
        double x = 0;
        double y = 0;
        ASSERT_EQ(std::sscanf(svg.c_str() + at, "<text x=\"%lf\" y=\"%lf\"", &x, &y), 2);
        EXPECT_TRUE(x > 0 && x < 145 && y > 5 && y < 100) << x << ", " << y;
        ++numbers;
    }
    EXPECT_EQ(numbers, 5) << "of four targets, and the magnification";
}

TEST_F(Ellipses, OneBadPictureDoesNotStopTheOthers)
{
    const std::string good = write_two_discs();
    const std::string bad = write_text("bad.pgm", "P5\n10 10\n255\nshort");
    const Outcome outcome = run_panoval({"ellipses", "--json", bad, good, in_folder("missing.pgm")});
    EXPECT_EQ(outcome.exit_code, 1);
    const Json json = Json::parse(outcome.out);
    ASSERT_EQ(json["images"].size(), 3u) << "a row each";
    EXPECT_EQ(json["images"][1]["targets"].size(), 2u);
    EXPECT_EQ(json["images"][0]["file"], bad);
    EXPECT_TRUE(contains(json["images"][0]["error"].get<std::string>(), "bad.pgm"));
    EXPECT_EQ(json["images"][0]["targets"].size(), 0u);
    ASSERT_EQ(json["failures"].size(), 2u);
    EXPECT_EQ(json["failures"][0]["file"], bad);
    EXPECT_TRUE(contains(outcome.err, "bad.pgm")) << outcome.err;
    EXPECT_TRUE(contains(outcome.err, "missing.pgm")) << outcome.err;
}

TEST_F(Ellipses, LinesAboutBadPicturesStandAlone)
{
    const std::vector<std::string> bad = {in_folder("none.pgm"), in_folder("missing.pgm")};
    const Outcome plain = run_panoval({"ellipses", bad[0], bad[1]});
    EXPECT_EQ(plain.exit_code, 6) << "all of them";
    EXPECT_EQ(std::count(plain.err.begin(), plain.err.end(), '\n'), 2) << plain.err;
    EXPECT_FALSE(contains(plain.err, "\rpanoval: ")) << "no bar was drawn";
    const Outcome bar = run_panoval({"ellipses", bad[0], bad[1], "--progress", "always"});
    EXPECT_TRUE(contains(bar.err, "\rpanoval: ")) << "the bar is removed first: " << bar.err;
}

TEST_F(Ellipses, CsvHasARowForFailedAndEmptyPictures)
{
    write_image(in_folder("flat.pgm"), render(60, 60, {}));
    const Outcome outcome =
        run_panoval({"ellipses", "--csv", in_folder("missing.pgm"), in_folder("flat.pgm"), write_two_discs()});
    EXPECT_EQ(outcome.exit_code, 1);
    std::istringstream lines(outcome.out);
    std::vector<std::string> rows;
    for (std::string line; std::getline(lines, line);)
        rows.push_back(line);
    ASSERT_EQ(rows.size(), 5u) << outcome.out;
    EXPECT_TRUE(contains(rows[1], "missing.pgm,") && contains(rows[1], "failed: ")) << rows[1];
    EXPECT_TRUE(contains(rows[2], "flat.pgm,empty: no closed outline")) << rows[2];
    EXPECT_TRUE(contains(rows[3], "two.pgm,ok,1,")) << rows[3];
    const auto commas = [](const std::string& row) { return std::count(row.begin(), row.end(), ','); };
    EXPECT_EQ(commas(rows[2]), commas(rows[0]));
    EXPECT_EQ(commas(rows[3]), commas(rows[0]));
}

TEST_F(Ellipses, ABadPictureAloneIsAnInputError)
{
    const Outcome outcome = run_panoval({"ellipses", in_folder("missing.pgm")});
    EXPECT_EQ(outcome.exit_code, 3);
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(contains(outcome.err, "missing.pgm")) << outcome.err;
}

TEST_F(Ellipses, ValuesAreCheckedAgainstWhatTheFinderNeeds)
{
    const std::string two = write_two_discs();
    const Outcome many = run_panoval({"ellipses", "--method", "library", "--divisions", "101", two});
    EXPECT_EQ(many.exit_code, 3);
    EXPECT_TRUE(contains(many.err, "101") && contains(many.err, "1 to 100")) << many.err;
    EXPECT_EQ(run_panoval({"ellipses", "--divisions", "0", two}).exit_code, 2);
    EXPECT_EQ(run_panoval({"ellipses", "--max-rms", "0", two}).exit_code, 2);
    EXPECT_EQ(run_panoval({"ellipses", "--min-pixels", "-1", two}).exit_code, 2);
    EXPECT_EQ(run_panoval({"ellipses", "--min-pixels", "many", two}).exit_code, 2);
    EXPECT_EQ(run_panoval({"ellipses", "--csv", "--json", two}).exit_code, 2);
    write_image(in_folder("tiny.pgm"), make_image(2, 9, 1, 8, "test"));
    EXPECT_EQ(run_panoval({"ellipses", in_folder("tiny.pgm")}).exit_code, 0) << "nothing to be found";
    const Outcome tiny = run_panoval({"ellipses", "--method", "library", in_folder("tiny.pgm")});
    EXPECT_EQ(tiny.exit_code, 3);
    EXPECT_TRUE(contains(tiny.err, "2 x 9")) << tiny.err;
}

TEST_F(Ellipses, OverlaysOfSeveralPicturesNeedAPlaceForTheirNames)
{
    const std::string one = write_two_discs("one.pgm");
    const std::string two = write_two_discs("two.pgm");
    const Outcome refused = run_panoval({"ellipses", one, two, "--svg", in_folder("over.svg")});
    EXPECT_EQ(refused.exit_code, 2);
    EXPECT_TRUE(contains(refused.err, "{}")) << refused.err;
    const Outcome outcome = run_panoval({"ellipses", one, two, "--svg", in_folder("{}-over.svg")});
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_TRUE(file_exists(in_folder("one-over.svg")));
    EXPECT_TRUE(file_exists(in_folder("two-over.svg")));
    EXPECT_EQ(run_panoval({"ellipses", one, "--png", one}).exit_code, 2) << "the picture itself";
    EXPECT_EQ(run_panoval({"ellipses", one, one, "--svg", in_folder("{}.svg")}).exit_code, 2) << "written twice";
    const Outcome both =
        run_panoval({"ellipses", one, "--svg", in_folder("over.ppm"), "--png", in_folder("./over.ppm")});
    EXPECT_EQ(both.exit_code, 4);
    EXPECT_TRUE(contains(both.err, "over.ppm: found the name of two outputs")) << both.err;
    EXPECT_FALSE(file_exists(in_folder("over.ppm")));
}

TEST_F(Ellipses, NoOverlayTakesThePlaceOfAPicture)
{
    const std::string one = write_two_discs("one.pnm");
    const std::string earlier = write_two_discs("one-found.pnm");
    const std::string before = read_text("one-found.pnm");
    for (const char* const option : {"--png", "--svg"}) {
        const Outcome outcome = run_panoval({"ellipses", one, earlier, option, in_folder("{}-found.pnm")});
        EXPECT_EQ(outcome.exit_code, 2);
        EXPECT_TRUE(contains(outcome.err, "one-found.pnm' is one of the pictures")) << outcome.err;
    }
    EXPECT_TRUE(read_text("one-found.pnm") == before) << "the picture is lost";
    EXPECT_EQ(names().size(), 2u);
}

TEST_F(Ellipses, AnOverlayThatCannotBeWrittenLeavesNothing)
{
    const std::string two = write_two_discs();
    const Outcome outcome = run_panoval({"ellipses", two, "--svg", in_folder("no/such/folder/over.svg")});
    EXPECT_EQ(outcome.exit_code, 4);
    EXPECT_EQ(names().size(), 1u);
}

// A dark disc of radius 10, and a dark band from 17 to 23 around it with a bright gap of 0.5 radians in direction +x.
Image render_coded_target(std::int32_t width, std::int32_t height, double centre_x, double centre_y)
{
    Image image = render(width, height, {{centre_x, centre_y, 10}});
    for (std::int32_t y = 0; y < height; ++y)
        for (std::int32_t x = 0; x < width; ++x) {
            const double radius = std::hypot(x - centre_x, y - centre_y);
            if (radius > 16 && radius < 24 && std::fabs(std::atan2(y - centre_y, x - centre_x)) > 0.25)
                image.row(y)[x] = 30;
        }
    return image;
}

// The target whose centre lies there.
Json target_at(const Outcome& outcome, double x, double y)
{
    const Json targets = Json::parse(outcome.out).at("images").at(0).at("targets");
    for (const Json& target : targets)
        if (target["semi_major"] < 13 && std::hypot(target["x"].get<double>() - x, target["y"].get<double>() - y) < 1)
            return target;
    return {};
}

TEST_F(Ellipses, TheRingFindsABrightMarkWhereverTheTargetIs)
{
    const double centres[][2] = {{60, 60}, {30, 32}, {160, 40}, {45, 120}, {170, 125}};
    for (const auto& [x, y] : centres) {
        write_image(in_folder("coded.pgm"), render_coded_target(210, 160, x, y));
        const Outcome outcome = run_panoval({"ellipses", "--json", "--ring", in_folder("coded.pgm")});
        ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
        const Json target = target_at(outcome, x, y);
        ASSERT_FALSE(target.is_null()) << outcome.out;
        ASSERT_EQ(target["ring"].size(), 1u) << "a target at " << x << ", " << y;
        EXPECT_NEAR(target["ring"][0]["x"].get<double>(), x + 18, 3);
        EXPECT_NEAR(target["ring"][0]["y"].get<double>(), y, 2);
        EXPECT_NEAR(target["ring"][0]["size"].get<double>(), 0.5 * 18, 2) << "its length in pixels";
    }
}

// Behind the last comma of a table. Lines end in "\r\n" on Windows.
std::string last_field(const std::string& table)
{
    const std::string field = table.substr(table.rfind(',') + 1);
    return field.substr(0, field.find_first_of("\r\n"));
}

TEST_F(Ellipses, ARingBeyondTheBorderIsNotLookedAt)
{
    write_image(in_folder("inside.pgm"), render(80, 60, {{40, 21, 10}})); // twice the size reaches row 1
    write_image(in_folder("beyond.pgm"), render(80, 60, {{40, 19, 10}})); // and here row -1
    const Outcome inside = run_panoval({"ellipses", "--csv", "--ring", in_folder("inside.pgm")});
    const Outcome beyond = run_panoval({"ellipses", "--csv", "--ring", in_folder("beyond.pgm")});
    EXPECT_EQ(last_field(inside.out), "0");
    EXPECT_EQ(last_field(beyond.out), "") << "not 0: it is not known";
    const Outcome json = run_panoval({"ellipses", "--json", "--ring", in_folder("beyond.pgm")});
    EXPECT_EQ(target_at(json, 40, 19).at("ring_inside_picture"), false);
    const Outcome table = run_panoval({"ellipses", "--ring", in_folder("beyond.pgm")});
    EXPECT_TRUE(contains(table.out, "  outside")) << table.out;
}

TEST_F(Ellipses, ARingReachesAsFarAsItsAxesAlone)
{
    // 28 x 10, lying: the ring fits a picture of 60 rows, a circle around it would not.
    Image image = make_image(140, 60, 1, 8, "test");
    for (std::int32_t y = 0; y < 60; ++y)
        for (std::int32_t x = 0; x < 140; ++x) {
            int dark = 0;
            for (int sample = 0; sample < 64; ++sample)
                dark += std::hypot((x + (sample % 8 - 3.5) / 8 - 70) / 28, (y + (sample / 8 - 3.5) / 8 - 30) / 10) < 1;
            image.row(y)[x] = static_cast<std::uint8_t>(210 - 180 * dark / 64);
        }
    write_image(in_folder("flat.pgm"), image);
    const Outcome outcome = run_panoval({"ellipses", "--json", "--ring", in_folder("flat.pgm")});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_EQ(Json::parse(outcome.out)["images"][0]["targets"][0]["ring_inside_picture"], true) << outcome.out;
}

} // namespace

} // namespace panoval::cli::test
