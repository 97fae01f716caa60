// SPDX-License-Identifier: MIT
#include "mosaic/verdict/phase_correlation.h"

#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <cmath>

namespace panoval::mosaic::test
{

namespace
{

using panoval::test::noise;

TEST(FourierTransform, EqualsItsDefinition)
{
    constexpr std::size_t kWidth = 8;
    constexpr std::size_t kHeight = 4;
    const auto input = noise(kWidth * kHeight, -1.0, 1.0, 7);
    std::vector<double> real = input;
    std::vector<double> imaginary(input.size());
    std::vector<double> turned;
    fourier_transform(real, imaginary, kWidth, kHeight, turned);
    for (std::size_t v = 0; v < kHeight; ++v)
        for (std::size_t u = 0; u < kWidth; ++u) {
            double expected_real = 0;
            double expected_imaginary = 0;
            for (std::size_t y = 0; y < kHeight; ++y)
                for (std::size_t x = 0; x < kWidth; ++x) {
                    const double angle = -2 * 3.14159265358979323846 *
                                         (static_cast<double>(u * x) / kWidth + static_cast<double>(v * y) / kHeight);
                    expected_real += input[y * kWidth + x] * std::cos(angle);
                    expected_imaginary += input[y * kWidth + x] * std::sin(angle);
                }
            EXPECT_NEAR(real[v * kWidth + u], expected_real, 1e-13);
            EXPECT_NEAR(imaginary[v * kWidth + u], expected_imaginary, 1e-13);
        }
}

// Two windows of one random field, the second one's contents moved by (x, y).
PhaseCorrelation correlate_moved(std::size_t width, std::size_t height, int x, int y)
{
    const std::size_t stride = width + 40;
    const auto field = noise(stride * (height + 40), -1.f, 1.f, 3);
    std::vector<float> first(width * height);
    std::vector<float> second(width * height);
    for (std::size_t v = 0; v < height; ++v)
        for (std::size_t u = 0; u < width; ++u) {
            first[v * width + u] = field[(v + 20) * stride + u + 20];
            second[v * width + u] =
                field[(v + 20 - static_cast<std::size_t>(y)) * stride + u + 20 - static_cast<std::size_t>(x)];
        }
    PhaseScratch scratch;
    (void)correlate_phases(second, first, width + 1, height / 2, scratch); // what that leaves changes nothing
    return correlate_phases(first, second, width, height, scratch);
}

TEST(PhaseCorrelation, FindsWholeShiftsInBothDirections)
{
    for (const auto& [x, y] : {std::pair(0, 0), std::pair(6, 0), std::pair(-3, 11), std::pair(1, -17)}) {
        const PhaseCorrelation found = correlate_moved(100, 64, x, y);
        ASSERT_FALSE(found.peaks.empty());
        EXPECT_EQ(found.peaks[0].x, x);
        EXPECT_EQ(found.peaks[0].y, y);
        EXPECT_GT(found.peaks[0].height, 3 * found.peaks[1].height);
    }
}

TEST(PhaseCorrelation, KnowsHowMuchChanceCorrelates)
{
    EXPECT_NEAR(correlate_moved(100, 64, 0, 0).chance, 1 / std::sqrt(6400.0), 0.006) << "white noise";
}

TEST(PhaseCorrelation, OfNothingHasNoPeak)
{
    const std::vector<float> nothing(64);
    PhaseScratch scratch;
    EXPECT_TRUE(correlate_phases(nothing, nothing, 8, 8, scratch).peaks.empty());
    EXPECT_TRUE(correlate_phases({}, {}, 0, 5, scratch).peaks.empty());
    EXPECT_TRUE(correlate_phases({}, {}, 5, 0, scratch).peaks.empty());
    const auto something = noise(64, -1.f, 1.f, 3);
    for (const PhaseCorrelation& half :
         {correlate_phases(something, nothing, 8, 8, scratch), correlate_phases(nothing, something, 8, 8, scratch)}) {
        EXPECT_TRUE(half.peaks.empty());
        EXPECT_EQ(half.chance, 1) << "nothing is known of it";
    }
}

} // namespace

} // namespace panoval::mosaic::test
