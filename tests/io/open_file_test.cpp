// SPDX-License-Identifier: MIT
#include "io/open_file.h"

#include "panoval.h"
#include "tests/support/failing_heap.h"
#include "tests/support/temporary_folder.h"

#include <gtest/gtest.h>

#include <string>

namespace
{

using panoval::open_file_utf8;
using panoval::test::FailingHeap;
using panoval::test::path_of;
using panoval::test::read_file;
using panoval::test::TemporaryFolder;
using panoval::test::write_file;

// Latin with accents, Greek and Han, and one character beyond the 16-bit plane.
const char* const kNames[] = {"plain.pgm", "größe.pgm", "εικόνα.pgm", "全景.pgm", "größe εικόνα 全景.pgm", "📷.pgm"};

TEST(OpenFileUtf8, WritesAFileOfANameInAnyScript)
{
    for (const char* const name : kNames) {
        const TemporaryFolder folder;
        {
            const auto file = open_file_utf8(folder.name(name).c_str(), "wb");
            ASSERT_NE(file, nullptr) << name;
            std::fputs("text\n", file.get());
        }
        ASSERT_TRUE(std::filesystem::exists(folder.path() / path_of(name))) << name;
        EXPECT_EQ(read_file(folder.path() / path_of(name)), "text\n");
    }
}

TEST(OpenFileUtf8, ReadsAFileOfANameInAnyScript)
{
    for (const char* const name : kNames) {
        const TemporaryFolder folder;
        write_file(folder.path() / path_of(name), "x");
        const auto file = open_file_utf8(folder.name(name).c_str(), "rb");
        ASSERT_NE(file, nullptr) << name;
        EXPECT_EQ(std::fgetc(file.get()), 'x');
    }
}

TEST(OpenFileUtf8, FailsWithoutANameOrAMode)
{
    const TemporaryFolder folder;
    EXPECT_EQ(open_file_utf8(nullptr, "wb"), nullptr);
    EXPECT_EQ(open_file_utf8(folder.name("a").c_str(), nullptr), nullptr);
    EXPECT_EQ(open_file_utf8(nullptr, nullptr), nullptr);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(OpenFileUtf8, TakesAModeOf31CharactersAndNoLongerOne)
{
    const TemporaryFolder folder;
    const std::string name = folder.name("a");
    write_file(folder.path() / "a", "x");
    EXPECT_NE(open_file_utf8(name.c_str(), ("rb" + std::string(29, ' ')).c_str()), nullptr);
    EXPECT_EQ(open_file_utf8(name.c_str(), ("rb" + std::string(30, ' ')).c_str()), nullptr);
    EXPECT_EQ(open_file_utf8(name.c_str(), ("rb" + std::string(300, ' ')).c_str()), nullptr);
}

TEST(OpenFileUtf8, FailsForAFileThatDoesNotExist)
{
    const TemporaryFolder folder;
    EXPECT_EQ(open_file_utf8(folder.name("none").c_str(), "rb"), nullptr);
    EXPECT_EQ(open_file_utf8(folder.name("none/none").c_str(), "wb"), nullptr);
    EXPECT_EQ(open_file_utf8("", "rb"), nullptr);
}

TEST(OpenFileUtf8, LeaksNothingWhenTheHeapIsExhausted)
{
    const TemporaryFolder folder;
    const std::string name = folder.name("a");
    panoval::test::for_each_failing_allocation([&](FailingHeap& heap) {
        (void)open_file_utf8(name.c_str(), "wb");
        EXPECT_EQ(heap.live_blocks(), 0);
    });
}

} // namespace
