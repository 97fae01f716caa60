// SPDX-License-Identifier: MIT
// The built program from outside: what holds for all commands.
#include "run_program.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>

#include <sstream>

namespace panoval::cli::test
{

namespace
{

TEST(Program, HelpTellsTheCommandsAndTheExitCodes)
{
    const Outcome outcome = run_panoval({"--help"});
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_TRUE(contains(outcome.out, "Exit codes:")) << outcome.out;
    EXPECT_EQ(outcome.err, "");
}

TEST(Program, HelpFitsAWideTerminal)
{
    for (const auto& arguments : {std::vector<std::string>{"--help"}, {"stitch", "--help"}, {"ellipses", "--help"}}) {
        std::istringstream help(run_panoval(arguments).out);
        for (std::string line; std::getline(help, line);)
            EXPECT_LE(line.size(), 121u) << line;
    }
}

TEST(Program, VersionIsOneLine)
{
    const Outcome outcome = run_panoval({"--version"});
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_EQ(outcome.out.substr(0, 8), "panoval ");
}

TEST(Program, WithoutArgumentsItShowsItsHelpAsAnError)
{
    const Outcome outcome = run_panoval({});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(contains(outcome.err, "Exit codes:"));
}

TEST(Program, AnUnknownCommandIsOneLine)
{
    const Outcome outcome = run_panoval({"stich"});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(contains(outcome.err, "stich")) << outcome.err;
    EXPECT_TRUE(contains(outcome.err, "see panoval --help")) << outcome.err;
}

} // namespace

} // namespace panoval::cli::test
