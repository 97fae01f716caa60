// SPDX-License-Identifier: MIT
#include "mosaic/gains/gain_rounded.h"

#include "tests/mosaic/mosaic_scene.h"

#include <gtest/gtest.h>

#include <cmath>

namespace panoval::mosaic::test
{

namespace
{

// Two pictures of the same light, one exposed 1.62 times as long, in levels.
SamplePairs pairs_of(const std::vector<double>& light, double noise)
{
    Random random = seeded(7);
    SamplePairs pairs;
    for (const double level : light) {
        const double a = std::floor(level + noise * random.real(-1, 1) + 0.5);
        const double b = std::floor(level / 1.62 + noise * random.real(-1, 1) + 0.5);
        if (a >= 0 && b >= 0 && a < 64 && b < 64)
            ++pairs.count[static_cast<std::size_t>(a) * SamplePairs::kSide + static_cast<std::size_t>(b)];
    }
    return pairs;
}

std::vector<double> even_light(double darkest, double brightest)
{
    std::vector<double> light;
    for (int k = 0; k < 20000; ++k)
        light.push_back(darkest + (brightest - darkest) * k / 20000);
    return light;
}

TEST(RoundedRatio, OfEvenLightIsRightToAPercent)
{
    const auto found = find_rounded_ratio(pairs_of(even_light(0, 12), 0));
    ASSERT_TRUE(found);
    EXPECT_NEAR(found->log_ratio, std::log(1.62), 0.01);
}

// Thirty surfaces without texture, whose rounding errors do not cancel out.
TEST(RoundedRatio, OfFewLevelsIsWhatAllOfThemAllowFor)
{
    Random random = seeded(3);
    std::vector<double> light;
    for (int surface = 0; surface < 30; ++surface)
        light.insert(light.end(), 500, random.real(1, 11));
    const auto found = find_rounded_ratio(pairs_of(light, 0));
    ASSERT_TRUE(found);
    EXPECT_NEAR(found->log_ratio, std::log(1.62), 0.015);
}

TEST(RoundedRatio, IsNotKnownOfNoiseOrOfTooLittle)
{
    EXPECT_FALSE(find_rounded_ratio(pairs_of(even_light(0, 12), 1.5)));
    EXPECT_FALSE(find_rounded_ratio(pairs_of({3, 4, 5, 6}, 0)));
    EXPECT_FALSE(find_rounded_ratio(SamplePairs()));
    SamplePairs black;
    black.count[5] = 1000; // the first picture's samples are 0
    EXPECT_FALSE(find_rounded_ratio(black));
    black.count[5] = 0;
    black.count[5 * SamplePairs::kSide] = 1000;
    EXPECT_FALSE(find_rounded_ratio(black));
}

} // namespace

} // namespace panoval::mosaic::test
