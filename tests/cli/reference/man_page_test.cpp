// SPDX-License-Identifier: MIT
// Manual pages of small command lines, whose text is worked out by hand.
#include "cli/reference/man_page.h"

#include "cli/reference/option_text.h"
#include "tests/support/scratch_folder.h"

#include <CLI/CLI.hpp>

#include <gtest/gtest.h>

namespace panoval::cli::test
{

namespace
{

using image::test::contains;

// A program with one command that has an option of every kind.
struct SmallProgram {
    CLI::App program{"Does things.", "tool"};
    CLI::App* command = program.add_subcommand("turn", "Turn pictures");
    std::vector<std::string> inputs;
    std::string output, how;
    int degrees = 0;
    bool is_quiet = false;

    SmallProgram()
    {
        command->add_option("IMAGE", inputs, "The pictures");
        command->add_option("-o,--output", output, "The result")->required()->type_name("OUT");
        command->add_option("--how", how, "The way, see below")
            ->check(CLI::IsMember({"fast", "best"}))
            ->type_name("HOW");
        command->add_option("--by", degrees, "The angle")->check(CLI::Range(1, 359))->type_name("DEGREES");
        command->add_flag("-q,--quiet", is_quiet, "Say nothing");
        command->footer("Turns what it gets.\n  fast   in no time\n         at all\n.dots and 'quotes' stay.\n\n"
                        "Examples:\n  tool turn -o b.png a.png\n      once\n\nExit codes:\n  0  done\n 70  a defect\n");
    }
};

TEST(ManPage, RequiredOptionsAndInputsStandInTheSynopsis)
{
    const SmallProgram small;
    const std::string page = command_page(small.program, *small.command, "1.2.3");
    EXPECT_TRUE(contains(page, ".SH SYNOPSIS\n\\fBtool turn\\fR [\\fIOPTIONS\\fR] \\fB\\-o\\fR \\fIOUT\\fR "
                               "[\\fIIMAGE\\fR...]\n"))
        << page;
}

TEST(ManPage, OptionsHaveTheirNamesValueMeaningAndRange)
{
    const SmallProgram small;
    const std::string page = command_page(small.program, *small.command, "1.2.3");
    EXPECT_TRUE(contains(page, ".TP\n\\fB\\-q\\fR, \\fB\\-\\-quiet\\fR\nSay nothing\n")) << page;
    EXPECT_TRUE(contains(page, ".TP\n\\fB\\-\\-by\\fR \\fIDEGREES\\fR\nThe angle\n(1 to 359)\n")) << page;
    EXPECT_TRUE(contains(page, ".TP\n\\fB\\-\\-how\\fR \\fIHOW\\fR\nThe way, see DESCRIPTION\n")) << page;
}

TEST(ManPage, TextTablesExamplesAndExitCodesBecomeSections)
{
    const SmallProgram small;
    const std::string page = command_page(small.program, *small.command, "1.2.3");
    EXPECT_TRUE(contains(page, ".SH DESCRIPTION\nTurns what it gets.\n.TP\n\\fBfast\\fR\nin no time\nat all\n.PP\n"
                               "\\&.dots and \\(aqquotes\\(aq stay.\n.SH OPTIONS\n"))
        << page;
    EXPECT_TRUE(contains(page, ".SH EXAMPLES\n.nf\n\\fBtool turn \\-o b.png a.png\\fR\n.fi\n.RS 4\nonce\n.RE\n"))
        << page;
    EXPECT_TRUE(contains(page, ".SH EXIT STATUS\n.TP\n\\fB0\\fR\ndone\n.TP\n\\fB70\\fR\na defect\n")) << page;
}

TEST(ManPage, NothingInATextIsTakenForAnInstruction)
{
    EXPECT_EQ(roff_text(".SH a\\b"), "\\&.SH a\\eb");
    EXPECT_EQ(roff_text("2^N ~ a-b"), "2\\(haN \\(ti a\\-b");
}

TEST(OptionText, FilesAndChoicesAreKnown)
{
    const SmallProgram small;
    const std::vector<OptionText> options = options_of(*small.command); // the first is --help
    ASSERT_EQ(options.size(), 6u);
    EXPECT_TRUE(options[1].is_file() && options[1].is_positional() && options[1].takes_many);
    EXPECT_TRUE(options[2].is_file() && options[2].is_required);
    EXPECT_EQ(options[3].choices, (std::vector<std::string>{"fast", "best"}));
    EXPECT_FALSE(options[4].is_file());
    EXPECT_TRUE(options[5].value.empty());
}

} // namespace

} // namespace panoval::cli::test
