// SPDX-License-Identifier: MIT
// The edge detector's stages, each against its twin and at its corners.
#include "filter/canny.h"
#include "tests/reference/canny.h"
#include "tests/support/buffers.h"
#include "tests/support/fenced.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace
{

using namespace panoval;
using namespace panoval::test;

constexpr std::int16_t kLargestDelta = 22950; // 255 * 90

std::vector<std::int16_t> smoothed_by_rows(const std::vector<std::uint8_t>& image, int rows, int cols, double sigma)
{
    CannySmoother smoother;
    EXPECT_TRUE(canny_gaussian_smooth_start(smoother, rows, cols, sigma));
    const Guarded<std::uint8_t> input(image);
    Guarded<std::int16_t> output(image.size());
    for (int r = 0; r < rows; ++r)
        canny_gaussian_smooth(smoother, input.data(), r, output.data() + r * cols);
    EXPECT_TRUE(output.intact());
    return output.values();
}

TEST(CannySmooth, EqualsItsTwinForEverySize)
{
    for_each_target([] {
        for (int rows = 3; rows <= 24; rows += 3)
            for (int cols = 3; cols <= 67; ++cols) {
                const auto image = picture(Content::Noise, cols, rows, static_cast<std::uint64_t>(rows * 100 + cols));
                const double sigma = 0.3 + 0.1 * ((rows + cols) % 29);
                EXPECT_TRUE(same_bits(smoothed_by_rows(image, rows, cols, sigma),
                                      reference::canny_gaussian_smooth(image.data(), rows, cols, sigma)))
                    << cols << " x " << rows << ", sigma " << sigma;
            }
    });
}

TEST(CannySmooth, EqualsItsTwinForKernelsLargerThanTheImage)
{
    for_each_target([] {
        const auto image = picture(Content::Photograph, 37, 11, 3);
        for (const double sigma : {0.01, 1e-160, -0.3, 4.0, 15.0, 40.0, 1000.0})
            EXPECT_TRUE(same_bits(smoothed_by_rows(image, 11, 37, sigma),
                                  reference::canny_gaussian_smooth(image.data(), 11, 37, sigma)))
                << "sigma " << sigma;
    });
}

TEST(CannySmooth, SaysWhereTheWeightsAreNotNumbers)
{
    for (const double sigma : {0.0, -0.0, 1e-200, -1e-170, 1e-310}) {
        CannySmoother smoother;
        EXPECT_FALSE(canny_gaussian_smooth_start(smoother, 5, 5, sigma)) << sigma;
    }
}

TEST(CannyDerivatives, EqualTheirTwinForEveryWidthAndWrapAt16Bits)
{
    for_each_target([] {
        for (std::size_t cols = 2; cols <= 67; ++cols) {
            // Nothing behind the last row may be touched.
            Fenced<std::int16_t> s(Place::BeforeFence, noise<std::int16_t>(3 * cols, -32768, 32767, cols));
            std::vector<std::int16_t> expected_x(3 * cols);
            std::vector<std::int16_t> expected_y(3 * cols);
            reference::canny_derivatives(s.data(), 3, static_cast<int>(cols), expected_x.data(), expected_y.data());
            Guarded<std::int16_t> x(3 * cols);
            Guarded<std::int16_t> y(3 * cols);
            for (std::size_t r = 0; r < 3; ++r)
                canny_derivatives(s.data() + (r == 0 ? 0 : r - 1) * cols, s.data() + r * cols,
                                  s.data() + (r == 2 ? 2 : r + 1) * cols, cols, x.data() + r * cols,
                                  y.data() + r * cols);
            EXPECT_TRUE(same_bits(x.values(), expected_x)) << cols;
            EXPECT_TRUE(same_bits(y.values(), expected_y)) << cols;
            EXPECT_TRUE(x.intact() && y.intact());
        }
    });
}

void expect_twin_magnitude(const std::vector<std::int16_t>& x, const std::vector<std::int16_t>& y)
{
    std::vector<std::int16_t> expected(x.size());
    reference::canny_magnitude(x.data(), y.data(), x.size(), expected.data());
    Guarded<std::int16_t> actual(x.size());
    canny_magnitude(x.data(), y.data(), x.size(), actual.data());
    EXPECT_TRUE(same_bits(actual.values(), expected));
    EXPECT_TRUE(actual.intact());
}

TEST(CannyMagnitude, EqualsItsTwinForEveryCount)
{
    for_each_target([] {
        for (std::size_t count = 0; count <= 67; ++count)
            expect_twin_magnitude(noise<std::int16_t>(count, -kLargestDelta, kLargestDelta, count),
                                  noise<std::int16_t>(count, -kLargestDelta, kLargestDelta, count + 100));
    });
}

TEST(CannyMagnitude, RoundsRightOnBothSidesOfEveryHalf)
{
    // For each difference along x the one along y whose root is nearest to a half, from below and from above.
    std::vector<std::int16_t> x;
    std::vector<std::int16_t> y;
    for (int dx = 0; dx <= kLargestDelta; ++dx)
        for (int step = 1; step < 6; ++step) {
            const double half = std::floor(std::min(dx * (1 + 0.07 * step) + step, 32455.0)) + 0.5;
            const double dy = std::sqrt(std::max(half * half - static_cast<double>(dx) * dx, 0.0));
            for (const double level : {std::floor(dy), std::ceil(dy)})
                if (level <= kLargestDelta) {
                    x.push_back(static_cast<std::int16_t>(step % 2 != 0 ? dx : -dx));
                    y.push_back(static_cast<std::int16_t>(level));
                }
        }
    ASSERT_GT(x.size(), 100000u);
    for_each_target([&] { expect_twin_magnitude(x, y); });
}

TEST(CannyMagnitude, RoundsRootsBetweenTwoIntegers)
{
    const std::vector<std::int16_t> x = {0, 1, -1, 3, 1, 2, kLargestDelta, -kLargestDelta};
    const std::vector<std::int16_t> y = {0, 0, 1, -4, 2, 2, kLargestDelta, 0};
    for_each_target([&] {
        std::vector<std::int16_t> magnitude(x.size());
        canny_magnitude(x.data(), y.data(), x.size(), magnitude.data());
        EXPECT_EQ(magnitude, (std::vector<std::int16_t>{0, 1, 1, 5, 2, 3, 32456, 22950}));
    });
}

// A map as the row function and, for pixels without magnitude, the second pass make it.
std::vector<std::uint8_t> map_by_rows(const std::vector<std::int16_t>& magnitude, const std::vector<std::int16_t>& x,
                                      const std::vector<std::int16_t>& y, int rows, int cols)
{
    Guarded<std::uint8_t> map(std::vector<std::uint8_t>(magnitude.size(), 0));
    for (int r = 1; r <= rows - 3; ++r)
        canny_non_max_suppression(magnitude.data() + r * cols, x.data() + r * cols, y.data() + r * cols,
                                  static_cast<std::size_t>(cols), map.data() + r * cols);
    canny_mark_flat_pixels(magnitude.data(), x.data(), y.data(), rows, cols, map.data());
    EXPECT_TRUE(map.intact());
    return map.values();
}

// largest: of all values, so that small ones give many ties
void expect_twin_map(int rows, int cols, std::int16_t lowest, int largest, std::uint64_t seed)
{
    const auto count = static_cast<std::size_t>(rows * cols);
    const auto magnitude = noise<std::int16_t>(count, lowest, static_cast<std::int16_t>(largest * 1.414), seed);
    const auto x =
        noise<std::int16_t>(count, static_cast<std::int16_t>(-largest), static_cast<std::int16_t>(largest), seed + 1);
    const auto y =
        noise<std::int16_t>(count, static_cast<std::int16_t>(-largest), static_cast<std::int16_t>(largest), seed + 2);
    std::vector<std::uint8_t> expected(count);
    reference::canny_non_max_suppression(magnitude.data(), x.data(), y.data(), rows, cols, expected.data());
    EXPECT_TRUE(same_bits(map_by_rows(magnitude, x, y, rows, cols), expected))
        << cols << " x " << rows << ", values to " << largest << ", seed " << seed;
}

TEST(CannySuppression, EqualsItsTwinForEveryWidth)
{
    for_each_target([] {
        for (int cols = 3; cols <= 67; ++cols)
            expect_twin_map(5, cols, 1, kLargestDelta, static_cast<std::uint64_t>(cols));
    });
}

TEST(CannySuppression, EqualsItsTwinWhereTiesAbound)
{
    for_each_target([] {
        std::uint64_t seed = 1000;
        for (const int largest : {1, 2, 3, 5, 8, 13, 100})
            for (int repeat = 0; repeat < 4; ++repeat)
                expect_twin_map(40, 70, 1, largest, seed += 10);
    });
}

TEST(CannySuppression, CarriesTheLastDirectionIntoFlatPixelsAsItsTwinDoes)
{
    for_each_target([] {
        std::uint64_t seed = 5000;
        for (const int largest : {1, 2, 3, 9, 500})
            for (int repeat = 0; repeat < 4; ++repeat)
                expect_twin_map(30, 61, 0, largest, seed += 10);
    });
}

// A 4 x 4 image whose one visited pixel, (1, 1), has the given magnitude between others.
std::uint8_t mark_between(const std::vector<std::int16_t>& magnitude, std::int16_t gx, std::int16_t gy)
{
    const std::vector<std::int16_t> x(16, gx);
    const std::vector<std::int16_t> y(16, gy);
    return map_by_rows(magnitude, x, y, 4, 4)[5];
}

TEST(CannySuppression, KeepsAMaximumAcrossTheEdgeAndRejectsAPixelBelowANeighbour)
{
    // clang-format off
    EXPECT_EQ(mark_between({0, 0, 0, 0,  3, 5, 4, 0,  0, 0, 0, 0,  0, 0, 0, 0}, 5, 0), 128);
    EXPECT_EQ(mark_between({0, 0, 0, 0,  3, 5, 6, 0,  0, 0, 0, 0,  0, 0, 0, 0}, 5, 0), 255);
    EXPECT_EQ(mark_between({0, 3, 0, 0,  9, 5, 9, 0,  0, 4, 0, 0,  0, 0, 0, 0}, 0, 5), 128);
    // clang-format on
}

TEST(CannySuppression, OfTwoEqualNeighboursKeepsTheOneThatTheGradientMeetsLast)
{
    // A plateau of two pixels along the gradient: only the side that lies along it must be strictly below.
    // clang-format off
    EXPECT_EQ(mark_between({0, 0, 0, 0,  5, 5, 4, 0,  0, 0, 0, 0,  0, 0, 0, 0}, 5, 0), 128);
    EXPECT_EQ(mark_between({0, 0, 0, 0,  4, 5, 5, 0,  0, 0, 0, 0,  0, 0, 0, 0}, 5, 0), 255);
    EXPECT_EQ(mark_between({0, 0, 0, 0,  5, 5, 4, 0,  0, 0, 0, 0,  0, 0, 0, 0}, -5, 0), 255);
    // clang-format on
}

TEST(CannySuppression, DecidesByRoundedTermsThatDoNotCancelThoughTheirIntegersDo)
{
    // -3 * (4 / 5.) + 4 * (3 / 5.) is -4.4e-16 in double, on both sides.
    // clang-format off
    EXPECT_EQ(mark_between({6, 0, 0, 0,  2, 5, 2, 0,  0, 0, 6, 0,  0, 0, 0, 0}, 4, 3), 128);
    // -5 * (7 / 9.) + 7 * (5 / 9.) is above 0.
    EXPECT_EQ(mark_between({11, 0, 0, 0,  4, 9, 4, 0,  0, 0, 11, 0,  0, 0, 0, 0}, 7, 5), 255);
    // With equal differences the terms cancel.
    EXPECT_EQ(mark_between({7, 0, 0, 0,  4, 7, 4, 0,  0, 0, 7, 0,  0, 0, 0, 0}, 5, 5), 255);
    // clang-format on
}

CannyThresholds thresholds_of(const std::vector<std::pair<int, int>>& counts, double tlow, double thigh)
{
    std::vector<std::int32_t> histogram(kMagnitudes);
    for (const auto& [magnitude, count] : counts)
        histogram[static_cast<std::size_t>(magnitude)] = count;
    return canny_thresholds(histogram.data(), tlow, thigh);
}

TEST(CannyThresholds, TakeTheMagnitudeBelowWhichTheAskedFractionLies)
{
    const auto t = thresholds_of({{10, 5}, {20, 4}, {30, 1}}, 0.5, 0.9);
    EXPECT_EQ(t.high, 20);
    EXPECT_EQ(t.low, 10);
}

TEST(CannyThresholds, IgnoreMagnitude0AndStopTwoBelowTheLargest)
{
    EXPECT_EQ(thresholds_of({{0, 1000}, {10, 5}, {30, 5}}, 0.5, 0.5).high, 10);
    EXPECT_EQ(thresholds_of({{10, 5}, {30, 5}}, 0.5, 1.0).high, 29);
}

TEST(CannyThresholds, AreOneAndItsFractionWithoutCandidates)
{
    EXPECT_EQ(thresholds_of({}, 0.4, 0.9).high, 1);
    EXPECT_EQ(thresholds_of({}, 0.4, 0.9).low, 0);
    EXPECT_EQ(thresholds_of({}, 0.5, 0.9).low, 1);
}

TEST(CannyThresholds, OfFractionsThatAreNoNumbersOrOutOfRangeAreDefined)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(thresholds_of({{10, 5}, {30, 5}}, 0.5, nan).high, 1);
    EXPECT_EQ(thresholds_of({{10, 5}, {30, 5}}, 0.5, -1).high, 1);
    EXPECT_EQ(thresholds_of({{10, 5}, {30, 5}}, nan, 0.5).low, 0);       // the low half of the most negative integer
    EXPECT_EQ(thresholds_of({{10, 5}, {30, 5}}, -1, 0.5).low, -9);       // -9.5 cut off
    EXPECT_EQ(thresholds_of({{10, 5}, {30, 5}}, 4000, 0.5).low, -25536); // 40000 in 16 bits
}

// One row of candidates with the given magnitudes, inside a frame that holds none.
std::vector<std::uint8_t> edges_of_row(const std::vector<std::int16_t>& magnitudes, CannyThresholds thresholds)
{
    const auto cols = magnitudes.size() + 2;
    std::vector<std::uint8_t> edge(3 * cols, kNoEdge);
    std::vector<std::int16_t> magnitude(3 * cols, 30000);
    std::copy(magnitudes.begin(), magnitudes.end(), magnitude.begin() + static_cast<std::ptrdiff_t>(cols) + 1);
    std::fill_n(edge.begin() + static_cast<std::ptrdiff_t>(cols) + 1, magnitudes.size(), kCandidate);
    canny_hysteresis(magnitude.data(), 3, static_cast<std::int32_t>(cols), thresholds, edge.data());
    return {edge.begin() + static_cast<std::ptrdiff_t>(cols) + 1, edge.end() - static_cast<std::ptrdiff_t>(cols) - 1};
}

TEST(CannyHysteresis, SeedsReachTheHighThresholdAndFollowersExceedTheLowOne)
{
    using Marks = std::vector<std::uint8_t>;
    EXPECT_EQ(edges_of_row({9, 6, 10, 6, 5, 6}, {10, 5}), (Marks{0, 0, 0, 0, 255, 255}));
    EXPECT_EQ(edges_of_row({9, 9, 9}, {10, 5}), (Marks{255, 255, 255}));
    // With the low threshold above the high one seeds stand alone, but each is a seed.
    EXPECT_EQ(edges_of_row({10, 12, 9}, {10, 20}), (Marks{0, 0, 255}));
}

TEST(CannyHysteresis, FollowsAnEdgeOfAnyLengthInEveryDirection)
{
    // A spiral of candidates one pixel wide with one strong pixel at its outer end.
    constexpr int kSide = 101;
    std::vector<std::uint8_t> edge(kSide * kSide, kNoEdge);
    std::vector<std::int16_t> magnitude(kSide * kSide, 10);
    int x = 1;
    int y = 1;
    magnitude[kSide + 1] = 100;
    for (int length = kSide - 3, turn = 0; length > 0; length -= turn % 2 == 1 ? 2 : 0, ++turn)
        for (int step = 0; step < length; ++step) {
            edge[static_cast<std::size_t>(y * kSide + x)] = kCandidate;
            x += turn % 4 == 0 ? 1 : turn % 4 == 2 ? -1 : 0;
            y += turn % 4 == 1 ? 1 : turn % 4 == 3 ? -1 : 0;
        }
    const auto candidates = std::count(edge.begin(), edge.end(), kCandidate);
    ASSERT_GT(candidates, 4000);
    canny_hysteresis(magnitude.data(), kSide, kSide, {100, 5}, edge.data());
    EXPECT_EQ(std::count(edge.begin(), edge.end(), kEdge), candidates);
    EXPECT_EQ(std::count(edge.begin(), edge.end(), kNoEdge), kSide * kSide - candidates);
}

TEST(CannyHysteresis, EqualsItsTwinOnRandomMaps)
{
    for (std::uint64_t seed = 0; seed < 20; ++seed) {
        constexpr int kRows = 40;
        constexpr int kCols = 61;
        const auto magnitude = noise<std::int16_t>(kRows * kCols, 0, seed % 2 == 0 ? 30 : 32456, seed);
        std::vector<std::uint8_t> map(kRows * kCols, 0);
        Random random(seed + 77);
        for (std::size_t i = 0; i < map.size(); ++i)
            map[i] = random.integer(0, 9) < 4 ? kCandidate : kNoEdge;
        std::vector<std::uint8_t> expected(map.size());
        const double thigh = 0.05 * static_cast<double>(seed);
        reference::canny_hysteresis(magnitude.data(), map.data(), kRows, kCols, 0.6, thigh, expected.data());

        std::vector<std::uint8_t> edge = map;
        std::vector<std::int32_t> histogram(kMagnitudes);
        for (int r = 0; r < kRows; ++r)
            for (int c = 0; c < kCols; ++c)
                if (r == 0 || c == 0 || r == kRows - 1 || c == kCols - 1)
                    edge[static_cast<std::size_t>(r * kCols + c)] = kNoEdge;
        for (int r = 0; r < kRows; ++r)
            canny_count_candidates(edge.data() + r * kCols, magnitude.data() + r * kCols, kCols, histogram.data());
        canny_hysteresis(magnitude.data(), kRows, kCols, canny_thresholds(histogram.data(), 0.6, thigh), edge.data());
        EXPECT_TRUE(same_bits(edge, expected)) << "seed " << seed;
    }
}

} // namespace
