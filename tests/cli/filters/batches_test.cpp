// SPDX-License-Identifier: MIT
// The commands that make pictures over lists, through pipes and started anew, from outside.
#include "image/image_read.h"
#include "image/image_write.h"
#include "tests/cli/run_program.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>

namespace panoval::cli::test
{

namespace
{

using Json = nlohmann::json;

class Batches : public image::test::ScratchFolder
{
protected:
    // A square on a ramp, different for each number.
    std::string write_picture(int number) const
    {
        Image image = make_image(60 + number, 40, 1, 8, "test");
        for (std::int32_t y = 0; y < image.height; ++y)
            for (std::int32_t x = 0; x < image.width; ++x)
                image.row(y)[x] = static_cast<std::uint8_t>(x > 20 && x < 40 && y > 10 && y < 30 ? 200 : x + number);
        image.row(0)[0] = 0; // where distances begin
        const std::string name = in_folder(std::to_string(number) + ".pgm");
        write_image(name, image);
        return name;
    }

    // A list of three good pictures around one that is missing.
    std::string write_list() const
    {
        const std::string text = concat(write_picture(0), "\n", in_folder("missing.pgm"), "\n", write_picture(1), "\n",
                                        write_picture(2), "\n");
        return write_text("list", text);
    }

    std::string text_of(const std::string& name) const { return file_exists(in_folder(name)) ? read_text(name) : ""; }
};

TEST_F(Batches, ABatchGivesTheBytesOfSingleRunsForAnyNumberOfJobs)
{
    const std::string list = write_list();
    for (const char* const command : {"smooth", "edges", "gradient", "distance", "threshold"}) {
        for (int i = 0; i < 3; ++i)
            ASSERT_EQ(run_panoval({command, in_folder(std::to_string(i) + ".pgm"), "-o",
                                   in_folder(std::to_string(i) + "-alone.png")})
                          .exit_code,
                      0);
        for (const char* const jobs : {"1", "4"}) {
            const Outcome outcome =
                run_panoval({command, "--files-from", list, "-o", in_folder("{}-batch.png"), "--jobs", jobs});
            EXPECT_EQ(outcome.exit_code, 1) << outcome.err;
            for (const std::string number : {"0", "1", "2"})
                EXPECT_EQ(text_of(number + "-batch.png"), text_of(number + "-alone.png")) << command << jobs;
            EXPECT_FALSE(file_exists(in_folder("missing-batch.png")));
        }
    }
}

TEST_F(Batches, ResultsStandInTheOrderOfTheList)
{
    const Outcome outcome =
        run_panoval({"smooth", "--files-from", write_list(), "-o", "{path}-s.png", "--jobs", "3", "--json"});
    EXPECT_EQ(outcome.exit_code, 1);
    const Json json = Json::parse(outcome.out);
    ASSERT_EQ(json["images"].size(), 4u);
    const char* const names[] = {"0.pgm", "missing.pgm", "1.pgm", "2.pgm"};
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_EQ(json["images"][i]["file"], in_folder(names[i]));
    EXPECT_EQ(json["images"][0]["output"], in_folder("0-s.png"));
    EXPECT_EQ(json["images"][2]["width"], 61);
    ASSERT_EQ(json["failures"].size(), 1u);
    EXPECT_EQ(json["failures"][0]["error"], json["images"][1]["error"]);
    EXPECT_TRUE(contains(outcome.err, "missing.pgm: found no such file")) << outcome.err;
}

TEST_F(Batches, ResumeMakesOnlyWhatIsMissingOrDamaged)
{
    const std::string list =
        write_text("list", concat(write_picture(0), "\n", write_picture(1), "\n", write_picture(2)));
    const std::vector<std::string> command = {"edges",    "--files-from", list, "-o", in_folder("{}-e.png"),
                                              "--resume", "--json"};
    ASSERT_EQ(run_panoval(command).exit_code, 0);
    const std::string whole = text_of("1-e.png");
    write_text("1-e.png", whole.substr(0, whole.size() / 2));
    std::filesystem::remove(path_from_utf8(in_folder("2-e.png")));
    const Outcome outcome = run_panoval(command);
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    const Json images = Json::parse(outcome.out)["images"];
    EXPECT_TRUE(images[0].value("kept", false));
    EXPECT_FALSE(images[1].value("kept", false));
    EXPECT_FALSE(images[2].value("kept", false));
    EXPECT_EQ(text_of("1-e.png"), whole);
    EXPECT_FALSE(text_of("2-e.png").empty());
}

TEST_F(Batches, AListComesThroughStandardInput)
{
    const std::string list = write_list();
    const Outcome outcome = run_panoval({"threshold", "--files-from", "-", "-o", in_folder("{}-t.pgm")}, list);
    EXPECT_EQ(outcome.exit_code, 1) << outcome.err;
    EXPECT_TRUE(file_exists(in_folder("2-t.pgm")));
    EXPECT_EQ(std::count(outcome.out.begin(), outcome.out.end(), '\n'), 3) << outcome.out;
}

TEST_F(Batches, PicturesGoThroughPipes)
{
    const std::string input = write_picture(5);
    ASSERT_EQ(run_panoval({"smooth", input, "-o", in_folder("file.png")}).exit_code, 0);
    const Outcome outcome = run_panoval({"smooth", "-", "-o", "-"}, input);
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_TRUE(outcome.out == text_of("file.png")) << outcome.out.size() << " bytes";
    EXPECT_TRUE(contains(outcome.err, "65 x 40 pixels")) << "results make way for the picture: " << outcome.err;
    const Outcome quiet = run_panoval({"smooth", "-", "-o", "-", "-q"}, input);
    EXPECT_EQ(quiet.err, "");
    EXPECT_TRUE(quiet.out == outcome.out);
}

TEST_F(Batches, WhatComesThroughStandardInputIsNamedInErrors)
{
    const Outcome outcome = run_panoval({"smooth", "-", "-o", in_folder("out.png")}, write_text("bad", "no picture"));
    EXPECT_EQ(outcome.exit_code, 3);
    EXPECT_TRUE(contains(outcome.err, "panoval: standard input: found ")) << outcome.err;
    EXPECT_FALSE(file_exists(in_folder("out.png")));
}

TEST_F(Batches, InpaintTakesAMaskForEachPicture)
{
    std::string list;
    for (int i = 0; i < 2; ++i) {
        const std::string name = write_picture(i);
        Image mask = make_image(60 + i, 40, 1, 8, "test");
        std::memset(mask.data.get(), 0, mask.bytes());
        std::memset(mask.row(20) + 22 + i, 255, 5);
        write_image(in_folder(std::to_string(i) + "-mask.pgm"), mask);
        list += name + "\n";
    }
    list += write_picture(2) + "\n"; // without a mask
    const Outcome outcome =
        run_panoval({"inpaint", "--files-from", "-", "--mask", "{path}-mask.pgm", "-o", "{path}-filled.pgm", "--json"},
                    write_text("list", list));
    EXPECT_EQ(outcome.exit_code, 1) << outcome.err;
    const Json images = Json::parse(outcome.out)["images"];
    EXPECT_EQ(images[0]["marked_pixels"], 5);
    EXPECT_EQ(images[1]["marked_pixels"], 5);
    EXPECT_TRUE(contains(images[2]["error"].get<std::string>(), "2-mask.pgm"));
    EXPECT_TRUE(file_exists(in_folder("1-filled.pgm")));
    EXPECT_FALSE(file_exists(in_folder("2-filled.pgm")));
}

TEST_F(Batches, InpaintingIsResumedUnlessTheMaskIsNewer)
{
    Image mask = make_image(60, 40, 1, 8, "test");
    std::memset(mask.data.get(), 0, mask.bytes());
    std::memset(mask.row(20) + 22, 255, 5);
    const std::string picture = write_picture(0), marks = in_folder("marks.pgm"), output = in_folder("0-f.png");
    write_image(marks, mask);
    const std::vector<std::string> command = {
        "inpaint", "--mask",       marks,      "--files-from", write_text("list", picture),
        "-o",      "{path}-f.png", "--resume", "--json"};
    const auto is_kept = [&] { return Json::parse(run_panoval(command).out)["images"][0].value("kept", false); };
    EXPECT_FALSE(is_kept()) << "not there";
    EXPECT_TRUE(is_kept());
    const auto made = std::filesystem::last_write_time(path_from_utf8(output));
    std::filesystem::last_write_time(path_from_utf8(marks), made + std::chrono::hours(1));
    EXPECT_FALSE(is_kept()) << "the mask is newer";
    const Outcome piped = run_panoval({"inpaint", "-", "--mask", marks, "-o", "-", "-q"}, picture);
    EXPECT_EQ(piped.exit_code, 0) << piped.err;
    EXPECT_TRUE(piped.out == text_of("0-f.png")) << piped.out.size() << " bytes";
}

TEST_F(Batches, NamesThatCannotBeRightAreRefusedBeforeAnythingIsDone)
{
    const std::string list = write_list();
    EXPECT_EQ(run_panoval({"smooth", "--files-from", list, "-o", in_folder("one.png")}).exit_code, 2);
    EXPECT_EQ(run_panoval({"smooth", "--files-from", list, "-o", in_folder("{}.xyz")}).exit_code, 2);
    EXPECT_EQ(run_panoval({"smooth", "--files-from", list, "-o", "-"}).exit_code, 2);
    EXPECT_EQ(run_panoval({"smooth", "--files-from", list, "-o", in_folder("{}-s.png"), "--jobs", "0"}).exit_code, 2);
    EXPECT_EQ(run_panoval({"smooth", "-o", in_folder("{}-s.png")}).exit_code, 2) << "no picture";
    EXPECT_EQ(names().size(), 4u) << "the list and its pictures alone";
}

} // namespace

} // namespace panoval::cli::test
