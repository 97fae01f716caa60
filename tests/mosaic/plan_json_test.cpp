// SPDX-License-Identifier: MIT
#include "mosaic/plan_json.h"

#include "mosaic/base/errors.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <string>

namespace panoval::mosaic::test
{

namespace
{

Plan made_plan()
{
    std::vector<PlacementWish> pictures(2);
    pictures[0] = {-70, 30, 100, 80, 3, 16, true, {true, false}, "left \"one\""};
    pictures[1] = {10, 25, 90, 70, 3, 16, false, {false, true}, "right"};
    Plan plan;
    plan.settings.bands = 4;
    plan.settings.seams = SeamChoice::Nearest;
    plan.settings.vignetting = true;
    plan.settings.anchor = 1;
    plan.layout = make_layout(pictures, 0);
    plan.traits = {pictures[0].traits, pictures[1].traits};
    plan.bands = 3;
    plan.output_bits = 8;
    plan.grid = {plan.layout.width, plan.layout.height, 64, 32};
    plan.gains = Gains{Corrections::none(plan.layout), true, {1}};
    plan.gains->corrections.gains[0] = {1.0 / 3, 0.1, 1e-3, 1};
    plan.gains->corrections.falloff.c = {-0.1, 2.0 / 7, -1e-7};
    OverlapStatistics overlap;
    overlap.says = OverlapStatistics::Says::SecondBlank;
    overlap.shared = 12345;
    overlap.channels = {{{-1.0 / 3, 1e-7, true}, {}, {5e-324, 0.1, true}, {}}};
    overlap.all = {0.1, 0.7, true};
    overlap.seen = {2.0 / 7, 0.3, true};
    overlap.correlation = 1.0 / 7;
    plan.statistics = GainStatistics{{overlap}, {{0.1, 0.2, 1.0 / 3}}};
    SeamMap seams(plan.layout.width);
    for (std::int64_t y = 0; y < plan.layout.height; ++y) {
        const std::vector<SeamMap::Run> row = {{static_cast<std::int32_t>(plan.layout.width), kNobody}};
        seams.add_row(std::span<const SeamMap::Run>(row));
    }
    plan.seams = std::move(seams);
    return plan;
}

TEST(PlanJson, IsReadAsItWasWritten)
{
    const Plan plan = made_plan();
    const std::string text = plan_to_json(plan);
    const Plan read = plan_from_json(text);
    EXPECT_EQ(read.settings, plan.settings);
    EXPECT_EQ(read.grid, plan.grid);
    EXPECT_EQ(read.bands, plan.bands);
    EXPECT_EQ(read.output_bits, plan.output_bits);
    EXPECT_EQ(read.layout.origin_x, -70);
    EXPECT_EQ(read.layout.origin_y, 25);
    ASSERT_EQ(read.layout.pictures.size(), 2u);
    EXPECT_EQ(read.layout.pictures[1].rect, plan.layout.pictures[1].rect);
    EXPECT_EQ(read.layout.pictures[0].name, "left \"one\"");
    EXPECT_TRUE(read.traits[0].has_keep);
    EXPECT_TRUE(read.traits[1].random_access);
    EXPECT_EQ(read.statistics, plan.statistics);
    ASSERT_TRUE(read.gains);
    EXPECT_EQ(read.gains->corrections.gains, plan.gains->corrections.gains);
    EXPECT_EQ(read.gains->corrections.falloff, plan.gains->corrections.falloff);
    EXPECT_EQ(read.gains->outliers, plan.gains->outliers);
    ASSERT_TRUE(read.seams);
    EXPECT_EQ(plan_to_json(read), text);
}

TEST(PlanJson, GoesRoundTheHorizon)
{
    std::vector<PlacementWish> pictures(2);
    pictures[0] = {-500, 0, 300, 80, 1, 8, false, {}, "a"};
    pictures[1] = {250, 0, 300, 80, 1, 8, false, {}, "b"};
    Plan plan;
    plan.settings.wrap = 400;
    plan.layout = make_layout(pictures, 400);
    plan.traits.resize(2);
    plan.grid = {400, 80, 400, 80};
    EXPECT_EQ(plan.layout.pictures[1].rect.x, 350);
    const Plan read = plan_from_json(plan_to_json(plan));
    EXPECT_TRUE(read.layout.wraps);
    EXPECT_EQ(read.layout.width, 400);
    EXPECT_EQ(read.layout.pictures[1].rect, plan.layout.pictures[1].rect);
    EXPECT_EQ(plan_to_json(read), plan_to_json(plan));
}

std::string message_of(const std::string& text)
{
    try {
        (void)plan_from_json(text);
    } catch (const Error& error) {
        EXPECT_EQ(error.failure(), Failure::Plan);
        return error.what();
    }
    return "";
}

std::string with(const std::string& text, const std::string& from, const std::string& to)
{
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.substr(0, at) + to + text.substr(at + from.size());
}

TEST(PlanJson, SaysWhatDoesNotFit)
{
    const std::string good = plan_to_json(made_plan());
    EXPECT_EQ(message_of(good), "");
    EXPECT_NE(message_of("[]").find("object"), std::string::npos);
    EXPECT_NE(message_of("{").find("JSON"), std::string::npos);
    EXPECT_NE(message_of(with(good, "\"panoval_plan\": 1", "\"panoval_plan\": 2")).find("panoval_plan"),
              std::string::npos);
    EXPECT_NE(message_of(with(good, "\"nearest\"", "\"farthest\"")).find("seams"), std::string::npos);
    EXPECT_NE(message_of(with(good, "\"anchor\": 1", "\"anchor\": 7")).find("anchor"), std::string::npos);
    EXPECT_NE(message_of(with(good, "\"height\": 80", "\"height\": -80")).find("height"), std::string::npos);
    EXPECT_NE(message_of(with(good, "\"height\": 80", "\"height\": 81")).find("seams"), std::string::npos);
    EXPECT_NE(message_of(with(good, "\"bits\": 16", "\"bits\": 12")).find("bits"), std::string::npos);
    EXPECT_NE(message_of(with(good, "\"width\": 64", "\"width\": 0")).find("width"), std::string::npos);
    EXPECT_NE(message_of(with(good, "\"width\": 64", "\"width\": 18446744073709551615")).find("width"),
              std::string::npos);
    EXPECT_NE(message_of(with(good, "\"falloff\": [", "\"falloff\": [1,")).find("falloff"), std::string::npos);
    EXPECT_NE(message_of(with(good, "0.001,", "1e300,")).find("gains"), std::string::npos);
    EXPECT_NE(message_of(with(good, "\"second blank\"", "\"blank\"")).find("says"), std::string::npos);
    EXPECT_NE(message_of(with(good, "12345", "-1")).find("pixels"), std::string::npos);
    EXPECT_NE(message_of(with(good, "0.7", "-0.7")).find("\"all\""), std::string::npos);
    EXPECT_NE(message_of(with(good, "\"has_mask\": true", "\"has_mask\": 1")).find("has_mask"), std::string::npos);
}

template <class Change>
std::string refusal_of(const Change& change)
{
    nlohmann::json json = nlohmann::json::parse(plan_to_json(made_plan()));
    change(json);
    return message_of(json.dump());
}

std::string other_value(const char* key, const char* where, const char* expected)
{
    return std::string("found another value of \"") + key + "\" in " + where + " of the plan; expected " + expected;
}

TEST(PlanJson, NamesValuesOfAnotherKind)
{
    EXPECT_EQ(refusal_of([](auto& plan) { plan["canvas"]["pictures"][1]["name"] = 7; }),
              other_value("name", "picture 1", "a text"));
    EXPECT_EQ(refusal_of([](auto& plan) { plan["canvas"]["pictures"] = 7; }),
              other_value("pictures", "the canvas", "a list"));
    EXPECT_EQ(refusal_of([](auto& plan) { plan["canvas"]["bands"] = 31; }),
              other_value("bands", "the canvas", "a whole number from 1 to 30"));
    EXPECT_EQ(refusal_of([](auto& plan) { plan["canvas"]["output_bits"] = 12; }),
              other_value("output_bits", "the canvas", "8 or 16"));
    EXPECT_EQ(refusal_of([](auto& plan) { plan["canvas"]["output_bits"] = 16; }), "");
}

TEST(PlanJson, NamesGainsThatCannotBe)
{
    for (const char* const outliers : {"[2]", "[-1]", "[1.5]", "[\"left\"]"})
        EXPECT_EQ(refusal_of([&](auto& plan) { plan["gains"]["outliers"] = nlohmann::json::parse(outliers); }),
                  other_value("outliers", "the gains", "numbers of pictures"));
    EXPECT_EQ(refusal_of([](auto& plan) { plan["gains"]["pictures"].erase(1); }),
              other_value("pictures", "the gains", "gains of 2 pictures"));
    for (const char* const gains : {"7", "[1, 1, 1]"})
        EXPECT_EQ(refusal_of([&](auto& plan) { plan["gains"]["pictures"][1] = nlohmann::json::parse(gains); }),
                  other_value("pictures", "the gains", "4 gains a picture"));
    EXPECT_EQ(refusal_of([](auto& plan) { plan["gains"]["pictures"][1][2] = "bright"; }),
              other_value("pictures", "the gains", "numbers from 0.000001 to 1000000"));
}

TEST(PlanJson, NamesStatisticsThatCannotBe)
{
    const char* const where = "the statistics of overlap 0";
    EXPECT_EQ(refusal_of([](auto& plan) { plan["statistics"]["overlaps"][0]["channels"].erase(0); }),
              other_value("channels", where, "a ratio of each of 3 channels"));
    for (const char* const ratio : {"7", "[0.1]"})
        EXPECT_EQ(
            refusal_of([&](auto& plan) { plan["statistics"]["overlaps"][0]["all"] = nlohmann::json::parse(ratio); }),
            other_value("all", where, "a logarithm and its error, or null"));
}

TEST(PlanJson, EveryCutIsRefused)
{
    const std::string good = plan_to_json(made_plan());
    for (std::size_t size = 0; size + 2 < good.size(); size += 7)
        EXPECT_NE(message_of(good.substr(0, size)), "") << size;
}

TEST(PlanJson, NestingWithoutEndIsRefused)
{
    const std::string deep = std::string(300000, '[') + std::string(300000, ']');
    EXPECT_NE(message_of("{\"a\": " + deep + ", \"b\": 1, \"c\": 2}"), "");
    EXPECT_NE(message_of(deep), "");
}

TEST(MakeLayout, RefusesWhatDoesNotGoTogether)
{
    std::vector<PlacementWish> pictures(2);
    pictures[0] = {0, 0, 100, 80, 3, 8, false, {}, "a"};
    pictures[1] = {50, 0, 100, 80, 3, 8, false, {}, "b"};
    EXPECT_NO_THROW((void)make_layout(pictures, 0));
    EXPECT_THROW((void)make_layout({}, 0), Error);
    EXPECT_THROW((void)make_layout(pictures, 99), Error) << "a picture is wider than the circle";
    pictures[1].bits = 16;
    EXPECT_THROW((void)make_layout(pictures, 0), Error);
    pictures[1].bits = 8;
    pictures[1].x = 2147483600;
    EXPECT_THROW((void)make_layout(pictures, 0), Error);
    pictures[1].x = 2147483547;
    EXPECT_EQ(make_layout(pictures, 0).width, 2147483647);
}

} // namespace

} // namespace panoval::mosaic::test
