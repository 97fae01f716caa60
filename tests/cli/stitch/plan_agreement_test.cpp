// SPDX-License-Identifier: MIT
// Options beside a plan: those that it was made with are taken, others are refused.
#include "cli/stitch/plan_agreement.h"
#include "image/image_write.h"
#include "tests/cli/run_program.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>

namespace panoval::cli::test
{

namespace
{

using Options = std::vector<std::string>;

class StitchAgreement : public ScratchFolder
{
protected:
    void SetUp() override
    {
        shoot("a.ppm", 0, 0, 1.0);
        shoot("b.ppm", 80, 3, 0.8);
        shoot("c.ppm", 160, -2, 0.9);
    }

    void shoot(const std::string& name, int x, int y, double light) const
    {
        Image image = make_image(120, 90, 3, 8, "test");
        for (int v = 0; v < image.height; ++v)
            for (int u = 0; u < 3 * image.width; ++u) {
                const double level = 120 + 60 * std::sin(0.15 * (x + u / 3)) * std::cos(0.2 * (y + v)) + 10 * (u % 3);
                image.row(v)[u] = static_cast<std::uint8_t>(light * level + 0.5);
            }
        write_image(in_folder(name), image);
    }

    Options pictures() const
    {
        return {in_folder("a.ppm") + "@0,0", in_folder("b.ppm") + "@80,3", in_folder("c.ppm") + "@160,-2"};
    }

    static Outcome stitch(const Options& options, const Options& more)
    {
        Options command = {"stitch", "--quiet"};
        command.insert(command.end(), options.begin(), options.end());
        command.insert(command.end(), more.begin(), more.end());
        return run_panoval(command);
    }

    void make_plan(const Options& options) const
    {
        Options all = pictures();
        all.insert(all.end(), {"--plan-only", "-o", in_folder("plan.json")});
        const Outcome outcome = stitch(all, options);
        ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    }

    // What is wrong with the options beside the plan; empty = they were taken, and a panorama was made.
    std::string refusal(const Options& options) const
    {
        const Outcome outcome = stitch({"--plan", in_folder("plan.json"), "-o", in_folder("out.png")}, options);
        EXPECT_TRUE(outcome.exit_code == 2 || outcome.exit_code == 0) << outcome.exit_code << outcome.err;
        EXPECT_EQ(outcome.exit_code == 0, file_exists(in_folder("out.png"))) << outcome.err;
        if (outcome.exit_code == 0)
            remove("out.png");
        EXPECT_EQ(outcome.exit_code == 0, outcome.err.empty());
        return outcome.err;
    }

    void remove(const std::string& name) const
    {
        ASSERT_TRUE(std::filesystem::remove(path_from_utf8(in_folder(name))));
    }
};

TEST_F(StitchAgreement, OptionsThatAPlanWasMadeWithAreTaken)
{
    const Options options = {"--blend", "multiband",    "--seams",  "nearest",          "--bands",
                             "3",       "--depth",      "16",       "--gains",          in_folder("g.json"),
                             "--crop",  "--vignetting", "--anchor", in_folder("b.ppm"), "--tile-size",
                             "64",      "--gains-per",  "channel"};
    make_plan(options);
    ASSERT_TRUE(file_exists(in_folder("g.json"))) << "gains that were measured";
    EXPECT_EQ(refusal(options), "");
    EXPECT_EQ(refusal({}), "");
    make_plan({"--wrap", "300", "--no-gain", "--blend", "multiband"});
    EXPECT_EQ(refusal({"--wrap", "300", "--no-gain"}), "");
    make_plan({"--wrap"});
    EXPECT_EQ(refusal({"--wrap"}), "");
    EXPECT_EQ(refusal({"--wrap", "280"}), "") << "what the pictures span";
}

TEST_F(StitchAgreement, WhatAPlanHasChosenMayBeAskedFor)
{
    make_plan({});
    const nlohmann::json plan = nlohmann::json::parse(read_text("plan.json"));
    EXPECT_EQ(refusal({"--bands", plan["canvas"]["bands"].dump()}), "");
    EXPECT_EQ(refusal({"--depth", "8", "--seams", "optimal", "--blend", "multiband"}), "");
    EXPECT_EQ(refusal({"--gains-per", plan["gains"]["per_channel"].get<bool>() ? "channel" : "picture"}), "");
    EXPECT_EQ(refusal({"--tile-size", plan["options"]["tile_size"].dump()}), "");
    make_plan({"--tile-size", "4096"});
    EXPECT_EQ(refusal({"--tile-size", "8192"}), "") << "the canvas is one tile";
}

TEST_F(StitchAgreement, OptionsThatContradictAPlanAreRefused)
{
    make_plan({"--bands", "3", "--tile-size", "64", "--gains-per", "picture", "--anchor", in_folder("a.ppm")});
    const std::string plan = in_folder("plan.json");
    EXPECT_TRUE(contains(refusal({"--blend", "feather"}), "found --blend feather with --plan; expected multiband or no "
                                                          "--blend, as " +
                                                              plan + " has it"));
    EXPECT_TRUE(contains(refusal({"--seams", "none"}), "found --seams none with --plan; expected optimal or no"));
    EXPECT_TRUE(contains(refusal({"--bands", "4"}), "found --bands 4 with --plan; expected 3 or no --bands"));
    EXPECT_TRUE(contains(refusal({"--depth", "16"}), "found --depth 16 with --plan; expected 8 or no --depth"));
    EXPECT_TRUE(contains(refusal({"--tile-size", "128"}), "found --tile-size 128 with --plan; expected 64 or no"));
    EXPECT_TRUE(contains(refusal({"--gains-per", "channel"}), "--gains-per channel with --plan; expected picture or"));
    EXPECT_TRUE(
        contains(refusal({"--anchor", in_folder("c.ppm")}), "c.ppm with --plan; expected " + in_folder("a.ppm")));
    for (const std::string flag : {"--crop", "--vignetting", "--no-gain"})
        EXPECT_TRUE(contains(refusal({flag}), "found " + flag + " with --plan; expected no " + flag + ", as " + plan +
                                                  " was made without it"))
            << flag;
    EXPECT_TRUE(contains(refusal({"--wrap", "300"}), "found --wrap 300 with --plan; expected no --wrap"));
    make_plan({"--wrap", "300", "--no-gain"});
    EXPECT_TRUE(contains(refusal({"--wrap"}), "found --wrap 280 with --plan; expected 300 or no --wrap"));
    EXPECT_TRUE(contains(refusal({"--gains-per", "picture"}), "expected no --gains-per"));
    EXPECT_TRUE(contains(refusal({"--gains", in_folder("g.json")}), "expected no --gains"));
    make_plan({"--blend", "feather"});
    EXPECT_TRUE(contains(refusal({"--bands", "4"}), "expected no --bands")) << "feather has none";
}

TEST_F(StitchAgreement, GainsBesideAPlanAreItsOwn)
{
    make_plan({});
    const std::string gains = in_folder("g.json");
    EXPECT_EQ(refusal({"--gains", gains}), "");
    ASSERT_TRUE(file_exists(gains)) << "saved where no file is";
    EXPECT_EQ(refusal({"--gains", gains}), "");
    nlohmann::json other = nlohmann::json::parse(read_text("g.json"));
    other["gains"][1]["gain"] = 1.5;
    write_text("g.json", other.dump());
    EXPECT_TRUE(contains(refusal({"--gains", gains}), "g.json with 1.5 for '" + in_folder("b.ppm") + "' with --plan"));
    make_plan({"--gains", gains});
    EXPECT_EQ(refusal({"--gains", gains}), "");
    other["falloff"] = {0.1, 0, 0};
    write_text("g.json", other.dump());
    EXPECT_TRUE(contains(refusal({"--gains", gains}), "with the falloff [0.1,0.0,0.0]"));
}

TEST_F(StitchAgreement, HelpNamesTheOptionsThatAPlanSettles)
{
    std::string help = run_panoval({"stitch", "--help"}).out;
    std::erase(help, '\r'); // lines end in "\r\n" on Windows
    EXPECT_TRUE(contains(help, kSettledByPlan));
}

TEST_F(StitchAgreement, StrictPlansAreJudgedAndStrictTilesRefused)
{
    Options all = pictures();
    all.insert(all.end(), {"-o", in_folder("plan.json"), "--strict"});
    EXPECT_EQ(stitch(all, {"--plan-only"}).exit_code, 0);
    all[1] = in_folder("b.ppm") + "@70,3";
    EXPECT_EQ(stitch(all, {"--plan-only"}).exit_code, 8);
    EXPECT_TRUE(file_exists(in_folder("plan.json"))) << "the plan is there all the same";
    EXPECT_TRUE(contains(refusal({"--strict", "--tile", "0"}), "found --strict with --tile, --resume or --dry-run"));
}

} // namespace

} // namespace panoval::cli::test
