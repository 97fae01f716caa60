// SPDX-License-Identifier: MIT
#include "measure/edge_search.h"

#include "measure/patch.h"
#include "panoval_measure.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace
{

using panoval::measure::Box;
using panoval::measure::EdgeGuess;
using panoval::measure::find_edge;
using panoval::measure::Outline;
using panoval::measure::Patch;

constexpr std::int32_t kSide = 64;
constexpr double kMiddle = 31.7;
constexpr double kRadius = 10;
constexpr double kInside = 140;
constexpr double kOutside = 200;

// A disk whose edge is as wide as a pixel. Between the two radii samples are not numbers.
std::vector<float> disk_with_gap(double from, double to)
{
    std::vector<float> samples;
    for (std::int32_t y = 0; y < kSide; ++y)
        for (std::int32_t x = 0; x < kSide; ++x) {
            const double radius = std::hypot(x - kMiddle, y - kMiddle);
            const double share = std::clamp(kRadius + 0.5 - radius, 0.0, 1.0);
            const bool is_known = radius < from || radius > to;
            samples.push_back(is_known ? static_cast<float>(kOutside + share * (kInside - kOutside))
                                       : std::numeric_limits<float>::quiet_NaN());
        }
    return samples;
}

// False: no edge.
bool find_disk(const std::vector<float>& samples, EdgeGuess& guess)
{
    const PanovalMeasureImage image = {samples.data(), kSide, kSide, 4 * kSide, PANOVAL_MEASURE_F32, 0};
    Patch patch;
    EXPECT_TRUE(patch.copy(image, Box{0, 0, kSide, kSide}));
    return find_edge(patch, Outline{kMiddle, kMiddle, kRadius, 0, 0}, 8, guess);
}

TEST(FindEdge, ReadsLevelsOfKnownSamplesOnly)
{
    for (const double near : {1.7, 2.2, 3.0}) {
        EdgeGuess outside;
        ASSERT_TRUE(find_disk(disk_with_gap(kRadius + near, kRadius + near + 2.5), outside)) << near;
        EXPECT_NEAR(outside.outside, kOutside, 3) << near;
        EXPECT_NEAR(outside.inside, kInside, 3) << near;
        EXPECT_LT(outside.blur, 0.8) << near;
        EdgeGuess inside;
        ASSERT_TRUE(find_disk(disk_with_gap(kRadius - near - 2.5, kRadius - near), inside)) << near;
        EXPECT_NEAR(inside.outside, kOutside, 3) << near;
        EXPECT_NEAR(inside.inside, kInside, 3) << near;
        EXPECT_LT(inside.blur, 0.8) << near;
    }
}

TEST(FindEdge, FindsNoneWhereItsSamplesAreNotNumbers)
{
    EdgeGuess guess;
    EXPECT_FALSE(find_disk(disk_with_gap(kRadius - 1.5, kRadius + 1.5), guess));
}

// Known up to the edge's foot, but not as far as a level shows.
TEST(FindEdge, FindsNoneWhoseLevelsAreNotKnown)
{
    for (const double gap : {0.5, 1.1}) {
        EdgeGuess guess;
        EXPECT_FALSE(find_disk(disk_with_gap(kRadius + gap, 2 * kSide), guess)) << gap;
        EXPECT_GT(guess.share, 0.7) << "most rays have an edge";
    }
}

// Far from the start each ray is a slope that is steeper farther on. reach = 1: what a ray sees of it in the first
// round, more in the later ones.
TEST(FindEdge, FollowsASlopeNoFartherThanItMay)
{
    const auto find = [](double x, double radius, EdgeGuess& guess) {
        std::vector<float> samples;
        for (std::int32_t row = 0; row < kSide; ++row)
            for (std::int32_t column = 0; column < kSide; ++column) {
                const double beyond = std::hypot(column - x, row - kMiddle) - radius;
                samples.push_back(static_cast<float>(kInside + (kOutside - kInside) / (1 + std::exp(-beyond / 0.8))));
            }
        Patch patch;
        EXPECT_TRUE(
            patch.copy({samples.data(), kSide, kSide, 4 * kSide, PANOVAL_MEASURE_F32, 0}, {0, 0, kSide, kSide}));
        return find_edge(patch, Outline{kMiddle, kMiddle, 14, 0, 0}, 1, guess);
    };
    EdgeGuess guess;
    ASSERT_TRUE(find(kMiddle + 1, 14, guess));
    EXPECT_NEAR(guess.outline.x, kMiddle + 1, 0.1);
    EXPECT_NEAR(guess.outline.mean, 14, 0.1);
    EXPECT_FALSE(find(kMiddle + 3, 14, guess)) << "too far beside the start";
    EXPECT_FALSE(find(kMiddle, 17, guess)) << "too wide";
    EXPECT_GT(guess.share, 0.7) << "most rays have an edge";
}

TEST(FindEdge, FindsALargeDisk)
{
    constexpr std::int32_t kLarge = 220;
    std::vector<float> samples;
    for (std::int32_t y = 0; y < kLarge; ++y)
        for (std::int32_t x = 0; x < kLarge; ++x)
            samples.push_back(std::hypot(x - 110.2, y - 109.7) < 80 ? 50.0f : 200.0f);
    const PanovalMeasureImage image = {samples.data(), kLarge, kLarge, 4 * kLarge, PANOVAL_MEASURE_F32, 0};
    Patch patch;
    ASSERT_TRUE(patch.copy(image, Box{0, 0, kLarge, kLarge}));
    EdgeGuess guess;
    ASSERT_TRUE(find_edge(patch, Outline{108, 112, 76, 3, 0}, 70, guess));
    EXPECT_NEAR(guess.outline.x, 110.2, 0.2);
    EXPECT_NEAR(guess.outline.y, 109.7, 0.2);
    EXPECT_NEAR(guess.outline.mean, 80, 0.2);
    EXPECT_NEAR(guess.inside, 50, 1);
    EXPECT_NEAR(guess.outside, 200, 1);
}

// Samples that are not numbers hide what lies above and below, where the rays that are left lead astray.
template <class IsInside>
bool find_between(double height, const IsInside& is_inside, const Outline& start, double reach, EdgeGuess& guess)
{
    constexpr std::int32_t kWide = 260;
    std::vector<float> samples;
    for (std::int32_t y = 0; y < kWide; ++y)
        for (std::int32_t x = 0; x < kWide; ++x)
            samples.push_back(std::fabs(y - 130) > height       ? std::numeric_limits<float>::quiet_NaN()
                              : is_inside(x - 130.0, y - 130.0) ? 50.0f
                                                                : 200.0f);
    Patch patch;
    EXPECT_TRUE(patch.copy({samples.data(), kWide, kWide, 4 * kWide, PANOVAL_MEASURE_F32, 0}, {0, 0, kWide, kWide}));
    return find_edge(patch, start, reach, guess);
}

// Too thin for an outline.
TEST(FindEdge, FindsNoEllipseInTwoCorners)
{
    for (const double slope : {0.6, 0.8, 1.0}) {
        EdgeGuess guess;
        const auto is_inside = [slope](double x, double y) { return std::fabs(x) + std::fabs(y) / slope < 6.9; };
        EXPECT_FALSE(find_between(3.6, is_inside, {130, 130, 6, 0, 0}, 3, guess)) << slope;
        EXPECT_GT(guess.share, 0.4) << "many rays have an edge";
    }
}

TEST(FindEdge, FindsNoSliver)
{
    for (const double minor : {4.0, 9.0}) {
        EdgeGuess guess;
        const auto is_inside = [minor](double x, double y) { return std::hypot(x / 60, y / minor) < 1; };
        const Outline start = {130, 130, (60 + minor) / 2, (60 - minor) / 2, 0};
        EXPECT_EQ(find_between(200, is_inside, start, 3, guess), minor > 6) << minor;
        EXPECT_GT(guess.share, 0.4) << "many rays have an edge";
    }
}

// Wherever rays through noise have their steepest places, what is found is an outline near its start with a step.
TEST(FindEdge, FindsSoundOutlinesInNoiseOrNone)
{
    int found = 0;
    for (std::uint64_t seed = 0; seed < 400; ++seed) {
        const std::vector<float> samples = panoval::test::noise<float>(kSide * kSide, 0, 200, seed);
        const PanovalMeasureImage image = {samples.data(), kSide, kSide, 4 * kSide, PANOVAL_MEASURE_F32, 0};
        Patch patch;
        ASSERT_TRUE(patch.copy(image, Box{0, 0, kSide, kSide}));
        const Outline start = {30, 33, 1.5 + static_cast<double>(seed % 8), 0.3 * static_cast<double>(seed % 3), 0};
        const double reach = 2.5 + static_cast<double>(seed % 5);
        EdgeGuess guess;
        if (!find_edge(patch, start, reach, guess))
            continue;
        ++found;
        EXPECT_GT(guess.outline.semi_minor(), 0.1 * guess.outline.semi_major()) << seed;
        EXPECT_LE(std::hypot(guess.outline.x - 30, guess.outline.y - 33), 2 * reach) << seed;
        EXPECT_NE(guess.inside, guess.outside) << seed;
        EXPECT_GE(guess.blur, 0.3) << seed;
    }
    EXPECT_GT(found, 0);
    EXPECT_LT(found, 400);
}

// Levels are read from two places inside the edge and farther in. The smallest outlines have no such places.
TEST(FindEdge, FindsNoneTooSmallForALevelInside)
{
    int refused = 0;
    for (std::uint64_t seed = 0; seed < 1600; ++seed) {
        const std::vector<float> samples = panoval::test::noise<float>(24 * 24, 0, 200, seed);
        Patch patch;
        ASSERT_TRUE(patch.copy({samples.data(), 24, 24, 4 * 24, PANOVAL_MEASURE_F32, 0}, {0, 0, 24, 24}));
        EdgeGuess guess;
        const Outline start = {11, 12.3, 0.8, 0.16 * static_cast<double>(seed % 4), 0};
        if (find_edge(patch, start, 1.5 + 0.5 * static_cast<double>(seed % 4), guess))
            EXPECT_GT(0.85 * guess.outline.semi_minor(), 0.75) << seed;
        else if (guess.outline.mean > 0) // many rays had agreed about an outline
            ++refused;
    }
    EXPECT_GT(refused, 0);
}

} // namespace
