// SPDX-License-Identifier: MIT
// The built program from outside: what holds for all commands.
#include "tests/cli/run_program.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace panoval::cli::test
{

namespace
{

constexpr const char* kCommands[] = {"stitch", "ellipses", "edges",    "inpaint",
                                     "smooth", "gradient", "distance", "threshold"};

// With the line ends of every system the same.
std::string lines_of(const Outcome& outcome)
{
    std::string text = outcome.out;
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    return text;
}

TEST(Program, HelpTellsTheCommandsAndTheExitCodes)
{
    const Outcome outcome = run_panoval({"--help"});
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_TRUE(contains(outcome.out, "Exit codes:")) << outcome.out;
    EXPECT_TRUE(contains(lines_of(outcome), "\nCommands:\n")) << outcome.out;
    for (const char* const command : kCommands)
        EXPECT_TRUE(contains(outcome.out, concat("\n  ", command, " "))) << command;
    EXPECT_EQ(outcome.err, "");
}

TEST(Program, HelpOfEachCommandHasExamplesExitCodesAndTheKnownFormats)
{
    for (const char* const command : kCommands) {
        const Outcome outcome = run_panoval({command, "--help"});
        EXPECT_EQ(outcome.exit_code, 0);
        for (const std::string& words : {concat("\n  panoval ", command, " "), std::string("\nExit codes:\n")})
            EXPECT_TRUE(contains(lines_of(outcome), words)) << words;
        EXPECT_FALSE(contains(outcome.out, "This build")) << outcome.out;
    }
}

TEST(Program, HelpFitsAWideTerminal)
{
    std::vector<std::vector<std::string>> all = {{"--help"}};
    for (const char* const command : kCommands)
        all.push_back({command, "--help"});
    for (const auto& arguments : all) {
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

// As of a variable of a script that is not set.
TEST(Program, AnEmptyValueOfAnOptionIsRefused)
{
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"pyramid", "a.zarr", "-o", ""},
                                               {"pyramid", ""},
                                               {"stitch", "-o", "", "a.png@0,0"},
                                               {"stitch", "-o", "a.png", "--plan", ""},
                                               {"stitch", "-o", "a.png", "a.png@0,0", "--gains", ""},
                                               {"ellipses", "a.png", "--svg", ""},
                                               {"smooth", "a.png", "-o", ""}}) {
        const Outcome outcome = run_panoval(arguments);
        EXPECT_EQ(outcome.exit_code, 2) << arguments[0];
        EXPECT_TRUE(contains(outcome.err, "found nothing; expected a value")) << outcome.err;
    }
}

TEST(Program, AnOptionBeforeTheCommandIsNamed)
{
    for (const char* const option : {"--quiet", "-q", "--nonsense=3", "--"}) {
        const Outcome outcome = run_panoval({option, "smooth"});
        EXPECT_EQ(outcome.exit_code, 2);
        EXPECT_EQ(outcome.out, "");
        EXPECT_TRUE(contains(outcome.err, concat("found '", option, "' before the command"))) << outcome.err;
    }
}

TEST(Program, ShowsNamesWholeAndLongTextsUpToAWholeCharacter)
{
    const std::string name(300, 'n');
    EXPECT_EQ(printable(name + "\n.pgm"), name + "?.pgm");
    EXPECT_EQ(printable("写真", 5), "写...");
    EXPECT_EQ(printable("写真", 6), "写真");
    EXPECT_EQ(printable("abc", 2), "ab...");
}

} // namespace

} // namespace panoval::cli::test
