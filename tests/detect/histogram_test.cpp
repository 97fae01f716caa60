// SPDX-License-Identifier: MIT
#include "detect/histogram.h"
#include "panoval.h"
#include "tests/reference/histogram.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace
{

using panoval::test::for_each_target;
using panoval::test::Guarded;
using panoval::test::kAllContents;
using panoval::test::noise;
using panoval::test::Random;
using panoval::test::same_bits;

std::vector<double> histogram_of(const std::vector<std::uint8_t>& pixels, std::int32_t width, std::int32_t height)
{
    const Guarded<std::uint8_t> input(pixels);
    Guarded<double> bins(256);
    double* holder = bins.data();
    EXPECT_EQ(histogram_count(input.data(), width, height, &holder), 1);
    EXPECT_TRUE(bins.intact() && input.intact());
    EXPECT_EQ(holder, bins.data());
    return bins.values();
}

std::vector<double> histogram_of(const std::vector<std::uint8_t>& pixels)
{
    return histogram_of(pixels, static_cast<std::int32_t>(pixels.size()), 1);
}

std::vector<double> twin_histogram_of(const std::vector<std::uint8_t>& pixels, std::int32_t width, std::int32_t height)
{
    std::vector<double> bins(256, -1);
    double* holder = bins.data();
    panoval::reference::histogram_count(pixels.data(), width, height, &holder);
    return bins;
}

// All three ways to ask for the threshold.
std::int32_t threshold_of(const std::vector<double>& values)
{
    Guarded<double> bins(values);
    double* holder = bins.data();
    const std::int32_t threshold = find_threshold(bins.data());
    EXPECT_EQ(find_trough(&holder), threshold);
    EXPECT_EQ(panoval::between_class_threshold(bins.data()), threshold);
    EXPECT_TRUE(same_bits(bins.values(), values)) << "the bins are read only";
    return threshold;
}

TEST(HistogramCount, GivesTheFractionOfEachLevel)
{
    const auto bins = histogram_of({0, 0, 7, 255});
    for (std::size_t level = 0; level < 256; ++level)
        EXPECT_EQ(bins[level], level == 0 ? 0.5 : level == 7 || level == 255 ? 0.25 : 0.0);
}

TEST(HistogramCount, OverwritesWhatTheBinsHold)
{
    std::vector<double> bins(256, std::nan(""));
    double* holder = bins.data();
    const std::uint8_t pixel = 3;
    EXPECT_EQ(histogram_count(&pixel, 1, 1, &holder), 1);
    EXPECT_EQ(bins[0], 0.0);
    EXPECT_EQ(bins[3], 1.0);
}

TEST(HistogramCount, DividesAndDoesNotMultiplyByAReciprocal)
{
    const std::vector<std::uint8_t> pixels = {1, 1, 1, 2, 2, 3, 3, 3, 3, 3};
    const auto bins = histogram_of(pixels);
    EXPECT_EQ(bins[1], 3.0 / 10.0);
    EXPECT_NE(bins[1], 3.0 * (1.0 / 10.0));
}

TEST(HistogramCount, OfNoPixelsGivesNotANumber)
{
    for (const auto& [width, height] : {std::pair(0, 0), std::pair(0, 5), std::pair(7, 0), std::pair(65536, 65536)}) {
        const auto bins = histogram_of({}, width, height);
        for (const double bin : bins)
            EXPECT_TRUE(std::isnan(bin));
        EXPECT_EQ(threshold_of(bins), -1);
    }
}

TEST(HistogramCount, OfANegativeProductCountsNothingAndDividesByIt)
{
    for (const auto& [width, height] : {std::pair(-3, 4), std::pair(3, -4), std::pair(65536, 32768)}) {
        const auto bins = histogram_of({}, width, height);
        for (const double bin : bins)
            EXPECT_TRUE(bin == 0 && std::signbit(bin));
        EXPECT_TRUE(same_bits(bins, twin_histogram_of({}, width, height)));
        EXPECT_EQ(threshold_of(bins), -1);
    }
}

TEST(HistogramCount, TakesTheProductAt32Bits)
{
    // (65536 + 1) * 65536 is 65536 in 32 bits, and -3 * -4 is 12.
    const auto pixels = noise<std::uint8_t>(65536, 0, 255, 1);
    EXPECT_TRUE(same_bits(histogram_of(pixels, 65537, 65536), histogram_of(pixels, 256, 256)));
    EXPECT_TRUE(same_bits(histogram_of({1, 2, 3, 4, 5, 6, 7, 8, 9, 9, 9, 9}, -3, -4),
                          histogram_of({1, 2, 3, 4, 5, 6, 7, 8, 9, 9, 9, 9}, 3, 4)));
}

TEST(HistogramCount, EqualsItsTwinForEveryCountAndContent)
{
    for (std::int32_t width = 1; width <= 67; ++width)
        for (const auto content : kAllContents) {
            const auto pixels = panoval::test::picture(content, width, 13, 5);
            EXPECT_TRUE(same_bits(histogram_of(pixels, width, 13), twin_histogram_of(pixels, width, 13)))
                << width << " x 13 of " << panoval::test::name_of(content);
        }
    for (std::size_t count = 1; count <= 67; ++count) {
        const auto pixels = noise<std::uint8_t>(count, 0, 255, count);
        EXPECT_TRUE(same_bits(histogram_of(pixels), twin_histogram_of(pixels, static_cast<std::int32_t>(count), 1)));
    }
}

TEST(FindThreshold, OfOneLevelIsNone)
{
    for_each_target([] {
        for (int level = 0; level < 256; ++level) {
            std::vector<double> bins(256, 0.0);
            bins[static_cast<std::size_t>(level)] = 1.0;
            EXPECT_EQ(threshold_of(bins), -1) << "level " << level;
        }
        EXPECT_EQ(threshold_of(histogram_of({99})), -1) << "one pixel";
    });
}

TEST(FindThreshold, OfTwoLevelsIsTheLowerOne)
{
    for_each_target([] {
        for (int low = 0; low < 255; low += 3)
            for (int high = low + 1; high < 256; high += 5) {
                std::vector<double> bins(256, 0.0);
                bins[static_cast<std::size_t>(low)] = 0.25;
                bins[static_cast<std::size_t>(high)] = 0.75;
                ASSERT_EQ(threshold_of(bins), low) << low << " and " << high;
            }
    });
}

TEST(FindThreshold, OfAnEmptyHistogramIsNone)
{
    for_each_target([] {
        EXPECT_EQ(threshold_of(std::vector<double>(256, 0.0)), -1);
        EXPECT_EQ(threshold_of(std::vector<double>(256, -0.0)), -1);
        EXPECT_EQ(threshold_of(std::vector<double>(256, std::nan(""))), -1);
        EXPECT_EQ(threshold_of(std::vector<double>(256, std::numeric_limits<double>::infinity())), -1);
    });
}

TEST(FindThreshold, LiesBetweenTwoHeaps)
{
    std::vector<double> bins(256, 0.0);
    for (const int centre : {60, 180})
        for (int offset = -2; offset <= 2; ++offset)
            bins[static_cast<std::size_t>(centre + offset)] = 0.1;
    EXPECT_EQ(threshold_of(bins), 62);
}

TEST(FindThreshold, TakesTheLowestOfEqualVariances)
{
    // Mirror-symmetric: the two splits around the middle heap have equal variances.
    for_each_target([] {
        std::vector<double> bins(256, 0.0);
        bins[10] = bins[30] = 0.25;
        bins[20] = 0.5;
        EXPECT_EQ(threshold_of(bins), 10);
    });
}

TEST(FindThreshold, TreatsTheHighestLevelAsAnyOther)
{
    // Fractions that sum to less than one leave a class above level 255; its mean is 0.
    for_each_target([] {
        for (const std::size_t level : {std::size_t{1}, std::size_t{100}, std::size_t{254}, std::size_t{255}}) {
            std::vector<double> bins(256, 0.0);
            bins[level] = 0.5;
            EXPECT_EQ(threshold_of(bins), static_cast<std::int32_t>(level));
        }
    });
}

TEST(FindThreshold, EqualsItsTwinOnHistogramsOfPictures)
{
    for_each_target([] {
        for (const auto content : kAllContents)
            for (std::uint64_t seed = 0; seed < 40; ++seed) {
                const auto bins = histogram_of(panoval::test::picture(content, 37, 29, seed), 37, 29);
                EXPECT_EQ(threshold_of(bins), panoval::reference::find_threshold(bins.data()));
            }
    });
}

TEST(FindThreshold, EqualsItsTwinOnSparseFlatAndSymmetricHistograms)
{
    for_each_target([] {
        Random random(3);
        for (int i = 0; i < 3000; ++i) {
            std::vector<std::uint8_t> pixels(static_cast<std::size_t>(random.integer(1, 60)));
            const std::int64_t span = random.integer(0, 255);
            const std::int64_t low = random.integer(0, 255 - span);
            for (auto& pixel : pixels)
                pixel = static_cast<std::uint8_t>(random.integer(low, low + span));
            const std::size_t count = pixels.size();
            if (i % 2 == 0) // a mirror image beside it: pairs of equal variances, up to rounding
                for (std::size_t k = 0; k < count; ++k)
                    pixels.push_back(static_cast<std::uint8_t>(255 - pixels[k]));
            const auto bins = histogram_of(pixels);
            ASSERT_EQ(threshold_of(bins), panoval::reference::find_threshold(bins.data())) << "histogram " << i;
        }
    });
}

TEST(FindThreshold, EqualsItsTwinOnBinsThatAreNoFractions)
{
    for_each_target([] {
        for (std::uint64_t seed = 0; seed < 500; ++seed) {
            const double size = std::ldexp(1.0, static_cast<int>(seed % 13) * 80 - 480);
            const auto bins = noise<double>(256, seed % 3 == 0 ? -size : 0.0, size, seed);
            ASSERT_EQ(threshold_of(bins), panoval::reference::find_threshold(bins.data())) << "seed " << seed;
        }
    });
}

} // namespace
