// SPDX-License-Identifier: MIT
// Lists of inputs, names of outputs, and several inputs at a time.
#include "cli/base/batch.h"

#include "cli/base/errors.h"
#include "image/image_write.h"
#include "tests/support/scratch_folder.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace panoval::cli::test
{

namespace
{

using Names = std::vector<std::string>;

class Batch : public image::test::ScratchFolder
{
protected:
    CommonOptions common_{true, false, ProgressMode::Never};
};

TEST_F(Batch, TakesNamesFromTheCommandLineAndThenFromTheList)
{
    BatchOptions options;
    options.given = {"a.png"};
    options.list = write_text("list", "b c.png\n\nd.png\r\ne.png");
    EXPECT_EQ(batch_inputs(options), (Names{"a.png", "b c.png", "d.png", "e.png"}));
}

TEST_F(Batch, NamesEndedByZeroBytesMayHaveLinesInThem)
{
    using namespace std::string_literals;
    BatchOptions options;
    options.list = write_text("list", "a\nb.png\0c d.png\r\0\0e.png"s);
    EXPECT_EQ(batch_inputs(options), (Names{"a\nb.png", "c d.png\r", "e.png"}));
}

#ifndef _WIN32
TEST_F(Batch, TheListMayBeAPipe)
{
    BatchOptions options;
    options.list = in_folder("pipe");
    ASSERT_EQ(mkfifo(options.list.c_str(), 0600), 0);
    std::thread writer([&] { write_text("pipe", "a.png\nb.png\n"); });
    EXPECT_EQ(batch_inputs(options), (Names{"a.png", "b.png"}));
    writer.join();
}
#endif

TEST_F(Batch, RefusesNothingAndStandardInputTwice)
{
    BatchOptions options;
    EXPECT_THROW(batch_inputs(options), UsageError);
    options.list = write_text("empty", "\n\n");
    EXPECT_THROW(batch_inputs(options), Failure);
    options.list = "-";
    options.given = {"-"};
    EXPECT_THROW(batch_inputs(options), UsageError);
}

TEST_F(Batch, NamesOutputsByTheStemOrThePath)
{
    EXPECT_EQ(name_for("out/{}-x.png", "in/a.b.png"), "out/a.b-x.png");
    EXPECT_EQ(name_for("{path}-x.png", "in/a.png"), "in/a-x.png");
    EXPECT_EQ(name_for("{}-{}.tif", "{}.png"), "{}-{}.tif") << "a name is not a pattern itself";
    EXPECT_EQ(name_for("{}.png", "-"), "stdin.png");
    EXPECT_EQ(name_for("plain.png", "a.png"), "plain.png");
}

TEST_F(Batch, RefusesNamesThatMeet)
{
    EXPECT_THROW(names_for("-o", "out.png", {"a.png", "b.png"}), UsageError) << "one name for two";
    EXPECT_THROW(names_for("-o", "{}-x.png", {"p/a.png", "q/a.png"}), UsageError) << "one stem";
    EXPECT_EQ(names_for("-o", "{path}-x.png", {"p/a.png", "q/a.png"}), (Names{"p/a-x.png", "q/a-x.png"}));
    EXPECT_THROW(names_for("-o", "{}-x.png", {"a.png", "./a-x.png"}), UsageError) << "an input of the same run";
    EXPECT_EQ(names_for("-o", "out.png", {"a.png"}), Names{"out.png"});
}

TEST_F(Batch, EveryInputIsDoneAndFailuresStandInTheirPlaces)
{
    const Names inputs = {"0", "1", "2", "3", "4", "5", "6", "7"};
    for (const std::size_t jobs : {1u, 3u, 20u}) {
        BatchOptions options;
        options.given = inputs;
        options.jobs = jobs;
        std::vector<std::atomic<int>> calls(inputs.size());
        testing::internal::CaptureStderr();
        const BatchEnd end = run_batch(options, common_, "testing", inputs, [&](std::size_t i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(inputs.size() - i)); // the later, the faster
            ++calls[i];
            if (i % 3 == 0)
                fail_input(inputs[i], "this", "that");
            if (i == 4)
                throw std::bad_alloc();
        });
        const std::string lines = testing::internal::GetCapturedStderr();
        EXPECT_TRUE(std::all_of(calls.begin(), calls.end(), [](const auto& count) { return count == 1; }));
        EXPECT_EQ(end.failed, 4u);
        EXPECT_EQ(end.errors, (Names{"0: found this; expected that", "", "", "3: found this; expected that",
                                     "4: not enough memory", "", "6: found this; expected that", ""}));
        EXPECT_EQ(lines, "panoval: 0: found this; expected that\npanoval: 3: found this; expected that\n"
                         "panoval: 4: not enough memory\npanoval: 6: found this; expected that\n");
    }
}

TEST_F(Batch, TheExitCodeTellsWhetherSomeOrAllFailed)
{
    EXPECT_NO_THROW(end_batch({{"", ""}, 0}));
    for (const auto& [failed, expected] : {std::pair{1u, ExitCode::SomeFailed}, std::pair{2u, ExitCode::AllFailed}}) {
        try {
            end_batch({{"x", "y"}, failed});
            ADD_FAILURE() << "no exit code";
        } catch (const ExitCode code) {
            EXPECT_EQ(code, expected);
        }
    }
}

TEST_F(Batch, ASingleInputEndsWithItsOwnError)
{
    BatchOptions options;
    options.given = {"a"};
    EXPECT_THROW(run_batch(options, common_, "testing", {"a"}, [](std::size_t) { fail_input("a", "this", "that"); }),
                 Failure);
}

TEST_F(Batch, DefectsStopTheBatch)
{
    BatchOptions options;
    options.given = {"a", "b", "c"};
    int calls = 0;
    const auto work = [&](std::size_t) {
        ++calls;
        throw std::logic_error("a defect");
    };
    EXPECT_THROW(run_batch(options, common_, "testing", options.given, work), std::logic_error);
    EXPECT_EQ(calls, 1);
}

TEST_F(Batch, OnlyAWholeNewPictureOfTheSameSizeCounts)
{
    Image picture = make_image(20, 10, 1, 8, "test");
    std::memset(picture.data.get(), 7, picture.bytes());
    const std::string input = in_folder("in.png"), output = in_folder("out.png");
    write_image(input, picture);
    EXPECT_FALSE(is_whole_picture(output, input)) << "not there";
    write_image(output, picture);
    EXPECT_TRUE(is_whole_picture(output, input));
    const std::string bytes = read_text("out.png");
    write_text("out.png", bytes.substr(0, bytes.size() - 20));
    EXPECT_FALSE(is_whole_picture(output, input)) << "its end is missing";
    write_image(output, make_image(20, 11, 1, 8, "test"));
    EXPECT_FALSE(is_whole_picture(output, input)) << "another size";
    write_image(output, picture);
    std::filesystem::last_write_time(path_from_utf8(input),
                                     std::filesystem::last_write_time(path_from_utf8(output)) + std::chrono::hours(1));
    EXPECT_FALSE(is_whole_picture(output, input)) << "older than its input";
}

} // namespace

} // namespace panoval::cli::test
