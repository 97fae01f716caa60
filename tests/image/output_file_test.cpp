// SPDX-License-Identifier: MIT
#include "image/output_file.h"

#include "image/interruption.h"
#include "image/output_folder.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

#ifdef __linux__
#include <algorithm>
#include <vector>

#include <sys/mman.h>
#include <sys/vfs.h>
#endif
#ifndef _WIN32
#include <unistd.h>
#endif

namespace panoval::image::test
{

namespace
{

using OutputFileTest = ScratchFolder;

TEST_F(OutputFileTest, IsThereOnlyWhenCommitted)
{
    OutputFile output(in_folder("new.txt"));
    output.write("hello");
    EXPECT_FALSE(file_exists(in_folder("new.txt")));
    output.commit();
    EXPECT_EQ(read_text("new.txt"), "hello");
    EXPECT_EQ(names().size(), 1u);
}

TEST_F(OutputFileTest, LeavesTheOldFileWhenNotCommitted)
{
    write_text("old.txt", "old");
    {
        OutputFile output(in_folder("old.txt"));
        output.write("new");
    }
    EXPECT_EQ(read_text("old.txt"), "old");
    EXPECT_EQ(names(), std::vector<std::string>{"old.txt"});
}

TEST_F(OutputFileTest, ReplacesTheOldFileWhenCommitted)
{
    write_text("old.txt", "old and longer");
    OutputFile output(in_folder("old.txt"));
    output.write("new");
    output.commit();
    EXPECT_EQ(read_text("old.txt"), "new");
    EXPECT_EQ(names().size(), 1u);
}

TEST_F(OutputFileTest, TakesNamesOfAllScripts)
{
    const std::string name = "Größe-панорама-全景.txt";
    OutputFile output(in_folder(name));
    output.write("x");
    output.commit();
    EXPECT_EQ(names(), std::vector<std::string>{name});
    EXPECT_EQ(read_text(name), "x");
}

TEST_F(OutputFileTest, TwoOutputsOfOneNameDoNotMeet)
{
    OutputFile first(in_folder("a.txt"));
    OutputFile second(in_folder("a.txt"));
    first.write("first");
    second.write("second");
    first.commit();
    second.commit();
    EXPECT_EQ(read_text("a.txt"), "second");
}

TEST_F(OutputFileTest, PlacesThatCannotBeWrittenAreExplainedAtOnce)
{
    const auto error = [](const std::string& name) { return error_of([&] { OutputFile output(name); }); };
    EXPECT_TRUE(contains(error(in_folder("none/a.txt")), "a.txt: found no folder ")) << error(in_folder("none/a.txt"));
    EXPECT_TRUE(contains(error(in_folder("")), ": found a folder; expected a file to write"));
    EXPECT_TRUE(contains(error(""), "found an empty file name"));
}

TEST_F(OutputFileTest, APlaceThatIsGoneInTheEndIsExplained)
{
    std::filesystem::create_directory(path_from_utf8(in_folder("sub")));
    OutputFile output(in_folder("sub/a.txt"));
    output.write("new");
    std::filesystem::create_directories(path_from_utf8(in_folder("sub/a.txt/full")));
    EXPECT_TRUE(contains(error_of([&] { output.commit(); }), "a.txt: found a name that cannot be taken: "));
}

TEST_F(OutputFileTest, AFolderThatCannotBeMadeOrPutInPlaceIsExplained)
{
    write_text("a", "a file");
    EXPECT_TRUE(contains(error_of([&] { OutputFolder folder(path_from_utf8(in_folder("a")), "a.dzi"); }),
                         "a.dzi: found a file "));
    EXPECT_TRUE(contains(error_of([&] { OutputFolder folder(path_from_utf8(in_folder("none/b")), "b.dzi"); }),
                         "b.dzi: found a folder that cannot be made: "));
    OutputFolder folder(path_from_utf8(in_folder("c")), "c.dzi");
    folder.make_folder("0");
    EXPECT_TRUE(contains(error_of([&] { folder.make_folder("0"); }), "c.dzi: found an error while writing: "));
    EXPECT_TRUE(contains(error_of([&] { (void)folder.make_file("1/0.png"); }), "found an error while writing: "));
    std::filesystem::remove_all(folder.path());
    EXPECT_TRUE(contains(error_of([&] { folder.commit(); }), "c.dzi: found a folder that cannot be put in place: "));
}

#ifdef __linux__

// Which share of these bytes of the file the system holds in memory. The places are whole pages.
double share_in_memory(std::FILE* file, std::size_t begin, std::size_t bytes)
{
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* const view = mmap(nullptr, bytes, PROT_READ, MAP_SHARED, fileno(file), static_cast<off_t>(begin));
    std::vector<unsigned char> pages(bytes / page);
    EXPECT_EQ(mincore(view, bytes, pages.data()), 0);
    munmap(view, bytes);
    const auto held = std::count_if(pages.begin(), pages.end(), [](unsigned char flags) { return (flags & 1) != 0; });
    return static_cast<double>(held) / static_cast<double>(pages.size());
}

bool is_in_memory_alone(std::FILE* file)
{
    constexpr auto kTmpfs = 0x01021994;
    struct statfs system {
    };
    return fstatfs(fileno(file), &system) == 0 && system.f_type == kTmpfs;
}

TEST_F(OutputFileTest, TheBeginningOfALongFileIsLeftToTheDisk)
{
    constexpr std::size_t kKept = 4 << 20; // whole pages, the largest ones too
    OutputFile output(in_folder("long.bin"));
    if (is_in_memory_alone(output.stream()))
        GTEST_SKIP() << "files of this folder lie in memory alone";
    output.write(std::string(3 * kKept, 'a'));
    ASSERT_EQ(std::fflush(output.stream()), 0);
    ASSERT_EQ(fdatasync(fileno(output.stream())), 0); // what is not on the disk stays in memory
    output.leave_to_disk(kKept);
    EXPECT_EQ(share_in_memory(output.stream(), kKept, kKept), 0.0);
    EXPECT_EQ(share_in_memory(output.stream(), 2 * kKept, kKept), 1.0);
    output.write(std::string(kKept / 32, 'b'));
    output.leave_to_disk(kKept); // too little has come since
    EXPECT_EQ(share_in_memory(output.stream(), 2 * kKept, kKept), 1.0);
    output.write(std::string(kKept, 'c'));
    output.leave_to_disk(kKept);
    EXPECT_EQ(share_in_memory(output.stream(), 2 * kKept + kKept / 2, kKept / 2), 0.0);
    output.commit();
    EXPECT_EQ(read_text("long.bin"),
              std::string(3 * kKept, 'a') + std::string(kKept / 32, 'b') + std::string(kKept, 'c'));
}

#endif

TEST_F(OutputFileTest, AScratchFileStandsBesideTheOutputAndVanishes)
{
    OutputFile output(in_folder("a.tif"));
    {
        const FileHandle scratch = output.make_scratch();
        ASSERT_EQ(std::fwrite("rows", 1, 4, scratch.get()), 4u);
        std::rewind(scratch.get());
        char bytes[5] = {};
        EXPECT_EQ(std::fread(bytes, 1, 5, scratch.get()), 4u);
        EXPECT_STREQ(bytes, "rows");
    }
    EXPECT_EQ(names().size(), 1u) << "the unfinished output";
}

TEST_F(OutputFileTest, NamesThatAreAllTakenAreExplained)
{
    for (int i = 0; i < 100; ++i)
        write_text(concat("a.txt.", process_id(), "-", i, ".part"), "somebody's");
    EXPECT_TRUE(contains(error_of([&] { OutputFile output(in_folder("a.txt")); }),
                         "a.txt: found a place that cannot be written to: "));
    OutputFile output(in_folder("b.txt"));
    for (int i = 0; i < 100; ++i)
        write_text(concat("b.txt.", process_id(), "-", i, ".scratch"), "somebody's");
    EXPECT_TRUE(contains(error_of([&] { (void)output.make_scratch(); }), "b.txt: found an error while writing: "));
    EXPECT_EQ(names().size(), 201u) << "what is somebody's stays";
}

TEST_F(OutputFileTest, AFileThatTakesAFoldersPlaceStays)
{
    OutputFolder folder(path_from_utf8(in_folder("d")), "d.dzi");
    write_text("d", "a file");
    EXPECT_TRUE(contains(error_of([&] { folder.commit(); }), "d.dzi: found a file "));
    EXPECT_TRUE(std::filesystem::is_regular_file(path_from_utf8(in_folder("d"))));
}

TEST_F(OutputFileTest, AFolderStaysWhereTheNewOneCannotBePutInPlace)
{
    std::filesystem::create_directories(path_from_utf8(in_folder("e/older")));
    OutputFolder folder(path_from_utf8(in_folder("e")), "e.dzi");
    std::filesystem::remove_all(folder.path());
    EXPECT_TRUE(contains(error_of([&] { folder.commit(); }), "e.dzi: found a folder that cannot be put in place: "));
    EXPECT_TRUE(std::filesystem::is_directory(path_from_utf8(in_folder("e/older"))));
}

#ifndef _WIN32

TEST_F(OutputFileTest, AScratchFileWithoutItsFolderIsExplained)
{
    std::filesystem::create_directory(in_folder("sub"));
    OutputFile output(in_folder("sub/a.tif"));
    std::filesystem::remove_all(in_folder("sub"));
    EXPECT_TRUE(
        contains(error_of([&] { (void)output.make_scratch(); }), "a.tif: found an error while writing: No such"));
}

TEST_F(OutputFileTest, AnOutputThatDoesNotCloseIsExplained)
{
    write_text("a.txt", "old");
    {
        OutputFile output(in_folder("a.txt"));
        output.write("new");
        std::fflush(output.stream());
        close(fileno(output.stream()));
        EXPECT_TRUE(contains(error_of([&] { output.commit(); }), "a.txt: found an error while writing: Bad file"));
    }
    EXPECT_EQ(read_text("a.txt"), "old");
    EXPECT_EQ(names().size(), 1u);
}

TEST_F(OutputFileTest, ANameThatIsTooLongIsExplained)
{
    EXPECT_TRUE(contains(error_of([&] { OutputFile output(in_folder(std::string(250, 'a'))); }),
                         "found a place that cannot be written to: "));
}

TEST_F(OutputFileTest, WritesThroughALinkAndKeepsPermissions)
{
    namespace fs = std::filesystem;
    write_text("real.txt", "old");
    fs::permissions(in_folder("real.txt"), fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink(in_folder("real.txt"), in_folder("link.txt"));
    OutputFile output(in_folder("link.txt"));
    output.write("new");
    output.commit();
    EXPECT_TRUE(fs::is_symlink(in_folder("link.txt")));
    EXPECT_EQ(read_text("real.txt"), "new");
    EXPECT_EQ(fs::status(in_folder("real.txt")).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(OutputFileTest, WriteProtectedFilesStay)
{
    namespace fs = std::filesystem;
    const std::string name = write_text("a.txt", "old");
    fs::permissions(name, fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
    const uid_t user = getuid();
    const uid_t tried = user == 0 ? 65534 : user; // root may write everywhere
    ASSERT_EQ(setreuid(tried, geteuid()), 0);
    const std::string error = error_of([&] { OutputFile output(name); });
    ASSERT_EQ(setreuid(user, geteuid()), 0);
    EXPECT_EQ(error, name + ": found a write-protected file; expected a file to write");
    EXPECT_EQ(read_text("a.txt"), "old");
}

TEST_F(OutputFileTest, DevicesAreNoTargets)
{
    EXPECT_EQ(error_of([] { OutputFile output("/dev/full"); }),
              "/dev/full: found no regular file; expected a file to write");
}

#endif

} // namespace

} // namespace panoval::image::test
