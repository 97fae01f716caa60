// SPDX-License-Identifier: MIT
#include "mosaic/verdict/butterfly_rows.h"

#include "tests/reference/butterfly_rows.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <vector>

namespace panoval::mosaic::test
{

namespace
{

using panoval::test::for_each_target;
using panoval::test::noise;

TEST(ButterflyRows, AddsAndSubtractsTheTurnedRow)
{
    for_each_target([] {
        double real_a = 1;
        double imaginary_a = 2;
        double real_b = 3;
        double imaginary_b = 4;
        combine_rows({&real_a, &imaginary_a}, {&real_b, &imaginary_b}, {0, -1}, 1); // times -i: 4 - 3 i
        EXPECT_EQ(real_a, 5);
        EXPECT_EQ(imaginary_a, -1);
        EXPECT_EQ(real_b, -3);
        EXPECT_EQ(imaginary_b, 5);
    });
}

TEST(ButterflyRows, EqualTheirTwinForEveryTailAndOffset)
{
    for_each_target([] {
        for (std::size_t offset = 0; offset < 4; ++offset)
            for (std::size_t width = 0; width <= 35; ++width) {
                const std::size_t pitch = width + 1; // one number after each row: a kernel that runs past it changes it
                auto expected = noise<double>(offset + 4 * pitch, -9, 9, 3);
                auto actual = expected;
                const auto row = [&](std::vector<double>& values, std::size_t i) {
                    return ComplexRow{values.data() + offset + 2 * i * pitch,
                                      values.data() + offset + (2 * i + 1) * pitch};
                };
                reference::combine_rows(row(expected, 0), row(expected, 1), {0.8, -0.6}, width);
                combine_rows(row(actual, 0), row(actual, 1), {0.8, -0.6}, width);
                EXPECT_TRUE(panoval::test::same_bits(actual, expected)) << width << " columns from " << offset;
            }
    });
}

} // namespace

} // namespace panoval::mosaic::test
