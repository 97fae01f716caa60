// SPDX-License-Identifier: MIT
#include "image/output_file.h"

#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

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

#ifndef _WIN32

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

TEST_F(OutputFileTest, DevicesAreNoTargets)
{
    EXPECT_EQ(error_of([] { OutputFile output("/dev/full"); }),
              "/dev/full: found no regular file; expected a file to write");
}

#endif

} // namespace

} // namespace panoval::image::test
