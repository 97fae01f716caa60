// SPDX-License-Identifier: MIT
// panoval edges, smooth, gradient, distance and threshold, from outside.
#include "image/image_read.h"
#include "image/image_write.h"
#include "panoval.h"
#include "tests/cli/run_program.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>

namespace panoval::cli::test
{

namespace
{

using Json = nlohmann::json;

class Pictures : public ScratchFolder
{
protected:
    // A white square from (20, 15) to (59, 44) on black, 80 x 60 pixels.
    static Image square()
    {
        Image image = make_image(80, 60, 1, 8, "test");
        std::fill_n(image.data.get(), image.bytes(), std::uint8_t{0});
        for (std::int32_t y = 15; y < 45; ++y)
            std::fill_n(image.row(y) + 20, 40, std::uint8_t{200});
        return image;
    }
    std::string write_square() const
    {
        write_image(in_folder("square.pgm"), square());
        return in_folder("square.pgm");
    }
    Image result() const { return read_image(in_folder("out.pgm")); }
    Outcome run(const std::string& command, std::vector<std::string> more = {}) const
    {
        std::vector<std::string> arguments = {command, "--json", write_square(), "-o", in_folder("out.pgm")};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return run_panoval(arguments);
    }
};

TEST_F(Pictures, EdgesOutlineASquare)
{
    const Outcome outcome = run("edges", {"--high", "0.5"});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    const Image edges = result();
    const auto black = std::count(edges.data.get(), edges.data.get() + edges.bytes(), 0);
    EXPECT_EQ(Json::parse(outcome.out)["edge_pixels"], black);
    EXPECT_GT(black, 100);
    EXPECT_LT(black, 320);
    EXPECT_EQ(edges.row(30)[40], 255) << "the square's middle is no edge";
    EXPECT_EQ(std::min(edges.row(30)[19], edges.row(30)[20]), 0) << "its left side is one";
}

TEST_F(Pictures, EdgesPassTheirValuesOnToTheLibrary)
{
    const Image input = test_picture(80, 60, 1, 8);
    write_image(in_folder("noise.pgm"), input);
    const auto expect_edges = [&](const std::vector<std::string>& options, double sigma, double low, double high) {
        std::vector<std::string> arguments = {"edges", in_folder("noise.pgm"), "-o", in_folder("out.pgm")};
        arguments.insert(arguments.end(), options.begin(), options.end());
        ASSERT_EQ(run_panoval(arguments).exit_code, 0);
        std::vector<std::uint8_t> expected(input.bytes());
        canny(input.data.get(), 60, 80, expected.data(), sigma, low, high, nullptr, nullptr);
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(), result().data.get())) << options.front();
    };
    expect_edges({"--quiet"}, 1.0, 0.4, 0.9);
    expect_edges({"--sigma", "2.5"}, 2.5, 0.4, 0.9);
    expect_edges({"--low", "0.8"}, 1.0, 0.8, 0.9);
    expect_edges({"--high", "0.3"}, 1.0, 0.4, 0.3);
}

TEST_F(Pictures, ColourSixteenBitAndAlphaGiveTheEdgesOfTheGreyPicture)
{
    ASSERT_EQ(run("edges").exit_code, 0);
    const Image expected = result();
    Image image = square();
    convert_to_colour(image, "test");
    convert_depth(image, 16, "test");
    ensure_mask(image, "test");
    image.mask[30 * 80 + 40] = 0;
    write_image(in_folder("wide.pam"), image);
    const Outcome outcome = run_panoval({"edges", in_folder("wide.pam"), "-o", in_folder("out.pgm")});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    expect_same_picture(result(), expected);
}

TEST_F(Pictures, ShowTheirProgressWhereItIsWanted)
{
    for (const char* command : {"edges", "smooth", "gradient", "distance", "threshold"}) {
        EXPECT_EQ(run(command).err, "") << "standard error is no terminal here";
        EXPECT_TRUE(contains(run(command, {"--progress", "always"}).err, concat(command, " ["))) << command;
        EXPECT_EQ(run(command, {"--progress", "always", "--quiet"}).err, "");
    }
}

TEST_F(Pictures, SmoothGivesWhatTheLibraryGives)
{
    ASSERT_EQ(run("smooth").exit_code, 0);
    const Image input = square();
    std::vector<std::uint8_t> expected(input.bytes());
    smooth_image(input.data.get(), 80, 60, expected.data());
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), result().data.get()));
}

TEST_F(Pictures, GradientShowsTheLargestMagnitudeAsWhite)
{
    const Outcome outcome = run("gradient");
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_EQ(Json::parse(outcome.out)["largest_magnitude"], 282); // root of 200 * 200 * 2 at the corners
    EXPECT_EQ(result().row(15)[20], 255);
    EXPECT_EQ(result().row(30)[20], 181); // 200 of 282
    EXPECT_EQ(result().row(30)[40], 0);
}

TEST_F(Pictures, DistanceGrowsInwardFromTheBlackPixels)
{
    const Outcome outcome = run("distance", {"--metric", "city-block"});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_EQ(Json::parse(outcome.out)["largest_distance"], 15);
    EXPECT_EQ(result().row(15)[40], 17); // 1 of 15
    EXPECT_EQ(result().row(29)[40], 255);
    EXPECT_EQ(result().row(0)[0], 0);
}

TEST_F(Pictures, DistanceKnowsThreeMetrics)
{
    Image dot = square();
    std::fill_n(dot.data.get(), dot.bytes(), std::uint8_t{9});
    dot.row(30)[40] = 0;
    write_image(in_folder("dot.pgm"), dot);
    const auto farthest = [&](const std::vector<std::string>& options) { // from (40, 30) to (0, 0)
        std::vector<std::string> arguments = {"distance", "--json", in_folder("dot.pgm"), "-o", in_folder("out.pgm")};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return Json::parse(run_panoval(arguments).out)["largest_distance"].get<double>();
    };
    EXPECT_EQ(farthest({"--metric", "city-block"}), 70);
    EXPECT_EQ(farthest({"--metric", "chessboard"}), 40);
    EXPECT_NEAR(farthest({"--metric", "chamfer"}), 50, 1);
    EXPECT_EQ(farthest({}), farthest({"--metric", "chamfer"}));
}

TEST_F(Pictures, DistanceNeedsABlackPixel)
{
    Image white = square();
    std::fill_n(white.data.get(), white.bytes(), std::uint8_t{9});
    write_image(in_folder("white.pgm"), white);
    const Outcome outcome = run_panoval({"distance", in_folder("white.pgm"), "-o", in_folder("out.pgm")});
    EXPECT_EQ(outcome.exit_code, 3);
    EXPECT_TRUE(contains(outcome.err, "white.pgm") && contains(outcome.err, "black")) << outcome.err;
    EXPECT_FALSE(file_exists(in_folder("out.pgm")));
}

TEST_F(Pictures, ThresholdSeparatesTwoLevels)
{
    const Outcome outcome = run("threshold");
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_EQ(Json::parse(outcome.out)["level"], 0);
    EXPECT_EQ(result().row(30)[40], 255);
    EXPECT_EQ(result().row(0)[0], 0);
    ASSERT_EQ(run("threshold", {"--level", "200"}).exit_code, 0);
    EXPECT_EQ(result().row(30)[40], 0) << "the level itself is black";
}

TEST_F(Pictures, ThresholdNeedsTwoLevels)
{
    Image flat = square();
    std::fill_n(flat.data.get(), flat.bytes(), std::uint8_t{77});
    write_image(in_folder("flat.pgm"), flat);
    const Outcome outcome = run_panoval({"threshold", in_folder("flat.pgm"), "-o", in_folder("out.pgm")});
    EXPECT_EQ(outcome.exit_code, 3);
    EXPECT_TRUE(contains(outcome.err, "77")) << outcome.err;
}

TEST_F(Pictures, ValuesAreChecked)
{
    EXPECT_EQ(run("edges", {"--sigma", "0"}).exit_code, 2);
    EXPECT_EQ(run("edges", {"--low", "1.5"}).exit_code, 2);
    for (const char* option : {"--sigma", "--low", "--high"})
        for (const char* value : {"nan", "-nan", "inf", "-1", "1e400", "wide", ""}) {
            const Outcome outcome = run("edges", {option, value});
            EXPECT_EQ(outcome.exit_code, 2) << option << " " << value << ": " << outcome.err;
            EXPECT_TRUE(contains(outcome.err, option)) << outcome.err;
        }
    EXPECT_TRUE(contains(run("edges", {"--sigma", "nan"}).err, "nan not in range 0.1 to 1000"));
    EXPECT_EQ(run("edges", {"--sigma", "0.1", "--low", "0", "--high", "1"}).exit_code, 0) << "the limits themselves";
    EXPECT_EQ(run("distance", {"--metric", "euclid"}).exit_code, 2);
    EXPECT_EQ(run("threshold", {"--level", "256"}).exit_code, 2);
    EXPECT_EQ(run_panoval({"smooth", in_folder("missing.pgm"), "-o", in_folder("out.pgm")}).exit_code, 3);
    EXPECT_EQ(run_panoval({"smooth", write_square(), "-o", in_folder("no/folder/out.pgm")}).exit_code, 4);
    EXPECT_EQ(run_panoval({"smooth", write_square(), "-o", in_folder("out.gif")}).exit_code, 2);
    write_image(in_folder("line.pgm"), make_image(80, 1, 1, 8, "test"));
    const Outcome line = run_panoval({"gradient", in_folder("line.pgm"), "-o", in_folder("out.pgm")});
    EXPECT_EQ(line.exit_code, 3);
    EXPECT_TRUE(contains(line.err, "80 x 1")) << line.err;
}

TEST_F(Pictures, ThePictureItselfIsNoOutput)
{
    const std::string square = write_square();
    const std::string before = read_text("square.pgm");
    for (const char* command : {"edges", "smooth", "gradient", "distance", "threshold"}) {
        const Outcome outcome = run_panoval({command, square, "-o", square});
        EXPECT_EQ(outcome.exit_code, 4) << command;
        EXPECT_TRUE(contains(outcome.err, "square.pgm: found a file that is also an input")) << outcome.err;
    }
    EXPECT_EQ(read_text("square.pgm"), before);
}

} // namespace

} // namespace panoval::cli::test
