// SPDX-License-Identifier: MIT
#include "mosaic/gains/gain_solve.h"

#include "mosaic/base/errors.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

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
