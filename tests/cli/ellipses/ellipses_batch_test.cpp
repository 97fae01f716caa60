// SPDX-License-Identifier: MIT
// panoval ellipses over lists of pictures, and started anew.
#include "image/image_write.h"
#include "tests/cli/run_program.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>

namespace panoval::cli::test
{

namespace
{

using Json = nlohmann::json;

class EllipsesBatch : public image::test::ScratchFolder
{
protected:
    // A dark disc with a soft edge, at another place for each number.
    std::string write_disc(int number) const
    {
        Image image = make_image(80, 60, 1, 8, "test");
        for (std::int32_t y = 0; y < 60; ++y)
            for (std::int32_t x = 0; x < 80; ++x) {
                const double outside = std::hypot(x - 40.3 + number, y - 30.2) - 12;
                image.row(y)[x] = static_cast<std::uint8_t>(120 + 90 * std::tanh(outside));
            }
        const std::string name = in_folder(std::to_string(number) + ".pgm");
        write_image(name, image);
        return name;
    }

    std::string write_list() const
    {
        std::string text;
        for (int i = 0; i < 4; ++i)
            text += write_disc(i) + "\n";
        return write_text("list", text + in_folder("missing.pgm") + "\n");
    }
};

TEST_F(EllipsesBatch, JobsAndListsChangeNothingInTheResults)
{
    const std::string list = write_list();
    for (const char* const method : {"precise", "library"}) {
        const Outcome one = run_panoval({"ellipses", "--method", method, "--ring", "--json", "--files-from", list});
        const Outcome four =
            run_panoval({"ellipses", "--method", method, "--ring", "--json", "--files-from", "-", "--jobs", "4"}, list);
        EXPECT_EQ(one.exit_code, 1) << one.err;
        EXPECT_EQ(four.exit_code, 1);
        EXPECT_EQ(one.out, four.out);
        EXPECT_EQ(Json::parse(one.out)["images"].size(), 5u);
    }
}

TEST_F(EllipsesBatch, EachPictureHasAFileOfResultsLikeThatOfASingleRun)
{
    const std::string list = write_list();
    const Outcome batch = run_panoval({"ellipses", "--files-from", list, "-o", "{path}.json", "--quiet"});
    EXPECT_EQ(batch.exit_code, 1);
    EXPECT_EQ(batch.out, "");
    const Outcome alone = run_panoval({"ellipses", "--json", in_folder("2.pgm")});
    EXPECT_EQ(Json::parse(read_text("2.json")), Json::parse(alone.out));
    EXPECT_FALSE(file_exists(in_folder("missing.json")));
}

TEST_F(EllipsesBatch, ResumeMeasuresOnlyWhatIsMissingDamagedOrOfAnotherMethod)
{
    const std::string list = write_list();
    const std::vector<std::string> command = {"ellipses", "--files-from", list, "-o", "{path}.json", "--resume"};
    EXPECT_EQ(run_panoval(command).exit_code, 1);
    const std::string second = read_text("1.json");
    write_text("1.json", second.substr(0, second.size() / 2));
    ASSERT_EQ(run_panoval({"ellipses", "--method", "library", in_folder("3.pgm"), "-o", in_folder("3.json")}).exit_code,
              0);
    const Outcome outcome = run_panoval(command);
    EXPECT_TRUE(contains(outcome.out, "0.pgm: kept, see ")) << outcome.out;
    EXPECT_TRUE(contains(outcome.out, "1.pgm: 1 target in 80 x 60 pixels")) << outcome.out;
    EXPECT_TRUE(contains(outcome.out, "2.pgm: kept, see ")) << outcome.out;
    EXPECT_TRUE(contains(outcome.out, "3.pgm: 1 target ")) << outcome.out;
    EXPECT_EQ(read_text("1.json"), second);
}

TEST_F(EllipsesBatch, KeptResultsStandInTheJsonAgain)
{
    const std::string list = write_list();
    const std::vector<std::string> command = {"ellipses",    "--files-from", list,    "-o",
                                              "{path}.json", "--resume",     "--json"};
    const Outcome first = run_panoval(command);
    const Outcome again = run_panoval(command);
    EXPECT_EQ(first.exit_code, 1);
    EXPECT_EQ(again.out, first.out);
    std::vector<std::string> csv = command;
    csv.back() = "--csv";
    EXPECT_TRUE(contains(run_panoval(csv).out, "0.pgm,\"kept: ") || contains(run_panoval(csv).out, "0.pgm,kept: "));
}

TEST_F(EllipsesBatch, PicturesComeThroughStandardInput)
{
    const Outcome outcome = run_panoval({"ellipses", "-", "--json"}, write_disc(0));
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_EQ(Json::parse(outcome.out)["images"][0]["targets"].size(), 1u);
    EXPECT_EQ(run_panoval({"ellipses", "-", "--png", "-"}, write_disc(0)).exit_code, 2);
    EXPECT_EQ(run_panoval({"ellipses", write_disc(0), "--resume"}).exit_code, 2) << "nothing to tell what is done";
}

} // namespace

} // namespace panoval::cli::test
