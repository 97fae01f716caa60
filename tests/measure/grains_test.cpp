// SPDX-License-Identifier: MIT
// Noise whose neighbouring samples go together has round spots, which are no targets; targets in it are found.
#include "measure/grains.h"

#include "measure/neighbours.h"
#include "panoval_measure.h"
#include "tests/scenes/target_scene.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace panoval::test
{

namespace
{

constexpr std::int32_t kSide = 320;
constexpr std::size_t kCount = std::size_t{kSide} * kSide;

// Noise of deviation 1, its rows and columns smoothed three times by means of three: a blur of 1.4 pixels.
std::vector<double> smooth_noise(std::uint64_t seed)
{
    Random random(seed);
    std::vector<double> values(kCount);
    for (double& value : values)
        value = normal_value(random);
    for (const std::size_t step : {std::size_t{1}, std::size_t{kSide}})
        for (int pass = 0; pass < 3; ++pass) {
            const std::vector<double> before = values;
            for (std::size_t i = 0; i < kCount; ++i)
                values[i] = (before[(i + kCount - step) % kCount] + before[i] + before[(i + step) % kCount]) / 3;
        }
    double square = 0;
    for (const double value : values)
        square += value * value / static_cast<double>(kCount);
    for (double& value : values)
        value /= std::sqrt(square);
    return values;
}

std::vector<std::uint8_t> rounded(const std::vector<double>& levels)
{
    std::vector<std::uint8_t> pixels;
    for (const double level : levels)
        pixels.push_back(static_cast<std::uint8_t>(std::clamp(std::floor(level + 0.5), 0.0, 255.0)));
    return pixels;
}

int count_targets(const PanovalMeasureImage& image)
{
    PanovalMeasureDetection detection = {};
    EXPECT_EQ(panoval_measure_detect(&image, nullptr, &detection), PANOVAL_MEASURE_OK);
    const int count = detection.count;
    panoval_measure_free(&detection);
    return count;
}

int count_targets(const std::vector<std::uint8_t>& pixels)
{
    return count_targets({pixels.data(), kSide, kSide, kSide, PANOVAL_MEASURE_U8, 0});
}

TEST(Grains, AreNoTargets)
{
    for (const std::uint64_t seed : {1u, 2u, 3u}) {
        const std::vector<double> noise = smooth_noise(seed);
        const std::vector<float> exact(noise.begin(), noise.end());
        EXPECT_EQ(count_targets({exact.data(), kSide, kSide, 4 * kSide, PANOVAL_MEASURE_F32, 0}), 0) << seed;
        for (const double sigma : {2.0, 15.0}) {
            std::vector<double> levels;
            for (const double value : noise)
                levels.push_back(120 + sigma * value);
            EXPECT_EQ(count_targets(rounded(levels)), 0) << "seed " << seed << ", noise " << sigma;
        }
    }
}

// A dot every 20 pixels, 16 in a row, of twenty deviations of the noise.
TEST(Grains, DoNotHideTargets)
{
    TargetScene scene{.width = kSide, .height = kSide, .shapes = {}, .targets = {}};
    for (int n = 0; n < 16 * 16; ++n)
        add_target(scene, 10.3 + 20 * (n % 16), 10.2 + 20 * static_cast<int>(n / 16), 5, 4, 0.4, 140, 200);
    std::vector<double> levels = smooth_noise(4);
    const std::vector<std::uint8_t> clean = render_8_bit(scene);
    for (std::size_t i = 0; i < kCount; ++i)
        levels[i] = 3 * levels[i] + clean[i];
    EXPECT_GE(count_targets(rounded(levels)), 252); // their outlines are bent by it
}

// What is doubted is the contrast of one spot against the ground about it.
TEST(DoubtGrains, PassesOverSamplesThatAreNoNumbers)
{
    const std::vector<double> noise = smooth_noise(5);
    std::vector<float> samples(noise.begin(), noise.end());
    const auto doubted = [&samples](double contrast) {
        std::vector<measure::MeasuredTarget> targets(1);
        targets[0].measured.model.outline = {100, 100, 5, 0, 0};
        targets[0].target.ellipse = {100, 100, 5, 5, 0};
        targets[0].target.level_inside = contrast;
        targets[0].target.quality = 0.9;
        targets[0].is_sound = true;
        EXPECT_TRUE(measure::doubt_grains({samples.data(), kSide, kSide, 4 * kSide, PANOVAL_MEASURE_F32, 0}, targets));
        return targets[0].target.quality;
    };
    EXPECT_EQ(doubted(20), 0.9);
    const double little = doubted(2);
    EXPECT_LT(little, 0.1);
    for (std::size_t i = 0; i < kCount; i += 7)
        samples[i] = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(doubted(20), 0.9);
    EXPECT_NEAR(doubted(2), little, 0.05);
}

// The other edge of a narrow ring takes contrast away from each.
TEST(Grains, AreNotWhatNarrowRingsAtEightDeviationsAreMadeOf)
{
    TargetScene scene{.width = kSide, .height = kSide, .shapes = {}, .targets = {}, .blur = 0.85, .noise = 5.1};
    for (int n = 0; n < 10 * 10; ++n) {
        const double x = 16.3 + 32 * (n % 10);
        const double y = 16.2 + 32 * static_cast<int>(n / 10);
        add_target(scene, x, y, 11, 10, 0.4, 159, 200);
        add_target(scene, x, y, 7, 6.4, 0.4, 200, 159);
        add_target(scene, x, y, 4.5, 4.1, 0.4, 159, 200);
    }
    EXPECT_GE(count_targets(render_8_bit(scene)), 297);
}

} // namespace

} // namespace panoval::test
