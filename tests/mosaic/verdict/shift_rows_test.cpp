// SPDX-License-Identifier: MIT
#include "mosaic/verdict/shift_rows.h"

#include "tests/reference/shift_rows.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace panoval::mosaic::test
{

namespace
{

using panoval::test::for_each_target;
using panoval::test::noise;

TEST(ShiftRows, InterpolatesBetweenFourPixels)
{
    for_each_target([] {
        const float upper[] = {0, 4};
        const float lower[] = {8, 8};
        float out = 0;
        interpolate_row(upper, lower, 0.25f, 0.5f, 1, &out);
        EXPECT_EQ(out, 4.5f);
    });
}

TEST(ShiftRows, SumsProductsOfValuesAndGradients)
{
    for_each_target([] {
        // Three rows of three pixels each; the row in the middle counts with its middle pixel.
        const float first[] = {0, 1, 0, 2, 3, 6, 0, 5, 0};
        const float second[] = {0, 2, 0, 1, 7, 3, 0, 8, 0};
        const float weight = 1;
        std::array<double, kShiftSums> sums{};
        add_shift_row({first + 4, second + 4, 3, 3, &weight, 1}, sums);
        EXPECT_EQ(sums, (std::array<double, kShiftSums>{1, 3, 7, 9, 21, 49, 2, 2, 6, 14, 6, 14, 4, 4, 4, 2, 4, 6}));
    });
}

TEST(ShiftRows, InterpolatesLikeItsTwinForEveryTailAndOffset)
{
    for_each_target([] {
        for (std::size_t offset = 0; offset < 4; ++offset)
            for (std::size_t count = 0; count <= 35; ++count) {
                const auto rows = noise<float>(2 * (offset + count + 1), -40, 40, 5);
                const float* const upper = rows.data() + offset;
                const float* const lower = upper + offset + count + 1;
                std::vector<float> expected(count);
                std::vector<float> actual(count);
                reference::interpolate_row(upper, lower, 0.3f, 0.7f, count, expected.data());
                interpolate_row(upper, lower, 0.3f, 0.7f, count, actual.data());
                EXPECT_TRUE(panoval::test::same_bits(actual, expected)) << count << " pixels from " << offset;
            }
    });
}

TEST(ShiftRows, SumsLikeItsTwinForEveryTailAndOffset)
{
    for_each_target([] {
        for (std::size_t offset = 0; offset < 4; ++offset)
            for (std::size_t count = 0; count <= 35; ++count) {
                const std::size_t stride = offset + count + 2;
                const auto first = noise<float>(3 * stride, -40, 40, 6);
                const auto second = noise<float>(3 * stride, -40, 40, 7);
                auto weight = noise<float>(count, -1, 1, 8);
                for (float& w : weight)
                    w = w > 0 ? 1.0f : 0.0f;
                const ShiftRow row{first.data() + stride + offset + 1,
                                   second.data() + stride + offset + 1,
                                   stride,
                                   stride,
                                   weight.data(),
                                   count};
                std::array<double, kShiftSums> expected{};
                std::array<double, kShiftSums> actual{};
                expected[kA] = actual[kA] = 0.1;
                reference::add_shift_row(row, expected);
                add_shift_row(row, actual);
                EXPECT_EQ(actual, expected) << count << " pixels from " << offset;
            }
    });
}

} // namespace

} // namespace panoval::mosaic::test
