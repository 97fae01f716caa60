// SPDX-License-Identifier: MIT
#include "mosaic/gains/gain_solve.h"

#include "mosaic/base/errors.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <utility>

namespace panoval::mosaic::test
{

namespace
{

using Says = OverlapStatistics::Says;

// Grey pictures in a row, each of which meets the next one.
Layout row_of(std::int64_t pictures)
{
    Layout layout;
    layout.width = 80 * pictures + 20;
    layout.height = 50;
    layout.channels = 1;
    layout.bits = 8;
    for (std::int64_t i = 0; i < pictures; ++i)
        layout.pictures.push_back({{80 * i, 0, 100, 50}, false, "p"});
    return layout;
}

OverlapStatistics saying(double ratio)
{
    OverlapStatistics overlap;
    overlap.says = Says::Agree;
    overlap.shared = 1000;
    overlap.all = overlap.seen = overlap.channels[0] = {std::log(ratio), 0.001, true};
    return overlap;
}

TEST(SolveGains, OverlapsThatAgreeAreFollowedExactly)
{
    const Layout layout = row_of(3);
    const auto overlaps = find_overlaps(layout);
    const GainResult result = solve_gains(layout, overlaps, {{saying(2), saying(0.25)}, {}}, {.anchor = 0});
    EXPECT_TRUE(result.outliers.empty());
    EXPECT_EQ(result.corrections.gains[0][0], 1);
    EXPECT_NEAR(result.corrections.gains[1][0], 2, 1e-9) << "half as bright as the first one";
    EXPECT_NEAR(result.corrections.gains[2][0], 0.5, 1e-9);
}

TEST(SolveGains, ASmallPictureHardlyMovesTheOthers)
{
    Layout layout = row_of(2);
    layout.pictures.push_back({{20, 10, 5, 4}, false, "put in"}); // 20 pixels beside 2 x 5000
    const auto overlaps = find_overlaps(layout);
    ASSERT_EQ(overlaps.size(), 2u);
    const GainResult result = solve_gains(layout, overlaps, {{saying(1), saying(0.5)}, {}}, {});
    EXPECT_NEAR(result.corrections.gains[0][0], 1, 0.002);
    EXPECT_NEAR(result.corrections.gains[1][0], 1, 0.002);
    EXPECT_NEAR(result.corrections.gains[2][0], 0.5, 0.001);
    const double all = 100 * std::log(result.corrections.gains[0][0]) + 100 * std::log(result.corrections.gains[1][0]) +
                       0.4 * std::log(result.corrections.gains[2][0]);
    EXPECT_NEAR(all, 0, 1e-9) << "the panorama keeps its brightness";
}

TEST(SolveGains, PicturesThatShowSomethingElseStayAsTheyAre)
{
    const Layout layout = row_of(4);
    const auto overlaps = find_overlaps(layout);
    GainStatistics statistics{{saying(2), saying(2), saying(2)}, {}};
    statistics.overlaps[2].says = Says::SecondBlank;
    const GainResult result = solve_gains(layout, overlaps, statistics, {});
    EXPECT_EQ(result.outliers, (std::vector<std::size_t>{3}));
    EXPECT_EQ(result.corrections.gains[3][0], 1);
    EXPECT_EQ(result.groups, (std::vector<std::size_t>{0, 0, 0, 1}));
}

TEST(SolveGains, TheFalloffIsPassedOn)
{
    const Layout layout = row_of(2);
    const Falloff falloff{{-0.25, 0.5, 0}};
    const GainResult result = solve_gains(layout, find_overlaps(layout), {{saying(2)}, falloff}, {});
    EXPECT_EQ(result.corrections.falloff, falloff);
}

// Of three channels, of which each has this ratio.
OverlapStatistics coloured(double red, double green, double blue)
{
    OverlapStatistics overlap = saying(1);
    for (std::size_t c = 0; c < 3; ++c)
        overlap.channels[c] = {std::log(c == 0 ? red : c == 1 ? green : blue), 0.001, true};
    return overlap;
}

Layout coloured_row_of(std::int64_t pictures)
{
    Layout layout = row_of(pictures);
    layout.channels = 3;
    return layout;
}

TEST(SolveGains, OfGreyPicturesAreNeverPerChannel)
{
    const Layout layout = row_of(2);
    EXPECT_FALSE(
        solve_gains(layout, find_overlaps(layout), {{saying(2)}, {}}, {.per = GainOptions::Per::Channel}).per_channel);
}

TEST(SolveGains, AChannelThatIsNotKnownFollowsAllOfThem)
{
    const Layout layout = coloured_row_of(2);
    OverlapStatistics overlap = coloured(4, 1, 0.25);
    overlap.all = {std::log(2), 0.001, true};
    overlap.channels[2] = {};
    const GainResult result =
        solve_gains(layout, find_overlaps(layout), {{overlap}, {}}, {.per = GainOptions::Per::Channel, .anchor = 0});
    EXPECT_TRUE(result.per_channel);
    EXPECT_NEAR(result.corrections.gains[1][0], 4, 1e-9);
    EXPECT_NEAR(result.corrections.gains[1][1], 1, 1e-9);
    EXPECT_NEAR(result.corrections.gains[1][2], 2, 1e-9) << "as all of them";
}

TEST(SolveGains, OverlapsOfUnknownBrightnessSayNothingOfColour)
{
    const Layout layout = coloured_row_of(2);
    const auto overlaps = find_overlaps(layout);
    OverlapStatistics overlap = coloured(1.5, 1, 0.7);
    EXPECT_TRUE(solve_gains(layout, overlaps, {{overlap}, {}}, {}).per_channel);
    overlap.all = {};
    const GainResult result = solve_gains(layout, overlaps, {{overlap}, {}}, {});
    EXPECT_FALSE(result.per_channel);
    EXPECT_EQ(result.corrections.gains[1][0], 1);
}

TEST(SolveGains, AnOutlierThatIsTheAnchorKeepsItsBrightness)
{
    const Layout layout = row_of(4);
    const auto overlaps = find_overlaps(layout);
    GainStatistics statistics{{saying(2), saying(2), saying(2)}, {}};
    statistics.overlaps[2].says = Says::SecondBlank;
    const GainResult result = solve_gains(layout, overlaps, statistics, {.anchor = 3});
    EXPECT_EQ(result.outliers, (std::vector<std::size_t>{3}));
    EXPECT_EQ(result.corrections.gains[3][0], 1);
}

// Three pictures, each of which shares pixels with both others.
Layout three_around(int channels)
{
    Layout layout = row_of(1);
    layout.height = 80;
    layout.width = 180;
    layout.channels = channels;
    layout.pictures = {{{0, 0, 100, 50}, false, "a"}, {{80, 0, 100, 50}, false, "b"}, {{50, 30, 100, 50}, false, "c"}};
    return layout;
}

// It shows nothing where it shares most, and fits where it shares little.
TEST(SolveGains, AnOutlierFollowsWhatIsGoodOfIt)
{
    for (const bool is_last : {false, true}) {
        Layout layout = three_around(1);
        if (is_last)
            std::swap(layout.pictures[0], layout.pictures[2]);
        const auto overlaps = find_overlaps(layout);
        ASSERT_EQ(overlaps.size(), 3u); // 0 1, 0 2, 1 2
        GainStatistics statistics{{saying(1), saying(3), saying(2)}, {}};
        statistics.overlaps[is_last ? 2 : 0].says = is_last ? Says::SecondBlank : Says::FirstBlank;
        statistics.overlaps[1].shared = 10;
        const GainResult result = solve_gains(layout, overlaps, statistics, {.anchor = is_last ? 0u : 2u});
        EXPECT_EQ(result.outliers, std::vector<std::size_t>{is_last ? 2u : 0u});
        EXPECT_NEAR(result.corrections.gains[is_last ? 2 : 0][0], is_last ? 3 : 1 / 3.0, 1e-3);
        EXPECT_EQ(result.corrections.gains[is_last ? 0 : 2][0], 1);
    }
}

TEST(SolveGains, ColoursOfOutliersAreNotThoseOfTheirNeighbours)
{
    const Layout layout = three_around(3);
    const auto overlaps = find_overlaps(layout);
    GainStatistics statistics{{coloured(1, 1, 1), coloured(2, 1, 0.5), coloured(1, 1, 1)}, {}};
    EXPECT_TRUE(solve_gains(layout, overlaps, {{coloured(2, 1, 0.5), coloured(2, 1, 0.5), coloured(1, 1, 1)}, {}}, {})
                    .per_channel);
    statistics.overlaps[0].says = Says::FirstBlank;
    statistics.overlaps[1].shared = 10;
    EXPECT_FALSE(solve_gains(layout, overlaps, statistics, {}).per_channel);
}

// Four pictures on each other, and one ratio that no brightness of theirs explains.
TEST(SolveGains, ARatioThatContradictsAllOthersIsLeftOut)
{
    Layout layout = coloured_row_of(4);
    for (PlacedPicture& picture : layout.pictures)
        picture.rect.x = 0;
    const auto overlaps = find_overlaps(layout);
    ASSERT_EQ(overlaps.size(), 6u);
    GainStatistics statistics{std::vector<OverlapStatistics>(6, coloured(1, 1, 1)), {}};
    statistics.overlaps[2] = coloured(4, 2, 1);
    statistics.overlaps[2].all = statistics.overlaps[2].seen = {std::log(2), 0.001, true};
    const GainMisfits misfits = find_misfits(layout, overlaps, statistics.overlaps);
    EXPECT_EQ(misfits.is_contradiction, (std::vector<char>{0, 0, 1, 0, 0, 0}));
    EXPECT_TRUE(misfits.outliers.empty());
    const GainResult result = solve_gains(layout, overlaps, statistics, {});
    EXPECT_FALSE(result.per_channel);
    for (const ChannelGains& gains : result.corrections.gains)
        EXPECT_NEAR(gains[0], 1, 1e-3);
}

TEST(SolveGains, OverlapsWhoseRatioIsNotSeenContradictNothing)
{
    const Layout layout = row_of(3);
    GainStatistics statistics{{saying(2), saying(2)}, {}};
    statistics.overlaps[1].seen = {};
    const GainMisfits misfits = find_misfits(layout, find_overlaps(layout), statistics.overlaps);
    EXPECT_EQ(misfits.is_contradiction, (std::vector<char>{0, 0}));
    EXPECT_TRUE(misfits.outliers.empty());
    statistics.overlaps[1] = {};
    EXPECT_TRUE(find_misfits(layout, find_overlaps(layout), statistics.overlaps).outliers.empty());
}

std::string complaint(const GainStatistics& statistics)
{
    try {
        check_statistics(statistics, 1);
    } catch (const Error& error) {
        EXPECT_EQ(error.failure(), Failure::Argument);
        return error.what();
    }
    return "";
}

TEST(CheckStatistics, NamesWhatHasNoMeaning)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(complaint({{saying(2)}, {}}), "");
    EXPECT_NE(complaint({{}, {}}).find("0 overlaps"), std::string::npos);
    EXPECT_NE(complaint({{saying(2)}, {{0, nan, 0}}}).find("falloff"), std::string::npos);
    OverlapStatistics overlap = saying(2);
    overlap.says = static_cast<Says>(5);
    EXPECT_NE(complaint({{overlap}, {}}).find("says 5"), std::string::npos);
    for (double LogRatio::*const part : {&LogRatio::value, &LogRatio::error})
        for (LogRatio OverlapStatistics::*const ratio : {&OverlapStatistics::all, &OverlapStatistics::seen})
            for (const double value : {nan, 1001.0, -1001.0}) {
                overlap = saying(2);
                overlap.*ratio.*part = value;
                EXPECT_NE(complaint({{overlap}, {}}).find("ratio"), std::string::npos) << value;
            }
    overlap = saying(2);
    overlap.correlation = nan;
    EXPECT_NE(complaint({{overlap}, {}}).find("correlation"), std::string::npos);
}

} // namespace

} // namespace panoval::mosaic::test
