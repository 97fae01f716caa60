// SPDX-License-Identifier: MIT
#include "mosaic/verdict/cell_rows.h"

#include "tests/reference/cell_rows.h"
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

TEST(CellRows, SumsSamplesAndKeepsTheLargest)
{
    for_each_target([] {
        const std::uint8_t row[] = {10, 20, 255};
        std::uint16_t sums[] = {1, 0, 65280};
        std::uint8_t most[] = {11, 0, 7};
        sum_cell_row(row, 3, sums, most);
        EXPECT_EQ(std::vector<int>(sums, sums + 3), (std::vector<int>{11, 20, 65535}));
        EXPECT_EQ(std::vector<int>(most, most + 3), (std::vector<int>{11, 20, 255}));
    });
}

template <class Sample, class Sum>
void compare_with_twin()
{
    Random random(4);
    const int largest = static_cast<Sample>(~Sample{0});
    for (std::size_t offset = 0; offset < 4; ++offset)
        for (std::size_t count = 0; count <= 70; ++count) {
            std::vector<Sample> row(offset + count);
            std::vector<Sum> sums(offset + count);
            std::vector<Sample> most(offset + count);
            for (std::size_t i = 0; i < row.size(); ++i) {
                row[i] = static_cast<Sample>(random.integer(0, 1) * random.integer(0, largest));
                sums[i] = static_cast<Sum>(random.integer(0, largest) * 200);
                most[i] = static_cast<Sample>(random.integer(0, largest));
            }
            std::vector<Sum> expected_sums = sums;
            std::vector<Sample> expected_most = most;
            reference::sum_cell_row(row.data() + offset, count, expected_sums.data() + offset,
                                    expected_most.data() + offset);
            sum_cell_row(row.data() + offset, count, sums.data() + offset, most.data() + offset);
            EXPECT_EQ(sums, expected_sums) << count << " samples from " << offset;
            EXPECT_EQ(most, expected_most) << count << " samples from " << offset;
        }
}

TEST(CellRows, EqualsItsTwinForEveryTailAndOffset)
{
    for_each_target([] {
        compare_with_twin<std::uint8_t, std::uint16_t>();
        compare_with_twin<std::uint16_t, std::uint32_t>();
    });
}

} // namespace

} // namespace panoval::mosaic::test
