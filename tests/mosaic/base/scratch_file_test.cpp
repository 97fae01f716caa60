// SPDX-License-Identifier: MIT
#include "mosaic/base/scratch_file.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace panoval::mosaic::test
{

namespace
{

TEST(ScratchFile, GivesBackWhatWasWrittenThere)
{
    ScratchFile file;
    ASSERT_TRUE(file.open());
    const std::vector<std::uint8_t> bytes = {1, 2, 3, 4, 5};
    ASSERT_TRUE(file.write(1000, bytes.data(), bytes.size()));
    std::vector<std::uint8_t> read(3);
    ASSERT_TRUE(file.read(1001, read.data(), read.size()));
    EXPECT_EQ(read, (std::vector<std::uint8_t>{2, 3, 4}));
    ASSERT_TRUE(file.read(0, read.data(), read.size()));
    EXPECT_EQ(read, (std::vector<std::uint8_t>{0, 0, 0})) << "what nobody wrote";
}

TEST(ScratchFile, SaysThatThereIsNothingBehindItsEnd)
{
    ScratchFile file;
    ASSERT_TRUE(file.open());
    const std::vector<std::uint8_t> bytes = {1, 2, 3, 4, 5};
    ASSERT_TRUE(file.write(0, bytes.data(), bytes.size()));
    std::vector<std::uint8_t> read(6);
    EXPECT_FALSE(file.read(0, read.data(), read.size()));
    EXPECT_TRUE(file.read(0, read.data(), 5));
    EXPECT_TRUE(file.read(5, read.data(), 0));
}

#ifndef _WIN32

// Sets TMPDIR for as long as the object lives.
class TemporaryFolder
{
public:
    explicit TemporaryFolder(const char* folder)
    {
        if (const char* const before = std::getenv("TMPDIR"); before != nullptr) {
            had_one_ = true;
            before_ = before;
        }
        if (folder != nullptr)
            setenv("TMPDIR", folder, 1);
        else
            unsetenv("TMPDIR");
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder()
    {
        if (had_one_)
            setenv("TMPDIR", before_.c_str(), 1);
        else
            unsetenv("TMPDIR");
    }

private:
    bool had_one_ = false;
    std::string before_;
};

TEST(ScratchFile, LiesInTheFolderThatIsNamedAndNowhereElse)
{
    {
        const TemporaryFolder folder("/nowhere/at/all");
        EXPECT_FALSE(ScratchFile().open());
    }
    const TemporaryFolder folder("/tmp");
    EXPECT_TRUE(ScratchFile().open());
}

TEST(ScratchFile, LiesInTheSystemsFoldersWhereNoneIsNamed)
{
    for (const char* const nothing : {"", static_cast<const char*>(nullptr)}) {
        const TemporaryFolder folder(nothing);
        EXPECT_TRUE(ScratchFile().open());
    }
}

#endif

} // namespace

} // namespace panoval::mosaic::test
