// SPDX-License-Identifier: MIT
#include "mosaic/verdict/verdict.h"

#include "tests/mosaic/verdict/verdict_cases.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>

namespace panoval::mosaic::test
{

namespace
{

std::string told(const VerdictCase& made, const Verdict& verdict)
{
    std::string text = made.scene + ", " + made.fault + ": " + name_of(verdict.word);
    for (const std::string& reason : verdict.reasons)
        text += "\n  " + reason;
    return text;
}

class EveryFault : public testing::TestWithParam<const char*>
{
};

TEST_P(EveryFault, IsJudgedRightly)
{
    for (const std::string scene : {"town", "soft", "night"}) {
        if (scene == "night" && std::string(GetParam()).starts_with("co"))
            continue; // steps of coding that are half as large as the light
        const VerdictCase made = make_verdict_case(scene, GetParam(), 11);
        const Verdict verdict = judge_case(made);
        EXPECT_TRUE(is_right(made, verdict)) << told(made, verdict);
    }
}

INSTANTIATE_TEST_SUITE_P(Verdict, EveryFault,
                         testing::Values("none", "noise", "unequal", "dim", "exposures", "coding", "coarse", "masks",
                                         "vignetting", "shift1", "shift2", "shift3", "shift6", "thing", "moved", "gap",
                                         "gamma", "blur", "swapped", "twice", "black", "blank", "white", "turned",
                                         "negative"),
                         [](const auto& fault) { return std::string(fault.param); });

TEST(Verdict, MeasuresDisplacementsToASeventhOfAPixel)
{
    for (const char* shift : {"shift1", "shift2", "shift3", "shift6"}) {
        const VerdictCase made = make_verdict_case("town", shift, 5);
        const std::size_t culprit = made.expected.misfits[0];
        for (const OverlapVerdict& overlap : judge_case(made).overlaps) {
            const int sign = overlap.second == culprit ? 1 : overlap.first == culprit ? -1 : 0;
            ASSERT_TRUE(overlap.displacement);
            EXPECT_NEAR(overlap.displacement->x, sign * made.shift_x, 0.15);
            EXPECT_NEAR(overlap.displacement->y, sign * made.shift_y, 0.15);
            EXPECT_GT(overlap.displacement->confidence, 0.7);
        }
    }
}

TEST(Verdict, BoxesAThingThatMoved)
{
    const VerdictCase made = make_verdict_case("town", "thing", 3);
    std::int64_t found = 0;
    for (const OverlapVerdict& overlap : judge_case(made).overlaps)
        for (const Ghost& ghost : overlap.ghosts) {
            found = std::max(found, intersect(ghost.box, made.thing).pixels());
            EXPECT_TRUE(made.thing.grown(12).contains(ghost.box));
        }
    EXPECT_GT(2 * found, made.thing.pixels());
}

// Neighbours in a row, where every overlap is wrong and nothing else tells whose fault it is.
// Its two places match each other better than anything else does.
TEST(Verdict, OfAThingThatMovedInAFogBlamesNobody)
{
    const VerdictCase made = make_verdict_case("fog", "moved", 11);
    const Verdict verdict = judge_case(made);
    EXPECT_TRUE(is_right(made, verdict)) << told(made, verdict);
    std::size_t places = 0;
    for (const OverlapVerdict& overlap : verdict.overlaps)
        places = std::max(places, overlap.ghosts.size());
    EXPECT_GE(places, 1u);
}

TEST(Verdict, NamesTwoPicturesAtEachOthersPlacesAndNobodyElse)
{
    const Scene scene = make_scene(780, 200, {});
    for (const auto& [a, b] : {std::pair<std::size_t, std::size_t>{1, 2}, {0, 2}, {2, 3}}) {
        VerdictCase made{"row", "swapped", std::make_shared<MemoryReader>(780, 200), {}, 0, 0, {}};
        for (std::size_t i = 0; i < 4; ++i) {
            const std::size_t shown = i == a ? b : i == b ? a : i;
            const MemoryPicture picture = take_picture(scene, {{static_cast<std::int64_t>(190 * shown), 0, 210, 200}});
            made.reader->add(static_cast<std::int64_t>(190 * i), 0, picture);
        }
        const Verdict verdict = judge_case(made);
        EXPECT_EQ(verdict.word, Word::Bad);
        EXPECT_EQ(verdict.misfits, (std::vector<std::size_t>{a, b})) << told(made, verdict);
    }
}

// Of a facade whose windows repeat, its neighbour would fit in its place, too.
TEST(Verdict, NamesAnEmptyPictureAloneAmongThingsThatRepeat)
{
    Scene scene = make_scene(900, 200, {.texture = 0.05, .contrast = 0.05, .edges = 0});
    for (std::int64_t y = 0; y < scene.height; ++y)
        for (std::int64_t x = 0; x < scene.width; ++x)
            for (int c = 0; c < scene.channels; ++c)
                scene.at(x, y, c) *= x % 38 > 12 && y % 29 > 9 ? 0.5f : 1.f;
    for (const std::uint16_t level : {std::uint16_t{0}, std::uint16_t{255}}) {
        VerdictCase made{"facade", "empty", std::make_shared<MemoryReader>(900, 200), {}, 0, 0, {}};
        for (std::int64_t i = 0; i < 4; ++i) {
            MemoryPicture picture = take_picture(scene, {.rect = {190 * i, 0, 290, 200}, .noise = 1});
            if (i == 2)
                std::fill(picture.samples.begin(), picture.samples.end(), level);
            made.reader->add(190 * i, 0, std::move(picture));
        }
        const Verdict verdict = judge_case(made);
        EXPECT_EQ(verdict.word, Word::Bad);
        EXPECT_EQ(verdict.misfits, std::vector<std::size_t>{2}) << told(made, verdict);
    }
}

TEST(Verdict, OfAFlatSceneHasNoDisplacements)
{
    for (const OverlapVerdict& overlap : judge_case(make_verdict_case("fog", "shift3", 2)).overlaps)
        EXPECT_FALSE(overlap.displacement);
}

TEST(Verdict, IsTheSameForAnyNumberOfThreads)
{
    const VerdictCase made = make_verdict_case("town", "shift2", 4);
    MemoryReader& reader = *made.reader;
    const auto overlaps = find_overlaps(reader.layout);
    const Corrections corrections = Corrections::none(reader.layout);
    const auto judged = [&](std::size_t threads) {
        return verdict_json(judge_all(reader, overlaps, corrections, SeamMap(), {threads}), reader.layout, true);
    };
    EXPECT_EQ(judged(1), judged(4));
    EXPECT_EQ(judged(1), judged(3 * overlaps.size())) << "each overlap on several";
}

TEST(Verdict, OfOnePictureIsGood)
{
    MemoryReader reader(20, 10);
    reader.add(0, 0, MemoryPicture::blank(20, 10, 3, 8));
    const Verdict verdict = judge_all(reader, {}, Corrections::none(reader.layout), SeamMap());
    EXPECT_EQ(verdict.word, Word::Good);
    EXPECT_EQ(verdict.groups, (std::vector<std::vector<std::size_t>>{{0}}));
}

// Their rectangles meet, but what their masks cover does not.
TEST(Verdict, OfPicturesThatShareNoPixelsHasNoOverlaps)
{
    MemoryReader reader(30, 20);
    for (const std::int64_t x : {0, 10}) {
        MemoryPicture picture = MemoryPicture::blank(20, 20, 1, 8);
        for (std::int64_t i = 0; i < 400; ++i)
            picture.mask.push_back((i % 20 < 10) == (x == 0) ? 255 : 0);
        reader.add(x, 0, std::move(picture));
    }
    const std::vector<Overlap> overlaps = find_overlaps(reader.layout);
    ASSERT_EQ(overlaps.size(), 1u);
    const Verdict verdict = judge_all(reader, overlaps, Corrections::none(reader.layout), SeamMap());
    EXPECT_TRUE(verdict.overlaps.empty());
    EXPECT_EQ(verdict.word, Word::Bad);
    EXPECT_EQ(verdict.groups, (std::vector<std::vector<std::size_t>>{{0}, {1}}));
}

// One pixel is less than half of any cell.
TEST(Verdict, OfPicturesThatHardlyShareAnythingIsGood)
{
    MemoryReader reader(300, 300);
    for (const bool is_second : {false, true}) {
        MemoryPicture picture = MemoryPicture::blank(300, 300, 1, 8);
        picture.mask.assign(picture.samples.size(), is_second ? 0 : 255);
        picture.mask[150 * 300 + 150] = 255;
        reader.add(0, 0, std::move(picture));
    }
    const Verdict verdict =
        judge_all(reader, find_overlaps(reader.layout), Corrections::none(reader.layout), SeamMap());
    ASSERT_EQ(verdict.overlaps.size(), 1u);
    EXPECT_EQ(verdict.overlaps[0].shared_pixels, 1u);
    EXPECT_FALSE(verdict.overlaps[0].displacement);
    EXPECT_EQ(verdict.word, Word::Good);
    EXPECT_EQ(verdict.groups.size(), 1u);
}

TEST(Verdict, LeavesPicturesThatCoverNothingOutOfTheGroups)
{
    MemoryReader reader(40, 10);
    for (int i = 0; i < 4; ++i)
        reader.add(10 * i, 0, MemoryPicture::blank(10, 10, 3, 8));
    const auto judged = [&](const std::vector<std::int32_t>& labels) {
        SeamMap seams(40);
        std::vector<std::int32_t> row;
        for (const std::int32_t label : labels)
            row.insert(row.end(), 10, label);
        for (int y = 0; y < 10; ++y)
            seams.add_row(row);
        return judge_all(reader, {}, Corrections::none(reader.layout), seams);
    };
    using Groups = std::vector<std::vector<std::size_t>>;
    const Verdict one = judged({kNobody, 1, kNobody, kNobody});
    EXPECT_EQ(one.groups, (Groups{{1}}));
    EXPECT_EQ(one.word, Word::Look);
    EXPECT_EQ(one.reasons, (std::vector<std::string>{"3 pictures cover nothing."}));
    const Verdict two = judged({0, 1, kNobody, 3});
    EXPECT_EQ(two.groups, (Groups{{0}, {1}, {3}}));
    EXPECT_EQ(two.word, Word::Bad);
    EXPECT_EQ(two.reasons.front(), "1 picture covers nothing.");
    const Verdict none = judged({kNobody, kNobody, kNobody, kNobody});
    EXPECT_EQ(none.groups, Groups());
    EXPECT_EQ(none.word, Word::Bad);
    EXPECT_EQ(none.reasons, (std::vector<std::string>{"4 pictures cover nothing."}));
}

TEST(Verdict, OfTinyOverlapsDoesNotFail)
{
    MemoryReader reader(12, 3);
    for (int i = 0; i < 5; ++i)
        reader.add(2 * i, 0, MemoryPicture::blank(4, 3 - i % 3, 1, 16));
    const Verdict verdict =
        judge_all(reader, find_overlaps(reader.layout), Corrections::none(reader.layout), SeamMap());
    EXPECT_EQ(verdict.word, Word::Good);
}

TEST(Verdict, CountsHolesAndUncoveredPixels)
{
    MemoryReader reader(40, 40);
    for (int i = 0; i < 4; ++i) {
        const bool lies = i % 2 == 0;
        reader.add(i == 3 ? 25 : 0, i == 2 ? 25 : 0, MemoryPicture::blank(lies ? 40 : 15, lies ? 15 : 40, 1, 8));
    }
    SeamMap seams(40);
    std::vector<std::int32_t> row(40, 0);
    for (int y = 0; y < 40; ++y) {
        std::fill(row.begin(), row.end(), 0);
        if (y >= 15 && y < 25)
            std::fill(row.begin() + 15, row.begin() + 25, kNobody);
        seams.add_row(row);
    }
    const Verdict verdict = judge_all(reader, find_overlaps(reader.layout), Corrections::none(reader.layout), seams);
    EXPECT_EQ(verdict.uncovered_pixels, 100);
    ASSERT_EQ(verdict.holes.size(), 1u);
    EXPECT_EQ(verdict.holes[0].box, (Rect{15, 15, 10, 10}));
    EXPECT_EQ(verdict.word, Word::Look);
}

// Round the horizon the last columns lie beside the first ones: what is uncovered there is one hole, and no edge.
TEST(Verdict, CountsOneHoleAtBothEndsOfACanvasThatGoesRound)
{
    for (const bool wraps : {false, true}) {
        MemoryReader reader(40, 30, wraps);
        for (const std::int64_t y : {0, 20})
            reader.add(0, y, MemoryPicture::blank(40, 10, 1, 8));
        reader.add(5, 0, MemoryPicture::blank(30, 30, 1, 8));
        SeamMap seams(40);
        for (int y = 0; y < 30; ++y) {
            std::vector<std::int32_t> row(40, y < 10 ? 0 : y < 20 ? 2 : 1);
            if (y >= 10 && y < 20) {
                std::fill_n(row.begin(), 5, kNobody);
                std::fill_n(row.end() - 5, 5, kNobody);
            }
            seams.add_row(row);
        }
        const Verdict verdict =
            judge_all(reader, find_overlaps(reader.layout), Corrections::none(reader.layout), seams);
        EXPECT_EQ(verdict.uncovered_pixels, 100);
        ASSERT_EQ(verdict.holes.size(), wraps ? 1u : 0u) << "those at the sides of a canvas are its shape";
        EXPECT_TRUE(!wraps || verdict.holes[0].pixels == 100);
    }
}

TEST(VerdictJson, HasTheDocumentedMembers)
{
    const VerdictCase made = make_verdict_case("town", "shift3", 6);
    const Verdict verdict = judge_case(made);
    const auto json = nlohmann::json::parse(verdict_json(verdict, made.reader->layout, false));
    EXPECT_EQ(json["verdict"], "bad");
    EXPECT_EQ(json["misfits"], nlohmann::json(made.expected.misfits));
    EXPECT_EQ(json["groups"].size(), 1u);
    ASSERT_EQ(json["overlaps"].size(), verdict.overlaps.size());
    const auto& overlap = json["overlaps"][0];
    for (const char* member : {"first", "second", "x", "y", "width", "height", "shared_pixels", "before", "after",
                               "verdict", "explanation", "displacement", "step", "ghosts", "sharpness"})
        EXPECT_TRUE(overlap.contains(member)) << member;
    EXPECT_FALSE(overlap["after"].contains("distribution"));
    EXPECT_TRUE(
        nlohmann::json::parse(verdict_json(verdict, made.reader->layout, true))["overlaps"][0]["after"]["distribution"]
            .size() == 256);
}

TEST(VerdictJson, TellsPlacesInTheHostsFrame)
{
    Layout layout;
    layout.origin_x = 1000;
    layout.origin_y = -200;
    Verdict verdict;
    verdict.holes.push_back({{5, 6, 7, 8}, 50});
    verdict.overlaps.resize(2);
    verdict.overlaps[0].empty = 3;
    verdict.overlaps[0].ghosts.push_back({{10, 20, 30, 40}, 12.5, true});
    verdict.overlaps[1].displacement = Displacement{1.5, -2, 0.75};
    const auto json = nlohmann::json::parse(verdict_json(verdict, layout, false));
    EXPECT_EQ(json["holes"], nlohmann::json::parse(R"([{"x": 1005, "y": -194, "width": 7, "height": 8,
                                                        "pixels": 50}])"));
    EXPECT_EQ(json["overlaps"][0]["ghosts"],
              nlohmann::json::parse(R"([{"x": 1010, "y": -180, "width": 30, "height": 40, "levels": 12.5,
                                         "is_cut": true}])"));
    EXPECT_EQ(json["overlaps"][0]["empty"], 3);
    EXPECT_EQ(json["overlaps"][0]["displacement"], nullptr);
    EXPECT_EQ(json["overlaps"][1]["ghosts"].size(), 0u);
    EXPECT_EQ(json["overlaps"][1]["empty"], nullptr);
    EXPECT_EQ(json["overlaps"][1]["displacement"],
              nlohmann::json::parse(R"({"x": 1.5, "y": -2.0, "confidence": 0.75})"));
}

} // namespace

} // namespace panoval::mosaic::test
