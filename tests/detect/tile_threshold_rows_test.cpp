// SPDX-License-Identifier: MIT
#include "detect/tile_threshold_rows.h"
#include "tests/reference/tile_threshold.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

namespace
{

using namespace panoval;
using namespace panoval::test;

using Pixels = std::vector<std::uint8_t>;

// A row between four tiles, and the column at which it begins between their centres.
struct Row {
    std::array<std::uint8_t, 4> thresholds; // lower right, lower left, upper right, upper left
    double fraction;                        // vertical, 0 to 1
    std::size_t begin;
    std::size_t tile; // columns from centre to centre
};

std::unique_ptr<TileCorners> corners_of(const Row& row, std::size_t width)
{
    auto corners = std::make_unique<TileCorners>();
    for (std::size_t x = 0; x < width; ++x) {
        const double right = static_cast<double>((row.begin + x) % row.tile) / static_cast<double>(row.tile);
        set_column(corners->lower_right, x, row.thresholds[0] * right);
        set_column(corners->lower_left, x, row.thresholds[1] * (1 - right));
        set_column(corners->upper_right, x, row.thresholds[2] * right);
        set_column(corners->upper_left, x, row.thresholds[3] * (1 - right));
    }
    const auto [lowest, highest] = std::minmax_element(row.thresholds.begin(), row.thresholds.end());
    corners->lowest = *lowest;
    corners->highest = *highest;
    return corners;
}

template <class Mark>
std::vector<Mark> marks_of(const TileCorners& corners, double fraction, const Pixels& pixels)
{
    const Guarded<std::uint8_t> in(pixels);
    Guarded<Mark> map(pixels.size());
    mark_row(corners, fraction_of(fraction), fraction_of(1 - fraction), in.data(), in.size(), map.data());
    EXPECT_TRUE(map.intact());
    return map.values();
}

void expect_twin(const Row& row, const Pixels& pixels)
{
    const auto corners = corners_of(row, pixels.size());
    std::vector<std::uint32_t> expected(pixels.size());
    reference::mark_row(corners->lower_right.value, corners->lower_left.value, corners->upper_right.value,
                        corners->upper_left.value, row.fraction, 1 - row.fraction, pixels.data(), pixels.size(),
                        expected.data());
    const Pixels narrow(expected.begin(), expected.end());
    for_each_target([&] {
        EXPECT_TRUE(same_bits(marks_of<std::uint32_t>(*corners, row.fraction, pixels), expected));
        EXPECT_TRUE(same_bits(marks_of<std::uint8_t>(*corners, row.fraction, pixels), narrow));
    });
}

Row random_row(Random& random)
{
    Row row;
    const std::int64_t middle = random.integer(0, 255);
    const std::int64_t spread = random.integer(0, 3) * random.integer(0, 40);
    for (std::uint8_t& threshold : row.thresholds) {
        const std::int64_t value = middle + random.integer(-spread, spread);
        threshold = static_cast<std::uint8_t>(std::clamp<std::int64_t>(value, 0, 255));
    }
    row.tile = static_cast<std::size_t>(random.integer(1, 300));
    row.begin = static_cast<std::size_t>(random.integer(0, 1000));
    const std::int64_t rows = random.integer(1, 300);
    const std::int64_t y = random.integer(0, rows - 1);
    row.fraction = static_cast<double>(y) / static_cast<double>(rows);
    return row;
}

TEST(TileThresholdRows, MarkWhatIsAtMostTheInterpolatedThreshold)
{
    // 100 * 1/2 * 3/4 + 60 * 1/2 * 3/4 + 40 * 1/2 * 1/4 + 20 * 1/2 * 1/4 = 37.5 + 22.5 + 5 + 2.5, each truncated: 66
    const Row row{{100, 60, 40, 20}, 0.75, 1, 2};
    const auto corners = corners_of(row, 1);
    for_each_target([&] {
        EXPECT_EQ(marks_of<std::uint8_t>(*corners, row.fraction, {66}), Pixels{1});
        EXPECT_EQ(marks_of<std::uint8_t>(*corners, row.fraction, {67}), Pixels{0});
    });
}

TEST(TileThresholdRows, EqualTheirTwinForEveryWidthAndFraction)
{
    for (std::uint64_t seed = 0; seed < 300; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        Random random(seed);
        const Row row = random_row(random);
        const std::size_t width = seed < 100 ? seed + 1 : static_cast<std::size_t>(random.integer(1, kTileStrip));
        expect_twin(row, noise<std::uint8_t>(width, 0, 255, seed));
    }
}

TEST(TileThresholdRows, EqualTheirTwinWherePixelsAreNextToTheThreshold)
{
    for (std::uint64_t seed = 0; seed < 300; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        Random random(seed);
        const Row row = random_row(random);
        const auto [lowest, highest] = std::minmax_element(row.thresholds.begin(), row.thresholds.end());
        const auto low = static_cast<std::uint8_t>(std::max(*lowest - 5, 0));
        const auto high = static_cast<std::uint8_t>(std::min(*highest + 1, 255));
        expect_twin(row, noise<std::uint8_t>(static_cast<std::size_t>(random.integer(1, 130)), low, high, seed));
    }
}

TEST(TileThresholdRows, EqualTheirTwinInBlocksOfOneShade)
{
    for (const int level : {0, 95, 96, 97, 99, 100, 101, 139, 140, 141, 255})
        for (const std::size_t width : {31u, 32u, 33u, 64u, 1024u})
            expect_twin({{100, 140, 120, 110}, 0.3, 5, 40}, Pixels(width, static_cast<std::uint8_t>(level)));
}

TEST(TileThresholdRows, EqualTheirTwinWhereATermJustReachesAWholeNumber)
{
    // The fixed-point products are as far below the terms there as they get: pixels of just that level are dark.
    constexpr int kLeast = 230;
    constexpr int kMost = 254;
    for (int units = 65000; units < 65400; units += 5) {
        const double fraction = (units + 0.9) / 65536;
        const auto corners = std::make_unique<TileCorners>();
        corners->lowest = 0;
        corners->highest = 255;
        Pixels pixels;
        for (int level = kLeast; level <= kMost && level / fraction < 254.9; ++level) {
            double value = level / fraction;
            while (value * fraction < level)
                value = std::nextafter(value, 256.0);
            set_column(corners->lower_right, pixels.size(), value);
            pixels.push_back(static_cast<std::uint8_t>(level));
        }
        for_each_target(
            [&] { EXPECT_EQ(marks_of<std::uint8_t>(*corners, fraction, pixels), Pixels(pixels.size(), 1)) << units; });
    }
}

TEST(TileThresholdRows, TakeTheirOwnPixelsForTheMap)
{
    const Row row{{90, 160, 120, 30}, 0.6, 3, 50};
    const Pixels pixels = noise<std::uint8_t>(77, 0, 255, 4);
    const auto corners = corners_of(row, pixels.size());
    for_each_target([&] {
        Guarded<std::uint8_t> both(pixels);
        mark_row(*corners, fraction_of(row.fraction), fraction_of(1 - row.fraction), both.data(), both.size(),
                 both.data());
        EXPECT_EQ(both.values(), marks_of<std::uint8_t>(*corners, row.fraction, pixels));
    });
}

} // namespace
