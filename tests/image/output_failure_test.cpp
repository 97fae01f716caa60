// SPDX-License-Identifier: MIT
// Outputs that fail half-way, a full disk and an interruption, and standard streams. Each happens to a process of its
// own.
#include "image/image_read.h"
#include "image/image_write.h"
#include "image/interruption.h"
#include "image/output_file.h"
#include "image/output_folder.h"
#include "image/row_reader.h"
#include "image/standard_streams.h"
#include "tests/support/child_process.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>

namespace panoval::image::test
{

namespace
{

using panoval::test::leave;
using panoval::test::limit_file_size;
using panoval::test::status_of_child;
using FailingOutput = ScratchFolder;

TEST_F(FailingOutput, AFullDiskIsExplainedAndLeavesNothing)
{
    for (const char* name : {"a.png", "a.tif", "a.jpg", "a.ppm", "a.pam", "a.dzi"})
        for (const rlim_t room : {rlim_t{0}, rlim_t{1000}, rlim_t{20000}}) {
            const int status = status_of_child([&] {
                const Image image = test_picture(400, 300, 3, 8);
                limit_file_size(room);
                const std::string error = error_of([&] { write_image(in_folder(name), image); });
                leave(contains(error, std::string(name) + ": found an error while writing: ") &&
                              contains(error, "expected enough room")
                          ? 7
                          : 1);
            });
            ASSERT_TRUE(WIFEXITED(status));
            EXPECT_EQ(WEXITSTATUS(status), 7) << name << " in " << room << " bytes";
            EXPECT_TRUE(names().empty()) << name << " in " << room << " bytes";
        }
}

TEST_F(FailingOutput, EveryLayoutOfTiffExplainsAFullDisk)
{
    for (const std::string& compression : tiff_compressions())
        for (const bool is_tiled : {false, true})
            for (const bool has_pyramid : {false, true})
                for (const rlim_t room : {rlim_t{100}, rlim_t{200'000}}) {
                    const int status = status_of_child([&] {
                        const Image image = test_picture(400, 300, 3, 8);
                        const WriteOptions options{93, compression_of(compression), is_tiled, has_pyramid};
                        limit_file_size(room);
                        const std::string error = error_of([&] { write_image(in_folder("a.tif"), image, options); });
                        leave(contains(error, "a.tif: found an error while writing: ") ? 7 : 1);
                    });
                    EXPECT_EQ(WEXITSTATUS(status), 7) << compression << ", " << is_tiled << has_pyramid << ", " << room;
                    EXPECT_TRUE(names().empty());
                }
}

// Wherever the disk is full: in the samples, in the directories or when all is flushed. Exactly the whole size is
// enough.
TEST_F(FailingOutput, ADiskThatIsFullAnywhereInASmallFileIsExplained)
{
    for (const std::string name : {"a.png", "a.jpg", "a.tif", "pyramid.tif", "a.ppm"}) {
        Image image = test_picture(300, 2, 3, 8);
        std::fill_n(image.data.get(), image.bytes(), std::uint8_t{100});
        image.metadata.exif.iso = 100;
        WriteOptions options;
        options.compression = Compression::Deflate;
        options.has_pyramid = name == "pyramid.tif";
        write_image(in_folder(name), image, options);
        // half the rows of a pyramid wait beside it
        const std::uintmax_t size = std::filesystem::file_size(in_folder(name));
        const rlim_t enough = options.has_pyramid ? std::max<rlim_t>(size, 150 * 3) : size;
        std::filesystem::remove(in_folder(name));
        for (rlim_t missing = 0; missing <= enough; missing += missing == 0 ? 1 : 40) {
            const int status = status_of_child([&] {
                limit_file_size(enough - missing);
                const std::string error = error_of([&] { write_image(in_folder(name), image, options); });
                leave(contains(error, name + ": found an error while writing: ") ? 7 : error == "no error" ? 8 : 1);
            });
            EXPECT_EQ(WEXITSTATUS(status), missing == 0 ? 8 : 7) << name << " without " << missing << " bytes";
            EXPECT_EQ(names().empty(), missing != 0);
            std::filesystem::remove(in_folder(name));
        }
    }
}

TEST_F(FailingOutput, APyramidWhoseRowsFindNoRoomIsExplained)
{
    Image image = make_image(1200, 900, 3, 8, "test"); // half of it are 450 rows of 1,800 and 600 bytes
    std::fill_n(image.data.get(), image.bytes(), std::uint8_t{100});
    ensure_mask(image, "test");
    image.has_alpha = true;
    WriteOptions options;
    options.compression = Compression::Deflate;
    options.has_pyramid = true;
    for (const rlim_t room :
         {100'000u, 100'600u, 101'200u, 101'800u, 102'400u, 103'000u, 103'600u, 1'079'000u, 1'079'999u}) {
        const int status = status_of_child([&] {
            limit_file_size(room);
            const std::string error = error_of([&] { write_image(in_folder("a.tif"), image, options); });
            leave(contains(error, "a.tif: found an error while writing: ") ? 7 : 1);
        });
        EXPECT_EQ(WEXITSTATUS(status), 7) << room;
        EXPECT_TRUE(names().empty());
    }
}

// Tiles of 300 x 260 and less, in the middle of which, at whose end or in the last bytes of which there is no room.
TEST_F(FailingOutput, ATileThatFindsNoRoomIsExplained)
{
    for (const bool has_alpha : {false, true}) {
        Image image = test_picture(250, 200, 3, 8, has_alpha);
        image.has_alpha = has_alpha;
        write_image(in_folder("a.dzi"), image);
        const std::string tile = has_alpha ? "a_files/8/0_0.png" : "a_files/8/0_0.jpg";
        const std::uintmax_t size = std::filesystem::file_size(in_folder(tile));
        std::filesystem::remove(in_folder("a.dzi"));
        std::filesystem::remove_all(in_folder("a_files"));
        for (const std::uintmax_t room : {size / 2, size - 5000, size - 1}) {
            const int status = status_of_child([&] {
                limit_file_size(room);
                const std::string error = error_of([&] { write_image(in_folder("a.dzi"), image); });
                leave(contains(error, "a.dzi: found an error while writing: ") ? 7 : 1);
            });
            EXPECT_EQ(WEXITSTATUS(status), 7) << tile << " in " << room << " of " << size << " bytes";
            EXPECT_TRUE(names().empty());
        }
    }
}

// Each of the 10 rows of 6,000 samples of its half is followed by its mask; the scratch file's buffer holds less.
TEST_F(FailingOutput, APyramidWhoseMasksFindNoRoomIsExplained)
{
    Image image = make_image(12000, 20, 1, 8, "test");
    std::fill_n(image.data.get(), image.bytes(), std::uint8_t{100});
    ensure_mask(image, "test");
    image.has_alpha = true;
    WriteOptions options;
    options.compression = Compression::Deflate;
    options.has_pyramid = true;
    const int status = status_of_child([&] {
        limit_file_size(5000);
        const std::string error = error_of([&] { write_image(in_folder("a.tif"), image, options); });
        leave(contains(error, "a.tif: found an error while writing: ") ? 7 : 1);
    });
    EXPECT_EQ(WEXITSTATUS(status), 7);
    EXPECT_TRUE(names().empty());
}

TEST_F(FailingOutput, StandardOutputHasScratchFilesInTheTemporaryFolder)
{
    const int status = status_of_child([&] {
        const OutputFile output("-");
        const bool is_made = output.make_scratch() != nullptr;
        setenv("TMPDIR", in_folder("none").c_str(), 1);
        const std::string error = error_of([&] { (void)output.make_scratch(); });
        leave(is_made && contains(error, "standard output: found an error while writing: ") ? 7 : 1);
    });
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(FailingOutput, StandardInputIsReadAsOftenAsItIsAskedFor)
{
    const Image image = test_picture(40, 30, 3, 8);
    write_image(in_folder("a.png"), image);
    const int status = status_of_child([&] {
        const bool is_open = std::freopen(in_folder("a.png").c_str(), "rb", stdin) != nullptr;
        bool is_same = describe(probe_image("-").at(0)) == describe(image);
        for (int round = 0; round < 2; ++round)
            is_same = is_same && std::memcmp(read_image("-").data.get(), image.data.get(), image.bytes()) == 0;
        leave(is_open && is_same ? 7 : 1);
    });
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(FailingOutput, AStandardInputThatCannotBeReadIsExplained)
{
    const int status = status_of_child([&] {
        const bool is_open = std::freopen(in_folder("").c_str(), "rb", stdin) != nullptr; // a folder
        const std::string error = error_of([] { (void)read_image("-"); });
        leave(is_open && contains(error,
                                  "standard input: found an input that cannot be read, or kept in a temporary file: ")
                  ? 7
                  : 1);
    });
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(FailingOutput, StandardOutputHasTheWholePicture)
{
    const Image image = test_picture(40, 30, 3, 8);
    const int status = status_of_child([&] {
        const bool is_open = std::freopen(in_folder("out.png").c_str(), "wb", stdout) != nullptr;
        const bool had_none = !standard_output_has_a_picture();
        write_image("-", image);
        leave(is_open && had_none && standard_output_has_a_picture() ? 7 : 1);
    });
    EXPECT_EQ(WEXITSTATUS(status), 7);
    expect_same_picture(read_image(in_folder("out.png")), image);
}

TEST_F(FailingOutput, AStandardOutputThatTakesNothingIsExplained)
{
    const int status = status_of_child([] {
        const bool is_open = std::freopen("/dev/full", "wb", stdout) != nullptr;
        const std::string error = error_of([] { write_image("-", test_picture(400, 300, 3, 8)); });
        leave(is_open && contains(error, "standard output: found an error while writing: No space left") ? 7 : 1);
    });
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(FailingOutput, AStandardOutputThatTakesNothingOfASmallPictureIsExplained)
{
    const int status = status_of_child([] {
        const bool is_open = std::freopen("/dev/full", "wb", stdout) != nullptr;
        const std::string error = error_of([] { write_image("-", test_picture(4, 3, 3, 8)); });
        leave(is_open && contains(error, "standard output: found an error while writing: No space left") ? 7 : 1);
    });
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

#ifdef __linux__
TEST_F(FailingOutput, ATemporaryFolderThatTakesNoFilesHasNone)
{
    const int status = status_of_child([] {
        setenv("TMPDIR", "/proc", 1);
        leave(open_nameless_file() == nullptr && errno != EEXIST ? 7 : 1);
    });
    EXPECT_EQ(WEXITSTATUS(status), 7);
}
#endif

TEST_F(FailingOutput, AStandardInputThatFindsNoOtherFileIsExplained)
{
    write_image(in_folder("a.png"), test_picture(30, 20, 3, 8));
    const int status = status_of_child([&] {
        const bool is_open = std::freopen(in_folder("a.png").c_str(), "rb", stdin) != nullptr;
        const bool is_read = open_standard_input() != nullptr;
        setenv("TMPDIR", in_folder("none").c_str(), 1);
        leave(is_open && is_read && open_standard_input() == nullptr ? 7 : 1);
    });
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(FailingOutput, StandardStreamsWithoutATemporaryFolderAreExplained)
{
    const int status = status_of_child([&] {
        setenv("TMPDIR", in_folder("none").c_str(), 1);
        const std::string in = error_of([] { (void)read_image("-"); });
        const std::string out = error_of([] { OutputFile output("-"); });
        leave(contains(in, "standard input: found an input that cannot be read, or kept in a temporary file: ") &&
                      contains(out, "standard output: found an error while writing: ") &&
                      contains(in, "or another folder in TMPDIR") && contains(out, "or another folder in TMPDIR")
                  ? 7
                  : 1);
    });
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(FailingOutput, TemporaryNamesThatAreAllTakenAreNotOpened)
{
    const int status = status_of_child([&] {
        setenv("TMPDIR", in_folder("").c_str(), 1);
        for (int i = 0; i < 99; ++i)
            write_text(concat("panoval-", process_id(), "-", i, ".scratch"), "somebody's");
        const bool is_last_open = open_nameless_file() != nullptr;
        write_text(concat("panoval-", process_id(), "-99.scratch"), "somebody's");
        leave(is_last_open && open_nameless_file() == nullptr ? 7 : 1);
    });
    EXPECT_EQ(WEXITSTATUS(status), 7);
    EXPECT_EQ(names().size(), 100u) << "what is somebody's stays";
}

TEST_F(FailingOutput, AStandardInputThatFillsTheDiskIsExplained)
{
    write_text("a.pgm", "P5\n300 300\n255\n" + std::string(90'000, 'x'));
    const int status = status_of_child([&] {
        const bool is_open = std::freopen(in_folder("a.pgm").c_str(), "rb", stdin) != nullptr;
        limit_file_size(20'000);
        const std::string error = error_of([] { (void)read_image("-"); });
        leave(is_open && contains(error,
                                  "standard input: found an input that cannot be read, or kept in a temporary file: ")
                  ? 7
                  : 1);
    });
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(FailingOutput, AStandardInputThatCannotBeCopiedAgainIsExplained)
{
    write_image(in_folder("a.png"), test_picture(300, 200, 3, 8));
    const int status = status_of_child([&] {
        const bool is_open = std::freopen(in_folder("a.png").c_str(), "rb", stdin) != nullptr;
        const bool is_read = open_standard_input() != nullptr;
        limit_file_size(20'000);
        leave(is_open && is_read && open_standard_input() == nullptr ? 7 : 1);
    });
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(FailingOutput, AFileThatIsCutOffWhileItIsReadIsExplained)
{
    for (const std::string name : {"a.pgm", "a.tif"}) {
        SCOPED_TRACE(name);
        const Image image = test_picture(200, 300, 1, 8);
        write_image(in_folder(name), image);
        const auto reader = open_rows(in_folder(name));
        std::vector<std::uint8_t> samples(image.bytes());
        const Rows to{samples.data(), image.row_bytes(), nullptr, 0};
        reader->read_rows(0, 1, to);
        std::filesystem::resize_file(in_folder(name), 1000);
        const std::string error = error_of([&] { reader->read_rows(200, 100, to); });
        EXPECT_TRUE(contains(error, name) && contains(error, "found")) << error;
    }
}

TEST_F(FailingOutput, AnInterruptionWaitsForWhoLooksForIt)
{
    const int status = status_of_child([] {
        remove_outputs_on_interruption();
        InterruptionByHand::begin();
        InterruptionByHand::check(); // nothing yet
        std::raise(SIGTERM);
        int number = 0;
        try {
            InterruptionByHand::check();
        } catch (const Interruption& interruption) {
            number = interruption.number;
        }
        InterruptionByHand::end();
        if (number != SIGTERM)
            leave(1);
        Interruption{number}.finish();
        leave(2); // never
    });
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
}

TEST_F(FailingOutput, WhoWaitedForAnInterruptionDecidesHowToEnd)
{
    const int status = status_of_child([] {
        remove_outputs_on_interruption();
        InterruptionByHand::begin();
        std::raise(SIGINT);
        try {
            InterruptionByHand::check();
        } catch (const Interruption& interruption) {
            leave(interruption.number == SIGINT ? 7 : 1);
        }
    });
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(FailingOutput, ASecondInterruptionDoesNotWait)
{
    const int status = status_of_child([&] {
        remove_outputs_on_interruption();
        InterruptionByHand::begin();
        OutputFile output(in_folder("a.txt"));
        std::raise(SIGINT);
        std::raise(SIGINT);
        leave(1); // never
    });
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT);
    EXPECT_TRUE(names().empty());
}

TEST_F(FailingOutput, AnIgnoredSignalStaysIgnored)
{
    const int status = status_of_child([] {
        std::signal(SIGHUP, SIG_IGN); // as with nohup
        remove_outputs_on_interruption();
        std::raise(SIGHUP);
        leave(7);
    });
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(FailingOutput, UnfinishedFilesAndFoldersAreRemoved)
{
    const int status = status_of_child([&] {
        OutputFile file(in_folder("a.txt"));
        OutputFolder folder(path_from_utf8(in_folder("b")), in_folder("b.dzi"));
        folder.make_folder("0");
        const bool were_there = names().size() == 2;
        remove_unfinished_outputs();
        leave(were_there && names().empty() ? 7 : 1);
    });
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(FailingOutput, MoreUnfinishedFilesThanAreRememberedAreWritten)
{
    const int status = status_of_child([&] {
        std::vector<std::unique_ptr<OutputFile>> files;
        for (int i = 0; i < 70; ++i)
            files.push_back(std::make_unique<OutputFile>(in_folder(concat(i))));
        for (const auto& file : files)
            file->commit();
        leave(names().size() == 70 ? 7 : 1);
    });
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(FailingOutput, AnInterruptionRemovesWhatIsUnfinished)
{
    write_text("done.txt", "older");
    const int status = status_of_child([&] {
        remove_outputs_on_interruption();
        OutputFile first(in_folder("done.txt"));
        OutputFile second(in_folder("new.txt"));
        first.write("newer");
        std::raise(SIGTERM);
    });
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << "it still ends as interrupted";
    EXPECT_EQ(names(), std::vector<std::string>{"done.txt"});
    EXPECT_EQ(read_text("done.txt"), "older");
}

TEST_F(FailingOutput, AnInterruptionMindsNoOutputThatSomebodyHasRemoved)
{
    const int status = status_of_child([&] {
        remove_outputs_on_interruption();
        OutputFile first(in_folder("first.txt"));
        for (const std::string& name : names())
            std::filesystem::remove(in_folder(name));
        OutputFile second(in_folder("second.txt"));
        std::raise(SIGTERM);
    });
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
    EXPECT_TRUE(names().empty());
}

TEST_F(FailingOutput, NamesThatNoSystemOpensAreNotRemembered)
{
    EXPECT_EQ(remember_unfinished(std::string(5000, 'x')), -1);
    forget_unfinished(-1);
}

} // namespace

} // namespace panoval::image::test
