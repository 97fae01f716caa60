// SPDX-License-Identifier: MIT
#include "cli/base/arguments.h"

#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace panoval::cli::test
{

namespace
{

using Wildcards = ScratchFolder;

TEST_F(Wildcards, FitAnyPartOfAName)
{
    for (const char* const pattern : {"*", "a*", "*.png", "a.p?g", "*a*", "A.PNG", "?.png", "a.png*"})
        EXPECT_TRUE(fits_wildcard(pattern, "a.png")) << pattern;
    for (const char* const pattern : {"", "b*", "*.jpg", "a?.png", "a.png?", "*ab*"})
        EXPECT_FALSE(fits_wildcard(pattern, "a.png")) << pattern;
    EXPECT_TRUE(fits_wildcard("*aab", "aaaab"));
    EXPECT_TRUE(fits_wildcard("?.tif", "\xC3\xA4.tif")) << "a character of two bytes";
    EXPECT_FALSE(fits_wildcard("??.tif", "\xC3\xA4.tif"));
}

TEST_F(Wildcards, BecomeTheFilesTheyFitInOrder)
{
    for (const char* const name : {"b.pgm", "a.pgm", "c.ppm"})
        write_text(name, "x");
    std::filesystem::create_directory(path_from_utf8(in_folder("folder.pgm")));
    const std::string all = in_folder("") + "*.pgm";
    EXPECT_EQ(expand_wildcards({"--json", all, "-o", "out.pgm"}),
              (std::vector<std::string>{"--json", in_folder("") + "a.pgm", in_folder("") + "b.pgm", "-o", "out.pgm"}));
}

TEST_F(Wildcards, StayWhereTheyFitNothing)
{
    const std::vector<std::string> arguments = {in_folder("") + "*.tif", "none/*.tif", "plain", "--svg=*", ""};
    EXPECT_EQ(expand_wildcards(arguments), arguments);
}

} // namespace

} // namespace panoval::cli::test
