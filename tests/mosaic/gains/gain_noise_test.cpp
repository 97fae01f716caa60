// SPDX-License-Identifier: MIT
#include "mosaic/gains/gain_noise.h"

#include "tests/mosaic/mosaic_scene.h"

#include <gtest/gtest.h>

#include <cmath>

namespace panoval::mosaic::test
{

namespace
{

constexpr double kRatio = 1.62;

struct Noise {
    double first = 1; // standard deviations, in samples
    double second = 1;
    bool grows = false; // with the root of the light, these at a mean of 4
};

std::uint8_t sample_of(double mean, double deviation, bool grows, Random& random)
{
    const double noise = deviation * (grows ? std::sqrt(mean / 4) : 1.0) * scene_detail::normal(random);
    return static_cast<std::uint8_t>(std::clamp(std::floor(mean + noise + 0.5), 0.0, 255.0));
}

// Lights between 0.5 and `brightest` in the second picture, dark ones more often; the first one is exposed longer.
SamplePairs noisy_pairs(const Noise& noise, double brightest, int count = 60000)
{
    Random random = seeded(11);
    SamplePairs pairs;
    for (int k = 0; k < count; ++k) {
        const double t = random.unit();
        const double light = 0.5 + (brightest - 0.5) * t * t;
        const std::size_t a = sample_of(kRatio * light, noise.first, noise.grows, random);
        const std::size_t b = sample_of(light, noise.second, noise.grows, random);
        if (a < SamplePairs::kSide && b < SamplePairs::kSide)
            ++pairs.count[a * SamplePairs::kSide + b];
    }
    return pairs;
}

double ratio_of_sums(const SamplePairs& pairs)
{
    double first = 0;
    double second = 0;
    for (std::size_t i = 0; i < pairs.count.size(); ++i) {
        first += pairs.count[i] * static_cast<double>(i / SamplePairs::kSide);
        second += pairs.count[i] * static_cast<double>(i % SamplePairs::kSide);
    }
    return first / second;
}

TEST(NoisyRatio, IsRightWhereNoiseIsCutOffAtBlack)
{
    for (const Noise& noise : {Noise{1, 1}, Noise{2, 2}, Noise{2, 1}, Noise{1, 2}, Noise{1.5, 1.5, true}}) {
        const SamplePairs pairs = noisy_pairs(noise, 10);
        const auto found = find_noisy_ratio(pairs, std::log(ratio_of_sums(pairs)));
        ASSERT_TRUE(found) << noise.first << " " << noise.second;
        EXPECT_NEAR(found->log_ratio, std::log(kRatio), 4 * found->error) << noise.first << " " << noise.second;
        EXPECT_LT(found->error, 0.005);
        EXPECT_NEAR(found->of_sums, std::log(ratio_of_sums(pairs)), 0.005) << "it explains what sums are biased by";
    }
    const SamplePairs pairs = noisy_pairs({2, 2}, 10);
    EXPECT_LT(std::log(ratio_of_sums(pairs)), std::log(kRatio) - 0.03) << "or this would test nothing";
}

TEST(NoisyRatio, IsTheSameTheOtherWayRound)
{
    const SamplePairs pairs = noisy_pairs({1, 1.5}, 12);
    SamplePairs swapped;
    for (std::size_t a = 0; a < SamplePairs::kSide; ++a)
        for (std::size_t b = 0; b < SamplePairs::kSide; ++b)
            swapped.count[b * SamplePairs::kSide + a] = pairs.count[a * SamplePairs::kSide + b];
    const auto one = find_noisy_ratio(pairs, std::log(1.5));
    const auto other = find_noisy_ratio(swapped, -std::log(1.5));
    ASSERT_TRUE(one && other);
    EXPECT_NEAR(one->log_ratio, -other->log_ratio, 1e-9);
    EXPECT_NEAR(one->error, other->error, 1e-9);
}

TEST(NoisyRatio, DoesNotDependOnWhereItBegins)
{
    const SamplePairs pairs = noisy_pairs({1, 1}, 20);
    const auto near = find_noisy_ratio(pairs, std::log(kRatio));
    const auto far = find_noisy_ratio(pairs, std::log(1.4));
    ASSERT_TRUE(near && far);
    EXPECT_NEAR(near->log_ratio, far->log_ratio, 0.2 * near->error);
}

// One of a thousand pixels shows something that only one picture has.
TEST(NoisyRatio, StandsAFewThingsThatDiffer)
{
    SamplePairs pairs = noisy_pairs({1, 1}, 20);
    for (std::size_t k = 0; k < 60; ++k)
        ++pairs.count[(5 + k % 30) * SamplePairs::kSide + 5 + k % 7];
    const auto found = find_noisy_ratio(pairs, std::log(kRatio));
    ASSERT_TRUE(found);
    EXPECT_NEAR(found->log_ratio, std::log(kRatio), 0.01);
}

// What is too bright in one of them alone is missing on both sides of the line that the others lie on.
TEST(NoisyRatio, IsRightWhereTheBrightestSamplesAreLeftOut)
{
    const SamplePairs pairs = noisy_pairs({1, 1}, 39);
    const auto found = find_noisy_ratio(pairs, std::log(kRatio));
    ASSERT_TRUE(found);
    EXPECT_NEAR(found->log_ratio, std::log(kRatio), 4 * found->error);
}

// A third of the pixels shows something that is much brighter in one of them.
TEST(NoisyRatio, IsNotKnownWhereTheSumsSaySomethingElse)
{
    SamplePairs pairs = noisy_pairs({1, 1}, 12);
    for (std::size_t a = 6; a < 10; ++a)
        for (std::size_t b = 20; b < 30; ++b)
            pairs.count[a * SamplePairs::kSide + b] += 750;
    EXPECT_FALSE(find_noisy_ratio(pairs, std::log(kRatio)));
}

TEST(NoisyRatio, IsNotKnownOfTooFewOrTooBrightSamples)
{
    EXPECT_FALSE(find_noisy_ratio(SamplePairs(), 0));
    EXPECT_FALSE(find_noisy_ratio(noisy_pairs({1, 1}, 10, 300), std::log(kRatio)));
    EXPECT_FALSE(find_noisy_ratio(noisy_pairs({12, 12}, 10), std::log(kRatio))) << "such noise is no noise";
    SamplePairs bright;
    bright.count[62 * SamplePairs::kSide + 60] = 10000;
    EXPECT_FALSE(find_noisy_ratio(bright, 0));
    SamplePairs black;
    black.count[0] = 10000;
    EXPECT_FALSE(find_noisy_ratio(black, 0));
    SamplePairs black_in_second;
    black_in_second.count[10 * SamplePairs::kSide] = 10000;
    EXPECT_FALSE(find_noisy_ratio(black_in_second, std::log(50)));
    SamplePairs half_bright;
    half_bright.count[10 * SamplePairs::kSide + 10] = half_bright.count[63 * SamplePairs::kSide + 63] = 1000;
    EXPECT_FALSE(find_noisy_ratio(half_bright, 0));
}

} // namespace

} // namespace panoval::mosaic::test
