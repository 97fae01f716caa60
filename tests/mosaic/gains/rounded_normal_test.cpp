// SPDX-License-Identifier: MIT
#include "mosaic/gains/rounded_normal.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

namespace panoval::mosaic::test
{

namespace
{

TEST(NormalTable, IsTheNormalDistribution)
{
    const NormalTable normal;
    for (double z = -7; z <= 7; z += 0.0317) {
        EXPECT_NEAR(normal.at(z).below, 0.5 * std::erfc(-z / std::sqrt(2.0)), 1e-7) << z;
        EXPECT_NEAR(normal.at(z).density, std::exp(-0.5 * z * z) / std::sqrt(2 * 3.14159265358979323846), 1e-4) << z;
    }
}

constexpr std::size_t kSamples = 16;

TEST(SampleChances, OfAllSamplesAreOne)
{
    const NormalTable normal;
    SampleChances chances(kSamples);
    chances.compute({0, 0.3, 7, 15, 20}, {0.1, 4, 1, 9, 4}, normal);
    for (std::size_t k = 0; k < 5; ++k) {
        EXPECT_LE(chances.end(k), kSamples);
        EXPECT_NEAR(std::accumulate(chances.chance(k) + chances.begin(k), chances.chance(k) + chances.end(k), 0.0), 1,
                    2e-6)
            << k;
    }
    EXPECT_NEAR(chances.chance(0)[0], 0.5 * std::erfc(-0.5 / std::sqrt(0.2)), 1e-6) << "darker than black is black";
}

TEST(SampleChances, ChangeAsTheirDerivativesSay)
{
    constexpr double kSmall = 1e-4;
    const NormalTable normal;
    const double mean = 2.2;
    const double variance = 1.7;
    SampleChances chances(kSamples);
    chances.compute({mean, mean - kSmall, mean + kSmall, mean, mean},
                    {variance, variance, variance, variance - kSmall, variance + kSmall}, normal);
    for (std::size_t n = chances.begin(0); n < chances.end(0); ++n) {
        EXPECT_NEAR(chances.by_mean(0)[n], (chances.chance(2)[n] - chances.chance(1)[n]) / (2 * kSmall), 1e-3) << n;
        EXPECT_NEAR(chances.by_variance(0)[n], (chances.chance(4)[n] - chances.chance(3)[n]) / (2 * kSmall), 1e-3) << n;
    }
}

} // namespace

} // namespace panoval::mosaic::test
