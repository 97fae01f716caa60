// SPDX-License-Identifier: MIT
#include "mosaic/gains/gain_sums.h"

#include "tests/reference/gain_sums.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

namespace panoval::mosaic::test
{

namespace
{

using panoval::test::for_each_target;
using panoval::test::noise;

TEST(GainSums, CountOnlyWhatBothPicturesHaveBelowTheBound)
{
    for_each_target([] {
        const std::vector<std::uint8_t> first{10, 250, 20, 30, 40};
        const std::vector<std::uint8_t> second{11, 21, 255, 31, 41};
        const std::vector<std::uint8_t> mask{1, 1, 1, 0, 255};
        ColumnSums8 sums;
        sums.clear(5);
        add_gain_row(GainRow<std::uint8_t>{first.data(), second.data(), mask.data(), 5, 250}, sums);
        EXPECT_EQ(sums.first, (std::vector<std::uint16_t>{10, 0, 0, 0, 40}));
        EXPECT_EQ(sums.second, (std::vector<std::uint16_t>{11, 0, 0, 0, 41}));
        EXPECT_EQ(sums.used, (std::vector<std::uint16_t>{1, 0, 0, 0, 1}));
        EXPECT_EQ(sums.bright, (BoundCounts{1, 1}));
    });
}

// Blocks of the exact size, so that a read behind the end is found.
template <class Sample>
std::unique_ptr<Sample[]> exact(const std::vector<Sample>& values)
{
    auto block = std::make_unique<Sample[]>(values.size());
    std::copy(values.begin(), values.end(), block.get());
    return block;
}

template <class Sample, class Sums>
void compare_with_twin(Sample largest, Sample bound)
{
    for (std::size_t count = 0; count <= 67; ++count) {
        Sums actual;
        Sums expected;
        actual.clear(count);
        expected.clear(count);
        for (std::size_t row = 0; row < Sums::kRows; row += 1 + count) {
            const auto first = exact(noise<Sample>(count, 0, largest, 3 * row + count));
            const auto second = exact(noise<Sample>(count, 0, largest, 5 * row + count));
            const auto mask = exact(noise<Sample>(count, 0, 1, 7 * row + count));
            const GainRow<Sample> samples{first.get(), second.get(), mask.get(), count, bound};
            add_gain_row(samples, actual);
            reference::add_gain_row(samples, expected);
        }
        EXPECT_EQ(actual.first, expected.first) << "count " << count;
        EXPECT_EQ(actual.second, expected.second) << "count " << count;
        EXPECT_EQ(actual.used, expected.used) << "count " << count;
        EXPECT_EQ(actual.bright, expected.bright) << "count " << count;
    }
}

TEST(GainSums, EqualTheirTwinForEveryTail)
{
    for_each_target([] {
        compare_with_twin<std::uint8_t, ColumnSums8>(255, 250);
        compare_with_twin<std::uint16_t, ColumnSums16>(65535, 64250);
    });
}

TEST(GainSums, HoldTheBrightestRowsThatFit)
{
    for_each_target([] {
        const std::vector<std::uint8_t> bright8(40, 254);
        const std::vector<std::uint16_t> bright16(40, 65534);
        ColumnSums8 sums8;
        ColumnSums16 sums16;
        sums8.clear(40);
        sums16.clear(40);
        for (std::size_t row = 0; row < ColumnSums8::kRows; ++row) {
            add_gain_row(GainRow<std::uint8_t>{bright8.data(), bright8.data(), bright8.data(), 40, 255}, sums8);
            add_gain_row(GainRow<std::uint16_t>{bright16.data(), bright16.data(), bright16.data(), 40, 65535}, sums16);
        }
        EXPECT_EQ(sums8.first, std::vector<std::uint16_t>(40, 255 * 254));
        EXPECT_EQ(sums16.second, std::vector<std::uint32_t>(40, 255u * 65534u));
    });
}

} // namespace

} // namespace panoval::mosaic::test
