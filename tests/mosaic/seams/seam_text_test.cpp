// SPDX-License-Identifier: MIT
#include "mosaic/seams/seam_text.h"

#include "mosaic/base/errors.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace panoval::mosaic::test
{

namespace
{

using panoval::test::Random;

Layout layout_of(std::int64_t width, std::int64_t height, int pictures)
{
    Layout layout;
    layout.width = width;
    layout.height = height;
    for (int i = 0; i < pictures; ++i)
        layout.pictures.push_back({{0, 0, width, height}, false, ""});
    return layout;
}

SeamMap random_seams(const Layout& layout, Random& random)
{
    SeamMap seams(layout.width);
    std::vector<std::int32_t> row(static_cast<std::size_t>(layout.width), kNobody);
    for (std::int64_t y = 0; y < layout.height; ++y) {
        if (random.integer(0, 2) > 0)
            for (std::int32_t& label : row)
                if (random.integer(0, 3) == 0)
                    label = static_cast<std::int32_t>(
                        random.integer(-1, static_cast<std::int64_t>(layout.pictures.size()) - 1));
        seams.add_row(std::span<const std::int32_t>(row));
    }
    return seams;
}

bool are_equal(const SeamMap& a, const SeamMap& b)
{
    if (a.width() != b.width() || a.height() != b.height())
        return false;
    for (std::int64_t y = 0; y < a.height(); ++y)
        if (!std::ranges::equal(a.runs(y), b.runs(y)))
            return false;
    return true;
}

TEST(SeamText, IsReadAsItWasWritten)
{
    Random random(1);
    for (int i = 0; i < 200; ++i) {
        const Layout layout = layout_of(random.integer(1, 300), random.integer(1, 20), 1 + i % 200);
        const SeamMap seams = random_seams(layout, random);
        EXPECT_TRUE(are_equal(seams_of_text(text_of_seams(seams), layout), seams)) << i;
    }
}

TEST(SeamText, TakesALetterAndAHalfForARowThatRepeats)
{
    const Layout layout = layout_of(1000, 3000, 2);
    SeamMap seams(1000);
    const std::vector<SeamMap::Run> row = {{400, 0}, {1000, 1}};
    for (int y = 0; y < 3000; ++y)
        seams.add_row(std::span<const SeamMap::Run>(row));
    EXPECT_LT(text_of_seams(seams).size(), 4100u);
}

std::string message_of(const std::string& text, const Layout& layout)
{
    try {
        (void)seams_of_text(text, layout);
    } catch (const Error& error) {
        EXPECT_EQ(error.failure(), Failure::Plan);
        return error.what();
    }
    return "";
}

TEST(SeamText, RefusesWhatDoesNotFit)
{
    const Layout layout = layout_of(4, 2, 1);
    SeamMap seams(4);
    const std::vector<SeamMap::Run> row = {{4, 0}};
    seams.add_row(std::span<const SeamMap::Run>(row));
    seams.add_row(std::span<const SeamMap::Run>(row));
    const std::string good = text_of_seams(seams);
    EXPECT_EQ(message_of(good, layout), "");
    EXPECT_NE(message_of("", layout), "");
    EXPECT_NE(message_of(good.substr(1), layout), "");
    EXPECT_NE(message_of(good + "AAAA", layout), "");
    EXPECT_NE(message_of("AAAA", layout), "") << "the first row repeats nothing";
    EXPECT_NE(message_of("?" + good.substr(1), layout), "");
    EXPECT_NE(message_of(good, layout_of(5, 2, 1)), "");
    EXPECT_NE(message_of(good, layout_of(4, 3, 1)), "");
    EXPECT_NE(message_of(good, layout_of(3, 2, 1)), "");
}

TEST(SeamText, RefusesAPictureThatDoesNotLieThere)
{
    Layout layout = layout_of(4, 1, 2);
    SeamMap seams(4);
    const std::vector<SeamMap::Run> row = {{2, 0}, {4, 1}};
    seams.add_row(std::span<const SeamMap::Run>(row));
    const std::string text = text_of_seams(seams);
    layout.pictures[1].rect = {2, 0, 2, 1};
    EXPECT_EQ(message_of(text, layout), "");
    layout.pictures[1].rect = {3, 0, 1, 1};
    EXPECT_NE(message_of(text, layout), "");
    layout.pictures.pop_back();
    EXPECT_NE(message_of(text, layout), "");
}

// A row of the second picture in the middle of three.
TEST(SeamText, RefusesAPictureThatLiesInOtherRows)
{
    Layout layout = layout_of(4, 3, 2);
    SeamMap seams(4);
    for (const std::int32_t label : {0, 1, 0}) {
        const std::vector<SeamMap::Run> row = {{4, label}};
        seams.add_row(std::span<const SeamMap::Run>(row));
    }
    const std::string text = text_of_seams(seams);
    layout.pictures[1].rect = {0, 1, 4, 1};
    EXPECT_EQ(message_of(text, layout), "");
    layout.pictures[1].rect = {0, 0, 4, 1};
    EXPECT_NE(message_of(text, layout), "") << "it ends above";
    layout.pictures[1].rect = {0, 2, 4, 1};
    EXPECT_NE(message_of(text, layout), "") << "it begins below";
}

// A canvas of 8 columns; the second picture has the columns 6 to 9, which are 6, 7, 0 and 1.
TEST(SeamText, TakesAPictureBehindTheEdgeOfACanvasThatGoesRound)
{
    const auto message = [](std::vector<SeamMap::Run> row, bool wraps, const Rect& rect) {
        Layout layout = layout_of(8, 1, 2);
        layout.wraps = wraps;
        layout.pictures[1].rect = rect;
        SeamMap seams(8);
        seams.add_row(std::span<const SeamMap::Run>(row));
        return message_of(text_of_seams(seams), layout);
    };
    EXPECT_EQ(message({{2, 1}, {6, 0}, {8, 1}}, true, {6, 0, 4, 1}), "");
    EXPECT_NE(message({{3, 1}, {6, 0}, {8, 1}}, true, {6, 0, 4, 1}), "") << "column 2 is not its own";
    EXPECT_NE(message({{2, 1}, {6, 0}, {8, 1}}, false, {6, 0, 4, 1}), "");
    EXPECT_EQ(message({{8, 1}}, true, {6, 0, 8, 1}), "") << "once round";
    EXPECT_NE(message({{8, 1}}, true, {6, 0, 7, 1}), "");
}

TEST(SeamText, BytesChangedAnywhereNeverDoHarm)
{
    Random random(2);
    const Layout layout = layout_of(40, 12, 5);
    const std::string good = text_of_seams(random_seams(layout, random));
    for (int i = 0; i < 2000; ++i) {
        std::string bad = good;
        bad[static_cast<std::size_t>(random.integer(0, static_cast<std::int64_t>(bad.size()) - 1))] =
            static_cast<char>(random.integer(1, 126));
        try {
            const SeamMap seams = seams_of_text(bad, layout);
            EXPECT_EQ(seams.height(), 12);
        } catch (const Error& error) {
            EXPECT_EQ(error.failure(), Failure::Plan);
        }
    }
}

} // namespace

} // namespace panoval::mosaic::test
