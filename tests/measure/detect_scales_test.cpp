// SPDX-License-Identifier: MIT
#include "measure/detect_scales.h"

#include "panoval_measure.h"
#include "tests/support/failing_heap.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace
{

using panoval::measure::noise_of;
using panoval::measure::Scale;
using panoval::measure::scales_of;
using panoval::measure::unit_scale_of;
using panoval::measure::UnitScale;
using panoval::test::Random;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

PanovalMeasureImage image_of(const std::vector<float>& samples, std::int32_t width)
{
    const auto height = static_cast<std::int32_t>(samples.size()) / width;
    return {samples.data(), width, height, 4 * width, PANOVAL_MEASURE_F32, 0};
}

PanovalMeasureImage image_of(const std::vector<std::uint16_t>& samples, std::int32_t width)
{
    const auto height = static_cast<std::int32_t>(samples.size()) / width;
    return {samples.data(), width, height, 2 * width, PANOVAL_MEASURE_U16, 0};
}

PanovalMeasureImage image_of(const std::vector<std::uint8_t>& samples, std::int32_t width)
{
    const auto height = static_cast<std::int32_t>(samples.size()) / width;
    return {samples.data(), width, height, width, PANOVAL_MEASURE_U8, 0};
}

TEST(UnitScaleOf, SpreadsFloatsOverTheRangeOfUnits)
{
    const std::vector<float> samples = {-2, 3, kNan, std::numeric_limits<float>::infinity(), 0, 1};
    const UnitScale units = unit_scale_of(image_of(samples, 6));
    EXPECT_EQ(units.offset, -2);
    EXPECT_DOUBLE_EQ(units.factor, 65535 / 5.0);
    const UnitScale even = unit_scale_of(image_of(std::vector<float>(6, 4.0f), 6));
    EXPECT_EQ(even.offset, 0);
    EXPECT_EQ(even.factor, 1) << "nothing to be spread";
}

TEST(UnitScaleOf, DoublesSixteenBitSamplesAsOftenAsTheyBear)
{
    EXPECT_EQ(unit_scale_of(image_of(std::vector<std::uint16_t>{0, 4095, 7}, 3)).factor, 16);
    EXPECT_EQ(unit_scale_of(image_of(std::vector<std::uint16_t>{0, 4096, 7}, 3)).factor, 8);
    EXPECT_EQ(unit_scale_of(image_of(std::vector<std::uint16_t>{65535, 4, 7}, 3)).factor, 1);
    EXPECT_EQ(unit_scale_of(image_of(std::vector<std::uint16_t>(3, 0), 3)).factor, 1) << "black";
    EXPECT_EQ(unit_scale_of(image_of(std::vector<std::uint8_t>(3, 9), 3)).factor, 256);
}

TEST(NoiseOfPicture, IsTheDeviationOfItsSamples)
{
    Random random(5);
    for (const std::int32_t width : {32, 100, 200}) {
        std::vector<float> samples(static_cast<std::size_t>(width) * 64);
        for (float& sample : samples)
            sample = static_cast<float>(random.real(0, std::sqrt(12.0))); // deviation 1
        const double noise = noise_of(image_of(samples, width), {0, 100});
        EXPECT_NEAR(noise, 100, 12) << width;
    }
}

TEST(NoiseOfPicture, IsWhatRoundingMakesWhereNothingTellsMore)
{
    const std::vector<std::uint8_t> flat(64 * 64, 90);
    EXPECT_DOUBLE_EQ(noise_of(image_of(flat, 64), {0, 256}), 0.4 * 256) << "even ground";
    EXPECT_DOUBLE_EQ(noise_of(image_of(flat, 16), {0, 256}), 0.4 * 256) << "too narrow";
    EXPECT_DOUBLE_EQ(noise_of(image_of(flat, 256), {0, 256}), 0.4 * 256) << "too low";
    EXPECT_EQ(noise_of(image_of(std::vector<float>(64 * 64, kNan), 64), {0, 1}), 0.5) << "floats are not rounded";
}

TEST(ScalesOf, HalvesThePictureDownToSixteenPixels)
{
    const std::vector<float> samples(100 * 70, 3);
    const std::vector<Scale> scales = scales_of(image_of(samples, 100), {2, 10});
    ASSERT_EQ(scales.size(), 3u);
    EXPECT_EQ(scales[1].width, 50);
    EXPECT_EQ(scales[1].height, 35);
    EXPECT_EQ(scales[2].width, 25);
    EXPECT_EQ(scales[2].height, 17);
    EXPECT_EQ(scales[2].index, 2);
    EXPECT_EQ(scales[2].to_picture(3), 3 * 4 + 1.5);
    EXPECT_EQ(scales[2].samples[scales[2].at(7, 9)], 10);
}

TEST(ScalesOf, TakesWhatIsNoNumberOrBelowTheRangeForBlack)
{
    const std::vector<float> samples = {kNan, -1e30f, 1e30f};
    const std::vector<Scale> scales = scales_of(image_of(samples, 3), {0, 1});
    ASSERT_EQ(scales.size(), 1u);
    EXPECT_EQ(scales[0].samples[0], 0);
    EXPECT_EQ(scales[0].samples[1], (65535 + 2) / 4) << "smoothed with the one beside it";
    EXPECT_EQ(scales[0].samples[2], (3 * 65535 + 2) / 4);
}

TEST(ScalesOf, BearsPicturesOfOnePixelOrColumn)
{
    for (const std::int32_t height : {1, 2, 5}) {
        const std::vector<Scale> scales =
            scales_of(image_of(std::vector<std::uint8_t>(static_cast<std::size_t>(height), 9), 1), {0, 256});
        ASSERT_EQ(scales.size(), 1u);
        for (std::int32_t y = 0; y < height; ++y)
            EXPECT_EQ(scales[0].samples[scales[0].at(0, y)], 9 * 256) << height;
    }
}

TEST(ScalesOf, HasNoneWhereMemoryIsShort)
{
    const std::vector<std::uint8_t> samples(64 * 64, 9);
    panoval::test::for_each_failing_allocation([&](panoval::test::FailingHeap& heap) {
        const std::vector<Scale> scales = scales_of(image_of(samples, 64), {0, 256});
        EXPECT_EQ(scales.size(), heap.has_failed() ? 0u : 3u);
    });
}

} // namespace
