// SPDX-License-Identifier: MIT
#include "mosaic/verdict/cell_sums.h"

#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <vector>

namespace panoval::mosaic::test
{

namespace
{

using panoval::test::for_each_target;
using panoval::test::Random;

// What a strip of cells shows, sample by sample.
template <class Sample>
struct Strip {
    std::vector<std::vector<Sample>> rows;
    std::size_t width;
    std::size_t channels;

    // Of samples from 0 to most.
    Strip(std::size_t height, std::size_t width_, std::size_t channels_, int most) : width(width_), channels(channels_)
    {
        Random random(static_cast<unsigned>(height * 1000 + width + channels));
        for (std::size_t y = 0; y < height; ++y) {
            rows.emplace_back(width * channels);
            for (Sample& sample : rows.back())
                sample = static_cast<Sample>(most - random.integer(0, 1) * random.integer(0, most));
        }
    }

    std::size_t cells(std::size_t step) const { return (width + step - 1) / step; }

    void expect_sums(std::size_t step) const
    {
        std::vector<std::uint64_t> expected(cells(step) * channels, 7);
        std::vector<std::uint8_t> expected_clipped(cells(step), 4);
        for (const std::vector<Sample>& row : rows)
            for (std::size_t i = 0; i < row.size(); ++i) {
                const std::size_t cell = i / channels / step;
                expected[cell * channels + i % channels] += row[i];
                if (row[i] == static_cast<Sample>(~Sample{0}))
                    expected_clipped[cell] = 4 + 2;
            }
        std::vector<const std::uint8_t*> places;
        for (const std::vector<Sample>& row : rows)
            places.push_back(reinterpret_cast<const std::uint8_t*>(row.data()));
        std::vector<std::uint64_t> sums(expected.size(), 7);
        std::vector<std::uint8_t> clipped(expected_clipped.size(), 4);
        CellSummer().add({places, width, channels, sizeof(Sample), step}, sums.data(), clipped.data(), 2);
        EXPECT_EQ(sums, expected) << width << " x " << rows.size() << ", cells of " << step;
        EXPECT_EQ(clipped, expected_clipped) << width << " x " << rows.size() << ", cells of " << step;
    }
};

TEST(CellSums, AddWhatTheCellsHoldWhateverTheirSize)
{
    for_each_target([] {
        for (const std::size_t channels : {1u, 3u, 4u})
            for (const std::size_t step : {1u, 2u, 4u, 8u, 16u, 64u})
                for (const std::size_t width : {1u, 5u, 64u, 131u}) {
                    Strip<std::uint8_t>(step, width, channels, 255).expect_sums(step);
                    Strip<std::uint16_t>(step, width, channels, 65535).expect_sums(step);
                    Strip<std::uint8_t>(3, width, channels, 254).expect_sums(step); // nothing clipped
                }
    });
}

TEST(CellSums, HoldTheLargestSamplesOfManyRows)
{
    for_each_target([] {
        const std::vector<std::uint8_t> row(64, 255);
        const std::vector<const std::uint8_t*> rows(128, row.data());
        std::vector<std::uint64_t> sums(1);
        std::vector<std::uint8_t> clipped(1);
        CellSummer().add({rows, 64, 1, 1, 64}, sums.data(), clipped.data(), 1);
        EXPECT_EQ(sums[0], 128u * 64u * 255u);
        EXPECT_EQ(clipped[0], 1);
    });
}

} // namespace

} // namespace panoval::mosaic::test
