// SPDX-License-Identifier: MIT
#include "measure/edge_kernel.h"

#include "tests/reference/edge_kernel.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace
{

using panoval::measure::EdgeRows;
using panoval::test::for_each_target;
using panoval::test::Random;

constexpr std::size_t kMostWidth = 70;

// Five rows of samples and the squared gradients of the middle three. Few levels, so that many gradients are equal,
// level or upright.
struct Rows {
    Rows(std::size_t width, std::uint64_t seed, std::int64_t levels)
    {
        Random random(seed);
        for (std::vector<std::uint16_t>& row : samples)
            for (std::size_t x = 0; x < width; ++x)
                row.push_back(static_cast<std::uint16_t>(random.integer(0, levels - 1) * (65535 / (levels - 1))));
        for (std::size_t i = 0; i < 3; ++i) {
            squares[i].resize(width);
            panoval::reference::square_gradients(samples[i].data(), samples[i + 1].data(), samples[i + 2].data(), width,
                                                 0, squares[i].data());
        }
    }
    EdgeRows middle() const
    {
        return {{samples[1].data(), samples[2].data(), samples[3].data()},
                {squares[0].data(), squares[1].data(), squares[2].data()}};
    }

    std::vector<std::uint16_t> samples[5];
    std::vector<float> squares[3];
};

TEST(SquareGradients, EqualsItsTwinForEveryTail)
{
    for_each_target([] {
        for (std::size_t width = 2; width <= kMostWidth; ++width) {
            const Rows rows(width, width, 60000);
            std::vector<float> expected(width + 8, -1.f);
            auto actual = expected;
            for (const float least : {0.f, 3e9f, 1e12f}) {
                const auto row = [&](std::size_t i) { return rows.samples[i].data(); };
                const bool any =
                    panoval::reference::square_gradients(row(0), row(1), row(2), width, least, expected.data());
                ASSERT_EQ(panoval::measure::square_gradients(row(0), row(1), row(2), width, least, actual.data()), any)
                    << "width " << width << ", least " << least;
                ASSERT_EQ(actual, expected) << "width " << width;
            }
        }
    });
}

TEST(MarkSteepest, EqualsItsTwinForEveryTail)
{
    for_each_target([] {
        for (std::size_t width = 2; width <= kMostWidth; ++width)
            for (const std::int64_t levels : {2, 4, 9, 60000}) {
                const Rows rows(width, width, levels);
                std::vector<std::uint8_t> expected(width + 8, 9);
                auto actual = expected;
                for (const float least : {0.f, 1e9f, 1e12f}) {
                    panoval::reference::mark_steepest(rows.middle(), width, least, expected.data());
                    panoval::measure::mark_steepest(rows.middle(), width, least, actual.data());
                    ASSERT_EQ(actual, expected) << "width " << width << ", levels " << levels << ", least " << least;
                }
            }
    });
}

TEST(MarkSteepest, MarksTheMiddleOfAnEdgeInAnyDirection)
{
    const std::uint16_t step[] = {0, 0, 100, 300, 400, 400, 400, 400, 400};
    for (const bool is_falling : {false, true}) {
        std::vector<std::uint16_t> samples(step, step + 9);
        if (is_falling)
            std::reverse(samples.begin(), samples.end());
        std::vector<float> squares(9);
        panoval::measure::square_gradients(samples.data(), samples.data(), samples.data(), 9, 0, squares.data());
        const EdgeRows rows = {{samples.data(), samples.data(), samples.data()},
                               {squares.data(), squares.data(), squares.data()}};
        std::vector<std::uint8_t> marks(9, 0);
        panoval::measure::mark_steepest(rows, 9, 1, marks.data());
        // Of the two equally steep pixels of the edge the one uphill.
        const std::size_t expected = is_falling ? 5 : 3;
        for (std::size_t x = 1; x < 8; ++x)
            EXPECT_EQ(marks[x], x == expected ? 1 : 0) << "x " << x;
    }
}

} // namespace
