// SPDX-License-Identifier: MIT
#include "mosaic/seams/seam_rows.h"

#include "tests/reference/seam_rows.h"
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

TEST(SeamRows, SumsSamplesAndTheirDifferences)
{
    for_each_target([] {
        const std::uint8_t row[] = {10, 20, 255};
        const std::uint8_t below[] = {13, 20, 0};
        std::uint16_t sums[] = {1, 0, 0};
        std::uint16_t rough[] = {0, 5, 0};
        sum_row(row, below, 3, 1, sums, rough);
        EXPECT_EQ(std::vector<int>(sums, sums + 3), (std::vector<int>{11, 20, 255}));
        EXPECT_EQ(std::vector<int>(rough, rough + 3), (std::vector<int>{13, 240, 255}));
    });
}

TEST(SeamRows, EqualsItsTwinForEveryTailAndOffset)
{
    for_each_target([] {
        Random random(3);
        for (std::size_t count = 0; count <= 70; ++count)
            for (std::size_t step = 1; step <= 4; ++step) {
                std::vector<std::uint8_t> row(count);
                std::vector<std::uint8_t> below(count);
                std::vector<std::uint16_t> sums(count);
                for (std::size_t i = 0; i < count; ++i) {
                    row[i] = static_cast<std::uint8_t>(random.integer(0, 255));
                    below[i] = static_cast<std::uint8_t>(random.integer(0, 1) * 255);
                    sums[i] = static_cast<std::uint16_t>(random.integer(0, 65535));
                }
                for (const std::uint8_t* const under :
                     {static_cast<const std::uint8_t*>(nullptr), static_cast<const std::uint8_t*>(below.data())}) {
                    std::vector<std::uint16_t> expected_sums = sums;
                    std::vector<std::uint16_t> expected_rough = sums;
                    std::vector<std::uint16_t> actual_sums = sums;
                    std::vector<std::uint16_t> actual_rough = sums;
                    reference::sum_row(row.data(), under, count, step, expected_sums.data(), expected_rough.data());
                    sum_row(row.data(), under, count, step, actual_sums.data(), actual_rough.data());
                    EXPECT_EQ(actual_sums, expected_sums) << count << " samples, step " << step;
                    EXPECT_EQ(actual_rough, expected_rough) << count << " samples, step " << step;
                }
            }
    });
}

} // namespace

} // namespace panoval::mosaic::test
